#include "ElementReading.h"

#include "base/Log.h"
#include "base/Text.h"

using platform::data::Findings;
using platform::data::XMLNode;
using platform::data::XMLNodeKind;
using platform::data::XMLNodeRef;

namespace output {

void forEachAttribute(const XMLNode& element, Findings* report, const AttributeReader& callback) {
    for (const XMLNodeRef& attribute : element.attributes()) {
        if (attribute->kind() != XMLNodeKind::attribute) {
            base::log("unexpected xml parsing attributes for %@ (L%lu,I%lu)", element.name(), element.level(),
                      element.index());
        } else if (!callback(base::lowercase(attribute->name()), attribute->stringValue())) {
            note(report, element, "attribute %@ of <%@> is not known and is not read", attribute->name(),
                 element.name());
        }
    }
}

void forEachChildElement(const XMLNode& element, Findings* report, const ElementReader& callback) {
    for (const XMLNodeRef& child : element.children()) {
        if (child->isElement()) {
            if (!callback(*child))
                note(report, *child, "element <%@> in <%@> is not known and is not read", child->name(),
                     element.name());
        } else if (!child->isComment()) {
            base::log("Found unexpected XML element kind:\n%lu", child->kindNumber());
            note(report, *child, "<%@> holds %s, which is not read", element.name(),
                 child->kind() == XMLNodeKind::text ? "text" : "something other than elements");
        }
    }
}

void noteForm(Findings* report, const XMLNode& child, grammar::Form form) {
    if (!report) return;
    const std::string text = child.stringValue();
    if (const auto fault = grammar::faultOf(form, text))
        note(report, child, "<%@>: \"%@\" %@", child.name(), text, *fault);
}

void noteForm(Findings* report, const XMLNode& element, std::string_view attribute, grammar::Form form,
              const std::string& text) {
    if (!report) return;
    if (const auto fault = grammar::faultOf(form, text))
        note(report, element, "attribute %@ of <%@>: \"%@\" %@", attribute, element.name(), text, *fault);
}

} // namespace output
