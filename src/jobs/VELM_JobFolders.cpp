#include "jobs/VELM_JobFolders.h"

#include "base/Log.h"
#include "base/Text.h"
#include "folders/QueueHelpers.h"
#include "internal/FolderEnumeration.h"
#include "internal/JobFoldersClass.h"
#include "internal/MoveItem.h"
#include "internal/VolumeMove.h"
#include "platform/data/FileTypes.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>

using jobs::FolderContainer;
using jobs::JobFoldersClass;
using platform::data::conformsToType;
using platform::data::kUTType_VELM_Job;
using platform::data::kUTTypeFolder;

namespace {

constexpr double streamLatency = 1.0; // seconds
constexpr std::string_view key_jobs = "jobs";
constexpr const char* debugCopyPath = "/tmp/test.velm_job";

/// Receipts lie next to tickets and are no orders.
bool isReceipt(const base::URL& item) {
    return base::lowercase(item.lastPathComponent()).starts_with("receipt") && !conformsToType(item, kUTType_VELM_Job);
}

/// Makes a job of an item of a watched folder.
base::ObjectRef jobForItem(const base::URL& item) {
    const base::Result<VELM_Job::Ref> made = VELM_Job::jobWithContentsOfURL(item);
    if (!made) {
        if (!isReceipt(item)) JobFoldersClass::unstarted().tellOfUnreadableItem(item, made.error());
        return nullptr;
    }
    const VELM_Job::Ref job = *made;
    if (base::lowercase(job->jobType().value_or("")).find("sorrel") != std::string::npos) {
        // A native copy of the last foreign ticket, to look at.
        job->writeToURL(base::URL::fileURLWithPath(debugCopyPath),
                        [](bool success, const std::optional<base::Error>& error) {
                            base::log("%s%@", success ? "DID write job" : "Did NOT write job; error:", error);
                        });
    }
    return job;
}

base::Result<void> makeFolder(const base::URL& url) {
    std::error_code error;
    std::filesystem::create_directories(url.path(), error);
    if (error) return base::failure(base::systemError(error.value(), "cannot make the folder " + url.path()));
    if (!conformsToType(url, kUTTypeFolder))
        return base::failure(base::posixErrorDomain, ENOTDIR, url.path() + " is not a folder");
    return {};
}

} // namespace

// Of the class ---------------------------------------------------------------------------------------------------

FolderSetClass& VELM_JobFolders::classObject() {
    return JobFoldersClass::shared();
}

VELM_JobFolders::Jobs VELM_JobFolders::jobsPending() {
    return JobFoldersClass::shared().jobsPending();
}

bool VELM_JobFolders::isProcessing() {
    return JobFoldersClass::shared().isProcessing();
}

VELM_Job::Ref VELM_JobFolders::currentJob() {
    return JobFoldersClass::shared().currentJob();
}

std::vector<VELM_JobFolders::Ref> VELM_JobFolders::enabledFolders() {
    return JobFoldersClass::shared().enabledFolders();
}

VELM_JobFolders::Ref VELM_JobFolders::defaultJobFolder() {
    for (const Ref& folder : enabledFolders())
        if (base::equalIgnoringCase(folder->jobFileUTType(), kUTType_VELM_Job)) return folder;
    return nullptr;
}

void VELM_JobFolders::processNextJob() {
    JobFoldersClass::shared().processNextJob();
}

void VELM_JobFolders::processJob(const VELM_Job::Ref& job) {
    JobFoldersClass::shared().processJob(job);
}

void VELM_JobFolders::stopStartingJobs() {
    JobFoldersClass::shared().stopStartingJobs();
}

platform::run::Observation VELM_JobFolders::observeFinishedJobs(FinishedCallback callback) {
    return JobFoldersClass::unstarted().observeFinishedJobs(std::move(callback));
}

platform::run::Observation VELM_JobFolders::observeUnreadableItems(UnreadableCallback callback) {
    return JobFoldersClass::unstarted().observeUnreadableItems(std::move(callback));
}

platform::run::Observation VELM_JobFolders::observeSettlingJobs(SettlingCallback callback) {
    return JobFoldersClass::unstarted().observeSettlingJobs(std::move(callback));
}

bool VELM_JobFolders::isSettling(const VELM_Job::Ref& job) {
    return JobFoldersClass::shared().isSettling(job);
}

void VELM_JobFolders::keepStill() {
    JobFoldersClass::keepStill();
}

void VELM_JobFolders::startOver() {
    JobFoldersClass::replaceShared();
}

void VELM_JobFolders::addJobFiles(const std::vector<base::URL>& urls) {
    const Ref folder = defaultJobFolder();
    const std::optional<base::URL> target = folder ? std::optional(folder->urlOfJobs()) : std::nullopt;
    if (!target || !conformsToType(*target, kUTTypeFolder)) {
        base::log("Failed to find job folder at %@", target);
        return;
    }
    for (const base::URL& url : urls) {
        if (!conformsToType(url, folder->jobFileUTType())) {
            base::log("request to open unsupported file type %@ at %@", platform::data::typeIdentifierOfFile(url), url);
            continue;
        }
        const std::string destination = target->appendingPathComponent(url.lastPathComponent()).path();
        if (const auto moved = jobs::moveItem(url.path(), destination); !moved) base::log("%@", moved.error());
    }
}

