#include "platform/run/Progress.h"

#include <algorithm>
#include <utility>

namespace platform::run {

namespace {

constexpr std::string_view key_fractionCompleted = "fractionCompleted";

} // namespace

Progress::Progress(std::int64_t total, std::shared_ptr<Progress> parent)
    : treeMutex_(parent ? parent->treeMutex_ : std::make_shared<std::mutex>()), total_(total), parent_(parent) {}

std::shared_ptr<Progress> Progress::create(std::int64_t totalUnitCount) {
    return std::shared_ptr<Progress>(new Progress(totalUnitCount, nullptr));
}

std::shared_ptr<Progress> Progress::child(std::int64_t totalUnitCount, const std::shared_ptr<Progress>& parent,
                                          std::int64_t pendingUnitCount) {
    std::shared_ptr<Progress> progress(new Progress(totalUnitCount, parent));
    if (parent) {
        std::lock_guard lock(*parent->treeMutex_);
        parent->children_.push_back({progress, pendingUnitCount});
    }
    return progress;
}

std::int64_t Progress::totalUnitCount() const {
    std::lock_guard lock(*treeMutex_);
    return total_;
}

std::int64_t Progress::completedUnitCount() const {
    std::lock_guard lock(*treeMutex_);
    return completed_;
}

double Progress::fractionCompleted() const {
    std::lock_guard lock(*treeMutex_);
    return fractionLocked();
}

bool Progress::isFinished() const {
    std::lock_guard lock(*treeMutex_);
    return isFinishedLocked();
}

void Progress::setTotalUnitCount(std::int64_t count) {
    {
        std::lock_guard lock(*treeMutex_);
        total_ = count;
    }
    changed();
}

void Progress::setCompletedUnitCount(std::int64_t count) {
    {
        std::lock_guard lock(*treeMutex_);
        completed_ = count;
    }
    changed();
}

void Progress::becomeCurrentWithPendingUnitCount(std::int64_t units) {
    std::lock_guard lock(*treeMutex_);
    currentUnits_ += units;
}

void Progress::resignCurrent() {
    {
        std::lock_guard lock(*treeMutex_);
        completed_ += std::exchange(currentUnits_, 0);
    }
    changed();
}

Observation Progress::observe(std::function<void()> didChange) {
    return observable_.observe(key_fractionCompleted, std::move(didChange));
}

double Progress::fractionLocked() const {
    if (total_ <= 0) return 0;
    double units = static_cast<double>(completed_);
    for (const Child& child : children_)
        units += child.progress->fractionLocked() * static_cast<double>(child.pendingUnitCount);
    return std::clamp(units / static_cast<double>(total_), 0.0, 1.0);
}

// Turns the finished children into completed units.
void Progress::settleLocked() {
    std::erase_if(children_, [this](const Child& child) {
        if (!child.progress->isFinishedLocked()) return false;
        completed_ += child.pendingUnitCount;
        return true;
    });
}

void Progress::changed() {
    std::vector<std::shared_ptr<Progress>> ancestry;
    {
        std::lock_guard lock(*treeMutex_);
        for (std::shared_ptr<Progress> each = shared_from_this(); each; each = each->parent_.lock()) {
            each->settleLocked();
            ancestry.push_back(each);
        }
    }
    for (const std::shared_ptr<Progress>& each : ancestry)
        each->observable_.didChange(key_fractionCompleted);
}

} // namespace platform::run
