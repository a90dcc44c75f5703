// A count of work under way, to wait for its end. A Group may be destroyed as soon as its wait has returned. Any
// thread.
#pragma once

#include "platform/run/Queue.h"

#include <memory>

namespace platform::run {

class Group {
public:
    Group();
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    void enter();
    /// Balances one enter(). A surplus call is without effect.
    void leave();
    /// Blocks until as many calls of leave() as of enter() have come; at once when nothing is under way. No time-out.
    void wait();
    /// Enters, runs the work on the queue, leaves.
    void async(const QueueRef& queue, Work work);
    /// Runs the work on the queue as soon as nothing is under way, once.
    void notify(const QueueRef& queue, Work work);

private:
    struct State; // shared with work under way, so that the last leave() touches no destroyed group
    std::shared_ptr<State> state_;
};

using GroupRef = std::shared_ptr<Group>;

} // namespace platform::run
