#include "platform/run/FileEvents.h"

#include "internal/EventCollector.h"
#include "internal/FileWatcherThread.h"
#include "internal/FolderEntries.h"
#include "internal/FolderSnapshot.h"
#include "internal/InotifyWatches.h"
#include "internal/PathStanding.h"

#include "base/Log.h"
#include "base/Path.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <optional>
#include <sys/inotify.h>
#include <utility>

namespace platform::run {

namespace {

using std::chrono::nanoseconds;

// Entries come and go, files are closed after writing, modes and times change. Not each single write: a file that is
// still open is still being made.
constexpr std::uint32_t entryMask =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_ATTRIB | IN_EXCL_UNLINK;
// Inside a subfolder each write counts: it is what tells a document that is still being copied.
constexpr std::uint32_t insideMask = entryMask | IN_MODIFY;
constexpr std::uint32_t selfMask = IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t arrivalMask = IN_CREATE | IN_MOVED_TO;
constexpr std::uint32_t placeMask = arrivalMask | IN_DELETE | IN_MOVED_FROM;

// What the system says when it has no more watches to give.
constexpr int noWatchLeft = ENOSPC;
// How long after a folder could not be watched that is tried again.
constexpr nanoseconds retryInterval = std::chrono::minutes(1);

} // namespace

class FileEventStream::Implementation final : public FileWatcherThread::Client,
                                              public std::enable_shared_from_this<Implementation> {
public:
    Implementation(const std::vector<std::string>& paths, Options options, Callback callback)
        : options_(std::move(options)), collector_(std::make_shared<EventCollector>(options_, std::move(callback))) {
        if (!options_.clock) options_.clock = clock();
        for (const std::string& path : paths)
            if (path.starts_with('/')) roots_.emplace_back().path = withoutTrailingSlashes(path);
    }

    void setQueue(QueueRef queue) {
        std::lock_guard lock(mutex_);
        hasQueue_ = queue != nullptr;
        collector_->setQueue(std::move(queue));
    }

    bool start() {
        std::lock_guard lock(mutex_);
        if (roots_.empty() || !hasQueue_) return false;
        if (std::exchange(isRunning_, true)) return true;
        collector_->start();
        rebuild();
        return true;
    }

    void stop() {
        std::lock_guard lock(mutex_);
        isRunning_ = false;
        ++generation_;
        collector_->stop();
        closeWatches();
    }

    void descriptorIsReadable() override {
        std::lock_guard lock(mutex_);
        readRecords();
    }

    bool isSettling(const std::string& subfolder) {
        std::lock_guard lock(mutex_);
        readRecords();
        if (collector_->isSettling(subfolder)) return true;
        // What no look has seen yet may have come a moment ago; the next one tells of it.
        return std::any_of(roots_.begin(), roots_.end(), [&subfolder](const Root& root) {
            return root.isPolled && root.seen && isEntryOf(root.path, subfolder) &&
                   !root.seen->digests.contains(subfolder) && PathStanding::at(subfolder).isFolder();
        });
    }

    bool isPolling() {
        std::lock_guard lock(mutex_);
        return std::any_of(roots_.begin(), roots_.end(), [](const Root& root) { return root.isPolled; });
    }

    void mountsDidChange() override {
        std::lock_guard lock(mutex_);
        if (!isRunning_) return;
        const bool isSame = std::all_of(roots_.begin(), roots_.end(),
                                        [](const Root& root) { return PathStanding::at(root.path) == root.standing; });
        if (isSame) return;
        changes_.clear();
        rebuildAndReport();
        collector_->add(changes_);
    }

private:
    struct Root {
        std::string path;
        PathStanding standing;
        std::string anchor; // while nothing stands at the path, or a file: the folder in which the next change shows
        bool isPolled = false;
        bool isWarnedOf = false;            // it was told that the path can't be watched
        std::optional<FolderSnapshot> seen; // while polled: what the last look found
        nanoseconds pollDelay{0};           // from one look to the end of the next
        std::optional<nanoseconds> retryAt; // when watching is tried again; none where events never come
    };

    static std::string withoutTrailingSlashes(std::string path) {
        while (path.size() > 1 && path.ends_with('/'))
            path.pop_back();
        return path;
    }

    // Attaching ------------------------------------------------------------------------------------------------------

    void closeWatches() {
        if (!watches_) return;
        FileWatcherThread::shared().remove(watches_->descriptor());
        watches_.reset();
    }

    // Sets up all watches from nothing, by what stands at the paths now.
    void rebuild() {
        ++generation_;
        closeWatches();
        auto watches = std::make_unique<InotifyWatches>();
        int lack = watches->descriptor() < 0 ? EMFILE : 0;
        if (lack == 0) {
            watches_ = std::move(watches);
            if (!FileWatcherThread::shared().add(watches_->descriptor(), weak_from_this())) {
                lack = EMFILE;
                closeWatches();
            }
        }
        for (Root& root : roots_)
            attach(root, lack);
        beginPolling();
    }

    void attach(Root& root, int lack) {
        root.seen.reset();
        root.retryAt.reset();
        root.isPolled = options_.alwaysPoll;
        if (!root.isPolled && isOnSilentVolume(root.path)) pollInstead(root, 0);
        if (!root.isPolled && lack != 0) pollInstead(root, lack);
        // What stands there may change while the watches are set; they see what comes after them.
        constexpr int attempts = 8;
        for (int attempt = 0; attempt < attempts; ++attempt) {
            root.standing = PathStanding::at(root.path);
            root.anchor = root.standing.isFolder() ? root.path : deepestExistingFolder(root.path);
            if (!root.isPolled) watch(root);
            if (PathStanding::at(root.path) == root.standing &&
                (root.standing.isFolder() || deepestExistingFolder(root.path) == root.anchor))
                break;
        }
        if (root.isPolled || !root.isWarnedOf) return;
        root.isWarnedOf = false;
        base::log("watching %@ again", root.path);
    }

    void watch(Root& root) {
        if (root.standing.isFolder()) {
            if (const int error = watches_->add(root.path, entryMask | selfMask); !isOfVanishing(error))
                pollInstead(root, error);
            for (const FolderEntry& entry : folderEntries(root.path))
                if (entry.isFolder) watchSubfolder(root, pathOfEntry(root.path, entry.name));
        } else {
            const bool isFile = root.standing.kind == PathStanding::Kind::file;
            const int error = watches_->add(root.anchor, (isFile ? entryMask : placeMask) | selfMask);
            if (!isOfVanishing(error)) pollInstead(root, error);
        }
        // A folder that is moved takes its contents along silently, so the ancestors are watched for that alone.
        for (std::string path = root.anchor; path != "/";) {
            const bool isRoot = path == root.path;
            path = base::deletingLastPathComponent(path);
            watches_->add(path, isRoot ? placeMask | selfMask : selfMask);
        }
    }

    void watchSubfolder(Root& root, const std::string& path) {
        watchInside(root, path);
        if (options_.fileEvents) return;
        for (const FolderEntry& entry : folderEntries(path))
            if (entry.isFolder) watchInside(root, pathOfEntry(path, entry.name));
    }

    void watchInside(Root& root, const std::string& path) {
        if (root.isPolled) return;
        const bool isRoom = watches_->count() < options_.mostWatches || watches_->isWatching(path);
        const int error =
            isRoom ? watches_->add(path, (options_.fileEvents ? entryMask : insideMask) | IN_DONT_FOLLOW) : noWatchLeft;
        // What can't be entered is watched when its rights have changed.
        if (!isOfVanishing(error) && error != EACCES) pollInstead(root, error);
    }

    // None, or that the folder has gone: its parent tells that.
    static bool isOfVanishing(int error) { return error == 0 || error == ENOENT || error == ENOTDIR || error == ELOOP; }

    // `error`: why the root can't be watched; 0 where the volume tells nothing.
    void pollInstead(Root& root, int error) {
        root.isPolled = true;
        if (error != 0) {
            root.retryAt = options_.clock->now() + retryInterval;
            if (watches_) giveBackWatches(root);
        }
        if (std::exchange(root.isWarnedOf, true)) return;
        const char* reason = error == 0             ? "its volume tells of no changes"
                             : error == noWatchLeft ? "there are no watches left for what is inside"
                                                    : std::strerror(error);
        base::log("WARNING: cannot watch %@ (%s); looking at it every %g seconds", root.path, reason,
                  std::chrono::duration<double>(options_.pollInterval).count());
    }

    // Other folders and programs need watches too. Its own is kept: what comes and goes in it is told still.
    void giveBackWatches(const Root& root) {
        watches_->removeBelow(root.path);
        for (Root& other : roots_)
            if (other.path != root.path && isSameOrAbove(root.path, other.path)) other.isPolled = true;
    }

    // The first look at what is polled from now on.
    void beginPolling() {
        for (std::size_t index = 0; index < roots_.size(); ++index) {
            Root& root = roots_[index];
            if (!root.isPolled || root.seen) continue;
            const auto begin = std::chrono::steady_clock::now();
            root.seen = FolderSnapshot::of(root.path, options_.fileEvents);
            root.pollDelay = delayOfPolling(std::chrono::steady_clock::now() - begin);
            schedulePoll(index, root.pollDelay);
        }
    }

    // Handling -------------------------------------------------------------------------------------------------------

    void readRecords() {
        if (!watches_) return;
        changes_.clear();
        needsRebuild_ = false;
        watches_->read([this](const InotifyWatches::Record& record) { handle(record); });
        const bool isNewlyPolled =
            std::any_of(roots_.begin(), roots_.end(), [](const Root& root) { return root.isPolled && !root.seen; });
        if (needsRebuild_) {
            rebuildAndReport();
        } else if (isNewlyPolled) {
            beginPolling();
            for (const Root& root : roots_)
                if (root.isPolled) report(root.path, fileEventFlags::mustScanSubDirs);
        }
        collector_->add(changes_);
        if (!isNewlyPolled) return;
        // What is being made there tells no more of itself before the next looks.
        for (const Root& root : roots_)
            if (root.isPolled) collector_->prolongQuiet(quietTimeIn(root));
    }

    // How long there must be no sign of a change inside a subfolder.
    nanoseconds quietTimeIn(const Root& root) const {
        return root.isPolled ? root.pollDelay + options_.latency : options_.latency;
    }

    void report(std::string path, std::uint32_t flags = fileEventFlags::none, bool isSettling = false) {
        changes_.push_back({std::move(path), flags, isSettling});
    }

    void reportInside(std::string subfolder, nanoseconds quietTime) {
        changes_.push_back({std::move(subfolder), fileEventFlags::none, true, std::max(quietTime, nanoseconds(1))});
    }

    // Whatever was lost with the old watches is covered: each path is reported as a whole.
    void rebuildAndReport() {
        std::vector<PathStanding> before;
        for (const Root& root : roots_)
            before.push_back(root.standing);
        rebuild();
        for (std::size_t index = 0; index < roots_.size(); ++index) {
            const bool isSame = roots_[index].standing == before[index];
            if (isSame && roots_[index].standing.isMissing()) continue;
            report(roots_[index].path, isSame ? fileEventFlags::mustScanSubDirs : fileEventFlags::rootChanged);
        }
    }

    void handle(const InotifyWatches::Record& record) {
        if (record.mask & (IN_Q_OVERFLOW | IN_UNMOUNT)) {
            needsRebuild_ = true;
            return;
        }
        for (Root& root : roots_) {
            if (!root.standing.isFolder()) {
                if (record.folder == root.anchor) anchorDidChange(root, record);
            } else if (record.folder == root.path) {
                rootFolderDidChange(root, record);
            } else if (isEntryOf(root.path, record.folder)) {
                subfolderDidChange(root, record);
            } else if (!options_.fileEvents && isEntryOf(root.path, base::deletingLastPathComponent(record.folder))) {
                if (!record.name.empty())
                    reportInside(base::deletingLastPathComponent(record.folder), quietTimeIn(root));
            } else if (record.folder == base::deletingLastPathComponent(root.path)) {
                parentDidChange(root, record);
            }
            if ((record.mask & selfMask) && isSameOrAbove(record.folder, root.path)) needsRebuild_ = true;
        }
    }

    void rootFolderDidChange(Root& root, const InotifyWatches::Record& record) {
        if (record.name.empty()) {
            if (record.mask & IN_ATTRIB) report(root.path);
            return;
        }
        const std::string entry = pathOfEntry(root.path, std::string(record.name));
        const bool isArrival = record.mask & arrivalMask;
        const bool isSettling = record.mask & IN_CREATE;
        report(options_.fileEvents ? entry : root.path, fileEventFlags::none, isSettling);
        if (!(record.mask & IN_ISDIR)) return;
        const bool wasClosed = (record.mask & IN_ATTRIB) && !root.isPolled && !watches_->isWatching(entry);
        if (record.mask & IN_MOVED_FROM) {
            watches_->remove(entry); // the watches would follow it to its new place
            watches_->removeBelow(entry);
        } else if (isArrival || wasClosed) {
            watchSubfolder(root, entry);
            // What was put into it before it was watched.
            if (!options_.fileEvents && (isSettling || wasClosed))
                reportInside(entry, quietTimeIn(root));
            else if (!options_.fileEvents)
                report(entry);
            else
                for (const FolderEntry& inside : folderEntries(entry))
                    if (!inside.isFolder) report(pathOfEntry(entry, inside.name), fileEventFlags::none, isSettling);
        }
    }

    void subfolderDidChange(Root& root, const InotifyWatches::Record& record) {
        if (record.name.empty()) return; // its own coming and going is told of its parent
        const std::string entry = pathOfEntry(record.folder, std::string(record.name));
        if (options_.fileEvents) {
            report(entry, fileEventFlags::none, true);
            return;
        }
        reportInside(record.folder, quietTimeIn(root));
        if (!(record.mask & IN_ISDIR)) return;
        if (record.mask & IN_MOVED_FROM)
            watches_->remove(entry);
        else if (record.mask & arrivalMask)
            watchInside(root, entry);
    }

    // Of the folder in which the observed path, or what leads to it, stands or is to come.
    void anchorDidChange(const Root& root, const InotifyWatches::Record& record) {
        const std::string entry = pathOfEntry(record.folder, std::string(record.name));
        if (record.name.empty() || !isSameOrAbove(entry, root.path)) return;
        if (entry == root.path && root.standing.kind == PathStanding::Kind::file)
            report(root.path, fileEventFlags::none, record.mask & IN_CREATE);
        if (record.mask & placeMask) needsRebuild_ = true;
    }

    // The removal of a folder that some program stands in is told by its parent alone.
    void parentDidChange(const Root& root, const InotifyWatches::Record& record) {
        if ((record.mask & placeMask) && base::lastPathComponent(root.path) == record.name) needsRebuild_ = true;
    }

    static bool isEntryOf(const std::string& folder, const std::string& path) {
        return path.size() > folder.size() + 1 && isSameOrAbove(folder, path) &&
               path.find('/', folder == "/" ? 1 : folder.size() + 1) == std::string::npos;
    }

    static bool isSameOrAbove(const std::string& path, const std::string& other) {
        if (path == "/") return true;
        return other.starts_with(path) && (other.size() == path.size() || other[path.size()] == '/');
    }

    // Polling --------------------------------------------------------------------------------------------------------

    void schedulePoll(std::size_t index, nanoseconds delay) {
        options_.clock->after(delay, Queue::global(QualityOfService::utility),
                              [weak = weak_from_this(), index, generation = generation_] {
                                  if (const auto self = weak.lock()) self->poll(index, generation);
                              });
    }

    void poll(std::size_t index, std::uint64_t generation) {
        {
            std::lock_guard lock(mutex_);
            if (generation != generation_) return;
        }
        // Without the lock: a volume that answers slowly, or not at all, must not hold up the others.
        const auto begin = std::chrono::steady_clock::now();
        const std::string path = roots_[index].path;
        const PathStanding standing = PathStanding::at(path);
        FolderSnapshot snapshot = FolderSnapshot::of(path, options_.fileEvents);
        const nanoseconds duration = std::chrono::steady_clock::now() - begin;

        std::lock_guard lock(mutex_);
        if (generation != generation_) return;
        Root& root = roots_[index];
        changes_.clear();
        root.pollDelay = delayOfPolling(duration);
        if (standing != root.standing) report(path, fileEventFlags::rootChanged);
        for (std::string& changed : root.seen->changesTo(snapshot)) {
            if (changed == path || options_.fileEvents)
                report(std::move(changed));
            else // until the next look finds it as it is
                reportInside(std::move(changed), quietTimeIn(root));
        }
        root.standing = standing;
        root.seen = std::move(snapshot);
        if (root.retryAt && options_.clock->now() >= *root.retryAt)
            rebuildAndReport();
        else
            schedulePoll(index, root.pollDelay);
        collector_->add(changes_);
    }

    nanoseconds delayOfPolling(nanoseconds duration) const {
        constexpr int rarity = 10; // a look never takes more than a tenth of the time
        return std::max<nanoseconds>(options_.pollInterval, duration * rarity) + duration;
    }

    Options options_;
    const std::shared_ptr<EventCollector> collector_;

    std::mutex mutex_; // guards what follows; the paths of the roots never change
    std::vector<Root> roots_;
    bool hasQueue_ = false;
    bool isRunning_ = false;
    std::uint64_t generation_ = 0; // polls of an earlier one are void
    std::unique_ptr<InotifyWatches> watches_;
    std::vector<CollectedChange> changes_; // of the records that are being handled
    bool needsRebuild_ = false;
};

FileEventStream::FileEventStream(std::vector<std::string> paths, Options options, Callback callback)
    : implementation_(std::make_shared<Implementation>(paths, std::move(options), std::move(callback))) {}

FileEventStream::~FileEventStream() {
    implementation_->stop();
}

void FileEventStream::setQueue(QueueRef queue) {
    implementation_->setQueue(std::move(queue));
}

bool FileEventStream::start() {
    return implementation_->start();
}

void FileEventStream::stop() {
    implementation_->stop();
}

bool FileEventStream::isSettling(const std::string& subfolder) {
    return implementation_->isSettling(subfolder);
}

bool FileEventStream::isPolling() const {
    return implementation_->isPolling();
}

} // namespace platform::run
