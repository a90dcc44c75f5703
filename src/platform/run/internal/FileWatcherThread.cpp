#include "FileWatcherThread.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/epoll.h>
#include <thread>
#include <utility>
#include <vector>

namespace platform::run {

namespace {

bool pollFor(int poll, int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

} // namespace

FileWatcherThread& FileWatcherThread::shared() {
    static auto& thread = *new FileWatcherThread;
    return thread;
}

FileWatcherThread::FileWatcherThread()
    : poll_(epoll_create1(EPOLL_CLOEXEC)), mounts_(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)) {
    // The kernel tells a change of the table of mounts as an exceptional condition of this file.
    if (mounts_ >= 0) pollFor(poll_, mounts_, EPOLLPRI);
    std::thread([this] { run(); }).detach();
}

bool FileWatcherThread::add(int descriptor, std::weak_ptr<Client> client) {
    std::lock_guard lock(mutex_);
    clients_[descriptor] = std::move(client);
    return pollFor(poll_, descriptor, EPOLLIN);
}

void FileWatcherThread::remove(int descriptor) {
    std::lock_guard lock(mutex_);
    clients_.erase(descriptor);
    epoll_ctl(poll_, EPOLL_CTL_DEL, descriptor, nullptr);
}

void FileWatcherThread::run() {
    std::array<epoll_event, 16> events{};
    for (;;) {
        const int count = epoll_wait(poll_, events.data(), static_cast<int>(events.size()), -1);
        if (count < 0 && errno != EINTR) return; // no descriptors could be had at all, which add() tells
        for (int i = 0; i < count; ++i)
            handle(events[static_cast<std::size_t>(i)].data.fd);
    }
}

void FileWatcherThread::handle(int descriptor) {
    std::vector<std::shared_ptr<Client>> concerned;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [key, client] : clients_)
            if (key == descriptor || descriptor == mounts_)
                if (auto held = client.lock()) concerned.push_back(std::move(held));
    }
    for (const auto& client : concerned) {
        if (descriptor == mounts_)
            client->mountsDidChange();
        else
            client->descriptorIsReadable();
    }
}

} // namespace platform::run
