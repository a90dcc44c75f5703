// Writing a folder that counts as one document: made aside, put in its place when it is whole. On the calling thread.
#pragma once

#include "base/Error.h"

#include <map>
#include <string>
#include <string_view>
#include <variant>

namespace jobs {

/// What a file in the bundle is made of: its bytes, or the path of a file to copy.
struct FileCopy {
    std::string source;
};
using BundleFile = std::variant<std::string, FileCopy>;

/// Files by their paths in the bundle ("job.xml", "images/a.jpg"); folders on the way are made.
using BundleFiles = std::map<std::string, BundleFile, std::less<>>;

/// Adds a copy of a file under its own name to a folder of the bundle ("images/"). An error when another file with
/// other contents has that name there already, and for a name that a ticket can't hold.
base::Result<void> addFileCopy(BundleFiles& files, std::string_view folder, const std::string& source);
bool isReadable(const std::string& path);

/// Replaces what stands at `path`. On failure that stays and nothing is left behind.
base::Result<void> writeBundle(const std::string& path, const BundleFiles& files);

} // namespace jobs
