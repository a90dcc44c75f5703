#include "platform/run/Group.h"

#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace platform::run {

struct Group::State {
    std::mutex mutex;
    std::condition_variable emptied;
    std::size_t count = 0;
    std::vector<std::pair<QueueRef, Work>> notifications;

    void leave() {
        std::vector<std::pair<QueueRef, Work>> due;
        {
            std::lock_guard lock(mutex);
            if (count == 0 || --count > 0) return;
            due.swap(notifications);
            emptied.notify_all();
        }
        for (auto& [queue, work] : due)
            queue->async(std::move(work));
    }
};

Group::Group() : state_(std::make_shared<State>()) {}

void Group::enter() {
    std::lock_guard lock(state_->mutex);
    ++state_->count;
}

void Group::leave() {
    const std::shared_ptr<State> state = state_; // the group may end as soon as a waiter goes on
    state->leave();
}

void Group::wait() {
    const std::shared_ptr<State> state = state_;
    std::unique_lock lock(state->mutex);
    if (state->count == 0) return;
    lock.unlock();
    const BlockingScope blocking;
    lock.lock();
    state->emptied.wait(lock, [&] { return state->count == 0; });
}

void Group::async(const QueueRef& queue, Work work) {
    enter();
    queue->async([state = state_, work = std::move(work)]() mutable {
        work();
        work = nullptr; // what it holds ends before the group is left
        state->leave();
    });
}

void Group::notify(const QueueRef& queue, Work work) {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->count > 0) {
            state_->notifications.emplace_back(queue, std::move(work));
            return;
        }
    }
    queue->async(std::move(work));
}

} // namespace platform::run
