#include "platform/data/FileTypes.h"

#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace platform::data {
namespace {

namespace fs = std::filesystem;

TEST(FileTypes, ComeFromExtensionAndShape) {
    const support::TemporaryDirectory folder;
    struct Case {
        std::string name; // with a slash at its end: a directory
        std::string_view type;
    };
    const Case cases[] = {
        {"A.JPEG", kUTTypeJPEG},
        {"a.plist", kUTTypePropertyList},
        {"a.icm", kUTTypeColorSyncProfile},
        {"a.unknown", kUTTypeData},
        {"plain", kUTTypeData},
        {".jpg", kUTTypeData},
        {"folder/", kUTTypeFolder},
        {"holiday.jpg/", kUTTypeFolder},
        {"ORDER.VELM_JOB/", kUTType_VELM_Job},
        {"single.velm_job", kUTType_VELM_Job},
    };
    for (const Case& test : cases) {
        const std::string path = folder / ("types/" + test.name);
        if (test.name.ends_with('/'))
            fs::create_directories(path);
        else
            folder.write("types/" + test.name, "x");
        EXPECT_EQ(typeIdentifierOfFile(base::URL::fileURLWithPath(path)), std::string(test.type)) << test.name;
    }
    EXPECT_FALSE(typeIdentifierOfFile(base::URL::fileURLWithPath(folder / "missing.jpg")));
    EXPECT_FALSE(typeIdentifierOfFile(base::URL()));

    fs::create_directory_symlink(folder / "types/folder", folder / "link");
    EXPECT_TRUE(conformsToType(base::URL::fileURLWithPath(folder / "link"), kUTTypeFolder));
    fs::create_symlink(folder / "gone", folder / "dangling.jpg");
    EXPECT_FALSE(conformsToType(base::URL::fileURLWithPath(folder / "dangling.jpg"), kUTTypeItem));
}

TEST(FileTypes, ConformAlongTheirAncestors) {
    struct Case {
        std::string_view type, other;
        bool conforms;
    };
    const Case cases[] = {
        {kUTTypeJPEG, kUTTypeData, true},
        {kUTTypeJPEG, "PUBLIC.Item", true},
        {kUTTypePDF, kUTTypeImage, false},
        {kUTTypeUTF16PlainText, kUTTypeText, true},
        {kUTTypeRTF, kUTTypePlainText, false},
        {kUTTypeXML, kUTTypePropertyList, false},
        {kUTType_VELM_Job, kUTTypeFolder, false},
        {kUTType_VELM_Job, kUTTypeItem, true},
        {kUTType_VELM_Job, kUTTypeData, false},
        {kUTTypeImage, kUTTypeJPEG, false},
        {"com.example.unknown", kUTTypeItem, false},
        {"com.example.unknown", "com.example.unknown", true},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(typeConforms(test.type, test.other), test.conforms) << test.type << " as " << test.other;
    }
    EXPECT_FALSE(conformsToType(base::URL::fileURLWithPath("/no/such/file.jpg"), kUTTypeJPEG));
}

TEST(FileTypes, KnowTheirExtensions) {
    EXPECT_EQ(preferredExtensionForType(kUTTypeJPEG), "jpeg");
    EXPECT_EQ(preferredExtensionForType(kUTTypeFolder), "");
    EXPECT_EQ(preferredExtensionForType("com.example.unknown"), "");
    EXPECT_EQ(typeForExtension("JPE"), std::string(kUTTypeJPEG));
    EXPECT_EQ(typeForExtension(""), std::nullopt);
    EXPECT_EQ(typeForExtension("unknown"), std::nullopt);
    const base::URL url = base::URL::fileURLWithPath("/tmp/a");
    EXPECT_EQ(appendingPathExtensionForType(url, kUTTypePNG).path(), "/tmp/a.png");
    EXPECT_EQ(appendingPathExtensionForType(url, kUTTypeItem), url);
}

} // namespace
} // namespace platform::data
