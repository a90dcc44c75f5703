// The element of an object that is written to a ticket, of its three parts. Any thread.
#pragma once

#include "platform/data/XMLDocument.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

using XMLAttributes = std::vector<std::pair<std::string, std::string>>;
using XMLNodes = std::vector<platform::data::XMLNodeRef>;

/// Takes the children out of what they stand in.
inline platform::data::XMLNodeRef xmlElement(std::string_view name, const XMLAttributes& attributes,
                                             const XMLNodes& children) {
    auto element = platform::data::XMLNode::element(name);
    for (const auto& [attributeName, value] : attributes)
        element->setAttribute(attributeName, value);
    element->addChildren(children);
    return element;
}
