// The inline package that a package is written as.
#include "base/Log.h"
#include "jobs/VELM_Package.h"
#include "template/ElementWriting.h"
#include "template/VELM_Template.h"

using platform::data::XMLNode;
using platform::data::XMLNodeRef;

XMLAttributes VELM_Package::xmlElementAttributes() const {
    return {{"type", "inline"}, {"id", name().value_or("pkg")}};
}

XMLNodes VELM_Package::xmlElementChildren() const {
    XMLNodes children;
    for (const auto& [name, node] : velmNodes())
        if (const auto fileName = node->lastPathComponent())
            children.push_back(xmlElement("template", {{"id", name}}, {XMLNode::element("filepath", *fileName)}));
    for (const auto& output : outputs())
        children.push_back(output->asXMLElement());
    return children;
}

XMLNodeRef VELM_Package::asXMLElement() {
    if (valuesDict().empty()) {
        parseXML([](VELM_Package&, const std::optional<base::Error>& error, bool&) {
            if (error) base::log("%s%@", "-[VELM_Package asXMLElement]_block_invoke", *error);
        });
    }
    return xmlElement(xmlElementName, xmlElementAttributes(), xmlElementChildren());
}
