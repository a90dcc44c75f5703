// The picture of a template: where layers lie, what they are drawn from, and what must not become a product.
#include "internal/TemplateFixture.h"

#include "platform/draw/ImageMetadata.h"
#include "platform/draw/TextFrame.h"

#include <filesystem>
#include <thread>

using namespace template_testing;
using base::Value;
using platform::draw::ImageRef;
using testing::ElementsAre;
using testing::HasSubstr;

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

TEST(TemplateRendering, LayersLieFromTheTopLeftInOrder) {
    const auto image =
        documentWith({layerWith(plain("#F00"), "{{10, 5}, {40, 20}}"), layerWith(plain("#0F0"), "{{40, 15}, {40, 20}}"),
                      layerWith(plain("#00F"), "{{0, 0}, {9, 9}}", "canvas")})
            ->createProductImage();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 100);
    EXPECT_EQ(pixelAt(image, 12, 7), red);
    EXPECT_EQ(pixelAt(image, 12, 27), clear);
    EXPECT_EQ(pixelAt(image, 45, 20), green); // in front
    EXPECT_EQ(pixelAt(image, 45, 10), red);
    EXPECT_EQ(pixelAt(image, 4, 4), clear); // a bare canvas is not drawn
}

TEST(TemplateRendering, ScaleAndBackground) {
    const auto document = templateFrom("<layout size='{100, 50}'><backgroundEnabled>yes</backgroundEnabled>"
                                       "<backgroundcolor>#F00</backgroundcolor></layout>");
    document->setLayers({layerWith(plain("#00F"), "{{50, 0}, {50, 25}}")});
    document->setScale(0.255);
    const auto image = document->createProductImage();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 25); // cut, not rounded
    EXPECT_EQ(image->height(), 12);
    EXPECT_EQ(pixelAt(image, 2, 2), white); // whatever the colour says
    EXPECT_EQ(pixelAt(image, 20, 2), blue);

    // The white begins at the frame's own place, counted from the bottom.
    const auto moved = templateFrom("<layout size='{20, 20}'><backgroundEnabled>yes</backgroundEnabled></layout>");
    moved->setFrame({5, 8, 20, 20});
    const auto movedImage = moved->createProductImage();
    EXPECT_EQ(pixelAt(movedImage, 4, 2), clear);
    EXPECT_EQ(pixelAt(movedImage, 6, 2), white);
    EXPECT_EQ(pixelAt(movedImage, 6, 14), clear);
}

TEST(TemplateRendering, ATemplateWithoutLayersDrawsItself) {
    const auto layer = layerWith(plain("#F00"), "{{500, 500}, {20, 10}}");
    const auto image = layer->createProductImage();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->height(), 10);
    EXPECT_EQ(pixelAt(image, 1, 1), red);
    EXPECT_EQ(pixelAt(image, 18, 8), red);
    EXPECT_EQ(pixelAt(templateFrom("<layout size='{4, 4}'/>")->createProductImage(), 2, 2), clear);
    EXPECT_EQ(templateFrom("<layout/>")->createProductImage(), nullptr);
    EXPECT_EQ(templateFrom("<layout size='{1e9, 1e9}'/>")->createProductImage(), nullptr);
}

TEST(TemplateRendering, StyleReachesTheDrawing) {
    const auto image =
        documentWith(
            {layerWith(plain("#F00"), "{{10, 10}, {80, 30}}", "image",
                       "<gravity>resize</gravity><border color='#0F0' width='10' clipsContent='no'>yes</border>"),
             layerWith(halves(40, 20, "#F00", "#00F"), "{{10, 50}, {40, 40}}", "graphic",
                       "<gravity>resizeAspect</gravity>"),
             templateFrom("<layer type='textbox' frame='{{0, 92}, {50, 8}}' backgroundcolor='#FFF'><string/></layer>"),
             layerWith(halves(40, 40, "#F00", "#00F"), "{{55, 50}, {40, 40}}", "graphic",
                       "<gravity>resize</gravity><rotation>1.570796326794897</rotation>")})
            ->createProductImage();
    EXPECT_EQ(pixelAt(image, 15, 25), green);
    EXPECT_EQ(pixelAt(image, 50, 25), red);
    EXPECT_EQ(pixelAt(image, 20, 52), clear);
    EXPECT_EQ(pixelAt(image, 20, 96), white);
    EXPECT_EQ(pixelAt(image, 20, 70), red);
    EXPECT_EQ(pixelAt(image, 40, 70), blue);
    EXPECT_EQ(pixelAt(image, 60, 55), red); // a positive turn is clockwise: the left half is on top
    EXPECT_EQ(pixelAt(image, 60, 85), blue);

    // The shadow falls to the right and down by a positive offset.
    const auto shadow =
        documentWith(
            {layerWith(plain("#FFF"), "{{20, 20}, {30, 30}}", "image",
                       "<gravity>resize</gravity><shadow blur='0' color='#000000FF' offset='{20, 30}'>yes</shadow>")})
            ->createProductImage();
    EXPECT_EQ(pixelAt(shadow, 60, 70), (Pixel{0, 0, 0, 255}));
    EXPECT_EQ(pixelAt(shadow, 60, 10), clear);
}

