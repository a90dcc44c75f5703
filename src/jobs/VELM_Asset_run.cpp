// The pictures of an asset, and its run.
#include "jobs/VELM_Asset.h"

#include "base/Log.h"
#include "folders/QueueHelpers.h"
#include "imaging/ColorSpaceValue.h"
#include "imaging/KLARON_Image.h"
#include "internal/XMLReading.h"
#include "platform/data/FileTypes.h"
#include "platform/draw/ImageDestination.h"
#include "platform/run/Group.h"
#include "template/VELM_Template.h"

#include <mutex>

using platform::run::QualityOfService;
using platform::run::Queue;
using platform::run::QueueRef;

namespace {

constexpr double jpegQuality = 0.85;

bool fail(const base::Error& cause, std::string_view message, std::string_view path,
          std::optional<base::Error>* returningError) {
    base::log("%@", cause);
    const base::Error error{std::string(base::posixErrorDomain), jobs::jobErrorCode, base::message(message, path)};
    base::log("%@", error);
    if (returningError) *returningError = error;
    return false;
}

} // namespace

const QueueRef& VELM_Asset::sharedRenderingQueue() {
    static const QueueRef queue =
        folders::dispatchQueueSerialWithDebugLabel("com.kestrune.velm.queue.sharedRenderingQueue");
    return queue;
}

VELM_Asset::ImageRef VELM_Asset::createProductImageForTemplate(const TemplateRef& from) {
    // On the template's own queue, as an output may be drawing it too.
    return from ? from->imageUncached() : nullptr;
}

VELM_Asset::ImageRef VELM_Asset::imageForTemplate(const TemplateRef& from) {
    base::log("%s", "-[VELM_Asset imageForTemplate:]");
    ImageRef image;
    folders::performSyncOnQueue(sharedRenderingQueue(), [&] {
        const std::string key =
            base::message("com.kestrune.velm.template.%@", from ? from->name() : std::optional<std::string>());
        if (const auto kept = value(key).object<ImageValue>()) {
            image = kept->image();
            return;
        }
        image = createProductImageForTemplate(from);
        if (image) templateValuesDict_.insert_or_assign(key, base::Value(std::make_shared<ImageValue>(image)));
    });
    return image;
}

void VELM_Asset::createComposedCanvas(const CanvasCompletion& completion) {
    const QueueRef queue = folders::dispatchQueueSerialWithDebugLabel(
        base::message("%@.processor", "-[VELM_Asset createComposedCanvas:]"));
    queue->async([self = shared_from_this(), queue = std::weak_ptr(queue), completion] {
        base::Dictionary values{
            {"colorSpace", base::Value(std::make_shared<ColorSpaceValue>(platform::draw::ColorSpace::sRGB()))}};
        self->processingQueue(queue.lock(), [&](std::string_view key, const TemplateRef& outlet) {
            if (const ImageRef image = createProductImageForTemplate(outlet))
                values.insert_or_assign(std::string(key), base::Value(std::make_shared<ImageValue>(image)));
        });
        completion(values);
    });
}

bool VELM_Asset::writeImage(const ImageRef& image, std::string_view toDestination,
                            std::optional<base::Error>* returningError) {
    auto destination = platform::draw::ImageDestination::createWithURL(
        base::URL::fileURLWithPath(std::string(toDestination)), platform::data::kUTTypeJPEG);
    if (!destination)
        return fail(destination.error(), "Failed to create CGImageDestination for %@", toDestination, returningError);
    (*destination)
        ->addImage(image, {{std::string(platform::draw::kCGImageDestinationLossyCompressionQuality), jpegQuality}});
    const auto written = (*destination)->finalize();
    return written || fail(written.error(), "Failed to finalize image to %@", toDestination, returningError);
}

void VELM_Asset::processToCompletion(const Completion& completion) {
    const QueueRef queue = folders::dispatchQueueGlobalWithQOS(QualityOfService::userInitiated);
    queue->async([self = shared_from_this(), queue, completion] {
        std::mutex mutex; // guards the two results
        bool success = true;
        std::optional<base::Error> error;
        platform::run::Group group;
        const Templates nodes = self->velmNodes();
        for (const auto& output : self->outputs()) {
            group.async(queue, [&, output] {
                output->setTemplates(nodes);
                output->processToCompletion([&](bool outputSuccess, const std::optional<base::Error>& outputError) {
                    const std::lock_guard lock(mutex);
                    if (!outputSuccess) success = false;
                    if (outputError) error = outputError;
                });
            });
        }
        group.wait();
        base::log("%@ %s exited group wait", *self, "-[VELM_Asset processToCompletion:]");
        if (completion) completion(success, error);
    });
}

void VELM_Asset::processTemplateToDestination(const std::string& path, const DestinationCompletion& completionBlock) {
    folders::dispatchQueueSerialWithDebugLabel(path)->async([self = shared_from_this(), path, completionBlock] {
        const TemplateRef outlet = self->firstOutlet();
        std::optional<base::Error> error;
        ImageRef image;
        folders::performSyncOnQueue(outlet ? outlet->renderingQueue() : nullptr, [&] {
            image = createProductImageForTemplate(outlet);
            if (outlet) error = outlet->renderError();
        });
        if (error) image = nullptr; // a picture that lacks a part must not become a product
        if (image) writeImage(image, path, &error);
        if (completionBlock) completionBlock(image ? std::optional(path) : std::nullopt, error);
    });
}
