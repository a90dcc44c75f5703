#include "folders/KLARON_FileEvent.h"

#include "folders/DefaultsKeys.h"
#include "folders/QueueHelpers.h"

#include "base/Log.h"
#include "base/Path.h"
#include "platform/data/UserDefaults.h"

#include <algorithm>
#include <filesystem>
#include <unordered_set>
#include <utility>

using platform::run::FileEventStream;
using platform::run::QueueRef;

namespace {

template <class Elements>
base::Array arrayOf(const Elements& elements) {
    return base::Array(elements.begin(), elements.end());
}

bool isFile(const std::string& path) {
    std::error_code ignored;
    const auto status = std::filesystem::status(path, ignored);
    return std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

std::chrono::nanoseconds nanoseconds(double seconds) {
    constexpr double longest = 1e9;
    return std::chrono::nanoseconds(seconds > 0 ? static_cast<std::int64_t>(std::min(seconds, longest) * 1e9) : 0);
}

FileEventStream::Options optionsOfSettings() {
    constexpr double shortestInterval = 0.05; // seconds
    const auto& defaults = platform::data::UserDefaults::standard();
    FileEventStream::Options options;
    if (const double interval = defaults.doubleForKey(key_velmPollInterval); interval > 0)
        options.pollInterval = nanoseconds(std::max(interval, shortestInterval));
    options.alwaysPoll = defaults.boolForKey(key_velmAlwaysPoll);
    return options;
}

} // namespace

KLARON_FileEvent::Ref KLARON_FileEvent::initWithObservedPath(std::string path) {
    return initWithObservedPaths({std::move(path)});
}

KLARON_FileEvent::Ref KLARON_FileEvent::initWithObservedPaths(Paths paths, double latency) {
    const Ref event(new KLARON_FileEvent(std::move(paths)));
    FileEventStream::Options options = optionsOfSettings();
    options.latency = nanoseconds(latency);
    options.fileEvents = event->watchesFiles_;
    event->eventStream_ = std::make_unique<FileEventStream>(
        event->observedPaths_, options, [weak = event->weak_from_this()](const Paths& changed, const Flags& flags) {
            if (const Ref self = weak.lock()) self->streamDidReport(changed, flags);
        });
    return event;
}

KLARON_FileEvent::KLARON_FileEvent(Paths paths)
    : observedPaths_(std::move(paths)),
      watchesFiles_(std::any_of(observedPaths_.begin(), observedPaths_.end(), isFile)) {}

KLARON_FileEvent::~KLARON_FileEvent() = default;

bool KLARON_FileEvent::isRunning() const {
    std::lock_guard lock(mutex_);
    return run_;
}

void KLARON_FileEvent::setRun(bool run) {
    eventQueue()->async([weak = weak_from_this(), run] {
        const Ref self = weak.lock();
        if (!self) return;
        if (!run)
            self->eventStream_->stop();
        else if (self->eventStream_->start())
            self->handleFileEventpaths(self->observedPaths_, {});
        else
            base::log("FAILED to start monitoring %@", arrayOf(self->observedPaths_));
        std::lock_guard lock(self->mutex_);
        self->run_ = run;
    });
}

QueueRef KLARON_FileEvent::eventQueue() {
    {
        std::lock_guard lock(mutex_);
        if (eventQueue_) return eventQueue_;
    }
    setEventQueue(nullptr);
    std::lock_guard lock(mutex_);
    return eventQueue_;
}

void KLARON_FileEvent::setEventQueue(QueueRef queue) {
    const std::string label = className() + "." + (observedPaths_.empty() ? "" : observedPaths_.front());
    QueueRef old;
    {
        std::lock_guard lock(mutex_);
        if (!queue && eventQueue_ && eventQueue_->label() == label) return;
        if (!queue) queue = folders::dispatchQueueSerialWithDebugLabel(label);
        old = eventQueue_;
        if (!old) {
            eventQueue_ = queue;
            eventStream_->setQueue(queue);
            return;
        }
    }
    bool wasRunning = false;
    folders::performSyncOnQueue(old, [&] {
        eventStream_->stop();
        eventStream_->setQueue(queue);
        std::lock_guard lock(mutex_);
        eventQueue_ = queue;
        wasRunning = run_;
    });
    if (wasRunning) setRun(true);
}

void KLARON_FileEvent::setEventBlock(EventBlock block) {
    std::lock_guard lock(mutex_);
    eventBlock_ = std::move(block);
}

void KLARON_FileEvent::handleFileEventpaths(const Paths& paths, const Flags& flags) {
    base::log("%s:%@ %@", "-[KLARON_FileEvent handleFileEventpaths:flags:]", arrayOf(paths),
              flags.empty() ? base::Value() : base::Value(arrayOf(flags)));
    EventBlock block;
    QueueRef queue;
    {
        std::lock_guard lock(mutex_);
        block = eventBlock_;
        queue = eventQueue_;
    }
    if (block && queue) queue->async([block = std::move(block), paths, flags] { block(paths, flags); });
}

void KLARON_FileEvent::streamDidReport(Paths paths, Flags flags) {
    if (!watchesFiles_) {
        const auto isObserved = [this](const std::string& path) {
            return std::any_of(observedPaths_.begin(), observedPaths_.end(), [&](const std::string& observed) {
                return base::standardizingPath(observed) == base::standardizingPath(path);
            });
        };
        std::unordered_set<std::string> reported(paths.begin(), paths.end());
        for (std::size_t index = 0, count = paths.size(); index < count; ++index) {
            if (base::pathExtension(paths[index]).empty() || isObserved(paths[index])) continue;
            const std::string folder = base::deletingLastPathComponent(paths[index]);
            if (reported.contains(folder) || !isObserved(folder)) continue;
            reported.insert(folder);
            paths.push_back(folder);
            flags.push_back(platform::run::fileEventFlags::none);
        }
    }
    handleFileEventpaths(paths, flags);
}
