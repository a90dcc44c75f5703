// velmctl init: makes the folders and says where they are.
#include "Command.h"
#include "Console.h"
#include "Session.h"
#include "app/Logger.h"
#include "app/VELM.h"
#include "base/Places.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/data/FileTypes.h"

#include <string>
#include <string_view>

namespace velmctl {

namespace {

constexpr std::size_t nameWidth = 20;

void printPlace(std::string_view name, const std::string& path) {
    std::string line(name);
    line.resize(std::max(nameWidth, line.size() + 1), ' ');
    Console::shared().result(line + path);
}

/// Makes the folder and prints it, or says why it can't be.
bool establish(std::string_view name, const base::URL& url) {
    std::string reason;
    if (!VELM::makeDirectory(url, [&](const base::Error& error) { reason = error.localizedDescription; })) {
        Console::shared().diagnostic(reason);
        return false;
    }
    printPlace(name, url.path());
    return true;
}

int makeFolders() {
    bool allWell = true;
    for (const VELM::Folder& folder : VELM::folders()) {
        constexpr std::string_view prefix = "velmDirectory";
        const std::string_view name = folder.name.substr(prefix.size());
        allWell &= establish(name.empty() ? "VELM" : name, folder.url());
    }
    // The run flag may stand from an earlier day: orders that wait are not for this command to run.
    VELM_JobFolders::stopStartingJobs();
    for (const VELM_JobFolders::Ref& folder : VELM_JobFolders::enabledFolders()) {
        const bool takesBundles = folder->jobFileUTType() == platform::data::kUTType_VELM_Job;
        allWell &= establish(takesBundles ? "watched (velm_job)" : "watched (xml)", folder->urlOfJobs());
    }
    printPlace("settings", base::places().settings);
    printPlace("log", Logger::defaultLogFileVELM().path());
    return allWell ? exitSuccess : exitFailure;
}

} // namespace

void declareInit(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("init", "Make the folder tree and print where each folder is");
    command->callback([chosen] { chosen(Session::withEngine(makeFolders)); });
}

} // namespace velmctl
