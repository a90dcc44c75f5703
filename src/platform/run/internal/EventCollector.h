// The grouping of changes by a latency: what is reported is collected and handed on, each path once, by the rules that
// FileEvents.h states. Any thread; deliveries run on the queue.
#pragma once

#include "platform/run/FileEvents.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace platform::run {

/// One change. `isSettling`: more of the same is to be expected. `quietTime`, when it is above 0: a change inside a
/// folder, which is handed on by itself once there has been none there for that long, however long it takes.
struct CollectedChange {
    std::string path;
    std::uint32_t flags = fileEventFlags::none;
    bool isSettling = false;
    std::chrono::nanoseconds quietTime{0};
};

class EventCollector : public std::enable_shared_from_this<EventCollector> {
public:
    EventCollector(const FileEventStream::Options& options, FileEventStream::Callback callback);

    void setQueue(QueueRef queue);
    void start();
    /// Drops what was collected.
    void stop();
    void add(const std::vector<CollectedChange>& changes);
    /// Whether a change inside the folder waits for it to be quiet there.
    bool isSettling(const std::string& path);
    /// All folders in which something changes are waited for this long at least, from now.
    void prolongQuiet(std::chrono::nanoseconds quietTime);

private:
    using Nanoseconds = std::chrono::nanoseconds;

    void addLocked(const CollectedChange& change, Nanoseconds now);
    void setQuietAtLocked(const std::string& path, Nanoseconds moment);
    std::optional<Nanoseconds> nextDueLocked() const;
    void scheduleLocked(Nanoseconds now);
    void deliverIfDue(std::uint64_t run);

    const ClockRef clock_;
    const Nanoseconds latency_;
    const Nanoseconds longestWait_;
    const bool noDefer_;
    const FileEventStream::Callback callback_;

    std::mutex mutex_;
    QueueRef queue_;
    bool isStarted_ = false;
    std::uint64_t run_ = 0;          // looks of an earlier run find nothing
    std::vector<std::string> paths_; // in the order of their first change
    std::vector<std::uint32_t> flags_;
    std::unordered_map<std::string, std::size_t> indexes_;
    std::map<std::string, Nanoseconds> quietAt_;                       // folders inside which something changes
    std::set<std::pair<Nanoseconds, std::string_view>> byQuietMoment_; // the same, the earliest first
    std::optional<Nanoseconds> lastDelivery_;
    std::optional<Nanoseconds> firstSettling_;
    std::optional<Nanoseconds> due_;      // when all that is collected is delivered
    bool isDueForGood_ = false;           // settling changes no longer put it off
    std::optional<Nanoseconds> nextLook_; // when deliverIfDue runs next
};

} // namespace platform::run
