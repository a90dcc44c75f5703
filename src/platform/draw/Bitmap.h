// Bitmap: a rectangle of pixels in memory, 8 bits a component, premultiplied, in the order of bytes of Cairo's ARGB32
// (blue, green, red, alpha on little-endian machines), rows from the top. Copying a Bitmap shares the pixels; the first
// write through mutablePixels() of a shared one copies them. One Bitmap object belongs to one thread at a time; several
// that share pixels may live on different threads.
#pragma once

#include "base/Error.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform::draw {

class ColorSpace;
using ColorSpaceRef = std::shared_ptr<const ColorSpace>;

/// The widest and highest bitmap, and the most pixels that one may have (1.6 GB).
inline constexpr std::int64_t maximumBitmapSide = 65500;
inline constexpr std::int64_t maximumBitmapPixels = 400'000'000;

class Bitmap {
public:
    /// All pixels transparent black; opaque black when `opaque`. Fails for sizes that are not positive or beyond the
    /// limits, and when there is no memory. `colorSpace` has the RGB model.
    static base::Result<Bitmap> create(std::int64_t width, std::int64_t height, ColorSpaceRef colorSpace, bool opaque);
    /// As create(), but with undefined pixels, for a caller that writes every one of them.
    static base::Result<Bitmap> createUninitialized(std::int64_t width, std::int64_t height, ColorSpaceRef colorSpace,
                                                    bool opaque);

    int width() const { return storage_->width; }
    int height() const { return storage_->height; }
    /// Bytes from one row to the next: a multiple of 64, at least 4 x width.
    std::size_t stride() const { return storage_->stride; }
    const ColorSpaceRef& colorSpace() const { return storage_->colorSpace; }
    /// Every pixel's alpha is 255 and stays so.
    bool isOpaque() const { return storage_->opaque; }

    const std::uint8_t* pixels() const { return storage_->pixels; }
    const std::uint8_t* row(int y) const { return pixels() + static_cast<std::size_t>(y) * stride(); }
    /// The pixels for writing; other bitmaps that shared them keep the old ones. The pointer holds until the bitmap is
    /// copied from again.
    std::uint8_t* mutablePixels();
    std::uint8_t* mutableRow(int y) { return mutablePixels() + static_cast<std::size_t>(y) * stride(); }
    /// Whether another bitmap shares these pixels, so that writing copies them.
    bool isShared() const { return storage_.use_count() > 1; }
    /// Bytes of memory that the pixels take.
    std::size_t byteCount() const { return stride() * static_cast<std::size_t>(height()); }

private:
    struct Storage {
        ~Storage();
        int width = 0;
        int height = 0;
        std::size_t stride = 0;
        bool opaque = false;
        ColorSpaceRef colorSpace;
        void* memory = nullptr; // as allocated; `pixels` is its first 64-byte boundary
        std::uint8_t* pixels = nullptr;
    };
    explicit Bitmap(std::shared_ptr<Storage> storage) : storage_(std::move(storage)) {}
    static base::Result<Bitmap> allocate(std::int64_t width, std::int64_t height, ColorSpaceRef colorSpace, bool opaque,
                                         bool zeroed);

    std::shared_ptr<Storage> storage_;
};

} // namespace platform::draw
