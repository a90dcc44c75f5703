// WebP, GIF, BMP and HEIC: made by other programs, judged by other decoders.
#include "internal/PictureFixtures.h"
#include "internal/PixelSource.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <libheif/heif.h>
#include <string>

using namespace platform::draw;
using namespace fixtures;

namespace {

/// A folder with rgb.png, rgba.png and gray.png, in which shell commands run.
class Workshop {
public:
    explicit Workshop(const Pixels& pixels) {
        folder_.write("rgb.png", pngOf(pixels).asText());
        folder_.write("rgba.png", pngOf(pixels, {PngColors::rgba}).asText());
        folder_.write("gray.png", pngOf(pixels, {PngColors::gray}).asText());
    }
    bool run(const std::string& command) const {
        return std::system(("cd '" + folder_.path().string() + "' && (" + command + ") >/dev/null 2>&1").c_str()) == 0;
    }
    void write(const std::string& name, const base::Data& data) const { folder_.write(name, data.asText()); }
    base::Data read(const std::string& name) const { return base::Data(support::readFile(folder_ / name)); }

private:
    support::TemporaryDirectory folder_;
};

base::Result<Bitmap> bitmapOf(const base::Data& file, std::size_t index = 0) {
    const auto source = ImageSource::createWithData(file);
    if (!source) return base::failure(source.error());
    const ImageRef image = (*source)->imageAtIndex(index);
    if (!image) return base::failure(base::cocoaErrorDomain, 0, "there is no such picture");
    return image->bitmap();
}

/// The greatest difference from pixels in the order red, green, blue, alpha, not premultiplied; 256 for another size.
int greatestDifference(const base::Result<Bitmap>& bitmap, const base::Data& wanted) {
    if (!bitmap) {
        ADD_FAILURE() << bitmap.error().localizedDescription;
        return 256;
    }
    const auto width = static_cast<std::size_t>(bitmap->width());
    if (wanted.size() != 4 * width * static_cast<std::size_t>(bitmap->height())) return 256;
    int greatest = 0;
    const std::uint8_t* from = wanted.bytes.data();
    for (int y = 0; y < bitmap->height(); ++y) {
        const std::uint8_t* row = bitmap->row(y);
        for (std::size_t x = 0; x < width; ++x, row += 4, from += 4) {
            for (std::size_t k = 0; k < 3; ++k)
                greatest = std::max(greatest, std::abs((from[k] * from[3] + 127) / 255 - row[2 - k]));
            greatest = std::max(greatest, std::abs(from[3] - row[3]));
        }
    }
    return greatest;
}

const std::string animatedGif =
    "convert -delay 10 -size 80x60 -dispose none xc:gold -dispose previous -page +5+5 \\( -size 20x20 xc:red \\) "
    "-dispose background -page +30+30 \\( -size 30x10 xc:none -fill blue -draw 'circle 8,5 8,1' \\) "
    "-dispose none -page +40+30 \\( rgb.png -resize 40x30 \\) -page +10+10 \\( -size 12x12 xc:green \\) a.gif";

/// A picture written by libheif as our own encoder would not do it.
struct HeifOptions {
    int width = 96;
    int height = 64;
    int primaries = 0;
    heif_orientation orientation = heif_orientation_normal;
    bool premultiplied = false;
    std::string exif;
    int pictures = 1;
};
base::Data heifOf(const HeifOptions& options) {
    heif_context* context = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder);
    heif_encoder_set_lossless(encoder, 1);
    heif_encoding_options* settings = heif_encoding_options_alloc();
    settings->macOS_compatibility_workaround_no_nclx_profile = 0;
    settings->image_orientation = options.orientation;
    for (int n = 0; n < options.pictures; ++n) {
        heif_image* image = nullptr;
        heif_image_create(options.width, options.height, heif_colorspace_RGB,
                          options.premultiplied ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &image);
        heif_image_add_plane(image, heif_channel_interleaved, options.width, options.height, 8);
        int stride = 0;
        std::uint8_t* row = heif_image_get_plane(image, heif_channel_interleaved, &stride);
        // Dull red above and blue below, half transparent; further pictures are grey.
        constexpr std::uint8_t red[] = {120, 0, 0, 128}, blue[] = {0, 0, 120, 128}, gray[] = {99, 99, 99, 128};
        const int samples = options.premultiplied ? 4 : 3;
        for (int y = 0; y < options.height; ++y, row += stride)
            for (int x = 0; x < options.width; ++x)
                std::copy_n(n > 0 ? gray : y < options.height / 2 ? red : blue, samples, row + samples * x);
        heif_image_set_premultiplied_alpha(image, options.premultiplied);
        if (options.primaries != 0) {
            heif_color_profile_nclx* codes = heif_nclx_color_profile_alloc();
            heif_nclx_color_profile_set_color_primaries(codes, static_cast<std::uint16_t>(options.primaries));
            heif_nclx_color_profile_set_transfer_characteristics(codes, 13);
            heif_image_set_nclx_color_profile(image, codes);
            heif_nclx_color_profile_free(codes);
        }
        heif_image_handle* handle = nullptr;
        EXPECT_EQ(heif_context_encode_image(context, image, encoder, settings, &handle).code, heif_error_Ok);
        if (!options.exif.empty())
            heif_context_add_exif_metadata(context, handle, options.exif.data(), static_cast<int>(options.exif.size()));
        heif_image_handle_release(handle);
        heif_image_release(image);
    }
    base::Data file;
    heif_writer writer{1, [](heif_context*, const void* bytes, std::size_t count, void* target) {
                           const auto* from = static_cast<const std::uint8_t*>(bytes);
                           auto& to = static_cast<base::Data*>(target)->bytes;
                           to.insert(to.end(), from, from + count);
                           return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
                       }};
    heif_context_write(context, &writer, &file);
    heif_encoding_options_free(settings);
    heif_encoder_release(encoder);
    heif_context_free(context);
    return file;
}

