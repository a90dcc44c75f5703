#include "internal/ExifBlock.h"
#include "internal/ExifProperties.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"
#include "support/CommandOutput.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

using namespace platform::draw;
using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;

const std::string note =
    "VELM XML <job><order>7</order></job> and more than a maker's header"; // looks like no camera's
const std::string comment = "Gr\xC3\xBC\xC3\x9F"
                            "e \xF0\x9F\x8E\x88";

base::Dictionary exif(base::Dictionary entries) {
    return {{std::string(kCGImagePropertyExifDictionary), std::move(entries)}};
}

base::Dictionary commented(const std::string& text) {
    return exif({{"UserComment", text}});
}

struct Kind {
    const char* type;
    const char* extension;
    std::string_view pixelsBegin; ///< The mark from which on nothing changes.
};
const Kind kinds[] = {{"public.jpeg", "jpeg", "\xFF\xDA"},
                      {"public.png", "png", "IDAT"},
                      {"public.tiff", "tiff", ""},
                      {"org.webmproject.webp", "webp", "VP8L"},
                      {"com.adobe.photoshop-image", "psd", ""}};

// A picture of the kind, without properties; empty when the program that makes it is not installed.
base::Data made(const Kind& kind) {
    const auto canvas = BitmapContext::create(150, 100, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    for (int index = 0; index < 60; ++index) {
        canvas->setFillColor(Color(std::fmod(index * 0.37, 1), std::fmod(index * 0.73, 1), std::fmod(index * 0.11, 1)));
        canvas->fillRect({double(index * 13 % 150), double(index * 7 % 100), 20, 15});
    }
    const bool isOurs = ImageDestination::canWriteType(kind.type);
    auto destination = *ImageDestination::createWithData(isOurs ? kind.type : "public.png");
    destination->addImage(canvas->makeImage(), {});
    EXPECT_TRUE(destination->finalize());
    const base::Data data = destination->takeData();
    if (isOurs) return data;
    const support::TemporaryDirectory folder;
    const std::string target = folder / ("a."s + kind.extension);
    if (!support::commandOutput("convert '" + folder.write("a.png", data.asText()) + "' -strip -define " +
                                "webp:lossless=true '" + target + "'"))
        return {};
    return base::Data(support::readFile(target));
}

base::Dictionary propertiesOf(const base::Data& file) {
    const auto source = ImageSource::createWithData(file);
    return source ? (*source)->propertiesAtIndex(0) : base::Dictionary();
}

const base::Value& property(const base::Dictionary& properties, std::string_view dictionary, std::string_view name) {
    static const base::Value none;
    const auto* entries = base::valueForKey(properties, dictionary).as<base::Dictionary>();
    return entries ? base::valueForKey(*entries, name) : none;
}

std::string_view fromMark(const base::Data& file, const Kind& kind) {
    const std::size_t at = file.asText().find(kind.pixelsBegin);
    EXPECT_NE(at, std::string_view::npos) << kind.type;
    return file.asText().substr(std::min(at, file.size()));
}

} // namespace

TEST(ImageCopy, ChangesPropertiesAndNotOneByteOfThePixels) {
    const support::TemporaryDirectory folder;
    const struct {
        const char *dictionary, *property;
        base::Value value;
        const char* tag;
    } rows[] = {{"", "Orientation", 6, "IFD0:Orientation#"},
                {"", "DPIWidth", 300, "IFD0:XResolution"},
                {"", "DPIHeight", 150.5, "IFD0:YResolution"},
                {"{TIFF}", "Artist", "M\xC3\xBCller", "Artist"},
                {"{TIFF}", "Make", "Canon", "Make"},
                {"{TIFF}", "Software", "Velm", "Software"},
                {"{TIFF}", "ImageDescription", "A", "ImageDescription"},
                {"{TIFF}", "DateTime", "2026:03:15 10:11:14", "IFD0:ModifyDate"},
                {"{Exif}", "UserComment", comment, "UserComment"},
                {"{Exif}", "DateTimeOriginal", "2026:03:15 10:11:12", "DateTimeOriginal"},
                {"{Exif}", "DateTimeDigitized", "2026:03:15 10:11:13", "CreateDate"},
                {"{Exif}", "LensModel", "50mm", "LensModel"}};
    base::Dictionary all = exif({{"MakerNote", note}});
    all.emplace("{TIFF}", base::Dictionary());
    Texts tags, first;
    for (const auto& row : rows) {
        (*row.dictionary ? *all[row.dictionary].as<base::Dictionary>() : all)[row.property] = row.value;
        tags.push_back(row.tag);
        first.push_back(row.value.stringValue().value_or(""));
    }
    Texts second = first;
    second[3] = "-";
    second[8] = std::string(3000, 'x');
    Texts judged;
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(kind.type);
        const base::Data original = made(kind);
        if (original.empty()) continue;
        const auto copy = copyOfImageFile(original, kind.type, all);
        ASSERT_TRUE(copy) << copy.error().localizedDescription;
        // Everything else stays: the comment grows, one tag goes, one stays away.
        base::Dictionary changes = commented(second[8]);
        changes.emplace("{TIFF}", base::Dictionary{{"Artist", base::Value()}, {"HostComputer", ""}});
        const auto further = copyOfImageFile(*copy, kind.type, changes);
        ASSERT_TRUE(further) << further.error().localizedDescription;
        judged.push_back(folder.write("first."s + kind.extension, copy->asText()));
        judged.push_back(folder.write("second."s + kind.extension, further->asText()));
        for (const base::Data* each : {&*copy, &*further}) {
            if (kind.type == "public.tiff"s) // all but the place of the first directory is where it was
                EXPECT_TRUE(each->asText().substr(8).starts_with(original.asText().substr(8)));
            else if (kind.type == "com.adobe.photoshop-image"s) // which ends with its pixels
                EXPECT_TRUE(each->asText().ends_with(original.asText().substr(original.size() * 2 / 3)));
            else
                EXPECT_TRUE(fromMark(*each, kind).starts_with(fromMark(original, kind)));
            EXPECT_EQ(property(propertiesOf(*each), "{Exif}", "MakerNote"), base::Value(note));
            EXPECT_EQ(base::valueForKey(propertiesOf(*each), "Orientation"), base::Value(6));
        }
        EXPECT_EQ(*copyOfImageFile(*further, kind.type, propertiesOf(*further)), *further)
            << "what is so already stays";
        EXPECT_EQ(*copyOfImageFile(original, kind.type, {}), original);
    }
    const auto found = support::exiftool(judged, tags);
    for (std::size_t index = 0; found && index < judged.size(); ++index)
        EXPECT_EQ(found->at(index), index % 2 == 0 ? first : second) << judged[index];
}

