#include "FolderEntries.h"

#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

namespace platform::run {

std::vector<FolderEntry> folderEntries(const std::string& path) {
    struct Close {
        void operator()(DIR* folder) const { closedir(folder); }
    };
    std::vector<FolderEntry> entries;
    const std::unique_ptr<DIR, Close> folder(opendir(path.c_str()));
    if (!folder) return entries;
    while (const dirent* entry = readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        bool isFolder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) { // some volumes don't tell
            struct stat status {};
            isFolder = lstat(pathOfEntry(path, std::string(name)).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        }
        entries.push_back({std::string(name), isFolder});
    }
    return entries;
}

std::string pathOfEntry(const std::string& folder, const std::string& name) {
    return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

} // namespace platform::run
