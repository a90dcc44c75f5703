#include "platform/run/Queue.h"

#include "internal/QueueContext.h"
#include "internal/ThreadPool.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace platform::run {

namespace {

thread_local const QueueContext* currentContext = nullptr;

class GlobalQueue final : public Queue {
public:
    explicit GlobalQueue(QualityOfService quality)
        : Queue("global." + std::to_string(static_cast<int>(quality))), quality_(quality) {}

    void async(Work work) override {
        ThreadPool::shared().submit(quality_, [this, work = std::move(work)] {
            const QueueContext context(*this);
            work();
        });
    }
    void sync(const Work& work) override {
        const QueueContext context(*this);
        work();
    }
    bool isCurrent() const override { return false; }

private:
    const QualityOfService quality_;
};

// One turn at a time: either the pool drains the queue or a thread that called sync() has it for the length of its
// work.
class SerialQueue final : public Queue, public std::enable_shared_from_this<SerialQueue> {
public:
    explicit SerialQueue(std::string label) : Queue(std::move(label)) {}

    void async(Work work) override {
        std::lock_guard lock(mutex_);
        items_.push_back({std::move(work), nullptr});
        if (!std::exchange(isTaken_, true)) submitDrain();
    }

    void sync(const Work& work) override {
        if (isCurrent()) {
            work();
            return;
        }
        const std::shared_ptr<SerialQueue> self = shared_from_this(); // the work may let go of the queue
        takeTurn();
        {
            const QueueContext context(*this);
            work();
        }
        std::lock_guard lock(mutex_);
        passOn();
    }

    bool isCurrent() const override { return QueueContext::holds(*this); }

private:
    // A thread that waits for its turn. Shared, as it may be gone before the one who wakes it has let go.
    struct Waiter {
        std::mutex mutex;
        std::condition_variable wakened;
        bool hasTurn = false;
    };
    struct Item {
        Work work;
        std::shared_ptr<Waiter> waiter; // in the place of work
    };

    void takeTurn() {
        const auto waiter = std::make_shared<Waiter>();
        {
            std::lock_guard lock(mutex_);
            if (!std::exchange(isTaken_, true)) return;
            items_.push_back({nullptr, waiter});
        }
        const BlockingScope blocking;
        std::unique_lock lock(waiter->mutex);
        waiter->wakened.wait(lock, [&] { return waiter->hasTurn; });
    }

    // With the lock, at the end of a turn: hands it to the next one.
    void passOn() {
        if (items_.empty()) {
            isTaken_ = false;
        } else if (items_.front().waiter) {
            const std::shared_ptr<Waiter> waiter = std::move(items_.front().waiter);
            items_.pop_front();
            std::lock_guard lock(waiter->mutex);
            waiter->hasTurn = true;
            waiter->wakened.notify_one();
        } else {
            submitDrain();
        }
    }

    void submitDrain() {
        ThreadPool::shared().submit(QualityOfService::standard, [self = shared_from_this()] { self->drain(); });
    }

    void drain() {
        constexpr int fairShare = 16; // then others of the pool have their turn
        for (int count = 0; count < fairShare; ++count) {
            std::unique_lock lock(mutex_);
            if (items_.empty() || items_.front().waiter) {
                passOn();
                return;
            }
            Work work = std::move(items_.front().work);
            items_.pop_front();
            lock.unlock();
            const QueueContext context(*this);
            work();
            work = nullptr; // what it holds may end with a word to this queue
        }
        std::lock_guard lock(mutex_);
        passOn();
    }

    std::mutex mutex_;
    std::deque<Item> items_;
    bool isTaken_ = false;
};

} // namespace

QueueContext::QueueContext(const Queue& queue, const QueueContext* outer)
    : queue_(queue), outer_(outer), previous_(currentContext) {
    currentContext = this;
}

QueueContext::~QueueContext() {
    currentContext = previous_;
}

const QueueContext* QueueContext::current() {
    return currentContext;
}

bool QueueContext::holds(const Queue& queue) {
    for (const QueueContext* context = currentContext; context; context = context->outer_)
        if (&context->queue_ == &queue) return true;
    return false;
}

std::shared_ptr<Queue> Queue::serial(std::string label) {
    return std::make_shared<SerialQueue>(std::move(label));
}

std::shared_ptr<Queue> Queue::global(QualityOfService quality) {
    using enum QualityOfService;
    // Never destroyed: the pool's threads may use them until the very end of the process.
    static const auto& queues = *new std::array<std::shared_ptr<Queue>, 5>{
        std::make_shared<GlobalQueue>(background), std::make_shared<GlobalQueue>(utility),
        std::make_shared<GlobalQueue>(standard), std::make_shared<GlobalQueue>(userInitiated),
        std::make_shared<GlobalQueue>(userInteractive)};
    switch (quality) {
    case background:
        return queues[0];
    case utility:
        return queues[1];
    case standard:
        return queues[2];
    case userInitiated:
        return queues[3];
    case userInteractive:
        return queues[4];
    }
    return queues[2];
}

std::string currentQueueLabel() {
    return currentContext ? currentContext->queue().label() : std::string();
}

BlockingScope::BlockingScope() {
    ThreadPool::shared().willBlock();
}

BlockingScope::~BlockingScope() {
    ThreadPool::shared().didBlock();
}

} // namespace platform::run
