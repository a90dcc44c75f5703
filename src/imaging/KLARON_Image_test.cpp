#include "imaging/KLARON_Image.h"
#include "platform/draw/ImageDestination.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <vector>

using namespace platform::draw;
using base::Rect;
using base::Size;

namespace {

constexpr double pi = std::numbers::pi;

BitmapContextRef makeCanvas(double width, double height) {
    return BitmapContext::create(width, height, ColorSpace::sRGB());
}

// Columns and rows of ten-pixel cells, row by row from the top: 'r', 'g', 'b', 'w', 'k'.
ImageRef cells(const std::vector<std::string>& rows, double cell = 10) {
    const auto canvas =
        BitmapContext::create(cell * rows[0].size(), cell * rows.size(), ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    for (std::size_t row = 0; row < rows.size(); ++row)
        for (std::size_t column = 0; column < rows[row].size(); ++column) {
            const char letter = rows[row][column];
            const bool white = letter == 'w';
            canvas->setFillColor(Color(white || letter == 'r', white || letter == 'g', white || letter == 'b'));
            canvas->fillRect({cell * column, cell * (rows.size() - 1 - row), cell, cell});
        }
    return canvas->makeImage();
}

// The canvas read back as letters at the middles of cells; '.' for transparent, '?' for anything else.
std::vector<std::string> letters(const BitmapContextRef& canvas, int cell = 10) {
    const Bitmap bitmap = *canvas->makeImage()->bitmap();
    std::vector<std::string> rows;
    for (int y = cell / 2; y < bitmap.height(); y += cell) {
        std::string row;
        for (int x = cell / 2; x < bitmap.width(); x += cell) {
            const std::uint8_t* at = bitmap.row(y) + 4 * x;
            const int near = 12; // the resampler's overshoot beside an edge
            const auto is = [&](int red, int green, int blue) {
                return std::abs(at[2] - red) <= near && std::abs(at[1] - green) <= near &&
                       std::abs(at[0] - blue) <= near;
            };
            row += at[3] == 0          ? '.'
                   : is(255, 0, 0)     ? 'r'
                   : is(0, 255, 0)     ? 'g'
                   : is(0, 0, 255)     ? 'b'
                   : is(255, 255, 255) ? 'w'
                   : is(0, 0, 0)       ? 'k'
                                       : '?';
        }
        rows.push_back(row);
    }
    return rows;
}

using Rows = std::vector<std::string>;

KLARON_ImageRef wrapped(const ImageRef& image, std::optional<int> orientation = std::nullopt) {
    KLARON_Image::Metadata metadata;
    if (orientation) metadata = base::Dictionary{{std::string(kCGImagePropertyOrientation), *orientation}};
    return KLARON_Image::initWithCGImage(image, metadata);
}

Rows drawn(const KLARON_ImageRef& image, double width, double height, const Rect& destination = {}) {
    const auto canvas = makeCanvas(width, height);
    image->setDrawingContext(canvas);
    image->setDestinationRect(destination);
    image->draw();
    EXPECT_FALSE(canvas->drawError());
    return letters(canvas);
}

std::string jpegFile(const support::TemporaryDirectory& folder, std::string_view name, const ImageRef& image,
                     int orientation) {
    auto destination = *ImageDestination::createWithData("public.jpeg");
    destination->addImage(image, {{std::string(kCGImagePropertyOrientation), orientation},
                                  {std::string(kCGImageDestinationLossyCompressionQuality), 1.0}});
    EXPECT_TRUE(destination->finalize());
    return folder.write(name, destination->takeData().asText());
}

// The picture "rgb / wkr" (upright, 3 x 2) as its pixels lie in a file of each orientation.
struct Lying {
    int orientation;
    Rows rows;
};
const Lying lyingPictures[] = {
    {1, {"rgb", "wkr"}}, {3, {"rkw", "bgr"}}, {6, {"br", "gk", "rw"}}, {8, {"wr", "kg", "rb"}}};
const Rows upright = {"rgb", "wkr"};

} // namespace

TEST(KLARON_ImageGeometry, KnowsSizesWithoutDecoding) {
    const support::TemporaryDirectory folder;
    const std::string path = jpegFile(folder, "a.jpg", cells({"rgb", "wkr"}), 6);
    EXPECT_EQ(KLARON_Image::sizeForImage(path), (Size{0, 0})) << "required, odd as it is";
    EXPECT_EQ(KLARON_Image::orientedSizeForImage(path), (Size{20, 30}));
    EXPECT_EQ(KLARON_Image::orientationForImage(base::URL::fileURLWithPath(path)), 6);
    EXPECT_EQ(KLARON_Image::rotationForImage(path), pi / 2);
    const auto image = KLARON_Image::imageWithObject(path);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (Size{0, 0}));
    EXPECT_EQ(image->actualSize(), (Size{30, 20}));
    EXPECT_EQ(image->orientedSize(), (Size{20, 30}));
    EXPECT_EQ(KLARON_Image::orientedSizeForImage(image), (Size{20, 30}));
    image->setOrientationForced(1);
    EXPECT_EQ(image->orientation(), 1);
    EXPECT_EQ(image->orientationNatural(), 6);
    EXPECT_EQ(image->orientedSize(), (Size{30, 20}));
    EXPECT_EQ(image->naturalOrientedSize(), (Size{20, 30}));
    const auto plain = wrapped(cells({"rgb", "wkr"}));
    EXPECT_EQ(plain->size(), (Size{30, 20}));
    EXPECT_EQ(KLARON_Image::sizeForImage(plain), (Size{30, 20}));
    EXPECT_EQ(plain->orientation(), 1);
}

