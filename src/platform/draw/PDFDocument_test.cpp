#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageMetadata.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PDFDocument.h"
#include "support/CommandOutput.h"
#include "support/PdfMaker.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <random>

using namespace platform::draw;
using base::AffineTransform;
using base::Rect;
using support::commandOutput;
using support::markedPage;
using support::pdfOf;
using support::pdfOfObjects;

namespace {

PDFDocumentRef opened(const std::string& pdf) {
    return PDFDocument::createWithData(base::Data(pdf)).value_or(nullptr);
}

// The colour at a place (pixels from the top left) as a letter: '.' transparent, '?' anything unexpected.
char letterAt(const Bitmap& bitmap, double x, double y) {
    const std::uint8_t* at = bitmap.row(static_cast<int>(y)) + 4 * static_cast<int>(x);
    if (at[3] == 0) return '.';
    const auto is = [&](int red, int green, int blue) { return at[2] == red && at[1] == green && at[0] == blue; };
    return is(255, 0, 0)       ? 'r'
           : is(0, 255, 0)     ? 'g'
           : is(0, 0, 255)     ? 'b'
           : is(0, 0, 0)       ? 'k'
           : is(255, 0, 255)   ? 'm'
           : is(255, 255, 255) ? 'w'
                               : '?';
}

// The four corners clockwise from the top left, the very last pixel of each.
std::string corners(const Bitmap& bitmap, const Rect& frame) {
    std::string letters;
    for (const auto& [x, y] : {std::pair{frame.x, frame.y}, std::pair{frame.maxX() - 1, frame.y},
                               std::pair{frame.maxX() - 1, frame.maxY() - 1}, std::pair{frame.x, frame.maxY() - 1}})
        letters += letterAt(bitmap, x, y);
    return letters;
}

Bitmap drawnInto(const PDFPageRef& page, int width, int height, const AffineTransform& transform) {
    const auto canvas = BitmapContext::create(width, height, ColorSpace::sRGB());
    canvas->concatenate(transform);
    canvas->drawPDFPage(page);
    EXPECT_FALSE(canvas->drawError());
    return *canvas->makeImage()->bitmap();
}

// The first page at 72 pixels an inch by poppler's own tool on white, as a binary PPM; nothing without the tool.
std::optional<std::string> judgedPixels(const support::TemporaryDirectory& folder, const std::string& pdf, int width,
                                        int height) {
    const auto ppm = commandOutput("pdftoppm -r 72 -f 1 -l 1 -cropbox '" + folder.write("judged.pdf", pdf) + "'");
    if (!ppm) return std::nullopt;
    const std::string header = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
    EXPECT_EQ(ppm->substr(0, header.size()), header);
    return ppm->substr(header.size());
}

// The largest difference of a component of the bitmap, laid on white, from red, green, blue bytes.
int largestDifference(const Bitmap& bitmap, const std::string& rgb) {
    if (rgb.size() != 3u * static_cast<unsigned>(bitmap.width() * bitmap.height())) return 256;
    int largest = 0;
    for (int y = 0, at = 0; y < bitmap.height(); ++y)
        for (int x = 0; x < bitmap.width(); ++x, at += 3)
            for (int channel = 0; channel < 3; ++channel) {
                const std::uint8_t* pixel = bitmap.row(y) + 4 * x;
                const int ours = pixel[2 - channel] + 255 - pixel[3];
                largest = std::max(largest, std::abs(ours - static_cast<std::uint8_t>(rgb[at + channel])));
            }
    return largest;
}

} // namespace

