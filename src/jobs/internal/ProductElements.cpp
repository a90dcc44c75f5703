#include "ProductElements.h"

#include "XMLReading.h"
#include "base/Log.h"
#include "base/Text.h"
#include "template/TemplateReport.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <array>

namespace jobs {

using platform::data::Findings;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

constexpr std::array<std::string_view, 4> textElements = {"plucode", "productid", "name", "icon"};
constexpr std::array<std::string_view, 4> inlineTemplateElements = {"layout", "portrait", "landscape", "square"};
constexpr std::array<std::string_view, 3> slotAttributes = {"name", "id", "key"};
constexpr std::array<std::string_view, 2> pathElements = {"filepath", "filename"};

template <class Names>
bool isOneOf(const Names& names, std::string_view name) {
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view known) { return base::equalIgnoringCase(known, name); });
}

std::shared_ptr<VELM_Template> templateAt(const XMLNode& element, const std::optional<base::URL>& jobContainer,
                                          Findings* report) {
    const std::string path = element.stringValue();
    if (!report) return VELM_Template::templateWithPath(path, jobContainer);
    TemplateReport reading;
    auto found = VELM_Template::templateWithPath(path, false, jobContainer, &reading);
    if (!found && !reading.findings().empty()) note(report, element, "%@", reading.findings().front().message);
    if (found && !found->value(VELM_XML_Key_layers))
        note(report, element, "the template \"%@\" holds nothing that could be drawn", quotable(path));
    return found;
}

} // namespace

bool isTextElement(std::string_view name) {
    return isOneOf(textElements, name);
}

bool isInlineTemplateElement(std::string_view name) {
    return isOneOf(inlineTemplateElements, name);
}

void checkPrice(const XMLNode& element, Findings* report) {
    for (const XMLNodeRef& child : element.children()) {
        if (child->isElement() && child->nameIs("quantity")) continue;
        base::log("error! bad element kind %lu for element %@", child->kindNumber(), child);
        if (!child->isComment())
            note(report, *child, "%@ in <%@> is no <quantity>", quotable(child->xmlString()), element.name());
    }
}

void readTemplateReference(const XMLNode& element, const std::optional<base::URL>& jobContainer, Findings* report,
                           const StoreTemplate& store) {
    std::optional<std::string> slot;
    for (const XMLNodeRef& attribute : element.attributes()) {
        if (isOneOf(slotAttributes, attribute->name()))
            slot = attribute->stringValue();
        else
            note(report, *attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(),
                 element.name());
    }
    if (!slot) note(report, element, "<%@> has neither name, id nor key: no node can name it", element.name());

    bool namesFile = false;
    for (const XMLNodeRef& child : element.children()) {
        if (!isElementToRead(*child, report)) continue;
        if (!isOneOf(pathElements, child->name())) {
            note(report, *child, "element <%@> in <%@> is not known and is not read", child->name(), element.name());
            continue;
        }
        namesFile = true;
        if (const auto found = templateAt(*child, jobContainer, report)) store(slot.value_or(""), found, *child);
    }
    if (!namesFile) note(report, element, "<%@> names no file in a <filepath>", element.name());
}

} // namespace jobs
