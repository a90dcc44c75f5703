// The objects made from the items of a watched folder, by path. Shared by the folder and its scans; any thread.
#pragma once

#include "base/Value.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace jobs {

class FolderContainer {
public:
    using Items = std::map<std::string, base::ObjectRef>;

    std::vector<base::ObjectRef> objects() const {
        std::lock_guard lock(mutex_);
        std::vector<base::ObjectRef> objects;
        objects.reserve(items_.size());
        for (const auto& [path, object] : items_)
            objects.push_back(object);
        return objects;
    }
    bool holds(const std::string& path) const {
        std::lock_guard lock(mutex_);
        return items_.contains(path);
    }
    bool isEmpty() const {
        std::lock_guard lock(mutex_);
        return items_.empty();
    }

    struct Difference {
        Items gone;                    ///< Held, but not there; or spent.
        std::vector<std::string> come; ///< There, but not held; or held and spent.
    };
    /// How a folder of these items, sorted, differs from what is held. A folder of many items costs one comparison for
    /// each. `isSpent` (object) must not use the container.
    template <class IsSpent>
    Difference differenceTo(const std::vector<std::string>& sortedPaths, const IsSpent& isSpent) const {
        Difference difference;
        std::lock_guard lock(mutex_);
        auto held = items_.begin();
        const auto passUntil = [&](const std::string* path) {
            for (; held != items_.end() && (!path || held->first < *path); ++held)
                difference.gone.insert(*held);
        };
        for (const std::string& path : sortedPaths) {
            passUntil(&path);
            if (held == items_.end() || held->first != path) {
                difference.come.push_back(path);
                continue;
            }
            if (isSpent(*held->second)) {
                difference.come.push_back(path);
                difference.gone.insert(*held);
            }
            ++held;
        }
        passUntil(nullptr);
        return difference;
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
