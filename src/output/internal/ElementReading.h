// How the elements of an output are walked: names without regard to case, comments passed over, and what is neither
// attribute nor element logged and passed over. A report is told of that, and of everything that the reader does not
// know; null when nobody asks.
#pragma once

#include "base/MessageTemplate.h"
#include "platform/data/Finding.h"
#include "platform/data/XMLDocument.h"
#include "template/ValueForm.h"

#include <functional>
#include <string>
#include <string_view>

namespace output {

/// Calls back for each attribute, in document order, with its name in lower case and its text. Answers of the callback:
/// whether the attribute is known.
using AttributeReader = std::function<bool(const std::string& name, const std::string& text)>;
void forEachAttribute(const platform::data::XMLNode& element, platform::data::Findings* report,
                      const AttributeReader& callback);

/// Calls back for each child element, in document order. It answers whether the element is known.
using ElementReader = std::function<bool(const platform::data::XMLNode& child)>;
void forEachChildElement(const platform::data::XMLNode& element, platform::data::Findings* report,
                         const ElementReader& callback);

/// Tells a report of a node.
template <class... Arguments>
void note(platform::data::Findings* report, const platform::data::XMLNode& node, std::string_view sentence,
          const Arguments&... arguments) {
    if (report) report->add(node.line(), base::message(sentence, arguments...));
}

/// Tells a report of a text that can't mean what it should: that of a child element, or of an element's attribute.
void noteForm(platform::data::Findings* report, const platform::data::XMLNode& child, grammar::Form form);
void noteForm(platform::data::Findings* report, const platform::data::XMLNode& element, std::string_view attribute,
              grammar::Form form, const std::string& text);

} // namespace output
