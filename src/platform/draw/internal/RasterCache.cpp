#include "RasterCache.h"

namespace platform::draw {

RasterCache& RasterCache::shared() {
    // Never destroyed: threads may still draw while the program's statics go.
    static auto* cache = new RasterCache;
    return *cache;
}

base::Result<Bitmap> RasterCache::rasterFor(const RasterKey& key, const std::function<base::Result<Bitmap>()>& make) {
    std::unique_lock lock(mutex_);
    if (const auto found = entries_.find(key); found != entries_.end()) {
        const std::shared_ptr<Entry> entry = found->second;
        ++statistics_.hits;
        if (entry->result)
            uses_.splice(uses_.begin(), uses_, entry->use);
        else
            made_.wait(lock, [&entry] { return entry->result.has_value(); });
        return *entry->result;
    }
    ++statistics_.misses;
    const auto entry = std::make_shared<Entry>();
    entries_.emplace(key, entry);
    lock.unlock();
    base::Result<Bitmap> result = make();
    lock.lock();
    entry->result = result;
    keep(key, entry);
    lock.unlock();
    made_.notify_all();
    return result;
}

void RasterCache::keep(const RasterKey& key, const std::shared_ptr<Entry>& entry) {
    const std::size_t bytes = *entry->result ? (*entry->result)->byteCount() : 0;
    // A single huge one must not drive out all others.
    if (bytes == 0 || bytes > capacity_ / 4) {
        entries_.erase(key);
        return;
    }
    shrinkTo(capacity_ - bytes);
    uses_.push_front(key);
    entry->use = uses_.begin();
    statistics_.bytes += bytes;
}

void RasterCache::shrinkTo(std::size_t bytes) {
    while (statistics_.bytes > bytes && !uses_.empty()) {
        const auto last = entries_.find(uses_.back());
        statistics_.bytes -= (*last->second->result)->byteCount();
        entries_.erase(last);
        uses_.pop_back();
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

} // namespace platform::draw
