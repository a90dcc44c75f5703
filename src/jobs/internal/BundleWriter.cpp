#include "BundleWriter.h"

#include "MoveItem.h"
#include "base/Path.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <system_error>

namespace jobs {
namespace {

namespace fs = std::filesystem;

base::Result<void> writeFile(const std::string& path, const BundleFile& file) {
    std::error_code error;
    fs::create_directories(base::deletingLastPathComponent(path), error);
    if (error) return base::failure(base::systemError(error.value(), "cannot make the folder of " + path));
    if (const auto* copy = std::get_if<FileCopy>(&file)) {
        fs::copy_file(copy->source, path, error);
        if (error)
            return base::failure(base::systemError(error.value(), "cannot copy " + copy->source + " to " + path));
        return {};
    }
    std::ofstream stream(path, std::ios::binary);
    stream << std::get<std::string>(file) << std::flush;
    if (!stream) return base::failure(base::systemError(errno, "cannot write " + path));
    return {};
}

} // namespace

base::Result<void> writeBundle(const std::string& path, const BundleFiles& files) {
    std::string aside = base::appendingPathComponent(base::deletingLastPathComponent(path),
                                                     "." + base::lastPathComponent(path) + ".XXXXXX");
    if (!mkdtemp(aside.data())) return base::failure(base::systemError(errno, "cannot make a folder beside " + path));
    base::Result<void> result;
    for (const auto& [name, file] : files) {
        result = writeFile(base::appendingPathComponent(aside, name), file);
        if (!result) break;
    }
    if (result) {
        chmod(aside.c_str(), 0755); // mkdtemp makes it for its owner alone
        result = replaceItem(path, aside);
    }
    if (!result) {
        std::error_code ignored;
        fs::remove_all(aside, ignored);
    }
    return result;
}

} // namespace jobs
