#include "RasterCache.h"

#include <algorithm>
#include <iterator>

namespace platform::draw {

namespace {

/// Of the rows of one picture, when nobody has said that it will be drawn again: a drawing should not take more memory
/// because the photograph is large.
constexpr std::size_t unsharedRowsLimit = 16u << 20;

} // namespace

RasterCache& RasterCache::shared() {
    // Never destroyed: threads may still draw while the program's statics go.
    static auto* cache = new RasterCache;
    return *cache;
}

template <class Make>
base::Result<RasterCache::Pixels> RasterCache::pixelsFor(const RasterKey& key, std::uint64_t* hits,
                                                         std::uint64_t* misses, const Make& make) {
    std::unique_lock lock(mutex_);
    if (const auto found = entries_.find(key); found != entries_.end()) {
        const std::shared_ptr<Entry> entry = found->second;
        if (hits) ++*hits;
        if (entry->result)
            uses_.splice(uses_.begin(), uses_, entry->use);
        else
            made_.wait(lock, [&entry] { return entry->result.has_value(); });
        return *entry->result;
    }
    if (misses) ++*misses;
    const auto entry = std::make_shared<Entry>();
    entries_.emplace(key, entry);
    lock.unlock();
    base::Result<Pixels> result = make();
    lock.lock();
    entry->result = result;
    keep(key, entry);
    lock.unlock();
    made_.notify_all();
    return result;
}

base::Result<Bitmap> RasterCache::rasterFor(const RasterKey& key, const std::function<base::Result<Bitmap>()>& make) {
    const auto pixels = pixelsFor(key, &statistics_.hits, &statistics_.misses, [&]() -> base::Result<Pixels> {
        auto raster = make();
        if (!raster) return base::failure(raster.error());
        return Pixels{std::move(*raster), nullptr};
    });
    if (!pixels) return base::failure(pixels.error());
    return *pixels->raster;
}

base::Result<RasterCache::Rows> RasterCache::rowsFor(const RasterKey& key,
                                                     const std::function<base::Result<Rows>()>& make) {
    const auto pixels = pixelsFor(key, nullptr, nullptr, [&]() -> base::Result<Pixels> {
        auto rows = make();
        if (!rows) return base::failure(rows.error());
        return Pixels{std::nullopt, std::move(*rows)};
    });
    if (!pixels) return base::failure(pixels.error());
    return pixels->rows;
}

bool RasterCache::wantsRows(const RasterKey& key, std::int64_t bytes, double share) {
    constexpr double mostOfIt = 0.75;
    const std::lock_guard lock(mutex_);
    if (entries_.contains(key)) return true;
    return static_cast<std::size_t>(bytes) <= limit(true) && (sharings_ > 0 || share >= mostOfIt);
}

/// A single huge one must not drive out all others.
std::size_t RasterCache::limit(bool ofRows) const {
    if (!ofRows) return capacity_ / 4;
    return sharings_ > 0 ? capacity_ / 2 : std::min(unsharedRowsLimit, capacity_ / 4);
}

void RasterCache::keep(const RasterKey& key, const std::shared_ptr<Entry>& entry) {
    const std::size_t bytes = *entry->result ? (*entry->result)->byteCount() : 0;
    if (bytes == 0 || bytes > limit((*entry->result)->rows != nullptr)) {
        entries_.erase(key);
        return;
    }
    shrinkTo(capacity_ - bytes);
    uses_.push_front(key);
    entry->use = uses_.begin();
    statistics_.bytes += bytes;
}

void RasterCache::remove(std::list<RasterKey>::iterator use) {
    const auto entry = entries_.find(*use);
    statistics_.bytes -= (*entry->second->result)->byteCount();
    entries_.erase(entry);
    uses_.erase(use);
}

void RasterCache::shrinkTo(std::size_t bytes) {
    while (statistics_.bytes > bytes && !uses_.empty())
        remove(std::prev(uses_.end()));
}

void RasterCache::countDecoding() {
    const std::lock_guard lock(mutex_);
    ++statistics_.decodings;
}

void RasterCache::beginSharing() {
    const std::lock_guard lock(mutex_);
    ++sharings_;
}

void RasterCache::endSharing() {
    const std::lock_guard lock(mutex_);
    if (--sharings_ > 0) return;
    for (auto use = uses_.begin(); use != uses_.end();) {
        const auto next = std::next(use);
        const Pixels& pixels = **entries_.find(*use)->second->result;
        if (pixels.rows && pixels.byteCount() > limit(true)) remove(use);
        use = next;
    }
}

void RasterCache::setCapacity(std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    capacity_ = bytes;
    shrinkTo(bytes);
}

std::size_t RasterCache::capacity() {
    const std::lock_guard lock(mutex_);
    return capacity_;
}

void RasterCache::clear() {
    const std::lock_guard lock(mutex_);
    shrinkTo(0);
}

PictureCacheStatistics RasterCache::statistics() {
    const std::lock_guard lock(mutex_);
    return statistics_;
}

void setPictureCacheCapacity(std::size_t bytes) {
    RasterCache::shared().setCapacity(bytes);
}

std::size_t pictureCacheCapacity() {
    return RasterCache::shared().capacity();
}

void clearPictureCache() {
    RasterCache::shared().clear();
}

PictureCacheStatistics pictureCacheStatistics() {
    return RasterCache::shared().statistics();
}

PictureSharing::PictureSharing() {
    RasterCache::shared().beginSharing();
}

PictureSharing::~PictureSharing() {
    RasterCache::shared().endSharing();
}

} // namespace platform::draw
