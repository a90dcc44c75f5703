// Who is told of something, with the arguments of the telling. Any thread; callbacks run on the teller's.
#pragma once

#include "platform/run/Observation.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace jobs {

template <class... Arguments>
class CallbackList {
public:
    using Callback = std::function<void(Arguments...)>;

    [[nodiscard]] platform::run::Observation observe(Callback callback) {
        std::lock_guard lock(state_->mutex);
        const std::uint64_t number = ++state_->lastNumber;
        state_->callbacks.emplace(number, std::move(callback));
        return platform::run::Observation([state = state_, number] {
            std::lock_guard endLock(state->mutex);
            state->callbacks.erase(number);
        });
    }

    void tell(Arguments... arguments) const {
        std::vector<Callback> callbacks;
        {
            std::lock_guard lock(state_->mutex);
            for (const auto& [number, callback] : state_->callbacks)
                callbacks.push_back(callback);
        }
        for (const Callback& callback : callbacks)
            callback(arguments...);
    }

private:
    struct State {
        std::mutex mutex;
        std::uint64_t lastNumber = 0;
        std::map<std::uint64_t, Callback> callbacks;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>(); // shared with the observations, which may outlive it
};

} // namespace jobs
