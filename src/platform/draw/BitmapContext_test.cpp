#include "internal/Canvas.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>

using namespace platform::draw;
using base::AffineTransform;
using base::Rect;

namespace {

constexpr double pi = std::numbers::pi;
const Color red(1, 0, 0), green(0, 1, 0), blue(0, 0, 1), white(1, 1, 1), black(0, 0, 0);

BitmapContextRef makeCanvas(int width, int height, AlphaInfo alpha = AlphaInfo::premultipliedLast) {
    return BitmapContext::create(width, height, ColorSpace::sRGB(), alpha);
}

Bitmap pixelsOf(const BitmapContextRef& canvas) {
    return *canvas->makeImage()->bitmap();
}

// "RRGGBBAA" of the pixel, counted from the top left.
std::string pixel(const Bitmap& bitmap, int x, int y) {
    const std::uint8_t* at = bitmap.row(y) + 4 * x;
    char text[9];
    std::snprintf(text, sizeof text, "%02X%02X%02X%02X", at[2], at[1], at[0], at[3]);
    return text;
}
std::string pixel(const BitmapContextRef& canvas, int x, int y) {
    return pixel(pixelsOf(canvas), x, y);
}

int largestDifference(const Bitmap& one, const Bitmap& other) {
    int largest = 0;
    for (int y = 0; y < one.height(); ++y)
        for (int byte = 0; byte < 4 * one.width(); ++byte)
            largest = std::max(largest, std::abs(one.row(y)[byte] - other.row(y)[byte]));
    return largest;
}

// Upper left red, upper right green, lower left blue, lower right white.
ImageRef fourColors(int side = 40) {
    const auto canvas = makeCanvas(side, side, AlphaInfo::noneSkipLast);
    const double half = side / 2.0;
    const struct {
        Color color;
        double x, y;
    } parts[] = {{red, 0, half}, {green, half, half}, {blue, 0, 0}, {white, half, 0}};
    for (const auto& part : parts) {
        canvas->setFillColor(part.color);
        canvas->fillRect({part.x, part.y, half, half});
    }
    return canvas->makeImage();
}

// The colours of the four corners of the canvas, as letters: upper left, upper right, lower left, lower right.
std::string corners(const BitmapContextRef& canvas) {
    const Bitmap bitmap = pixelsOf(canvas);
    const int right = bitmap.width() - 3, bottom = bitmap.height() - 3;
    std::string letters;
    for (const auto& [x, y] : {std::pair{2, 2}, {right, 2}, {2, bottom}, {right, bottom}}) {
        const std::string color = pixel(bitmap, x, y);
        letters += color == "FF0000FF"   ? 'r'
                   : color == "00FF00FF" ? 'g'
                   : color == "0000FFFF" ? 'b'
                   : color == "FFFFFFFF" ? 'w'
                   : color == "00000000" ? '.'
                                         : '?';
    }
    return letters;
}

base::Data jpegOf(const ImageRef& image) {
    auto destination = *ImageDestination::createWithData("public.jpeg");
    destination->addImage(image, {});
    EXPECT_TRUE(destination->finalize());
    return destination->takeData();
}

} // namespace

TEST(BitmapContext, RefusesSizesThatNoCanvasCanHave) {
    const double notANumber = std::numeric_limits<double>::quiet_NaN();
    for (const auto& [width, height] : {std::pair{0.0, 10.0},
                                        {10.0, 0.0},
                                        {-1.0, 10.0},
                                        {0.9, 10.0},
                                        {notANumber, 10.0},
                                        {40000.0, 1.0},
                                        {30000.0, 30000.0}})
        EXPECT_EQ(BitmapContext::create(width, height, ColorSpace::sRGB()), nullptr) << width << " x " << height;
    const auto cut = BitmapContext::create(10.9, 5.5, nullptr);
    EXPECT_EQ(cut->width(), 10);
    EXPECT_EQ(cut->height(), 5);
    EXPECT_EQ(pixel(cut, 0, 0), "00000000");
    EXPECT_EQ(pixel(makeCanvas(2, 2, AlphaInfo::noneSkipLast), 1, 1), "000000FF");
    EXPECT_EQ(BitmapContext::create(2, 2, ColorSpace::gray())->colorSpace(), ColorSpace::sRGB());
}

