// The pictures that are asked of a template: on which queue each is drawn, under which flags, and where it is replied.
#include "base/MessageTemplate.h"
#include "folders/QueueHelpers.h"
#include "internal/TemplateRenderer.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <thread>

using platform::draw::ImageRef;
using platform::run::QueueRef;

ImageRef VELM_Template::createProductImage() {
    TemplateRenderer renderer(*this);
    auto image = renderer.render();
    drawError_ = renderer.error();
    return image;
}

std::optional<base::Error> VELM_Template::renderError() const {
    if (loadError_) return loadError_;
    return fillError_ ? fillError_ : drawError_;
}

std::string VELM_Template::cacheKey() const {
    return base::message("com.kestrune.velm.template.image.%@", name());
}

ImageRef VELM_Template::cachedImage() const {
    const auto cached = cacheDict_.find(cacheKey());
    return cached == cacheDict_.end() ? nullptr : cached->second.image;
}

ImageRef VELM_Template::image() {
    ImageRef result;
    folders::performSyncOnQueue(renderingQueue(), [&] {
        isRenderingUnrotated_ = false;
        if (const auto cached = cacheDict_.find(cacheKey()); cached != cacheDict_.end()) {
            result = cached->second.image;
            drawError_ = cached->second.error;
            return;
        }
        result = createProductImage();
        if (result) cacheDict_.emplace(cacheKey(), CachedImage{result, drawError_});
    });
    return result;
}

ImageRef VELM_Template::imageUncached() {
    ImageRef result;
    folders::performSyncOnQueue(renderingQueue(), [&] { result = composedImage(); });
    return result;
}

ImageRef VELM_Template::composedImage() {
    isRenderingPreview_ = false;
    isRenderingUnrotated_ = false;
    return createProductImage();
}

void VELM_Template::getPreviewImage(ImageReply reply) {
    getUnrotated(false, std::move(reply));
}

void VELM_Template::getPreviewImageUnrotated(ImageReply reply) {
    getUnrotated(true, std::move(reply));
}

void VELM_Template::getUnrotated(bool unrotated, ImageReply previewImage) {
    if (!previewImage) return;
    renderingQueue()->async([self = shared_from_this(), unrotated, reply = std::move(previewImage)]() mutable {
        self->isRenderingPreview_ = true;
        self->isRenderingUnrotated_ = unrotated;
        auto image = self->createProductImage();
        self->isRenderingPreview_ = false;
        // Not waited for: the main queue may be waiting for this one. What the reply holds must end there too.
        folders::performAsyncOnMainQueue([self, reply = std::move(reply), image = std::move(image)] { reply(image); });
    });
}

void VELM_Template::getComposedImage(ImageReply reply) {
    if (!reply) return;
    renderingQueue()->async([self = shared_from_this(), reply = std::move(reply)] { reply(self->composedImage()); });
}

void VELM_Template::getThumbnailImage(ImageReply reply) {
    if (!reply) return;
    renderingQueue()->async([self = shared_from_this(), reply = std::move(reply)] {
        const Ref copy = self->copyWithZone();
        copy->isRenderingPreview_ = true;
        copy->isRenderingUnrotated_ = false;
        copy->setHasBackground(true);
        copy->setScale(copy->scaleForSize(sizeThumbnail()));
        reply(copy->createProductImage());
    });
}

namespace {

// Guards the thumbnails of all templates, so that asking for one waits for no queue: the main queue may be waiting for
// the one that asks.
std::mutex thumbnailMutex;

} // namespace

ImageRef VELM_Template::thumbnail() {
    {
        const std::lock_guard lock(thumbnailMutex);
        if (thumbnail_ || isRenderingThumbnail_.exchange(true)) return thumbnail_;
    }
    getThumbnailImage([self = shared_from_this()](const ImageRef& image) {
        folders::performAsyncOnMainQueue([self, image] {
            if (image) {
                static constexpr std::array changed{std::string_view("thumbnail")};
                const Announcement announcement(*self, changed);
                const std::lock_guard lock(thumbnailMutex);
                self->thumbnail_ = image;
            }
            self->isRenderingThumbnail_ = false;
        });
    });
    const std::lock_guard lock(thumbnailMutex);
    return thumbnail_;
}

// --- Queues

const QueueRef& VELM_Template::atomicQueue() {
    static const auto queue =
        folders::dispatchQueueSerialWithDebugLabel("com.kestrune.velm.queue.shared.atomic.template");
    return queue;
}

const QueueRef& VELM_Template::renderingQueue() {
    folders::performSyncOnQueue(atomicQueue(), [this] {
        if (!renderingQueue_)
            renderingQueue_ = folders::dispatchQueueSerialWithDebugLabel(
                base::message("com.kestrune.velm.queue.rendering.%@", name()));
    });
    return renderingQueue_;
}

QueueRef VELM_Template::classRenderingQueue() {
    static auto& pool = *new std::vector<QueueRef>; // outlives every user at exit
    static std::size_t next = 0;
    QueueRef queue;
    folders::performSyncOnQueue(atomicQueue(), [&] {
        if (pool.empty()) {
            for (unsigned number = 0; number < std::max(1U, std::thread::hardware_concurrency()); ++number)
                pool.push_back(folders::dispatchQueueSerialWithDebugLabel(
                    base::message("com.kestrune.velm.template.rendering.%d", number)));
        }
        queue = pool[next++ % pool.size()];
    });
    return queue;
}

std::optional<platform::draw::TextAttributes> VELM_Template::attributes() const {
    return TemplateRenderer::attributesOf(*this, true);
}

std::optional<platform::draw::TextAttributes> VELM_Template::stringAttributes() const {
    return attributes();
}