std::string numbers(int size, std::initializer_list<std::int64_t> values) {
    std::string bytes;
    for (const std::int64_t value : values)
        for (int i = 0; i < size; ++i)
            bytes += static_cast<char>(value >> 8 * i);
    return bytes;
}

/// A BMP file with Windows' first header and a palette of black, red, green, blue.
base::Data bmpOf(int width, int height, int bits, std::uint32_t compression, const std::vector<std::uint8_t>& pixels) {
    return base::Data("BM" + numbers(4, {0, 0, 70, 40, width, height}) + numbers(2, {1, bits}) +
                      numbers(4, {compression, 0, 5669, 5669, 4, 0, 0, 0xFF0000, 0x00FF00, 0x0000FF}) +
                      std::string(pixels.begin(), pixels.end()));
}

/// The colours of a bitmap as letters, row by row.
std::string letters(const Bitmap& bitmap) {
    std::string result;
    for (int y = 0; y < bitmap.height(); ++y, result += '/')
        for (int x = 0; x < bitmap.width(); ++x) {
            const std::uint8_t* pixel = bitmap.row(y) + 4 * x;
            result += pixel[2] ? 'R' : pixel[1] ? 'G' : pixel[0] ? 'B' : '.';
        }
    return result;
}

} // namespace

TEST(FurtherFormats, AgreeWithOtherDecoders) {
    const Workshop workshop(Pixels::of(61, 37, photographLike));
    const std::string webp = "dwebp -quiet -pam f -o - | convert pam:- -depth 8 rgba:j";
    const std::string magick = " -depth 8 rgba:j";
    const std::string heif = "ln -sf f f.heic && heif-convert f.heic f.png && convert f.png -depth 8 rgba:j";
    struct Case {
        std::string make; // into the file f
        std::string judge;
        std::string_view type;
        int difference = 0;
    };
    const std::vector<Case> cases{
        {"cwebp -q 90 rgb.png -o f", webp, "org.webmproject.webp"},
        {"cwebp -q 90 rgba.png -o f", webp, "org.webmproject.webp"},
        {"cwebp -lossless -exact rgba.png -o f", webp, "org.webmproject.webp"},
        {"convert rgb.png gif:f", "convert gif:f" + magick, "com.compuserve.gif"},
        {"convert rgb.png -interlace GIF gif:f", "convert gif:f" + magick, "com.compuserve.gif"},
        {"convert rgba.png gif:f", "convert gif:f" + magick, "com.compuserve.gif"},
        {"convert rgb.png -type truecolor bmp3:f", "convert bmp:f" + magick, "com.microsoft.bmp"},
        {"convert rgb.png -type truecolor bmp2:f", "convert bmp:f" + magick, "com.microsoft.bmp"},
        {"convert rgba.png bmp:f", "convert bmp:f" + magick, "com.microsoft.bmp"},
        {"convert rgb.png -colors 200 bmp3:f", "convert bmp:f" + magick, "com.microsoft.bmp"},
        {"convert rgb.png -colors 90 -compress RLE bmp3:f", "convert bmp:f" + magick, "com.microsoft.bmp"},
        {"convert rgb.png -colors 12 -type palette bmp3:f", "convert bmp:f" + magick, "com.microsoft.bmp"},
        {"convert rgb.png -monochrome -type bilevel bmp3:f", "convert bmp:f" + magick, "com.microsoft.bmp"},
        // It widens five and six bits by repeating them, not to the nearest value.
        {"convert rgb.png -define bmp:subtype=RGB565 bmp:f", "convert bmp:f" + magick, "com.microsoft.bmp", 1},
        {"convert rgb.png -define bmp:subtype=RGB555 bmp:f", "convert bmp:f" + magick, "com.microsoft.bmp", 1},
        {"convert rgba.png -define bmp:subtype=ARGB1555 bmp:f", "convert bmp:f" + magick, "com.microsoft.bmp", 1},
        {"heif-enc -q 90 rgb.png -o f", heif, "public.heic"},
        {"heif-enc -q 90 rgba.png -o f", heif, "public.heic"},
        {"heif-enc -q 90 gray.png -o f", heif, "public.heic"},
        {"heif-enc -L -p chroma=444 rgb.png -o f", heif, "public.heic"},
        // The judge hands out 16 bits, which are rounded where ours are cut.
        {"convert rgb.png PNG48:d.png && heif-enc -b 10 -q 90 d.png -o f", heif, "public.heic", 1},
        {"convert rgb.png PNG48:d.png && heif-enc -b 12 -q 90 d.png -o f", heif, "public.heic", 1},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.make);
        ASSERT_TRUE(workshop.run(test.make));
        ASSERT_TRUE(workshop.run(test.judge));
        const base::Data file = workshop.read("f");
        const base::Data wanted = workshop.read("j");
        const auto source = ImageSource::createWithData(file);
        ASSERT_TRUE(source) << source.error().localizedDescription;
        EXPECT_EQ((*source)->typeIdentifier(), test.type);
        EXPECT_EQ((*source)->count(), 1u);
        const ImageRef image = (*source)->imageAtIndex(0);
        EXPECT_EQ(image->isOpaque(), test.make.find("rgba") == std::string::npos);
        const auto whole = image->bitmap();
        EXPECT_LE(greatestDifference(whole, wanted), test.difference);
        const auto deep = image->source().openDeep();
        ASSERT_TRUE(deep);
        ASSERT_EQ(*deep != nullptr, test.make.find("PNG48") != std::string::npos);
        if (*deep) {
            ASSERT_TRUE(workshop.run("convert f.png -depth 16 -endian LSB rgb:j"));
            const base::Data samples = workshop.read("j");
            ASSERT_EQ(samples.size(), 6u * 61 * 37);
            std::vector<std::uint16_t> row(std::size_t{3} * 61);
            for (std::size_t i = 0; i < samples.size() / 2; ++i) {
                if (i % row.size() == 0) {
                    ASSERT_TRUE((*deep)->readRow(row.data()));
                }
                // The judge leaves the six or four bits below at 0.
                const int beyond = row[i % row.size()] - (samples.bytes[2 * i] | samples.bytes[2 * i + 1] << 8);
                ASSERT_TRUE(beyond >= 0 && beyond < 64) << i << ": " << beyond;
            }
        }
        // A part is what the whole has there.
        const base::Rect part{13, 7, 20, 25};
        const auto cut = image->cropped(part)->bitmap();
        ASSERT_TRUE(cut);
        for (int y = 0; y < 25; ++y)
            EXPECT_TRUE(std::equal(cut->row(y), cut->row(y) + 80, whole->row(7 + y) + 52)) << y;
    }
}