TEST(PDFDocument, TurnsPagesAndCutsThemToTheirCropBox) {
    struct Case {
        std::string entry;
        int angle;
        std::string corners;
        base::Point magenta; // where the patch on the box's edge shows, from the top left
    };
    const Case cases[] = {
        {"", 0, "bkgr", {2, 100}},
        {"/Rotate 90", 90, "rbkg", {100, 2}},
        {"/Rotate 180", 180, "grbk", {97, 100}},
        {"/Rotate 270", 270, "kgrb", {100, 97}},
        {"/Rotate -90", 270, "kgrb", {100, 97}},
        {"/Rotate 450", 90, "rbkg", {100, 2}},
    };
    const support::TemporaryDirectory folder;
    for (const Case& item : cases) {
        SCOPED_TRACE(item.entry);
        const std::string pdf = pdfOf({markedPage(item.entry)});
        const auto document = opened(pdf);
        ASSERT_TRUE(document);
        EXPECT_EQ(document->pageCount(), 1);
        EXPECT_FALSE(document->page(0));
        EXPECT_FALSE(document->page(2));
        const auto page = document->page(1);
        EXPECT_EQ(page->boxRect(PDFBox::crop), (Rect{50, 100, 100, 200}));
        EXPECT_EQ(page->boxRect(PDFBox::media), (Rect{0, 0, 300, 400}));
        EXPECT_EQ(page->rotationAngle(), item.angle);

        const bool onSide = item.angle % 180 != 0;
        const int width = onSide ? 200 : 100, height = onSide ? 100 : 200;
        const Rect whole{0, 0, double(width), double(height)};
        const Bitmap bitmap = drawnInto(page, width, height, page->drawingTransform(PDFBox::crop, whole, 0, true));
        EXPECT_EQ(corners(bitmap, whole), item.corners);
        EXPECT_EQ(letterAt(bitmap, item.magenta.x, item.magenta.y), 'm');
        if (const auto judged = judgedPixels(folder, pdf, width, height)) {
            EXPECT_EQ(largestDifference(bitmap, *judged), 0);
        }

        // The same page as a picture of a source.
        const auto source = ImageSource::createWithData(base::Data(pdf));
        ASSERT_TRUE(source);
        EXPECT_EQ((*source)->typeIdentifier(), "com.adobe.pdf");
        const auto image = (*source)->imageAtIndex(0);
        ASSERT_TRUE(image->width() == width && image->height() == height);
        const Bitmap picture = *image->bitmap();
        for (int y = 0; y < height; ++y)
            ASSERT_EQ(std::memcmp(picture.row(y), bitmap.row(y), 4u * static_cast<unsigned>(width)), 0) << y;
    }
}

TEST(PDFDocument, CentresPagesAndOnlyShrinksThem) {
    struct Case {
        std::string entry;
        Rect target;
        int rotate;
        bool preserveAspect;
        Rect box; // where the crop box comes to lie, y up
    };
    const Case cases[] = {
        {"", {0, 0, 300, 400}, 0, true, {100, 100, 100, 200}},
        {"", {10, 20, 50, 400}, 0, true, {10, 170, 50, 100}},
        {"", {10, 20, 50, 400}, 0, false, {10, 120, 50, 200}},
        {"", {0, 0, 100, 50}, 0, true, {37.5, 0, 25, 50}},
        {"", {0, 0, 100, 50}, 90, true, {0, 0, 100, 50}},
        {"", {0, 0, 300, 400}, -90, true, {50, 150, 200, 100}},
        {"/Rotate 90", {0, 0, 300, 400}, 0, true, {50, 150, 200, 100}},
        {"/Rotate 90", {0, 0, 100, 400}, 0, true, {0, 175, 100, 50}},
        {"/Rotate 270", {0, 0, 300, 400}, 90, true, {100, 100, 100, 200}},
    };
    for (const Case& item : cases) {
        const auto document = opened(pdfOf({markedPage(item.entry)}));
        ASSERT_TRUE(document);
        const auto page = document->page(1);
        const AffineTransform transform =
            page->drawingTransform(PDFBox::crop, item.target, item.rotate, item.preserveAspect);
        EXPECT_EQ(base::stringFromRect(transform.apply(page->boxRect(PDFBox::crop))), base::stringFromRect(item.box))
            << item.entry << " in " << base::stringFromRect(item.target);
    }
}

