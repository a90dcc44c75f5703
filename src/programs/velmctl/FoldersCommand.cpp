// velmctl folders: the list of the watched folders, and its changes. The list is kept in the settings; an engine that
// runs holds its own copy, which it saves over them, so that the list is changed only while none runs.
#include "Command.h"
#include "Console.h"
#include "Session.h"
#include "TextForms.h"
#include "app/SingleInstance.h"
#include "base/Path.h"
#include "base/Value.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/data/FileTypes.h"

#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace velmctl {

namespace {

using Folder = VELM_JobFolders::Ref;

struct Request {
    std::string name;
    std::string folder;
    std::optional<double> settleSeconds;
    bool isDisabled = false;
    bool asJSON = false;
};

/// The change that one of the commands makes: the folder that it concerned.
using Change = base::Result<Folder> (*)(const Request& request);

tl::unexpected<base::Error> refused(const std::string& reason) {
    return base::failure(base::posixErrorDomain, EINVAL, reason);
}

// Showing --------------------------------------------------------------------------------------------------------

std::string line(const Folder& folder) {
    std::string takes = folder->jobFileUTType() == platform::data::kUTTypeXML ? "XML tickets" : "job bundles";
    if (const double seconds = folder->settleSeconds(); seconds > 0)
        takes += ", still for " + base::Value(seconds).description() + " s";
    return std::string(folder->enabled() ? "enabled   " : "disabled  ") + oneLine(folder->name()) + " -> " +
           oneLine(folder->urlOfJobs().path()) + " (" + takes + ")";
}

base::Value valueOf(const Folder& folder) {
    return base::Dictionary{{"name", folder->name()},
                            {"enabled", folder->enabled()},
                            {"type", folder->jobFileUTType()},
                            {"folder", folder->URL().path()},
                            {"watched", folder->urlOfJobs().path()},
                            {"settleSeconds", folder->settleSeconds()}};
}

std::vector<Folder> allFolders() {
    std::vector<Folder> folders;
    for (const auto& set : VELM_JobFolders::classObject().folderSets())
        if (auto folder = std::dynamic_pointer_cast<VELM_JobFolders>(set)) folders.push_back(std::move(folder));
    return folders;
}

/// A list that can't be read counts as an empty one, and the next change would replace it.
bool listIsReadable() {
    const auto saved = VELM_JobFolders::classObject().readSavedData();
    if (saved) return true;
    Console::shared().diagnostic("the saved list of folders can't be read: " + saved.error().localizedDescription);
    return false;
}

int listFolders(const Options& options, const Request& request) {
    const Session session(options);
    VELM_JobFolders::keepStill();
    if (!listIsReadable()) return exitFailure;
    base::Array values;
    for (const Folder& folder : allFolders()) {
        values.push_back(valueOf(folder));
        if (!request.asJSON) Console::shared().result(line(folder));
    }
    if (request.asJSON) Console::shared().result(jsonText(base::Dictionary{{"folders", std::move(values)}}));
    return exitSuccess;
}

// Changing -------------------------------------------------------------------------------------------------------

base::Result<Folder> folderNamed(const std::string& name) {
    if (auto folder =
            std::dynamic_pointer_cast<VELM_JobFolders>(VELM_JobFolders::classObject().folderSetWithName(name)))
        return folder;
    return refused("there is no folder of the name " + name);
}

/// As it is compared: links followed as far as there is something.
std::string realPath(const std::string& path) {
    std::error_code failed;
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, failed);
    std::string text = failed ? path : real.string();
    while (text.size() > 1 && text.ends_with('/'))
        text.pop_back();
    return text;
}

base::Result<Folder> addFolder(const Request& request) {
    if (request.name.empty()) return refused("a folder needs a name");
    std::error_code failed;
    const std::string path =
        base::standardizingPath(std::filesystem::absolute(request.folder, failed).lexically_normal().string());
    if (request.folder.empty() || failed) return refused("no folder is named");
    if (std::filesystem::exists(path, failed) && !std::filesystem::is_directory(path, failed))
        return refused(path + " is not a folder");
    for (const Folder& other : allFolders())
        if (realPath(other->urlOfJobs().path()) == realPath(path))
            return refused(path + " is the folder of " + other->name() + " already: its orders would run twice");

    const auto folder = VELM_JobFolders::initWithName(request.name, base::URL::fileURLWithPath(path));
    folder->setJobFileUTType(platform::data::kUTTypeXML); // what every added folder takes from its next load on
    if (request.settleSeconds) folder->setSettleSeconds(*request.settleSeconds);
    if (request.isDisabled) folder->setEnabled(false);
    VELM_JobFolders::classObject().addFolderSet(folder);
    return folder;
}

