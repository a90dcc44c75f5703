// The picture of a template: where layers lie, what they are drawn from, and what must not become a product.
#include "internal/TemplateFixture.h"

#include "platform/draw/TextFrame.h"

using namespace template_testing;
using base::Value;
using platform::draw::ImageRef;

namespace {

constexpr std::string_view fill = "<gravity>resize</gravity>";

// An image layer that holds a picture in memory.
VELM_Template::Ref layerWith(const ImageRef& image, std::string_view frame, std::string_view type = "image",
                             std::string_view inside = fill) {
    const auto layer = templateFrom("<layer type='" + std::string(type) + "' frame='" + std::string(frame) + "'>" +
                                    std::string(inside) + "</layer>");
    layer->setValue("filepath", Value(std::make_shared<ImageValue>(image)));
    return layer;
}

VELM_Template::Ref documentWith(const std::vector<VELM_Template::Ref>& layers, std::string_view size = "{100, 100}") {
    const auto document = templateFrom("<layout size='" + std::string(size) + "'/>");
    for (const auto& layer : layers)
        layer->setParent(document);
    document->setLayers(layers);
    return document;
}

ImageRef plain(std::string_view code) {
    return halves(8, 8, code, code);
}

TEST(TemplateRendering, WhatHasNoCanvasGivesNoPicture) {
    for (const auto* size : {"{0, 0}", "{1e9, 1e9}"})
        EXPECT_EQ(templateFrom("<layout size='" + std::string(size) + "'/>")->createProductImage(), nullptr) << size;
    const auto canvas = documentWith({layerWith(plain("#00F"), "{{0, 0}, {9, 9}}", "canvas")});
    EXPECT_EQ(pixelAt(canvas->createProductImage(), 4, 4), clear) << "a bare canvas is not drawn";
}

TEST(TemplateRendering, MissingPicturesAreSearched) {
    // Each place alone has the picture; the document lies in VELM/Templates/shop, with and without a job container.
    const std::map<std::string, std::pair<bool, bool>> isFoundWithAndWithout = {
        {"order/Images/p.png", {true, false}},
        {"order/Graphics/p.png", {true, false}},
        {"order/Templates/p.png", {true, false}},
        {"VELM/Images/p.png", {true, true}},
        {"VELM/Graphics/p.png", {true, true}},
        {"VELM/Templates/p.png", {true, true}},
        {"VELM/Templates/shop/Images/p.png", {false, true}},
        {"order/p.png", {false, false}},
    };
    for (const auto& [place, isFound] : isFoundWithAndWithout) {
        const support::TemporaryDirectory files;
        writePicture(files.write(place, ""), plain("#F00"));
        const auto path = files.write(
            "VELM/Templates/shop/t.xml",
            fileOf("<layer type='graphic' frame='{{0, 0}, {100, 100}}'><filepath>p.png</filepath></layer>"));
        const auto colorWith = [&](const std::optional<base::URL>& container) {
            const LogCapture log;
            const auto document = VELM_Template::instanceWithXMLObject(path);
            const auto package = std::make_shared<TestPackage>();
            package->order->container = container;
            document->setPackage(package);
            const Pixel color = pixelAt(document->createProductImage(), 50, 50);
            EXPECT_EQ(document->renderError(), std::nullopt);
            return color;
        };
        EXPECT_EQ(colorWith(base::URL::fileURLWithPath(files / "order")), isFound.first ? red : clear) << place;
        EXPECT_EQ(colorWith(std::nullopt), isFound.second ? red : clear) << place;
    }
}

TEST(TemplateRendering, ABrokenPictureMustNotBecomeAProduct) {
    const support::TemporaryDirectory files;
    const auto whole = files / "whole.jpg";
    writePicture(whole, halves(400, 400, "#F00", "#00F"), "public.jpeg");
    const std::string bytes = support::readFile(whole);
    const LogCapture log;
    for (const std::string_view type : {"image", "graphic"}) {
        for (const std::string& content :
             {std::string(), std::string("no picture"), bytes.substr(0, bytes.size() / 2)}) {
            const auto path = files.write("broken.jpg", content);
            const auto layer = templateFrom("<layer type='" + std::string(type) +
                                            "' frame='{{0, 0}, {50, 50}}'><filepath>" + path + "</filepath></layer>");
            // A container tells of what is in it.
            const auto outer = documentWith({documentWith({layer}, "{50, 50}")});
            outer->image();
            ASSERT_TRUE(outer->renderError()) << type << content.size();
            // The error of a kept picture stays with it, whatever was drawn between.
            const auto inner = outer->layers()[0];
            layer->setValue("type", "none");
            inner->imageUncached();
            EXPECT_EQ(inner->renderError(), std::nullopt);
            inner->image();
            EXPECT_TRUE(inner->renderError());
            layer->setValue("type", std::string(type));
            if (content.size() < 20) {
                EXPECT_EQ(outer->renderError()->localizedDescription, "could not read picture " + path);
            }
            // A good picture found elsewhere ends the trouble.
            layer->setFilepathCustomImage(whole);
            if (content.empty() && type == "image") {
                layer->imageUncached();
                EXPECT_EQ(layer->renderError(), std::nullopt);
            }
        }
    }
}

TEST(TemplateRendering, ContainersRenderOnce) {
    const auto inner = documentWith({layerWith(plain("#F00"), "{{0, 0}, {30, 30}}")}, "{30, 30}");
    const auto outer = documentWith({inner});
    const auto first = outer->image();
    EXPECT_EQ(outer->image(), first);
    inner->setLayers({layerWith(plain("#00F"), "{{0, 0}, {30, 30}}")});
    EXPECT_EQ(pixelAt(outer->imageUncached(), 12, 12), red);
    EXPECT_EQ(pixelAt(inner->imageUncached(), 12, 12), blue);
}

TEST(TemplateRendering, AContainerTooLargeToDrawIsAnError) {
    for (const double width : {0.0, 0.5, 40000.0}) {
        const auto inner = documentWith({}, "{30, 30}");
        inner->setFrame({0, 0, width, 30});
        const auto outer = documentWith({inner});
        EXPECT_TRUE(outer->image());
        EXPECT_EQ(outer->renderError().has_value(), width > 1);
    }
}

TEST(TemplateRendering, AMissingFontIsReplacedAndLogged) {
    const auto text = templateFrom("<layer type='textbox'><string>x</string><font>No Such Font</font></layer>");
    const LogCapture log;
    ASSERT_TRUE(text->attributes());
    EXPECT_EQ(text->attributes()->fontName, "Helvetica");
    EXPECT_THAT(log.lines(), testing::Contains("Specified font (No Such Font) unavailable! Substituting Helvetica"));
    for (const auto* none : {"<layer type='stamp' key='time'/>", "<layer type='image'><string>x</string></layer>"})
        EXPECT_EQ(templateFrom(none)->attributes(), std::nullopt) << none;
}

} // namespace
