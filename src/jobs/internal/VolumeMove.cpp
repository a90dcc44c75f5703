#include "VolumeMove.h"

#include "base/Log.h"
#include "base/Path.h"
#include "platform/data/AtomicFile.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace jobs {
namespace {

namespace fs = std::filesystem;
using base::appendingPathComponent;

constexpr std::string_view leavingSuffix = ".leaving";
constexpr std::string_view movingSuffix = ".moving";
constexpr std::string_view linkName = ".copy";

std::string hostName() {
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, HOST_NAME_MAX);
    return name;
}

/// Of a move; short, for the item's own name may be as long as names can be.
std::string newMark() {
    static std::atomic<unsigned> counter{0};
    return "." + hostName() + "-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + "-" +
           std::to_string(std::time(nullptr));
}

int renameWithoutReplacing(const std::string& from, const std::string& to) {
    const auto renamed = platform::data::renameWithoutReplacing(from, to);
    return renamed ? 0 : renamed.error().code;
}

bool exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

class Lock {
public:
    explicit Lock(const std::string& folder)
        : descriptor_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW)) {
        error_ = descriptor_ < 0 || flock(descriptor_, LOCK_EX | LOCK_NB) != 0 ? errno : 0;
    }
    ~Lock() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    bool isHeld() const { return error_ == 0; }
    bool isHeldByOther() const { return error_ == EWOULDBLOCK; }

private:
    int descriptor_;
    int error_;
};

int bringToDisk(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const int number = file < 0 || fsync(file) != 0 ? errno : 0;
    if (file >= 0) close(file);
    return number == EINVAL ? 0 : number; // a volume that has nothing to bring to a disk
}

/// The copy under its new name, which must be on the disk before the item goes.
int renameCopy(const std::string& copy, const std::string& target) {
    const int number = renameWithoutReplacing(copy, target);
    if (number == 0) bringToDisk(base::deletingLastPathComponent(target));
    return number;
}

