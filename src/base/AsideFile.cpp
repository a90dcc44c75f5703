#include "base/AsideFile.h"

#include "base/Path.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

namespace base {
namespace {

constexpr std::string_view prefix = ".velm-";
constexpr std::string_view suffix = ".tmp";

std::string nextName() {
    static std::atomic<unsigned> counter{0};
    return std::string(prefix) + std::to_string(getpid()) + "-" + std::to_string(++counter) + std::string(suffix);
}

bool isNameOfAsideFile(std::string_view name) {
    return name.size() > prefix.size() + suffix.size() && name.starts_with(prefix) && name.ends_with(suffix);
}

/// How long nothing must have been written before a file without a lock counts as left. A living writer is without
/// one between the making and the locking and between the closing and the renaming, and on a volume that other
/// machines share its lock may not be seen here at all.
long quietTime(int folder) {
    constexpr long aMinute = 60;
    constexpr long aDay = 24L * 60 * 60;
    constexpr unsigned sharedVolumes[] = {0x6969,     0x517B,     0xFF534D42, 0xFE534D42,  // NFS, SMB, CIFS, SMB 2
                                          0x65735546, 0x01021997, 0x00C36400, 0x5346414F}; // FUSE, 9P, Ceph, AFS
    struct statfs status {};
    if (fstatfs(folder, &status) != 0) return aDay;
    const bool isShared = std::find(std::begin(sharedVolumes), std::end(sharedVolumes),
                                    static_cast<unsigned>(status.f_type)) != std::end(sharedVolumes);
    return isShared ? aDay : aMinute;
}

/// `now` is the present time by the volume's own clock.
void removeIfLeft(int folder, const char* name, long now, long quiet) {
    const int file = openat(folder, name, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) return;
    struct stat status {};
    // The lock is asked for last and held while the name goes: who made the file could not be about to lock it.
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && now - status.st_mtim.tv_sec > quiet &&
        flock(file, LOCK_EX | LOCK_NB) == 0)
        unlinkat(folder, name, 0);
    close(file);
}

/// `present` is a file in the folder that was written just now.
void sweepOnce(const std::string& folderPath, int present) {
    static std::mutex mutex;
    static auto& swept = *new std::set<std::pair<dev_t, ino_t>>;
    constexpr std::size_t rememberedFolders = 10'000;
    const char* path = folderPath.empty() ? "." : folderPath.c_str();
    struct stat status {};
    struct stat now {};
    if (stat(path, &status) != 0 || fstat(present, &now) != 0) return;
    {
        const std::lock_guard lock(mutex);
        if (swept.size() >= rememberedFolders) swept.clear();
        if (!swept.emplace(status.st_dev, status.st_ino).second) return;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path), closedir);
    if (!folder) return;
    const int descriptor = dirfd(folder.get());
    const long quiet = quietTime(descriptor);
    while (const dirent* entry = readdir(folder.get()))
        if (isNameOfAsideFile(entry->d_name)) removeIfLeft(descriptor, entry->d_name, now.st_mtim.tv_sec, quiet);
}

} // namespace

Result<AsideFile> AsideFile::create(const std::string& folder, const std::string& deed) {
    AsideFile file;
    do { // past what a killed process of this number may have left
        file.path_ = folder.empty() ? nextName() : appendingPathComponent(folder, nextName());
        file.descriptor_ = open(file.path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    } while (file.descriptor_ < 0 && errno == EEXIST);
    if (file.descriptor_ < 0) {
        const int number = errno;
        file.keep();
        return failure(systemError(number, deed));
    }
    flock(file.descriptor_, LOCK_EX | LOCK_NB); // a volume without locks does without
    sweepOnce(folder, file.descriptor_);
    return file;
}

AsideFile::AsideFile(AsideFile&& other) noexcept
    : path_(std::exchange(other.path_, {})), descriptor_(std::exchange(other.descriptor_, -1)) {}

AsideFile& AsideFile::operator=(AsideFile&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

AsideFile::~AsideFile() {
    if (!path_.empty()) unlink(path_.c_str());
    if (descriptor_ >= 0) ::close(descriptor_);
}

int AsideFile::takeDescriptor() {
    return std::exchange(descriptor_, -1);
}

bool AsideFile::close() {
    return ::close(std::exchange(descriptor_, -1)) == 0;
}

} // namespace base
