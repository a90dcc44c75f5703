#include "output/VELM_PrintToFileSet.h"

#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/FileTypes.h"

#include <algorithm>
#include <array>

namespace data = platform::data;

namespace {

constexpr std::array<std::string_view, 6> fileFormatList = {
    data::kUTTypeJPEG, data::kUTTypeTIFF, data::kUTTypePNG, data::kUTTypeHEIC, data::kUTTypePhotoshop, data::kUTTypePDF,
};
constexpr std::array<std::string_view, 4> nameFormatList = {
    "Original Image Name",
    "Image + Date_Time",
    "Image + Template",
    "Image + CK Template",
};
constexpr std::string_view noUpload = "Do NOT upload to Web";
constexpr std::array<std::string_view, 5> uploadFolderList = {noUpload, "qmr", "lx4", "lx4-2", "lx4-3"};

class PrintToFileSetsClass final : public FolderSetClass {
public:
    PrintToFileSetsClass()
        : FolderSetClass("VELM_PrintToFileSet", [](const base::Dictionary& archived) {
              return std::make_shared<VELM_PrintToFileSet>(archived);
          }) {}

    std::string keyForSavedFolderSets() const override { return std::string(key_savedPrintToFileSets); }
    bool usesOldVELMNames() const override { return true; }

    FolderSetRef folderSetWithName(std::string_view name) override {
        if (auto named = FolderSetClass::folderSetWithName(name)) return named;
        const FolderSets sets = folderSets();
        const bool isDigit = name.size() == 1 && name[0] >= '1' && name[0] <= '9';
        const std::size_t index = isDigit ? static_cast<std::size_t>(name[0] - '1') : sets.size();
        return index < sets.size() ? sets[index] : nullptr;
    }

protected:
    FolderSetRef makeFolderSet(const std::string& name) override {
        return std::make_shared<VELM_PrintToFileSet>(name, base::URL::fileURLWithPath(base::standardizingPath("~")));
    }
};

} // namespace

FolderSetClass& VELM_PrintToFileSet::classObject() {
    static auto& object = *new PrintToFileSetsClass; // lives as long as the process, like its sets
    return object;
}

std::shared_ptr<VELM_PrintToFileSet> VELM_PrintToFileSet::folderSetWithName(std::string_view name) {
    return std::dynamic_pointer_cast<VELM_PrintToFileSet>(classObject().folderSetWithName(name));
}

std::span<const std::string_view> VELM_PrintToFileSet::fileFormats() {
    return fileFormatList;
}

std::span<const std::string_view> VELM_PrintToFileSet::nameFormats() {
    return nameFormatList;
}

std::span<const std::string_view> VELM_PrintToFileSet::uploadFolders() {
    return uploadFolderList;
}

std::string_view VELM_PrintToFileSet::toolTipNormalizeOrientation() {
    return "Most cameras save images in Landscape orientation and apply an orientation flag for Portrait images. Use "
           "this option when you need to support an image viewer that does not honor the image orientation flag.";
}

std::string VELM_PrintToFileSet::fileFormat() const {
    return property("fileFormat").textOr(fileFormatList.front());
}

std::string VELM_PrintToFileSet::nameFormat() const {
    const std::string stored = property("nameFormat").textOr("");
    return std::ranges::find(nameFormatList, stored) != nameFormatList.end() ? stored
                                                                             : std::string(nameFormatList.front());
}

std::optional<std::string> VELM_PrintToFileSet::uploadFolder() const {
    const auto stored = property("uploadFolder").text();
    return stored == noUpload ? std::nullopt : stored;
}

std::optional<double> VELM_PrintToFileSet::number(std::string_view key) const {
    const base::Value stored = property(key);
    return stored ? std::optional(stored.doubleValue()) : std::nullopt;
}

void VELM_PrintToFileSet::store(std::string_view key, base::Value value) {
    setProperty(key, std::move(value));
    classObject().saveFolderSets();
}
