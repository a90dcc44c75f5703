#include "JobSettling.h"

#include "FolderEnumeration.h"
#include "platform/data/Dates.h"
#include "platform/run/Clock.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>

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

    FilesOfJob result() const { return {fingerprint_, base::Date(now_), base::Date(newest_)}; }

private:
    void mix(std::uint64_t part) {
        constexpr std::uint64_t prime = 0x100000001B3; // of the 64-bit FNV hash
        fingerprint_ = (fingerprint_ ^ part) * prime;
        fingerprint_ ^= fingerprint_ >> 29;
    }

    const nanoseconds now_ = platform::data::now().time_since_epoch();
    nanoseconds newest_ = nanoseconds(0);
    std::uint64_t fingerprint_ = 0xCBF29CE484222325;
};

/// How long ago files were changed that were not the same at the look before. Once the system's clock has been set in
/// between, its dates don't tell, and the change counts as new.
nanoseconds ageOfChange(const FilesOfJob& files, nanoseconds looked, const FilesOfJob& before,
                        nanoseconds lookedBefore) {
    constexpr nanoseconds tolerance = std::chrono::seconds(1);
    const nanoseconds passed = looked - lookedBefore;
    const nanoseconds drift = (files.date - before.date) - passed;
    if (drift > tolerance || drift < -tolerance) return nanoseconds(0);
    return std::min(files.age(), passed);
}

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
    std::optional<Stillness> before;
    {
        std::lock_guard lock(mutex_);
        if (const auto known = known_.find(job); known != known_.end()) {
            const nanoseconds due = known->second.since + stillness;
            if (due > now()) return due - now();
            before = known->second;
        }
    }
    Stillness known{FilesOfJob::look(*job), now(), {}}; // a large bundle takes its time
    if (!before)
        known.since = known.looked - std::min(known.files.age(), stillness);
    else if (known.files.fingerprint == before->files.fingerprint)
        known.since = before->since;
    else
        known.since = known.looked - ageOfChange(known.files, known.looked, before->files, before->looked);
    const nanoseconds remaining = std::max(known.since + stillness - known.looked, nanoseconds(0));
    std::lock_guard lock(mutex_);
    Stillness& stored = known_[job];
    known.isTold = stored.isTold;
    stored = std::move(known);
    return remaining;
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
