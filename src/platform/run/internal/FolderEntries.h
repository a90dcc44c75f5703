// The entries of a folder as the system lists them, without asking for each one's status where it need not be.
#pragma once

#include <string>
#include <vector>

namespace platform::run {

struct FolderEntry {
    std::string name;
    bool isFolder = false; // false for a link to one
};

/// In no order, without "." and ".."; empty when the folder can't be read.
std::vector<FolderEntry> folderEntries(const std::string& path);

std::string pathOfEntry(const std::string& folder, const std::string& name);

} // namespace platform::run
