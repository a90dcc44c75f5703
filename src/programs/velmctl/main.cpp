// velmctl: the engine without a window. Reads the command line and runs the chosen command.
#include "Command.h"
#include "Console.h"
#include "Session.h"

#include <filesystem>
#include <iostream>
#include <string>

namespace {

using velmctl::Options;

int parseAndRun(int count, char** arguments) {
    CLI::App app("The photo-order processing system, for servers, scripts and tests.", "velmctl");
    app.set_version_flag("--version", "velmctl " VELM_VERSION);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    Options options;
    app.add_option("--home", options.home, "Keep everything below DIR: DIR/VELM, DIR/Settings, DIR/Logs")
        ->type_name("DIR");
    app.add_flag("--verbose", options.verbose, "Show the log on standard error");
    app.require_subcommand(0, 1); // what is missing is told below: an unknown word has its own message then
    app.fallthrough();
    app.footer("Exit status: 0 success, 1 an order or a file failed, 2 wrong usage.\n"
               "velmctl COMMAND --help explains a command.\n");

    velmctl::Run run;
    const velmctl::Chosen chosen = [&](velmctl::Run work) { run = std::move(work); };
    velmctl::declareProcess(app, chosen);
    velmctl::declareWatch(app, chosen);
    velmctl::declareInit(app, chosen);
    velmctl::declareRender(app, chosen);
    velmctl::declareTemplate(app, chosen);
    velmctl::declarePackage(app, chosen);
    velmctl::declareJobs(app, chosen);
    velmctl::declareFolders(app, chosen);
    velmctl::declareDefaults(app, chosen);
    velmctl::declareImage(app, chosen);
    velmctl::declareCode(app, chosen);
    velmctl::declareOrder(app, chosen);
    velmctl::declarePage(app, chosen);
    velmctl::declareDnp(app, chosen);

    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        // Help and version come this way too, with a status of 0.
        return app.exit(error) == 0 ? velmctl::exitSuccess : velmctl::exitUsage;
    }
    if (!run) {
        std::string words = app.get_name();
        for (const CLI::App* last = &app; !last->get_subcommands().empty();) {
            last = last->get_subcommands().front();
            words += " " + last->get_name();
        }
        std::cerr << "A command is required: " << words << " --help lists them\n";
        return velmctl::exitUsage;
    }
    if (!options.home.empty()) {
        std::error_code failed;
        options.home = std::filesystem::absolute(options.home, failed).lexically_normal().string();
        while (options.home.size() > 1 && options.home.ends_with('/'))
            options.home.pop_back();
    }
    return run(options);
}

} // namespace

int main(int count, char** arguments) {
    const int status = parseAndRun(count, arguments);
    const bool isLost = status == velmctl::exitSuccess && velmctl::Console::shared().resultsAreLost();
    velmctl::Session::endProcess(isLost ? velmctl::exitFailure : status);
}
