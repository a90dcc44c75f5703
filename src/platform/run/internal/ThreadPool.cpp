#include "ThreadPool.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

namespace platform::run {

namespace {

using namespace std::chrono_literals;

constexpr auto idleTime = 10s;
constexpr auto stallTime = 50ms;

thread_local bool isPoolThread = false;
thread_local int blockDepth = 0;

std::size_t classIndex(QualityOfService quality) {
    switch (quality) {
    case QualityOfService::background:
        return 0;
    case QualityOfService::utility:
        return 1;
    case QualityOfService::standard:
        return 2;
    case QualityOfService::userInitiated:
        return 3;
    case QualityOfService::userInteractive:
        return 4;
    }
    return 2;
}

} // namespace

ThreadPool& ThreadPool::shared() {
    static auto& pool = *new ThreadPool;
    return pool;
}

ThreadPool::ThreadPool() : width_(std::max(2u, std::thread::hardware_concurrency())) {
    pthread_sigmask(SIG_BLOCK, nullptr, &signals_);
}

void ThreadPool::submit(QualityOfService quality, Work work) {
    std::lock_guard lock(mutex_);
    waiting_[classIndex(quality)].push_back(std::move(work));
    ++waitingCount_;
    engageThread();
}

// Called with the lock, whenever something may have become possible.
void ThreadPool::engageThread() {
    if (waitingCount_ == 0) return;
    if (!mayRun()) {
        if (!watching_) {
            watching_ = true;
            std::thread([this] { watchForStall(); }).detach();
        }
        stalled_.notify_one();
    } else if (waitingCount_ <= idleCount_) {
        available_.notify_one();
    } else {
        startThread();
    }
}

void ThreadPool::startThread() {
    try {
        ++threadCount_;
        std::thread([this] { work(); }).detach();
    } catch (const std::system_error&) {
        // The system has no more threads: those that are there do the work when they come to it.
        --threadCount_;
        available_.notify_one();
    }
}

Work ThreadPool::take() {
    const auto queue = std::find_if(waiting_.rbegin(), waiting_.rend(), [](const auto& q) { return !q.empty(); });
    Work work = std::move(queue->front());
    queue->pop_front();
    --waitingCount_;
    ++startedCount_;
    if (waitingCount_ == 0) extra_ = 0;
    return work;
}

void ThreadPool::work() {
    isPoolThread = true;
    // A thread begins with the mask of the one that made it, which may have blocked signals for its own work alone.
    pthread_sigmask(SIG_SETMASK, &signals_, nullptr);
    std::unique_lock lock(mutex_);
    for (;;) {
        if (!mayRun()) {
            ++idleCount_;
            const bool wakened = available_.wait_for(lock, idleTime, [this] { return mayRun(); });
            --idleCount_;
            if (!wakened) {
                --threadCount_;
                return;
            }
        }
        Work work = take();
        ++runningCount_;
        engageThread();
        lock.unlock();
        work();
        work = nullptr; // what it holds ends outside the lock
        lock.lock();
        --runningCount_;
    }
}

void ThreadPool::willBlock() {
    if (!isPoolThread || blockDepth++ > 0) return;
    std::lock_guard lock(mutex_);
    --runningCount_;
    engageThread();
}

void ThreadPool::didBlock() {
    if (!isPoolThread || --blockDepth > 0) return;
    std::lock_guard lock(mutex_);
    ++runningCount_;
}

void ThreadPool::watchForStall() {
    std::unique_lock lock(mutex_);
    for (;;) {
        stalled_.wait(lock, [this] { return waitingCount_ > 0 && !mayRun(); });
        const std::uint64_t started = startedCount_;
        lock.unlock();
        std::this_thread::sleep_for(stallTime);
        lock.lock();
        if (startedCount_ == started && waitingCount_ > 0 && !mayRun()) {
            ++extra_;
            engageThread();
        }
    }
}

} // namespace platform::run
