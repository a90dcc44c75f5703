// velmctl process ORDER...: runs orders now, where they lie.
#include "Command.h"
#include "Console.h"
#include "Session.h"
#include "TextForms.h"
#include "base/Path.h"
#include "jobs/VELM_Job.h"
#include "output/VELM_Output.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmctl {

namespace {

/// The reason when the order failed.
std::optional<std::string> processOrder(const std::string& order) {
    const base::Result<VELM_Job::Ref> job = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(order));
    if (!job) return job.error().localizedDescription;
    const ProgressDisplay display((*job)->name(), (*job)->progress());
    std::optional<base::Error> failure;
    (*job)->processJob([&](bool, const std::optional<base::Error>& error) { failure = error; });
    if (!failure) return std::nullopt;
    return failure->localizedDescription;
}

int processOrders(const std::vector<std::string>& orders) {
    const auto printing = VELM_Output::observeWrittenFiles(
        [](const VELM_Output&, const base::URL& file) { Console::shared().result(file.path()); });
    bool allWell = true;
    for (const std::string& order : orders) {
        const std::optional<std::string> reason = processOrder(order);
        if (!reason) continue;
        Console::shared().diagnostic(oneLine("FAILED " + order + ": " + *reason));
        allWell = false;
    }
    return allWell ? exitSuccess : exitFailure;
}

} // namespace

void declareProcess(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("process", "Run orders now, without moving them");
    command->footer("Prints the path of each file that it writes, one a line, and on standard error\n"
                    "`FAILED ORDER: reason` for each order that fails.\n");
    const auto orders = std::make_shared<std::vector<std::string>>();
    command->add_option("ORDER", *orders, "A job bundle (*.velm_job), a ticket, or a Sorrel ticket")
        ->required()
        ->type_name("");
    command->callback([=] { chosen(Session::withEngine([=] { return processOrders(*orders); })); });
}

} // namespace velmctl
