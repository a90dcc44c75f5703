#include "FolderEnumeration.h"

#include "base/Path.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

namespace jobs {
namespace {

namespace fs = std::filesystem;

struct Walk {
    Depth depth;
    const FolderVisitor& visit;
    const FolderErrorHandler& onError;

    bool folder(const std::string& path) const {
        std::vector<FolderItem> items;
        std::error_code error;
        fs::directory_iterator iterator(path, error);
        while (!error && iterator != fs::directory_iterator()) {
            const fs::directory_entry& entry = *iterator;
            std::error_code gone; // an item that vanished meanwhile is neither folder nor file
            const fs::file_type type = entry.symlink_status(gone).type();
            items.push_back({base::appendingPathComponent(path, entry.path().filename().string()),
                             type == fs::file_type::directory, type == fs::file_type::regular});
            iterator.increment(error);
        }
        if (error && !onError(path, base::systemError(error.value(), "cannot read the folder " + path))) return false;
        std::sort(items.begin(), items.end(),
                  [](const FolderItem& left, const FolderItem& right) { return left.path < right.path; });
        return std::all_of(items.begin(), items.end(), [this](const FolderItem& item) {
            return visit(item) && (depth == Depth::oneLevel || !item.isFolder || folder(item.path));
        });
    }
};

} // namespace

void enumerateFolder(const std::string& folder, Depth depth, const FolderVisitor& visit,
                     const FolderErrorHandler& onError) {
    Walk{depth, visit, onError}.folder(folder);
}

} // namespace jobs