TEST(FurtherFormats, ShowAnimationsFrameByFrame) {
    const Workshop workshop(Pixels::of(61, 37, photographLike));
    ASSERT_TRUE(workshop.run(animatedGif + " && gif2webp -min_size a.gif -o a.webp && convert a.gif -coalesce -depth 8 "
                                           "rgba:j%d"));
    for (const std::string name : {"a.gif", "a.webp"}) {
        const auto source = ImageSource::createWithData(workshop.read(name));
        ASSERT_TRUE(source) << source.error().localizedDescription;
        ASSERT_EQ((*source)->count(), 5u);
        // In an order that no single walk through the file serves.
        for (const std::size_t index : {4u, 0u, 3u, 1u, 2u}) {
            SCOPED_TRACE(name + " " + std::to_string(index));
            const base::Data wanted = workshop.read("j" + std::to_string(index));
            EXPECT_EQ(greatestDifference((*source)->imageAtIndex(index)->bitmap(), wanted), 0);
        }
    }
}

TEST(FurtherFormats, ReadOddBmpFiles) {
    const std::vector<std::uint8_t> plain{0x1B, 0, 0, 0, 0xB0, 0, 0, 0};
    struct Case {
        std::string name;
        base::Data file;
        std::string wanted;
    };
    const std::vector<Case> cases{
        {"from the bottom", bmpOf(4, 2, 4, 0, {0x12, 0x30, 0, 0, 0x01, 0x23, 0, 0}), ".RGB/RGB./"},
        {"from the top", bmpOf(4, -2, 4, 0, {0x12, 0x30, 0, 0, 0x01, 0x23, 0, 0}), "RGB./.RGB/"},
        {"last row without its filling", bmpOf(4, 1, 4, 0, {0x12, 0x30}), "RGB./"},
        {"one bit", bmpOf(10, 1, 1, 0, {0b10100000, 0b01000000, 0, 0}), "R.R......R/"},
        {"RLE8: runs, literals, ends of lines", bmpOf(5, 2, 8, 1, {3, 1, 2, 2, 0, 0, 0, 5, 0, 1, 2, 3, 0, 0, 0, 1}),
         ".RGB./RRRGG/"},
        {"RLE8: a jump", bmpOf(4, 3, 8, 1, {1, 1, 0, 2, 1, 2, 2, 3, 0, 1}), "..BB/..../R.../"},
        {"RLE8: a run beyond the edge", bmpOf(3, 2, 8, 1, {9, 1, 0, 0, 3, 2, 0, 1}), "GGG/RRR/"},
        {"RLE8: ended early", bmpOf(2, 2, 8, 1, {2, 3, 0, 1}), "../BB/"},
        {"RLE8: no end mark", bmpOf(2, 2, 8, 1, {2, 3, 0, 0, 2, 1}), "RR/BB/"},
        {"RLE4", bmpOf(6, 2, 4, 2, {5, 0x12, 0, 0, 0, 5, 0x01, 0x23, 0x10, 0, 0, 1}), ".RGBR./RGRGR./"},
        {"cut off within a run", bmpOf(3, 2, 8, 1, {3, 1, 0, 0, 0, 3, 1}), ""},
        {"cut off within a row", bmpOf(4, 2, 4, 0, {0x12, 0x30, 0, 0, 0x01}), ""},
        {"run lengths from the top", bmpOf(2, -2, 8, 1, {2, 3, 0, 1}), ""},
        {"a compression of OS/2", bmpOf(2, 2, 1, 3, {2, 3, 0, 1}), ""},
        {"three bits", bmpOf(2, 2, 3, 0, plain), ""},
        {"no width", bmpOf(0, 2, 8, 0, plain), ""},
        {"the least height", bmpOf(2, std::numeric_limits<int>::min(), 8, 0, plain), ""},
    };
    for (const Case& test : cases) {
        const auto bitmap = bitmapOf(test.file);
        EXPECT_EQ(bitmap ? letters(*bitmap) : "", test.wanted) << test.name;
        if (bitmap) continue;
        EXPECT_NE(bitmap.error().localizedDescription.find("cannot read the data: "), std::string::npos) << test.name;
    }
    const auto source = ImageSource::createWithData(cases[0].file);
    EXPECT_NEAR(base::valueForKey((*source)->propertiesAtIndex(0), "DPIWidth").doubleValue(), 144, 0.1);
}