TEST(PDFDocument, AlphaIsOfThePageAsAWholeUnderTransformAndClip) {
    // Blue lies over half of red; the canvas is white and the page is turned by a quarter and moved.
    const auto document =
        opened(pdfOf({{"/MediaBox [0 0 40 20]", "1 0 0 rg 0 0 30 20 re f 0 0 1 rg 20 0 20 20 re f"}}));
    ASSERT_TRUE(document);
    for (const AlphaInfo alphaInfo : {AlphaInfo::premultipliedFirst, AlphaInfo::noneSkipLast}) {
        const auto canvas = BitmapContext::create(60, 60, ColorSpace::sRGB(), alphaInfo);
        canvas->setFillColor(Color(1, 1, 1));
        canvas->fillRect({0, 0, 60, 60});
        canvas->clipToRect({0, 0, 60, 45});
        canvas->concatenate(AffineTransform::translation(30, 10));
        canvas->concatenate({0, 1, -1, 0, 0, 0}); // counter-clockwise: x runs up, the page lies left of x = 30
        canvas->setAlpha(0.5);
        canvas->drawPDFPage(document->page(1));
        const Bitmap bitmap = *canvas->makeImage()->bitmap();
        const auto colorAt = [&](int x, int y) { // y up
            const std::uint8_t* at = bitmap.row(59 - y) + 4 * x;
            return std::vector<int>{at[2], at[1], at[0], at[3]};
        };
        const auto isNear = [&](int x, int y, const std::vector<int>& color) {
            const auto found = colorAt(x, y);
            return std::equal(found.begin(), found.end(), color.begin(),
                              [](int one, int other) { return std::abs(one - other) <= 1; });
        };
        EXPECT_TRUE(isNear(15, 15, {255, 127, 127, 255})); // red alone
        EXPECT_TRUE(isNear(15, 35, {127, 127, 255, 255})); // blue over red shows no red
        EXPECT_TRUE(isNear(15, 44, {127, 127, 255, 255}));
        EXPECT_TRUE(isNear(15, 45, {255, 255, 255, 255})); // behind the clip
        EXPECT_TRUE(isNear(31, 20, {255, 255, 255, 255})); // beside the page
    }
}

TEST(PDFDocument, PagesArePicturesOfASource) {
    const support::TemporaryDirectory folder;
    const std::string path = folder.write(
        "pages.pdf", pdfOf({{"/MediaBox [0 0 99.6 50.4]", "1 0 0 rg 0 0 200 200 re f"},
                            {"/MediaBox [-2000 -2000 2000 3000] /Rotate 90", "0 1 0 rg -2000 -2000 300 5000 re f"}}));
    const auto source = ImageSource::createWithURL(base::URL::fileURLWithPath(path));
    ASSERT_TRUE(source);
    ASSERT_EQ((*source)->count(), 2u);
    const auto number = [&](std::size_t index, std::string_view key) {
        return base::valueForKey((*source)->propertiesAtIndex(index), key).doubleValue();
    };
    EXPECT_EQ(number(0, kCGImagePropertyPixelWidth), 100);
    EXPECT_EQ(number(0, kCGImagePropertyPixelHeight), 50);
    EXPECT_EQ(number(0, kCGImagePropertyDPIWidth), 72);
    EXPECT_EQ(number(0, kCGImagePropertyHasAlpha), 1);
    EXPECT_EQ(number(1, kCGImagePropertyPixelWidth), 5000);
    EXPECT_EQ(number(1, kCGImagePropertyPixelHeight), 4000);
    // A size with fractions is filled to the last pixel.
    const Bitmap small = *(*source)->imageAtIndex(0)->bitmap();
    EXPECT_EQ(corners(small, {0, 0, 100, 50}), "rrrr");
    // More than is drawn at once: the stripe runs through every row of the turned page.
    const auto large = (*source)->imageAtIndex(1)->bitmap();
    ASSERT_TRUE(large);
    for (int y = 0; y < 4000; ++y)
        ASSERT_EQ(letterAt(*large, 2500, y), y < 300 ? 'g' : '.') << y;
    const auto part = (*source)->imageAtIndex(1)->cropped({100, 290, 10, 20});
    const Bitmap piece = *part->bitmap();
    EXPECT_EQ(std::string({letterAt(piece, 5, 9), letterAt(piece, 5, 10)}), "g.");
}

