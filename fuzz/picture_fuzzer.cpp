// A picture file of one format (PICTURE_TYPE): its properties, its pixels, and its copy with other metadata.
#include "Fuzzing.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/DeepPixels.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageMetadata.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PictureCache.h"

#include <algorithm>
#include <cstring>

using namespace platform::draw;
using fuzzing::require;

namespace {

constexpr bool isDrawing = std::string_view(PICTURE_TYPE) == "com.adobe.pdf";
constexpr std::size_t maximumIndexes = 3;
constexpr std::int64_t maximumPixels = 2'000'000; // more takes time, and shows nothing else

bool samePixels(const Bitmap& left, const Bitmap& right) {
    if (left.width() != right.width() || left.height() != right.height()) return false;
    const std::size_t rowBytes = 4 * static_cast<std::size_t>(left.width());
    for (int y = 0; y < left.height(); ++y)
        if (std::memcmp(left.row(y), right.row(y), rowBytes) != 0) return false;
    return true;
}

struct Drawn {
    bool complete = false;
    Bitmap pixels;
};

Drawn drawn(const ImageRef& image, Quality quality) {
    const auto context = BitmapContext::create(64, 48, ColorSpace::sRGB());
    context->setQuality(quality);
    context->drawImage(image, {0, 0, 64, 48});
    auto bitmap = context->makeImage()->bitmap();
    require(bitmap.has_value(), "a canvas gives its pixels");
    return {!context->drawError(), std::move(*bitmap)};
}

void draw(const ImageRef& image) {
    const auto whole = image->bitmap();
    for (const Quality quality : {Quality::final, Quality::preview}) {
        const Drawn once = drawn(image, quality);
        const Drawn again = drawn(image, quality);
        require(once.complete == again.complete, "drawing twice ends the same way");
        require(!once.complete || samePixels(once.pixels, again.pixels), "drawing twice gives the same pixels");
        require(once.complete == whole.has_value(), "a picture is whole at every size or at none");
    }
    if (!whole) return;
    require(whole->width() == image->width() && whole->height() == image->height(), "a bitmap has the picture's size");
    if (isDrawing) return; // a page, whose gradients and curves may fall between pixels
    const ImageRef part = image->cropped({image->width() / 3.0, image->height() / 3.0, 40, 30});
    if (!part) return;
    const auto pixels = part->bitmap();
    require(pixels.has_value(), "a part of a whole picture can be read");
    const auto expected = Image::fromBitmap(*whole)->cropped({image->width() / 3.0, image->height() / 3.0, 40, 30});
    require(samePixels(*pixels, *expected->bitmap()), "a part has the pixels of the whole");
}

void readDeep(const ImageRef& image) {
    const std::size_t pixels = static_cast<std::size_t>(image->width()) * static_cast<std::size_t>(image->height());
    std::vector<std::uint8_t> deep(8 * pixels);
    require(readDeepPixels(*image, 0, deep.data()).has_value() == image->bitmap().has_value(),
            "a picture is whole in 16 bits when it is in 8");
}

// The orientation is left: it would change how the picture is drawn.
void copy(const base::Data& file, const Bitmap& former) {
    const base::Dictionary comment{{std::string(kCGImagePropertyExifUserComment), "Retouched"}};
    const auto copied =
        copyOfImageFile(file, PICTURE_TYPE, {{std::string(kCGImagePropertyExifDictionary), base::Value(comment)}});
    if (!copied) return;
    const auto source = ImageSource::createWithData(*copied);
    require(source.has_value(), "the copy of a whole picture is a picture");
    const auto pixels = (*source)->imageAtIndex(0)->bitmap();
    require(pixels && samePixels(*pixels, former), "a copy has the pixels of its original");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    setPictureCacheCapacity(0);
    const base::Data data = fuzzing::dataOf(bytes, size);
    const auto source = ImageSource::createWithData(data);
    if (!source) {
        require(!source.error().localizedDescription.empty(), "a refusal says why");
        return 0;
    }
    if ((*source)->typeIdentifier() != PICTURE_TYPE) return 0; // another target's
    require((*source)->count() >= 1, "an opened file holds a picture");
    for (std::size_t index = 0; index < std::min((*source)->count(), maximumIndexes); ++index) {
        const ImageRef image = (*source)->imageAtIndex(index);
        require(image && image->width() >= 1 && image->height() >= 1, "a picture has pixels");
        const base::Dictionary& properties = (*source)->propertiesAtIndex(index);
        require(base::valueForKey(properties, kCGImagePropertyPixelWidth).integerValue() == image->width() &&
                    base::valueForKey(properties, kCGImagePropertyPixelHeight).integerValue() == image->height(),
                "the properties state the picture's size");
        if (std::int64_t{image->width()} * image->height() > maximumPixels) continue;
        draw(image);
        if (std::int64_t{image->width()} * image->height() <= maximumPixels / 20) {
            readDeep(image);
            if (const auto whole = image->bitmap(); whole && index == 0) copy(data, *whole);
        }
        for (const bool upright : {false, true})
            if (const auto thumbnail = (*source)->thumbnailAtIndex(index, 20, upright))
                require(*thumbnail && std::max((*thumbnail)->width(), (*thumbnail)->height()) <= 20,
                        "a thumbnail is no larger than asked for");
    }
    return 0;
}