TEST(FurtherFormats, KeepProfilesAndMetadata) {
    const Workshop workshop(Pixels::of(61, 37, photographLike));
    const base::Data profile(
        profileOf({0.30, 0.60, 1}, {0.64, 0.33, 1}, {0.15, 0.06, 1})); // primaries in another order
    workshop.write("p.icc", profile);
    struct Case {
        std::string make;
        bool hasExif;
    };
    for (const Case& test :
         {Case{"convert rgb.png -profile p.icc t.jpg && "
               "exiftool -n -Orientation=6 -Make=Velm t.jpg && cwebp -metadata all t.jpg -o f",
               true},
          Case{"convert t.jpg -define bmp:format=bmp5 bmp:f", false}, Case{"heif-enc t.jpg -o f", true}}) {
        SCOPED_TRACE(test.make);
        ASSERT_TRUE(workshop.run(test.make));
        const auto source = ImageSource::createWithData(workshop.read("f"));
        ASSERT_TRUE(source) << source.error().localizedDescription;
        EXPECT_EQ((*source)->imageAtIndex(0)->colorSpace()->iccData(), profile);
        const base::Dictionary& properties = (*source)->propertiesAtIndex(0);
        const auto* tiff = base::valueForKey(properties, "{TIFF}").as<base::Dictionary>();
        ASSERT_EQ(tiff != nullptr, test.hasExif);
        if (!tiff) continue;
        EXPECT_EQ(base::valueForKey(*tiff, "Make"), base::Value("Velm"));
        // HEIC files are turned by what stands beside the picture, never by their EXIF block.
        const int orientation = (*source)->typeIdentifier() == "public.heic" ? 1 : 6;
        EXPECT_EQ(base::valueForKey(properties, "Orientation"), base::Value(orientation));
        EXPECT_EQ(base::valueForKey(*tiff, "Orientation"), base::Value(orientation));
    }
}