TEST(TemplateRendering, PicturesTurnToTheShapeOfTheirHole) {
    const support::TemporaryDirectory files;
    const struct {
        int orientation;
        base::Size picture, hole;
        bool autorotate;
        std::string_view type;
        Pixel topLeft, bottomLeft;
    } cases[] = {
        {1, {64, 32}, {20, 40}, true, "image", red, blue},
        {1, {64, 32}, {20, 40}, false, "image", red, red},
        {1, {64, 32}, {20, 40}, true, "graphic", red, red},
        {1, {64, 32}, {40, 20}, true, "image", red, red},
        {2, {64, 32}, {20, 40}, true, "image", red, red},
        {3, {64, 32}, {20, 40}, true, "image", red, blue},
        {3, {64, 32}, {40, 20}, true, "image", blue, blue},
        {6, {64, 32}, {40, 20}, true, "image", red, red},
        {6, {64, 32}, {20, 40}, true, "image", red, blue},
        {8, {64, 32}, {40, 20}, true, "image", red, red},
        {8, {64, 32}, {20, 40}, true, "image", blue, red},
        {1, {32, 64}, {40, 20}, true, "image", red, blue},
        // A square picture is no landscape one.
        {1, {48, 48}, {40, 20}, true, "image", red, blue},
        {1, {48, 48}, {20, 40}, true, "image", red, red},
    };
    for (const auto& test : cases) {
        const std::string path = files / "picture.jpg";
        writePicture(
            path, halves(static_cast<int>(test.picture.width), static_cast<int>(test.picture.height), "#F00", "#00F"),
            "public.jpeg",
            {{std::string(platform::draw::kCGImagePropertyOrientation), test.orientation},
             {std::string(platform::draw::kCGImageDestinationLossyCompressionQuality), 1.0}});
        const auto layer =
            templateFrom("<layer type='" + std::string(test.type) + "'><gravity>resize</gravity></layer>");
        layer->setFrame({0, 0, test.hole.width, test.hole.height});
        layer->setGraphicPath(path);
        layer->setAutorotate(test.autorotate);
        const auto image = layer->createProductImage();
        const int bottom = static_cast<int>(test.hole.height) - 3;
        EXPECT_EQ(pixelAt(image, 2, 2), test.topLeft)
            << test.orientation << " " << test.picture.width << " " << test.hole.width;
        EXPECT_EQ(pixelAt(image, 2, bottom), test.bottomLeft)
            << test.orientation << " " << test.picture.width << " " << test.hole.width;
        std::filesystem::remove(path);
    }
}

TEST(TemplateRendering, CropsInPixelsAndNormalized) {
    const auto picture = halves(64, 32, "#F00", "#00F");
    for (const std::string_view crop :
         {"<croprect>{{32, 0}, {32, 32}}</croprect>", "<croprect normal='no'>{{0.5, 0}, {0.5, 1}}</croprect>"}) {
        const auto layer = layerWith(picture, "{{0, 0}, {20, 10}}", "graphic", std::string(fill) + std::string(crop));
        EXPECT_EQ(pixelAt(layer->createProductImage(), 2, 5), blue) << crop;
    }
    const auto uncropped = layerWith(picture, "{{0, 0}, {20, 10}}", "image",
                                     std::string(fill) + "<croprect>{{32, 0}, {0, 32}}</croprect>");
    EXPECT_EQ(pixelAt(uncropped->createProductImage(), 2, 5), red);
}