TEST(BitmapContext, FillsFromTheBottomLeftWithinClipAndState) {
    const auto canvas = makeCanvas(20, 10);
    canvas->saveState();
    canvas->setFillColor(red);
    canvas->fillRect({0, 0, 5, 3});
    canvas->clipToRect({10, 0, 4, 4});
    canvas->concatenate(AffineTransform::translation(10, 0));
    canvas->setFillColor(blue);
    canvas->fillRect({-10, 0, 20, 10});
    canvas->restoreState();
    canvas->fillRect({18, 8, 2, 2}); // black again, no clip, no transform
    canvas->restoreState();          // one too many is harmless
    const Bitmap bitmap = pixelsOf(canvas);
    EXPECT_EQ(pixel(bitmap, 0, 9), "FF0000FF");
    EXPECT_EQ(pixel(bitmap, 0, 6), "00000000");
    EXPECT_EQ(pixel(bitmap, 10, 6), "0000FFFF");
    EXPECT_EQ(pixel(bitmap, 10, 5), "00000000");
    EXPECT_EQ(pixel(bitmap, 14, 9), "00000000");
    EXPECT_EQ(pixel(bitmap, 19, 0), "000000FF");
}

TEST(BitmapContext, MultipliesAlphaAndClears) {
    const auto canvas = makeCanvas(10, 10);
    canvas->setFillColor(Color(1, 0, 0, 0.5));
    canvas->setAlpha(0.5);
    canvas->fillRect({0, 0, 10, 10});
    EXPECT_EQ(pixel(canvas, 5, 5), "40000040");
    canvas->clearRect({0, 5, 10, 5});
    EXPECT_EQ(pixel(canvas, 5, 0), "00000000");
    EXPECT_EQ(pixel(canvas, 5, 5), "40000040");
}

TEST(BitmapContext, DrawsImagesUprightUnderEveryQuarterTurnAndMirror) {
    const struct {
        AffineTransform transform;
        const char* corners;
    } cases[] = {
        {{}, "rgbw"},
        {AffineTransform::rotationAbout({20, 20}, -pi / 2), "brwg"}, // clockwise
        {AffineTransform::rotationAbout({20, 20}, pi), "wbgr"},
        {AffineTransform::rotationAbout({20, 20}, pi / 2), "gwrb"},
        {AffineTransform::rotationAbout({20, 20}, 1.5708), "gwrb"},
        {{-1, 0, 0, 1, 40, 0}, "grwb"},
        {{1, 0, 0, -1, 0, 40}, "bwrg"},
        {{0, 1, 1, 0, 0, 0}, "wgbr"},
        {{0, -1, -1, 0, 40, 40}, "rbgw"},
    };
    for (const auto& row : cases) {
        const auto canvas = makeCanvas(40, 40);
        canvas->concatenate(row.transform);
        canvas->drawImage(fourColors(), {0, 0, 40, 40});
        EXPECT_EQ(corners(canvas), row.corners);
    }
}

TEST(BitmapContext, TurnedImagesHaveCleanEdgesAndRightColours) {
    const auto canvas = makeCanvas(60, 60);
    canvas->concatenate(AffineTransform::rotationAbout({30, 30}, -pi / 4));
    canvas->drawImage(fourColors(), {10, 10, 40, 40});
    const Bitmap bitmap = pixelsOf(canvas);
    EXPECT_EQ(pixel(bitmap, 30, 10), "FF0000FF");
    EXPECT_EQ(pixel(bitmap, 50, 30), "00FF00FF");
    EXPECT_EQ(pixel(bitmap, 10, 30), "0000FFFF");
    EXPECT_EQ(pixel(bitmap, 3, 3), "00000000");
    // Along the red edge no other colour than red, more or less of it, appears.
    for (int x = 19; x < 28; ++x) {
        const std::uint8_t* at = bitmap.row(33 - x) + 4 * x;
        EXPECT_EQ(at[0], 0);
        EXPECT_EQ(at[1], 0);
        EXPECT_EQ(at[2], at[3]);
    }
}

