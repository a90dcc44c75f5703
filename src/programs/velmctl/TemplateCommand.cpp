// velmctl template show|check|format: what a template file holds, what is wrong with it, the same in its tidy form.
#include "Command.h"
#include "Console.h"
#include "OrderFilling.h"
#include "Session.h"
#include "TemplateListing.h"
#include "TextForms.h"
#include "base/Path.h"
#include "platform/data/TextEncoding.h"
#include "template/TemplateCheck.h"
#include "template/TemplateLosses.h"
#include "template/TemplateReport.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace velmctl {

namespace {

using Findings = std::vector<TemplateReport::Finding>;

struct Request {
    std::vector<std::string> files;
    bool asJSON = false;
    std::string output;
    bool isForced = false;
    std::string order;

    const std::string& file() const { return files.front(); }
};

/// A document with what its reading met.
struct Opened {
    VELM_Template::Ref document;
    TemplateReport report;
    OrderFilling order;

    std::string path() const { return document->documentURL().value_or(base::URL()).path(); }
    bool hasBody() const { return static_cast<bool>(document->value(VELM_XML_Key_layers)); }
};

std::string whyUnreadable(const std::string& path) {
    std::error_code failed;
    if (!std::filesystem::exists(path, failed)) return "no such template";
    const auto text = platform::data::readTextDetectingEncoding(base::URL::fileURLWithPath(path));
    return text ? "the file is empty" : text.error().localizedDescription;
}

base::Result<Opened> open(const std::string& path, const OrderFilling& order) {
    Opened opened{.order = order};
    opened.document = VELM_Template::templateWithPath(path, false, order.container(), &opened.report);
    if (!opened.document) return base::failure(base::cocoaErrorDomain, 1, whyUnreadable(path));
    if (order.package) opened.document->setPackage(order.package);
    return opened;
}

base::Result<Opened> openWithBody(const Request& request) {
    const auto order = OrderFilling::ofOrder(request.order);
    if (!order) return base::failure(order.error());
    auto opened = open(request.file(), *order);
    if (opened && !opened->hasBody())
        return base::failure(
            base::cocoaErrorDomain, 1,
            "the file holds no template: its root has no layout (or node, portrait, landscape, square)");
    return opened;
}

int fail(const std::string& file, const base::Error& error) {
    Console::shared().diagnostic(oneLine("FAILED " + file + ": " + error.localizedDescription));
    return exitFailure;
}

/// The document's own file as it was asked for, all others by their paths.
std::string line(const TemplateReport::Finding& finding, const Opened& opened, const std::string& file) {
    const std::string& path = finding.place.file;
    return oneLine((path.empty() || path == opened.path() ? file : path) + ":" + std::to_string(finding.place.line) +
                   ": " + finding.message);
}

// -- Show ------------------------------------------------------------------------------------------------------------

int show(const Request& request) {
    const auto opened = openWithBody(request);
    if (!opened) return fail(request.file(), opened.error());
    VELM_Template& document = *opened->document;
    const std::vector<std::string> lines =
        request.asJSON ? std::vector{jsonText(templateValue(document))} : templateLines(document, opened->report);
    for (const std::string& each : lines)
        Console::shared().result(each);
    return exitSuccess;
}

// -- Check -----------------------------------------------------------------------------------------------------------

int checkFile(const std::string& file, const OrderFilling& order) {
    const auto opened = open(file, order);
    if (!opened) return fail(file, opened.error());
    const Findings findings = findingsOfTemplate(*opened->document, opened->report);
    for (const auto& finding : findings)
        Console::shared().result(line(finding, *opened, file));
    if (findings.empty()) Console::shared().result(oneLine(file + ": no findings"));
    return findings.empty() ? exitSuccess : exitFailure;
}

int check(const Request& request) {
    const auto order = OrderFilling::ofOrder(request.order);
    if (!order) return fail(request.order, order.error());
    int status = exitSuccess;
    for (const std::string& file : request.files)
        status = std::max(status, checkFile(file, *order));
    return status;
}

// -- Format ----------------------------------------------------------------------------------------------------------

int format(const Request& request) {
    const std::string& file = request.file();
    const auto opened = openWithBody(request);
    if (!opened) return fail(file, opened.error());
    std::error_code failed;
    const bool isInPlace =
        request.output.empty() || std::filesystem::equivalent(opened->path(), request.output, failed);
    const base::URL target = isInPlace ? *opened->document->documentURL() : base::URL::fileURLWithPath(request.output);

    const Findings lost = lossesOfSaving(*opened->document, opened->report, opened->order.container());
    for (const auto& finding : lost)
        Console::shared().diagnostic(line(finding, *opened, file));
    if (isInPlace && !lost.empty() && !request.isForced)
        return fail(file, {std::string(base::cocoaErrorDomain), 1,
                           "left as it is, for this would be lost; --force writes it, -o writes another file"});
    if (const auto written = opened->document->writeToURL(target); !written) return fail(file, written.error());
    Console::shared().result(oneLine(target.path()));
    return exitSuccess;
}

} // namespace

void declareTemplate(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("template", "Look into template files, check them, write them tidily");
    command->require_subcommand(0, 1);
    const auto request = std::make_shared<Request>();
    const auto declare = [&](const char* name, const char* description, int (*work)(const Request&), int mostFiles) {
        CLI::App* action = command->add_subcommand(name, description);
        action->add_option("FILE", request->files, "A template file, or its name in the Templates folder")
            ->required()
            ->expected(1, mostFiles)
            ->type_name("");
        action->add_option("--order", request->order, "Look in this order, too, for nested files and pictures")
            ->type_name("ORDER");
        action->callback([=] { chosen(Session::withEngine([=] { return work(*request); })); });
        return action;
    };

    CLI::App* showing = declare("show", "Print the layers, each value and where it came from", show, 1);
    showing->add_flag("--json", request->asJSON, "One JSON object");

    constexpr int anyNumber = CLI::detail::expected_max_vector_size;
    declare("check", "Tell what reading drops and what drawing will miss", check, anyNumber)
        ->footer("Prints \"FILE:LINE: what is wrong\", a line each; the exit status is 1 when there is anything.\n");

    CLI::App* formatting = declare("format", "Read a template and write it back", format, 1);
    formatting->footer("Prints the path that was written, and on standard error what the file holds and its new form\n"
                       "does not. A file that would lose anything is not replaced without --force.\n");
    formatting->add_option("-o,--output", request->output, "The file to write, in place of FILE itself")
        ->check([](const std::string& path) { return path.empty() ? "it names no file" : ""; })
        ->type_name("OUT");
    formatting->add_flag("--force", request->isForced, "Replace FILE even when something is lost");
}

} // namespace velmctl
