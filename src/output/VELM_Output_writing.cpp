// The elements by which outputs, their nodes and their destinations stand in a ticket.
#include "output/VELM_Output.h"
#include "template/ElementWriting.h"
#include "template/VELM_Template.h"

using platform::data::XMLNode;
using platform::data::XMLNodeRef;

XMLAttributes VELM_Output::xmlElementAttributes() const {
    if (size() == base::Size()) return {};
    return {{"size", base::stringFromSize(size())}};
}

XMLNodes VELM_Output::xmlElementChildren() const {
    XMLNodes children;
    if (outputNodes_m_.empty() && templates_.size() == 1 && templates_.begin()->second)
        children.push_back(templates_.begin()->second->asXMLElement());
    for (const auto& node : outputNodes_m_)
        children.push_back(node->asXMLElement());
    children.push_back(XMLNode::element("whattoprint", "all"));
    for (const auto& destination : destinations_m_)
        children.push_back(destination->asXMLElement());
    return children;
}

XMLNodeRef VELM_Output::asXMLElement() const {
    return xmlElement(xmlElementName, xmlElementAttributes(), xmlElementChildren());
}

XMLAttributes VELM_Output_node::xmlElementAttributes() const {
    return {{"type", "node"}};
}

XMLNodes VELM_Output_node::xmlElementChildren() const {
    XMLNodes children;
    for (const std::string& frame : frames_)
        children.push_back(XMLNode::element("frame", frame));
    return children;
}

XMLNodeRef VELM_Output_node::asXMLElement() const {
    return xmlElement(xmlElementName(), xmlElementAttributes(), xmlElementChildren());
}

XMLAttributes VELM_Destination::xmlElementAttributes() const {
    return {{"type", textOfKind(kind_)}};
}

XMLNodes VELM_Destination::xmlElementChildren() const {
    XMLNodes children;
    for (const auto& [key, value] : valuesDict_)
        children.push_back(XMLNode::element(key, value.stringValue().value_or("")));
    return children;
}

XMLNodeRef VELM_Destination::asXMLElement() const {
    return xmlElement(xmlElementName, xmlElementAttributes(), xmlElementChildren());
}
