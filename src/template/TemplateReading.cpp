// From elements to the tree: the root, document bodies, layers, and the nested files that stand for layers.
#include "internal/TemplateGrammar.h"
#include "internal/TemplateReader.h"

#include "base/Log.h"
#include "base/Text.h"
#include "platform/data/XMLDocument.h"

using base::Value;
using platform::data::XMLNode;
using platform::data::XMLNodeKind;
using platform::data::XMLNodeRef;

namespace {

constexpr std::string_view unknownAttribute = "encountered unknown %@ attribute: %@";

// What a file holds may be megabytes long; a log line may not.
std::string loggable(std::string text) {
    constexpr std::size_t maximumLength = 4096;
    if (text.size() <= maximumLength) return text;
    return std::string(base::truncated(text, maximumLength)) + "...";
}

std::string loggable(const XMLNode& node) {
    return loggable(node.xmlString());
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

VELM_Template::Ref TemplateReader::documentOf(VELM_Template::Ref readingObject) {
    const auto xmlDoc = readingObject->xmlDoc();
    noteUnsound(*readingObject);
    const XMLNodeRef root = xmlDoc ? xmlDoc->rootElement() : nullptr;
    if (!root) return readingObject;
    noteRoot(*root);
    const XMLNode* version = nullptr;
    for (const XMLNodeRef& attribute : root->attributes()) {
        // Whatever type and version the file claims, it is read.
        if (attribute->nameIs(VELM_XML_Key_type)) {
            readingObject->setValue(VELM_XML_Key_type, readingObject->className());
        } else if (attribute->nameIs(VELM_XML_Key_version)) {
            readingObject->setValue(VELM_XML_Key_version, attribute->stringValue());
            version = attribute.get();
        }
    }
    VELM_Template::Ref document = readingObject;
    const XMLNode* lastBody = nullptr;
    for (const XMLNodeRef& child : root->children()) {
        if (!isElementToRead(*child)) continue;
        if (!VELM_Template::containerKeyForNode(*child)) {
            note(*child, "element <%@> is no body of a document and is not read", child->name());
            continue;
        }
        if (lastBody)
            note(*lastBody, "body <%@> is dropped: <%@> in line %lu stands in its place", lastBody->name(),
                 child->name(), static_cast<unsigned long>(child->line()));
        lastBody = child.get();
        // Of several bodies the last one is the document.
        auto body = nodeOf(*child);
        body->setValue(VELM_XML_Key_version, document->value(VELM_XML_Key_version));
        body->setDocumentURL(document->documentURL());
        document = std::move(body);
    }
    if (!lastBody) {
        note(*root, "<%@> holds no body (layout, node, portrait, landscape or square), so there is no document",
             root->name());
        return document;
    }
    if (version) setOrigins(*document, *root, *version, {{std::string(VELM_XML_Key_version)}});
    document->lastSaved_ = document->copyWithZone();
    return document;
}

bool TemplateReader::isElementToRead(const XMLNode& node) const {
    if (node.isElement()) return true;
    if (!node.isComment()) {
        base::log("Found unexpected XML element kind:\n%lu", node.kindNumber());
        if (!base::trimmed(node.stringValue()).empty())
            note(node, "\"%@\" is not read: only elements are expected here", node.stringValue());
    }
    return false;
}

VELM_Template::Ref TemplateReader::nodeOf(const XMLNode& node) {
    if (node.nameIs("layer") && layers_ >= VELM_Template::maximumLayers) return nullptr;
    auto made = VELM_Template::initForCopy();
    made->xmlNode_ = node.weak_from_this();
    if (report_) report_->setPlace(made, placeOf(node));
    if (!isElementToRead(node)) return made;
    if (const auto containerKey = VELM_Template::containerKeyForNode(node)) {
        readBody(*made, node, *containerKey);
    } else if (node.nameIs("canvas")) {
        readCanvas(*made, node);
    } else if (node.nameIs("layer")) {
        ++layers_;
        readLayer(*made, node);
        return substituted(std::move(made), node);
    } else {
        base::log("-+-+-+-+-+-+ adding unknown XML %@", loggable(node));
        made->setValue(node.name(), node.stringValue());
    }
    return made;
}

void TemplateReader::take(VELM_Template& layer, const XMLNode& element, const XMLNode& source,
                          const grammar::Rule& rule) {
    const std::string text = source.stringValue();
    if (!report_) return rule.effect({layer}, rule.key, text);
    std::vector<grammar::Target::Stored> stored;
    rule.effect({layer, &stored}, rule.key, text);
    noteFault(source, rule.form, text);
    setOrigins(layer, element, source, stored);
}

void TemplateReader::readBody(VELM_Template& body, const XMLNode& element, std::string_view containerKey) {
    body.setValue(VELM_XML_Key_name, containerKey);
    for (const XMLNodeRef& attribute : element.attributes()) {
        if (const auto* rule = grammar::ruleNamed(grammar::bodyAttributes(), attribute->name()))
            take(body, element, *attribute, *rule);
        else
            note(*attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(), element.name());
    }
    body.setValue(VELM_XML_Key_type, "container");

    VELM_Template::Layers layers;
    bool isFull = false;
    for (const XMLNodeRef& child : element.children()) {
        if (!isElementToRead(*child)) continue;
        if (!child->nameIs("layer")) {
            readBodyChild(body, *child);
        } else if (auto layer = isFull ? nullptr : nodeOf(*child)) {
            layer->setParent(body.shared_from_this());
            layers.push_back(std::move(layer));
        } else if (!isFull) {
            isFull = true; // a line for the first of them: there may be very many
            base::log("failed to init a layer for %@", loggable(*child));
            body.loadError_ = base::Error{
                std::string(base::posixErrorDomain), -3,
                base::message("template %@ holds more than %d layers", file(), VELM_Template::maximumLayers)};
            note(*child, "this layer and those behind it are not read: %@", *body.loadError_);
        }
    }
    body.setLayers(layers);
    body.sortLayers();
}

void TemplateReader::readBodyChild(VELM_Template& body, const XMLNode& child) {
    for (const XMLNodeRef& attribute : child.attributes())
        note(*attribute, "attribute %@ of <%@> is not read", attribute->name(), child.name());
    if (const auto* rule = grammar::ruleNamed(grammar::bodyChildren(), child.name()))
        return take(body, child, child, *rule);
    body.setValue(child.name(), child.stringValue());
    noteKept(child, child.name());
    setOrigins(body, child, child, {{child.name()}});
}

void TemplateReader::readCanvas(VELM_Template& canvas, const XMLNode& element) {
    canvas.setValue(VELM_XML_Key_type, "canvas");
    const auto takeAttributes = [&](const XMLNode& holder, std::span<const grammar::Rule> rules) {
        for (const XMLNodeRef& attribute : holder.attributes()) {
            if (const auto* rule = grammar::ruleNamed(rules, attribute->name()))
                take(canvas, holder, *attribute, *rule);
            else
                note(*attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(), holder.name());
        }
    };
    takeAttributes(element, grammar::canvasAttributes());
    for (const XMLNodeRef& child : element.children()) {
        if (!isElementToRead(*child)) continue;
        if (child->nameIs("node"))
            takeAttributes(*child, grammar::canvasNodeAttributes());
        else
            note(*child, "element <%@> of a canvas is not known and is not read", child->name());
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
        const auto* rule = grammar::ruleNamed(grammar::layerAttributes(), attribute->name());
        if (!rule) {
            const std::string text = loggable(*attribute);
            base::log(unknownAttribute, loggable(element.name()), text);
            base::log("encountered unknown layer attribute: %@", text);
            note(*attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(), element.name());
            continue;
        }
        take(layer, element, *attribute, *rule);
        if (rule->key != VELM_XML_Key_type || !base::equalIgnoringCase(attribute->stringValue(), "edittextbox"))
            continue;
        if (const XMLNodeRef number = element.childNamed("stringnumber")) {
            layer.setValue(VELM_XML_Key_stamp, number->stringValue());
            setOrigins(layer, *number, *number, {{std::string(VELM_XML_Key_stamp)}});
        }
    }
}

void TemplateReader::readLayerChild(VELM_Template& layer, const XMLNode& child) {
    const grammar::Rule* rule = grammar::ruleNamed(grammar::layerChildren(), child.name());
    if (!rule) return noteUnknownChild(layer, child);
    for (const XMLNodeRef& attribute : child.attributes()) {
        if (rule->attributes.empty()) {
            note(*attribute, "attribute %@ of <%@> is not read", attribute->name(), child.name());
        } else if (const auto* attributeRule = grammar::ruleNamed(rule->attributes, attribute->name())) {
            takeAttribute(layer, child, *attribute, *attributeRule);
        } else {
            base::log(unknownAttribute, loggable(child.name()), loggable(*attribute));
            note(*attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(), child.name());
        }
    }
    take(layer, child, child, *rule);
}

void TemplateReader::takeAttribute(VELM_Template& layer, const XMLNode& child, const XMLNode& attribute,
                                   const grammar::AttributeRule& rule) {
    const std::string text = attribute.stringValue();
    std::vector<grammar::Target::Stored> stored;
    grammar::storeAttribute({layer, report_ ? &stored : nullptr}, rule, attribute.name(), text);
    noteFault(attribute, rule.form, text);
    if (rule.key.empty()) noteKept(attribute, attribute.name());
    setOrigins(layer, child, attribute, stored);
}

VELM_Template::Ref TemplateReader::substituted(VELM_Template::Ref layer, const XMLNode& element) {
    if (!layer->isTypeNode() || !layer->graphicPath()) return layer;
    const Value path = layer->graphicPath();
    auto nested = documentAt(path, true);
    if (!nested) {
        // A missing file draws nothing; one that can never be drawn must not pass for that.
        base::log("ERROR: %@", nested.error());
        layer->loadError_ = nested.error();
        if (report_) report_->add(placeOfPath(*layer, element), base::message("%@", nested.error()));
        return layer;
    }
    if (!*nested) {
        noteMissing(path, true, placeOfPath(*layer, element));
        return layer;
    }
    VELM_Template& document = **nested;
    document.setValue(VELM_XML_Key_filepath, path);
    document.setFrame(layer->frame());
    document.setZLevelString(layer->value(VELM_XML_Key_zindex));
    if (const Value& key = layer->value(VELM_XML_Key_key)) document.setKey(key);
    noteSubstituted(document, *layer);
    return *nested;
}
