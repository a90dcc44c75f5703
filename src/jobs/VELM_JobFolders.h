// The hot-folder engine. Each folder of the class's list that is enabled is watched; every job file in it becomes a
// VELM_Job; all jobs of all folders stand in one list, oldest first; one job at a time is run, and its file is moved
// to the Completed or the Failed folder. The move changes the watched folder, and that change starts the next job:
// there is no other loop.
//
// A folder may ask that a job's files be still for some seconds before it is started (settleSeconds), for bundles that
// come in slowly. Such a job is listed and keeps its place by its date, but the oldest job that has settled goes first;
// it starts by itself once it has settled. Where no folder asks for it the oldest job goes first.
//
// The engine is state of the class. It starts with the first use of the class and lives as long as the process; the
// folders are loaded from the user defaults then. dictJobs, jobsPending, currentJob and isProcessing change on the
// main queue only, so something must serve that (platform/run/MainQueue.h); all may be read on any thread. Folders are
// scanned and tickets parsed on the queue of the folder's event stream, jobs run on a global queue.
#pragma once

#include "folders/KLARON_FileEvent.h"
#include "folders/VELM_FolderSet.h"
#include "jobs/FolderContainer.h"
#include "jobs/VELM_Job.h"
#include "platform/run/Observation.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class VELM_JobFolders final : public VELM_FolderSet, public std::enable_shared_from_this<VELM_JobFolders> {
public:
    using Ref = std::shared_ptr<VELM_JobFolders>;
    using Jobs = std::vector<VELM_Job::Ref>;

    // Of the class: the engine -------------------------------------------------------------------------------------

    static constexpr std::string_view key_jobsPending = "jobsPending";
    static constexpr std::string_view key_isProcessing = "isProcessing";
    static constexpr std::string_view key_enabledFolders = "enabledFolders";

    /// The list of folders; its observable() notifies on the keys above and on "folderSets".
    static FolderSetClass& classObject();
    /// All jobs of all enabled folders by the dates of their tickets, oldest first.
    static Jobs jobsPending();
    static bool isProcessing();
    /// The job that was started last, also when it has ended.
    static VELM_Job::Ref currentJob();
    static std::vector<Ref> enabledFolders();
    /// The first enabled folder that takes job bundles; null when there is none.
    static Ref defaultJobFolder();
    /// Starts the oldest job that has settled, some time later, when the run flag is set.
    static void processNextJob();
    /// Runs the job in its turn, whatever the run flag says and whether or not it has settled: somebody asks for it
    /// now. Returns when it has ended; at once for the job that was started last; gives up when the job's file goes or
    /// it is pending no longer.
    static void processJob(const VELM_Job::Ref& job);
    /// Moves files into the default job folder; what can't be moved is logged.
    static void addJobFiles(const std::vector<base::URL>& urls);
    /// No job is started any more in this process; the one that runs goes on to its end. For a program that is about
    /// to end: the run flag, which outlives it, stays as it is.
    static void stopStartingJobs();

    /// How a job ended and where its file went.
    struct FinishedJob {
        VELM_Job::Ref job;
        bool success = false;
        std::optional<base::Error> error;     ///< Of the run.
        std::optional<base::URL> destination; ///< Where its file stands now, or should; none when no folder is set.
        std::optional<base::Error> moveError; ///< The file stands where it was, and no other job starts before it goes.
    };
    using FinishedCallback = std::function<void(const FinishedJob& finished)>;
    /// Called after each job's file was moved, or could not be, on the thread of the job. Like the two observations
    /// below it can be made before the engine starts, and does not start it.
    [[nodiscard]] static platform::run::Observation observeFinishedJobs(FinishedCallback callback);

    /// Called with an item of a watched folder that looks like an order but can't be read, at each try: it stays where
    /// it is and is tried again at each look at the folder. On the queue of the folder's stream.
    using UnreadableCallback = std::function<void(const base::URL& item, const base::Error& error)>;
    [[nodiscard]] static platform::run::Observation observeUnreadableItems(UnreadableCallback callback);
    /// Called when a job's turn has come but its files have not settled, once for each job. On a global queue.
    using SettlingCallback = std::function<void(const VELM_Job::Ref& job, double seconds)>;
    [[nodiscard]] static platform::run::Observation observeSettlingJobs(SettlingCallback callback);

    /// Whether the job's folder asks for stillness and its files changed within that time. Looks at the files. For a
    /// job that this process does not watch the dates of its files decide.
    static bool isSettling(const VELM_Job::Ref& job);

    /// For a program that only looks at the folders or changes their list, before its first use of the class: nothing
    /// is watched and no job is started in this process.
    static void keepStill();

    /// For tests: a class as at the start of the process, with the folders that the user defaults hold when it is used
    /// next. Streams, observations and the list are dropped; no job may be running.
    static void startOver();

    // Of a folder --------------------------------------------------------------------------------------------------

    /// An enabled folder that is in no list yet; configureJobsFolder starts it.
    static Ref initWithName(std::string name, base::URL url);
    /// A disabled one.
    VELM_JobFolders(std::string name, base::URL url) : VELM_FolderSet(std::move(name), std::move(url)) {}
    explicit VELM_JobFolders(const base::Dictionary& archived) : VELM_FolderSet(archived) {}

    FolderSetClass& folderSetClass() const override { return classObject(); }

    bool enabled() const { return property("enabled").boolValue(); }
    /// Starts or ends the watching; the jobs of a folder that is disabled leave the list.
    void setEnabled(bool enabled);
    bool hasFixedName() const { return property("hasFixedName").boolValue(); }
    void setHasFixedName(bool hasFixedName);
    bool addJobsPendingPathComponents() const { return property("addJobsPendingPathComponents").boolValue(); }
    void setAddJobsPendingPathComponents(bool add);
    std::string jobFileUTType() const;
    void setJobFileUTType(std::string_view type);
    /// How long a job's files must have been still before it is started: those of its bundle, at any depth, with the
    /// folders that hold them, or its single ticket. Coming into the folder counts as a change. 0 for not at all, which
    /// is also what anything but a positive number in the settings means.
    double settleSeconds() const;
    void setSettleSeconds(double seconds);
    void setURL(const base::URL& url) override;
    /// The folder that is watched: `URL`, and "Jobs/Pending" in it when that is asked for.
    base::URL urlOfJobs() const;

    /// In no order.
    Jobs jobs() const;
    /// What the folder holds at this moment.
    struct FolderListing {
        Jobs jobs; ///< Oldest first.
        /// What looks like an order but can't be read, and why; the folder itself when it can't be.
        std::vector<std::pair<base::URL, base::Error>> unreadable;
    };
    /// Reads the folder and its tickets on the calling thread. Watches nothing and changes nothing; the jobs are others
    /// than those of `jobs`.
    FolderListing listing() const;
    /// The same of all enabled folders together.
    static FolderListing listingOfEnabledFolders();
    KLARON_FileEvent::Ref fileEvent() const;
    /// Forgets the folder's jobs and starts its stream anew; the stream's first event makes the first scan.
    void configureJobsFolder();
    /// Looks at the folder soon, as if it had changed.
    void rescan();
    /// Ends the stream; the jobs stay.
    void stopWatching() { setFileEvent(nullptr); }

    using ObjectInit = std::function<base::ObjectRef(const base::URL& item)>;
    /// Whether an object is done with: an item that stands at its path is a new one.
    using IsSpent = std::function<bool(const base::Object& object)>;
    using Reload =
        std::function<void(const jobs::FolderContainer::Items& removed, const jobs::FolderContainer::Items& added)>;
    /// Keeps `container` equal to what the folder holds of that type, from now on. Items of which `objectInit` makes
    /// nothing are tried again at each scan. Notifies on `keyPath`, then calls `reload`, on the main queue.
    void configureFolder(const base::URL& url, const std::shared_ptr<jobs::FolderContainer>& containerProperty,
                         const std::string& keyPath, const std::string& utType, ObjectInit objectInit, Reload reload,
                         IsSpent isSpent = nullptr);

    std::string className() const override { return "VELM_JobFolders"; }
    std::string description() const override;

private:
    struct Watch;
    static void scan(const Watch& watch, const KLARON_FileEvent::Paths& changed);

    std::shared_ptr<jobs::FolderContainer> dictJobs() const;
    void setFileEvent(KLARON_FileEvent::Ref fileEvent);
    void storeAndSave(std::string_view key, base::Value value);

    mutable std::mutex watchMutex_; // guards the fields below
    std::shared_ptr<jobs::FolderContainer> dictJobs_;
    KLARON_FileEvent::Ref fileEvent_;
};