TEST(BitmapContext, SnapshotsShareUntilTheNextDrawing) {
    const auto canvas = makeCanvas(8, 8);
    canvas->setFillColor(red);
    canvas->fillRect({0, 0, 8, 8});
    const ImageRef first = canvas->makeImage();
    const ImageRef second = canvas->makeImage();
    EXPECT_EQ(first->bitmap()->pixels(), second->bitmap()->pixels());
    canvas->setFillColor(blue);
    canvas->fillRect({0, 0, 8, 8});
    EXPECT_EQ(pixel(*first->bitmap(), 0, 0), "FF0000FF");
    EXPECT_EQ(pixel(canvas, 0, 0), "0000FFFF");
    const std::uint8_t* before = canvas->makeImage()->bitmap()->pixels();
    canvas->fillRect({0, 0, 8, 8}); // no snapshot lives
    EXPECT_EQ(canvas->makeImage()->bitmap()->pixels(), before);
}

TEST(BitmapContext, RemembersThePictureThatBroke) {
    const auto source = makeCanvas(400, 300, AlphaInfo::noneSkipLast);
    for (int index = 0; index < 300; ++index) {
        source->setFillColor(Color(std::fmod(index * 0.37, 1), std::fmod(index * 0.73, 1), std::fmod(index * 0.11, 1)));
        source->fillRect({double(index), double(index * 7 % 290), 40, 9});
    }
    base::Data jpeg = jpegOf(source->makeImage());
    jpeg.bytes.resize(jpeg.size() / 2);
    const auto cutOff = ImageSource::createWithData(jpeg);
    ASSERT_TRUE(cutOff) << "the header is whole";
    for (const double angle : {0.0, 0.3}) {
        const auto canvas = makeCanvas(200, 200);
        canvas->concatenate(AffineTransform::rotationAbout({100, 100}, angle));
        EXPECT_FALSE(canvas->drawError());
        canvas->drawImage((*cutOff)->imageAtIndex(0), {0, 0, 200, 200});
        ASSERT_TRUE(canvas->drawError());
        EXPECT_FALSE(canvas->drawError()->localizedDescription.empty());
        canvas->clearDrawError();
        canvas->drawImage(fourColors(), {0, 0, 200, 200});
        EXPECT_FALSE(canvas->drawError());
    }
}

TEST(BitmapContext, HoldsAgainstGeometryThatIsNone) {
    const auto canvas = makeCanvas(10, 10);
    const double infinity = std::numeric_limits<double>::infinity(), notANumber = std::nan("");
    canvas->setShadow({3, 3}, 1e12, black);
    for (const Rect& rect : {Rect{notANumber, 0, 5, 5}, Rect{0, 0, infinity, 5}, Rect::null(), Rect{0, 0, 0, 0},
                             Rect{1e300, 1e300, 1e300, 1e300}}) {
        canvas->fillRect(rect);
        canvas->drawImage(fourColors(), rect);
        canvas->drawText({"text", {}}, rect);
        canvas->beginPath();
        canvas->addRoundedRect(rect, 3, 3);
        canvas->strokePath();
        canvas->saveState();
        canvas->clipToRect(rect);
        canvas->restoreState();
    }
    canvas->concatenate({0, 0, 0, 0, 0, 0});
    canvas->fillRect({0, 0, 5, 5});
    canvas->drawImage(fourColors(), {0, 0, 5, 5});
    EXPECT_EQ(pixel(canvas, 5, 5), "00000000");
}

// -- Shadows ----------------------------------------------------------------------------------------------------------

