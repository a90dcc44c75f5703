// The frames of an animated picture and how they come to stand on its canvas: what GIF and WebP have in common. Values;
// filled by one thread, then read by any.
#pragma once

#include "ByteSource.h"
#include "PixelRect.h"
#include "base/Error.h"
#include "platform/draw/Bitmap.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace platform::draw {

/// What becomes of a frame's rectangle before the next frame is drawn.
enum class Disposal {
    keep,
    clear,   ///< It becomes transparent.
    restore, ///< It becomes what it was before the frame.
};

struct AnimationFrame {
    PixelRect rectangle; ///< Within the canvas; may be empty.
    bool hasAlpha = false;
    bool replaces = false; ///< Transparent pixels replace those of the canvas too.
    Disposal disposal = Disposal::keep;
};

class Animation {
public:
    Animation(int width, int height) : width_(width), height_(height) {}

    /// The next frame. `work` counts the pixels that must be decoded for it, also those outside of the canvas.
    void add(const AnimationFrame& frame, std::uint64_t work);

    std::size_t count() const { return frames_.size(); }
    const AnimationFrame& frame(std::size_t index) const { return frames_[index]; }
    /// Whether the canvas is opaque everywhere while the frame is shown.
    bool isOpaque(std::size_t index) const { return shown_[index].opaque; }
    /// The frame from which on all must be drawn to show this one.
    std::size_t firstNeeded(std::size_t index) const { return shown_[index].start; }

    /// The pixels of a frame's rectangle, premultiplied. Asked for rising frame numbers.
    using DecodeFrame = std::function<base::Result<Bitmap>(std::size_t frame)>;
    /// The canvas as it is while the frame is shown. Fails when that takes too long a way: a few bytes a frame can ask
    /// for any amount of work.
    base::Result<Bitmap> canvasShowing(std::size_t index, const ColorSpaceRef& colorSpace, const DecodeFrame& decode,
                                       const ByteSource& bytes) const;

private:
    struct Canvas {
        std::size_t start = 0; ///< The first frame that shows in it.
        bool opaque = false;
        bool empty = true; ///< All of it is transparent.
    };
    int width_;
    int height_;
    std::vector<AnimationFrame> frames_;
    std::vector<Canvas> shown_;
    std::vector<std::uint64_t> work_; ///< Of all frames up to this one.
    Canvas next_;                     ///< What the next frame is drawn on.
};

} // namespace platform::draw
