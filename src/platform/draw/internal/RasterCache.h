// The store behind PictureCache.h: finished rasters by what they show. Any thread.
#pragma once

#include "ByteSource.h"
#include "PixelRect.h"
#include "base/Error.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/PictureCache.h"

#include <compare>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace platform::draw {

/// Everything on which the pixels of a raster depend.
struct RasterKey {
    ContentIdentity content;
    std::size_t index = 0; ///< Of the picture within its file.
    PixelRect region;
    std::int64_t width = 0; ///< Sizes and phases in 1/512 pixels.
    std::int64_t height = 0;
    std::int64_t phaseX = 0;
    std::int64_t phaseY = 0;
    PixelRect visible;
    int reduction = 1;
    ColorSpaceRef colorSpace;
    friend auto operator<=>(const RasterKey&, const RasterKey&) = default;
};

class RasterCache {
public:
    static RasterCache& shared();

    /// The raster of this key. `make` runs on the calling thread without a lock, once for all who ask meanwhile; its
    /// failure goes to all of them and is not kept.
    base::Result<Bitmap> rasterFor(const RasterKey& key, const std::function<base::Result<Bitmap>()>& make);

    void setCapacity(std::size_t bytes);
    std::size_t capacity();
    void clear();
    PictureCacheStatistics statistics();

private:
    struct Entry {
        std::optional<base::Result<Bitmap>> result; // none while it is being made
        std::list<RasterKey>::iterator use;
    };
    void shrinkTo(std::size_t bytes);
    void keep(const RasterKey& key, const std::shared_ptr<Entry>& entry);

    std::mutex mutex_;
    std::condition_variable made_;
    std::map<RasterKey, std::shared_ptr<Entry>> entries_;
    std::list<RasterKey> uses_; // finished ones, the last used first
    std::size_t capacity_ = defaultPictureCacheCapacity;
    PictureCacheStatistics statistics_;
};

} // namespace platform::draw