TEST(TemplateRendering, MissingPicturesAreSearched) {
    // Each place alone has the picture; the document lies in VELM/Templates/shop, with and without a job container.
    const struct {
        std::string picture;
        bool withContainer;
        bool isFound;
    } cases[] = {
        {"order/Images/p.png", true, true},
        {"order/Graphics/p.png", true, true},
        {"order/Templates/p.png", true, true},
        {"VELM/Images/p.png", true, true},
        {"VELM/Graphics/p.png", true, true},
        {"VELM/Templates/p.png", true, true},
        {"VELM/Templates/shop/Images/p.png", true, false},
        {"VELM/Templates/shop/Images/p.png", false, true},
        {"order/p.png", true, false},
        {"order/Images/p.png", false, false},
    };
    for (const auto& test : cases) {
        const support::TemporaryDirectory files;
        writePicture(files.write(test.picture, ""), plain("#F00"));
        const CaughtLog log;
        const auto document = VELM_Template::instanceWithXMLObject(files.write(
            "VELM/Templates/shop/t.xml",
            fileOf("<layer type='graphic' frame='{{0, 0}, {100, 100}}'><filepath>p.png</filepath></layer>")));
        const auto package = std::make_shared<TestPackage>();
        if (test.withContainer) package->order->container = base::URL::fileURLWithPath(files / "order");
        document->setPackage(package);
        EXPECT_EQ(pixelAt(document->createProductImage(), 50, 50), test.isFound ? red : clear) << test.picture;
        EXPECT_EQ(document->renderError(), std::nullopt) << test.picture;
    }
}

TEST(TemplateRendering, AHoleWithoutPictureTakesTheRunsOwn) {
    const support::TemporaryDirectory files;
    const auto path = files / "own.png";
    writePicture(path, plain("#F00"));
    const auto document = templateFrom("<layout size='{10, 10}'><layer type='image' frame='{{0, 0}, {10, 10}}'>"
                                       "<filepath>gone.png</filepath></layer></layout>");
    document->setFilepathCustomImage(path);
    EXPECT_EQ(pixelAt(document->imageUncached(), 5, 5), red);
    // On the screen an empty hole shows a placeholder instead.
    document->setIsRenderingPreview(true);
    const Pixel shown = pixelAt(document->createProductImage(), 5, 0);
    EXPECT_GT(shown.alpha, 0);
    EXPECT_LT(shown.alpha, 255);
}

TEST(TemplateRendering, ABrokenPictureMustNotBecomeAProduct) {
    const support::TemporaryDirectory files;
    const auto whole = files / "whole.jpg";
    writePicture(whole, halves(400, 400, "#F00", "#00F"), "public.jpeg");
    const std::string bytes = support::readFile(whole);
    const std::string contents[] = {"", "no picture", bytes.substr(0, 30), bytes.substr(0, bytes.size() / 2)};
    for (const std::string_view type : {"image", "graphic"}) {
        for (const std::string& content : contents) {
            const auto path = files.write("broken.jpg", content);
            const auto document =
                templateFrom("<layout size='{50, 50}'><layer type='" + std::string(type) +
                             "' frame='{{0, 0}, {50, 50}}'><filepath>" + path + "</filepath></layer></layout>");
            const CaughtLog log;
            document->image();
            ASSERT_TRUE(document->renderError()) << type << content.size();
            EXPECT_FALSE(document->renderError()->localizedDescription.empty());
            if (content.size() < 20) {
                EXPECT_EQ(document->renderError()->localizedDescription, "could not read picture " + path);
            }

            // A container tells of what is in it, and a good picture found elsewhere ends the trouble.
            const auto outer = documentWith({document});
            outer->image();
            EXPECT_TRUE(outer->renderError());
        }
    }
    const auto elsewhere = templateFrom("<layer type='image' frame='{{0, 0}, {5, 5}}'/>");
    elsewhere->setGraphicPath(files / "broken.jpg");
    elsewhere->setFilepathCustomImage(whole);
    files.write("broken.jpg", "");
    const CaughtLog log;
    elsewhere->imageUncached();
    EXPECT_EQ(elsewhere->renderError(), std::nullopt);
}

