#include "internal/PictureFixtures.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <tuple>

using namespace platform::draw;
namespace fs = std::filesystem;

namespace {

ImageRef picture(AlphaInfo alpha = AlphaInfo::noneSkipLast, int width = 97, int height = 61) {
    const auto canvas = BitmapContext::create(width, height, ColorSpace::sRGB(), alpha);
    for (int index = 0; index < 60; ++index) {
        canvas->setFillColor(Color(std::fmod(index * 0.37, 1), std::fmod(index * 0.73, 1), std::fmod(index * 0.11, 1),
                                   alpha == AlphaInfo::noneSkipLast ? 1 : std::fmod(index * 0.21, 1)));
        canvas->fillRect({double(index * 13 % width), double(index * 7 % height), 20, 15});
    }
    return canvas->makeImage();
}

base::Dictionary properties(double quality = 0.85) {
    return {{std::string(kCGImageDestinationLossyCompressionQuality), quality}};
}

base::Data encoded(const ImageRef& image, std::string_view type, const base::Dictionary& with) {
    auto destination = *ImageDestination::createWithData(type);
    destination->addImage(image, with);
    EXPECT_TRUE(destination->finalize());
    return destination->takeData();
}

ImageRef decoded(const base::Data& data) {
    const auto source = ImageSource::createWithData(data);
    return source ? (*source)->imageAtIndex(0) : nullptr;
}

int largestDifference(const ImageRef& one, const ImageRef& other) {
    const Bitmap left = *one->bitmap(), right = *other->bitmap();
    int largest = 0;
    for (int y = 0; y < left.height(); ++y)
        for (int byte = 0; byte < 4 * left.width(); ++byte)
            largest = std::max(largest, std::abs(left.row(y)[byte] - right.row(y)[byte]));
    return largest;
}

std::vector<std::string> filesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    return names;
}

} // namespace

TEST(ImageDestination, LosslessFormatsBringTheSamePixelsBack) {
    for (const char* type : {"public.png", "public.tiff"})
        for (const AlphaInfo alpha : {AlphaInfo::noneSkipLast, AlphaInfo::premultipliedLast}) {
            const ImageRef original = picture(alpha);
            const ImageRef back = decoded(encoded(original, type, properties()));
            ASSERT_TRUE(back) << type;
            EXPECT_EQ(back->isOpaque(), original->isOpaque()) << type;
            EXPECT_LE(largestDifference(original, back), 1) << type;
            EXPECT_TRUE(back->colorSpace()->isSRGB());
        }
}

TEST(ImageDestination, JPEGSubsamplesBelowNineTenthsAndLiesOnWhite) {
    const auto samplingOf = [](const base::Data& jpeg) {
        for (std::size_t at = 2; at + 12 < jpeg.size(); ++at)
            if (jpeg.bytes[at] == 0xFF && jpeg.bytes[at + 1] == 0xC0) return int(jpeg.bytes[at + 11]);
        return 0;
    };
    EXPECT_EQ(samplingOf(encoded(picture(), "public.jpeg", properties(0.89))), 0x22);
    EXPECT_EQ(samplingOf(encoded(picture(), "public.jpeg", properties(0.9))), 0x11);
    EXPECT_LE(largestDifference(picture(), decoded(encoded(picture(), "public.jpeg", properties(1)))), 4);

    const auto canvas = BitmapContext::create(32, 16, ColorSpace::sRGB());
    canvas->setFillColor(Color(1, 0, 0, 0.5));
    canvas->fillRect({16, 0, 16, 16});
    const Bitmap bitmap = *decoded(encoded(canvas->makeImage(), "public.jpeg", properties(1)))->bitmap();
    EXPECT_NEAR(bitmap.row(8)[0], 255, 1);
    EXPECT_NEAR(bitmap.row(8)[4 * 24 + 2], 255, 2);
    EXPECT_NEAR(bitmap.row(8)[4 * 24 + 1], 127, 2);
}

TEST(ImageDestination, WideGamutPicturesKeepTheirProfile) {
    const auto space = ColorSpace::fromICC(fixtures::profileOf({0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}));
    ASSERT_TRUE(space);
    const auto canvas = BitmapContext::create(8, 8, *space);
    for (const char* type : {"public.jpeg", "public.png", "public.tiff", "public.heic", "com.adobe.photoshop-image"}) {
        const ImageRef back = decoded(encoded(canvas->makeImage(), type, {}));
        ASSERT_TRUE(back) << type;
        EXPECT_EQ(back->colorSpace(), *space) << type;
    }
}

TEST(ImageDestination, FilesGrowWithTheirQuality) {
    for (const char* type : {"public.jpeg", "public.heic", "com.adobe.pdf"}) {
        std::size_t last = 0;
        for (const double quality : {0.0, 0.3, 0.6, 0.9, 1.0}) {
            const std::size_t size = encoded(picture(), type, properties(quality)).size();
            EXPECT_GT(size, last) << type << " " << quality;
            last = size;
        }
    }
}

