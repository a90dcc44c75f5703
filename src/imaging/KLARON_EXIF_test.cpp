#include "imaging/KLARON_EXIF.h"
#include "platform/data/FileAttributes.h"
#include "platform/draw/NamedImages.h"
#include "support/CommandOutput.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

using namespace platform::draw;
namespace data = platform::data;

namespace {

ImageRef picture() {
    const auto canvas = BitmapContext::create(40, 20, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    canvas->setFillColor(Color(0.8, 0.4, 0.1));
    canvas->fillRect({0, 0, 20, 20});
    return canvas->makeImage();
}

base::URL written(const support::TemporaryDirectory& folder, std::string_view type) {
    std::vector<base::URL> files;
    KLARON_Image::writeImage(picture(), folder / "a", {{std::string(klaronImageKey_utType), type}}, nullptr, &files);
    return files.at(0);
}

base::Date day(int number) {
    return base::Date(std::chrono::sys_days{std::chrono::year{2020} / 1 / number});
}

base::Dictionary& exifOf(base::Dictionary& properties) {
    return *properties[std::string(kCGImagePropertyExifDictionary)].as<base::Dictionary>();
}

base::Value exifValue(const base::URL& url, std::string_view property) {
    auto properties = KLARON_Image::metaDataForImage(url).value_or(base::Dictionary());
    return base::valueForKey(exifOf(properties), property);
}

} // namespace

TEST(ImageFile, ChangesPropertiesAndKeepsDates) {
    for (const char* type : {"public.jpeg", "public.png", "public.tiff"}) {
        const support::TemporaryDirectory folder;
        const base::URL url = written(folder, type);
        const bool keepsCreation = data::setDateCreated(url, day(3)).has_value();
        ASSERT_TRUE(data::setDateModified(url, day(5)));
        EXPECT_TRUE(ImageFile::setImageOrientation(url, 6)) << type;
        const auto other = base::URL::fileURLWithPath(folder / "other");
        EXPECT_TRUE(ImageFile::changeImageProperties(
            url,
            [](base::Dictionary properties) {
                EXPECT_EQ(base::valueForKey(properties, kCGImagePropertyOrientation), base::Value(6));
                exifOf(properties).erase("UserComment");
                exifOf(properties)["MakerNote"] = "changed";
                return properties;
            },
            other));
        for (const base::URL& file : {url, other}) {
            EXPECT_EQ(data::dateModified(file), day(5));
            if (keepsCreation) {
                EXPECT_EQ(data::dateCreated(file), day(3));
            }
            EXPECT_EQ(KLARON_Image::orientationForImage(file), 6);
        }
        EXPECT_EQ(exifValue(url, "UserComment"), base::Value("VELM comment")) << "the source stays";
        EXPECT_EQ(exifValue(other, "UserComment"), base::Value()) << "taken out";
        EXPECT_EQ(exifValue(other, "MakerNote"), base::Value("changed"));
        EXPECT_EQ(exifValue(other, "DateTimeOriginal"), exifValue(url, "DateTimeOriginal"));
        EXPECT_TRUE(ImageFile::changeImageProperties(url, [](const base::Dictionary&) {
            return base::Dictionary{{"{TIFF}", base::Dictionary{{"Artist", "Me"}}}};
        }));
        EXPECT_EQ(exifValue(url, "UserComment"), base::Value("VELM comment")) << "not named";
        EXPECT_EQ(KLARON_Image::orientationForImage(url), 6);
    }
}

TEST(ImageFile, LeavesAloneWhatItCanNotChange) {
    const support::TemporaryDirectory folder;
    const support::LogCapture log;
    const base::URL url = written(folder, "public.jpeg");
    const std::string former = support::readFile(url.path());
    for (const int orientation : {0, 9, -1})
        EXPECT_FALSE(ImageFile::setImageOrientation(url, orientation));
    EXPECT_FALSE(ImageFile::setImageOrientation(url, std::nullopt));
    const auto keep = [](base::Dictionary properties) { return properties; };
    EXPECT_FALSE(ImageFile::changeImageProperties(base::URL::fileURLWithPath(folder / "none.jpeg"), keep));
    EXPECT_FALSE(ImageFile::changeImageProperties(url, {}));
    EXPECT_FALSE(ImageFile::changeImageProperties(url, keep, base::URL::fileURLWithPath(folder / "no/folder.jpeg")));
    const auto misnamed = base::URL::fileURLWithPath(folder.write("jpeg.png", former));
    EXPECT_FALSE(ImageFile::setImageOrientation(misnamed, 3)) << "the type is that of the name";
    EXPECT_EQ(support::readFile(url.path()), former);
    EXPECT_EQ(support::readFile(misnamed.path()), former);
}

TEST(ImageFile, KnowsWholeJPEGFilesByTheirEnd) {
    const support::TemporaryDirectory folder;
    const struct {
        std::string bytes;
        bool isValid;
    } cases[] = {{"\xFF\xD9", true}, {"..\xFF\xD9", true}, {"\xFF\xD9.", false}, {"\xD9", false}, {"", false}};
    for (const auto& row : cases) {
        const auto url = base::URL::fileURLWithPath(folder.write("a.jpg", row.bytes));
        EXPECT_EQ(ImageFile::isValidJPEGFile(url), row.isValid) << row.bytes;
        EXPECT_EQ(ImageFile::isValidJPEGFileFaster(url), row.isValid) << row.bytes;
    }
    const auto missing = base::URL::fileURLWithPath(folder / "missing");
    EXPECT_FALSE(ImageFile::isValidJPEGFile(missing) || ImageFile::isValidJPEGFileFaster(missing));
    const support::LogCapture log;
    EXPECT_FALSE(ImageFile::isValidJPEGFileFaster(base::URL::fileURLWithPath(folder.path().string())));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"a file was closed or an error occured (21)"}));
}