// Settings -------------------------------------------------------------------------------------------------------

VELM_JobFolders::Ref VELM_JobFolders::initWithName(std::string name, base::URL url) {
    auto folder = std::make_shared<VELM_JobFolders>(std::move(name), std::move(url));
    folder->storeAndSave("enabled", true);
    return folder;
}

void VELM_JobFolders::storeAndSave(std::string_view key, base::Value value) {
    setProperty(key, std::move(value));
    folderSetClass().saveFolderSets();
}

void VELM_JobFolders::setEnabled(bool isEnabled) {
    if (isEnabled != enabled()) {
        folderSetClass().observable().change(key_enabledFolders, [&] { setProperty("enabled", isEnabled); });
        folderSetClass().saveFolderSets();
    }
    if (isEnabled) {
        if (!fileEvent()) configureJobsFolder();
        return;
    }
    setFileEvent(nullptr);
    if (const auto container = dictJobs(); container && !container->isEmpty())
        folders::performSyncOnMainQueue([&] { observable().change(key_jobs, [&] { container->removeAll(); }); });
}

void VELM_JobFolders::setHasFixedName(bool hasFixedName) {
    storeAndSave("hasFixedName", hasFixedName);
}

void VELM_JobFolders::setAddJobsPendingPathComponents(bool add) {
    storeAndSave("addJobsPendingPathComponents", add);
}

std::string VELM_JobFolders::jobFileUTType() const {
    return property("jobFileUTType").textOr(kUTType_VELM_Job);
}

void VELM_JobFolders::setJobFileUTType(std::string_view type) {
    if (property("jobFileUTType") != base::Value(type)) storeAndSave("jobFileUTType", type);
}

double VELM_JobFolders::settleSeconds() const {
    constexpr double aYear = 366.0 * 24 * 60 * 60;
    const base::Value seconds = property("settleSeconds");
    if (!seconds.isNumber() || seconds.as<bool>() || !(seconds.doubleValue() > 0)) return 0;
    return std::min(seconds.doubleValue(), aYear);
}

void VELM_JobFolders::setSettleSeconds(double seconds) {
    storeAndSave("settleSeconds", seconds);
    processNextJob(); // those that wait may have waited long enough
}

void VELM_JobFolders::setURL(const base::URL& url) {
    VELM_FolderSet::setURL(url);
    configureJobsFolder();
}

base::URL VELM_JobFolders::urlOfJobs() const {
    const base::URL url = URL();
    if (!addJobsPendingPathComponents()) return url;
    return url.appendingPathComponent("Jobs").appendingPathComponent("Pending");
}

std::string VELM_JobFolders::description() const {
    return base::replacingAll(VELM_FolderSet::description(), ">{",
                              base::message(">{%sabled;", enabled() ? "EN" : "DIS"));
}

// Watching -------------------------------------------------------------------------------------------------------

VELM_JobFolders::Jobs VELM_JobFolders::jobs() const {
    Jobs jobs;
    if (const auto container = dictJobs())
        for (const base::ObjectRef& object : container->objects())
            jobs.push_back(std::static_pointer_cast<VELM_Job>(object));
    return jobs;
}

VELM_JobFolders::FolderListing VELM_JobFolders::listing() const {
    FolderListing listing;
    Jobs jobs;
    jobs::enumerateFolder(
        urlOfJobs().standardized().path(), jobs::Depth::oneLevel,
        [&, type = jobFileUTType()](const jobs::FolderItem& item) {
            const base::URL url = base::URL::fileURLWithPath(item.path);
            if (!jobs::itemConformsToType(item, type) || isReceipt(url)) return true;
            if (auto job = VELM_Job::jobWithContentsOfURL(url))
                jobs.push_back(std::move(*job));
            else
                listing.unreadable.emplace_back(url, job.error());
            return true;
        },
        [&](const std::string& path, const base::Error& error) {
            listing.unreadable.emplace_back(base::URL::fileURLWithPath(path), error);
            return true;
        });
    listing.jobs = jobs::oldestFirst(jobs);
    return listing;
}

std::shared_ptr<FolderContainer> VELM_JobFolders::dictJobs() const {
    std::lock_guard lock(watchMutex_);
    return dictJobs_;
}

KLARON_FileEvent::Ref VELM_JobFolders::fileEvent() const {
    std::lock_guard lock(watchMutex_);
    return fileEvent_;
}

void VELM_JobFolders::setFileEvent(KLARON_FileEvent::Ref fileEvent) {
    std::lock_guard lock(watchMutex_);
    fileEvent_.swap(fileEvent); // the old stream ends after the lock
}

