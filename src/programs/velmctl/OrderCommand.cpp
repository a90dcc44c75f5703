// velmctl order show|check: what an order holds and would do, and what is wrong with it, without running it.
#include "Command.h"
#include "Console.h"
#include "OrderListing.h"
#include "Session.h"
#include "TextForms.h"
#include "base/Path.h"
#include "jobs/OrderCheck.h"
#include "jobs/OrderPlan.h"
#include "jobs/OrderReport.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace velmctl {

namespace {

struct Request {
    std::vector<std::string> orders;
    bool asJSON = false;
};

int fail(const std::string& order, const base::Error& error) {
    Console::shared().diagnostic(oneLine("FAILED " + order + ": " + error.localizedDescription));
    return exitFailure;
}

int show(const Request& request) {
    const std::string& order = request.orders.front();
    const auto job = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(order));
    if (!job) return fail(order, job.error());
    const OrderPlan plan = planOfOrder(*job);
    const std::vector<std::string> lines = request.asJSON ? std::vector{jsonText(orderValue(plan))} : orderLines(plan);
    for (const std::string& line : lines)
        Console::shared().result(line);
    return exitSuccess;
}

/// The ticket as it was asked for, all other files by their paths.
std::string line(const OrderReport::Finding& finding, const base::URL& asked, const std::string& order) {
    std::string file = finding.place.file;
    if (file.empty() || file == asked.path())
        file = order;
    else if (file == asked.appendingPathComponent("job.xml").path())
        file = base::appendingPathComponent(order, "job.xml");
    return oneLine(file + ":" + std::to_string(finding.place.line) + ": " + finding.message);
}

int checkOrder(const std::string& order) {
    const base::URL url = base::URL::fileURLWithPath(order);
    OrderReport report;
    const auto job = VELM_Job::jobWithContentsOfURL(url, &report);
    const auto findings = job ? findingsOfOrder(planOfOrder(*job, &report), report) : report.findings();
    for (const auto& finding : findings)
        Console::shared().result(line(finding, url, order));
    if (!job) return fail(order, job.error());
    if (findings.empty()) Console::shared().result(oneLine(order + ": no findings"));
    return findings.empty() ? exitSuccess : exitFailure;
}

int check(const Request& request) {
    int status = exitSuccess;
    for (const std::string& order : request.orders)
        status = std::max(status, checkOrder(order));
    return status;
}

} // namespace

void declareOrder(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("order", "Look into orders and check them, without running them");
    command->require_subcommand(0, 1);
    const auto request = std::make_shared<Request>();
    const auto declare = [&](const char* name, const char* description, int (*work)(const Request&), int mostOrders) {
        CLI::App* action = command->add_subcommand(name, description);
        action->add_option("ORDER", request->orders, "A job bundle (*.velm_job), a ticket, or a Sorrel ticket")
            ->required()
            ->expected(1, mostOrders)
            ->type_name("");
        action->callback([=] { chosen(Session::withEngine([=] { return work(*request); })); });
        return action;
    };

    CLI::App* showing =
        declare("show", "Print what was read, which package serves, what fills the holes, what is written", show, 1);
    showing->footer("In the names of files that would be written, {date} stands for the time.\n");
    showing->add_flag("--json", request->asJSON, "One JSON object");

    constexpr int anyNumber = CLI::detail::expected_max_vector_size;
    declare("check", "Tell what would fail or be left out", check, anyNumber)
        ->footer("Prints \"FILE:LINE: what is wrong\", a line each; the exit status is 1 when there is anything.\n");
}

} // namespace velmctl