TEST(KLARON_EXIF, WritesCommentsInPlaceAndSaysWhatItCanNotChange) {
    const support::TemporaryDirectory folder;
    const base::URL jpeg = written(folder, "public.jpeg"), png = written(folder, "public.png");
    std::optional<base::Error> error;
    EXPECT_TRUE(KLARON_EXIF::setEXIFUserComment("in place", jpeg.path(), &error));
    EXPECT_FALSE(error);
    EXPECT_EQ(KLARON_EXIF::getEXIFUserCommentForImage(jpeg), "in place");
    EXPECT_EQ(exifValue(jpeg, "MakerNote"), base::Value("VELM XML"));
    EXPECT_TRUE(KLARON_EXIF::setEXIFUserComment(std::nullopt, jpeg, &error));
    EXPECT_EQ(KLARON_EXIF::getEXIFUserCommentForImage(jpeg), std::nullopt);
    for (const ImageObject& object : {ImageObject(png.path()), ImageObject(folder / "none"), ImageObject()}) {
        const support::LogCapture quiet;
        EXPECT_FALSE(KLARON_EXIF::setEXIFUserComment("x", object, &error));
        EXPECT_EQ(error,
                  (base::Error{"NSCocoaErrorDomain", 0, "Failed to copy image source at " + object.description()}));
    }
    EXPECT_TRUE(KLARON_EXIF::forImage(png.path(), std::nullopt, 3));
    EXPECT_EQ(KLARON_Image::orientationForImage(png), 3);
    const support::LogCapture log;
    const auto text = base::URL::fileURLWithPath(folder.write("a.txt", "text"));
    EXPECT_FALSE(KLARON_EXIF::forImage(text, std::nullopt, [](base::Dictionary properties) { return properties; }));
    EXPECT_FALSE(KLARON_EXIF::forImage(text, png, 3));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "ERROR calling +[KLARON_EXIF forImage:saveToDestionation:changeProperties:]\n\t\t file "
                  "with UT Type \"public.plain-text\" at \"" +
                      text.absoluteString() + "\" is not recognized as an image ",
                  "ERROR calling +[KLARON_EXIF forImage:saveToDestionation:settingOrientation:]\n\t\t file "
                  "with UT Type \"public.plain-text\" at \"" +
                      text.absoluteString() + "\" is not recognized as an image "}));
}

TEST(KLARON_ImageOpening, FindsNamedImagesAndTellsEachPicture) {
    const support::TemporaryDirectory folder;
    setImageNamed("logo", picture());
    EXPECT_EQ(KLARON_Image::imageWithObject("logo")->actualSize(), (base::Size{40, 20}));
    EXPECT_FALSE(KLARON_Image::imageWithObject("logo")->metaData());
    setImageNamed("logo", nullptr);
    EXPECT_EQ(KLARON_Image::imageWithObject("logo"), nullptr);
    const auto held = KLARON_Image::imageFromCGImage(picture());
    EXPECT_EQ(KLARON_Image::imageWithObject(base::Value(held))->cgImage(), held->image());

    const base::URL url = written(folder, "public.jpeg");
    std::size_t count = 0;
    KLARON_Image::imageFromObject(url, [&](const ImageRef& image, std::size_t index, const auto& properties) {
        EXPECT_EQ(image->width(), 40);
        EXPECT_EQ(index, count++);
        EXPECT_EQ(base::valueForKey(*properties, "PixelHeight"), base::Value(20));
    });
    EXPECT_EQ(count, 1u);
    KLARON_Image::Metadata properties = base::Dictionary{{"a", 1}};
    EXPECT_EQ(KLARON_Image::createCGImageFromObject("none", &properties), nullptr);
    EXPECT_FALSE(properties) << "cleared first";

    for (const auto& [value, orientation] :
         {std::pair<base::Value, std::optional<int>>{"6", 6}, {"", std::nullopt}, {6, std::nullopt}}) {
        ImageMetadata metadata;
        EXPECT_TRUE(metadata.setValueMatchingImageProperty("{TIFF}", "Orientation", value));
        EXPECT_EQ(KLARON_Image::tiffOrientationForMetadata(metadata), orientation) << "a text counts";
    }
    KLARON_Image::saveJPEGImageAsTIFF(url);
    EXPECT_EQ(KLARON_Image::alphaFrameForImage(url, true), base::Rect{});
}
