#include "OutputCheck.h"

#include "XMLReading.h"
#include "base/MessageTemplate.h"
#include "base/Path.h"
#include "base/Text.h"
#include "jobs/VELM_Package.h"
#include "output/PrinterDestinationHandler.h"
#include "output/VELM_PrintToFileSet.h"
#include "platform/draw/BitmapContext.h"

#include <filesystem>
#include <unistd.h>

namespace jobs {

using platform::data::Place;
using platform::data::XMLNodeRef;

namespace {

std::vector<XMLNodeRef> childrenNamed(const XMLNodeRef& element, std::string_view name) {
    std::vector<XMLNodeRef> named;
    if (element)
        for (const XMLNodeRef& child : element->children())
            if (child->isElement() && child->nameIs(name)) named.push_back(child);
    return named;
}

Place placeAt(const std::vector<XMLNodeRef>& elements, std::size_t index, const Place& otherwise) {
    if (index >= elements.size()) return otherwise;
    return {otherwise.file, static_cast<int>(elements[index]->line())};
}

/// The folder itself, or the one above it that is there.
std::filesystem::path nearestExisting(std::filesystem::path folder) {
    std::error_code failed;
    while (!std::filesystem::exists(std::filesystem::symlink_status(folder, failed)) && folder.has_relative_path())
        folder = folder.parent_path();
    return folder;
}

} // namespace

void OutputCheck::check(const PlannedPackage& package, const XMLNodeRef& element, const Place& place) {
    const auto elements = childrenNamed(element, "output");
    const auto outputs = package.search.package->outputs();
    if (outputs.empty())
        findings_.push_back({place, base::message("package \"%@\" has no output, so nothing is made",
                                                  quotable(package.search.package->name().value_or("")))});
    for (std::size_t index = 0; index < outputs.size(); ++index) {
        const Place outputPlace = placeAt(elements, index, place);
        checkOutput(*outputs[index], outputPlace);
        bool runs = false;
        const auto destinations = childrenNamed(index < elements.size() ? elements[index] : nullptr, "destination");
        for (const PlannedOutput& run : package.outputs) {
            if (run.index != index) continue;
            runs = true;
            for (std::size_t number = 0; number < run.files.size(); ++number)
                checkDestination(run.files[number], placeAt(destinations, number, outputPlace));
        }
        if (!runs)
            findings_.push_back(
                {outputPlace, "the output runs once for each picture in the order's <allimages>, which has none"});
    }
}

void OutputCheck::checkOutput(const VELM_Output& output, const Place& place) {
    const auto add = [&](std::string sentence) { findings_.push_back({place, std::move(sentence)}); };
    if (output.destinations().empty()) add("the output has no destination, so nothing comes of it");
    if (output.ignoresTemplates() || output.outputNodes().empty() || output.isSimpleOutlet()) return;
    if (!(output.width() > 0) || !(output.height() > 0)) {
        add("the output places pictures on a sheet and has no size, so it fails");
    } else if (!platform::draw::BitmapContext::create(output.width(), output.height(), nullptr)) {
        add(base::message("the output's size of %@ is too large to be drawn", base::stringFromSize(output.size())));
    }
    for (const auto& node : output.outputNodes())
        if (node->frames().empty())
            add(base::message("the node <%@> has no frame on the sheet, so it is not drawn", quotable(node->name())));
}

void OutputCheck::checkDestination(const PlannedFile& file, const Place& place) {
    const auto add = [&](std::string sentence) { findings_.push_back({place, std::move(sentence)}); };
    const VELM_Destination& destination = *file.destination;
    if (destination.kind() == VELM_Destination::Kind::printer && !PrinterDestinationHandler::handler())
        add("printer destinations are not supported here, so the order fails");
    if (destination.kind() != VELM_Destination::Kind::file) return;
    if (const auto set = destination.printToFileSetPathIndex(); set && !file.settings.set)
        add(base::message("there is no print-to-file set \"%@\": the product goes to %@", quotable(*set),
                          base::deletingLastPathComponent(file.path)));
    const auto maximum = file.settings.maximum;
    if (file.settings.downsample && !file.settings.isCopy && maximum && !(*maximum >= 1))
        add(base::message("the limit of %@ pixels leaves nothing of the product", base::shortestDecimal(*maximum)));
    checkFolder(base::deletingLastPathComponent(file.path), place);
    // Other names are numbered when they are taken.
    if (file.settings.set && file.settings.overwrite && !replacing_.insert(file.path).second)
        add(base::message("the set \"%@\" replaces files, and another product of the order has the path %@ too",
                          file.settings.set->name(), file.path));
}

void OutputCheck::checkFolder(const std::string& folder, const Place& place) {
    if (!folders_.insert(folder).second) return;
    const std::filesystem::path there = nearestExisting(folder);
    std::error_code failed;
    const char* why = !std::filesystem::is_directory(there, failed) ? "is no folder"
                      : access(there.c_str(), W_OK | X_OK) != 0     ? "can't be written"
                                                                    : nullptr;
    if (why)
        findings_.push_back({place, base::message("%@ %s, so no product gets to %@", there.string(), why, folder)});
}

} // namespace jobs
