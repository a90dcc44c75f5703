// Change notifications on named keys. The owner of a property brackets each change by willChange and didChange; whoever
// cares observes the key and keeps the token. One mechanism for the keys of an instance (a member Observable) and of a
// class (a static one). Any thread; callbacks run on the thread that made the change, with no lock held.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace platform::run {

/// An observation in force. It ends when the token is destroyed or told to end; after that no call of the callback
/// begins, but one that another thread is in the middle of goes on to its end: what the callback refers to must be
/// shared or weak. Ending inside the callback itself is fine.
class Observation {
public:
    Observation() = default;
    explicit Observation(std::function<void()> end) : end_(std::move(end)) {}
    Observation(Observation&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Observation& operator=(Observation&& other) noexcept;
    ~Observation() { end(); }

    void end();
    explicit operator bool() const { return static_cast<bool>(end_); }

private:
    std::function<void()> end_;
};

class Observable {
public:
    using Callback = std::function<void()>;

    Observable();
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    /// Calls `didChange` after each change of the key and `willChange`, if any, before it. The token may outlive the
    /// observable.
    [[nodiscard]] Observation observe(std::string_view key, Callback didChange, Callback willChange = {});

    void willChange(std::string_view key) const;
    void didChange(std::string_view key) const;

    /// Makes a change between the two notifications.
    template <class Change>
    void change(std::string_view key, Change&& change) const {
        willChange(key);
        std::forward<Change>(change)();
        didChange(key);
    }

private:
    struct State;
    void notify(std::string_view key, bool before) const;
    std::shared_ptr<State> state_;
};

} // namespace platform::run
