#include "NameInUse.h"

#include "platform/run/Queue.h"

#include <condition_variable>
#include <mutex>
#include <set>

namespace output {

namespace {

struct Names {
    std::mutex mutex;
    std::condition_variable released;
    std::set<std::string> inUse;
};

Names& names() {
    static auto& all = *new Names; // a run may be writing when the process ends
    return all;
}

} // namespace

NameInUse::NameInUse(std::string path) : path_(std::move(path)) {
    std::unique_lock lock(names().mutex);
    if (names().inUse.insert(path_).second) return;
    const platform::run::BlockingScope waiting;
    names().released.wait(lock, [this] { return names().inUse.insert(path_).second; });
}

NameInUse::~NameInUse() {
    {
        const std::lock_guard lock(names().mutex);
        names().inUse.erase(path_);
    }
    names().released.notify_all();
}

} // namespace output
