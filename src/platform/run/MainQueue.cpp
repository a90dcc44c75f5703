#include "platform/run/MainQueue.h"

#include "internal/QueueContext.h"

#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace platform::run {

namespace {

const std::thread::id startingThread = std::this_thread::get_id();

class MainQueue final : public Queue {
public:
    MainQueue() : Queue("com.kestrune.main-thread") {}

    void async(Work work) override {
        std::lock_guard lock(mutex_);
        items_.push_back(std::move(work));
        if (loop_) loop_->wake();
    }

    void sync(const Work& work) override {
        if (isCurrent()) {
            work();
            return;
        }
        struct Turn {
            std::mutex mutex;
            std::condition_variable ended;
            bool hasEnded = false;
        };
        const auto turn = std::make_shared<Turn>();
        const QueueContext* const waiting = QueueContext::current();
        async([this, turn, waiting, &work] {
            {
                const QueueContext context(*this, waiting);
                work();
            }
            std::lock_guard lock(turn->mutex);
            turn->hasEnded = true;
            turn->ended.notify_one();
        });
        const BlockingScope blocking;
        std::unique_lock lock(turn->mutex);
        turn->ended.wait(lock, [&] { return turn->hasEnded; });
    }

    bool isCurrent() const override { return isMainThread() || QueueContext::holds(*this); }

    MainLoop* setLoop(MainLoop* loop) {
        std::lock_guard lock(mutex_);
        mainThread_ = loop ? std::this_thread::get_id() : startingThread;
        if (loop && !items_.empty()) loop->wake();
        return std::exchange(loop_, loop);
    }

    bool isMainThread() const {
        std::lock_guard lock(mutex_);
        return std::this_thread::get_id() == mainThread_;
    }

    void drain() {
        std::size_t count = 0;
        {
            std::lock_guard lock(mutex_);
            count = items_.size();
        }
        for (; count > 0; --count) {
            std::unique_lock lock(mutex_);
            if (items_.empty()) return; // work that serves the queue itself has run the rest
            Work work = std::move(items_.front());
            items_.pop_front();
            lock.unlock();
            const QueueContext context(*this);
            work();
            work = nullptr; // what it holds may end with a word to this queue
        }
    }

private:
    mutable std::mutex mutex_;
    std::deque<Work> items_;
    MainLoop* loop_ = nullptr;
    std::thread::id mainThread_ = startingThread;
};

const std::shared_ptr<MainQueue>& sharedMainQueue() {
    static const auto& queue = *new std::shared_ptr<MainQueue>(std::make_shared<MainQueue>());
    return queue;
}

} // namespace

QueueRef mainQueue() {
    return sharedMainQueue();
}

MainLoop* setMainLoop(MainLoop* loop) {
    return sharedMainQueue()->setLoop(loop);
}

bool isMainThread() {
    return sharedMainQueue()->isMainThread();
}

void drainMainQueue() {
    sharedMainQueue()->drain();
}

RunLoop::RunLoop() : previous_(setMainLoop(this)) {}

RunLoop::~RunLoop() {
    setMainLoop(previous_);
}

void RunLoop::wake() {
    std::lock_guard lock(mutex_);
    hasWork_ = true;
    wakened_.notify_one();
}

void RunLoop::stop() {
    std::lock_guard lock(mutex_);
    stopped_ = true;
    wakened_.notify_one();
}

void RunLoop::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wakened_.wait(lock, [this] { return stopped_ || hasWork_; });
        if (std::exchange(stopped_, false)) return;
        hasWork_ = false;
        lock.unlock();
        drainMainQueue();
        lock.lock();
    }
}

void RunLoop::drain() {
    {
        std::lock_guard lock(mutex_);
        hasWork_ = false;
    }
    drainMainQueue();
}

bool RunLoop::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) {
    constexpr auto patience = std::chrono::milliseconds(5);
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        drain();
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        std::unique_lock lock(mutex_);
        wakened_.wait_for(lock, patience, [this] { return hasWork_; });
    }
}

} // namespace platform::run
