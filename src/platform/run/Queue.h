// Queues of work. A serial queue runs one item at a time in the order of arrival, on any thread of a shared pool; a
// global queue hands each item straight to the pool, those of a higher class first. The pool grows when its threads
// block and shrinks when they idle, so that waiting never starves other work.
//
// Queues are shared: whoever holds one keeps it alive, and work that was accepted is run even when nobody holds the
// queue any more. Every operation may be called on any thread. Work must not throw.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace platform::run {

using Work = std::function<void()>;

/// The classes of the global queues, by their numbers.
enum class QualityOfService : int {
    background = 9,
    utility = 17,
    standard = 21,
    userInitiated = 25,
    userInteractive = 33,
};

class Queue {
public:
    /// A new serial queue. The label serves logs and debuggers; it need not be unique.
    static std::shared_ptr<Queue> serial(std::string label = {});
    /// The one global queue of a class.
    static std::shared_ptr<Queue> global(QualityOfService quality = QualityOfService::standard);

    virtual ~Queue() = default;
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    const std::string& label() const { return label_; }

    /// Runs the work some time later; returns at once.
    virtual void async(Work work) = 0;

    /// Runs the work and returns when it is done. On this queue itself (isCurrent) it runs inline. Work for a serial or
    /// global queue runs on the calling thread in its turn; work for the main queue runs on the main thread.
    virtual void sync(const Work& work) = 0;

    /// Whether the caller's work runs on this queue, or was waited for from it: an exclusive turn on the queue is held
    /// already, and asking for another one would never end. Always false for global queues, which exclude nobody.
    virtual bool isCurrent() const = 0;

protected:
    explicit Queue(std::string label) : label_(std::move(label)) {}

private:
    std::string label_;
};

using QueueRef = std::shared_ptr<Queue>;

/// The label of the queue whose work runs on this thread; empty outside queues.
std::string currentQueueLabel();

/// Tells the pool that this thread is about to wait for something, for as long as the object lives: the pool may run
/// another thread in its stead. Waits of this module do so themselves. Without effect on threads outside the pool.
class BlockingScope {
public:
    BlockingScope();
    ~BlockingScope();
    BlockingScope(const BlockingScope&) = delete;
    BlockingScope& operator=(const BlockingScope&) = delete;
};

} // namespace platform::run
