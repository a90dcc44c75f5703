#include "MoveItem.h"

#include "VolumeMove.h"
#include "base/Path.h"
#include "platform/data/AtomicFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <system_error>

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