TEST(ImageCopy, RefusesWhatIsNoWholeFileOfTheType) {
    const base::Data png = made(kinds[1]);
    for (const Kind& kind : kinds) {
        const base::Data whole = made(kind);
        if (whole.empty()) continue;
        for (std::size_t percent = 0; percent < 100; ++percent) {
            base::Data cut = whole;
            cut.bytes.resize(whole.size() * percent / 100);
            EXPECT_FALSE(copyOfImageFile(cut, kind.type, commented("x"))) << kind.type << percent;
        }
        if (kind.type != "public.png"s) {
            EXPECT_FALSE(copyOfImageFile(png, kind.type, commented("x"))) << kind.type;
        }
    }
    EXPECT_FALSE(copyOfImageFile(png, "com.microsoft.bmp", commented("x")));
    EXPECT_FALSE(copyOfImageFile(png, "public.png", {{"Orientation", 100000}})) << "more than the tag holds";
    const base::Data jpeg = made(kinds[0]);
    EXPECT_FALSE(copyOfImageFile(jpeg, "public.jpeg", commented(std::string(70000, 'x')))) << "too much for a segment";
    base::Data trailing = jpeg; // pictures of some cameras carry more after their end
    trailing.bytes.insert(trailing.bytes.end(), {1, 2, 3, 0xFF, 0xD8, 9});
    EXPECT_EQ(copyOfImageFile(trailing, "public.jpeg", commented("x"))->bytes.back(), 9);
}

TEST(ImageCopy, GivesFilesWithoutOrWithRubbishMetadataSome) {
    base::Data bare = made(kinds[0]);
    const std::size_t exifStart = 2 + 2 + 16; // after SOI and the JFIF segment
    ASSERT_EQ(bare.bytes[exifStart + 1], 0xE1);
    const std::size_t length = bare.bytes[exifStart + 2] * 256u + bare.bytes[exifStart + 3];
    bare.bytes.erase(bare.bytes.begin() + exifStart, bare.bytes.begin() + exifStart + 2 + length);
    const auto copy = copyOfImageFile(bare, "public.jpeg", commented("new"));
    ASSERT_TRUE(copy);
    EXPECT_EQ(property(propertiesOf(*copy), "{Exif}", "UserComment"), base::Value("new"));
    EXPECT_EQ(copy->asText().substr(0, exifStart), bare.asText().substr(0, exifStart)) << "JFIF stays first";
    base::Data rubbish = bare;
    const std::string segment("\xFF\xE1\x00\x10"
                              "Exif\0\0rubbish!",
                              18);
    rubbish.bytes.insert(rubbish.bytes.begin() + exifStart, segment.begin(), segment.end());
    EXPECT_EQ(
        property(propertiesOf(*copyOfImageFile(rubbish, "public.jpeg", commented("new"))), "{Exif}", "UserComment"),
        base::Value("new"));
}

