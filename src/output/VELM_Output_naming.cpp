// Which picture an output is made of, and where a product goes under which name.
#include "output/VELM_Output.h"

#include "base/Log.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "internal/UniqueTime.h"
#include "output/VELM_PrintToFileSet.h"
#include "platform/data/FileTypes.h"
#include "platform/data/PropertyList.h"
#include "platform/data/UserDefaults.h"
#include "template/RenderingContext.h"
#include "template/VELM_Template.h"

namespace data = platform::data;

namespace {

std::string nameWithoutExtension(std::string_view path) {
    return base::deletingPathExtension(base::lastPathComponent(path));
}

bool exists(const base::URL& url) {
    return data::conformsToType(url, data::kUTTypeItem);
}

// Where products go when their destination names no place.
std::string fallbackOutputPath() {
    const base::Value stored = data::UserDefaults::standard().objectForKey(key_velmFolderFallbackOutputPath);
    if (const base::URL* url = stored.as<base::URL>()) return url->path();
    if (const auto text = stored.text(); text && !text->empty()) return base::URL::fromString(*text).path();
    return base::standardizingPath("~/Desktop/PrintToFileOutputs/Unknown");
}

} // namespace

std::optional<std::string> VELM_Output::originalFilePath() const {
    if (allImagesPath_) return allImagesPath_;
    const auto owner = package();
    const auto job = owner ? owner->job() : nullptr;
    return job ? job->valueForKey("image1", owner->name()) : std::nullopt;
}

std::optional<base::URL> VELM_Output::urlOriginalImage() const {
    const std::string path = originalFilePath().value_or("");
    if (path.empty()) return std::nullopt;
    const base::URL url = base::URL::fileURLWithPath(path);
    if (data::conformsToType(url, data::kUTTypeImage)) return url;
    const auto owner = package();
    const auto container = owner ? owner->urlJobContainer() : std::nullopt;
    if (!container) return std::nullopt;
    return container->appendingPathComponent("Images").appendingPathComponent(path);
}

std::string VELM_Output::uniqueTimeStamp() {
    return output::uniqueTimeStamp();
}

std::string VELM_Output::outputFilenameForDestination(const VELM_Destination& destination,
                                                      const TimeStamp& time) const {
    std::string base = "image";
    if (base::equalIgnoringCase(destination.filename().value_or(""), "originalimagename"))
        base = originalFilePath().value_or("");
    return nameWithoutExtension(base) + "_" + time();
}

std::string VELM_Output::outputPathForDestination(const VELM_Destination& destination, const TimeStamp& time) const {
    // An element without text names no place either.
    const std::string filepath = destination.filepath().value_or("");
    const std::string path = filepath.empty() ? fallbackOutputPath() : filepath;
    const std::string extension = base::pathExtension(path);
    const std::string filename = base::appendingPathExtension(outputFilenameForDestination(destination, time),
                                                              extension.empty() ? "jpg" : extension);
    bool isFile = !extension.empty();
    if (!isFile && !filepath.empty()) {
        const base::URL url = base::URL::fileURLWithPath(filepath);
        isFile = exists(url) && !data::conformsToType(url, data::kUTTypeFolder);
    }
    return base::appendingPathComponent(isFile ? base::deletingLastPathComponent(path) : path, filename);
}

std::optional<std::string> VELM_Output::outputPathForPTFS(const VELM_PrintToFileSet* set, const TimeStamp& time) const {
    if (!set) return std::nullopt;
    const std::string original = base::lastPathComponent(originalFilePath().value_or(""));
    const std::string path = set->URL().appendingPathComponent(original.empty() ? "image" : original).path();
    const std::string stem = base::deletingPathExtension(path) + "_";
    const std::string format = set->nameFormat();
    if (format == "Image + Date_Time") return stem + time();
    if (format == "Image + Template") {
        const auto found = outputNodes_m_.empty() ? templates_.end() : templates_.find(outputNodes_m_.front()->name());
        const bool isThere = found != templates_.end() && found->second && found->second->documentURL();
        return stem + (isThere ? nameWithoutExtension(found->second->documentURL()->path()) : "");
    }
    if (format == "Image + CK Template") {
        const auto owner = package();
        const auto job = owner ? owner->job() : nullptr;
        const base::Value chosen = job ? job->valueInDict("template") : base::Value();
        const base::Dictionary* slots = chosen.as<base::Dictionary>();
        return stem + (slots ? nameWithoutExtension(base::textForKey(*slots, "image1").value_or("")) : "ckTemplate");
    }
    return path;
}

VELM_Output::FileSettings VELM_Output::fileSettings(const VELM_Destination& destination, const TimeStamp& time) const {
    FileSettings settings{.type = std::string(data::kUTTypeJPEG), .isCopy = destination.saveOriginal()};
    if (const auto name = destination.printToFileSetPathIndex()) {
        settings.set = VELM_PrintToFileSet::folderSetWithName(*name);
        base::log("Destination has specified PrintToFileSet %@:%@", *name, settings.set);
    }
    if (const auto& set = settings.set) {
        settings.path = outputPathForPTFS(set.get(), time);
        settings.site = set->uploadFolder();
        settings.type = set->fileFormat();
        settings.downsample = set->webUploadHasMaxPixels();
        settings.maximum = set->webUploadMaxPixels();
        settings.overwrite = set->overwriteExisting();
        return settings;
    }
    settings.path = outputPathForDestination(destination, time);
    settings.site = destination.uploadSite();
    settings.downsample = destination.resize();
    if (base::valueForKey(destination.valuesDict(), "limitsize"))
        settings.maximum = static_cast<double>(destination.limitSize());
    settings.overwrite = settings.isCopy;
    return settings;
}

std::optional<std::string> VELM_Output::FileSettings::writtenPath() const {
    if (!path || isCopy) return path;
    const base::URL named = base::URL::fileURLWithPath(*path);
    return data::appendingPathExtensionForType(named.deletingPathExtension(), type).path();
}

std::optional<std::string> VELM_Output::exifCommentForDictionary(const base::Dictionary& dictionary) {
    if (!base::valueForKey(dictionary, "f")) return std::nullopt;
    base::Dictionary info;
    for (const char* key : {"OriginalPath", "f"}) {
        const base::Value& value = base::valueForKey(dictionary, key);
        if (value) info.emplace(key, value);
    }
    info.emplace("Version", "VELM-XML v1.0");
    const auto written =
        data::propertyListData(base::Dictionary{{"uploadInfo", std::move(info)}}, data::PropertyListFormat::xml);
    if (!written) {
        base::log("Error inside %s: %@", "stringWithPlistObject:", written.error());
        return std::nullopt;
    }
    return std::string(written->asText());
}