TEST(FurtherFormats, HeicStandsUpright) {
    HeifOptions options;
    options.orientation = heif_orientation_rotate_90_cw;
    options.exif = std::string("II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0\x06\0\0\0\0\0\0\0", 26);
    options.primaries = 12;
    options.pictures = 2;
    const auto source = ImageSource::createWithData(heifOf(options));
    ASSERT_TRUE(source) << source.error().localizedDescription;
    const base::Dictionary& properties = (*source)->propertiesAtIndex(0);
    EXPECT_EQ(base::valueForKey(properties, "Orientation"), base::Value(1));
    ASSERT_EQ((*source)->count(), 2u);
    const ImageRef image = (*source)->imageAtIndex(0);
    EXPECT_EQ(image->width(), 64);
    EXPECT_EQ(image->height(), 96);
    const auto bitmap = image->bitmap();
    ASSERT_TRUE(bitmap);
    EXPECT_GT(bitmap->row(40)[4 * 60 + 2], 100) << "the upper half turned to the right";
    EXPECT_GT(bitmap->row(40)[4 * 3 + 0], 100);
    EXPECT_NEAR((*(*source)->imageAtIndex(1)->bitmap()).row(40)[4 * 3 + 1], 99, 2);

    // Code points in place of a profile: Display P3's red is beyond sRGB's, so a dull one becomes a stronger one.
    EXPECT_FALSE(image->colorSpace()->isSRGB());
    EXPECT_GT((*image->bitmap(ColorSpace::sRGB())).row(40)[4 * 60 + 2], bitmap->row(40)[4 * 60 + 2] + 5);

    HeifOptions straight;
    straight.primaries = 1;
    straight.premultiplied = true;
    const auto other = ImageSource::createWithData(heifOf(straight));
    ASSERT_TRUE(other);
    EXPECT_TRUE((*other)->imageAtIndex(0)->colorSpace()->isSRGB());
    const auto half = (*other)->imageAtIndex(0)->bitmap();
    EXPECT_NEAR(half->row(3)[4 * 3 + 3], 128, 1);
    EXPECT_NEAR(half->row(3)[4 * 3 + 2], 120, 3) << "colours that are multiplied already stay as they are";
}

