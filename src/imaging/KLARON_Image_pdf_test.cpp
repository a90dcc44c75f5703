#include "imaging/KLARON_Image.h"
#include "support/LogCapture.h"
#include "support/PdfMaker.h"
#include "support/TemporaryDirectory.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

using namespace platform::draw;
using base::Size;
using support::markedPage;
using support::pdfOf;

namespace {

struct Probe {
    int x, y; // pixels from the top left
    std::vector<int> rgba;
};

const std::vector<int> clear{0, 0, 0, 0}, red{255, 0, 0, 255}, green{0, 255, 0, 255}, blue{0, 0, 255, 255},
    black{0, 0, 0, 255}, magenta{255, 0, 255, 255}, yellow{255, 255, 0, 255};

std::vector<int> pixel(const Bitmap& bitmap, int x, int y) {
    const std::uint8_t* at = bitmap.row(y) + 4 * x;
    return {at[2], at[1], at[0], at[3]};
}

} // namespace

TEST(KLARON_ImagePDF, PlacesThePageInTheTarget) {
    struct Case {
        std::string rotate;
        Size size;
        int width, height;
        std::vector<Probe> probes;
    };
    const Case cases[] = {
        // The crop box is 100 x 200 points.
        {"", {100, 200}, 100, 200, {{0, 0, blue}, {99, 0, black}, {99, 199, green}, {0, 199, red}, {5, 100, magenta}}},
        // Lower than the target, and centred in its width: enlarged to the height.
        {"",
         {400, 400},
         400,
         400,
         {{99, 0, clear},
          {100, 0, blue},
          {139, 39, blue},
          {141, 39, clear},
          {299, 399, green},
          {300, 399, clear},
          {101, 200, magenta},
          {98, 200, clear}}},
        // Made smaller to the width and then enlarged by the height's ratio: the sides are cut off.
        {"", {50, 400}, 50, 400, {{20, 195, yellow}, {29, 204, yellow}, {19, 195, clear}, {30, 204, clear}}},
        // Higher than the target: made smaller, never less.
        {"", {100, 100}, 100, 100, {{24, 0, clear}, {25, 0, blue}, {74, 0, black}, {74, 99, green}, {75, 99, clear}}},
        // Turned by a quarter the box is 200 x 100; its height of 100 is what counts.
        {"/Rotate 90", {200, 100}, 200, 100, {{0, 0, red}, {199, 0, blue}, {199, 99, black}, {0, 99, green}}},
        {"/Rotate 90", {400, 200}, 400, 200, {{0, 0, red}, {399, 0, blue}, {399, 199, black}, {0, 199, green}}},
        // Sides are rounded, halves away from zero; the page is laid out in the size that was asked for.
        {"", {100.5, 200.5}, 101, 201, {{50, 50, clear}}},
        {"", {100.49, 200.49}, 100, 200, {{50, 50, clear}}},
        // In single precision the first of these is a half.
        {"", {16384.4999999, 1}, 16385, 1, {{0, 0, clear}}},
    };
    const support::TemporaryDirectory folder;
    for (const Case& item : cases) {
        SCOPED_TRACE(item.rotate + " in " + base::stringFromSize(item.size));
        const std::string path = folder.write("page.pdf", pdfOf({markedPage(item.rotate), markedPage()}));
        std::optional<base::Error> error;
        const auto image = KLARON_Image::imageWithPDFObject(path, item.size, &error);
        ASSERT_TRUE(image);
        EXPECT_FALSE(error);
        EXPECT_EQ(image->size(), (Size{double(item.width), double(item.height)})); // without metadata, the real one
        const Bitmap bitmap = *image->cgImage()->bitmap();
        for (const Probe& probe : item.probes)
            EXPECT_EQ(pixel(bitmap, probe.x, probe.y), probe.rgba) << probe.x << ", " << probe.y;
    }
}

TEST(KLARON_ImagePDF, AlphaIsOfTheBackgroundToo) {
    struct Case {
        std::optional<double> alpha;
        std::optional<std::string> background;
        std::vector<int> beside; // the page
        std::vector<int> patch;  // the blue one
        std::vector<int> paper;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt, clear, blue, clear},
        {0.5, std::nullopt, clear, {0, 0, 128, 128}, clear},
        {std::nullopt, "#FF8000", {255, 128, 0, 255}, blue, {255, 128, 0, 255}},
        {std::nullopt, "#FF000080", {128, 0, 0, 128}, blue, {128, 0, 0, 128}},
        // Half of the colour, and half of the page over it.
        {0.5, "#FF0000", {128, 0, 0, 128}, {64, 0, 128, 192}, {128, 0, 0, 128}},
        {0, "#FF0000", clear, clear, clear},
    };
    const support::TemporaryDirectory folder;
    const base::URL url = base::URL::fileURLWithPath(folder.write("page.pdf", pdfOf({markedPage()})));
    for (const Case& item : cases) {
        const auto image = KLARON_Image::imageWithPDFObject(url, {200, 200}, item.alpha, item.background, nullptr);
        ASSERT_TRUE(image);
        const Bitmap bitmap = *image->cgImage()->bitmap();
        const auto expectNear = [&](int x, int y, const std::vector<int>& wanted) {
            const auto found = pixel(bitmap, x, y);
            for (std::size_t channel = 0; channel < 4; ++channel)
                EXPECT_NEAR(found[channel], wanted[channel], 1)
                    << x << ", " << y << " alpha " << item.alpha.value_or(1) << item.background.value_or(" none");
        };
        expectNear(20, 100, item.beside);
        expectNear(55, 5, item.patch);
        expectNear(100, 50, item.paper);
    }
}

TEST(KLARON_ImagePDF, WhatCannotBeMadeIsNone) {
    const support::TemporaryDirectory folder;
    const std::string good = folder.write("page.pdf", pdfOf({markedPage()}));
    const std::string cut = folder.write("cut.pdf", pdfOf({markedPage()}).substr(0, 400));
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    const auto isNone = [](const ImageObject& object, Size size) {
        const support::LogCapture log;
        std::optional<base::Error> error;
        return !KLARON_Image::imageWithPDFObject(object, size, &error) && error && !log.has("Passed parameter") &&
               !KLARON_Image::imageWithPDFObject(object, size, nullptr);
    };
    for (const ImageObject& object :
         {ImageObject(folder / "missing.pdf"), ImageObject(cut), ImageObject(""), ImageObject(folder.path().string()),
          ImageObject(base::URL::fromString("https://a.invalid/b.pdf"))})
        EXPECT_TRUE(isNone(object, {10, 10})) << object.description();
    for (const Size size : {Size{0, 10}, {10, 0.4}, {-10, 10}, {none, 10}, {10, none}, {1e300, 10}, {1e9, 1e9}})
        EXPECT_TRUE(isNone(good, size)) << base::stringFromSize(size);
    const std::string message = "Passed parameter to +[KLARON_Image "
                                "imageWithPDFObject:size:alpha:backgroundColorCode:error:] not a path or URL";
    for (const ImageObject& object : {ImageObject(base::Value(7)), ImageObject(), ImageObject(base::Data("%PDF-"))}) {
        const support::LogCapture log;
        std::optional<base::Error> error;
        EXPECT_FALSE(KLARON_Image::imageWithPDFObject(object, {10, 10}, 0.5, &error));
        EXPECT_EQ(error, (base::Error{std::string(base::cocoaErrorDomain), 0, message}));
        EXPECT_FALSE(KLARON_Image::imageWithPDFObject(object, {10, 10}, nullptr));
        EXPECT_EQ(log.count(message), 2u);
    }
}