TEST(TemplateRendering, ContainersRenderOnceAndShowTheirTopLeft) {
    const auto inner = documentWith({layerWith(plain("#F00"), "{{0, 0}, {30, 30}}")}, "{30, 30}");
    inner->setFrame({10, 10, 20, 20});
    const auto outer = documentWith({inner});
    const auto first = outer->image();
    EXPECT_EQ(pixelAt(first, 12, 12), red);
    EXPECT_EQ(pixelAt(first, 32, 32), clear);
    EXPECT_EQ(outer->image(), first); // kept
    inner->setLayers({layerWith(plain("#00F"), "{{0, 0}, {30, 30}}")});
    EXPECT_EQ(pixelAt(outer->imageUncached(), 12, 12), red); // the container's picture is kept too
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

TEST(TemplateRendering, ADocumentTakesAllThatItMadeAlong) {
    const support::TemporaryDirectory files;
    writePicture(files / "photo.png", plain("#F00"));
    files.write("node.xml", fileOf("<layer type='image' key='a' frame='{{0, 0}, {9, 9}}'/>"));
    const auto node = "<layer type='node' frame='{{0, 0}, {99, 99}}'><filepath>" + (files / "node.xml") + "</filepath>";
    auto document = VELM_Template::instanceWithXMLObject(
        files.write("t.xml", fileOf(node + "</layer><layer type='image' key='hole' frame='{{0, 0}, {9, 9}}'/>")));
    const auto package = std::make_shared<TestPackage>();
    package->order->values = {{{"key", "a"}, files / "photo.png"},
                              {{"key", "hole"}, files / "photo.png"},
                              {{"template", "hole"}, files / "node.xml"}};
    document->setPackage(package);
    document->replaceKeyValues();
    auto image = document->image();
    std::vector<std::weak_ptr<const void>> made{document, document->lastSaved(), image, document->renderingQueue()};
    for (const auto& layer : document->layers()) {
        made.emplace_back(layer);
        made.emplace_back(layer->image());
    }
    made.emplace_back(document->layers()[0]->layers().at(0));
    made.emplace_back(document->layers()[1]->graphicPath().object<ImageValue>());
    for (const auto& thing : made)
        EXPECT_FALSE(thing.expired());
    document.reset();
    image.reset();
    for (std::size_t i = 0; i < made.size(); ++i)
        EXPECT_TRUE(made[i].expired()) << i;
}

TEST(TemplateRendering, ManyThreadsAskAtOnce) {
    const auto inner = documentWith({layerWith(plain("#F00"), "{{0, 0}, {30, 30}}")}, "{30, 30}");
    const auto outer = documentWith({inner});
    std::vector<ImageRef> images(8);
    std::vector<std::thread> threads;
    for (ImageRef& image : images)
        threads.emplace_back([&] { image = outer->image(); });
    for (std::thread& thread : threads)
        thread.join();
    for (const ImageRef& image : images)
        EXPECT_EQ(image, images.front());
}

TEST(TemplateRendering, TextAttributes) {
    const auto text = templateFrom("<layer type='textbox'><string>x</string><font size='20'>No Such Font</font>"
                                   "<color>#FF000080</color><textAlignment>Center</textAlignment></layer>");
    const CaughtLog log;
    const auto attributes = text->attributes();
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->fontName, "Helvetica");
    EXPECT_EQ(attributes->fontSize, 20);
    EXPECT_EQ(attributes->alignment, platform::draw::TextAlignment::center);
    EXPECT_NEAR(attributes->color.alpha(), 128 / 255.0, 1e-9);
    EXPECT_THAT(log.lines(), ElementsAre("Specified font (No Such Font) unavailable! Substituting Helvetica"));
    EXPECT_EQ(templateFrom("<layer type='stamp' key='time'/>")->attributes(), std::nullopt);
    EXPECT_EQ(templateFrom("<layer type='image'><string>x</string></layer>")->attributes(), std::nullopt);
}

bool hasInk(const ImageRef& image) {
    for (int y = 0; y < image->height(); y += 2) {
        for (int x = 0; x < image->width(); ++x) {
            if (pixelAt(image, x, y).alpha > 100) return true;
        }
    }
    return false;
}

TEST(TemplateRendering, TextsAndStampsAreDrawn) {
    const struct {
        std::string inside;
        bool isDrawn;
    } cases[] = {
        {"type='textbox'><string>HHH</string><font size='20'>Helvetica</font>", true},
        {"type='stamp'><string>HHH</string><font size='20'>Helvetica</font>", true},
        {"type='stamp' key='HHH'>", true},
        {"type='textbox' key='date'>", false},
        {"type='stamp'>", false},
    };
    for (const auto& test : cases) {
        const auto layer = templateFrom("<layer frame='{{0, 0}, {60, 24}}' " + test.inside + "</layer>");
        const auto image = layer->createProductImage();
        ASSERT_TRUE(image) << test.inside;
        EXPECT_EQ(hasInk(image), test.isDrawn) << test.inside;
    }
}

} // namespace
