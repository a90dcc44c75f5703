#include "FolderSnapshot.h"

#include "FolderEntries.h"

#include <ctime>
#include <sys/stat.h>

namespace platform::run {

namespace {

void mix(std::uint64_t& digest, std::uint64_t value) {
    digest = (digest ^ value) * 0x9E3779B97F4A7C15u;
    digest ^= digest >> 29;
}

std::uint64_t digestOf(const struct stat& status) {
    std::uint64_t digest = status.st_mode;
    // A folder's time and size say what happened inside it, which is told of the folder itself.
    if (!S_ISDIR(status.st_mode)) {
        mix(digest, static_cast<std::uint64_t>(status.st_size));
        // The time of change tells of another file under the name that has the size and time of the one before. Not
        // the number of the file: some volumes give another one at each look.
        for (const timespec& time : {status.st_mtim, status.st_ctim}) {
            mix(digest, static_cast<std::uint64_t>(time.tv_sec));
            mix(digest, static_cast<std::uint64_t>(time.tv_nsec));
        }
    }
    return digest;
}

class Look {
public:
    Look(std::map<std::string, std::uint64_t>& digests, bool ofFiles) : digests_(digests), ofFiles_(ofFiles) {}

    void atFolder(const std::string& path, int levels) {
        std::uint64_t digest = 1;
        for (const FolderEntry& entry : folderEntries(path)) {
            const std::string entryPath = pathOfEntry(path, entry.name);
            struct stat status {};
            if (lstat(entryPath.c_str(), &status) != 0) continue;
            // Summed, since entries come in any order.
            std::uint64_t one = std::hash<std::string>()(entry.name);
            mix(one, digestOf(status));
            digest += one;
            if (S_ISDIR(status.st_mode) && levels > 0)
                atFolder(entryPath, levels - 1);
            else if (ofFiles_)
                digests_[entryPath] = one;
            else if (S_ISDIR(status.st_mode))
                digest += digestInside(entryPath);
        }
        if (!ofFiles_) digests_[path] = digest;
    }

private:
    static std::uint64_t digestInside(const std::string& path) {
        std::uint64_t digest = std::hash<std::string>()(path);
        for (const FolderEntry& entry : folderEntries(path)) {
            struct stat status {};
            if (lstat(pathOfEntry(path, entry.name).c_str(), &status) != 0) continue;
            std::uint64_t one = std::hash<std::string>()(entry.name);
            mix(one, digestOf(status));
            digest += one;
        }
        return digest;
    }

    std::map<std::string, std::uint64_t>& digests_;
    const bool ofFiles_;
};

} // namespace

FolderSnapshot FolderSnapshot::of(const std::string& path, bool ofFiles) {
    FolderSnapshot snapshot;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return snapshot;
    if (S_ISDIR(status.st_mode))
        Look(snapshot.digests, ofFiles).atFolder(path, 1);
    else
        snapshot.digests[path] = digestOf(status);
    return snapshot;
}

std::vector<std::string> FolderSnapshot::changesTo(const FolderSnapshot& later) const {
    std::vector<std::string> changes;
    for (const auto& [path, digest] : digests) {
        const auto found = later.digests.find(path);
        if (found == later.digests.end() || found->second != digest) changes.push_back(path);
    }
    for (const auto& [path, digest] : later.digests)
        if (!digests.contains(path)) changes.push_back(path);
    return changes;
}

} // namespace platform::run
