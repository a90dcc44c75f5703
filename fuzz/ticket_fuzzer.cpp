// A ticket, native or foreign: read, asked for its values as a run asks, written and read again. Pictures and packages
// that it names are not there.
#include "Fuzzing.h"
#include "base/Places.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_Package.h"
#include "platform/data/XMLDocument.h"

#include <string>

using fuzzing::require;

namespace {

void askForValues(const VELM_Job& job) {
    for (const base::Value& reference : job.jobPackages()) {
        const auto* entries = reference.as<base::Dictionary>();
        require(entries != nullptr, "a package reference is a dictionary");
        const auto name = base::textForKey(*entries, "name");
        if (const auto package = base::valueForKey(*entries, "package").object<VELM_Package>())
            for (const auto& output : package->outputs())
                (void)output->description();
        for (const auto& [table, slots] : job.valuesDict())
            if (const auto* values = slots.as<base::Dictionary>())
                for (const auto& [slot, value] : *values)
                    (void)job.valueForKey(slot, name, table);
    }
}

std::string written(const VELM_Job& job) {
    return std::string(job.asXMLDocument()->xmlData(platform::data::XMLFormat::prettyPrinted).asText());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    static const bool placesSet = (base::setPlaces(base::Places::below("/nonexistent")), true);
    (void)placesSet;
    const VELM_Job::Ref job = VELM_Job::instanceWithXMLObject(fuzzing::dataOf(bytes, size));
    if (!job) return 0;
    (void)job->description();
    require(job->documentURL().path().empty() && job->isEqual(*job), "a job without a file is itself");
    require(job->version() <= VELM_Job::versionMaximum || job->jobType() != "VELM_Job",
            "a version is one that is read");
    askForValues(*job);

    // What is written loses some of what was read, once.
    const auto again = VELM_Job::instanceWithXMLObject(base::Data(written(*job)));
    require(again != nullptr, "what was written is read");
    require(written(*again) == written(*VELM_Job::instanceWithXMLObject(base::Data(written(*again)))),
            "what was written and read is written alike");
    return 0;
}
