#include "platform/data/XMLDocument.h"

#include "base/Text.h"

#include <algorithm>

namespace platform::data {
namespace {

XMLNodeRef nodeNamed(const std::vector<XMLNodeRef>& nodes, std::string_view name) {
    for (const XMLNodeRef& node : nodes) {
        if (node->nameIs(name)) return node;
    }
    return nullptr;
}

void appendText(const XMLNode& node, std::string& text) {
    for (const XMLNodeRef& child : node.children()) {
        if (child->kind() == XMLNodeKind::text)
            text += child->stringValue();
        else if (child->isElement())
            appendText(*child, text);
    }
}

} // namespace

XMLNodeRef XMLNode::element(std::string_view name) {
    return std::make_shared<XMLNode>(Key{}, XMLNodeKind::element, name, std::string_view());
}

XMLNodeRef XMLNode::element(std::string_view name, std::string_view text) {
    XMLNodeRef node = element(name);
    node->setStringValue(text);
    return node;
}

XMLNodeRef XMLNode::text(std::string_view text) {
    return std::make_shared<XMLNode>(Key{}, XMLNodeKind::text, std::string_view(), text);
}

XMLNodeRef XMLNode::cdata(std::string_view text) {
    XMLNodeRef node = XMLNode::text(text);
    node->isCDATA_ = true;
    return node;
}

XMLNodeRef XMLNode::comment(std::string_view text) {
    return std::make_shared<XMLNode>(Key{}, XMLNodeKind::comment, std::string_view(), text);
}

XMLNodeRef XMLNode::attribute(std::string_view name, std::string_view value) {
    return std::make_shared<XMLNode>(Key{}, XMLNodeKind::attribute, name, value);
}

bool XMLNode::nameIs(std::string_view name) const {
    return base::equalIgnoringCase(name_, name);
}

std::string XMLNode::stringValue() const {
    if (kind_ != XMLNodeKind::element && kind_ != XMLNodeKind::document) return value_;
    std::string text;
    appendText(*this, text);
    return text;
}

void XMLNode::setStringValue(std::string_view text) {
    if (kind_ != XMLNodeKind::element) {
        value_ = text;
        return;
    }
    while (!children_.empty()) {
        children_.back()->detach();
    }
    if (!text.empty()) addChild(XMLNode::text(text));
}

XMLNodeRef XMLNode::attributeForName(std::string_view name) const {
    return nodeNamed(attributes_, name);
}

std::optional<std::string> XMLNode::attributeValue(std::string_view name) const {
    const XMLNodeRef node = attributeForName(name);
    if (!node) return std::nullopt;
    return node->value_;
}

XMLNodeRef XMLNode::childNamed(std::string_view name) const {
    for (const XMLNodeRef& child : children_) {
        if (child->isElement() && child->nameIs(name)) return child;
    }
    return nullptr;
}

void XMLNode::addChild(XMLNodeRef child) {
    child->detach();
    child->parent_ = weak_from_this();
    children_.push_back(std::move(child));
}

void XMLNode::addChildren(const std::vector<XMLNodeRef>& children) {
    for (const XMLNodeRef& child : std::vector<XMLNodeRef>(children)) {
        addChild(child);
    }
}

void XMLNode::setAttribute(std::string_view name, std::string_view value) {
    if (const XMLNodeRef present = attributeForName(name))
        present->value_ = value;
    else
        addAttribute(attribute(name, value));
}

void XMLNode::addAttribute(XMLNodeRef attribute) {
    attribute->detach();
    attribute->parent_ = weak_from_this();
    const auto place = std::find_if(attributes_.begin(), attributes_.end(),
                                    [&](const XMLNodeRef& present) { return present->nameIs(attribute->name_); });
    if (place == attributes_.end()) {
        attributes_.push_back(std::move(attribute));
    } else {
        (*place)->parent_.reset();
        *place = std::move(attribute);
    }
}

void XMLNode::removeAttribute(std::string_view name) {
    if (const XMLNodeRef present = attributeForName(name)) present->detach();
}

void XMLNode::detach() {
    const XMLNodeRef parent = parent_.lock();
    if (!parent) return;
    const XMLNodeRef self = shared_from_this(); // the parent's list may hold the last reference
    std::erase(kind_ == XMLNodeKind::attribute ? parent->attributes_ : parent->children_, self);
    parent_.reset();
}

unsigned long XMLNode::level() const {
    unsigned long level = 0;
    for (XMLNodeRef ancestor = parent(); ancestor; ancestor = ancestor->parent()) {
        ++level;
    }
    return level;
}

unsigned long XMLNode::index() const {
    const XMLNodeRef owner = parent();
    if (!owner) return 0;
    const auto& siblings = kind_ == XMLNodeKind::attribute   ? owner->attributes_
                           : kind_ == XMLNodeKind::nameSpace ? owner->namespaces_
                                                             : owner->children_;
    const auto place =
        std::find_if(siblings.begin(), siblings.end(), [&](const XMLNodeRef& node) { return node.get() == this; });
    return place == siblings.end() ? 0 : static_cast<unsigned long>(place - siblings.begin());
}

std::string XMLNode::className() const {
    switch (kind_) {
    case XMLNodeKind::document:
        return "NSXMLDocument";
    case XMLNodeKind::element:
        return "NSXMLElement";
    case XMLNodeKind::documentType:
        return "NSXMLDTD";
    default:
        return "NSXMLNode";
    }
}

XMLDocumentRef XMLDocument::withRoot(XMLNodeRef root) {
    auto document = std::make_shared<XMLDocument>(Key{});
    document->isStandalone_ = true;
    if (root) document->addChild(std::move(root));
    return document;
}

XMLNodeRef XMLDocument::rootElement() const {
    for (const XMLNodeRef& child : children()) {
        if (child->isElement()) return child;
    }
    return nullptr;
}

} // namespace platform::data
