// How far a piece of work has come, in units of its own; a child stands for some units of its parent. When a child
// reaches its total, its units count as completed in the parent; until then its fraction counts in the parent's
// fraction. Shared objects, any thread: a tree has one lock, and observers are called without it.
#pragma once

#include "platform/run/Observation.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace platform::run {

class Progress : public std::enable_shared_from_this<Progress> {
public:
    static std::shared_ptr<Progress> create(std::int64_t totalUnitCount);
    /// A child that stands for `pendingUnitCount` units of the parent. The parent keeps it until it is complete.
    static std::shared_ptr<Progress> child(std::int64_t totalUnitCount, const std::shared_ptr<Progress>& parent,
                                           std::int64_t pendingUnitCount);

    std::int64_t totalUnitCount() const;
    void setTotalUnitCount(std::int64_t count);
    std::int64_t completedUnitCount() const;
    void setCompletedUnitCount(std::int64_t count);
    /// 0 to 1, the children's parts included; 0 while the total is 0.
    double fractionCompleted() const;
    bool isFinished() const;

    /// Units for work that reports nothing of its own: they count as completed at resignCurrent().
    void becomeCurrentWithPendingUnitCount(std::int64_t units);
    void resignCurrent();

    /// Called after each change of the fraction, on the thread that made it.
    [[nodiscard]] Observation observe(std::function<void()> didChange);

private:
    struct Child {
        std::shared_ptr<Progress> progress;
        std::int64_t pendingUnitCount;
    };

    Progress(std::int64_t total, std::shared_ptr<Progress> parent);
    bool isFinishedLocked() const { return total_ > 0 && completed_ >= total_; }
    double fractionLocked() const;
    void settleLocked();
    void changed();

    std::shared_ptr<std::mutex> treeMutex_; // one for the whole tree: a change of a child is one of its ancestors
    std::int64_t total_;
    std::int64_t completed_ = 0;
    std::int64_t currentUnits_ = 0;
    std::vector<Child> children_;
    std::weak_ptr<Progress> parent_;
    Observable observable_;
};

} // namespace platform::run