TEST(KLARON_ImageGeometry, ExchangesSidesByItsTwoRules) {
    const struct {
        int orientation;
        bool inMetadata, inSize;
        std::optional<double> rotation;
    } cases[] = {{1, false, false, {}}, {2, false, false, {}},   {3, false, false, pi}, {4, false, false, {}},
                 {5, true, false, {}},  {6, true, true, pi / 2}, {7, true, false, {}},  {8, true, true, -pi / 2}};
    for (const auto& row : cases) {
        const KLARON_Image::Metadata metadata =
            base::Dictionary{{"PixelWidth", 40}, {"PixelHeight", 30}, {"Orientation", row.orientation}};
        const auto size = [](bool exchanged) { return exchanged ? Size{30, 40} : Size{40, 30}; };
        EXPECT_EQ(KLARON_Image::orientedSizeForImageMetaData(metadata), size(row.inMetadata)) << row.orientation;
        EXPECT_EQ(KLARON_Image::sizeForImageMetaData(metadata), Size{}) << row.orientation;
        EXPECT_EQ(KLARON_Image::orientedSizeForOrientation(row.orientation, {40, 30}), size(row.inSize))
            << row.orientation;
        EXPECT_EQ(KLARON_Image::rotationForImageMetaData(metadata), row.rotation) << row.orientation;
    }
    EXPECT_EQ(KLARON_Image::orientedSizeForImageMetaData(base::Dictionary{{"PixelWidth", 40}}), Size{});
    EXPECT_EQ(KLARON_Image::orientedSizeForImageMetaData(std::nullopt), Size{});
}

TEST(KLARON_ImageGeometry, NormalizesAndBack) {
    EXPECT_EQ(KLARON_Image::normalizedRect({10, 20, 50, 40}, {100, 200}), (Rect{0.1, 0.1, 0.5, 0.2}));
    EXPECT_EQ(KLARON_Image::denormalizedRect({0.1, 0.1, 0.5, 0.2}, {100, 200}), (Rect{10, 20, 50, 40}));
    EXPECT_EQ(KLARON_Image::normalizedRect({10, 20, 50, 40}, {100, 0}), Rect{});
    EXPECT_EQ(KLARON_Image::normalizedPoint({10, 20}, {0, 5}), base::Point{});
    EXPECT_EQ(KLARON_Image::denormalizedPoint({0.5, 0.25}, {8, 8}), (base::Point{4, 2}));
}

