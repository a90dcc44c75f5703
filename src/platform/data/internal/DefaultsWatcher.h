// The one thread that watches the folders of user defaults for changes by other processes. It owns no suite: suites
// live as long as the process, the thread until the process ends.
#pragma once

#include "FileDescriptor.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace platform::data {

class DefaultsWatcher {
public:
    static DefaultsWatcher& shared();
    ~DefaultsWatcher();

    /// Calls `look` on the watching thread whenever something in the folder has changed, and once a second while the
    /// folder can't be watched (it does not exist yet, or the system has no more watches to give).
    void watch(const std::string& folder, std::function<void()> look);

private:
    DefaultsWatcher();
    void run();
    /// Answers whether all folders are watched.
    bool watchFolders();
    void takeEvents();
    void wake();

    FileDescriptor events_; ///< inotify; may be missing
    FileDescriptor wakeUp_;
    std::mutex mutex_;
    std::map<std::string, int> folders_; ///< with the number of the watch, -1 for none
    std::vector<std::function<void()>> looks_;
    std::atomic<bool> isEnding_{false};
    std::thread thread_;
};

} // namespace platform::data
