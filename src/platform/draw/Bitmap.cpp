#include "platform/draw/Bitmap.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

namespace platform::draw {

namespace {

constexpr std::size_t alignment = 64;

} // namespace

Bitmap::Storage::~Storage() {
    std::free(memory);
}

base::Result<Bitmap> Bitmap::allocate(std::int64_t width, std::int64_t height, ColorSpaceRef colorSpace, bool opaque,
                                      bool zeroed) {
    const std::string size = std::to_string(width) + " x " + std::to_string(height);
    if (width <= 0 || height <= 0) return base::failure(base::posixErrorDomain, EINVAL, "no bitmap of " + size);
    if (width > maximumBitmapSide || height > maximumBitmapSide || width * height > maximumBitmapPixels)
        return base::failure(base::posixErrorDomain, EFBIG, "a bitmap of " + size + " pixels is beyond the limit");

    auto storage = std::make_shared<Storage>();
    storage->width = static_cast<int>(width);
    storage->height = static_cast<int>(height);
    storage->stride = (static_cast<std::size_t>(width) * 4 + alignment - 1) / alignment * alignment;
    storage->opaque = opaque;
    storage->colorSpace = std::move(colorSpace);
    const std::size_t bytes = storage->stride * static_cast<std::size_t>(height) + alignment;
    // calloc rather than an own clearing: fresh memory of the system is zero already and is not touched twice.
    storage->memory = zeroed ? std::calloc(1, bytes) : std::malloc(bytes);
    if (!storage->memory) return base::failure(base::posixErrorDomain, ENOMEM, "no memory for a bitmap of " + size);
    void* start = storage->memory;
    std::size_t space = bytes;
    storage->pixels = static_cast<std::uint8_t*>(std::align(alignment, bytes - alignment, start, space));
    return Bitmap(std::move(storage));
}

base::Result<Bitmap> Bitmap::create(std::int64_t width, std::int64_t height, ColorSpaceRef colorSpace, bool opaque) {
    auto bitmap = allocate(width, height, std::move(colorSpace), opaque, true);
    if (bitmap && opaque) {
        for (int y = 0; y < bitmap->height(); ++y) {
            std::uint8_t* row = bitmap->mutableRow(y);
            for (int x = 0; x < bitmap->width(); ++x)
                row[4 * x + 3] = 255;
        }
    }
    return bitmap;
}

base::Result<Bitmap> Bitmap::createUninitialized(std::int64_t width, std::int64_t height, ColorSpaceRef colorSpace,
                                                 bool opaque) {
    return allocate(width, height, std::move(colorSpace), opaque, false);
}

std::uint8_t* Bitmap::mutablePixels() {
    if (isShared()) {
        auto copy = allocate(width(), height(), colorSpace(), isOpaque(), false);
        // The sizes were good before; what is left is a lack of memory, of which nobody can be told from here.
        if (!copy) throw std::bad_alloc();
        std::memcpy(copy->storage_->pixels, pixels(), byteCount());
        storage_ = std::move(copy->storage_);
    } else {
        // Orders what the last other holder read before it let go against what is written now.
        std::atomic_thread_fence(std::memory_order_acquire);
    }
    return storage_->pixels;
}

} // namespace platform::draw
