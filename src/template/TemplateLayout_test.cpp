// What the layout tells beside the places, which stand with their pictures in tests/golden.
#include "internal/TemplateFixture.h"
#include "template/TemplateLayout.h"

#include "platform/draw/ImageMetadata.h"

using namespace template_testing;

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
