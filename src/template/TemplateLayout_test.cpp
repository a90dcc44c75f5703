// What a layout tells of layers that are left out and of texts. The places stand with their pictures in tests/golden.
#include "internal/TemplateFixture.h"
#include "template/TemplateLayout.h"

using namespace template_testing;

namespace {

TEST(TemplateLayout, TellsWhyLayersAreLeftOutAndWhatDrawsATextWhoseFontIsMissing) {
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
