#include "FolderEnumeration.h"

#include "base/Path.h"
#include "platform/data/FileTypes.h"

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
            // Known from the reading of the folder, where its file system tells; an item that vanished meanwhile is
            // neither folder nor file.
            std::error_code gone;
            const bool isLink = entry.is_symlink(gone);
            items.push_back({base::appendingPathComponent(path, entry.path().filename().string()),
                             !isLink && entry.is_directory(gone), !isLink && entry.is_regular_file(gone)});
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

bool itemConformsToType(const FolderItem& item, std::string_view type) {
    using namespace platform::data;
    if (!item.isFolder && !item.isRegularFile) return conformsToType(base::URL::fileURLWithPath(item.path), type);
    const auto known = typeForExtension(base::pathExtension(item.path));
    if (item.isFolder)
        return typeConforms(known && typeConforms(*known, kUTTypePackage) ? *known : kUTTypeFolder, type);
    return typeConforms(known ? *known : kUTTypeData, type);
}

void enumerateFolder(const std::string& folder, Depth depth, const FolderVisitor& visit,
                     const FolderErrorHandler& onError) {
    Walk{depth, visit, onError}.folder(folder);
}

} // namespace jobs
