// The layout tells where the render draws: both are compared.
#include "internal/TemplateFixture.h"
#include "template/TemplateLayout.h"

#include "imaging/KLARON_Image.h"
#include "platform/draw/ImageMetadata.h"

using namespace template_testing;
using platform::draw::BitmapContext;

namespace {

TEST(TemplateLayout, SaysWhatOfAPictureShowsWhere) {
    const support::TemporaryDirectory files;
    const std::string resize = "<gravity>resize</gravity>";
    const struct {
        int orientation;
        std::string_view type;
        std::string inside;
        base::Rect shown, rect = {10, 5, 80, 60};
    } cases[] = {
        {1, "graphic", "", {20, 0, 80, 60}},
        {6, "graphic", "", {0, 37, 60, 46}},
        {3, "graphic", "<gravity>resizeAspect</gravity>", {0, 0, 120, 60}, {10, 15, 80, 40}},
        {8, "graphic", resize + "<croprect>{{10, 20}, {30, 40}}</croprect>", {10, 20, 30, 40}},
        {6, "graphic", resize + "<croprect normal='yes'>{{0.5, 0}, {0.5, 0.25}}</croprect>", {30, 0, 30, 30}},
        {6, "image", resize + "<croprect>{{30, 0}, {30, 30}}</croprect>", {0, 0, 30, 30}},
        {1, "image", resize + "<border width='5' clipsContent='no'>yes</border>", {0, 0, 120, 60}, {15, 10, 70, 50}},
        {1, "image", "<croprect>{{500, 0}, {30, 30}}</croprect>", {}},
        {1, "image", "<border width='50' clipsContent='no'>yes</border>", {}, {50, 35, 0, 0}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(&test - cases);
        const auto path = files / "picture.png";
        writePicture(path, halves(120, 60, "#F00", "#00F"), "public.png",
                     {{std::string(platform::draw::kCGImagePropertyOrientation), test.orientation}});
        const auto document = templateFrom("<layout size='{100, 70}'><layer type='" + std::string(test.type) +
                                           "' frame='{{10, 5}, {80, 60}}'><filepath>" + path + "</filepath>" +
                                           test.inside + "</layer></layout>");
        const auto layers = layoutOf(*document);
        ASSERT_EQ(layers.size(), 1u);
        ASSERT_TRUE(layers[0].picture);
        const PictureLayout& picture = *layers[0].picture;
        EXPECT_EQ(picture.file, path);
        EXPECT_EQ(picture.shown, test.shown);
        EXPECT_EQ(picture.rect, test.rect);

        // Drawn by what the layout says, it is the same picture.
        const auto context = BitmapContext::create(100, 70, KLARON_color::colorSpace());
        if (!picture.shown.isEmpty()) {
            const auto image = KLARON_Image::imageWithObject(path);
            image->setOrientationForced(picture.orientation);
            const auto part = KLARON_Image::initWithCGImage(image->croppedImageWithRect(picture.shown));
            part->setOrientationForced(picture.orientation);
            part->setDrawingContext(context);
            part->setDestinationRect(
                {picture.rect.x, 70 - picture.rect.maxY(), picture.rect.width, picture.rect.height});
            part->draw();
        }
        document->layers()[0]->setHasBorder(false);
        document->layers()[0]->setFrame(picture.rect);
        const auto drawn = document->createProductImage(), again = context->makeImage();
        for (const base::Point point : {base::Point{20, 15}, {80, 15}, {20, 55}, {80, 55}, {5, 35}, {50, 2}})
            EXPECT_EQ(pixelAt(drawn, int(point.x), int(point.y)), pixelAt(again, int(point.x), int(point.y)));
    }
}

TEST(TemplateLayout, TellsTheLinesOfTextsAndWhyLayersAreLeftOut) {
    const support::TemporaryDirectory files;
    const auto broken = files.write("broken.png", "no picture");
    files.write("node.xml", fileOf("<layer type='textbox' frame='{{5, 5}, {90, 9}}'><string>a\tb\"</string>"
                                   "<font>No Such Font</font></layer>"));
    const auto layer = [](std::string_view type, std::string_view inside, std::string_view frame = "{{0, 0}, {9, 9}}") {
        return base::message("<layer type='%@' frame='%@'>%@</layer>", type, frame, inside);
    };
    const auto document = templateFrom(
        "<layout size='{200, 100}'>" +
        layer("textbox", "<string>HHH HHH</string><font size='20'>DejaVu Sans</font>", "{{20, 10}, {60, 60}}") +
        layer("graphic", "<filepath>/gone/a.png</filepath>") + layer("image", "<filepath>" + broken + "</filepath>") +
        layer("image", "<key>hole</key>") + layer("stamp", "<key>date</key>") + layer("canvas", "") +
        layer("node", "", "{{0, 0}, {80002, 9}}") + layer("textbox", "<string>x</string>", "{{9, 9}, {0, 0}}") +
        layer("node", "<filepath>" + (files / "node.xml") + "</filepath>", "{{50, 20}, {100, 60}}") + "</layout>");
    document->setScale(0.5);
    const LogCapture log;
    const auto layers = layoutOf(*document);
    EXPECT_THAT(log.lines(), testing::IsEmpty());

    const auto& text = layers.at(0).text.value();
    ASSERT_EQ(text.lines.size(), 2u);
    const auto image = document->createProductImage();
    for (const auto& line : text.lines) {
        // The letters stand on the baseline, between the line's ends.
        const int foot = int(std::lround(line.baseline)), start = int(line.x), end = int(line.x + line.width);
        int ink = 0, below = 0, beside = 0;
        for (int x = 0; x < 60; ++x) {
            ink += x >= start && x <= end && pixelAt(image, x, foot - 1).alpha > 0;
            below += pixelAt(image, x, foot + 1).alpha > 0;
            beside += (x < start || x > end) && pixelAt(image, x, foot - 1).alpha > 0;
        }
        EXPECT_GE(ink, 6);
        EXPECT_EQ(below, 0);
        EXPECT_EQ(beside, 0);
    }

    using enum LayerOmission;
    std::vector<LayerOmission> omissions;
    for (const auto& left : layers)
        omissions.push_back(left.omission);
    EXPECT_THAT(omissions, testing::ElementsAre(none, missingPicture, unreadablePicture, noPath, noText, typeIsNotDrawn,
                                                noCanvas, emptyFrame, none));
    EXPECT_THAT(layoutText(*document, {layers.back()}), testing::EndsWith(R"(
    in 25.00, 10.00, 50.00 x 30.00
    textbox
      frame 2.50, 2.50, 45.00 x 4.50
      text "a\tb\""
      font "No Such Font" (not available) drawn by "Liberation Sans" size 24.00 natural
      in 2.50, 2.50, 45.00 x 4.50
      the text does not fit
)"));
}

} // namespace