VELM_JobFolders::FolderListing VELM_JobFolders::listingOfEnabledFolders() {
    FolderListing all;
    for (const Ref& folder : enabledFolders()) {
        FolderListing listing = folder->listing();
        std::move(listing.jobs.begin(), listing.jobs.end(), std::back_inserter(all.jobs));
        std::move(listing.unreadable.begin(), listing.unreadable.end(), std::back_inserter(all.unreadable));
    }
    all.jobs = jobs::oldestFirst(all.jobs);
    return all;
}

void VELM_JobFolders::configureJobsFolder() {
    if (!enabled() || JobFoldersClass::isKeptStill()) {
        setFileEvent(nullptr);
        return;
    }
    std::shared_ptr<FolderContainer> container;
    {
        std::lock_guard lock(watchMutex_);
        if (!dictJobs_) dictJobs_ = std::make_shared<FolderContainer>();
        container = dictJobs_;
    }
    jobs::finishInterruptedMoves(urlOfJobs().path());
    configureFolder(urlOfJobs(), container, std::string(key_jobs), jobFileUTType(), jobForItem, nullptr,
                    [](const base::Object& object) { return static_cast<const VELM_Job&>(object).isDisposedOf(); });
}

void VELM_JobFolders::rescan() {
    if (const auto stream = fileEvent()) stream->handleFileEventpaths(stream->observedPaths(), {});
}

/// All that a scan needs to know.
struct VELM_JobFolders::Watch {
    std::weak_ptr<VELM_JobFolders> folder;
    std::weak_ptr<KLARON_FileEvent> stream;
    base::URL url;
    std::shared_ptr<FolderContainer> container;
    std::string keyPath;
    std::string utType;
    ObjectInit objectInit;
    Reload reload;
    IsSpent isSpent;
};

void VELM_JobFolders::configureFolder(const base::URL& url, const std::shared_ptr<FolderContainer>& containerProperty,
                                      const std::string& keyPath, const std::string& utType, ObjectInit objectInit,
                                      Reload reload, IsSpent isSpent) {
    if (!url.isFileURL() || keyPath.empty() || !objectInit || !containerProperty) return;
    setFileEvent(nullptr); // first, or its scans would fill the container again
    folders::performSyncOnMainQueue([&] { observable().change(keyPath, [&] { containerProperty->removeAll(); }); });
    if (!conformsToType(url, kUTTypeFolder)) {
        if (const auto made = makeFolder(url); !made) {
            base::log("ERROR: %@", made.error().localizedDescription);
            return;
        }
    }
    const auto stream = KLARON_FileEvent::initWithObservedPaths({url.path()}, streamLatency);
    auto watch =
        std::make_shared<const Watch>(Watch{weak_from_this(), stream, url.standardized(), containerProperty, keyPath,
                                            utType, std::move(objectInit), std::move(reload), std::move(isSpent)});
    stream->setEventBlock(
        [watch](const KLARON_FileEvent::Paths& paths, const KLARON_FileEvent::Flags&) { scan(*watch, paths); });
    // Stored first: a scan counts only while its stream is the folder's.
    setFileEvent(stream);
    stream->setRun(true);
}

void VELM_JobFolders::scan(const Watch& watch, const KLARON_FileEvent::Paths& changed) {
    const auto stream = watch.stream.lock();
    if (!stream) return; // by now the folder has another one, or none
    const bool concernsFolder = std::any_of(changed.begin(), changed.end(), [&watch](const std::string& path) {
        return base::standardizingPath(path) == watch.url.path() || watch.container->holds(path);
    });
    if (!concernsFolder) return;

    std::vector<std::string> paths;
    jobs::enumerateFolder(
        watch.url.path(), jobs::Depth::oneLevel,
        [&](const jobs::FolderItem& item) {
            if (jobs::itemConformsToType(item, watch.utType)) paths.push_back(item.path);
            return true;
        },
        [](const std::string& path, const base::Error& error) {
            base::log("%@:%@", base::URL::fileURLWithPath(path), error);
            return true;
        });
    auto [removals, come] = watch.container->differenceTo(
        paths, [&watch](const base::Object& object) { return watch.isSpent && watch.isSpent(object); });

    FolderContainer::Items additions;
    const std::string folderPath = stream->observedPaths().front();
    for (const std::string& path : come) {
        // What is still being copied in is left until it is whole: the stream tells of it once it is quiet.
        if (stream->isSettling(base::appendingPathComponent(folderPath, base::lastPathComponent(path)))) continue;
        if (base::ObjectRef object = watch.objectInit(base::URL::fileURLWithPath(path))) {
            additions.emplace(path, std::move(object));
            removals.erase(path); // of a spent object, which the new one replaces
        }
    }
    if (removals.empty() && additions.empty()) return;

    folders::performSyncOnMainQueue([&] {
        const auto folder = watch.folder.lock();
        if (!folder || folder->fileEvent() != stream) return;
        folder->observable().change(watch.keyPath, [&] { watch.container->merge(additions, removals); });
        if (watch.reload) watch.reload(removals, additions);
    });
}
