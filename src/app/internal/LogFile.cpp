#include "LogFile.h"

#include "app/Logger.h"
#include "app/VELM.h"
#include "base/Log.h"
#include "base/Path.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace app {

namespace {

using namespace std::chrono_literals;

/// Waits for the lock, but not for a process that was stopped while it held it. A file system without locks is
/// written without.
bool lock(int descriptor, int kind) {
    constexpr int tries = 50;
    for (int number = 0; number < tries; ++number) {
        if (flock(descriptor, kind | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

/// Name.log becomes Name.old.log.
std::string pathOfOld(const std::string& path) {
    return base::appendingPathExtension(base::appendingPathExtension(base::deletingPathExtension(path), "old"), "log");
}

} // namespace

LogFile::LogFile(std::string path, std::size_t limit) : path_(std::move(path)), limit_(limit), turnOverAt_(limit) {}

int LogFile::open() {
    const std::string folder = base::deletingLastPathComponent(path_);
    std::error_code ignored;
    if (!std::filesystem::is_directory(folder, ignored))
        VELM::makeDirectory(base::URL::fileURLWithPath(folder), [this](const base::Error& error) {
            if (!std::exchange(folderIsTold_, true)) base::log("%@", error);
        });
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    return descriptor_ < 0 ? errno : 0;
}

void LogFile::close() {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
}

bool LogFile::standsAtItsPath() const {
    struct stat ours {};
    struct stat there {};
    if (fstat(descriptor_, &ours) != 0) return false;
    // A path that can't be looked at any more says nothing about the file.
    if (stat(path_.c_str(), &there) != 0) return errno != ENOENT && errno != ENOTDIR;
    return ours.st_dev == there.st_dev && ours.st_ino == there.st_ino;
}

/// A file that is put aside between the opening and the lock is opened anew.
int LogFile::openAndLock() {
    constexpr int tries = 20;
    for (int number = 0; number < tries; ++number) {
        if (descriptor_ < 0) {
            if (const int failed = open()) return failed;
            turnOverAt_ = limit_;
        }
        lock(descriptor_, LOCK_SH);
        if (standsAtItsPath()) break;
        close();
    }
    return descriptor_ < 0 ? ENOENT : 0;
}

LogFile::Written LogFile::append(std::string_view text) {
    Written written;
    if (const int failed = openAndLock()) {
        written.error = failed;
        written.messageTemplate = "make error (log path) in %s: %s";
        return written;
    }
    while (written.size < text.size()) {
        const ssize_t count = write(descriptor_, text.data() + written.size, text.size() - written.size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            written.error = errno;
            written.messageTemplate = "write Error (log) in %s: %s";
            break;
        }
        written.size += static_cast<std::size_t>(count);
    }
    turnOverWhenFull();
    if (descriptor_ >= 0) flock(descriptor_, LOCK_UN);
    return written;
}

void LogFile::turnOverWhenFull() {
    struct stat file {};
    const auto isFull = [&] {
        return fstat(descriptor_, &file) == 0 && S_ISREG(file.st_mode) &&
               static_cast<std::size_t>(file.st_size) >= turnOverAt_;
    };
    if (!isFull()) return;
    if (!lock(descriptor_, LOCK_EX)) return; // others are writing: at a later write
    // The shared lock was let go on the way: another process may have been faster.
    if (!standsAtItsPath()) {
        close();
        return;
    }
    if (!isFull()) return;
    if (std::rename(path_.c_str(), pathOfOld(path_).c_str()) == 0) {
        close();
        open(); // a failure is told by the next write
        return;
    }
    Logger::setError(base::message("%s Failed to move file %@ (%s)", "+[Logger setLogFile:]",
                                   base::URL::fileURLWithPath(path_), std::strerror(errno)));
    // The file starts anew where it is. One that can't be cut either grows on, and is tried again a limit later.
    if (ftruncate(descriptor_, 0) != 0) turnOverAt_ = static_cast<std::size_t>(file.st_size) + limit_;
}

} // namespace app
