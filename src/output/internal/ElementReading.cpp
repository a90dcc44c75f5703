#include "ElementReading.h"

#include "base/Log.h"
#include "base/Text.h"
#include "platform/data/XMLDocument.h"

using platform::data::XMLNode;
using platform::data::XMLNodeKind;
using platform::data::XMLNodeRef;

namespace output {

void forEachAttribute(const XMLNode& element,
                      const std::function<void(const std::string& name, const std::string& text)>& callback) {
    for (const XMLNodeRef& attribute : element.attributes()) {
        if (attribute->kind() == XMLNodeKind::attribute) {
            callback(base::lowercase(attribute->name()), attribute->stringValue());
        } else {
            base::log("unexpected xml parsing attributes for %@ (L%lu,I%lu)", element.name(), element.level(),
                      element.index());
        }
    }
}

void forEachChildElement(const XMLNode& element, const std::function<void(const XMLNode& child)>& callback) {
    for (const XMLNodeRef& child : element.children()) {
        if (child->isElement())
            callback(*child);
        else if (!child->isComment())
            base::log("Found unexpected XML element kind:\n%lu", child->kindNumber());
    }
}

} // namespace output
