// A file-system event stream with a serial queue of its own. Each start delivers one event for the observed paths,
// which makes the first scan; after that changes are delivered as platform/run/FileEvents.h tells, grouped by the
// latency, the first one after a quiet time at once.
//
// A change inside a subfolder is delivered under the subfolder's path. When the subfolder's name has an extension it is
// taken as a document that is a folder (a job bundle), and the observed folder's own path is delivered along with it: a
// bundle that was scanned before all of it was there is thereby looked at again.
//
// The settings "velmPollInterval" and "velmAlwaysPoll" (folders/DefaultsKeys.h) say how often, and whether in any case,
// the paths are looked at instead of listened to.
//
// Shared; lives as long as its owner keeps it, and its end ends the stream. Any thread may call it; events arrive on
// `eventQueue`.
#pragma once

#include "base/Value.h"
#include "platform/run/FileEvents.h"
#include "platform/run/Queue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class KLARON_FileEvent final : public base::Object, public std::enable_shared_from_this<KLARON_FileEvent> {
public:
    using Paths = std::vector<std::string>;
    using Flags = std::vector<std::uint32_t>;
    using EventBlock = std::function<void(const Paths& paths, const Flags& flags)>;
    using Ref = std::shared_ptr<KLARON_FileEvent>;

    static constexpr double defaultLatency = 0.5;

    static Ref initWithObservedPath(std::string path);
    /// `latency` in seconds.
    static Ref initWithObservedPaths(Paths paths, double latency = defaultLatency);
    ~KLARON_FileEvent() override;

    /// Starts or stops, some time later on the event queue. Setting it running again delivers another first event.
    void setRun(bool run);
    /// What the last start or stop left. True also when the start failed, which is logged.
    bool isRunning() const;

    /// Made on first need: serial, labelled with the class name and the first observed path.
    platform::run::QueueRef eventQueue();
    /// Null: a queue of its own. A running stream is stopped, moved and started again.
    void setEventQueue(platform::run::QueueRef queue);

    /// Called on the event queue with the changed paths and the flags of each (no flags for the event of a start).
    /// It must not hold a strong reference to this object.
    void setEventBlock(EventBlock block);
    void handleFileEventpaths(const Paths& paths, const Flags& flags);

    /// Whether an entry of an observed folder, by its path below the observed one, is a folder that is still being made
    /// or written to. It is delivered, again, once it is quiet.
    bool isSettling(const std::string& path) const { return eventStream_->isSettling(path); }
    /// Whether an observed path is looked at now and then: what comes and goes between two looks is not delivered.
    bool isPolling() const { return eventStream_->isPolling(); }

    const Paths& observedPaths() const { return observedPaths_; }
    std::string className() const override { return "KLARON_FileEvent"; }

private:
    explicit KLARON_FileEvent(Paths paths);
    void streamDidReport(Paths paths, Flags flags);

    const Paths observedPaths_;
    const bool watchesFiles_; // some path was a file: changes of single files are reported
    mutable std::mutex mutex_;
    bool run_ = false;
    platform::run::QueueRef eventQueue_;
    EventBlock eventBlock_;
    std::unique_ptr<platform::run::FileEventStream> eventStream_;
};
