// The state that VELM_JobFolders holds once for the process: the list of folders, the pending jobs of all of them, and
// the one slot in which a job runs. Objects live for the life of the process: work under way may refer to one after a
// test has put another in its place.
#pragma once

#include "CallbackList.h"
#include "JobSettling.h"
#include "folders/FolderSetClass.h"
#include "folders/KeyPathObservation.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/run/Group.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace jobs {

/// By the dates of their tickets, which are asked of the file system.
VELM_JobFolders::Jobs oldestFirst(const VELM_JobFolders::Jobs& jobs);

class JobFoldersClass final : public FolderSetClass {
public:
    using Jobs = VELM_JobFolders::Jobs;
    using FolderRef = VELM_JobFolders::Ref;

    /// The class in force, started.
    static JobFoldersClass& shared();
    /// The same object, which this does not start.
    static JobFoldersClass& unstarted();
    static void replaceShared();
    /// From now on the class in force, which is not made yet, neither watches nor starts anything.
    static void keepStill();
    static bool isKeptStill();

    std::string keyForSavedFolderSets() const override;

    Jobs jobsPending() const;
    bool isProcessing() const;
    VELM_Job::Ref currentJob() const;
    std::vector<FolderRef> enabledFolders();
    void processNextJob();
    void processJob(const VELM_Job::Ref& job);
    void stopStartingJobs() { startsJobs_ = false; }
    bool isSettling(const VELM_Job::Ref& job);

    platform::run::Observation observeFinishedJobs(VELM_JobFolders::FinishedCallback callback) {
        return finishedObservers_.observe(std::move(callback));
    }
    platform::run::Observation observeUnreadableItems(VELM_JobFolders::UnreadableCallback callback) {
        return unreadableObservers_.observe(std::move(callback));
    }
    platform::run::Observation observeSettlingJobs(VELM_JobFolders::SettlingCallback callback) {
        return settlingObservers_.observe(std::move(callback));
    }
    void tellOfUnreadableItem(const base::URL& item, const base::Error& error) const {
        unreadableObservers_.tell(item, error);
    }

protected:
    FolderSets loadFolderSets() override;
    void didLoadFolderSets() override;

private:
    JobFoldersClass();

    void start();
    void retire();
    void scanFolders();
    void jobsDidChange(const FolderRef& folder);
    void endObservingRemovedFolders();
    void rebuildJobsPending();
    bool isPending(const VELM_Job& job) const;

    enum class Start { byHand, inTurn };
    void runJob(const VELM_Job::Ref& job, Start start);
    bool isBlocked() const;
    bool isAwaited(const VELM_Job::Ref& job, Start start);
    void awaitedNoMore(const VELM_Job::Ref& job, Start start);

    // Of the jobs whose folders ask for stillness.
    using StillnessByFolder = std::map<std::string, double>; // seconds, by the path of the watched folder
    StillnessByFolder foldersWithStillness();
    std::chrono::nanoseconds timeToSettle(const VELM_Job::Ref& job, const StillnessByFolder& folders);
    VELM_Job::Ref oldestSettledJob(const StillnessByFolder& folders);
    void wakeAfter(std::chrono::nanoseconds delay);

    enum class Claim { claimed, slotTaken, alreadyCurrent };
    Claim claimSlot(const VELM_Job::Ref& job, platform::run::GroupRef& running);
    void jobDidEnd(const VELM_Job::Ref& job, const std::optional<base::Error>& error);
    void rescanFolderOfJob(const VELM_Job::Ref& job);
    void setIsProcessing(bool isProcessing);
    void waitForChange();
    void announceChange();

    std::once_flag started_;
    std::atomic<bool> isLoaded_ = false;
    std::atomic<bool> isRetired_ = false;
    std::atomic<bool> startsJobs_ = true;
    const std::shared_ptr<const void> selfAsObserver_ = std::make_shared<int>();

    mutable std::mutex mutex_; // guards the fields below; those down to group_ change on the main queue only
    std::condition_variable changed_;
    std::uint64_t changes_ = 0;
    Jobs jobsPending_;
    VELM_Job::Ref currentJob_;
    bool isProcessing_ = false;
    platform::run::GroupRef group_;
    std::map<std::string, KeyPathObservation> observers_; // by the uuid of the folder
    KeyPathObservation observationIsRunning_;
    KeyPathObservation observationOfList_;
    std::set<VELM_Job::Ref> awaited_;                 // a thread waits for the slot to run them
    std::optional<std::chrono::nanoseconds> wakesAt_; // by the clock in force

    std::mutex choosingMutex_; // of many that choose after a flood, only the first looks at all the files
    JobSettling settling_;
    CallbackList<const VELM_JobFolders::FinishedJob&> finishedObservers_;
    CallbackList<const base::URL&, const base::Error&> unreadableObservers_;
    CallbackList<const VELM_Job::Ref&, double> settlingObservers_;
};

} // namespace jobs
