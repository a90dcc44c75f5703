// velmctl package list: the packages of a folder, by the names under which orders find them.
#include "Command.h"
#include "Console.h"
#include "Session.h"
#include "TextForms.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "jobs/PackageSearch.h"
#include "platform/data/Collation.h"
#include "platform/data/UserDefaults.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velmctl {

namespace {

struct Request {
    std::string folder;
    bool asJSON = false;
};

using Files = std::vector<PackageFile>;

base::Value jsonOf(const Files& packages) {
    const auto textOrNull = [](std::string_view text) {
        return text.empty() ? base::Value() : base::Value(std::string(text));
    };
    base::Array entries;
    for (const PackageFile& file : packages)
        entries.emplace_back(base::Dictionary{{"name", textOrNull(file.name)},
                                              {"productCode", textOrNull(file.pluCode)},
                                              {"orientation", textOrNull(file.orientation)},
                                              {"file", file.path}});
    return entries;
}

std::size_t characterCount(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; // no continuation byte of UTF-8
    }));
}

void printTable(const Files& packages) {
    constexpr std::size_t columns = 4;
    std::vector<std::array<std::string, columns>> rows;
    std::array<std::size_t, columns> widths{};
    for (const PackageFile& file : packages) {
        auto& row = rows.emplace_back();
        const std::array<std::string_view, columns> texts{file.name, file.pluCode, file.orientation, file.path};
        for (std::size_t column = 0; column < columns; ++column) {
            row[column] = texts[column].empty() ? "-" : oneLine(texts[column]);
            widths[column] = std::max(widths[column], characterCount(row[column]));
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column + 1 < columns; ++column)
            line += row[column] + std::string(widths[column] - characterCount(row[column]) + 2, ' ');
        Console::shared().result(line + row.back());
    }
}

/// Which of them an order gets depends on the order in which they are searched.
void pointOutTwins(const Files& packages) {
    std::map<std::string, std::vector<const PackageFile*>> byName;
    for (const PackageFile& file : packages)
        byName[platform::data::foldedForm(file.lookupName())].push_back(&file);
    for (const auto& [key, twins] : byName) {
        if (twins.size() < 2) continue;
        std::string line = std::to_string(twins.size()) + " files go by the name " + twins.front()->lookupName() + ":";
        for (const PackageFile* twin : twins)
            line += " " + twin->path + (twin == twins.back() ? "" : ",");
        Console::shared().diagnostic(oneLine(line));
    }
}

int list(const Request& request) {
    std::string folder = request.folder;
    if (folder.empty())
        folder = platform::data::UserDefaults::standard().stringForKey(key_velmFolderPackages).value_or("");
    Files packages = packagesInFolder(folder);
    const auto others = std::stable_partition(packages.begin(), packages.end(),
                                              [](const PackageFile& file) { return file.problem.empty(); });
    const Files problems(others, packages.end());
    packages.erase(others, packages.end());
    if (problems.size() == 1 && problems.front().path == folder) {
        Console::shared().diagnostic(oneLine("FAILED " + folder + ": " + problems.front().problem));
        return exitFailure;
    }
    std::stable_sort(packages.begin(), packages.end(), [](const PackageFile& left, const PackageFile& right) {
        const auto shown = [](const PackageFile& file) {
            return base::lowercase(file.name.empty() ? file.pluCode : file.name);
        };
        return shown(left) < shown(right);
    });
    if (request.asJSON)
        Console::shared().result(jsonText(jsonOf(packages)));
    else
        printTable(packages);
    for (const PackageFile& file : problems)
        Console::shared().diagnostic(oneLine(file.path + ": " + file.problem));
    pointOutTwins(packages);
    return exitSuccess;
}

} // namespace

void declarePackage(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("package", "Look into a folder of packages");
    command->require_subcommand(0, 1);
    const auto request = std::make_shared<Request>();
    CLI::App* listing = command->add_subcommand("list", "List the packages of a folder and of those below it");
    listing->add_option("FOLDER", request->folder, "The folder; the Packages folder of the tree when absent")
        ->type_name("");
    listing->add_flag("--json", request->asJSON, "One JSON array");
    listing->footer("Prints name, product code, orientation (PRT standing, LS lying, - any) and file, sorted by name.\n"
                    "Files that are no packages, and names that several files have, are told on standard error.\n");
    listing->callback([=] { chosen(Session::withEngine([=] { return list(*request); })); });
}

} // namespace velmctl
