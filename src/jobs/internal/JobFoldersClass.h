// The state that VELM_JobFolders holds once for the process: the list of folders, the pending jobs of all of them, and
// the one slot in which a job runs. Objects live for the life of the process: work under way may refer to one after a
// test has put another in its place.
#pragma once

#include "folders/FolderSetClass.h"
#include "folders/KeyPathObservation.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/run/Group.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace jobs {

class JobFoldersClass final : public FolderSetClass {
public:
    using Jobs = VELM_JobFolders::Jobs;
    using FolderRef = VELM_JobFolders::Ref;

    /// The class in force, started.
    static JobFoldersClass& shared();
    static void replaceShared();

    std::string keyForSavedFolderSets() const override;

    Jobs jobsPending() const;
    bool isProcessing() const;
    VELM_Job::Ref currentJob() const;
    std::vector<FolderRef> enabledFolders();
    void processNextJob();
    void processJob(const VELM_Job::Ref& job);
    void stopStartingJobs() { startsJobs_ = false; }
    platform::run::Observation observeFinishedJobs(VELM_JobFolders::FinishedCallback callback);

protected:
    FolderSets loadFolderSets() override;
    void didLoadFolderSets() override;

private:
    JobFoldersClass();

    void start();
    void retire();
    void scanFolders();
    void jobsDidChange(const FolderRef& folder);
    bool isPending(const VELM_Job& job) const;

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

    struct FinishedObservers;
    const std::shared_ptr<FinishedObservers> finishedObservers_;
};

} // namespace jobs
