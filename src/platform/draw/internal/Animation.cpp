#include "Animation.h"

#include <cstring>
#include <optional>

namespace platform::draw {

namespace {

constexpr std::uint64_t maximumWork = 1'000'000'000; // pixels

void drawFrame(Bitmap& canvas, const Bitmap& frame, const AnimationFrame& how) {
    const PixelRect& place = how.rectangle;
    std::uint8_t* pixels = canvas.mutablePixels();
    for (int y = 0; y < place.height; ++y) {
        const std::uint8_t* from = frame.row(y);
        std::uint8_t* to =
            pixels + static_cast<std::size_t>(place.y + y) * canvas.stride() + 4 * static_cast<std::size_t>(place.x);
        const std::size_t bytes = 4 * static_cast<std::size_t>(place.width);
        if (how.replaces || !how.hasAlpha) {
            std::memcpy(to, from, bytes);
            continue;
        }
        for (std::size_t i = 0; i < bytes; i += 4) {
            const unsigned through = 255u - from[i + 3];
            for (std::size_t k = 0; k < 4; ++k)
                to[i + k] = static_cast<std::uint8_t>(from[i + k] + (to[i + k] * through + 127) / 255);
        }
    }
}

void clear(Bitmap& canvas, const PixelRect& place) {
    std::uint8_t* pixels = canvas.mutablePixels();
    for (int y = place.y; y < place.y + place.height; ++y)
        std::memset(pixels + static_cast<std::size_t>(y) * canvas.stride() + 4 * static_cast<std::size_t>(place.x), 0,
                    4 * static_cast<std::size_t>(place.width));
}

} // namespace

void Animation::add(const AnimationFrame& frame, std::uint64_t work) {
    const std::size_t index = frames_.size();
    const PixelRect& place = frame.rectangle;
    const bool covers = place.x <= 0 && place.y <= 0 && place.width >= width_ && place.height >= height_;
    const bool hidesAll = covers && (frame.replaces || !frame.hasAlpha);
    Canvas shown;
    shown.start = next_.empty || hidesAll ? index : next_.start;
    shown.opaque = hidesAll ? !frame.hasAlpha : next_.opaque && !(frame.replaces && frame.hasAlpha);
    shown.empty = false;
    switch (frame.disposal) {
    case Disposal::keep:
        next_ = shown;
        break;
    case Disposal::clear:
        next_ = {shown.start, false, covers};
        break;
    case Disposal::restore:
        break;
    }
    frames_.push_back(frame);
    shown_.push_back(shown);
    work_.push_back((work_.empty() ? 0 : work_.back()) + work);
}

base::Result<Bitmap> Animation::canvasShowing(std::size_t index, const ColorSpaceRef& colorSpace,
                                              const DecodeFrame& decode, const ByteSource& bytes) const {
    const std::size_t start = firstNeeded(index);
    const std::uint64_t before = start == 0 ? 0 : work_[start - 1];
    if (index > start && work_[index] - before > maximumWork)
        return pictureFailure(bytes, "its frame " + std::to_string(index) + " takes more than " +
                                         std::to_string(maximumWork / 1'000'000) + " million pixels to show");
    std::optional<Bitmap> canvas;
    for (std::size_t i = start; i <= index; ++i) {
        const AnimationFrame& frame = frames_[i];
        const bool isLast = i == index;
        if (!isLast && frame.disposal == Disposal::restore) continue;
        std::optional<Bitmap> pixels;
        if (!frame.rectangle.isEmpty()) {
            auto decoded = decode(i);
            if (!decoded) return decoded;
            pixels = std::move(*decoded);
        }
        const bool isCanvas = i == start && pixels && pixels->width() == width_ && pixels->height() == height_ &&
                              pixels->isOpaque() == isOpaque(index);
        if (isCanvas) {
            canvas = std::move(pixels);
        } else {
            if (!canvas) {
                auto made = Bitmap::create(width_, height_, colorSpace, isOpaque(index));
                if (!made) return made;
                canvas = std::move(*made);
            }
            if (pixels) drawFrame(*canvas, *pixels, frame);
        }
        if (!isLast && frame.disposal == Disposal::clear && !frame.rectangle.isEmpty()) clear(*canvas, frame.rectangle);
    }
    return std::move(*canvas);
}

} // namespace platform::draw