base::Result<Folder> removeFolder(const Request& request) {
    auto folder = folderNamed(request.name);
    if (!folder) return folder;
    if ((*folder)->hasFixedName()) return refused((*folder)->name() + " can't be removed; it can be disabled");
    VELM_JobFolders::classObject().removeFolderSet(*folder);
    return folder;
}

base::Result<Folder> enableFolder(const Request& request) {
    auto folder = folderNamed(request.name);
    if (folder) (*folder)->setEnabled(true);
    return folder;
}

base::Result<Folder> disableFolder(const Request& request) {
    auto folder = folderNamed(request.name);
    if (folder) (*folder)->setEnabled(false);
    return folder;
}

base::Result<Folder> setFolder(const Request& request) {
    auto folder = folderNamed(request.name);
    if (folder) (*folder)->setSettleSeconds(*request.settleSeconds);
    return folder;
}

int changeList(const Options& options, const Request& request, Change change) {
    const Session session(options);
    const auto complain = [](const base::Error& error) {
        Console::shared().diagnostic(error.localizedDescription);
        return exitFailure;
    };
    const auto lock = app::SingleInstance::take();
    if (!lock && lock.error().code == EWOULDBLOCK)
        Console::shared().diagnostic("the list can't be changed while an engine runs, which holds its own: end it "
                                     "first, and start it again after the change");
    if (!lock) return complain(lock.error());
    VELM_JobFolders::keepStill();
    if (!listIsReadable()) return exitFailure;
    return Session::runBesideMainQueue([&] {
        const base::Result<Folder> folder = change(request);
        if (!folder) return complain(folder.error());
        if (const auto saved = VELM_JobFolders::classObject().saveNow(); !saved) return complain(saved.error());
        Console::shared().result(change == removeFolder ? "removed   " + oneLine((*folder)->name()) : line(*folder));
        return exitSuccess;
    });
}

/// Seconds that are a number, not negative, and no longer than a day.
std::string problemWithSeconds(const std::string& text) {
    constexpr double longest = 24 * 60 * 60;
    double seconds = -1;
    if (CLI::detail::lexical_cast(text, seconds) && seconds >= 0 && seconds <= longest) return {};
    return "SECONDS is a number from 0 to 86400, not " + text;
}

} // namespace

void declareFolders(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("folders", "List and change the watched folders");
    command->require_subcommand(0, 1);
    command->footer("The list can be changed while no engine runs; `watch` takes it at its next start.\n");
    const auto request = std::make_shared<Request>();

    CLI::App* list = command->add_subcommand("list", "List them");
    list->footer(
        "Prints `STATE  NAME -> FOLDER (ORDERS)` for each folder: `enabled` or `disabled`, the folder that is\n"
        "looked at, and whether it takes job bundles or XML tickets, with how long an order's files must be\n"
        "still before it is started, if at all.\n");
    list->add_flag("--json", request->asJSON,
                   "As a document: `folders` with `name`, `enabled`, `type`, `folder`, `watched`, `settleSeconds`");
    list->callback(
        [request, chosen] { chosen([request](const Options& options) { return listFolders(options, *request); }); });

    const auto declare = [&](const char* name, const char* description, Change change) {
        CLI::App* action = command->add_subcommand(name, description);
        action->footer("Prints the folder as `list` does.\n");
        action->add_option("NAME", request->name, "The folder's name, in small or capital letters")
            ->required()
            ->type_name("");
        action->callback([request, change, chosen] {
            chosen([request, change](const Options& options) { return changeList(options, *request, change); });
        });
        return action;
    };
    const auto declareSettling = [&](CLI::App* action) {
        return action
            ->add_option("--settle", request->settleSeconds,
                         "How long an order's files must have been still before it is started; 0: not at all")
            ->type_name("SECONDS")
            ->check(problemWithSeconds);
    };
    CLI::App* adding = declare("add", "Watch one more folder, for XML tickets", addFolder);
    adding->footer("Prints the folder as `list` does, with the name that it got: one that is taken is numbered on.\n"
                   "A folder that does not exist is made when the engine starts.\n");
    adding->add_option("FOLDER", request->folder, "The folder")->required()->type_name("");
    adding->add_flag("--disabled", request->isDisabled, "List it, but don't watch it yet");
    declareSettling(adding);
    declare("remove", "Take a folder from the list; what is in it stays", removeFolder)
        ->footer("A folder of fixed name can be disabled only.\n");
    declare("enable", "Watch a folder", enableFolder);
    declare("disable", "Don't watch a folder", disableFolder);
    declareSettling(declare("set", "Change a folder's settings", setFolder))->required();
}

} // namespace velmctl
