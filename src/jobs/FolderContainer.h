// The objects made from the items of a watched folder, by path. Shared by the folder and its scans; any thread.
#pragma once

#include "base/Value.h"

#include <map>
#include <mutex>
#include <string>

namespace jobs {

class FolderContainer {
public:
    using Items = std::map<std::string, base::ObjectRef>;

    Items items() const {
        std::lock_guard lock(mutex_);
        return items_;
    }
    bool holds(const std::string& path) const {
        std::lock_guard lock(mutex_);
        return items_.contains(path);
    }
    bool isEmpty() const {
        std::lock_guard lock(mutex_);
        return items_.empty();
    }
    void removeAll() {
        Items removed; // let go of without the lock
        std::lock_guard lock(mutex_);
        items_.swap(removed);
    }
    void merge(const Items& additions, const Items& removals) {
        std::lock_guard lock(mutex_);
        for (const auto& [path, object] : additions)
            items_.insert_or_assign(path, object);
        for (const auto& [path, object] : removals)
            items_.erase(path);
    }

private:
    mutable std::mutex mutex_;
    Items items_;
};

} // namespace jobs
