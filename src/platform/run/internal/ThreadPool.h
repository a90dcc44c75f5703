// The threads on which all queues but the main queue run. As many pieces of work run at a time as there are processors,
// not counting those that have declared to be blocked. A piece of work that blocks without declaring it is found out by
// its effect: when nothing has been started for a while though work is waiting, one more thread is let in.
#pragma once

#include "platform/run/Queue.h"

#include <array>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <deque>
#include <mutex>

namespace platform::run {

class ThreadPool {
public:
    /// Never destroyed: its threads may run until the very end of the process.
    static ThreadPool& shared();

    void submit(QualityOfService quality, Work work);
    /// The calling thread, when it belongs to the pool, stops and starts to count as a running one.
    void willBlock();
    void didBlock();

private:
    static constexpr std::size_t classCount = 5;

    ThreadPool();
    void work();
    void watchForStall();
    bool mayRun() const { return waitingCount_ > 0 && runningCount_ < width_ + extra_; }
    Work take();
    void engageThread();
    void startThread();

    std::mutex mutex_;
    std::condition_variable available_;
    std::condition_variable stalled_;
    std::array<std::deque<Work>, classCount> waiting_; // the highest class last
    std::size_t waitingCount_ = 0;
    std::size_t runningCount_ = 0; // threads at work that are not blocked
    std::size_t idleCount_ = 0;
    std::size_t threadCount_ = 0;
    const std::size_t width_;
    sigset_t signals_{};    // those that the first user of the pool had blocked
    std::size_t extra_ = 0; // let in because of a stall; taken back when no work waits
    std::uint64_t startedCount_ = 0;
    bool watching_ = false;
};

} // namespace platform::run