TEST(PDFDocument, RefusesWhatIsNoWholeDocument) {
    const support::TemporaryDirectory folder;
    const std::string marked = pdfOf({markedPage()});
    // A password that nobody has: the marks of its key are made up.
    const std::string lock = "/ID [<00><00>] /Encrypt << /Filter /Standard /V 1 /R 2 /P -4 /O <" +
                             std::string(64, 'A') + "> /U <" + std::string(64, 'B') + "> >>";
    const std::pair<std::string, std::string> cases[] = {
        {"", "it is empty"},
        {"rubbish", "it is not a picture of a known kind"},
        {"%PDF-1.4\n" + std::string(5000, 'x') + "%%EOF", "the PDF document"},
        {pdfOf({markedPage()}, lock), "the PDF document needs a password"},
        {pdfOf({}), "the PDF document has no pages"},
        {"%PDF-1.4\n% << /Linearized 1 /L 9999 >>\n" + pdfOf({markedPage()}), "the file is cut off"},
        {pdfOf({{"/MediaBox [0 0 40000 10]", ""}}), "page 1 is larger than 32767 points"},
        {pdfOf({{"/MediaBox [0 0 30000 30000]", ""}}), "more than the limit of 400 million"},
    };
    testing::internal::CaptureStderr();
    for (const auto& [bytes, message] : cases) {
        const auto source = ImageSource::createWithData(base::Data(bytes));
        ASSERT_FALSE(source) << message;
        EXPECT_NE(source.error().localizedDescription.find(message), std::string::npos)
            << source.error().localizedDescription;
    }
    EXPECT_FALSE(PDFDocument::createWithURL(base::URL::fileURLWithPath(folder / "missing.pdf")));
    EXPECT_FALSE(PDFDocument::createWithURL(base::URL::fileURLWithPath(folder.path().string())));
    for (std::size_t percent = 0; percent < 100; ++percent)
        EXPECT_FALSE(opened(marked.substr(0, marked.size() * percent / 100))) << percent;
    // A cut table of objects or a changed byte anywhere: refused or drawn, quietly.
    std::mt19937 random(7);
    for (int run = 0; run < 300; ++run) {
        std::string changed = marked;
        for (int change = run % 4; change >= 0; --change)
            changed[random() % changed.size()] = static_cast<char>(random());
        if (const auto document = opened(changed))
            if (const auto page = document->page(1)) {
                const auto canvas = BitmapContext::create(50, 50, ColorSpace::sRGB());
                canvas->concatenate(page->drawingTransform(PDFBox::crop, {0, 0, 50, 50}, 0, true));
                canvas->drawPDFPage(page);
            }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// 2 to the 40th uses of one form.
TEST(PDFDocument, PageThatTakesTooLongFails) {
    const auto stream = [](const std::string& entries, const std::string& content) {
        return "<< " + entries + " /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
               "\nendstream";
    };
    const auto resources = [](std::size_t form) {
        return "/Resources << /XObject << /F " + std::to_string(form) + " 0 R >> >>";
    };
    std::vector<std::string> objects = {
        "<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 20 20] /Contents 4 0 R " + resources(5) + " >>",
        stream("", "/F Do")};
    const std::string form = "/Type /XObject /Subtype /Form /BBox [0 0 20 20] ";
    while (objects.size() < 44)
        objects.push_back(stream(form + resources(objects.size() + 2), "/F Do /F Do"));
    objects.push_back(stream(form, "0 0 9 9 re f"));
    const auto source = ImageSource::createWithData(base::Data(pdfOfObjects(objects)));
    ASSERT_TRUE(source);
    const auto bitmap = (*source)->imageAtIndex(0)->bitmap();
    ASSERT_FALSE(bitmap);
    EXPECT_EQ(bitmap.error().localizedDescription,
              "cannot read the data: page 1 of the PDF document takes too long to draw");
}
