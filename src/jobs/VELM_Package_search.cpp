// Finding the package that a ticket names, by that name and the orientation of its picture: for the run, and for
// whoever wants to know how the run would find it.
#include "base/Log.h"
#include "folders/DefaultsKeys.h"
#include "imaging/KLARON_Image.h"
#include "internal/FolderEnumeration.h"
#include "internal/PackageFileReading.h"
#include "jobs/OrderReport.h"
#include "jobs/PackageSearch.h"
#include "jobs/VELM_Package.h"
#include "platform/data/Collation.h"
#include "platform/data/FileTypes.h"
#include "platform/data/UserDefaults.h"
#include "platform/data/XMLDocument.h"

#include <algorithm>
#include <utility>

using jobs::suffixLandscape;
using jobs::suffixPortrait;

namespace {

struct PackageNames {
    std::optional<std::string> base;
    std::optional<std::string> oriented; ///< The base name with the suffix of the picture's orientation.
};

bool areSameName(std::string_view left, std::string_view right) {
    return platform::data::foldedForm(left) == platform::data::foldedForm(right);
}

KLARON_ImageRef firstPicture(const base::Value& image, const base::URL* jobContainer) {
    if (auto opened = KLARON_Image::imageWithObject(image)) return opened;
    if (!jobContainer) return nullptr;
    return KLARON_Image::imageWithObject(
        jobContainer->appendingPathComponent("Images").appendingPathComponent(image.textOr("")));
}

/// Takes down what a search passes over. The run has none.
class Record {
public:
    Record(PackageSearch& search, const PackageNames& names) : search_(search), names_(names) {}

    void passOver(const std::string& path, const std::optional<std::string>& name, std::string reason) {
        search_.passedOver.push_back({path, name.value_or(""), std::move(reason)});
    }
    /// Of all packages of other names only the one for pictures of the other shape is worth a word.
    void passOverNamed(const std::string& path, const std::string& name, bool wasRightAtFirst) {
        const bool isPortrait = search_.isPortrait;
        if (wasRightAtFirst)
            passOver(path, name, "the name in its elements takes the place of the one in its attributes");
        else if (names_.base &&
                 areSameName(name, *names_.base + std::string(isPortrait ? suffixLandscape : suffixPortrait)))
            passOver(path, name,
                     isPortrait ? "it is for lying pictures, and the first picture stands"
                                : "it is for standing pictures, and the first picture lies or counts as lying");
    }

private:
    PackageSearch& search_;
    const PackageNames& names_;
};

class FolderSearch {
public:
    FolderSearch(const PackageNames& names, const base::URL* jobContainer, Record* record)
        : names_(names), jobContainer_(jobContainer ? base::Value(*jobContainer) : base::Value()), record_(record) {}

    /// The package of the oriented name, else the last one of the base name, else null.
    VELM_Package::Ref packageInFolder(const std::string& folder) {
        jobs::enumerateFolder(
            folder, jobs::Depth::deep,
            [this](const jobs::FolderItem& item) { return !item.isRegularFile || !examine(item.path); },
            [this](const std::string& path, const base::Error& error) {
                base::log("Failed enumeration at %@ with error:%@", base::URL::fileURLWithPath(path), error);
                if (record_) record_->passOver(path, std::nullopt, error.localizedDescription);
                return false;
            });
        if (found_ && record_ && fallback_)
            record_->passOver(fallback_->documentURL()->path(), names_.base,
                              "the oriented name comes before the plain one");
        return found_ ? found_ : fallback_;
    }
    bool isByOrientedName() const { return found_ != nullptr; }
    int fallbackCount() const { return fallbackCount_; }

private:
    /// Answers whether the search of the folder ends with this file.
    bool examine(const std::string& path) {
        const base::URL url = base::URL::fileURLWithPath(path);
        base::log("Scanning package file %@ with type %@", url, platform::data::typeIdentifierOfFile(url));
        const VELM_Package::Ref candidate = VELM_Package::instanceWithXMLObject(url);
        if (!candidate) {
            if (record_) record_->passOver(path, std::nullopt, jobs::whyUnreadable(path));
            return false;
        }
        candidate->setValue("urlJobContainer", jobContainer_);

        bool isFound = false;
        bool isFallback = false;
        bool isSkipped = false;
        std::optional<std::string> name;
        std::optional<base::Error> readingError;
        candidate->parseXML([&](VELM_Package& package, const std::optional<base::Error>& error, bool& stop) {
            readingError = error;
            name = package.pluCode();
            if (!name) name = package.name();
            if (!name) return;
            if (names_.oriented && areSameName(*name, *names_.oriented)) {
                isFound = true;
            } else if (!names_.base || !areSameName(*name, *names_.base)) {
                isSkipped = true;
                stop = true;
            } else {
                isFallback = true;
                base::log("Found fallback package named %@ at %@", name, url);
            }
        });
        if (isSkipped) {
            base::log("Skipping package named %@ at %@", name, url);
            if (record_) record_->passOverNamed(path, *name, isFound || isFallback);
            return false;
        }
        // The name was read off the start of the text; a file that can't be parsed beyond that is no package.
        if (!(isFound || isFallback) || !candidate->xmlDoc()) {
            if (record_) record_->passOver(path, name, jobs::whyNoPackage(*candidate, readingError));
            return false;
        }
        if (!isFound) {
            if (record_ && fallback_)
                record_->passOver(fallback_->documentURL()->path(), names_.base,
                                  "the last one of the plain name is taken");
            fallback_ = candidate;
            ++fallbackCount_;
            return false;
        }
        base::log("Found package named %@ at %@", name, url);
        found_ = candidate;
        return true;
    }

