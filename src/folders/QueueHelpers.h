// Running work on a queue by its identity: what asks for a queue on which it stands already runs inline, so that nested
// calls never wait for themselves. A null queue counts as the present one. Any thread.
#pragma once

#include "platform/run/MainQueue.h"
#include "platform/run/Queue.h"

#include <string>
#include <utility>

namespace folders {

using platform::run::QualityOfService;
using platform::run::Queue;
using platform::run::QueueRef;
using platform::run::Work;

inline QueueRef dispatchQueueSerialWithDebugLabel(std::string label) {
    return Queue::serial(std::move(label));
}
inline QueueRef dispatchQueueSerial() {
    return Queue::serial();
}
inline QueueRef dispatchQueueGlobalWithQOS(QualityOfService quality) {
    return Queue::global(quality);
}
inline QueueRef dispatchQueueGlobal() {
    return Queue::global(QualityOfService::standard);
}

inline bool isMainQueue() {
    return platform::run::mainQueue()->isCurrent();
}

/// Inline on the queue itself, otherwise on it while the caller waits.
inline void performSyncOnQueue(const QueueRef& queue, const Work& work) {
    if (queue)
        queue->sync(work);
    else
        work();
}

/// Inline on the queue itself, otherwise on it some time later.
inline void performInlineOnQueue(const QueueRef& queue, Work work) {
    if (!queue || queue->isCurrent())
        work();
    else
        queue->async(std::move(work));
}

inline void performSyncOnMainQueue(const Work& work) {
    platform::run::mainQueue()->sync(work);
}

/// Some time later also when called on the main queue.
inline void performAsyncOnMainQueue(Work work) {
    platform::run::mainQueue()->async(std::move(work));
}

inline void performAsyncGlobalQOS(QualityOfService quality, Work work) {
    Queue::global(quality)->async(std::move(work));
}
inline void performAsyncGlobal(Work work) {
    performAsyncGlobalQOS(QualityOfService::standard, std::move(work));
}
inline void performAsyncGlobalUserInitiated(Work work) {
    performAsyncGlobalQOS(QualityOfService::userInitiated, std::move(work));
}

} // namespace folders
