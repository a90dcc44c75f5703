#include "platform/data/FileTypes.h"

#include "base/Text.h"

#include <sys/stat.h>
#include <vector>

namespace platform::data {
namespace {

struct Type {
    std::string_view identifier;
    std::vector<std::string_view> extensions; ///< The preferred one first.
    std::vector<std::string_view> conformsTo; ///< The direct ancestors.
};

const std::vector<Type>& types() {
    static const std::vector<Type> table = {
        {kUTTypeItem, {}, {}},
        {kUTTypeData, {}, {kUTTypeItem}},
        {kUTTypeDirectory, {}, {kUTTypeItem}},
        {kUTTypeFolder, {}, {kUTTypeDirectory}},
        {kUTTypePackage, {}, {kUTTypeDirectory}},
        {kUTType_VELM_Job, {"velm_job"}, {kUTTypePackage}},
        {kUTTypeText, {}, {kUTTypeData}},
        {kUTTypePlainText, {"txt", "text"}, {kUTTypeText}},
        {kUTTypeUTF8PlainText, {}, {kUTTypePlainText}},
        {kUTTypeUTF16PlainText, {}, {kUTTypePlainText}},
        {kUTTypeUTF16ExternalPlainText, {}, {kUTTypePlainText}},
        {kUTTypeRTF, {"rtf"}, {kUTTypeText}},
        {kUTTypeHTML, {"html", "htm"}, {kUTTypeText}},
        {kUTTypeXML, {"xml"}, {kUTTypeText}},
        {kUTTypePropertyList, {"plist"}, {kUTTypeData}},
        {kUTTypePDF, {"pdf"}, {kUTTypeData}},
        {kUTTypeColorSyncProfile, {"icc", "icm"}, {kUTTypeData}},
        {kUTTypeImage, {}, {kUTTypeData}},
        {kUTTypeJPEG, {"jpeg", "jpg", "jpe"}, {kUTTypeImage}},
        {kUTTypeTIFF, {"tiff", "tif"}, {kUTTypeImage}},
        {kUTTypePNG, {"png"}, {kUTTypeImage}},
        {kUTTypeGIF, {"gif"}, {kUTTypeImage}},
        {kUTTypeBMP, {"bmp"}, {kUTTypeImage}},
        {kUTTypeWebP, {"webp"}, {kUTTypeImage}},
        {kUTTypeHEIC, {"heic"}, {kUTTypeImage}},
        {kUTTypeHEIF, {"heif", "hif"}, {kUTTypeImage}},
        {kUTTypePhotoshop, {"psd"}, {kUTTypeImage}},
    };
    return table;
}

const Type* typeNamed(std::string_view identifier) {
    for (const Type& type : types()) {
        if (base::equalIgnoringCase(type.identifier, identifier)) return &type;
    }
    return nullptr;
}

const Type* typeWithExtension(std::string_view extension) {
    for (const Type& type : types()) {
        for (const std::string_view candidate : type.extensions) {
            if (base::equalIgnoringCase(candidate, extension)) return &type;
        }
    }
    return nullptr;
}

} // namespace

std::optional<std::string> typeIdentifierOfFile(const base::URL& url) {
    struct stat status;
    if (url.path().empty() || stat(url.path().c_str(), &status) != 0) return std::nullopt;
    const Type* type = typeWithExtension(url.pathExtension());
    if (S_ISDIR(status.st_mode)) {
        // A directory is what its extension says only where that declares a package: photo.jpeg may be a folder.
        const bool isPackage = type && typeConforms(type->identifier, kUTTypePackage);
        return std::string(isPackage ? type->identifier : kUTTypeFolder);
    }
    if (!S_ISREG(status.st_mode)) return std::string(kUTTypeItem);
    return std::string(type ? type->identifier : kUTTypeData);
}

bool conformsToType(const base::URL& url, std::string_view type) {
    const std::optional<std::string> own = typeIdentifierOfFile(url);
    return own && typeConforms(*own, type);
}

bool typeConforms(std::string_view type, std::string_view other) {
    if (base::equalIgnoringCase(type, other)) return true;
    const Type* known = typeNamed(type);
    if (!known) return false;
    for (const std::string_view ancestor : known->conformsTo) {
        if (typeConforms(ancestor, other)) return true;
    }
    return false;
}

std::string preferredExtensionForType(std::string_view type) {
    const Type* known = typeNamed(type);
    return known && !known->extensions.empty() ? std::string(known->extensions.front()) : std::string();
}

std::vector<std::string> extensionsForType(std::string_view type) {
    const Type* known = typeNamed(type);
    if (!known) return {};
    return {known->extensions.begin(), known->extensions.end()};
}

std::optional<std::string> typeForExtension(std::string_view extension) {
    const Type* known = typeWithExtension(extension);
    if (!known) return std::nullopt;
    return std::string(known->identifier);
}

base::URL appendingPathExtensionForType(const base::URL& url, std::string_view type) {
    const std::string extension = preferredExtensionForType(type);
    return extension.empty() ? url : url.appendingPathExtension(extension);
}

} // namespace platform::data
