#include "platform/draw/BitmapContext.h"
#include "platform/draw/CodeReader.h"
#include "platform/draw/CodeSymbol.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"
#include "support/CommandOutput.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace platform::draw {
namespace {

struct Placed {
    ImageRef code;
    double x = 0; // of the left bottom corner
    double y = 0;
};

// Each pixel a block of so many; crisp, where drawing would smooth it.
ImageRef enlarged(const ImageRef& image, int factor) {
    const Bitmap from = *image->bitmap();
    Bitmap to = *Bitmap::create(from.width() * factor, from.height() * factor, from.colorSpace(), true);
    for (int y = 0; y < to.height(); ++y)
        for (int x = 0; x < to.width(); ++x)
            std::copy_n(from.row(y / factor) + x / factor * 4, 4, to.mutableRow(y) + x * 4);
    return Image::fromBitmap(std::move(to));
}

// The codes on white, each module a block of `module` pixels.
ImageRef page(const std::vector<Placed>& codes, double width, double height, int module = 4) {
    const auto canvas = BitmapContext::create(width, height, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    canvas->setFillColor(Color(1, 1, 1));
    canvas->fillRect({0, 0, width, height});
    for (const Placed& placed : codes)
        canvas->drawImage(enlarged(placed.code, module), {placed.x, placed.y, 1.0 * module * placed.code->width(),
                                                          1.0 * module * placed.code->height()});
    return canvas->makeImage();
}

ImageRef page(const ImageRef& code) {
    return page({{code, 20, 20}}, 4.0 * code->width() + 40, 4.0 * code->height() + 40);
}

ImageRef make(CodeKind kind, std::string_view message, const CodeSymbolOptions& options = {}) {
    const auto symbol = makeCodeSymbol(kind, message, options);
    EXPECT_TRUE(symbol) << (symbol ? "" : symbol.error().localizedDescription);
    return symbol ? *symbol : nullptr;
}

bool isDark(const ImageRef& image, int x, int y) {
    return image->bitmap()->row(y)[4 * x] < 128;
}

std::string written(const ImageRef& image, const support::TemporaryDirectory& folder, std::string_view name) {
    const std::string path = folder / name;
    auto destination = *ImageDestination::createWithURL(base::URL::fileURLWithPath(path), "public.png");
    destination->addImage(image, {});
    EXPECT_TRUE(destination->finalize());
    return path;
}

// What zbarimg reads; nothing when it is not installed.
std::optional<std::string> zbarimg(const std::string& path) {
    return support::commandOutput("zbarimg -q '" + path + "'");
}

TEST(CodeSymbol, IsReadBackWhatWasMade) {
    const std::vector<std::pair<CodeKind, std::string>> kinds = {{CodeKind::aztec, "Aztec"},
                                                                 {CodeKind::qr, "QRCode"},
                                                                 {CodeKind::code128, "Code128"},
                                                                 {CodeKind::pdf417, "PDF417"}};
    std::vector<std::string> messages = {"0",
                                         "Velm",
                                         "ORDER-2026/000417",
                                         "a%20b {1, 2} [01] ^FNC1 \\x41",
                                         "00112233445566778899",
                                         std::string("\t\r\n\x1d\x7f"),
                                         std::string(45, 'z')};
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte)
        allBytes.push_back(static_cast<char>(byte));
    messages.push_back(allBytes);
    for (const auto& [kind, name] : kinds)
        for (const std::string& message : messages) {
            if (kind == CodeKind::code128 && message == allBytes) continue; // has no room for them
            const auto codes = readCodes(page(make(kind, message)));
            ASSERT_TRUE(codes);
            ASSERT_EQ(codes->size(), 1u) << name << " " << message;
            EXPECT_EQ(codes->front().kind, name);
            EXPECT_EQ(codes->front().bytes.asText(), message);
        }
}

TEST(CodeSymbol, IsOnePixelAModuleWithItsBorder) {
    const ImageRef qr = make(CodeKind::qr, "Velm");
    EXPECT_EQ(qr->width(), 21 + 2);
    EXPECT_EQ(qr->height(), 21 + 2);
    EXPECT_TRUE(qr->isOpaque());
    EXPECT_TRUE(qr->colorSpace()->isSRGB());
    for (int i = 0; i < 23; ++i)
        for (const int edge : {0, 22}) {
            EXPECT_FALSE(isDark(qr, i, edge));
            EXPECT_FALSE(isDark(qr, edge, i));
        }
    EXPECT_TRUE(isDark(qr, 1, 1)); // a finder's corner
    EXPECT_FALSE(isDark(qr, 2, 2));

    // Start, four letters, check sum: 11 modules each; stop: 13.
    for (const int quiet : {0, 7, 20}) {
        CodeSymbolOptions options;
        options.code128QuietSpace = quiet;
        const ImageRef bars = make(CodeKind::code128, "Velm", options);
        EXPECT_EQ(bars->width(), 6 * 11 + 13 + 2 * quiet);
        EXPECT_EQ(bars->height(), 32);
        EXPECT_FALSE(quiet > 0 && isDark(bars, quiet - 1, 0));
        EXPECT_TRUE(isDark(bars, quiet, 0));
        EXPECT_TRUE(isDark(bars, bars->width() - quiet - 1, 31));
    }
    EXPECT_EQ(make(CodeKind::code128, "Velm")->width(), 6 * 11 + 13 + 14);

    const ImageRef aztec = make(CodeKind::aztec, "Velm");
    EXPECT_EQ(aztec->width(), 15);
    EXPECT_TRUE(isDark(aztec, 7, 7)); // the bull's eye
    EXPECT_FALSE(isDark(aztec, 6, 7));
    EXPECT_TRUE(isDark(aztec, 5, 7));

    const ImageRef pdf417 = make(CodeKind::pdf417, "Velm");
    EXPECT_EQ((pdf417->height() - 4) % 3, 0);
    EXPECT_FALSE(isDark(pdf417, 1, 2));
    EXPECT_TRUE(isDark(pdf417, 2, 2));
}

TEST(CodeSymbol, HasItsUsualCorrectionUnlessToldOtherwise) {
    const auto side = [](CodeKind kind, const CodeSymbolOptions& options) {
        return make(kind, std::string(100, 'k'), options)->width();
    };
    EXPECT_EQ(side(CodeKind::aztec, {}), side(CodeKind::aztec, {.aztecCorrectionPercent = 23}));
    EXPECT_EQ(side(CodeKind::qr, {}), side(CodeKind::qr, {.qrCorrectionLevel = "M"}));
}

// Every value that the options accept makes a symbol that is read; the other reader reads those that it knows.
TEST(CodeSymbol, IsReadableWithEveryOption) {
    struct Case {
        CodeKind kind;
        CodeSymbolOptions options;
        std::string message = "ORDER-2026/000417 (2 of 5)";
    };
    std::vector<Case> cases;
    for (int percent = 5; percent <= 95; ++percent)
        cases.push_back({CodeKind::aztec, {.aztecCorrectionPercent = percent}});
    for (const char* level : {"L", "M", "Q", "H"})
        cases.push_back({CodeKind::qr, {.qrCorrectionLevel = level}});
    for (int quiet = 0; quiet <= 20; ++quiet)
        cases.push_back({CodeKind::code128, {.code128QuietSpace = quiet}});
    for (int level = 0; level <= 8; ++level)
        cases.push_back({CodeKind::pdf417, {.pdf417CorrectionLevel = level}});
    const support::TemporaryDirectory folder;
    cases.push_back({CodeKind::qr, {}, std::string(300, 'q')});
    cases.push_back({CodeKind::code128, {}, "00112233"}); // two digits to a sign
    for (const Case& each : cases) {
        const std::string& message = each.message;
        const CodeSymbolOptions& options = each.options;
        const std::string name = std::to_string(static_cast<int>(each.kind)) + " " +
                                 std::to_string(options.aztecCorrectionPercent) + options.qrCorrectionLevel +
                                 std::to_string(options.code128QuietSpace) + " " +
                                 std::to_string(options.pdf417CorrectionLevel.value_or(-1));
        const ImageRef picture = page(make(each.kind, message, options));
        const auto codes = *readCodes(picture, each.kind);
        ASSERT_EQ(codes.size(), 1u) << name;
        EXPECT_EQ(codes[0].message, message) << name;
        if (each.kind != CodeKind::qr && each.kind != CodeKind::code128) continue;
        if (const auto found = zbarimg(written(picture, folder, "code.png"))) {
            EXPECT_EQ(*found, (each.kind == CodeKind::qr ? "QR-Code:" : "CODE-128:") + message + "\n") << name;
        }
    }
}

// The lengths around the limit of the largest compact symbol, and the two ends of the percentage.
TEST(CodeSymbol, AztecIsReadableAtEveryLength) {
    for (int length = 85; length <= 125; ++length)
        for (const int percent : {5, 23, 60}) {
            CodeSymbolOptions options;
            options.aztecCorrectionPercent = percent;
            const std::string message(static_cast<std::size_t>(length), 'A');
            const auto codes = *readCodes(page(make(CodeKind::aztec, message, options)), CodeKind::aztec);
            ASSERT_EQ(codes.size(), 1u) << length << " at " << percent;
            EXPECT_EQ(codes[0].message, message);
        }
}

TEST(CodeSymbol, RefusesWhatNoSymbolHolds) {
    struct Case {
        CodeKind kind;
        std::size_t length;
        CodeSymbolOptions options;
        std::string_view reason;
    };
    std::vector<Case> cases = {{CodeKind::aztec, 3, {.aztecCorrectionPercent = 4}, "5 to 95"},
                               {CodeKind::aztec, 3, {.aztecCorrectionPercent = 96}, "5 to 95"},
                               {CodeKind::aztec, 1000, {.aztecCorrectionPercent = 95}, "too long"},
                               {CodeKind::qr, 3, {.qrCorrectionLevel = "X"}, "L, M, Q and H"},
                               {CodeKind::qr, 3, {.qrCorrectionLevel = ""}, "L, M, Q and H"},
                               {CodeKind::qr, 3, {.qrCorrectionLevel = "LM"}, "L, M, Q and H"},
                               {CodeKind::code128, 3, {.code128QuietSpace = 21}, "0 to 20"},
                               {CodeKind::code128, 3, {.code128QuietSpace = -1}, "0 to 20"},
                               {CodeKind::code128, 200, {}, "too long"},
                               {CodeKind::pdf417, 3, {.pdf417CorrectionLevel = 9}, "0 to 8"},
                               {CodeKind::pdf417, 3, {.pdf417CorrectionLevel = -1}, "0 to 8"}};
    for (const CodeKind kind : {CodeKind::aztec, CodeKind::qr, CodeKind::code128, CodeKind::pdf417}) {
        cases.push_back({kind, 0, {}, "no message"});
        for (const std::size_t length : {5000, 7089, 7090, 2'000'000})
            cases.push_back({kind, length, {}, "too long"});
    }
    for (const Case& wrong : cases) {
        const auto symbol = makeCodeSymbol(wrong.kind, std::string(wrong.length, '\xE4'), wrong.options);
        ASSERT_FALSE(symbol) << static_cast<int>(wrong.kind) << " " << wrong.length;
        EXPECT_NE(symbol.error().localizedDescription.find(wrong.reason), std::string::npos)
            << symbol.error().localizedDescription;
    }
    EXPECT_TRUE(makeCodeSymbol(CodeKind::qr, std::string(5596, '7'))); // the most digits at level M
    EXPECT_FALSE(makeCodeSymbol(CodeKind::qr, std::string(5597, '7')));
}

TEST(CodeReader, FindsAllCodesFromTheTop) {
    const ImageRef qr = make(CodeKind::qr, "lower");
    const ImageRef other = make(CodeKind::qr, "upper");
    const ImageRef bars = make(CodeKind::code128, "middle");
    const ImageRef picture = page({{qr, 300, 20}, {bars, 20, 150}, {other, 30, 320}}, 600, 450);
    const auto all = *readCodes(picture);
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].message, "upper");
    EXPECT_EQ(all[1].message, "middle");
    EXPECT_EQ(all[2].message, "lower");
    // The finder's corner stands one module inside the border; y counts from the top.
    EXPECT_NEAR(all[0].corners[0].x, 34, 3);
    EXPECT_NEAR(all[0].corners[0].y, 450 - 320 - 92 + 4, 3);

    const auto ofOneKind = *readCodes(picture, CodeKind::qr);
    ASSERT_EQ(ofOneKind.size(), 2u);
    EXPECT_EQ(ofOneKind[1].message, "lower");
}

