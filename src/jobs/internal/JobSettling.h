// How long the files of jobs have been still. What has changed is told by comparing two looks at them, and how long ago
// by a clock that never jumps; only at the first look the dates of the files tell how long they had been still before,
// and dates in the future tell nothing. Any thread.
#pragma once

#include "base/Value.h"
#include "jobs/VELM_Job.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace jobs {

/// One look at the files of a job: its bundle's whole tree, or its ticket. Links are not followed.
struct FilesOfJob {
    std::size_t fingerprint = 0; ///< Changes when a file is written, comes, goes or is renamed.
    base::Date date;             ///< Of the look, by the system's clock.
    base::Date lastChange;       ///< By the same; of a writer's own date only what is not in the future.

    static FilesOfJob look(const VELM_Job& job);
    /// At the time of the look; never negative.
    std::chrono::nanoseconds age() const { return std::max(date - lastChange, std::chrono::nanoseconds(0)); }
};

class JobSettling {
public:
    /// How long the job has to wait until its files have been still for `stillness`; zero once they have been. Looks at
    /// them only when that may be so.
    std::chrono::nanoseconds remaining(const VELM_Job::Ref& job, std::chrono::nanoseconds stillness);
    /// Answers true once for each job until it is forgotten.
    bool isFirstWait(const VELM_Job::Ref& job);
    void forgetAllBut(const std::vector<VELM_Job::Ref>& jobs);

private:
    struct Stillness {
        FilesOfJob files;
        std::chrono::nanoseconds looked{0}; // by the clock in force, as the next one
        std::chrono::nanoseconds since{0};
        bool isTold = false;
    };
    std::mutex mutex_;
    std::map<VELM_Job::Ref, Stillness> known_;
};

} // namespace jobs