    const PackageNames& names_;
    const base::Value jobContainer_;
    Record* const record_;
    VELM_Package::Ref found_;
    VELM_Package::Ref fallback_;
    int fallbackCount_ = 0;
};

std::string whyLying(const PackageSearch& search) {
    if (search.hasImage) return {};
    return search.image.empty() ? " (no image1: counts as lying)"
                                : base::message(" (no picture \"%@\": counts as lying)", search.image);
}

std::string whyChosen(const PackageSearch& search, const FolderSearch& folder) {
    const std::string lying = whyLying(search);
    if (folder.isByOrientedName()) return *search.orientedName + " by its oriented name" + lying;
    const std::string fallback =
        base::message("fallback %@, for no %@ stands in its folder", search.baseName, search.orientedName);
    if (folder.fallbackCount() == 1) return fallback + lying;
    return fallback + ": the last of " + std::to_string(folder.fallbackCount()) + " of that name" + lying;
}

std::string whyNone(const PackageSearch& search) {
    if (!search.baseName) return "the reference has neither product code nor name";
    if (search.folders.empty()) return "no package folder is set";
    std::string folders;
    for (const std::string& folder : search.folders)
        folders += (folders.empty() ? "" : " and ") + folder;
    return base::message("no package is named %@ or %@ in %@", search.orientedName, search.baseName, folders) +
           whyLying(search);
}

/// The one road of the run and of the look at it. `search` takes down how it went; the run has none.
VELM_Package::Ref findPackage(const base::Dictionary& reference, PackageSearch* search) {
    if (auto inlinePackage = base::valueForKey(reference, "package").object<VELM_Package>()) {
        if (search) {
            search->isInline = true;
            search->reason = "inline";
        }
        return inlinePackage;
    }
    const auto* jobContainer = base::valueForKey(reference, "job").as<base::URL>();
    PackageNames names;
    names.base = base::textForKey(reference, "plucode");
    if (!names.base) names.base = base::textForKey(reference, "name");
    const auto* slots = base::valueForKey(reference, "key").as<base::Dictionary>();
    const base::Value image = slots ? base::valueForKey(*slots, "image1") : base::Value();
    const KLARON_ImageRef picture = firstPicture(image, jobContainer);
    const base::Size size = picture ? KLARON_Image::orientedSizeForImage(picture) : base::Size();
    const bool isPortrait = size.height > size.width; // a square picture, and none, count as lying
    if (names.base) names.oriented = *names.base + std::string(isPortrait ? suffixPortrait : suffixLandscape);

    std::vector<std::string> folders;
    if (jobContainer) folders.push_back(jobContainer->appendingPathComponent("Packages").path());
    if (auto configured = platform::data::UserDefaults::standard().stringForKey(key_velmFolderPackages))
        folders.push_back(std::move(*configured));
    std::optional<Record> record;
    if (search) {
        search->baseName = names.base;
        search->orientedName = names.oriented;
        search->hasImage = picture != nullptr;
        search->isPortrait = isPortrait;
        search->image = image.textOr("");
        search->folders = folders;
        record.emplace(*search, names);
    }
    for (const std::string& folder : folders) {
        FolderSearch folderSearch(names, jobContainer, record ? &*record : nullptr);
        if (VELM_Package::Ref package = folderSearch.packageInFolder(folder)) {
            if (search) search->reason = whyChosen(*search, folderSearch);
            return package;
        }
    }
    if (search) search->reason = whyNone(*search);
    return nullptr;
}

} // namespace

VELM_Package::Ref VELM_Package::packageWithDictionary(const base::Dictionary& reference) {
    return findPackage(reference, nullptr);
}

PackageSearch searchPackage(const base::Dictionary& reference, OrderReport* report) {
    PackageSearch search;
    search.package = findPackage(reference, &search);
    if (!search.package || search.isInline) return search;
    search.path = search.package->documentURL()->path();
    if (!report) return search;
    // Once more, with the report: candidates are read without one.
    if (auto again = VELM_Package::instanceWithXMLObject(*search.package->documentURL())) {
        again->setValue("urlJobContainer", search.package->value("urlJobContainer"));
        again->parseXML([](VELM_Package&, const std::optional<base::Error>&, bool&) {}, report);
        search.package = std::move(again);
    }
    return search;
}
