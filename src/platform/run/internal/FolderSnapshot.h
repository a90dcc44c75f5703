// What polling sees of an observed path: a digest for each thing that is reported on its own. Values.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace platform::run {

struct FolderSnapshot {
    /// Path of what is reported -> digest of its state. For a folder its entries (names, kinds; sizes and times of
    /// files), for a file its size and time. Absent things have no entry.
    std::map<std::string, std::uint64_t> digests;

    /// Looks at the path, and when it is a folder one level into it; what lies one level deeper counts as a change of
    /// the subfolder. `ofFiles`: files are reported on their own, and nothing that lies deeper counts.
    static FolderSnapshot of(const std::string& path, bool ofFiles);

    /// The paths that differ between two looks.
    std::vector<std::string> changesTo(const FolderSnapshot& later) const;
};

} // namespace platform::run