TEST(ExifBlock, KeepsMakersNotesInPlaceAndDoesNotGrowWithoutEnd) {
    base::Data makersNote; // as a camera's: with offsets that count from the block's beginning
    for (int index = 0; index < 500; ++index)
        makersNote.bytes.push_back(static_cast<std::uint8_t>(index * 7));
    Bytes block = *exifBlockMerging({}, exif({{"MakerNote", makersNote}, {"UserComment", "first"}}));
    const auto noteAt = [&] {
        return std::search(block.begin(), block.end(), makersNote.bytes.begin(), makersNote.bytes.end()) -
               block.begin();
    };
    const auto place = noteAt();
    ASSERT_LT(place, std::ptrdiff_t(block.size()));
    for (std::size_t turn = 0; turn < 300; ++turn) {
        block = *exifBlockMerging(block, commented(std::string(turn * 37 % 101, 'a') + "\xC3\xA4"));
        if (turn % 50 == 0) block = *exifBlockMerging(block, commented(""));
        ASSERT_EQ(noteAt(), place);
    }
    EXPECT_LT(block.size(), 8000u);
}

TEST(ExifProperties, ReadsCommentsInTheirEncodings) {
    const auto units = [](const std::string& text, bool bigEndian) {
        std::string bytes;
        for (const char character : text)
            bytes += bigEndian ? "\0"s + character : character + "\0"s;
        return bytes;
    };
    const struct {
        std::string bytes;
        bool bigEndian;
        base::Value value;
    } cases[] = {{"ASCII\0\0\0plain\0\0"s, false, "plain"},
                 {"ASCII\0\0\0Gr\xFC\xDF"s, false, "Gr\xC3\xBC\xC3\x9F"},
                 {"UNICODE\0"s + units("both", true), true, "both"},
                 {"UNICODE\0"s + units("both", false), false, "both"},
                 {"UNICODE\0"s + units("wrongly told", true), false, "wrongly told"},
                 {"UNICODE\0\xFE\xFF\x20\xAC"s, false, "\xE2\x82\xAC"},
                 {"UNICODE\0\x3C\xD8\x88\xDF\x00\xD8"s, false, "\xF0\x9F\x8E\x88\xEF\xBF\xBD"},
                 {"UNICODE\0"s, false, ""},
                 {"\0\0\0\0\0\0\0\0free\xC3\xA4"s, false, "free\xC3\xA4"},
                 {"without any mark   "s, false, "without any mark"},
                 {"JIS\0\0\0\0\0\x1B$B"s, false, base::Data("JIS\0\0\0\0\0\x1B$B"s)},
                 {"\0\0\0\0\0\0\0\0\xFF\xFE\x80"s, false, base::Data("\0\0\0\0\0\0\0\0\xFF\xFE\x80"s)}};
    for (const auto& row : cases)
        EXPECT_EQ(exifComment({row.bytes.begin(), row.bytes.end()}, row.bigEndian), row.value) << row.bytes;
}

TEST(ExifProperties, ReadsWhatAnotherProgramWrote) {
    const support::TemporaryDirectory folder;
    std::string command = "exiftool -q -overwrite_original -All= -ExifByteOrder=MM" // but for TIFF files
                          " -GPSLatitude=48.25 -GPSLatitudeRef=S -GPSLongitude=16.5 -GPSLongitudeRef=E"
                          " -GPSTimeStamp=10:11:12.5 -ExifIFD:UserComment='" +
                          comment +
                          "' -FNumber=2.8 -ISO=400 -ExifIFD:ISOSpeed=4000000000 -Artist=Me -XResolution=240"
                          " -ResolutionUnit=inches -Orientation#=8 -IPTC:Keywords=one -IPTC:Keywords=two"
                          " -IPTC:City=Graz";
    std::vector<std::pair<std::string, std::string>> files; // types and paths
    for (const Kind& kind : kinds) {
        const base::Data picture = made(kind);
        if (picture.empty()) continue;
        files.emplace_back(kind.type, folder.write("a."s + kind.extension, picture.asText()));
        command += " '" + files.back().second + "'";
    }
    if (!support::commandOutput(command)) GTEST_SKIP() << "exiftool is not installed";
    for (const auto& [type, path] : files) {
        SCOPED_TRACE(type);
        const base::Dictionary found = propertiesOf(base::Data(support::readFile(path)));
        EXPECT_NEAR(property(found, "{GPS}", "Latitude").doubleValue(), 48.25, 1e-6);
        EXPECT_EQ(property(found, "{GPS}", "LatitudeRef"), base::Value("S"));
        EXPECT_EQ(property(found, "{GPS}", "TimeStamp"), base::Value("10:11:12"));
        EXPECT_EQ(property(found, "{Exif}", "UserComment"), base::Value(comment));
        EXPECT_EQ(property(found, "{Exif}", "FNumber"), base::Value(2.8));
        EXPECT_EQ(property(found, "{Exif}", "ISOSpeedRatings"), base::Value(400));
        EXPECT_EQ(property(found, "{TIFF}", "Artist"), base::Value("Me"));
        if (type != "public.png" && type != "org.webmproject.webp") {
            EXPECT_EQ(property(found, "{IPTC}", "Keywords"), base::Value(base::Array{"one", "two"}));
            EXPECT_EQ(property(found, "{IPTC}", "City"), base::Value("Graz"));
        }
        EXPECT_EQ(base::valueForKey(found, "Orientation"), base::Value(8));
        EXPECT_EQ(base::valueForKey(found, "DPIWidth"), base::Value(240));
    }
}