TEST(CodeReader, FindsEqualBarCodesApartFromEachOther) {
    const ImageRef bars = make(CodeKind::code128, "equal");
    const auto codes = *readCodes(page({{bars, 20, 20}, {bars, 20, 250}, {bars, 500, 250}}, 950, 400));
    ASSERT_EQ(codes.size(), 3u);
    for (const FoundCode& code : codes)
        EXPECT_EQ(code.message, "equal");
    const auto turned = BitmapContext::create(200, 500, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    turned->setFillColor(Color(1, 1, 1));
    turned->fillRect({0, 0, 200, 500});
    turned->concatenate({0, 1, -1, 0, 200, 0});
    turned->drawImage(enlarged(bars, 4), {20, 20, 4.0 * bars->width(), 4.0 * bars->height()});
    ASSERT_EQ(readCodes(turned->makeImage())->size(), 1u);
}

TEST(CodeReader, TakesTransparentPixelsForWhite) {
    const auto canvas = BitmapContext::create(200, 200, ColorSpace::sRGB());
    const ImageRef code = enlarged(make(CodeKind::aztec, "on nothing"), 6);
    canvas->drawImage(code, {40, 40, 1.0 * code->width(), 1.0 * code->height()});
    ASSERT_EQ(readCodes(canvas->makeImage())->size(), 1u);
}

TEST(CodeReader, AnswersNoneOrAnErrorWithoutACode) {
    const auto none = readCodes(page({}, 300, 200));
    ASSERT_TRUE(none);
    EXPECT_TRUE(none->empty());
    EXPECT_TRUE(readCodes(page({}, 1, 1))->empty());
    EXPECT_FALSE(readCodes(nullptr));

    const support::TemporaryDirectory folder;
    const std::string whole = support::readFile(written(page(make(CodeKind::qr, "cut off")), folder, "whole.png"));
    const auto source =
        ImageSource::createWithData(base::Data(std::string_view(whole).substr(0, whole.find("IDAT") + 20)));
    ASSERT_TRUE(source);
    EXPECT_FALSE(readCodes((*source)->imageAtIndex(0)));
}

} // namespace
} // namespace platform::draw
