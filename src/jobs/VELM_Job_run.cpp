// The run of a job: all its packages at the same time, one error or none.
#include "jobs/VELM_Job.h"

#include "base/Log.h"
#include "internal/XMLReading.h"
#include "jobs/VELM_JobFolders.h"
#include "jobs/VELM_Package.h"
#include "output/VELM_Output.h"
#include "platform/run/Clock.h"
#include "platform/run/Group.h"

namespace {

using platform::run::Progress;

double secondsSince(std::chrono::nanoseconds start) {
    return std::chrono::duration<double>(platform::run::clock()->now() - start).count();
}

/// What the packages of a run share: the last writer wins.
class SharedError {
public:
    void store(const std::optional<base::Error>& error) {
        std::lock_guard lock(mutex_);
        error_ = error;
    }
    std::optional<base::Error> get() const {
        std::lock_guard lock(mutex_);
        return error_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<base::Error> error_;
};

void completeUnits(Progress& progress, std::int64_t units) {
    progress.becomeCurrentWithPendingUnitCount(units);
    progress.resignCurrent();
}

/// Files are reported to the whole process; each finds the job for which it was written.
void recordWrittenFilesOfAllJobs() {
    static const auto token = VELM_Output::observeWrittenFiles([](const VELM_Output& output, const base::URL& file) {
        const auto package = output.package();
        if (!package) return;
        if (const auto job = std::dynamic_pointer_cast<const VELM_Job>(package->job()))
            job->recordWrittenFile(file.path());
    });
}

} // namespace

void VELM_Job::processJob(const Completion& completion) {
    recordWrittenFilesOfAllJobs();
    const base::Array references = jobPackages();
    if (references.empty()) {
        // There is nothing to share the run's progress among, and a job that makes nothing must not pass for done.
        const base::Error error{std::string(base::posixErrorDomain), jobs::jobErrorCode,
                                base::message("job %@ has no package references, so there is nothing to make", name())};
        if (completion)
            completion(false, error);
        else
            base::log("%@", error);
        return;
    }
    const std::int64_t remaining = progress_->totalUnitCount() - progress_->completedUnitCount();
    const auto count = static_cast<std::int64_t>(references.size());
    const std::int64_t share = remaining / count;
    const auto start = platform::run::clock()->now();
    const auto queue = platform::run::Queue::global(platform::run::QualityOfService::userInitiated);
    platform::run::Group group;
    SharedError sharedError;

    const auto runPackage = [&](const base::Dictionary& reference) {
        base::log("current queue label:%s", platform::run::currentQueueLabel());
        const VELM_Package::Ref package = VELM_Package::packageWithDictionary(reference);
        if (!package) {
            if (!completion) return;
            completeUnits(*progress_, share);
            sharedError.store(base::Error{
                std::string(base::posixErrorDomain), jobs::jobErrorCode,
                base::message("could not find package with name %@", base::valueForKey(reference, "name"))});
            return;
        }
        package->setJob(weak_from_this());
        base::log("Package \"%@\" render commencing", package->name());
        const auto progress = Progress::child(10, progress_, share);
        package->processToCompletion([&](bool success, const std::optional<base::Error>& error) {
            progress->setCompletedUnitCount(10);
            base::log("Package completed in %.2f seconds", secondsSince(start));
            if (success) return;
            sharedError.store(error);
            base::log("error:%@", error);
        });
    };
    for (const base::Value& value : references) {
        const auto* reference = value.as<base::Dictionary>();
        group.async(queue, [&runPackage, reference] { runPackage(reference ? *reference : base::Dictionary()); });
    }
    group.wait();

    if (const std::int64_t remainder = remaining - share * count; remainder != 0) completeUnits(*progress_, remainder);
    base::log("Job completed in %.2f seconds", secondsSince(start));
    if (completion) completion(false, sharedError.get());
}

void VELM_Job::processToCompletion() {
    VELM_JobFolders::processJob(shared_from_this());
}

std::vector<std::string> VELM_Job::writtenFiles() const {
    std::lock_guard lock(writtenFilesMutex_);
    return writtenFiles_;
}

void VELM_Job::recordWrittenFile(const std::string& path) const {
    std::lock_guard lock(writtenFilesMutex_);
    writtenFiles_.push_back(path);
}
