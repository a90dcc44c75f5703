// Moving a file or a folder with all that it holds. On the calling thread.
#pragma once

#include "base/Error.h"

#include <string>

namespace jobs {

/// Moves an item, also to another volume. Fails when something stands at the target already or its folder is missing;
/// after a failure the item stands where it was and nothing is left at the target.
base::Result<void> moveItem(const std::string& from, const std::string& to);

/// Puts an item in the place of what stands at the target, which is removed. Both lie in one folder.
base::Result<void> replaceItem(const std::string& target, const std::string& replacement);

} // namespace jobs
