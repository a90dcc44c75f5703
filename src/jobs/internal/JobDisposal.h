// Where the file of a job goes when the job has ended. On the calling thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "jobs/VELM_JobFolders.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace jobs {

/// Moves the job's bundle or ticket to the Completed or Failed folder and counts it. The absence of an error is
/// success.
VELM_JobFolders::FinishedJob disposeOfJob(const VELM_Job::Ref& job, const std::optional<base::Error>& error);

/// The name of a job's file with the date in it, "order7.20260315-101112.velm_job". A date that is in it already from
/// an earlier run is replaced. A name that would be longer than `maximumBytes` loses the end of what stands before the
/// date, never a part of a UTF-8 character.
std::string stampedFileName(std::string_view fileName, base::Date date, std::size_t maximumBytes = std::string::npos);

} // namespace jobs
