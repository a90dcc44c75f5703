// The part of the class that keeps jobs waiting until their files have been still.
#include "JobFoldersClass.h"

#include "folders/QueueHelpers.h"
#include "platform/run/Clock.h"

#include <algorithm>

namespace jobs {

using std::chrono::nanoseconds;

namespace {

nanoseconds nanosecondsOf(double seconds) {
    return std::chrono::duration_cast<nanoseconds>(std::chrono::duration<double>(seconds));
}

} // namespace

JobFoldersClass::StillnessByFolder JobFoldersClass::foldersWithStillness() {
    StillnessByFolder folders;
    for (const FolderRef& folder : enabledFolders())
        if (const double seconds = folder->settleSeconds(); seconds > 0)
            folders.emplace(folder->urlOfJobs().standardized().path(), seconds);
    return folders;
}

nanoseconds JobFoldersClass::timeToSettle(const VELM_Job::Ref& job, const StillnessByFolder& folders) {
    if (folders.empty()) return nanoseconds(0);
    const base::URL item = job->urlJobContainer().value_or(job->documentURL());
    const auto folder = folders.find(base::deletingLastPathComponent(item.path()));
    if (folder == folders.end()) return nanoseconds(0);
    return settling_.remaining(job, nanosecondsOf(folder->second));
}

VELM_Job::Ref JobFoldersClass::oldestSettledJob(const StillnessByFolder& folders) {
    const platform::run::BlockingScope blocking;
    std::lock_guard choosing(choosingMutex_);
    VELM_Job::Ref oldest;
    nanoseconds soonest = nanoseconds::max();
    for (const VELM_Job::Ref& job : jobsPending()) {
        // One that has run and could not be moved away is stuck, and blocks the queue, however it is touched.
        const nanoseconds remaining = job == currentJob() ? nanoseconds(0) : timeToSettle(job, folders);
        if (remaining <= nanoseconds(0)) {
            oldest = job;
            break;
        }
        soonest = std::min(soonest, remaining);
        if (settling_.isFirstWait(job)) settlingObservers_.tell(job, std::chrono::duration<double>(remaining).count());
    }
    if (soonest < nanoseconds::max()) wakeAfter(soonest);
    return oldest;
}

/// One timer at a time waits, for the job that may settle first; nothing is looked at before that.
void JobFoldersClass::wakeAfter(nanoseconds delay) {
    const auto clock = platform::run::clock();
    const nanoseconds moment = clock->now() + delay;
    {
        std::lock_guard lock(mutex_);
        if (wakesAt_ && *wakesAt_ <= moment) return;
        wakesAt_ = moment;
    }
    clock->after(delay, folders::dispatchQueueGlobal(), [this, moment] {
        {
            std::lock_guard lock(mutex_);
            if (wakesAt_ == moment) wakesAt_.reset();
        }
        processNextJob();
    });
}

bool JobFoldersClass::isSettling(const VELM_Job::Ref& job) {
    const StillnessByFolder folders = foldersWithStillness();
    if (!job || folders.empty()) return false;
    if (isPending(*job)) return timeToSettle(job, folders) > nanoseconds(0);
    const base::URL item = job->urlJobContainer().value_or(job->documentURL());
    const auto folder = folders.find(base::deletingLastPathComponent(item.path()));
    return folder != folders.end() && FilesOfJob::look(*job).age() < nanosecondsOf(folder->second);
}

} // namespace jobs
