// What stands at a path, and on what kind of volume. Values; any thread.
#pragma once

#include <string>
#include <sys/types.h>

namespace platform::run {

/// The thing at a path, with its identity: another one in its place compares as different. Links are followed.
struct PathStanding {
    enum class Kind { missing, file, folder } kind = Kind::missing;
    dev_t device = 0;
    ino_t number = 0;
    friend bool operator==(const PathStanding&, const PathStanding&) = default;

    static PathStanding at(const std::string& path);
    bool isMissing() const { return kind == Kind::missing; }
    bool isFolder() const { return kind == Kind::folder; }
};

/// The path, or what is nearest above it and is a folder.
std::string deepestExistingFolder(std::string path);

/// Whether the volume that holds the path, or would hold it, changes behind the kernel's back: other machines write to
/// it, or programs that do not tell.
bool isOnSilentVolume(const std::string& path);

} // namespace platform::run
