#include "EventCollector.h"

#include <algorithm>
#include <utility>

namespace platform::run {

EventCollector::EventCollector(const FileEventStream::Options& options, FileEventStream::Callback callback)
    : clock_(options.clock ? options.clock : clock()), latency_(std::max(options.latency, Nanoseconds(0))),
      longestWait_(latency_ * std::max(options.patience, 1)), noDefer_(options.noDefer),
      callback_(std::move(callback)) {}

void EventCollector::setQueue(QueueRef queue) {
    std::lock_guard lock(mutex_);
    queue_ = std::move(queue);
}

void EventCollector::start() {
    std::lock_guard lock(mutex_);
    isStarted_ = true;
}

void EventCollector::stop() {
    std::lock_guard lock(mutex_);
    isStarted_ = false;
    ++run_;
    nextLook_.reset();
    paths_.clear();
    flags_.clear();
    indexes_.clear();
    byQuietMoment_.clear();
    quietAt_.clear();
    lastDelivery_.reset();
    firstSettling_.reset();
    due_.reset();
    isDueForGood_ = false;
}

void EventCollector::add(const std::vector<CollectedChange>& changes) {
    std::lock_guard lock(mutex_);
    if (!isStarted_ || changes.empty()) return;
    const Nanoseconds now = clock_->now();
    for (const CollectedChange& change : changes)
        addLocked(change, now);
    scheduleLocked(now);
}

bool EventCollector::isSettling(const std::string& path) {
    std::lock_guard lock(mutex_);
    return quietAt_.contains(path);
}

void EventCollector::prolongQuiet(Nanoseconds quietTime) {
    std::lock_guard lock(mutex_);
    const Nanoseconds earliest = clock_->now() + quietTime;
    std::vector<std::string> early;
    for (const auto& [moment, path] : byQuietMoment_)
        if (moment < earliest) early.emplace_back(path);
    for (const std::string& path : early)
        setQuietAtLocked(path, earliest);
}

void EventCollector::setQuietAtLocked(const std::string& path, Nanoseconds moment) {
    const auto [place, isNew] = quietAt_.try_emplace(path, moment);
    if (!isNew) byQuietMoment_.erase({place->second, place->first});
    place->second = moment;
    byQuietMoment_.emplace(moment, place->first);
}

void EventCollector::addLocked(const CollectedChange& change, Nanoseconds now) {
    if (change.quietTime > Nanoseconds(0)) {
        setQuietAtLocked(change.path, now + change.quietTime);
        return;
    }
    const auto [place, isNew] = indexes_.try_emplace(change.path, paths_.size());
    if (isNew) {
        paths_.push_back(change.path);
        flags_.push_back(change.flags);
    } else {
        flags_[place->second] |= change.flags;
    }

    const Nanoseconds earliest = lastDelivery_ ? std::max(now, *lastDelivery_ + latency_) : now;
    if (change.isSettling) {
        if (!firstSettling_) firstSettling_ = now;
        if (!isDueForGood_) due_ = std::max(earliest, std::min(now + latency_, *firstSettling_ + longestWait_));
    } else if (!isDueForGood_) {
        const Nanoseconds wanted = noDefer_ ? earliest : now + latency_;
        due_ = due_ ? std::min(*due_, wanted) : wanted;
        isDueForGood_ = true;
    }
}

std::optional<EventCollector::Nanoseconds> EventCollector::nextDueLocked() const {
    if (byQuietMoment_.empty()) return due_;
    const Nanoseconds quietAt = byQuietMoment_.begin()->first;
    const Nanoseconds wanted = lastDelivery_ ? std::max(quietAt, *lastDelivery_ + latency_) : quietAt;
    return due_ ? std::min(*due_, wanted) : wanted;
}

void EventCollector::scheduleLocked(Nanoseconds now) {
    const std::optional<Nanoseconds> due = nextDueLocked();
    if (!due || !queue_ || (nextLook_ && *nextLook_ <= *due)) return;
    nextLook_ = due;
    auto look = [weak = weak_from_this(), run = run_] {
        if (const auto self = weak.lock()) self->deliverIfDue(run);
    };
    if (*due <= now)
        queue_->async(std::move(look));
    else
        clock_->after(*due - now, queue_, std::move(look));
}

void EventCollector::deliverIfDue(std::uint64_t run) {
    std::vector<std::string> paths;
    std::vector<std::uint32_t> flags;
    std::unordered_map<std::string, std::size_t> indexes;
    {
        std::lock_guard lock(mutex_);
        if (run != run_) return;
        const Nanoseconds now = clock_->now();
        // Of several looks under way the earliest one comes first; a later one finds nothing or what came meanwhile.
        if (nextLook_ && *nextLook_ <= now) nextLook_.reset();
        const std::optional<Nanoseconds> due = nextDueLocked();
        if (!due) return;
        if (now < *due) {
            scheduleLocked(now);
            return;
        }
        if (due_ && now >= *due_) {
            paths.swap(paths_);
            flags.swap(flags_);
            indexes.swap(indexes_);
            firstSettling_.reset();
            due_.reset();
            isDueForGood_ = false;
        }
        while (!byQuietMoment_.empty() && byQuietMoment_.begin()->first <= now) {
            const auto place = quietAt_.find(std::string(byQuietMoment_.begin()->second));
            if (!indexes.contains(place->first)) {
                paths.push_back(place->first);
                flags.push_back(fileEventFlags::none);
            }
            byQuietMoment_.erase(byQuietMoment_.begin());
            quietAt_.erase(place);
        }
        lastDelivery_ = now;
        scheduleLocked(now);
    }
    callback_(paths, flags);
}

} // namespace platform::run
