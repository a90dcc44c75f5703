#include "JobDisposal.h"

#include "MoveItem.h"
#include "base/Log.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/Dates.h"
#include "platform/data/FileTypes.h"
#include "platform/data/RegularExpression.h"
#include "platform/data/UserDefaults.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <unistd.h>

namespace jobs {

using platform::data::UserDefaults;

namespace {

std::size_t longestNameIn(const std::string& folder) {
    const long limit = pathconf(folder.c_str(), _PC_NAME_MAX);
    return limit > 0 ? static_cast<std::size_t>(limit) : NAME_MAX;
}

std::string firstBytes(std::string text, std::size_t count) {
    constexpr auto isInsideCharacter = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; };
    if (count >= text.size()) return text;
    while (count > 0 && isInsideCharacter(text[count]))
        --count;
    text.resize(count);
    return text;
}

/// What the operator has to know and do, where the system's own words leave that open.
base::Error withAdvice(base::Error error, const base::URL& item, const base::URL& destination) {
    const std::string start = "cannot move " + item.path();
    const base::URL folder = destination.deletingLastPathComponent();
    if (error.code == EEXIST)
        error.localizedDescription = start + " to " + destination.path() +
                                     ": an order of that name that ended within the same second stands there, and is "
                                     "not overwritten. Move " +
                                     item.lastPathComponent() + " out of its folder by hand";
    else if (error.code == ENOENT && !platform::data::conformsToType(folder, platform::data::kUTTypeFolder))
        error.localizedDescription = start + ": there is no folder " + folder.path();
    else if (error.code == ENOENT)
        error.localizedDescription = start + ": it is not there any more";
    return error;
}

} // namespace

std::string stampedFileName(std::string_view fileName, base::Date date, std::size_t maximumBytes) {
    static const auto stamp = platform::data::RegularExpression::compile("2[01][0-9]{6}-[0-9]{6}");
    std::string stem = base::deletingPathExtension(fileName);
    while (stamp && stamp->matchesWhole(base::pathExtension(stem)))
        stem = base::deletingPathExtension(stem);
    const auto named = [&](const std::string& start) {
        const auto stamped =
            base::appendingPathExtension(start, platform::data::stringWithUTSFormat(date, "yyyyMMdd-HHmmss"));
        return base::appendingPathExtension(stamped, base::pathExtension(fileName));
    };
    const std::string name = named(stem);
    if (name.size() <= maximumBytes) return name;
    const std::size_t excess = std::min(name.size() - maximumBytes, stem.size() - 1);
    return named(firstBytes(stem, stem.size() - excess));
}

VELM_JobFolders::FinishedJob disposeOfJob(const VELM_Job::Ref& job, const std::optional<base::Error>& error) {
    const bool success = !error;
    base::log("Job completed successfully? %s (error:%@)", success ? "Yes" : "No", error);
    VELM_JobFolders::FinishedJob finished{job, success, error, std::nullopt, std::nullopt};

    const auto folder =
        UserDefaults::standard().stringForKey(success ? key_velmFolderJobsCompleted : key_velmFolderJobsFailed);
    if (!folder || !folder->starts_with('/')) { // nothing else names a place of its own
        const std::string words = base::message("Failed to get %@ for jobfile:%@", nullptr, job->documentURL());
        base::log("%@", words);
        finished.moveError = base::Error{std::string(base::cocoaErrorDomain), 4, words};
        return finished;
    }
    const base::URL item = job->urlJobContainer().value_or(job->documentURL());
    const std::string name = stampedFileName(item.lastPathComponent(), platform::data::now(), longestNameIn(*folder));
    const base::URL destination = base::URL::fileURLWithPath(base::appendingPathComponent(*folder, name));
    finished.destination = destination;
    if (const auto moved = moveItem(item.path(), destination.path()); !moved) {
        finished.moveError = withAdvice(moved.error(), item, destination);
        base::log("Failed to move completed job to %@ (error:%@)", destination, *finished.moveError);
        return finished;
    }
    job->setIsDisposedOf();
    const auto counted = UserDefaults::standard().addToInteger(
        success ? key_velmProcessorJobsCompleted : key_velmProcessorJobsFailed, 1);
    if (!counted) base::log("%@", counted.error());
    return finished;
}

} // namespace jobs
