// Finding the package that a ticket names, by that name and the orientation of its picture.
#include "jobs/VELM_Package.h"

#include "base/Log.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "imaging/KLARON_Image.h"
#include "internal/FolderEnumeration.h"
#include "platform/data/FileTypes.h"
#include "platform/data/UserDefaults.h"

using base::equalIgnoringCase;

namespace {

struct PackageNames {
    std::optional<std::string> base;
    std::optional<std::string> oriented; ///< The base name with the suffix of the picture's orientation.
};

/// A square picture, and none, count as lying.
bool isPortrait(const base::Value& image, const base::URL* jobContainer) {
    auto opened = KLARON_Image::imageWithObject(image);
    if (!opened && jobContainer)
        opened = KLARON_Image::imageWithObject(
            jobContainer->appendingPathComponent("Images").appendingPathComponent(image.textOr("")));
    if (!opened) return false;
    const base::Size size = KLARON_Image::orientedSizeForImage(opened);
    return size.height > size.width;
}

class FolderSearch {
public:
    FolderSearch(const PackageNames& names, const base::URL* jobContainer)
        : names_(names), jobContainer_(jobContainer ? base::Value(*jobContainer) : base::Value()) {}

    /// The package of the oriented name, else the last one of the base name, else null.
    VELM_Package::Ref packageInFolder(const std::string& folder) {
        jobs::enumerateFolder(
            folder, jobs::Depth::deep,
            [this](const jobs::FolderItem& item) { return !item.isRegularFile || !examine(item.path); },
            [](const std::string& path, const base::Error& error) {
                base::log("Failed enumeration at %@ with error:%@", base::URL::fileURLWithPath(path), error);
                return false;
            });
        return found_ ? found_ : fallback_;
    }

private:
    /// Answers whether the search of the folder ends with this file.
    bool examine(const std::string& path) {
        const base::URL url = base::URL::fileURLWithPath(path);
        base::log("Scanning package file %@ with type %@", url, platform::data::typeIdentifierOfFile(url));
        const VELM_Package::Ref candidate = VELM_Package::instanceWithXMLObject(url);
        if (!candidate) return false;
        candidate->setValue("urlJobContainer", jobContainer_);

        bool isFound = false;
        bool isFallback = false;
        bool isSkipped = false;
        std::optional<std::string> name;
        candidate->parseXML([&](VELM_Package& package, const std::optional<base::Error>&, bool& stop) {
            name = package.pluCode();
            if (!name) name = package.name();
            if (!name) return;
            if (names_.oriented && equalIgnoringCase(*name, *names_.oriented)) {
                isFound = true;
            } else if (!names_.base || !equalIgnoringCase(*name, *names_.base)) {
                isSkipped = true;
                stop = true;
            } else {
                isFallback = true;
                base::log("Found fallback package named %@ at %@", name, url);
            }
        });
        if (isSkipped) {
            base::log("Skipping package named %@ at %@", name, url);
            return false;
        }
        // The name was read off the start of the text; a file that can't be parsed beyond that is no package.
        if (!(isFound || isFallback) || !candidate->xmlDoc()) return false;
        if (!isFound) {
            fallback_ = candidate;
            return false;
        }
        base::log("Found package named %@ at %@", name, url);
        found_ = candidate;
        return true;
    }

    const PackageNames& names_;
    const base::Value jobContainer_;
    VELM_Package::Ref found_;
    VELM_Package::Ref fallback_;
};

} // namespace

VELM_Package::Ref VELM_Package::packageWithDictionary(const base::Dictionary& reference) {
    if (auto inlinePackage = base::valueForKey(reference, "package").object<VELM_Package>()) return inlinePackage;
    const auto* jobContainer = base::valueForKey(reference, "job").as<base::URL>();
    PackageNames names;
    names.base = base::textForKey(reference, "plucode");
    if (!names.base) names.base = base::textForKey(reference, "name");
    const auto* slots = base::valueForKey(reference, "key").as<base::Dictionary>();
    const bool portrait = isPortrait(slots ? base::valueForKey(*slots, "image1") : base::Value(), jobContainer);
    if (names.base) names.oriented = *names.base + (portrait ? "PRT" : "LS");

    std::vector<std::string> folders;
    if (jobContainer) folders.push_back(jobContainer->appendingPathComponent("Packages").path());
    if (auto configured = platform::data::UserDefaults::standard().stringForKey(key_velmFolderPackages))
        folders.push_back(std::move(*configured));
    for (const std::string& folder : folders)
        if (Ref package = FolderSearch(names, jobContainer).packageInFolder(folder)) return package;
    return nullptr;
}
