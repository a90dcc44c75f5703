// A store of the last few things that were made for a key, where making one is costly. Any thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <list>
#include <mutex>
#include <utility>

namespace platform::draw {

/// `Value` is a pointer; null means that there is none.
template <class Key, class Value>
class RecentlyUsed {
public:
    explicit RecentlyUsed(std::size_t limit) : limit_(limit) {}

    Value find(const Key& key) {
        const std::lock_guard lock(mutex_);
        const auto found =
            std::find_if(entries_.begin(), entries_.end(), [&](const auto& entry) { return entry.first == key; });
        if (found == entries_.end()) return nullptr;
        entries_.splice(entries_.begin(), entries_, found);
        return found->second;
    }
    void add(Key key, Value value) {
        const std::lock_guard lock(mutex_);
        entries_.emplace_front(std::move(key), std::move(value));
        if (entries_.size() > limit_) entries_.pop_back();
    }

private:
    const std::size_t limit_;
    std::mutex mutex_;
    std::list<std::pair<Key, Value>> entries_; // the last used in front
};

} // namespace platform::draw
