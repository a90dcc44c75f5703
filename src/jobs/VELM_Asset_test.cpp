#include "jobs/VELM_Asset.h"

#include "imaging/ColorSpaceValue.h"
#include "imaging/KLARON_Image.h"
#include "internal/TestBed.h"
#include "platform/draw/Bitmap.h"
#include "platform/run/Group.h"
#include "support/Pixel.h"
#include "template/VELM_Template.h"

#include <gtest/gtest.h>

using namespace jobs::testing;
using base::Value;

namespace {

/// A product of 60 by 40: blue, with a red square of 20 at its top left.
std::string ticket(const std::string& folder) {
    return "<asset><!-- c --><PLUCode>12</PLUCode><productid>9</productid><name>N</name><icon>i</icon>"
           "<price><quantity>2</quantity><cent/></price><odd/><?pi x?>"
           "<layout name='front' size='{60, 40}'><layer type='graphic' frame='{{0, 0}, {60, 40}}'><filepath>" +
           folder +
           "/blue.png</filepath><gravity>resize</gravity></layer>"
           "<layer type='graphic' frame='{{0, 0}, {20, 20}}' zindex='200'><filepath>" +
           folder +
           "/red.png</filepath></layer></layout>"
           "<output><front type='node'/><destination type='filepath'><filepath>" +
           folder + "/out</filepath></destination></output><output><none type='node'/><destination/></output></asset>";
}

void writePlain(const std::string& path, const char* colour) {
    const auto context = platform::draw::BitmapContext::create(8, 8, platform::draw::ColorSpace::sRGB());
    context->setFillColor(*KLARON_color::colorForHexcode(colour));
    context->fillRect({0, 0, 8, 8});
    ASSERT_TRUE(KLARON_Image::writeImage(context->makeImage(), Value(path),
                                         {{std::string(klaronImageKey_utType), "public.png"}}, nullptr));
}

/// "red blue": what stands at the top left and in the middle.
std::string look(const platform::draw::ImageRef& image) {
    if (!image || image->width() != 60 || image->height() != 40) return "no such picture";
    const auto bitmap = image->bitmap().value();
    const auto name = [&](int x, int y) {
        const std::uint8_t* pixel = bitmap.row(y) + 4 * x; // blue, green, red
        return pixel[2] > 200 && pixel[0] < 60 ? "red" : pixel[0] > 200 && pixel[2] < 60 ? "blue" : "neither";
    };
    return std::string(name(5, 5)) + " " + name(40, 25);
}

class Asset : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = home() / "asset";
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_ + "/out");
        writePlain(folder_ + "/red.png", "#FF0000");
        writePlain(folder_ + "/blue.png", "#0000FF");
        asset_ = VELM_Asset::assetWithXMLObject(Value(home().write("asset/ticket.xml", ticket(folder_))));
        ASSERT_TRUE(asset_);
    }
    std::string folder_;
    LogCapture log_;
    VELM_Asset::Ref asset_;
};

} // namespace

TEST_F(Asset, IsReadWhenItsDocumentIsStored) {
    EXPECT_EQ(asset_->pluCode(), "12");
    EXPECT_EQ(asset_->productID(), "9");
    EXPECT_EQ(asset_->documentURL()->lastPathComponent(), "ticket.xml");
    EXPECT_TRUE(asset_->velmNodes().contains("front"));
    EXPECT_EQ(asset_->firstOutlet(), asset_->velmNodes().at("front"));
    ASSERT_EQ(asset_->outputs().size(), 2U);
    EXPECT_EQ(asset_->outputs()[0]->copyWithZone()->asset(), asset_);
    EXPECT_TRUE(asset_->description().starts_with("VELM_Asset: {\n\tName: N\n\tPLU Code: 12\n\tProduct ID: 9"));
    for (const char* line : {"error! bad element kind 2 for element <cent/>",
                             "Found unrecognized XML element:", "<odd/>", "Found unexpected XML element kind:\n5"})
        EXPECT_TRUE(log_.has(line)) << line;
    asset_->setXmlDoc(*platform::data::XMLDocument::parse("<asset><name>M</name></asset>"));
    EXPECT_EQ(asset_->name(), "M");
    EXPECT_TRUE(asset_->outputs().empty());
    for (const Value& none : {Value("/no/such.xml"), Value(base::Data("<a")), Value(7), Value()})
        EXPECT_FALSE(VELM_Asset::assetWithXMLObject(none));
    EXPECT_TRUE(log_.has("Error reading XML:"));
}

