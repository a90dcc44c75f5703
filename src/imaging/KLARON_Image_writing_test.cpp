#include "base/Log.h"
#include "imaging/KLARON_Image.h"
#include "platform/draw/ImageDestination.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sys/resource.h>
#include <thread>
#include <vector>

using namespace platform::draw;
namespace fs = std::filesystem;

namespace {

ImageRef picture(double width = 40, double height = 20) {
    const auto canvas = BitmapContext::create(width, height, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    canvas->setFillColor(Color(0.8, 0.4, 0.1));
    canvas->fillRect({0, 0, width / 2, height});
    return canvas->makeImage();
}

std::set<std::string> filesBelow(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (!entry.is_directory()) names.insert(entry.path().lexically_relative(folder));
    return names;
}

using Names = std::set<std::string>;

base::Dictionary option(std::string_view key, base::Value value) {
    return {{std::string(key), std::move(value)}};
}

std::optional<std::string> exifText(const std::string& path, std::string_view property) {
    const auto metadata = KLARON_Image::metaDataForImage(path);
    if (!metadata) return std::nullopt;
    const auto* exif = base::valueForKey(*metadata, kCGImagePropertyExifDictionary).as<base::Dictionary>();
    return exif ? base::textForKey(*exif, property) : std::nullopt;
}

} // namespace

TEST(KLARON_ImageWriting, NumbersInsteadOfOverwritingWhenAsked) {
    const support::TemporaryDirectory folder;
    for (const bool overwrites : {true, false, false})
        EXPECT_TRUE(KLARON_Image::writeImage(picture(), folder / "a.jpg",
                                             option(klaronImageKey_overwriteExistingFile, overwrites), nullptr));
    EXPECT_TRUE(KLARON_Image::writeImage(picture(), folder / "a.jpg", nullptr)) << "overwriting is the default";
    EXPECT_EQ(filesBelow(folder.path()), (Names{"a.jpeg", "a 1.jpeg", "a 2.jpeg"}));
    const struct {
        const char *taken, *next;
    } cases[] = {{"b 7.jpg", "b 8.jpg"},
                 {"b 1 7.jpg", "b 1 8.jpg"},
                 {"b7.jpg", "b7 1.jpg"},
                 {"b .jpg", "b  1.jpg"},
                 {"b 9223372036854775807.jpg", "b 9223372036854775807 1.jpg"},
                 {"none", "none 1"}};
    for (const auto& row : cases) {
        const auto url = base::URL::fileURLWithPath(folder.write(row.taken, "x"));
        EXPECT_EQ(KLARON_Image::URLWithoutOverwriting(url).lastPathComponent(), row.next);
    }
}

TEST(KLARON_ImageWriting, WritersAtTheSameMomentNeverTakeTheSameName) {
    const support::TemporaryDirectory folder;
    ASSERT_TRUE(KLARON_Image::writeImage(picture(), folder / "source", nullptr));
    const base::Data source(support::readFile(folder / "source.jpeg"));
    std::vector<std::vector<base::URL>> written(8);
    std::vector<std::thread> threads;
    for (std::vector<base::URL>& own : written)
        threads.emplace_back([&] {
            EXPECT_TRUE(KLARON_Image::writeImage(picture(), folder / "same.jpg",
                                                 option(klaronImageKey_overwriteExistingFile, false), nullptr, &own));
            EXPECT_TRUE(KLARON_Image::writeImageFile(source, folder / "same.jpeg", std::nullopt, false, nullptr, &own));
        });
    for (auto& thread : threads)
        thread.join();
    Names told = {"source.jpeg"};
    for (const auto& own : written)
        for (const auto& url : own)
            told.insert(url.lastPathComponent());
    EXPECT_EQ(told.size(), 17u);
    EXPECT_EQ(filesBelow(folder.path()), told);
}

TEST(KLARON_ImageWriting, LeavesNothingHalfOnAFullDisk) {
    for (const std::string_view type : ImageDestination::writableTypeIdentifiers()) {
        const support::TemporaryDirectory folder;
        rlimit former;
        ::getrlimit(RLIMIT_FSIZE, &former);
        const auto formerHandler = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit small{300, former.rlim_max}; // as on a full disk, writing fails
        ::setrlimit(RLIMIT_FSIZE, &small);
        std::optional<base::Error> error;
        const support::LogCapture log;
        const bool written =
            KLARON_Image::writeImage(picture(), folder / "a", option(klaronImageKey_utType, type), &error);
        ::setrlimit(RLIMIT_FSIZE, &former);
        std::signal(SIGXFSZ, formerHandler);
        EXPECT_FALSE(written);
        EXPECT_EQ(error->localizedDescription, "Failed to finalize image to " + folder / "a");
        EXPECT_TRUE(log.has("File too large")) << type;
        EXPECT_EQ(filesBelow(folder.path()), Names{}) << type;
    }
}

TEST(KLARON_ImageWriting, WritesNothingWhereNoFileIsNamed) {
    const support::TemporaryDirectory folder;
    ASSERT_TRUE(KLARON_Image::writeImage(picture(), folder / "a", nullptr));
    const fs::path former = fs::current_path();
    fs::current_path(folder.path());
    for (const base::Value& nowhere : {base::Value(""), base::Value(base::URL::fromString("https://host/a.jpg"))}) {
        std::optional<base::Error> error;
        EXPECT_FALSE(KLARON_Image::writeImage(picture(), nowhere, &error));
        EXPECT_TRUE(error);
        EXPECT_FALSE(KLARON_Image::writeImageFile(folder / "a.jpeg", nowhere, std::nullopt, true, &error));
        EXPECT_TRUE(error) << "a failure without an error would pass for none";
    }
    EXPECT_TRUE(KLARON_Image::writeImage(picture(), "sub/b", nullptr)) << "relative to the current folder";
    fs::current_path(former);
    EXPECT_EQ(filesBelow(folder.path()), (Names{"a.jpeg", "sub/b.jpeg"}));
}

TEST(KLARON_ImageWriting, TakesCommentAndNoteFromItsOptions) {
    const support::TemporaryDirectory folder;
    const std::string own(klaronImageKey_exifComment), comment(kCGImagePropertyExifUserComment),
        maker(kCGImagePropertyExifMakerNote);
    const struct {
        base::Dictionary options;
        std::optional<std::string> comment, maker;
    } cases[] = {{{}, "VELM comment", "VELM XML"},
                 {{{comment, "other"}, {maker, "note"}}, "other", "note"},
                 {{{own, "own"}, {comment, "other"}}, "own", "VELM XML"},
                 {{{own, ""}}, std::nullopt, "VELM XML"}};
    for (const auto& row : cases) {
        EXPECT_TRUE(KLARON_Image::writeImage(picture(), folder / "a", row.options, nullptr));
        EXPECT_EQ(KLARON_Image::getEXIFUserCommentForImage(folder / "a.jpeg"), row.comment);
        EXPECT_EQ(exifText(folder / "a.jpeg", maker), row.maker);
    }
}

TEST(KLARON_ImageWriting, ReportsEachFailureInItsWay) {
    const support::TemporaryDirectory folder;
    const std::string name = "+[KLARON_Image writeImage:toDestination:options:returningError:]";
    const auto bad = [&](const std::string& arguments) {
        return base::Error{"NSPOSIXErrorDomain", 22, name + " ERROR: Bad input arguments " + arguments};
    };
    const auto other = [](const std::string& text) { return base::Error{"NSCocoaErrorDomain", 0, text}; };
    const struct {
        ImageRef image;
        base::Value destination;
        const char* type;
        std::optional<base::Error> error;
    } cases[] = {
        {nullptr, folder / "a", "public.jpeg", bad("src:(null) dst:" + folder / "a")},
        {picture(), base::Value(), "public.jpeg", bad("src:<CGImage 40 x 20> dst:(null)")},
        {picture(), base::Array{}, "public.jpeg", std::nullopt},
        {picture(), 17, "public.jpeg", other("Passed parameter to " + name + " not a path or URL")},
        {picture(), base::URL::fromString("https://host/a"), "public.jpeg",
         other("Failed to create CGImageDestination for https://host/a")},
        {picture(), folder / "a", "com.compuserve.gif",
         other("Failed to create CGImageDestination for " + folder / "a")},
    };
    std::optional<base::Error> error;
    EXPECT_FALSE(KLARON_Image::writeImage(picture(), folder / "b", option(klaronImageKey_downsample, true), &error))
        << "to a maximum of 0";
    for (const auto& row : cases) {
        const auto options = option(klaronImageKey_utType, row.type);
        EXPECT_FALSE(KLARON_Image::writeImage(row.image, row.destination, options, &error));
        EXPECT_EQ(error, row.error);
        const support::LogCapture log;
        EXPECT_FALSE(KLARON_Image::writeImage(row.image, row.destination, options, nullptr));
        EXPECT_EQ(log.has(row.error ? row.error->localizedDescription : "ERROR"),
                  row.error && !row.error->localizedDescription.starts_with("Failed to create"));
    }
    const std::string file = folder.write("file", "x");
    EXPECT_FALSE(KLARON_Image::writeImage(picture(), file + "/a", &error));
    EXPECT_EQ(error->domain, "NSPOSIXErrorDomain") << "the folder that can't be made";
    EXPECT_TRUE(KLARON_Image::writeImage(picture(), base::Array{17, file + "/a", folder / "good"}, &error))
        << "the last one counts";
    EXPECT_TRUE(fs::exists(folder / "good.jpeg"));
}

TEST(KLARON_ImageCopying, CopiesFilesAndMergesTheComment) {
    const support::TemporaryDirectory folder;
    KLARON_Image::writeImage(picture(), folder / "a", option(klaronImageKey_exifComment, "first"), nullptr);
    const std::string source = folder / "a.jpeg";
    std::optional<base::Error> error;
    EXPECT_TRUE(KLARON_Image::writeImageFile(source, folder / "sub/plain.jpg", std::nullopt, true, &error));
    EXPECT_EQ(support::readFile(folder / "sub/plain.jpg"), support::readFile(source));
    EXPECT_TRUE(KLARON_Image::writeImageFile(base::URL::fileURLWithPath(source),
                                             base::URL::fileURLWithPath(folder / "b.jpg"), "second", false, &error));
    EXPECT_TRUE(
        KLARON_Image::writeImageFile(base::Data(support::readFile(source)), folder / "b.jpg", "third", false, &error));
    EXPECT_EQ(KLARON_Image::getEXIFUserCommentForImage(folder / "b.jpg"), "second");
    EXPECT_EQ(KLARON_Image::getEXIFUserCommentForImage(folder / "b 1.jpg"), "third");
    EXPECT_EQ(exifText(folder / "b.jpg", kCGImagePropertyExifMakerNote), "VELM XML") << "other tags stay";
    EXPECT_TRUE(KLARON_Image::setEXIFUserComment("in place", source, &error));
    EXPECT_EQ(KLARON_Image::getEXIFUserCommentForImage(source), "in place");
    EXPECT_FALSE(error);
}

TEST(KLARON_ImageCopying, ReportsWhatItCanNotCopy) {
    const support::TemporaryDirectory folder;
    KLARON_Image::writeImage(picture(), folder / "a", option(klaronImageKey_utType, "public.png"), nullptr);
    std::optional<base::Error> error;
    EXPECT_FALSE(KLARON_Image::setEXIFUserComment("x", folder / "a.png", &error));
    EXPECT_EQ(error->localizedDescription, "the source can't be copied as JPEG: it does not begin like one");
    EXPECT_FALSE(KLARON_Image::writeImageFile(folder / "missing", folder / "b", "x", true, &error));
    EXPECT_EQ(error->code, 22);
    EXPECT_EQ(error->localizedDescription,
              "+[KLARON_Image writeImageFile:toDestination:addingEXIFUserComment:overwriteExisting:returningError:] "
              "ERROR: Bad input arguments src:" +
                  folder / "missing" + " dst:" + folder / "b");
    KLARON_Image::writeImage(picture(), folder / "c", nullptr);
    EXPECT_FALSE(KLARON_Image::writeImageFile(folder / "c.jpeg", 17, "x", true, &error));
    EXPECT_EQ(error->code, 22);
    EXPECT_FALSE(KLARON_Image::writeImageFile(folder / "c.jpeg", folder / "c.jpeg/d", "x", true, &error));
    EXPECT_TRUE(error);
}
