#include "app/VELM.h"

#include "base/Log.h"
#include "base/Places.h"

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view operationPrefix = "velmDirectory";

} // namespace

base::URL VELM::velmDirectory() {
    base::URL root = base::URL::fileURLWithPath(base::places().velmDirectory);
    static std::mutex mutex;
    static std::set<std::string> known;
    const std::lock_guard lock(mutex);
    if (known.insert(root.path()).second) {
        std::error_code ignored;
        if (!fs::exists(root.path(), ignored))
            makeDirectory(root);
        else if (!fs::is_directory(root.path(), ignored))
            base::log("%@", nullptr);
    }
    return root;
}

base::URL VELM::velmDirectorySubdirectory(std::string_view operationName) {
    base::URL root = velmDirectory();
    if (!operationName.starts_with(operationPrefix) || operationName.size() == operationPrefix.size()) return root;
    return root.appendingPathComponent(operationName.substr(operationPrefix.size()));
}

const std::array<VELM::Folder, 9>& VELM::folders() {
    static const std::array<Folder, 9> table = {{
        {"velmDirectory", velmDirectory},
        {"velmDirectoryTemplates", velmDirectoryTemplates},
        {"velmDirectoryGraphics", velmDirectoryGraphics},
        {"velmDirectoryPackages", velmDirectoryPackages},
        {"velmDirectoryNodes", velmDirectoryNodes},
        {"velmDirectoryJobs", velmDirectoryJobs},
        {"velmDirectoryJobsPending", velmDirectoryJobsPending},
        {"velmDirectoryJobsCompleted", velmDirectoryJobsCompleted},
        {"velmDirectoryJobsFailed", velmDirectoryJobsFailed},
    }};
    return table;
}

base::Result<base::URL> VELM::makeVELMFolder() {
    std::optional<base::Error> firstError;
    for (const Folder& folder : folders())
        makeDirectory(folder.url(), [&](const base::Error& error) {
            if (!firstError) firstError = error;
        });
    if (firstError) return base::failure(*firstError);
    return velmDirectory();
}

bool VELM::makeDirectory(const base::URL& url, const ErrorBlock& errorBlock) {
    std::error_code failed;
    fs::create_directories(url.path(), failed);
    // A link to a folder is "made" without an error, and so is nothing else that stands in the folder's place.
    std::error_code unreadable;
    if (!failed && !fs::is_directory(url.path(), unreadable)) failed = std::make_error_code(std::errc::not_a_directory);
    if (!failed) return true;
    const base::Error error = base::systemError(failed.value(), "cannot make the folder " + url.path());
    if (errorBlock)
        errorBlock(error);
    else
        base::log("%@", error);
    return false;
}
