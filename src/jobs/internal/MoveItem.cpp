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

std::string asideOf(const std::string& path) {
    static std::atomic<unsigned> counter{0};
    return base::appendingPathComponent(base::deletingLastPathComponent(path),
                                        "." + base::lastPathComponent(path) + "." + std::to_string(getpid()) + "-" +
                                            std::to_string(counter++) + ".moving");
}

/// The item is copied beside the target first, so that it appears there whole or not at all.
base::Result<void> moveToOtherVolume(const std::string& from, const std::string& to) {
    const std::string aside = asideOf(to);
    std::error_code error;
    fs::copy(from, aside, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    std::error_code ignored;
    if (error) {
        fs::remove_all(aside, ignored);
        return base::failure(base::systemError(error.value(), "cannot copy " + from + " to " + to));
    }
    struct stat status {};
    if (lstat(from.c_str(), &status) == 0) {
        const timespec times[2] = {status.st_atim, status.st_mtim};
        utimensat(AT_FDCWD, aside.c_str(), times, AT_SYMLINK_NOFOLLOW);
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
