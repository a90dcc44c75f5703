// A connection to a service that may stand in another process, as its user sees it: a proxy to call, a word when the
// service went and comes back by itself (interrupted), and one when the connection is over (invalidated). Here both
// services are objects of this process; the connection keeps the life cycle that the application relies on. Any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace app {

template <class Protocol>
class ServiceConnection {
public:
    using Handler = std::function<void()>;

    /// Null: a service that does not exist, which invalidates the connection as soon as it is used.
    explicit ServiceConnection(std::shared_ptr<Protocol> service) : service_(std::move(service)) {}

    void setInvalidationHandler(Handler handler) { set(invalidationHandler_, std::move(handler)); }
    void setInterruptionHandler(Handler handler) { set(interruptionHandler_, std::move(handler)); }
    bool hasInvalidationHandler() const {
        const std::lock_guard lock(mutex_);
        return static_cast<bool>(invalidationHandler_);
    }

    /// Null when there is no service any more. Then the connection is invalidated, after the error handler was called.
    std::shared_ptr<Protocol> remoteObjectProxy(const Handler& errorHandler = {}) {
        std::shared_ptr<Protocol> service;
        {
            const std::lock_guard lock(mutex_);
            service = service_;
        }
        if (service) return service;
        if (errorHandler) errorHandler();
        invalidate();
        return nullptr;
    }

    /// Ends the connection and calls the invalidation handler, each once.
    void invalidate() {
        Handler handler;
        {
            const std::lock_guard lock(mutex_);
            service_.reset();
            handler = std::exchange(invalidationHandler_, nullptr);
        }
        if (handler) handler();
    }

    /// The service went away and may come back: the connection stays.
    void interrupt() {
        Handler handler;
        {
            const std::lock_guard lock(mutex_);
            handler = interruptionHandler_;
        }
        if (handler) handler();
    }

private:
    void set(Handler& place, Handler handler) {
        const std::lock_guard lock(mutex_);
        place = std::move(handler);
    }

    mutable std::mutex mutex_;
    std::shared_ptr<Protocol> service_;
    Handler invalidationHandler_;
    Handler interruptionHandler_;
};

} // namespace app
