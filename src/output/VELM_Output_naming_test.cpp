#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "internal/OutputFixture.h"
#include "output/VELM_PrintToFileSet.h"
#include "platform/data/Dates.h"
#include "platform/data/FileTypes.h"
#include "platform/data/UserDefaults.h"

#include <gmock/gmock.h>

#include <set>
#include <thread>

namespace {

using namespace output_testing;
using platform::data::UserDefaults;
using testing::MatchesRegex;

const char* const stamp = "_[0-9]{4}-[0-9]{2}-[0-9]{2}_[0-9]{2}-[0-9]{2}-[0-9]{2}\\.[0-9]{3}";

std::shared_ptr<VELM_Destination> destination(const std::string& children) {
    return VELM_Destination::initWithNode(*elementFrom("<destination type='filepath'>" + children + "</destination>"));
}

class OutputNaming : public testing::Test {
protected:
    OutputNaming() { output_.setPackage(package_); }

    std::string pathFor(const std::string& filepath) const {
        return output_.outputPathForDestination(*destination("<filepath>" + filepath + "</filepath>"));
    }

    support::TemporaryDirectory folder_;
    std::shared_ptr<TestPackage> package_ = std::make_shared<TestPackage>();
    VELM_Output output_;
};

TEST_F(OutputNaming, findsTheOriginalOfTheRunOrElseOfTheJob) {
    EXPECT_FALSE(output_.originalFilePath());
    EXPECT_FALSE(VELM_Output().urlOriginalImage());
    package_->order->values[{"key", "image1"}] = folder_.write("photo.jpg", "x");
    EXPECT_EQ(output_.urlOriginalImage()->path(), folder_ / "photo.jpg");
    package_->order->values[{"key", "image1"}] = "photo.jpg";
    EXPECT_FALSE(output_.urlOriginalImage());
    package_->order->container = base::URL::fileURLWithPath(folder_ / "job");
    EXPECT_EQ(output_.urlOriginalImage()->path(), folder_ / "job/Images/photo.jpg");
    output_.setAllImagesPath("/a/b.jpg");
    EXPECT_EQ(output_.originalFilePath(), "/a/b.jpg");
}

TEST_F(OutputNaming, namesFilesByPictureOnlyWhenAsked) {
    package_->order->values[{"key", "image1"}] = "/in/IMG_0042.v2.JPG";
    EXPECT_THAT(output_.outputFilenameForDestination(*destination("<filename>OriginalImageName</filename>")),
                MatchesRegex(std::string("IMG_0042\\.v2") + stamp));
    for (const char* other : {"", "<filename>poster</filename>"})
        EXPECT_THAT(output_.outputFilenameForDestination(*destination(other)),
                    MatchesRegex(std::string("image") + stamp));
}

TEST_F(OutputNaming, takesFolderAndExtensionFromThePath) {
    folder_.write("taken", "an ordinary file");
    std::filesystem::create_directory(folder_ / "there");
    const std::vector<std::array<std::string, 3>> cases = {
        {"missing/sub", "missing/sub", ".jpg"},
        {"there", "there", ".jpg"},
        {"taken", ".", ".jpg"},
        {"there/prints.tif", "there", ".tif"},
        {"prints.v2/", ".", ".v2"},
        {"missing/.hidden", "missing/.hidden", ".jpg"},
    };
    for (const auto& [filepath, place, extension] : cases) {
        const std::string path = pathFor(folder_ / filepath);
        const std::string expected = place == "." ? folder_.path().string() : folder_ / place;
        EXPECT_EQ(base::deletingLastPathComponent(path), expected) << filepath;
        EXPECT_THAT(base::lastPathComponent(path), MatchesRegex(std::string("image") + stamp + "\\" + extension));
    }
}

TEST_F(OutputNaming, fallsBackWithoutAPath) {
    const auto nowhere = destination("");
    EXPECT_EQ(base::deletingLastPathComponent(output_.outputPathForDestination(*nowhere)),
              base::places().home + "/Desktop/PrintToFileOutputs/Unknown");
    auto& defaults = UserDefaults::standard();
    for (const std::string& stored : {folder_ / "fallback", "file://" + (folder_ / "fallback")}) {
        (void)defaults.setObject(stored, key_velmFolderFallbackOutputPath);
        EXPECT_EQ(base::deletingLastPathComponent(output_.outputPathForDestination(*nowhere)), folder_ / "fallback");
    }
    (void)defaults.removeObject(key_velmFolderFallbackOutputPath);
}

TEST_F(OutputNaming, givesNoNameTwiceWhateverTheClockSays) {
    const base::Date frozen = std::chrono::sys_days(std::chrono::year(2026) / 3 / 15) + std::chrono::hours(30 * 24);
    const auto previous = platform::data::setDateSource([&] { return frozen; });
    const auto plain = destination("<filepath>/out</filepath>");
    std::mutex mutex;
    std::set<std::string> names;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int count = 0; count < 50; ++count) {
                const std::string name = output_.outputFilenameForDestination(*plain);
                const std::lock_guard lock(mutex);
                names.insert(name);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    platform::data::setDateSource(previous);
    EXPECT_EQ(names.size(), 200u);
}

TEST_F(OutputNaming, followsTheNameFormatOfAPrintToFileSet) {
    const auto set = std::make_shared<VELM_PrintToFileSet>("Path 9", base::URL::fileURLWithPath("/sets/nine"));
    package_->order->values[{"key", "image1"}] = "/in/photo.jpg";
    const auto path = [&](const char* format) {
        set->setProperty("nameFormat", format);
        return output_.outputPathForPTFS(set.get()).value();
    };
    EXPECT_FALSE(output_.outputPathForPTFS(nullptr));
    EXPECT_EQ(path("Original Image Name"), "/sets/nine/photo.jpg");
    EXPECT_EQ(path("forgotten"), "/sets/nine/photo.jpg");
    EXPECT_THAT(path("Image + Date_Time"), MatchesRegex(std::string("/sets/nine/photo") + stamp));
    EXPECT_EQ(path("Image + Template"), "/sets/nine/photo_");
    const auto document = photographTemplate(2, 2);
    document->setDocumentURL(base::URL::fileURLWithPath("/templates/4x6 plain.xml"));
    output_.setTemplates({{"front", document}});
    EXPECT_EQ(path("Image + Template"), "/sets/nine/photo_");
    output_.addOutputNode(VELM_Output_node::initWithNode(*elementFrom("<front type='node'/>")));
    EXPECT_EQ(path("Image + Template"), "/sets/nine/photo_4x6 plain");
    EXPECT_EQ(path("Image + CK Template"), "/sets/nine/photo_ckTemplate");
    package_->order->dictionary["template"] = base::Dictionary{{"image1", "borders/gold.xml"}};
    EXPECT_EQ(path("Image + CK Template"), "/sets/nine/photo_gold");
    set->setProperty("uploadFolder", "Do NOT upload to Web");
    EXPECT_FALSE(set->uploadFolder());
}

TEST(PrintToFileSet, isFoundByNameOrByDigit) {
    auto& all = VELM_PrintToFileSet::classObject();
    ASSERT_EQ(all.folderSets().size(), 8u);
    for (std::size_t index = 0; index < 8; ++index)
        EXPECT_EQ(all.folderSets()[index]->name(), "Path " + std::to_string(index + 1));
    EXPECT_EQ(VELM_PrintToFileSet::folderSetWithName("3")->name(), "Path 3");
    EXPECT_EQ(VELM_PrintToFileSet::folderSetWithName("path 8")->name(), "Path 8");
    for (const char* none : {"0", "9", "12", "", "x"})
        EXPECT_FALSE(VELM_PrintToFileSet::folderSetWithName(none)) << none;
}

} // namespace
