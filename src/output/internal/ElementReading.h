// How the elements of an output are walked: names without regard to case, comments passed over, and what is neither
// attribute nor element logged and passed over.
#pragma once

#include <functional>
#include <string>

namespace platform::data {
class XMLNode;
}

namespace output {

/// Calls back for each attribute, in document order, with its name in lower case and its text.
void forEachAttribute(const platform::data::XMLNode& element,
                      const std::function<void(const std::string& name, const std::string& text)>& callback);

/// Calls back for each child element, in document order.
void forEachChildElement(const platform::data::XMLNode& element,
                         const std::function<void(const platform::data::XMLNode& child)>& callback);

} // namespace output