TEST_F(Asset, ChoosesTheOutletOfTheNearestShape) {
    const auto outlet = [](const std::string& frame) {
        const auto document = platform::data::XMLDocument::parse(
            "<layout size='{100, 100}'><layer type='image' frame='" + frame + "'/><layer type='textbox'/></layout>");
        return VELM_Template::initWithNode(*(*document)->rootElement(), std::nullopt);
    };
    asset_->valuesDict()["square"] = Value(outlet("{{0, 0}, {10, 10}}"));
    asset_->valuesDict()["canvas"] = Value(outlet("{{0, 0}, {30, 20}}"));
    asset_->valuesDict()["portrait"] = Value(outlet("{{0, 0}, {20, 30}}"));
    asset_->valuesDict()["landscape"] = Value(outlet("{{0, 0}, {60, 40}}"));
    const std::pair<base::Size, const char*> cases[] = {
        {{300, 200}, "canvas"}, {{2, 3}, "portrait"}, {{10, 11}, "square"}, {{500, 10}, "canvas"}};
    for (const auto& [size, key] : cases) {
        const auto context =
            platform::draw::BitmapContext::create(size.width, size.height, platform::draw::ColorSpace::sRGB());
        EXPECT_EQ(asset_->outletForImage(context->makeImage()), asset_->value(key).object<VELM_Template>()) << key;
    }
    EXPECT_FALSE(asset_->outletForImage("/no/such.jpg"));
    std::string keys;
    asset_->processingQueue(VELM_Asset::sharedRenderingQueue(), [&](std::string_view key, const auto&) {
        keys += std::string(key) + " ";
        EXPECT_TRUE(VELM_Asset::sharedRenderingQueue()->isCurrent());
    });
    EXPECT_EQ(keys, "layout canvas portrait landscape square ");
}

TEST_F(Asset, MakesItsProduct) {
    EXPECT_EQ(look(asset_->createProductImage()), "red blue");
    EXPECT_EQ(asset_->imageForTemplate(asset_->firstOutlet()), asset_->imageForTemplate(asset_->firstOutlet()));
    EXPECT_FALSE(asset_->imageForTemplate(nullptr));

    platform::run::Group group;
    const auto awaited = [&group](const std::function<void(std::function<void()>)>& start) {
        group.enter();
        start([&group] { group.leave(); });
        group.wait();
    };
    awaited([&](const auto& done) {
        asset_->createComposedCanvas([done](const base::Dictionary& values) {
            EXPECT_TRUE(base::valueForKey(values, "colorSpace").template object<ColorSpaceValue>());
            EXPECT_EQ(look(base::valueForKey(values, "layout").template object<ImageValue>()->image()), "red blue");
            EXPECT_EQ(values.size(), 2U);
            done();
        });
    });
    awaited([&](const auto& done) {
        asset_->processToCompletion([done](bool success, const std::optional<base::Error>& error) {
            EXPECT_FALSE(success); // of the second output
            EXPECT_TRUE(error);
            done();
        });
    });
    EXPECT_TRUE(log_.has("exited group wait"));
    const std::filesystem::directory_iterator written(folder_ + "/out");
    ASSERT_NE(begin(written), end(written));
    EXPECT_EQ(look(KLARON_Image::createCGImageFromObject(begin(written)->path().string())), "red blue");

    const std::string product = folder_ + "/product.jpg";
    const std::pair<std::string, const char*> places[] = {
        {product, ""}, {folder_ + "/no/p.jpg", "Failed to create CGImageDestination"}};
    for (const auto& [place, failure] : places) {
        awaited([&](const auto& done) {
            asset_->processTemplateToDestination(
                place, [&, done](const std::optional<std::string>& path, const std::optional<base::Error>& error) {
                    EXPECT_EQ(path, place);
                    EXPECT_TRUE((error ? error->localizedDescription : "").starts_with(failure));
                    EXPECT_EQ(error.has_value(), *failure != 0);
                    done();
                });
        });
    }
    EXPECT_EQ(look(KLARON_Image::createCGImageFromObject(product)), "red blue");
}