TEST(Shadow, StaysInBaseSpaceWhateverTheTransform) {
    for (const double angle : {0.0, pi / 2, pi, 0.7}) {
        const auto canvas = makeCanvas(100, 100);
        canvas->concatenate(AffineTransform::rotationAbout({50, 50}, angle));
        canvas->concatenate(AffineTransform{2, 0, 0, 2, -50, -50}); // twice as large about the middle
        canvas->setShadow({20, -30}, 0, black);
        canvas->setFillColor(red);
        canvas->fillRect({45, 45, 10, 10});
        const Bitmap bitmap = pixelsOf(canvas);
        EXPECT_EQ(pixel(bitmap, 50, 50), "FF0000FF") << angle;
        EXPECT_EQ(pixel(bitmap, 70, 80), "000000FF") << "right by 20, down by 30; " << angle;
        EXPECT_EQ(pixel(bitmap, 30, 20), "00000000") << angle;
    }
}

TEST(Shadow, BlurIsTwoStandardDeviations) {
    const auto canvas = makeCanvas(200, 60);
    canvas->setShadow({0, -1000}, 20, black); // sigma 10; the rectangle itself stands far above
    canvas->fillRect({100, 900, 1000, 1200});
    const Bitmap bitmap = pixelsOf(canvas);
    for (const int x : {80, 90, 99, 110, 125}) {
        const double expected = 255 * 0.5 * (1 + std::erf((x + 0.5 - 100) / (10 * std::sqrt(2.0))));
        EXPECT_NEAR(bitmap.row(30)[4 * x + 3], expected, 1.5) << x;
    }
}

// The computed shadows of rectangles against those that are drawn and blurred.
TEST(Shadow, ComputedAndBlurredOnesAgree) {
    for (const double angle : {0.0, 0.35})
        for (const double blur : {3.0, 12.0, 50.0})
            for (const bool framed : {false, true}) {
                const auto draw = [&](bool blurred) {
                    const auto canvas = makeCanvas(160, 140);
                    canvas->concatenate(AffineTransform::rotationAbout({80, 70}, angle));
                    canvas->setShadow({9, -7}, blur, Color(0.2, 0, 0.4, 0.8));
                    canvas->setFillColor(white);
                    canvas->setStrokeColor(white);
                    canvas->setLineWidth(8);
                    canvas->beginPath();
                    canvas->addRect({40, 35, 70, 60});
                    if (blurred) canvas->addRect({-9000, 0, 1, 1}); // makes the path more than a rectangle
                    framed ? canvas->strokePath() : canvas->fillPath();
                    return pixelsOf(canvas);
                };
                EXPECT_LE(largestDifference(draw(false), draw(true)), 4)
                    << "angle " << angle << " blur " << blur << (framed ? " framed" : " filled");
            }
}

TEST(Shadow, OfAnOpaquePictureEqualsThatOfItsRectangle) {
    for (const double angle : {0.0, 0.35, pi / 2}) {
        const auto draw = [&](bool asImage) {
            const auto canvas = makeCanvas(160, 140);
            canvas->concatenate(AffineTransform::rotationAbout({80, 70}, angle));
            canvas->setShadow({9, -7}, 14, black);
            const auto whiteCanvas = makeCanvas(70, 60, AlphaInfo::noneSkipLast);
            whiteCanvas->setFillColor(white);
            whiteCanvas->fillRect({0, 0, 70, 60});
            canvas->setFillColor(white);
            if (asImage)
                canvas->drawImage(whiteCanvas->makeImage(), {40, 35, 70, 60});
            else
                canvas->fillRect({40, 35, 70, 60});
            return pixelsOf(canvas);
        };
        EXPECT_LE(largestDifference(draw(true), draw(false)), 2) << angle;
    }
}

TEST(Shadow, OfWideBlurs) {
    const auto wide = makeCanvas(300, 300);
    wide->setShadow({0, 0}, 400, black); // drawn in a coarse mask
    wide->beginPath();
    wide->addRoundedRect({100, 100, 100, 100}, 20, 20);
    wide->fillPath();
    const Bitmap soft = pixelsOf(wide);
    EXPECT_NEAR(soft.row(20)[4 * 150 + 3], soft.row(280)[4 * 150 + 3], 2);
    EXPECT_GT(soft.row(20)[4 * 150 + 3], 3);
}
