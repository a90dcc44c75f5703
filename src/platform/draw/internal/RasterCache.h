// The store behind PictureCache.h: finished rasters by what they show, and the decoded rows of whole pictures, of which
// rasters of other sizes are made. Any thread.
#pragma once

#include "ByteSource.h"
#include "PixelRect.h"
#include "PlaneRows.h"
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

/// Everything on which the pixels of a raster depend. Rows of a whole picture have no size and no space.
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
    /// failure goes to all of them and is not kept. It does not throw.
    base::Result<Bitmap> rasterFor(const RasterKey& key, const std::function<base::Result<Bitmap>()>& make);

    using Rows = std::shared_ptr<const PlaneRows>;
    /// The same for decoded rows.
    base::Result<Rows> rowsFor(const RasterKey& key, const std::function<base::Result<Rows>()>& make);
    /// Whether a drawing that shows `share` (0 to 1) of a picture's height should go by its decoded rows, which take
    /// that many bytes: they are there, or it is worth decoding the rest of them too.
    bool wantsRows(const RasterKey& key, std::int64_t bytes, double share);

    void setCapacity(std::size_t bytes);
    std::size_t capacity();
    void clear();
    PictureCacheStatistics statistics();
    void countDecoding();
    void beginSharing();
    void endSharing();

private:
    /// One of the two.
    struct Pixels {
        std::optional<Bitmap> raster;
        Rows rows;
        std::size_t byteCount() const { return raster ? raster->byteCount() : rows->byteCount(); }
    };
    struct Entry {
        std::optional<base::Result<Pixels>> result; // none while it is being made
        std::list<RasterKey>::iterator use;
    };
    template <class Make>
    base::Result<Pixels> pixelsFor(const RasterKey& key, std::uint64_t* hits, std::uint64_t* misses, const Make& make);
    std::size_t limit(bool ofRows) const;
    void shrinkTo(std::size_t bytes);
    void remove(std::list<RasterKey>::iterator use);
    void keep(const RasterKey& key, const std::shared_ptr<Entry>& entry);

    std::mutex mutex_;
    std::condition_variable made_;
    std::map<RasterKey, std::shared_ptr<Entry>> entries_;
    std::list<RasterKey> uses_; // finished ones, the last used first
    std::size_t capacity_ = defaultPictureCacheCapacity;
    int sharings_ = 0;
    PictureCacheStatistics statistics_;
};

} // namespace platform::draw
