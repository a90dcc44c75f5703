// Walking a folder's items in the order of their names, so that what a search finds does not depend on the disk.
// On the calling thread; symbolic links are answered as they are and not followed.
#pragma once

#include "base/Error.h"

#include <functional>
#include <string>
#include <string_view>

namespace jobs {

struct FolderItem {
    std::string path;
    bool isFolder = false;
    bool isRegularFile = false;
};

/// What platform::data::conformsToType answers for the item, from what is known of it.
bool itemConformsToType(const FolderItem& item, std::string_view type);

enum class Depth { oneLevel, deep };

/// Answers whether the walk goes on.
using FolderVisitor = std::function<bool(const FolderItem& item)>;
/// Told of a folder that can't be read; answers whether the walk goes on with the others.
using FolderErrorHandler = std::function<bool(const std::string& path, const base::Error& error)>;

/// A folder's own item comes before what it holds.
void enumerateFolder(const std::string& folder, Depth depth, const FolderVisitor& visit,
                     const FolderErrorHandler& onError);

} // namespace jobs
