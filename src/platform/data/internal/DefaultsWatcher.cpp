#include "DefaultsWatcher.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

namespace platform::data {
namespace {

constexpr std::uint32_t changes = IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_ONLYDIR;
constexpr int retryMilliseconds = 1000;

} // namespace

DefaultsWatcher& DefaultsWatcher::shared() {
    static DefaultsWatcher watcher;
    return watcher;
}

DefaultsWatcher::DefaultsWatcher()
    : events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), wakeUp_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    // Signals are for the program's own threads.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

DefaultsWatcher::~DefaultsWatcher() {
    isEnding_ = true;
    wake();
    if (thread_.get_id() == std::this_thread::get_id())
        thread_.detach(); // the program ends from within a callback
    else
        thread_.join();
}

void DefaultsWatcher::watch(const std::string& folder, std::function<void()> look) {
    {
        const std::lock_guard lock(mutex_);
        folders_.try_emplace(folder, -1);
        looks_.push_back(std::move(look));
    }
    wake();
}

void DefaultsWatcher::wake() {
    const std::uint64_t one = 1;
    static_cast<void>(!write(wakeUp_.get(), &one, sizeof one));
}

void DefaultsWatcher::run() {
    while (!isEnding_) {
        const bool isComplete = watchFolders();
        std::vector<std::function<void()>> looks;
        {
            const std::lock_guard lock(mutex_);
            looks = looks_;
        }
        for (const auto& look : looks) {
            if (isEnding_) return;
            look();
        }
        std::array<struct pollfd, 2> sources{{{wakeUp_.get(), POLLIN, 0}, {events_.get(), POLLIN, 0}}};
        poll(sources.data(), sources.size(), isComplete ? -1 : retryMilliseconds);
        takeEvents();
    }
}

bool DefaultsWatcher::watchFolders() {
    const std::lock_guard lock(mutex_);
    bool isComplete = true;
    for (auto& [folder, watch] : folders_) {
        if (watch < 0 && events_) watch = inotify_add_watch(events_.get(), folder.c_str(), changes);
        if (watch < 0) isComplete = false;
    }
    return isComplete;
}

void DefaultsWatcher::takeEvents() {
    std::uint64_t count;
    static_cast<void>(!read(wakeUp_.get(), &count, sizeof count));
    if (!events_) return;
    alignas(struct inotify_event) std::array<char, 16 * 1024> buffer;
    for (;;) {
        const ssize_t length = read(events_.get(), buffer.data(), buffer.size());
        if (length <= 0) return;
        for (ssize_t place = 0; place < length;) {
            struct inotify_event event;
            std::memcpy(&event, buffer.data() + place, sizeof event);
            place += static_cast<ssize_t>(sizeof event + event.len);
            if (!(event.mask & IN_IGNORED)) continue;
            // The folder has gone; it is watched again as soon as there is one of its name.
            const std::lock_guard lock(mutex_);
            for (auto& [folder, watch] : folders_) {
                if (watch == event.wd) watch = -1;
            }
        }
    }
}

} // namespace platform::data
