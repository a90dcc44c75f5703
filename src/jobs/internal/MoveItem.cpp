#include "MoveItem.h"

#include "base/Path.h"
#include "platform/data/AtomicFile.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace jobs {
namespace {

namespace fs = std::filesystem;

int renameWith(const std::string& from, const std::string& to, unsigned flags) {
    return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0 ? 0 : errno;
}

int renameWithoutReplacing(const std::string& from, const std::string& to) {
    const auto renamed = platform::data::renameWithoutReplacing(from, to);
    return renamed ? 0 : renamed.error().code;
}

/// A hidden name beside the path. Not made of the path's own name, which may be as long as names can be.
std::string asideOf(const std::string& path) {
    static std::atomic<unsigned> counter{0};
    return base::appendingPathComponent(base::deletingLastPathComponent(path),
                                        "." + std::to_string(getpid()) + "-" + std::to_string(counter++) + ".moving");
}

void copyDates(const std::string& from, const std::string& to) {
    struct stat status {};
    if (lstat(from.c_str(), &status) != 0) return;
    const timespec times[2] = {status.st_atim, status.st_mtim};
    utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

/// With the dates, which tell the age of an order.
std::error_code copyTree(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (error) return error;
    std::error_code ignored;
    for (fs::recursive_directory_iterator item(from, ignored), end; !ignored && item != end; item.increment(ignored))
        copyDates(item->path(), base::appendingPathComponent(to, item->path().string().substr(from.size())));
    copyDates(from, to);
    return error;
}

/// The item is copied beside the target first, so that it appears there whole or not at all. A process that is ended in
/// the middle leaves the item where it was; only between the last two steps it stands in both places.
base::Result<void> moveToOtherVolume(const std::string& from, const std::string& to) {
    const std::string aside = asideOf(to);
    std::error_code ignored;
    if (const std::error_code error = copyTree(from, aside)) {
        fs::remove_all(aside, ignored);
        return base::failure(base::systemError(error.value(), "cannot copy " + from + " to " + to));
    }
    if (const int number = renameWithoutReplacing(aside, to); number != 0) {
        fs::remove_all(aside, ignored);
        return base::failure(base::systemError(number, "cannot move " + from + " to " + to));
    }
    // Out of sight at once, or not at all: an item that is half removed could not be put back.
    const std::string leaving = asideOf(from);
    if (const int number = renameWithoutReplacing(from, leaving); number != 0) {
        fs::remove_all(to, ignored);
        return base::failure(base::systemError(number, "cannot remove " + from));
    }
    fs::remove_all(leaving, ignored);
    return {};
}

} // namespace

base::Result<void> moveItem(const std::string& from, const std::string& to) {
    const int number = renameWithoutReplacing(from, to);
    if (number == 0) return {};
    if (number == EXDEV) return moveToOtherVolume(from, to);
    return base::failure(base::systemError(number, "cannot move " + from + " to " + to));
}

base::Result<void> replaceItem(const std::string& target, const std::string& replacement) {
    int number = renameWithoutReplacing(replacement, target);
    if (number == 0) return {};
    std::error_code error;
    if (number == EEXIST) {
        number = renameWith(replacement, target, RENAME_EXCHANGE);
        if (number == 0) {
            fs::remove_all(replacement, error); // what stood at the target
            return {};
        }
        if (number == EINVAL || number == ENOSYS) {
            fs::remove_all(target, error);
            number = renameWithoutReplacing(replacement, target);
            if (number == 0) return {};
        }
    }
    return base::failure(base::systemError(number, "cannot replace " + target));
}

} // namespace jobs