TEST(KLARON_ImageOpening, TakesWhatIsAPictureAndNothingElse) {
    const support::TemporaryDirectory folder;
    const std::string path = jpegFile(folder, "a.jpg", cells({"rg"}), 1);
    const base::Data data(support::readFile(path));
    EXPECT_TRUE(KLARON_Image::imageWithObject(path));
    EXPECT_TRUE(KLARON_Image::imageWithObject(data));
    EXPECT_TRUE(KLARON_Image::imageWithObject(base::Value(base::URL::fileURLWithPath(path))));
    EXPECT_TRUE(KLARON_Image::imageWithObject(base::Value(std::make_shared<ImageValue>(cells({"rg"})))));
    const ImageObject unreadable[] = {ImageObject(),
                                      folder / "missing.jpg",
                                      folder.write("empty.jpg", ""),
                                      folder.write("rubbish.jpg", std::string(3000, 'x')),
                                      folder.write("cut.jpg", data.asText().substr(0, 30)),
                                      folder.path().string(),
                                      base::Data("nothing"),
                                      base::Value(17),
                                      ""};
    for (const auto& object : unreadable) {
        EXPECT_EQ(KLARON_Image::imageWithObject(object), nullptr) << object.description();
        EXPECT_EQ(KLARON_Image::previewImageWithObject(object), nullptr) << object.description();
        EXPECT_EQ(KLARON_Image::orientedSizeForImage(object), Size{}) << object.description();
    }
    EXPECT_EQ(KLARON_Image::previewImageWithObject(cells({"rg"})), nullptr) << "an image gets no preview";
}

TEST(KLARON_ImageOpening, PreviewsAreUprightSmallAndKept) {
    const support::TemporaryDirectory folder;
    const std::string path = jpegFile(folder, "a.jpg", cells({"rgb", "wkr"}, 500), 6);
    const auto preview = KLARON_Image::previewImageWithObject(path);
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->size(), (Size{667, 1000}));
    EXPECT_EQ(preview->orientation(), 1);
    folder.write("a.jpg", "changed");
    EXPECT_EQ(KLARON_Image::previewImageWithObject(path)->cgImage(), preview->cgImage());
}

TEST(KLARON_ImageDraw, StandsUprightForEachOrientation) {
    for (const Lying& lying : lyingPictures) {
        SCOPED_TRACE(lying.orientation);
        const auto image = wrapped(cells(lying.rows), lying.orientation);
        EXPECT_EQ(drawn(image, 30, 20), upright) << "the zero rectangle is the whole context";
        image->setContentsGravity(std::string(kCAGravityResizeAspect));
        EXPECT_EQ(drawn(image, 50, 20), (Rows{".rgb.", ".wkr."}));
        EXPECT_EQ(drawn(image, 30, 40), (Rows{"...", "rgb", "wkr", "..."}));
        image->setContentsGravity(std::string(kCAGravityResizeAspectFill));
        EXPECT_EQ(drawn(image, 10, 20), (Rows{"g", "k"})) << "cut about the middle";
        EXPECT_EQ(drawn(image, 60, 40), (Rows{"rrggbb", "rrggbb", "wwkkrr", "wwkkrr"})) << "equal aspects crop nothing";
        // Crops are told in the coordinates of the upright picture.
        image->setCropRect({10, 0, 20, 10});
        EXPECT_EQ(drawn(image, 20, 10), (Rows{"gb"}));
        image->setCropRect({0, 0.5, 2 / 3.0, 0.5});
        image->setIsNormalizedCropRect(true);
        EXPECT_EQ(drawn(image, 20, 10), (Rows{"wk"}));
        image->setCropRect({0, 0, 0, 1});
        image->setContentsGravity(std::string("anything else"));
        EXPECT_EQ(drawn(image, 30, 20), upright) << "an empty crop is none";
    }
    // Mirrored orientations are drawn as they lie.
    for (const int mirrored : {2, 4, 5, 7}) {
        const auto image = wrapped(cells(upright), mirrored);
        EXPECT_EQ(drawn(image, 30, 20), upright) << mirrored;
        image->setCropRect({10, 0, 20, 10});
        EXPECT_EQ(drawn(image, 20, 10), (Rows{"gb"})) << mirrored;
    }
}

