#include "jobs/VELM_Package.h"

#include "base/Log.h"
#include "base/Processors.h"
#include "internal/XMLReading.h"
#include "jobs/KLARON_Audit.h"
#include "jobs/VELM_Job.h"
#include "platform/data/KeyedArchive.h"
#include "platform/draw/PictureCache.h"
#include "platform/run/Group.h"
#include "template/VELM_Template.h"

#include <mutex>

using platform::run::Queue;
using platform::run::QueueRef;

namespace {

// Whoever uses packages can archive them and read them back.
[[maybe_unused]] const bool isRegistered = [] {
    platform::data::registerArchivedClass(
        {.name = "VELM_Package",
         .ancestors = {"VELM_XML_object", "NSObject"},
         .keys = {{"self.valuesDict", {"NSDictionary", "VELM_Template", "VELM_Output", "NSValue", "NSURL"}},
                  {"self.documentURL", {"NSURL"}},
                  {"self.xmlString", {"NSString"}}},
         .make = [](base::Dictionary values) { return VELM_Package::initWithCoder(values); }});
    return true;
}();

} // namespace

// Making ---------------------------------------------------------------------------------------------------------

VELM_Package::~VELM_Package() {
    KLARON_Audit::end(this);
}

VELM_Package::Ref VELM_Package::init() {
    auto package = std::make_shared<VELM_Package>();
    package->setValue("name", "inlinePkg");
    package->setValue("type", "inline");
    return package;
}

base::Result<base::ObjectRef> VELM_Package::initWithCoder(const base::Dictionary& archived) {
    auto package = std::make_shared<VELM_Package>();
    if (!package->takeArchived(archived))
        return base::failure(base::cocoaErrorDomain, 4864, "an archived package holds a value of the wrong kind");
    for (const auto& output : package->outputs())
        output->setPackage(package);
    return base::ObjectRef(std::move(package));
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

// Running --------------------------------------------------------------------------------------------------------

const QueueRef& VELM_Package::atomicQueue() {
    static const QueueRef queue = Queue::serial("com.kestrune.velm.queue.sharedSynchronized.package");
    return queue;
}

QueueRef VELM_Package::outputQueue() {
    static const std::vector<QueueRef> queues = [] {
        std::vector<QueueRef> made;
        for (unsigned number = 0; number < base::logicalProcessors() * 2; ++number)
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
