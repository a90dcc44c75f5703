#include "imaging/KLARON_2dCodeGenerator.h"

#include "imaging/KLARON_Image.h"
#include "platform/draw/CodeReader.h"
#include "platform/draw/ImageDestination.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

using namespace platform::draw;
using base::Dictionary;
using base::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

BitmapContextRef whiteCanvas(double width, double height) {
    const auto canvas = BitmapContext::create(width, height, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    canvas->setFillColor(Color(1, 1, 1));
    canvas->fillRect({0, 0, width, height});
    return canvas;
}

std::string messageIn(const ImageRef& image) {
    if (!image) return "(no image)";
    const auto canvas = whiteCanvas(image->width() + 100, image->height() + 100);
    canvas->drawImage(image, {50, 50, static_cast<double>(image->width()), static_cast<double>(image->height())});
    const auto codes = readCodes(canvas->makeImage());
    return codes && codes->size() == 1 ? codes->front().message : "(no code)";
}

// The box of all dark pixels, y up.
base::Rect inkBox(const BitmapContextRef& canvas) {
    const Bitmap bitmap = *canvas->makeImage()->bitmap();
    int left = bitmap.width(), right = -1, top = bitmap.height(), bottom = -1;
    for (int y = 0; y < bitmap.height(); ++y)
        for (int x = 0; x < bitmap.width(); ++x)
            if (bitmap.row(y)[4 * x] < 128) {
                left = std::min(left, x);
                right = std::max(right, x);
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
    if (right < 0) return base::Rect::null();
    return {1.0 * left, 1.0 * bitmap.height() - 1 - bottom, 1.0 * right - left + 1, 1.0 * bottom - top + 1};
}

// An Aztec symbol of "Velm": 15 modules, no border; ink on all four edges at this scale.
Dictionary aztecItem(Dictionary more = {}) {
    Dictionary item{{std::string(klaron_2dCodeKey_message), "Velm"},
                    {std::string(klaron_2dCodeKey_scale), 4.0},
                    {std::string(klaron_2dCodeKey_type), 0}};
    item.merge(more);
    return item;
}
constexpr double aztecSide = 60;

std::string keyText(std::string_view key) {
    return std::string(key);
}

TEST(CodeGenerator, ClassesByTheirNumber) {
    const std::vector<std::pair<std::int64_t, std::string>> cases = {
        {0, "KLARON_AztecCodeGenerator"},  {1, "KLARON_QRCodeGenerator"},    {2, "KLARON_Code128Generator"},
        {3, "KLARON_PDF417CodeGenerator"}, {4, "KLARON_AztecCodeGenerator"}, {-1, "KLARON_AztecCodeGenerator"}};
    for (const auto& [type, name] : cases) {
        const auto generator = KLARON_2dCodeGenerator::classForNumber(type).init();
        EXPECT_EQ(generator->className(), name);
        const std::int64_t fixed = generator->type();
        generator->setType(fixed + 1);
        EXPECT_EQ(generator->type(), fixed);
    }
    EXPECT_EQ(KLARON_2dCodeGenerator::classForNumber({}).name, "KLARON_AztecCodeGenerator");
}

TEST(CodeGenerator, KeepsOptionsWithinTheirRange) {
    const auto check = [](auto generator, auto set, std::string_view key, const base::Array& kept,
                          const base::Array& refused) {
        for (const base::Array* numbers : {&kept, &refused})
            for (const Value& number : *numbers) {
                generator.setOptions({{std::string(key), 7}});
                set(generator, number);
                EXPECT_EQ(base::valueForKey(generator.options(), key), numbers == &kept ? number : Value())
                    << generator.className() << " " << number.description();
            }
    };
    const auto level = [](auto& generator, const Value& number) { generator.setCorrectionLevel(number); };
    const auto quiet = [](auto& generator, const Value& number) { generator.setQuietSpace(number); };
    check(KLARON_AztecCodeGenerator(), level, "inputCorrectionLevel", {5, 50.5, 95}, {4, 96, Value(), "50"});
    check(KLARON_PDF417CodeGenerator(), level, "inputCorrectionLevel", {0, 8}, {-1, 9, Value()});
    check(KLARON_Code128Generator(), quiet, "inputQuietSpace", {0, 20}, {-1, 21, Value()});
}

TEST(CodeGenerator, QRLevelsByTheirNumber) {
    for (const auto& [number, text] :
         std::vector<std::pair<int, std::string>>{{0, "L"}, {1, ""}, {2, "H"}, {3, "Q"}, {4, ""}, {-1, ""}}) {
        KLARON_QRCodeGenerator generator;
        generator.setOptions({{"inputCorrectionLevel", "L"}});
        generator.setCorrectionLevel(number);
        EXPECT_EQ(base::textForKey(generator.options(), "inputCorrectionLevel").value_or(""), text);
        EXPECT_EQ(generator.correctionLevel(), text.empty() ? 1 : number);
    }
    for (const Value& stored : {Value(), Value(""), Value("M"), Value("X"), Value(2)}) {
        KLARON_QRCodeGenerator generator;
        generator.setOptions({{"inputCorrectionLevel", stored}});
        EXPECT_EQ(generator.correctionLevel(), 1);
        generator.setMessage("Velm");
        EXPECT_EQ(messageIn(generator.createOutputImage()), "Velm");
        EXPECT_TRUE(generator.options().empty()); // cleaned away
    }
}

TEST(CodeGenerator, OptionsThatNoSymbolTakesArePassedOver) {
    const auto width = [](std::int64_t type, std::string_view key, int value) {
        KLARON_2dCodeGenerator generator;
        generator.setType(type);
        generator.setOptions({{std::string(key), value}});
        generator.setMessage("Velm");
        return generator.createOutputImage()->width();
    };
    for (const auto& [type, beyond] : {std::pair{0, 96}, {3, 9}})
        EXPECT_EQ(width(type, "inputCorrectionLevel", beyond), width(type, "other", 0));
    for (const auto& [quiet, modules] : {std::pair{20, 26}, {21, 0}, {-5, -14}}) // below 0 is as good as none
        EXPECT_EQ(width(2, "inputQuietSpace", quiet), 16 * (93 + modules));
}

TEST(CodeGenerator, LogsWhatItCantMake) {
    const std::vector<std::optional<std::string>> messages = {std::nullopt, "",
                                                              "Gr\xC3\xBC\xC3\x9F"
                                                              "e",
                                                              "\xFF", std::string(100000, 'x')};
    for (std::int64_t type = 0; type < 4; ++type)
        for (const auto& message : messages) {
            const support::LogCapture log;
            int replies = 0;
            KLARON_2dCodeGenerator::classForType(type).inputMessage(message, [&](const ImageRef& image, double scale) {
                ++replies;
                EXPECT_EQ(image, nullptr);
                EXPECT_EQ(scale, 16.0);
            });
            EXPECT_EQ(replies, 1);
            ASSERT_FALSE(log.lines().empty());
            EXPECT_THAT(log.lines()[0], HasSubstr("made no image"));
        }
    const support::LogCapture log;
    KLARON_2dCodeGenerator generator;
    generator.setMessage("Velm");
    generator.setType(7);
    EXPECT_EQ(generator.createOutputImage(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR: Filter (null) seems to be unavailable on this platform."));
}

TEST(CodeGenerator, ScalesByBlocks) {
    Bitmap bitmap = *Bitmap::create(2, 1, ColorSpace::sRGB(), true);
    std::fill_n(bitmap.mutableRow(0), 4, std::uint8_t{255});
    const ImageRef dots = Image::fromBitmap(bitmap); // white, black
    const Bitmap wide = *KLARON_2dCodeGenerator::image(dots, 3, 2)->bitmap();
    ASSERT_EQ(wide.width(), 6);
    ASSERT_EQ(wide.height(), 2);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(wide.row(y)[4 * x], x < 3 ? 255 : 0);
    EXPECT_EQ(KLARON_2dCodeGenerator::image(dots, 1.2, 0.5)->width(), 3);
    for (const double factor : {0.0, -1.0, 1e300, std::nan(""), std::numeric_limits<double>::infinity()})
        EXPECT_EQ(KLARON_2dCodeGenerator::image(dots, factor, 1), nullptr);
    EXPECT_EQ(KLARON_2dCodeGenerator::image(nullptr, 1, 1), nullptr);
}

TEST(CodeGenerator, PlacesCodesInTheRectangle) {
    const base::Rect rect{1000, 1000, 300, 200}; // its own origin doesn't count
    struct Case {
        Dictionary options;
        base::Point expected;
    };
    const auto position = [](int number) { return Dictionary{{keyText(klaron_2dCodeKey_position), number}}; };
    const auto origin = [](const Value& value, bool flipX = false, bool flipY = false) {
        return Dictionary{{keyText(klaron_2dCodeKey_origin), value},
                          {keyText(klaron_2dCodeKey_position), 3},
                          {keyText(klaron_2dCodeKey_isFlippedX), flipX},
                          {keyText(klaron_2dCodeKey_isFlippedY), flipY}};
    };
    const std::vector<Case> cases = {
        {{}, {10, 10}},
        {position(0), {10, 10}},
        {position(1), {300 - 10 - aztecSide, 10}},
        {position(2), {10, 200 - 10 - aztecSide}},
        {position(3), {300 - 10 - aztecSide, 200 - 10 - aztecSide}},
        {position(9), {10, 10}},
        {origin(base::Point{0, 0}), {0, 0}},
        {origin("{0.5, 0.25}"), {150, 50}},
        {origin(base::Point{0.1, 0.2}, true, false), {300 - 30 - aztecSide, 40}},
        {origin("{0.1, 0.2}", false, true), {30, 200 - 40 - aztecSide}},
        {origin("{0.1, 0.2}", true, true), {300 - 30 - aztecSide, 200 - 40 - aztecSide}},
        {origin(17), {300 - 10 - aztecSide, 200 - 10 - aztecSide}}, // no point
    };
    for (const Case& each : cases) {
        const auto canvas = whiteCanvas(300, 200);
        KLARON_2dCodeGenerator::draw(aztecItem(each.options), canvas, rect);
        const base::Rect box = inkBox(canvas);
        EXPECT_NEAR(box.x, each.expected.x, 0.5) << Value(each.options).description();
        EXPECT_NEAR(box.y, each.expected.y, 0.5) << Value(each.options).description();
        EXPECT_EQ(box.size(), (base::Size{aztecSide, aztecSide}));
    }
}

TEST(CodeGenerator, DrawsAListOfCodesReadably) {
    const auto item = [](int type, const char* message, const char* origin) {
        return Value(Dictionary{{keyText(klaron_2dCodeKey_message), message},
                                {keyText(klaron_2dCodeKey_scale), 3},
                                {keyText(klaron_2dCodeKey_type), type},
                                {keyText(klaron_2dCodeKey_origin), origin}});
    };
    const auto canvas = whiteCanvas(800, 600);
    KLARON_2dCodeGenerator::draw(base::Array{item(1, "first", "{0.05, 0.7}"), item(0, "second", "{0.47, 0.45}"),
                                             item(2, "third", "{0.5, 0.8}"), item(3, "fourth", "{0.05, 0.05}")},
                                 canvas, {0, 0, 800, 600});
    const auto is = [](const char* message) { return testing::Field(&FoundCode::message, message); };
    EXPECT_THAT(*readCodes(canvas->makeImage()),
                testing::UnorderedElementsAre(is("first"), is("second"), is("third"), is("fourth")));
}

TEST(CodeGenerator, RefusesAndSurvivesBadItems) {
    for (const Value& wrong : {Value("text"), Value(), Value(5), Value(base::Array{Value("text")})}) {
        const support::LogCapture log;
        KLARON_2dCodeGenerator::draw(wrong, whiteCanvas(10, 10), {0, 0, 10, 10});
        EXPECT_THAT(log.lines(), ElementsAre("bad arguments"));
    }
    const support::LogCapture log;
    KLARON_2dCodeGenerator::draw(aztecItem(), nullptr, {0, 0, 10, 10});
    KLARON_2dCodeGenerator::draw(base::Array{}, whiteCanvas(10, 10), {0, 0, 10, 10});
    EXPECT_THAT(log.lines(), IsEmpty());

    for (const Value& scale : {Value(), Value(0), Value(1e300), Value(std::nan("")), Value("text")}) {
        const auto canvas = whiteCanvas(100, 100);
        Dictionary item = aztecItem();
        item[keyText(klaron_2dCodeKey_scale)] = scale;
        KLARON_2dCodeGenerator::draw(item, canvas, {0, 0, 100, 100});
        EXPECT_TRUE(scale.doubleValue() != 0 || inkBox(canvas).isNull());
    }
    const auto canvas = whiteCanvas(100, 100);
    KLARON_2dCodeGenerator::draw(
        aztecItem({{keyText(klaron_2dCodeKey_origin), "{0.5, 0.5}"}, {keyText(klaron_2dCodeKey_isFlippedX), true}}),
        canvas, {0, 0, 0, 0});
    EXPECT_TRUE(inkBox(canvas).isNull());
}

class CodesInPictures : public testing::Test {
protected:
    std::string write(const std::vector<std::pair<int, std::string>>& codes) {
        const auto canvas = whiteCanvas(500, 200.0 * static_cast<double>(codes.size()) + 20);
        double y = canvas->height();
        for (const auto& [type, message] : codes) {
            const ImageRef image = KLARON_2dCodeGenerator::classForType(type).createImageWithMessage(message);
            y -= 200;
            canvas->drawImage(image, {30, y, image->width() / 4.0, image->height() / 4.0});
        }
        const std::string path = folder_ / "codes.png";
        auto destination = *ImageDestination::createWithURL(base::URL::fileURLWithPath(path), "public.png");
        destination->addImage(canvas->makeImage(), {});
        EXPECT_TRUE(destination->finalize());
        return path;
    }
    support::TemporaryDirectory folder_;
};

TEST_F(CodesInPictures, AllBarcodesOrAnError) {
    const std::string path = write({{2, "bars"}, {1, "one"}, {1, "two"}});
    const support::LogCapture log;
    int calls = 0;
    KLARON_Image::detectBarcodesInImage(path, [&](const std::vector<FoundCode>& results, const auto& error) {
        ++calls;
        EXPECT_FALSE(error);
        ASSERT_EQ(results.size(), 3u);
        EXPECT_EQ(results[0].message, "bars");
        EXPECT_EQ(results[1].message, "one");
    });
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(KLARON_Image::decodedBarcodeImage(path), "one");
    EXPECT_EQ(log.lines().back(), "WARNING: found extra QRCode (value = \"two\") in image at " +
                                      base::URL::fileURLWithPath(path).absoluteString());
    const std::string text = folder_.write("text.png", "no picture");
    for (const ImageObject& object :
         {ImageObject(), ImageObject(folder_ / "missing.png"), ImageObject(text), ImageObject(base::Data("x"))}) {
        EXPECT_EQ(KLARON_Image::decodedBarcodeImage(object), std::nullopt);
        KLARON_Image::detectBarcodesInImage(object, [&](const std::vector<FoundCode>& results, const auto& error) {
            ++calls;
            EXPECT_TRUE(results.empty());
            EXPECT_TRUE(error);
        });
        KLARON_Image::detectBarcodesInImage(object, nullptr);
    }
    EXPECT_EQ(calls, 5);
}

} // namespace