/// The dates, which tell the age of an order, and the contents brought to the disk: the source goes soon.
int settle(const std::string& from, const std::string& to) {
    struct stat status {};
    if (lstat(from.c_str(), &status) == 0) {
        const timespec times[2] = {status.st_atim, status.st_mtim};
        utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return 0;
    return bringToDisk(to);
}

std::error_code copyTree(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (error) return error;
    std::vector<std::string> items;
    if (fs::is_directory(fs::symlink_status(from, error)))
        for (fs::recursive_directory_iterator item(from, error), end; !error && item != end; item.increment(error))
            items.push_back(item->path().string().substr(from.size()));
    items.emplace_back();
    for (const std::string& item : items)
        if (const int number = error ? 0 : settle(from + item, to + item))
            error = std::error_code(number, std::generic_category());
    return error;
}

void removeAll(const std::string& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

/// The contents before the link, so that what is told by it stays told to the end.
void removeLeaving(const std::string& leaving) {
    std::error_code error;
    for (fs::directory_iterator item(leaving, error), end; !error && item != end; item.increment(error))
        if (item->path().filename() != linkName) removeAll(item->path().string()); // not the one of fs, which throws
    removeAll(leaving);
}

/// The item that stands in a leaving folder; empty when there is none.
std::string itemIn(const std::string& leaving) {
    std::error_code error;
    for (fs::directory_iterator item(leaving, error), end; !error && item != end; item.increment(error))
        if (item->path().filename() != linkName) return item->path();
    return {};
}

bool hasDied(const std::string& leaving, const Lock& lock) {
    if (lock.isHeld()) return true;
    if (lock.isHeldByOther()) return false;
    // A volume without locks: by the process, when it was one of this machine.
    const std::string name = base::lastPathComponent(leaving);
    const std::string start = "." + hostName() + "-";
    const int process = name.starts_with(start) ? std::atoi(name.c_str() + start.size()) : 0;
    return process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

void finishInterruptedMove(const std::string& folder, const std::string& leaving) {
    const Lock lock(leaving);
    if (!hasDied(leaving, lock)) return;
    std::error_code error;
    const std::string copy = fs::read_symlink(appendingPathComponent(leaving, linkName), error);
    if (error) { // made, and nothing else; it may be just about to be locked
        constexpr std::time_t aMinute = 60;
        struct stat status {};
        if (lstat(leaving.c_str(), &status) == 0 && std::time(nullptr) - status.st_mtim.tv_sec > aMinute)
            rmdir(leaving.c_str());
        return;
    }
    const std::string moving = base::deletingLastPathComponent(copy);
    const std::string folderOfTarget = base::deletingLastPathComponent(moving);
    const std::string target = appendingPathComponent(folderOfTarget, base::lastPathComponent(copy));
    const std::string item = itemIn(leaving);
    const std::string name = base::lastPathComponent(item);
    if (!item.empty() && (exists(copy) || !exists(target))) { // else only the clearing away is left to do
        if (!exists(folderOfTarget)) {
            base::log("the move of %@, which was interrupted, can't be completed while there is no %@", name,
                      folderOfTarget);
            return;
        }
        if (renameCopy(copy, target) == 0) {
            base::log("the move of %@ to %@, which was interrupted, is completed", name, target);
        } else if (renameWithoutReplacing(item, appendingPathComponent(folder, name)) != 0) {
            base::log("the move of %@, which was interrupted, can't be completed; it stays in %@", name, leaving);
            return;
        }
    }
    if (base::pathExtension(moving) == movingSuffix.substr(1)) removeAll(moving);
    removeLeaving(leaving);
}

} // namespace

base::Result<void> moveToOtherVolume(const std::string& from, const std::string& to) {
    const std::string mark = newMark();
    const std::string leaving =
        appendingPathComponent(base::deletingLastPathComponent(from), mark + std::string(leavingSuffix));
    const std::string moving =
        appendingPathComponent(base::deletingLastPathComponent(to), mark + std::string(movingSuffix));
    const std::string copy = appendingPathComponent(moving, base::lastPathComponent(to));
    const std::string item = appendingPathComponent(leaving, base::lastPathComponent(from));
    const auto failed = [&](int number, const std::string& deed) {
        removeAll(moving);
        removeLeaving(leaving);
        return base::failure(base::systemError(number, deed));
    };
    if (mkdir(leaving.c_str(), 0755) != 0) return base::failure(base::systemError(errno, "cannot remove " + from));
    const Lock lock(leaving);
    if (symlink(copy.c_str(), appendingPathComponent(leaving, linkName).c_str()) != 0)
        return failed(errno, "cannot remove " + from);
    if (mkdir(moving.c_str(), 0755) != 0) return failed(errno, "cannot move " + from + " to " + to);
    if (exists(to)) return failed(EEXIST, "cannot move " + from + " to " + to);
    if (const std::error_code error = copyTree(from, copy))
        return failed(error.value(), "cannot copy " + from + " to " + to);
    if (const int number = renameWithoutReplacing(from, item); number != 0)
        return failed(number, "cannot remove " + from);
    if (const int number = renameCopy(copy, to); number != 0) {
        if (renameWithoutReplacing(item, from) != 0) // stays, to be completed at a next start
            return base::failure(base::systemError(number, "cannot move " + item + " to " + to));
        return failed(number, "cannot move " + from + " to " + to);
    }
    removeAll(moving);
    removeLeaving(leaving);
    return {};
}

void finishInterruptedMoves(const std::string& folder) {
    std::vector<std::string> found;
    std::error_code error;
    for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error)) {
        const std::string name = item->path().filename();
        if (name.starts_with(".") && name.ends_with(leavingSuffix)) found.push_back(item->path());
    }
    for (const std::string& leaving : found)
        finishInterruptedMove(folder, leaving);
}

} // namespace jobs
