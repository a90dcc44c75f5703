// The two pictures of a page that are shown on the screen.
#include "KLARON_PrintPage.h"

#include "ImageProcessingKeys.h"
#include "base/Log.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/MainQueue.h"

#include <utility>

using platform::draw::ImageRef;
using platform::filter::FilterContext;
using platform::filter::WorkingFormat;
using platform::run::mainQueue;

base::Size KLARON_PrintPage::thumbnailSize() {
    constexpr base::Size usual{64, 64};
    const auto text = platform::data::UserDefaults::standard().stringForKey("thumbnailSizeCustom");
    const base::Size size = text ? base::sizeFromString(*text) : base::Size();
    return size == base::Size() ? usual : size;
}

ImageRef KLARON_PrintPage::imageThumbnail() {
    if (!rendered(Preview::thumbnail)) startRendering(Preview::thumbnail);
    return rendered(Preview::thumbnail);
}

ImageRef KLARON_PrintPage::imagePreview() {
    if (startRendering(Preview::image) && rendered(Preview::thumbnail)) setRendered(Preview::thumbnail, nullptr);
    return rendered(Preview::image);
}

bool KLARON_PrintPage::startRendering(Preview preview) {
    const auto self = weak_from_this().lock();
    if (!self) return false; // nobody could keep the page until the rendering ends
    bool& isUnderWay = preview == Preview::image ? didUpdateImagePreview_ : didUpdateImageThumbnail_;
    bool starts = false;
    mainQueue()->sync([&] {
        starts = !isUnderWay;
        isUnderWay = true;
    });
    if (!starts) return false;
    const auto quality = platform::run::QualityOfService::userInteractive;
    platform::run::Queue::global(quality)->async([self, page = snapshot(), preview, &isUnderWay] {
        const auto profile = page->printerProfileICC();
        ImageRef image = page->render(preview);
        const bool hasRejectedProfile = profile && !page->printerProfileICC();
        mainQueue()->async([self, preview, image = std::move(image), profile, hasRejectedProfile, &isUnderWay] {
            if (hasRejectedProfile && self->printerProfileICC() == profile) {
                self->setPrinterProfileICC(std::nullopt);
                self->setColorManagement(1);
            }
            // Whoever is told reads the image: the rendering counts as under way until then, or it would never end.
            self->setRendered(preview, image);
            isUnderWay = false;
        });
    });
    return true;
}

ImageRef KLARON_PrintPage::rendered(Preview preview) const {
    const std::lock_guard lock(previewsMutex_);
    return preview == Preview::image ? imagePreview_ : imageThumbnail_;
}

void KLARON_PrintPage::setRendered(Preview preview, ImageRef image) {
    const bool isPreview = preview == Preview::image;
    observable_.change(isPreview ? "imagePreview" : "imageThumbnail", [&] {
        const std::lock_guard lock(previewsMutex_);
        std::swap(isPreview ? imagePreview_ : imageThumbnail_, image); // the old one is freed outside the lock
    });
}

ImageRef KLARON_PrintPage::render(Preview preview) {
    base::Result<platform::draw::Raster> raster;
    if (preview == Preview::image) {
        auto whole = imageRaster();
        if (!whole) return nullptr;
        raster = std::move(*whole);
    } else {
        const auto image = imagePreProcessWithOptions(
            {{std::string(PreProcessOption::isPreviewImage), true},
             {std::string(PreProcessOption::previewSize), base::stringFromSize(thumbnailSize())}});
        if (!image) return nullptr;
        raster = FilterContext(outputColorSpace(), WorkingFormat::rgba8).render(image, image->extent().integral());
    }
    auto image = raster ? platform::draw::imageOfRaster(*raster) : base::failure(raster.error());
    if (image) return *image;
    base::log("%@", image.error());
    return nullptr;
}
