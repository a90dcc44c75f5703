#include "JobFoldersClass.h"

#include "JobDisposal.h"
#include "base/Log.h"
#include "base/Places.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "folders/QueueHelpers.h"
#include "platform/data/FileTypes.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/Clock.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace jobs {

using platform::data::conformsToType;
using platform::data::kUTTypeXML;
using platform::data::UserDefaults;

namespace {

constexpr const char* processorFolderName = "Old VELM Processor Folder ƒ";
constexpr std::chrono::nanoseconds delayOfScanning(100'000);
constexpr std::chrono::nanoseconds delayOfWatching(1'000'000);

std::mutex sharedMutex;
JobFoldersClass* sharedClass = nullptr;
std::atomic<bool> standsStill = false;

VELM_JobFolders::Ref asJobFolder(const FolderSetClass::FolderSetRef& folderSet) {
    return std::dynamic_pointer_cast<VELM_JobFolders>(folderSet);
}

/// The folder that takes the place of /Applications where there is none is told by the places in force.
base::URL urlOfProcessorFolder() {
    return base::URL::fileURLWithPath(
        base::appendingPathComponent(base::places().applications, "VELM OS X Share Folder/Velm-Processor Folder ƒ"));
}

base::URL urlOfForeignPrintsFolder() {
    return base::URL::fileURLWithPath(base::standardizingPath("~/Sorrel/Prints"));
}

void makeProcessorFolder(VELM_JobFolders& folder) {
    folder.setAddJobsPendingPathComponents(true);
    folder.setHasFixedName(true);
}

} // namespace

VELM_JobFolders::Jobs oldestFirst(const VELM_JobFolders::Jobs& jobs) {
    std::vector<std::pair<base::Date, VELM_Job::Ref>> byDate;
    byDate.reserve(jobs.size());
    for (const VELM_Job::Ref& job : jobs)
        byDate.emplace_back(job->dateStarted(), job);
    std::stable_sort(byDate.begin(), byDate.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    VELM_JobFolders::Jobs sorted;
    sorted.reserve(jobs.size());
    for (auto& [date, job] : byDate)
        sorted.push_back(std::move(job));
    return sorted;
}

// The one object -------------------------------------------------------------------------------------------------

JobFoldersClass::JobFoldersClass()
    : FolderSetClass("VELM_JobFolders",
                     [](const base::Dictionary& archived) { return std::make_shared<VELM_JobFolders>(archived); }) {}

JobFoldersClass& JobFoldersClass::unstarted() {
    std::lock_guard lock(sharedMutex);
    if (!sharedClass) sharedClass = new JobFoldersClass;
    return *sharedClass;
}

JobFoldersClass& JobFoldersClass::shared() {
    JobFoldersClass& object = unstarted();
    std::call_once(object.started_, [&object] { object.start(); });
    return object;
}

void JobFoldersClass::keepStill() {
    standsStill = true;
}

bool JobFoldersClass::isKeptStill() {
    return standsStill;
}

void JobFoldersClass::replaceShared() {
    // Kept for ever: work under way may still refer to them.
    static auto& retired = *new std::vector<JobFoldersClass*>;
    JobFoldersClass* object;
    {
        std::lock_guard lock(sharedMutex);
        object = std::exchange(sharedClass, nullptr);
        if (object) retired.push_back(object);
    }
    if (object) object->retire();
}

void JobFoldersClass::retire() {
    isRetired_ = true;
    removeObserver(selfAsObserver_);
    if (isLoaded_)
        for (const FolderRef& folder : enabledFolders())
            folder->stopWatching();
    std::map<std::string, KeyPathObservation> observers;
    KeyPathObservation observationIsRunning;
    KeyPathObservation observationOfList;
    std::lock_guard lock(mutex_);
    observers.swap(observers_);
    std::swap(observationOfList, observationOfList_);
    std::swap(observationIsRunning, observationIsRunning_);
}

void JobFoldersClass::start() {
    if (standsStill) return;
    platform::run::clock()->after(delayOfScanning, folders::dispatchQueueGlobal(), [this] { scanFolders(); });
    addObserver(selfAsObserver_, [this](const FolderSets&) { scanFolders(); });
    KeyPathObservation list =
        observable().observe(key_folderSets, [this] { folders::performAsyncGlobal([this] { scanFolders(); }); });
    std::lock_guard lock(mutex_);
    observationOfList_ = std::move(list);
}

// The folders ----------------------------------------------------------------------------------------------------

std::string JobFoldersClass::keyForSavedFolderSets() const {
    return std::string(key_savedJobFolders);
}

FolderSetClass::FolderSets JobFoldersClass::loadFolderSets() {
    const auto saved = UserDefaults::standard().dataForKey(key_savedJobFolders);
    if (saved && !saved->empty()) {
        FolderSets loaded = folderSetsFromSavedData();
        for (const FolderSetRef& folderSet : loaded) {
            const FolderRef folder = asJobFolder(folderSet);
            if (!folder) continue;
            if (folder->name() == processorFolderName)
                makeProcessorFolder(*folder);
            else
                folder->setJobFileUTType(kUTTypeXML);
        }
        return loaded;
    }
    const auto processor = VELM_JobFolders::initWithName(processorFolderName, urlOfProcessorFolder());
    makeProcessorFolder(*processor);
    const auto foreign = VELM_JobFolders::initWithName("Sorrel Prints Folder", urlOfForeignPrintsFolder());
    foreign->setJobFileUTType(kUTTypeXML);
    return {processor, foreign};
}

void JobFoldersClass::didLoadFolderSets() {
    isLoaded_ = true;
    if (standsStill) return;
    KeyPathObservation running =
        UserDefaults::standard().observe(key_velmProcessorIsRunning, [this](const base::Value&) { processNextJob(); });
    {
        std::lock_guard lock(mutex_);
        observationIsRunning_ = std::move(running);
    }
    platform::run::clock()->after(delayOfWatching, folders::dispatchQueueGlobal(), [this] {
        if (isRetired_) return;
        for (const FolderSetRef& folderSet : folderSets())
            if (const FolderRef folder = asJobFolder(folderSet)) folder->configureJobsFolder();
    });
}

std::vector<JobFoldersClass::FolderRef> JobFoldersClass::enabledFolders() {
    std::vector<FolderRef> enabled;
    for (const FolderSetRef& folderSet : folderSets())
        if (FolderRef folder = asJobFolder(folderSet); folder && folder->enabled())
            enabled.push_back(std::move(folder));
    return enabled;
}

void JobFoldersClass::scanFolders() {
    if (isRetired_) return;
    for (const FolderRef& folder : enabledFolders()) {
        const std::weak_ptr<VELM_JobFolders> weakFolder = folder;
        KeyPathObservation observation = folder->observable().observe("jobs", [this, weakFolder] {
            if (const FolderRef changed = weakFolder.lock()) jobsDidChange(changed);
        });
        const std::string uuid = folder->uuid();
        bool isNew;
        {
            std::lock_guard lock(mutex_);
            isNew = !observers_.contains(uuid);
            std::swap(observers_[uuid], observation); // the earlier one ends after the lock
        }
        // A folder that was enabled just now may have been scanned before anybody observed it.
        if (isNew && !folder->jobs().empty()) jobsDidChange(folder);
    }
    endObservingRemovedFolders();
}

/// The jobs of a folder that was taken out of the list are pending no longer.
void JobFoldersClass::endObservingRemovedFolders() {
    std::set<std::string> present;
    for (const FolderSetRef& folder : folderSets())
        present.insert(folder->uuid());
    std::vector<KeyPathObservation> ended; // let go of without the lock
    {
        std::lock_guard lock(mutex_);
        std::erase_if(observers_, [&](auto& entry) {
            if (present.contains(entry.first)) return false;
            ended.push_back(std::move(entry.second));
            return true;
        });
    }
    if (ended.empty()) return;
    rebuildJobsPending();
    processNextJob(); // the queue may have been blocked by one of them
}

void JobFoldersClass::jobsDidChange(const FolderRef& folder) {
    if (isRetired_) return;
    base::log("change to jobs in %@", folder);
    base::log("Lets rescan %@", folder);
    rebuildJobsPending();
    processNextJob();
}

void JobFoldersClass::rebuildJobsPending() {
    folders::performSyncOnMainQueue([this] {
        Jobs jobs;
        for (const FolderRef& enabled : enabledFolders())
            for (VELM_Job::Ref& job : enabled->jobs())
                jobs.push_back(std::move(job));
        Jobs pending = oldestFirst(jobs);
        settling_.forgetAllBut(pending);
        observable().change(VELM_JobFolders::key_jobsPending, [&] {
            std::lock_guard lock(mutex_);
            jobsPending_.swap(pending);
        });
    });
    announceChange();
}

// The slot -------------------------------------------------------------------------------------------------------

JobFoldersClass::Jobs JobFoldersClass::jobsPending() const {
    std::lock_guard lock(mutex_);
    return jobsPending_;
}

bool JobFoldersClass::isPending(const VELM_Job& job) const {
    std::lock_guard lock(mutex_);
    return std::any_of(jobsPending_.begin(), jobsPending_.end(),
                       [&job](const VELM_Job::Ref& pending) { return pending->isEqual(job); });
}

bool JobFoldersClass::isProcessing() const {
    std::lock_guard lock(mutex_);
    return isProcessing_;
}

VELM_Job::Ref JobFoldersClass::currentJob() const {
    std::lock_guard lock(mutex_);
    return currentJob_;
}

void JobFoldersClass::setIsProcessing(bool isProcessing) {
    observable().change(VELM_JobFolders::key_isProcessing, [&] {
        std::lock_guard lock(mutex_);
        isProcessing_ = isProcessing;
    });
}

void JobFoldersClass::processNextJob() {
    if (isRetired_ || standsStill || !UserDefaults::standard().boolForKey(key_velmProcessorIsRunning)) return;
    VELM_Job::Ref oldest;
    {
        std::lock_guard lock(mutex_);
        if (jobsPending_.empty()) return;
        oldest = jobsPending_.front();
    }
    folders::performAsyncGlobal([this, oldest] {
        const StillnessByFolder folders = foldersWithStillness();
        const VELM_Job::Ref job = folders.empty() ? oldest : oldestSettledJob(folders);
        if (job) runJob(job, Start::inTurn);
    });
}

JobFoldersClass::Claim JobFoldersClass::claimSlot(const VELM_Job::Ref& job, platform::run::GroupRef& running) {
    Claim result = Claim::alreadyCurrent;
    folders::performSyncOnMainQueue([&] {
        VELM_Job::Ref last; // let go of without the lock
        {
            std::lock_guard lock(mutex_);
            running = group_;
            if (currentJob_ == job) return;
            result = Claim::slotTaken;
            if (group_ || !startsJobs_) return;
            result = Claim::claimed;
            last = std::exchange(currentJob_, job);
            group_ = std::make_shared<platform::run::Group>();
            group_->enter();
        }
        setIsProcessing(true);
    });
    if (result == Claim::claimed) announceChange();
    return result;
}

void JobFoldersClass::processJob(const VELM_Job::Ref& job) {
    runJob(job, Start::byHand);
}

void JobFoldersClass::runJob(const VELM_Job::Ref& job, Start start) {
    base::log("%s%@", "+[VELM_JobFolders processJob:]", job);
    // Also what keeps a job that has ended, but could not be moved away, from running again.
    if (!job || job == currentJob()) return;
    while (!job->isDisposedOf() && conformsToType(job->documentURL(), kUTTypeXML) && isPending(*job) && startsJobs_ &&
           !isRetired_) {
        if (start == Start::inTurn && !UserDefaults::standard().boolForKey(key_velmProcessorIsRunning))
            return; // paused while it waited for its turn
        if (start == Start::inTurn && isBlocked()) return;
        if (start == Start::inTurn && timeToSettle(job, foldersWithStillness()) > std::chrono::nanoseconds(0)) {
            processNextJob(); // it was touched while it waited for its turn: another one may have settled
            return;
        }
        platform::run::GroupRef running;
        if (claimSlot(job, running) == Claim::claimed) {
            job->processJob([this, &job](bool, const std::optional<base::Error>& error) { jobDidEnd(job, error); });
            return;
        }
        if (isAwaited(job, start)) return;
        if (running)
            running->wait();
        else
            waitForChange(); // another thread has run this very job: it is pending until its file is seen to be gone
        awaitedNoMore(job, start);
    }
}

/// Whether the last job could not be moved away when it ended: none comes in turn, however old, until its file goes.
bool JobFoldersClass::isBlocked() const {
    VELM_Job::Ref last;
    {
        std::lock_guard lock(mutex_);
        // The very object: what was taken away and has come back is another order.
        if (group_ || std::find(jobsPending_.begin(), jobsPending_.end(), currentJob_) == jobsPending_.end())
            return false;
        last = currentJob_;
    }
    return !last->isDisposedOf() && conformsToType(last->documentURL(), kUTTypeXML);
}

/// Of the threads that the engine itself sends for a job while another runs, one is enough: it looks at everything
/// anew once the slot is free.
bool JobFoldersClass::isAwaited(const VELM_Job::Ref& job, Start start) {
    if (start == Start::byHand) return false;
    std::lock_guard lock(mutex_);
    return !awaited_.insert(job).second;
}

void JobFoldersClass::awaitedNoMore(const VELM_Job::Ref& job, Start start) {
    if (start == Start::byHand) return;
    std::lock_guard lock(mutex_);
    awaited_.erase(job);
}

void JobFoldersClass::jobDidEnd(const VELM_Job::Ref& job, const std::optional<base::Error>& error) {
    if (error) base::log("%@", *error);
    const VELM_JobFolders::FinishedJob finished = disposeOfJob(job, error);
    if (job->isDisposedOf()) rescanFolderOfJob(job);
    finishedObservers_.tell(finished);
    folders::performSyncOnMainQueue([&] {
        base::log("%s%@", "+[VELM_JobFolders processJob:]_block_invoke_2", job);
        platform::run::GroupRef group;
        {
            std::lock_guard lock(mutex_);
            group = group_;
        }
        if (group) group->leave();
        setIsProcessing(false);
        std::lock_guard lock(mutex_);
        group_ = nullptr;
    });
    announceChange();
}

/// Where the folder's stream won't tell that the job has gone. An order may have come under its name just as it was
/// moved away: the scan that saw it come may have taken it for the job itself. And a folder that is polled tells
/// nothing of a job that came and went between two looks.
void JobFoldersClass::rescanFolderOfJob(const VELM_Job::Ref& job) {
    const bool isReplaced = platform::data::typeIdentifierOfFile(job->documentURL()).has_value();
    for (const FolderRef& folder : enabledFolders()) {
        const auto stream = folder->fileEvent();
        if (!isReplaced && !(stream && stream->isPolling())) continue;
        const Jobs jobs = folder->jobs();
        if (std::find(jobs.begin(), jobs.end(), job) != jobs.end()) folder->rescan();
    }
}

void JobFoldersClass::announceChange() {
    {
        std::lock_guard lock(mutex_);
        ++changes_;
    }
    changed_.notify_all();
}

void JobFoldersClass::waitForChange() {
    // The file may go without any change of the list, so the caller looks at it now and then.
    constexpr std::chrono::seconds lookAgain(1);
    const platform::run::BlockingScope blocking;
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, lookAgain, [this, seen = changes_] { return changes_ != seen; });
}

} // namespace jobs
