#include "PictureComparison.h"

#include "base/Path.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"

#include <algorithm>
#include <cstdlib>

namespace golden {

using platform::draw::Bitmap;

base::Result<Bitmap> readPicture(const std::string& path) {
    const auto source = platform::draw::ImageSource::createWithURL(base::URL::fileURLWithPath(path));
    if (!source) return base::failure(source.error());
    return (*source)->imageAtIndex(0)->bitmap(platform::draw::ColorSpace::sRGB());
}

base::Result<void> writePNG(const Bitmap& picture, const std::string& path) {
    auto file = platform::draw::ImageDestination::createWithURL(base::URL::fileURLWithPath(path), "public.png");
    if (!file) return base::failure(file.error());
    (*file)->addImage(platform::draw::Image::fromBitmap(picture), {});
    return (*file)->finalize();
}

Difference compare(const Bitmap& left, const Bitmap& right) {
    Difference found;
    found.sameSize = left.width() == right.width() && left.height() == right.height();
    if (!found.sameSize) return found;
    std::size_t differing = 0;
    const int samples = 4 * left.width();
    for (int y = 0; y < left.height(); ++y) {
        for (int index = 0; index < samples; ++index) {
            const int difference = std::abs(left.row(y)[index] - right.row(y)[index]);
            found.largest = std::max(found.largest, difference);
            differing += difference > 1;
        }
    }
    found.share = static_cast<double>(differing) / (static_cast<double>(samples) * left.height());
    return found;
}

base::Result<Bitmap> differencePicture(const Bitmap& left, const Bitmap& right) {
    auto picture = Bitmap::create(left.width(), left.height(), platform::draw::ColorSpace::sRGB(), true);
    if (!picture) return picture;
    for (int y = 0; y < left.height(); ++y) {
        std::uint8_t* row = picture->mutableRow(y);
        for (int x = 0; x < left.width(); ++x) {
            // What differs in alpha alone shows in all three colours.
            const int alpha = std::abs(left.row(y)[4 * x + 3] - right.row(y)[4 * x + 3]);
            for (int sample = 0; sample < 3; ++sample) {
                const int difference = std::abs(left.row(y)[4 * x + sample] - right.row(y)[4 * x + sample]);
                row[4 * x + sample] = static_cast<std::uint8_t>(std::min(255, 8 * std::max(difference, alpha)));
            }
        }
    }
    return picture;
}

} // namespace golden
