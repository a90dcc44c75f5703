// From elements to the tree: the root, document bodies, layers, and the nested files that stand for layers.
#include "internal/TemplateGrammar.h"
#include "internal/TemplateReader.h"

#include "base/Log.h"
#include "base/Text.h"
#include "platform/data/XMLDocument.h"

#include <algorithm>

using base::Value;
using platform::data::XMLNode;
using platform::data::XMLNodeKind;
using platform::data::XMLNodeRef;

namespace {

constexpr std::string_view unknownAttribute = "encountered unknown %@ attribute: %@";

// True for an element; logs what is neither that nor a comment.
bool isElementToRead(const XMLNode& node) {
    if (node.isElement()) return true;
    if (!node.isComment()) base::log("Found unexpected XML element kind:\n%lu", node.kindNumber());
    return false;
}

void setSize(VELM_Template& canvas, const std::string& text) {
    const base::Size size = base::sizeFromString(text);
    canvas.setWidth(size.width);
    canvas.setHeight(size.height);
}

} // namespace

const std::vector<std::string_view>& VELM_Template::allContainerKeys() {
    static const std::vector<std::string_view> keys{"layout", "node", "portrait", "landscape", "square"};
    return keys;
}

std::optional<std::string_view> VELM_Template::containerKeyForNode(const XMLNode& node) {
    for (const std::string_view key : allContainerKeys()) {
        if (node.nameIs(key)) return key;
    }
    return std::nullopt;
}

VELM_Template::Ref TemplateReader::documentOf(VELM_Template::Ref document) {
    const auto xmlDoc = document->xmlDoc();
    const XMLNodeRef root = xmlDoc ? xmlDoc->rootElement() : nullptr;
    if (!root) return document;
    for (const XMLNodeRef& attribute : root->attributes()) {
        // Whatever type and version the file claims, it is read.
        if (attribute->nameIs(VELM_XML_Key_type))
            document->setValue(VELM_XML_Key_type, document->className());
        else if (attribute->nameIs(VELM_XML_Key_version))
            document->setValue(VELM_XML_Key_version, attribute->stringValue());
    }
    for (const XMLNodeRef& child : root->children()) {
        if (!isElementToRead(*child) || !VELM_Template::containerKeyForNode(*child)) continue;
        // Of several bodies the last one is the document.
        auto body = nodeOf(*child);
        body->setValue(VELM_XML_Key_version, document->value(VELM_XML_Key_version));
        body->setDocumentURL(document->documentURL());
        body->lastSaved_ = body->copyWithZone();
        document = std::move(body);
    }
    return document;
}

VELM_Template::Ref TemplateReader::nodeOf(const XMLNode& node) {
    auto made = VELM_Template::initForCopy();
    made->xmlNode_ = node.weak_from_this();
    if (!isElementToRead(node)) return made;
    if (const auto containerKey = VELM_Template::containerKeyForNode(node)) {
        readBody(*made, node, *containerKey);
    } else if (node.nameIs("canvas")) {
        readCanvas(*made, node);
    } else if (node.nameIs("layer")) {
        readLayer(*made, node);
        return substituted(std::move(made));
    } else {
        base::log("-+-+-+-+-+-+ adding unknown XML %@", node);
        made->setValue(node.name(), node.stringValue());
    }
    return made;
}

void TemplateReader::readBody(VELM_Template& body, const XMLNode& element, std::string_view containerKey) {
    std::string name(containerKey);
    for (const XMLNodeRef& attribute : element.attributes()) {
        if (attribute->nameIs("name") || attribute->nameIs("id") || attribute->nameIs("key"))
            name = attribute->stringValue();
        else if (attribute->nameIs("size"))
            setSize(body, attribute->stringValue());
    }
    body.setValue(VELM_XML_Key_name, name);
    body.setValue(VELM_XML_Key_type, "container");

    VELM_Template::Layers layers;
    for (const XMLNodeRef& child : element.children()) {
        if (!isElementToRead(*child)) continue;
        if (child->nameIs("layer")) {
            auto layer = nodeOf(*child);
            layer->setParent(body.shared_from_this());
            layers.push_back(std::move(layer));
        } else if (child->nameIs("width")) {
            body.setWidth(base::doubleValue(child->stringValue()));
        } else if (child->nameIs("height")) {
            body.setHeight(base::doubleValue(child->stringValue()));
        } else {
            body.setValue(child->name(), child->stringValue());
        }
    }
    body.setLayers(layers);
    body.sortLayers();
}

