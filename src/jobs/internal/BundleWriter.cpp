#include "BundleWriter.h"

#include "MoveItem.h"
#include "base/Path.h"
#include "platform/data/TextEncoding.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

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

bool haveSameContents(const std::string& left, const std::string& right) {
    std::error_code ignored;
    if (fs::equivalent(left, right, ignored)) return true;
    std::ifstream leftBytes(left, std::ios::binary);
    std::ifstream rightBytes(right, std::ios::binary);
    using Bytes = std::istreambuf_iterator<char>;
    return leftBytes && rightBytes && std::equal(Bytes(leftBytes), Bytes(), Bytes(rightBytes), Bytes());
}

} // namespace

base::Result<void> addFileCopy(BundleFiles& files, std::string_view folder, const std::string& source) {
    const std::string name = base::lastPathComponent(source);
    const bool isText = platform::data::isValidUTF8(name) && std::none_of(name.begin(), name.end(), [](char character) {
                            return static_cast<unsigned char>(character) < ' ';
                        });
    if (!isText) return base::failure(base::cocoaErrorDomain, 514, source + " has a name that a job ticket can't hold");
    const auto [present, isNew] = files.try_emplace(std::string(folder) + name, FileCopy{source});
    const auto* other = std::get_if<FileCopy>(&present->second);
    if (!isNew && !(other && haveSameContents(other->source, source)))
        return base::failure(base::cocoaErrorDomain, 516,
                             "a job can hold only one file named " + name + ": " + (other ? other->source : "") +
                                 " and " + source + " differ");
    return {};
}

bool isReadable(const std::string& path) {
    return access(path.c_str(), R_OK) == 0;
}

base::Result<void> writeBundle(const std::string& path, const BundleFiles& files) {
    // Not made of the bundle's own name, which may be as long as names can be.
    std::string aside = base::appendingPathComponent(base::deletingLastPathComponent(path), ".writing.XXXXXX");
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
