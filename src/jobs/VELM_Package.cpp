#include "jobs/VELM_Package.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/LogicalProcessors.h"
#include "internal/XMLReading.h"
#include "jobs/VELM_Job.h"
#include "platform/draw/PictureCache.h"
#include "platform/run/Group.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <array>
#include <mutex>

using base::equalIgnoringCase;
using platform::data::XMLDocument;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;
using platform::run::Queue;
using platform::run::QueueRef;

namespace {

constexpr int wrongTypeErrorCode = -2;
constexpr std::array<std::string_view, 4> textElements = {"plucode", "productid", "name", "icon"};
constexpr std::array<std::string_view, 4> inlineTemplateElements = {"layout", "portrait", "landscape", "square"};

template <class Names>
bool isOneOf(const Names& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Prices have no effect; only what is wrong with them is told.
void checkPrice(const XMLNode& element) {
    for (const XMLNodeRef& child : element.children())
        if (!child->isElement() || !child->nameIs("quantity"))
            base::log("error! bad element kind %lu for element %@", child->kindNumber(), child);
}

} // namespace

// Making ---------------------------------------------------------------------------------------------------------

VELM_Package::Ref VELM_Package::init() {
    auto package = std::make_shared<VELM_Package>();
    package->setValue("name", "inlinePkg");
    package->setValue("type", "inline");
    return package;
}

VELM_Package::Ref VELM_Package::initWithNode(const XMLNodeRef& element, const std::shared_ptr<VELM_Job>& job) {
    auto package = std::make_shared<VELM_Package>();
    package->setJob(job);
    package->parseXMLNode(*element);
    return package;
}

VELM_Package::Ref VELM_Package::instanceWithXMLObject(const base::URL& url) {
    return VELM_XML_object::instanceWithXMLObject<VELM_Package>(url);
}

// Values ---------------------------------------------------------------------------------------------------------

std::optional<std::string> VELM_Package::name() const {
    return VELM_XML_object::name();
}

std::optional<std::string> VELM_Package::pluCode() const {
    return base::textForKey(valuesDict(), "plucode");
}

std::optional<base::URL> VELM_Package::urlJobContainer() const {
    if (const auto* url = value("urlJobContainer").as<base::URL>()) return *url;
    const auto owner = job_.lock();
    return owner ? owner->urlJobContainer() : std::nullopt;
}

std::shared_ptr<const JobValues> VELM_Package::job() const {
    return job_.lock();
}

std::vector<std::shared_ptr<VELM_Output>> VELM_Package::outputs() const {
    std::vector<std::shared_ptr<VELM_Output>> outputs;
    if (const auto* stored = value("output").as<base::Array>())
        for (const base::Value& entry : *stored)
            if (auto output = entry.object<VELM_Output>()) outputs.push_back(std::move(output));
    return outputs;
}

VELM_Package::Templates VELM_Package::velmNodes() const {
    Templates nodes;
    if (const auto* stored = value("node").as<base::Dictionary>())
        for (const auto& [name, entry] : *stored)
            if (auto node = entry.object<VELM_Template>()) nodes.emplace(name, std::move(node));
    return nodes;
}

void VELM_Package::addOutputs(const base::Array& outputs) {
    base::Array all;
    if (const auto* stored = value("output").as<base::Array>()) all = *stored;
    const std::size_t before = all.size();
    for (const base::Value& entry : outputs)
        if (entry.object<VELM_Output>()) all.push_back(entry);
    if (all.size() == before) return;
    observable_.change("outputs", [&] { setValue("output", std::move(all)); });
}

void VELM_Package::addTemplate(const std::string& name, const std::shared_ptr<VELM_Template>& newTemplate) {
    base::Value& nodes = valuesDict()["node"];
    if (!nodes.as<base::Dictionary>()) nodes = base::Dictionary();
    nodes.as<base::Dictionary>()->insert_or_assign(name, newTemplate);
}

void VELM_Package::addTemplates(const std::vector<std::shared_ptr<VELM_Template>>& templates) {
    for (const auto& newTemplate : templates)
        addTemplate(newTemplate->name().value_or("booger"), newTemplate);
}

// Reading --------------------------------------------------------------------------------------------------------

XMLNodeRef VELM_Package::rootForFirstLook() {
    if (xmlString())
        if (auto root = XMLDocument::parseRootStartTag(*xmlString())) return *root;
    const auto& document = xmlDoc();
    return document ? document->rootElement() : nullptr;
}

/// Answers whether the reading goes on.
bool VELM_Package::parseRootAttributes(const Look& look) {
    const auto endWith = [&](const base::Error& error) {
        bool stop = true;
        if (look) look(*this, error, stop);
        return false;
    };
    const XMLNodeRef root = rootForFirstLook();
    if (!root) return true;
    for (const XMLNodeRef& attribute : root->attributes()) {
        const std::string text = attribute->stringValue();
        if (attribute->nameIs("type")) {
            setValue("type", className());
            if (!equalIgnoringCase(text, className()))
                return endWith(
                    {std::string(base::posixErrorDomain), wrongTypeErrorCode,
                     base::message("encountered incorrect file type %@ when parsing %@", text, className())});
        } else if (attribute->nameIs("version")) {
            setValue("version", text);
            if (const auto error = jobs::versionError(base::doubleValue(text), text, type().value_or(""))) {
                if (!look) base::log("%@", *error);
                return endWith(*error);
            }
        } else if (attribute->nameIs("name")) {
            setValue("name", text);
        } else if (attribute->nameIs("plucode")) {
            setValue("plucode", text);
        } else {
            jobs::logUnexpectedAttribute(*attribute);
        }
    }
    return true;
}

void VELM_Package::parseXML(const Look& look) {
    if (!parseRootAttributes(look)) return;
    bool stop = false;
    if (look) look(*this, std::nullopt, stop);
    if (stop) return;
    const auto& document = xmlDoc();
    if (const XMLNodeRef root = document ? document->rootElement() : nullptr) parseXMLNode(*root);
    stop = false;
    if (look) look(*this, std::nullopt, stop);
}

void VELM_Package::parseXMLNode(const XMLNode& element) {
    setValue("output", base::Value());
    base::Array outputs;
    for (const XMLNodeRef& child : element.children()) {
        if (!jobs::isElementToRead(*child)) continue;
        const std::string name = base::lowercase(child->name());
        if (isOneOf(textElements, name)) {
            setValue(name, child->stringValue());
        } else if (name == "price") {
            checkPrice(*child);
        } else if (name == "template") {
            parseTemplateReference(*child);
        } else if (name == "output") {
            const auto output = VELM_Output::initWithNode(*child);
            output->setPackage(weak_from_this());
            outputs.emplace_back(output);
        } else if (isOneOf(inlineTemplateElements, name)) {
            const auto inlineTemplate = VELM_Template::initWithNode(*child, urlJobContainer());
            if (inlineTemplate) addTemplate(inlineTemplate->name().value_or(""), inlineTemplate);
        }
    }
    if (!outputs.empty()) setValue("output", std::move(outputs));
}

void VELM_Package::parseTemplateReference(const XMLNode& element) {
    std::string slot;
    for (const XMLNodeRef& attribute : element.attributes())
        if (attribute->nameIs("name") || attribute->nameIs("id") || attribute->nameIs("key"))
            slot = attribute->stringValue();
    for (const XMLNodeRef& child : element.children()) {
        if (!jobs::isElementToRead(*child)) continue;
        if (!child->nameIs("filepath") && !child->nameIs("filename")) continue;
        if (const auto found = VELM_Template::templateWithPath(child->stringValue(), urlJobContainer()))
            addTemplate(slot, found);
    }
}

// Running --------------------------------------------------------------------------------------------------------

const QueueRef& VELM_Package::atomicQueue() {
    static const QueueRef queue = Queue::serial("com.kestrune.velm.queue.sharedSynchronized.package");
    return queue;
}

QueueRef VELM_Package::outputQueue() {
    static const std::vector<QueueRef> queues = [] {
        std::vector<QueueRef> made;
        for (unsigned number = 0; number < jobs::cpuCountLogical() * 2; ++number)
            made.push_back(Queue::serial(base::message("com.kestrune.velm.template.rendering.%d", number)));
        return made;
    }();
    static std::size_t index = 0; // guarded by the queue
    QueueRef next;
    atomicQueue()->sync([&next] {
        next = queues[index];
        index = (index + 1) % queues.size();
    });
    return next;
}

void VELM_Package::processToCompletion(const Completion& completion) {
    std::mutex mutex; // guards the two results
    bool success = true;
    std::optional<base::Error> error;
    const VELM_Output::Reply reply = [&](bool outputSuccess, const std::optional<base::Error>& outputError) {
        std::lock_guard lock(mutex);
        if (!outputSuccess) success = false;
        if (outputError) error = outputError;
    };

    const auto owner = job_.lock();
    const auto label = owner ? owner->destinationLabel() : std::nullopt;
    const Templates nodes = velmNodes();
    const platform::draw::PictureSharing sharing; // the outputs show the same photographs
    platform::run::Group group;
    for (const auto& output : outputs()) {
        if (label)
            for (const auto& destination : output->destinations())
                destination->setValue("destinationLabel", *label);
        if (!output->allImages()) {
            group.async(outputQueue(), [output, &nodes, &reply] {
                output->setTemplates(nodes);
                output->processToCompletion(reply);
            });
            continue;
        }
        const base::Value allImages = owner ? owner->valueInDict("allimages") : base::Value();
        const auto* paths = allImages.as<base::Array>();
        if (!paths) continue;
        output->setTemplates(nodes); // which the copies take along
        for (const base::Value& path : *paths) {
            const auto copy = output->copyWithZone();
            if (!copy) {
                reply(false, base::Error{std::string(base::posixErrorDomain), jobs::jobErrorCode,
                                         base::message("could not copy output %@ for image %@", output, path)});
                continue;
            }
            copy->setAllImagesPath(path.text());
            group.async(outputQueue(), [copy, &reply] { copy->processToCompletion(reply); });
        }
    }
    group.wait();
    completion(success, error);
}