TEST(KLARON_ImageDraw, CropFollowsTheNaturalOrientationDrawingTheForcedOne) {
    // Upright (natural 6) it is rgb / wkr; forced to 1 its pixels are drawn as they lie.
    const auto image = wrapped(cells({"br", "gk", "rw"}), 6);
    image->setOrientationForced(1);
    EXPECT_EQ(drawn(image, 20, 30), (Rows{"br", "gk", "rw"}));
    image->setCropRect({10, 0, 20, 10}); // "gb" upright, that is the column b, g as it lies
    EXPECT_EQ(drawn(image, 10, 20), (Rows{"b", "g"}));
    image->setContentsGravity(std::string(kCAGravityResizeAspectFill)); // by the forced orientation
    EXPECT_EQ(drawn(image, 10, 10).size(), 1u);
    // Natural 1, forced 6, as autorotation does: the crop is that of the file, the turn comes after it.
    const auto forced = wrapped(cells({"rgb", "wkr"}));
    forced->setOrientationForced(6);
    EXPECT_EQ(drawn(forced, 20, 30), (Rows{"wr", "kg", "rb"}));
    forced->setCropRect({10, 0, 20, 10});
    EXPECT_EQ(drawn(forced, 10, 20), (Rows{"g", "b"}));
}

TEST(KLARON_ImageDraw, AShadowWithoutAColourIsAThirdOfBlack) {
    const auto image = wrapped(cells({"g"}));
    const auto canvas = makeCanvas(30, 30);
    image->setDrawingContext(canvas);
    image->setDestinationRect({0, 20, 10, 10});
    image->setShadowColorCode(std::nullopt);
    image->setHasShadow(true);
    image->setShadowOffset({10, -10});
    image->draw();
    EXPECT_EQ(canvas->makeImage()->bitmap()->row(15)[4 * 15 + 3], 0x55);
}

TEST(KLARON_ImageDraw, LogsWhatItCanNotDraw) {
    support::LogCapture log;
    const auto image = wrapped(cells({"rg"}));
    image->draw();
    EXPECT_EQ(image->drawingContextWithCanvasSize({0, 5}), nullptr);
    image->setDrawingContext(makeCanvas(10, 10));
    image->setDestinationRect({1, 0, 0, 5});
    image->draw();
    image->setDestinationRect({1, 0, 5, 0});
    image->setContentsGravity(std::string(kCAGravityResizeAspectFill));
    image->draw();
    EXPECT_EQ(log.lines(),
              (Rows{"ERROR: call drawingContextWithCanvasSize: to create a context before accessing this property!",
                    "ERROR: set a drawing context before attempting to draw!",
                    "ERROR: Both width and height must be > 0 (", "ERROR: attempting to draw an image with zero width",
                    "ERROR: attempting to draw an image with zero height"}));
}

TEST(KLARON_ImageDraw, CopiesToALargestDimension) {
    const ImageRef copy = wrapped(cells({"rrgg", "rrgg"}, 50))->copyWithMaxDimension(100);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->width(), 100);
    EXPECT_EQ(copy->height(), 50);
    EXPECT_EQ(wrapped(cells({"r", "g", "b"}))->copyWithMaxDimension(60)->height(), 60) << "and to a larger one";
    EXPECT_EQ(wrapped(cells({"rg"}), 1)->copyWithMaxDimension(10), nullptr) << "with metadata its size is zero";
}
