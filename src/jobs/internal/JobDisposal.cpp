#include "JobDisposal.h"

#include "MoveItem.h"
#include "base/Log.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/Dates.h"
#include "platform/data/RegularExpression.h"
#include "platform/data/UserDefaults.h"

namespace jobs {

using platform::data::UserDefaults;

std::string stampedFileName(std::string_view fileName, base::Date date) {
    static const auto stamp = platform::data::RegularExpression::compile("2[01][0-9]{6}-[0-9]{6}");
    std::string stem = base::deletingPathExtension(fileName);
    while (stamp && stamp->matchesWhole(base::pathExtension(stem)))
        stem = base::deletingPathExtension(stem);
    stem = base::appendingPathExtension(stem, platform::data::stringWithUTSFormat(date, "yyyyMMdd-HHmmss"));
    return base::appendingPathExtension(stem, base::pathExtension(fileName));
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
    const base::URL destination = base::URL::fileURLWithPath(
        base::appendingPathComponent(*folder, stampedFileName(item.lastPathComponent(), platform::data::now())));
    finished.destination = destination;
    if (const auto moved = moveItem(item.path(), destination.path()); !moved) {
        base::log("Failed to move completed job to %@ (error:%@)", destination, moved.error());
        finished.moveError = moved.error();
        return finished;
    }
    job->setIsDisposedOf();
    const auto counted = UserDefaults::standard().addToInteger(
        success ? key_velmProcessorJobsCompleted : key_velmProcessorJobsFailed, 1);
    if (!counted) base::log("%@", counted.error());
    return finished;
}

} // namespace jobs
