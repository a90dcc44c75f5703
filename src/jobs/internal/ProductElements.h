// The elements of a product's file that packages and assets read alike. A report, which may be null, is told what is
// passed over.
#pragma once

#include "base/Path.h"
#include "platform/data/Finding.h"
#include "platform/data/XMLDocument.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class VELM_Template;

namespace jobs {

/// "plucode", "productid", "name", "icon": kept as texts. The name in lower case.
bool isTextElement(std::string_view name);
/// "layout", "portrait", "landscape", "square": templates that stand in the file itself. The name in lower case.
bool isInlineTemplateElement(std::string_view name);

/// Prices have no effect; only what is wrong with them is logged.
void checkPrice(const platform::data::XMLNode& element, platform::data::Findings* report);

/// Calls `store` with each template that the element names and that is found; an element without a name for its slot
/// gives the empty one.
using StoreTemplate = std::function<void(const std::string& slot, const std::shared_ptr<VELM_Template>& found,
                                         const platform::data::XMLNode& pathElement)>;
void readTemplateReference(const platform::data::XMLNode& element, const std::optional<base::URL>& jobContainer,
                           platform::data::Findings* report, const StoreTemplate& store);

} // namespace jobs
