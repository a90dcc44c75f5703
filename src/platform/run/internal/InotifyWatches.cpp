#include "InotifyWatches.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace platform::run {

InotifyWatches::InotifyWatches() : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

InotifyWatches::~InotifyWatches() {
    if (descriptor_ >= 0) close(descriptor_);
}

int InotifyWatches::add(const std::string& folder, std::uint32_t mask) {
    const int watch = inotify_add_watch(descriptor_, folder.c_str(), mask | IN_ONLYDIR | IN_MASK_ADD);
    if (watch < 0) return errno;
    const auto [known, isNew] = watches_.try_emplace(folder, watch);
    if (!isNew && known->second != watch) {
        // Another folder stands there now.
        std::erase(folders_[known->second], folder);
        known->second = watch;
    }
    std::vector<std::string>& paths = folders_[watch];
    if (std::find(paths.begin(), paths.end(), folder) == paths.end()) paths.push_back(folder);
    return 0;
}

void InotifyWatches::remove(const std::string& folder) {
    const auto found = watches_.find(folder);
    if (found == watches_.end()) return;
    const int watch = found->second;
    watches_.erase(found);
    std::vector<std::string>& paths = folders_[watch];
    std::erase(paths, folder);
    if (!paths.empty()) return;
    folders_.erase(watch);
    inotify_rm_watch(descriptor_, watch);
}

void InotifyWatches::removeBelow(const std::string& folder) {
    const std::string start = folder + "/";
    std::vector<std::string> below;
    for (auto place = watches_.lower_bound(start); place != watches_.end() && place->first.starts_with(start); ++place)
        below.push_back(place->first);
    for (const std::string& path : below)
        remove(path);
}

void InotifyWatches::read(const std::function<void(const Record&)>& handle) {
    alignas(inotify_event) std::array<char, 65536> buffer;
    int waiting = 0;
    if (ioctl(descriptor_, FIONREAD, &waiting) != 0) return;
    while (waiting > 0) {
        const ssize_t size = ::read(descriptor_, buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) return;
        waiting -= static_cast<int>(size);
        parse({buffer.data(), static_cast<std::size_t>(size)}, handle);
    }
}

void InotifyWatches::parse(std::string_view records, const std::function<void(const Record&)>& handle) {
    static const std::string noFolder;
    while (records.size() >= sizeof(inotify_event)) {
        inotify_event event;
        std::memcpy(&event, records.data(), sizeof event);
        records.remove_prefix(sizeof event);
        const std::string_view padded = records.substr(0, event.len);
        records.remove_prefix(padded.size());
        const std::string_view name = padded.substr(0, padded.find('\0'));

        if (event.mask & IN_Q_OVERFLOW) {
            handle({noFolder, {}, event.mask});
            continue;
        }
        const auto found = folders_.find(event.wd);
        if (found == folders_.end()) continue; // of a watch that was removed meanwhile
        const std::vector<std::string> paths = found->second;
        if (event.mask & IN_IGNORED) {
            for (const std::string& path : paths)
                watches_.erase(path);
            folders_.erase(found);
        }
        for (const std::string& path : paths)
            handle({path, name, event.mask});
    }
}

} // namespace platform::run
