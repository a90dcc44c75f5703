#include "platform/run/Observation.h"

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace platform::run {

namespace {

struct Observer {
    std::string key;
    Observable::Callback didChange;
    Observable::Callback willChange;
    std::atomic<bool> hasEnded = false;
};

} // namespace

struct Observable::State {
    std::mutex mutex;
    std::vector<std::shared_ptr<Observer>> observers;
};

Observation& Observation::operator=(Observation&& other) noexcept {
    if (this != &other) {
        // The new one is in place before the old one ends: what is freed with the old one may look at this token.
        const std::function<void()> end = std::exchange(end_, std::exchange(other.end_, nullptr));
        if (end) end();
    }
    return *this;
}

void Observation::end() {
    if (const std::function<void()> end = std::exchange(end_, nullptr)) end();
}

Observable::Observable() : state_(std::make_shared<State>()) {}

Observation Observable::observe(std::string_view key, Callback didChange, Callback willChange) {
    const auto observer = std::make_shared<Observer>();
    observer->key = key;
    observer->didChange = std::move(didChange);
    observer->willChange = std::move(willChange);
    {
        std::lock_guard lock(state_->mutex);
        state_->observers.push_back(observer);
    }
    return Observation([state = std::weak_ptr(state_), observer] {
        observer->hasEnded = true;
        if (const auto held = state.lock()) {
            std::lock_guard lock(held->mutex);
            std::erase(held->observers, observer);
        }
    });
}

void Observable::notify(std::string_view key, bool before) const {
    const std::shared_ptr<State> state = state_; // a callback may end the observable
    std::vector<std::shared_ptr<Observer>> concerned;
    {
        std::lock_guard lock(state->mutex);
        for (const auto& observer : state->observers)
            if (observer->key == key) concerned.push_back(observer);
    }
    for (const auto& observer : concerned) {
        const Callback& callback = before ? observer->willChange : observer->didChange;
        if (callback && !observer->hasEnded) callback();
    }
}

void Observable::willChange(std::string_view key) const {
    notify(key, true);
}

void Observable::didChange(std::string_view key) const {
    notify(key, false);
}

} // namespace platform::run
