// The packages that a folder holds, and why a file is none.
#include "jobs/PackageSearch.h"

#include "base/Text.h"
#include "internal/FolderEnumeration.h"
#include "internal/PackageFileReading.h"
#include "jobs/VELM_Package.h"
#include "platform/data/TextEncoding.h"
#include "platform/data/XMLDocument.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

namespace jobs {

std::string whyUnreadable(const std::string& path) {
    const auto text = platform::data::readTextDetectingEncoding(base::URL::fileURLWithPath(path));
    return text ? "the file is empty" : text.error().localizedDescription;
}

std::string whyNoPackage(VELM_Package& candidate, const std::optional<base::Error>& readingError) {
    if (readingError) return readingError->localizedDescription;
    if (candidate.xmlDoc()) return "it has neither product code nor name";
    const auto parsed = platform::data::XMLDocument::parse(candidate.xmlString().value_or(""));
    return "it can't be parsed: " + (parsed ? "" : parsed.error().localizedDescription);
}

} // namespace jobs

namespace {

std::string_view orientationOf(std::string_view name) {
    for (const std::string_view suffix : {jobs::suffixPortrait, jobs::suffixLandscape})
        if (name.size() > suffix.size() && base::equalIgnoringCase(name.substr(name.size() - suffix.size()), suffix))
            return suffix;
    return {};
}

/// The text of the last child element of that name, which takes the place of an attribute.
void takeChild(const platform::data::XMLNode& root, std::string_view name, std::string& value) {
    for (const auto& child : root.children())
        if (child->isElement() && child->nameIs(name)) value = child->stringValue();
}

PackageFile packageFileAt(const std::string& path) {
    PackageFile file{.path = path};
    const auto package = VELM_Package::instanceWithXMLObject(base::URL::fileURLWithPath(path));
    if (!package) {
        file.problem = jobs::whyUnreadable(path);
        return file;
    }
    std::optional<base::Error> readingError;
    package->parseXML([&](VELM_Package&, const std::optional<base::Error>& error, bool& stop) {
        readingError = error;
        stop = true; // its templates and outputs are not asked for
    });
    file.name = package->name().value_or("");
    file.pluCode = package->pluCode().value_or("");
    if (const auto& document = package->xmlDoc(); document && !readingError) {
        takeChild(*document->rootElement(), "name", file.name);
        takeChild(*document->rootElement(), "plucode", file.pluCode);
    }
    file.orientation = orientationOf(file.lookupName());
    const bool isFound = package->xmlDoc() && !file.lookupName().empty();
    if (!isFound || readingError) file.problem = jobs::whyNoPackage(*package, readingError);
    if (isFound && readingError) file.problem += "; an order finds it all the same, and makes nothing of it";
    return file;
}

} // namespace

bool PackageSearch::isWorthTelling(const PassedOver& passed) const {
    std::error_code failed;
    return std::find(folders.begin(), folders.end(), passed.path) == folders.end() ||
           std::filesystem::exists(passed.path, failed);
}

std::vector<PackageFile> packagesInFolder(const std::string& folder) {
    std::vector<PackageFile> files;
    jobs::enumerateFolder(
        folder, jobs::Depth::deep,
        [&](const jobs::FolderItem& item) {
            if (item.isRegularFile)
                files.push_back(packageFileAt(item.path));
            else if (!item.isFolder)
                files.push_back({.path = item.path, .problem = "it is not a regular file"});
            return true;
        },
        [&](const std::string& path, const base::Error& error) {
            files.push_back({.path = path, .problem = error.localizedDescription});
            return true;
        });
    return files;
}