void TemplateReader::readCanvas(VELM_Template& canvas, const XMLNode& element) {
    canvas.setValue(VELM_XML_Key_type, "canvas");
    for (const XMLNodeRef& attribute : element.attributes()) {
        if (attribute->nameIs("size"))
            setSize(canvas, attribute->stringValue());
        else if (attribute->nameIs("width"))
            canvas.setWidth(base::doubleValue(attribute->stringValue()));
        else if (attribute->nameIs("height"))
            canvas.setHeight(base::doubleValue(attribute->stringValue()));
    }
    for (const XMLNodeRef& child : element.children()) {
        if (!isElementToRead(*child) || !child->nameIs("node")) continue;
        const base::Rect frame = base::rectFromString(child->attributeValue("frame").value_or(""));
        if (!frame.isEmpty()) canvas.setFrame(frame);
    }
}

void TemplateReader::readLayer(VELM_Template& layer, const XMLNode& element) {
    readLayerAttributes(layer, element);
    for (const XMLNodeRef& child : element.children()) {
        if (isElementToRead(*child)) readLayerChild(layer, *child);
    }
}

void TemplateReader::readLayerAttributes(VELM_Template& layer, const XMLNode& element) {
    for (const XMLNodeRef& attribute : element.attributes()) {
        const auto rules = grammar::layerAttributes();
        const auto rule = std::find_if(rules.begin(), rules.end(), [&](const grammar::LayerAttributeRule& candidate) {
            return attribute->nameIs(candidate.name);
        });
        if (rule == rules.end()) {
            base::log(unknownAttribute, element.name(), attribute);
            base::log("encountered unknown layer attribute: %@", attribute);
            continue;
        }
        const std::string text = attribute->stringValue();
        rule->effect(layer, rule->key, text);
        if (rule->key == VELM_XML_Key_type && base::equalIgnoringCase(text, "edittextbox")) {
            if (const XMLNodeRef number = element.childNamed("stringnumber"))
                layer.setValue(VELM_XML_Key_stamp, number->stringValue());
        }
    }
}

void TemplateReader::readLayerChild(VELM_Template& layer, const XMLNode& child) {
    const grammar::ChildRule* rule = grammar::childRule(child.name());
    if (!rule) return;
    for (const XMLNodeRef& attribute : child.attributes()) {
        if (rule->attributes.empty()) break;
        const auto attributeRule =
            std::find_if(rule->attributes.begin(), rule->attributes.end(),
                         [&](const grammar::AttributeRule& candidate) { return attribute->nameIs(candidate.name); });
        if (attributeRule == rule->attributes.end())
            base::log(unknownAttribute, child.name(), attribute);
        else
            grammar::storeAttribute(layer, *attributeRule, attribute->name(), attribute->stringValue());
    }
    rule->effect(layer, rule->key, child.stringValue());
}

VELM_Template::Ref TemplateReader::substituted(VELM_Template::Ref layer) {
    if (!layer->isTypeNode() || !layer->graphicPath()) return layer;
    const Value path = layer->graphicPath();
    auto nested = documentAt(path, true);
    if (!nested) {
        // A missing file draws nothing; one that can never be drawn must not pass for that.
        base::log("ERROR: %@", nested.error());
        layer->loadError_ = nested.error();
        return layer;
    }
    if (!*nested) return layer;
    VELM_Template& document = **nested;
    document.setValue(VELM_XML_Key_filepath, path);
    document.setFrame(layer->frame());
    document.setZLevelString(layer->value(VELM_XML_Key_zindex));
    if (const Value& key = layer->value(VELM_XML_Key_key)) document.setKey(key);
    return *nested;
}
