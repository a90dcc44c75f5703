// Which queues the work on a thread stands on: the innermost first, then those that wait for it.
#pragma once

#include "platform/run/Queue.h"

namespace platform::run {

class QueueContext {
public:
    /// Work of `queue` begins on this thread. `outer`: the context of the one who waits for it, which may be another
    /// thread's.
    explicit QueueContext(const Queue& queue, const QueueContext* outer = current());
    ~QueueContext();
    QueueContext(const QueueContext&) = delete;
    QueueContext& operator=(const QueueContext&) = delete;

    static const QueueContext* current();
    static bool holds(const Queue& queue);

    const Queue& queue() const { return queue_; }

private:
    const Queue& queue_;
    const QueueContext* outer_;
    const QueueContext* previous_; // of this thread
};

} // namespace platform::run