TEST(FurtherFormats, WriteHeicOfAnySize) {
    struct Size {
        int width;
        int height;
    };
    for (const Size size : {Size{1, 1}, Size{3, 5}, Size{65, 64}, Size{131, 97}}) {
        for (const PngColors colors : {PngColors::rgb, PngColors::rgba}) {
            SCOPED_TRACE(std::to_string(size.width) + " x " + std::to_string(size.height) +
                         (colors == PngColors::rgba ? " alpha" : ""));
            const Pixels smooth = Pixels::of(size.width, size.height, [](double x, double y) {
                return Color{100 + 60 * std::sin(x / 40), 128, 160 + 60 * std::cos(y / 40)};
            });
            const Workshop workshop(smooth);
            const ImageRef image = (*ImageSource::createWithData(pngOf(smooth, {colors})))->imageAtIndex(0);
            auto destination = ImageDestination::createWithData("public.heic");
            ASSERT_TRUE(destination);
            (*destination)
                ->addImage(image, {{"Orientation", 1},
                                   {"kCGImageDestinationLossyCompressionQuality", 0.95},
                                   {"{Exif}", base::Dictionary{{"UserComment", "VELM comment"}}}});
            ASSERT_TRUE((*destination)->finalize());
            const base::Data file = (*destination)->takeData();
            const auto source = ImageSource::createWithData(file);
            ASSERT_TRUE(source) << source.error().localizedDescription;
            EXPECT_EQ((*source)->typeIdentifier(), "public.heic");
            EXPECT_EQ((*source)->imageAtIndex(0)->isOpaque(), colors == PngColors::rgb);
            EXPECT_EQ((*source)->imageAtIndex(0)->colorSpace(), image->colorSpace());

            workshop.write("f.heic", file);
            ASSERT_TRUE(workshop.run("convert " + std::string(colors == PngColors::rgba ? "rgba" : "rgb") +
                                     ".png -depth 8 rgba:w && heif-convert f.heic f.png && convert f.png -depth 8 "
                                     "rgba:j && exiftool -n -p '$UserComment $Orientation' f.heic > c"));
            EXPECT_LE(greatestDifference((*source)->imageAtIndex(0)->bitmap(), workshop.read("w")), 6);
            EXPECT_LE(greatestDifference((*source)->imageAtIndex(0)->bitmap(), workshop.read("j")), 0);
            EXPECT_EQ(workshop.read("c").asText(), "VELM comment 1\n");
        }
    }
}

TEST(FurtherFormats, CutOffFilesFailOrAreWhole) {
    const Workshop workshop(Pixels::of(61, 37, photographLike));
    ASSERT_TRUE(workshop.run(animatedGif));
    ASSERT_TRUE(workshop.run("cwebp -q 90 rgba.png -o s.webp && gif2webp a.gif -o a.webp && convert rgb.png -type "
                             "truecolor bmp3:s.bmp && convert rgb.png -colors 90 -compress RLE bmp3:r.bmp && convert "
                             "rgb.png -interlace GIF i.gif && heif-enc rgba.png -o s.heic"));
    for (const char* name : {"s.webp", "a.webp", "s.bmp", "r.bmp", "a.gif", "i.gif", "s.heic"})
        expectCutOffFilesFail(workshop.read(name));
}

TEST(FurtherFormats, RefuseHugePictures) {
    base::Data heic = heifOf({});
    constexpr std::string_view mark = "ispe";
    for (auto at = heic.bytes.begin();
         (at = std::search(at, heic.bytes.end(), mark.begin(), mark.end())) != heic.bytes.end(); ++at)
        for (const int field : {8, 12})
            std::copy_n("\0\0\xEA\x60", 4, at + field);
    base::Data gif(
        std::string("GIF89a\x60\xEA\x60\xEA\x80\0\0\0\0\0\xFF\xFF\xFF,\0\0\0\0\x60\xEA\x60\xEA\0\2\2D\1\0;", 36));
    for (const base::Data& file : {bmpOf(60000, 60000, 8, 0, {}), gif, heic}) {
        const auto bitmap = bitmapOf(file);
        ASSERT_FALSE(bitmap);
        EXPECT_NE(bitmap.error().localizedDescription.find("60000"), std::string::npos)
            << bitmap.error().localizedDescription;
    }
    // Ten thousand frames of 100 million pixels, each of which lets the one before it through.
    std::string frames("GIF89a\x10\x27\x10\x27\x80\0\0\0\0\0\xFF\xFF\xFF", 19);
    for (int i = 0; i < 10000; ++i)
        frames += std::string("!\xF9\4\1\0\0\0\0,\0\0\0\0\x10\x27\x10\x27\0\2\2D\1\0", 23);
    const base::Data many(frames + ";");
    const auto last = bitmapOf(many, 9999);
    ASSERT_FALSE(last);
    EXPECT_NE(last.error().localizedDescription.find("1000 million"), std::string::npos)
        << last.error().localizedDescription;
}
