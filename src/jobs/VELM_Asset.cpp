// Reading an asset, and its outlets.
#include "jobs/VELM_Asset.h"

#include "base/Log.h"
#include "base/Text.h"
#include "folders/QueueHelpers.h"
#include "imaging/KLARON_Image.h"
#include "internal/ProductElements.h"
#include "internal/XMLReading.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <array>

using platform::data::XMLDocument;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

constexpr std::array<std::string_view, 5> outletKeys = {"layout", "canvas", "portrait", "landscape", "square"};
constexpr std::array<std::string_view, 7> parents = {"price",    "template",  "output", "layout",
                                                     "portrait", "landscape", "square"};

/// Shorter side to longer side of two shapes in comparison: 1 for equal ones. Nothing without an area.
std::optional<double> likeness(base::Size one, base::Size other) {
    if (one.width <= 0 || one.height <= 0 || other.width <= 0 || other.height <= 0) return std::nullopt;
    const double ratio = (one.width / one.height) / (other.width / other.height);
    return std::min(ratio, 1 / ratio);
}

} // namespace

// Making ---------------------------------------------------------------------------------------------------------

VELM_Asset::Ref VELM_Asset::assetWithXMLObject(const base::Value& object) {
    std::optional<base::URL> url;
    if (const auto* given = object.as<base::URL>()) url = *given;
    if (const auto path = object.text()) url = base::URL::fileURLWithPath(*path);
    base::Result<std::string> text = std::string();
    if (url)
        text = platform::data::readTextDetectingEncoding(*url);
    else if (const auto* data = object.as<base::Data>())
        text = std::string(data->asText());
    if (!text) {
        base::log("%@", text.error());
        return nullptr;
    }
    Ref asset = initWithXML(*text);
    if (asset) asset->documentURL_ = std::move(url);
    return asset;
}

VELM_Asset::Ref VELM_Asset::initWithXML(std::string_view xml) {
    auto document = XMLDocument::parse(xml);
    if (!document) {
        base::log("Error reading XML:%@", document.error());
        return nullptr;
    }
    auto asset = std::make_shared<VELM_Asset>();
    // It lives and ends with the asset, so it needs no context to be known by.
    asset->xmlDocObservation_ = asset->observable_.observe("xmlDoc", [raw = asset.get()] { raw->parseXML(); });
    asset->setXmlDoc(std::move(*document));
    return asset;
}

void VELM_Asset::setXmlDoc(platform::data::XMLDocumentRef document) {
    observable_.change("xmlDoc", [&] { xmlJobTicket_ = std::move(document); });
}

// Reading --------------------------------------------------------------------------------------------------------

std::span<const std::string_view> VELM_Asset::knownParents() {
    return parents;
}

void VELM_Asset::logNode(const XMLNode& node) {
    base::log("%@", node);
}

void VELM_Asset::parseXML() {
    const XMLNodeRef root = xmlJobTicket_ ? xmlJobTicket_->rootElement() : nullptr;
    if (!root) return;
    base::Array outputs;
    for (const XMLNodeRef& child : root->children()) {
        if (!jobs::isElementToRead(*child)) continue;
        const std::string name = base::lowercase(child->name());
        if (jobs::isTextElement(name)) {
            templateValuesDict_.insert_or_assign(name, child->stringValue());
        } else if (name == "price") {
            jobs::checkPrice(*child, nullptr);
        } else if (name == "template") {
            jobs::readTemplateReference(*child, std::nullopt, nullptr,
                                        [this](const std::string& slot, const TemplateRef& found, const XMLNode&) {
                                            storeTemplate(slot, found);
                                        });
        } else if (name == "output") {
            const auto output = VELM_Output::initWithNode(*child); // which never fails
            output->setAsset(weak_from_this());
            outputs.emplace_back(output);
        } else if (jobs::isInlineTemplateElement(name)) {
            if (const TemplateRef made = VELM_Template::initWithNode(*child, std::nullopt)) {
                storeTemplate(made->name().value_or(""), made);
                templateValuesDict_.insert_or_assign("layout", base::Value(made));
            }
        } else {
            base::log("Found unrecognized XML element:");
            logNode(*child);
        }
    }
    templateValuesDict_.insert_or_assign("output", std::move(outputs));
}

void VELM_Asset::storeTemplate(const std::string& name, const TemplateRef& made) {
    base::Value& nodes = templateValuesDict_["node"];
    if (!nodes.as<base::Dictionary>()) nodes = base::Dictionary();
    nodes.as<base::Dictionary>()->insert_or_assign(name, made);
}

std::vector<std::shared_ptr<VELM_Output>> VELM_Asset::outputs() const {
    std::vector<std::shared_ptr<VELM_Output>> outputs;
    if (const auto* stored = value("output").as<base::Array>())
        for (const base::Value& entry : *stored)
            if (auto output = entry.object<VELM_Output>()) outputs.push_back(std::move(output));
    return outputs;
}

VELM_Asset::Templates VELM_Asset::velmNodes() const {
    Templates nodes;
    if (const auto* stored = value("node").as<base::Dictionary>())
        for (const auto& [name, entry] : *stored)
            if (auto node = entry.object<VELM_Template>()) nodes.emplace(name, std::move(node));
    return nodes;
}

std::string VELM_Asset::description() const {
    std::string text = base::message("%@: {\n\tName: %@\n\tPLU Code: %@\n\tProduct ID: %@", className(), name(),
                                     pluCode(), productID());
    for (const auto& [slot, node] : velmNodes())
        text += base::message("\n\tNode: %@ %@", slot, base::stringFromSize(node->canvasSize()));
    for (const auto& output : outputs())
        text += base::message("\n\tOutput: %@", output->description());
    return text + "\n}";
}

// Outlets --------------------------------------------------------------------------------------------------------

std::span<const std::string_view> VELM_Asset::allOutletKeys() {
    return outletKeys;
}

std::vector<std::string_view> VELM_Asset::availableOutletKeys() const {
    std::vector<std::string_view> keys;
    std::copy_if(outletKeys.begin(), outletKeys.end(), std::back_inserter(keys),
                 [this](std::string_view key) { return value(key).object<VELM_Template>() != nullptr; });
    return keys;
}

std::vector<VELM_Asset::TemplateRef> VELM_Asset::availableOutlets() const {
    std::vector<TemplateRef> outlets;
    for (const std::string_view key : availableOutletKeys())
        outlets.push_back(value(key).object<VELM_Template>());
    return outlets;
}

VELM_Asset::TemplateRef VELM_Asset::firstOutlet() const {
    const auto outlets = availableOutlets();
    return outlets.empty() ? nullptr : outlets.front();
}

VELM_Asset::TemplateRef VELM_Asset::outletForImage(const ImageObject& image) const {
    const base::Size size = KLARON_Image::orientedSizeForImage(KLARON_Image::imageWithObject(image));
    TemplateRef best;
    double bestScore = 0;
    for (const TemplateRef& outlet : availableOutlets()) {
        for (const TemplateRef& layer : outlet->storedLayers()) {
            if (!layer->isImageType()) continue;
            const double score = likeness(layer->canvasSize(), size).value_or(0);
            if (score <= bestScore) continue;
            bestScore = score;
            best = outlet;
        }
    }
    return best;
}

void VELM_Asset::processingQueue(const platform::run::QueueRef& queue, const OutletCallback& forAllOutlets) const {
    folders::performSyncOnQueue(queue, [&] {
        for (const std::string_view key : availableOutletKeys())
            forAllOutlets(key, value(key).object<VELM_Template>());
    });
}
