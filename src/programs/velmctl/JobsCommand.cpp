// velmctl jobs list: what waits in the watched folders, whether or not an engine runs.
#include "Command.h"
#include "Console.h"
#include "Session.h"
#include "TextForms.h"
#include "base/Value.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/data/Dates.h"

#include <memory>
#include <string>

namespace velmctl {

namespace {

base::URL itemOf(const VELM_Job& job) {
    return job.urlJobContainer().value_or(job.documentURL());
}

base::Value listingValue(const VELM_JobFolders::FolderListing& listing) {
    base::Array jobs;
    for (const VELM_Job::Ref& job : listing.jobs) {
        jobs.emplace_back(base::Dictionary{{"name", job->name()},
                                           {"package", job->packageLabel()},
                                           {"date", job->dateStarted()},
                                           {"settling", VELM_JobFolders::isSettling(job)},
                                           {"path", itemOf(*job).path()}});
    }
    base::Array unreadable;
    for (const auto& [item, error] : listing.unreadable)
        unreadable.emplace_back(base::Dictionary{{"path", item.path()}, {"reason", error.localizedDescription}});
    return base::Dictionary{{"jobs", std::move(jobs)}, {"unreadable", std::move(unreadable)}};
}

int listJobs(const Options& options, bool asJSON) {
    const Session session(options);
    VELM_JobFolders::keepStill();
    const VELM_JobFolders::FolderListing listing = VELM_JobFolders::listingOfEnabledFolders();
    Console& console = Console::shared();
    if (asJSON) {
        console.result(jsonText(listingValue(listing)));
        return exitSuccess;
    }
    for (const VELM_Job::Ref& job : listing.jobs) {
        const std::string date = platform::data::stringWithUTSFormat(job->dateStarted(), "yyyy-MM-dd HH:mm:ss");
        const std::string state = VELM_JobFolders::isSettling(job) ? "settling" : "ready   ";
        const auto label = job->packageLabel();
        console.result(date + "  " + state + "  " + oneLine(job->name()) +
                       (label ? " (" + oneLine(*label) + ")" : std::string()) + " -> " + oneLine(itemOf(*job).path()));
    }
    for (const auto& [item, error] : listing.unreadable)
        console.result("unreadable " + oneLine(item.path(), error));
    return exitSuccess;
}

} // namespace

void declareJobs(CLI::App& app, const Chosen& chosen) {
    CLI::App* jobs = app.add_subcommand("jobs", "Look at the orders that wait in the watched folders");
    CLI::App* list = jobs->add_subcommand("list", "List them, oldest first, and what can't be read");
    list->footer(
        "Prints `DATE  STATE  NAME (PACKAGE) -> PATH` for each order of the enabled folders, by the date of its\n"
        "ticket. The state is `settling` while the order's files are not yet still for as long as its folder\n"
        "asks, else `ready`. After them `unreadable PATH: reason` for what looks like an order but is none.\n"
        "The folders are only read: nothing is started, moved or made.\n");
    const auto asJSON = std::make_shared<bool>(false);
    list->add_flag(
        "--json", *asJSON,
        "As a document: `jobs` with `name`, `package`, `date`, `settling`, `path`; `unreadable` with `path`, "
        "`reason`");
    list->callback(
        [asJSON, chosen] { chosen([asJSON](const Options& options) { return listJobs(options, *asJSON); }); });
}

} // namespace velmctl