TEST(ImageDestination, FilesAppearWholeOrNotAtAll) {
    const support::TemporaryDirectory folder;
    const auto url = base::URL::fileURLWithPath(folder / "a.jpeg");
    {
        auto destination = *ImageDestination::createWithURL(url, "public.jpeg");
        EXPECT_FALSE(fs::exists(url.path())) << "not before it is finalized";
        destination->addImage(picture(), properties());
        EXPECT_TRUE(destination->finalize());
        EXPECT_FALSE(destination->finalize()) << "once only";
    }
    EXPECT_EQ(filesIn(folder.path()), std::vector<std::string>{"a.jpeg"});
    EXPECT_TRUE(decoded(base::Data(support::readFile(url.path()))));
    {
        auto abandoned = *ImageDestination::createWithURL(url, "public.jpeg");
        abandoned->addImage(picture(AlphaInfo::noneSkipLast, 10, 10), properties());
    }
    EXPECT_EQ(decoded(base::Data(support::readFile(url.path())))->width(), 97) << "the old file stays";

    base::Data broken = encoded(picture(), "public.jpeg", properties(1));
    broken.bytes.resize(broken.size() - broken.size() / 3);
    auto failing = *ImageDestination::createWithURL(base::URL::fileURLWithPath(folder / "b.jpeg"), "public.jpeg");
    failing->addImage(decoded(broken), properties());
    EXPECT_FALSE(failing->finalize()) << "a cut-off picture is no product";
    failing.reset();
    EXPECT_EQ(filesIn(folder.path()), std::vector<std::string>{"a.jpeg"});

    fs::permissions(url.path(), fs::perms(0660));
    fs::create_symlink("a.jpeg", folder.path() / "link");
    auto linked = *ImageDestination::createWithURL(base::URL::fileURLWithPath(folder / "link"), "public.jpeg");
    linked->addImage(picture(AlphaInfo::noneSkipLast, 10, 10), properties());
    EXPECT_TRUE(linked->finalize());
    EXPECT_TRUE(fs::is_symlink(folder.path() / "link"));
    EXPECT_EQ(fs::status(url.path()).permissions(), fs::perms(0660)) << "what is replaced keeps its mode";
    EXPECT_EQ(decoded(base::Data(support::readFile(url.path())))->width(), 10);
}

TEST(ImageDestination, TakesTheNextNameWhenAnotherCameFirst) {
    const support::TemporaryDirectory folder;
    const auto named = [&](std::string_view name) { return base::URL::fileURLWithPath(folder / name); };
    const auto next = [](const base::URL& taken) {
        return taken.deletingPathExtension().appendingPathExtension("x" + taken.pathExtension());
    };
    auto destination = *ImageDestination::createWithURL(named("a.jpeg"), "public.jpeg", next);
    destination->addImage(picture(), properties());
    folder.write("a.jpeg", "of another process"); // after the name was found to be free
    fs::create_directory(folder.path() / "a.xjpeg");
    ASSERT_TRUE(destination->finalize());
    EXPECT_EQ(destination->url(), named("a.xxjpeg"));
    EXPECT_TRUE(decoded(base::Data(support::readFile(folder / "a.xxjpeg"))));
    EXPECT_EQ(support::readFile(folder / "a.jpeg"), "of another process");
    EXPECT_EQ(writeWithoutReplacing(base::Data("bytes"), named("a.jpeg"), next), named("a.xxxjpeg"));
    EXPECT_EQ(support::readFile(folder / "a.xxxjpeg"), "bytes");
    EXPECT_EQ(filesIn(folder.path()).size(), 4u) << "and no temporary file";
}

TEST(ImageDestination, SaysWhatItCanNotWrite) {
    const support::TemporaryDirectory folder;
    const auto url = [&](std::string_view name) { return base::URL::fileURLWithPath(folder / name); };
    EXPECT_FALSE(ImageDestination::createWithURL(url("a.gif"), "com.compuserve.gif"));
    const auto missing = ImageDestination::createWithURL(url("none/a.jpeg"), "public.jpeg");
    ASSERT_FALSE(missing);
    EXPECT_NE(missing.error().localizedDescription.find("none/a.jpeg"), std::string::npos);
    fs::create_directory(folder.path() / "b.jpeg");
    EXPECT_FALSE(ImageDestination::createWithURL(url("b.jpeg"), "public.jpeg"));
    auto empty = *ImageDestination::createWithURL(url("c.jpeg"), "public.jpeg");
    EXPECT_FALSE(empty->finalize()) << "without an image";
    const auto tooWide = Image::fromBitmap(*Bitmap::create(32769, 1, ColorSpace::sRGB(), true));
    const base::Dictionary tooLong{{"{Exif}", base::Dictionary{{"UserComment", std::string(70000, 'x')}}}};
    for (const auto& [type, image, with, reason] : {std::tuple{"public.heic", tooWide, properties(), "32769 x 1"},
                                                    {"public.jpeg", picture(), tooLong, "metadata is too large"}}) {
        auto destination = *ImageDestination::createWithData(type);
        destination->addImage(image, with);
        const auto done = destination->finalize();
        EXPECT_TRUE(!done && done.error().localizedDescription.find(reason) != std::string::npos) << reason;
    }
}
