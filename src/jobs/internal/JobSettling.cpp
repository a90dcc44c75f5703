#include "JobSettling.h"

#include "FolderEnumeration.h"
#include "platform/data/Dates.h"
#include "platform/run/Clock.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace jobs {

using std::chrono::nanoseconds;

namespace {

nanoseconds sinceEpoch(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

class Look {
public:
    void add(const std::string& path) {
        mix(std::hash<std::string>()(path));
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0) return;
        for (const auto part : {static_cast<std::uint64_t>(status.st_ino), static_cast<std::uint64_t>(status.st_size),
                                static_cast<std::uint64_t>(sinceEpoch(status.st_mtim).count()),
                                static_cast<std::uint64_t>(sinceEpoch(status.st_ctim).count())})
            mix(part);
        newest_ = std::max(newest_, sinceEpoch(status.st_ctim));
        // Writers may set this one to anything, so one in the future says nothing of when the file was changed.
        if (sinceEpoch(status.st_mtim) <= now_) newest_ = std::max(newest_, sinceEpoch(status.st_mtim));
    }

    FilesOfJob result() const { return {fingerprint_, std::max(now_ - newest_, nanoseconds(0))}; }

private:
    void mix(std::uint64_t part) {
        constexpr std::uint64_t prime = 0x100000001B3; // of the 64-bit FNV hash
        fingerprint_ = (fingerprint_ ^ part) * prime;
        fingerprint_ ^= fingerprint_ >> 29;
    }

    const nanoseconds now_ = platform::data::now().time_since_epoch();
    nanoseconds newest_ = nanoseconds::min() / 2;
    std::uint64_t fingerprint_ = 0xCBF29CE484222325;
};

} // namespace

FilesOfJob FilesOfJob::look(const VELM_Job& job) {
    Look look;
    const auto container = job.urlJobContainer();
    look.add(container ? container->path() : job.documentURL().path());
    if (container)
        enumerateFolder(
            container->path(), Depth::deep,
            [&look](const FolderItem& item) {
                look.add(item.path);
                return true;
            },
            [](const std::string&, const base::Error&) { return true; });
    return look.result();
}

nanoseconds JobSettling::remaining(const VELM_Job::Ref& job, nanoseconds stillness) {
    if (stillness <= nanoseconds(0)) return nanoseconds(0);
    const auto now = [] { return platform::run::clock()->now(); };
    std::size_t fingerprintBefore = 0;
    nanoseconds lookedBefore = nanoseconds::min();
    {
        std::lock_guard lock(mutex_);
        if (const auto known = known_.find(job); known != known_.end()) {
            const nanoseconds due = known->second.since + stillness;
            if (due > now()) return due - now();
            fingerprintBefore = known->second.fingerprint;
            lookedBefore = known->second.looked;
        }
    }
    const FilesOfJob files = FilesOfJob::look(*job); // without the lock: a large bundle takes its time
    std::lock_guard lock(mutex_);
    Stillness& known = known_[job];
    const nanoseconds moment = now();
    if (lookedBefore == nanoseconds::min())
        known.since = moment - std::min(files.age, stillness);
    else if (files.fingerprint != fingerprintBefore)
        // It was changed after the look before, whatever the system's clock has done since then.
        known.since = moment - std::min({files.age, moment - lookedBefore, stillness});
    known.fingerprint = files.fingerprint;
    known.looked = moment;
    return std::max(known.since + stillness - moment, nanoseconds(0));
}

bool JobSettling::isFirstWait(const VELM_Job::Ref& job) {
    std::lock_guard lock(mutex_);
    return !std::exchange(known_[job].isTold, true);
}

void JobSettling::forgetAllBut(const std::vector<VELM_Job::Ref>& jobs) {
    std::map<VELM_Job::Ref, Stillness> kept;
    std::lock_guard lock(mutex_);
    if (known_.empty()) return;
    for (const VELM_Job::Ref& job : jobs)
        if (auto known = known_.extract(job)) kept.insert(std::move(known));
    known_.swap(kept);
}

} // namespace jobs
