// TIFF by libtiff. Grey, RGB and CMYK with 8 or 16 bits come a row (or a row of tiles) at a time, with all their
// colours; everything else (palettes, few bits, YCbCr) is decoded whole by the library's own conversion to RGB.
#include "DeepTransform.h"
#include "TiffDecoder.h"
#include "TiffStructure.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace platform::draw {

namespace {

constexpr std::size_t maximumPages = 1000;

std::uint16_t sampleOf(const std::uint8_t* row, std::size_t index, int bits) {
    if (bits == 8) return widenedTo16Bits(row[index]);
    std::uint16_t value;
    std::memcpy(&value, row + 2 * index, 2);
    return value;
}

/// Makes rows of Lab to rows of sRGB with 16 bits.
class LabRows {
public:
    base::Result<void> start(const TiffDecoder& decoder, const TiffLayout& layout) {
        const float* white = decoder.field<float*>(TIFFTAG_WHITEPOINT, nullptr);
        auto transform = white ? DeepTransform::labToSRGB(std::pair(white[0], white[1])) : DeepTransform::labToSRGB();
        if (!transform) return base::failure(transform.error());
        transform_ = std::move(*transform);
        lab_.resize(3 * static_cast<std::size_t>(layout.width));
        return {};
    }
    void convert(const std::uint8_t* row, const TiffLayout& layout, std::uint16_t* rgb) {
        for (std::size_t i = 0; i < lab_.size(); ++i) {
            const unsigned value = sampleOf(row, i / 3 * layout.samples + i % 3, layout.bits);
            lab_[i] = static_cast<std::uint16_t>(layout.photometric == PHOTOMETRIC_ICCLAB ? iccValue(value, layout)
                                                 : i % 3 == 0                             ? value
                                                                                          : signedValue(value, layout));
        }
        transform_->convert(lab_.data(), rgb, lab_.size() / 3);
    }

private:
    // 65280 of 16 bits is what 255 of 8 bits is.
    static unsigned iccValue(unsigned value, const TiffLayout& layout) {
        return layout.bits == 8 ? value : std::min((value * 257u + 128) / 256, 65535u);
    }
    // Two's complement, whole steps or 256ths of them.
    static unsigned signedValue(unsigned value, const TiffLayout& layout) {
        if (layout.bits == 8) return ((value / 257) ^ 0x80) * 257;
        return iccValue(value ^ 0x8000, layout);
    }

    std::shared_ptr<const DeepTransform> transform_;
    std::vector<std::uint16_t> lab_;
};

class TiffBandReader final : public BandReader {
public:
    explicit TiffBandReader(std::unique_ptr<TiffDecoder> decoder)
        : decoder_(std::move(decoder)), layout_(*decoder_), rows_(*decoder_, layout_) {}

    base::Result<void> start(const PixelRect& region) {
        format_ = ReadingFormat::ofWholeRows(layout_.kind(), layout_.width, layout_.height, region);
        next_ = static_cast<std::uint32_t>(region.y);
        if (!layout_.byRows) return convertWhole();
        if (layout_.isLab()) {
            rgb_.resize(3 * static_cast<std::size_t>(layout_.width));
            if (auto started = lab_.start(*decoder_, layout_); !started) return started;
        }
        return rows_.start(next_);
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (next_ >= static_cast<std::uint32_t>(layout_.height)) return {};
        if (!layout_.byRows) {
            takeConverted(rows[0][0]);
            ++next_;
            return {};
        }
        auto row = rows_.next();
        if (!row) return base::failure(row.error());
        ++next_;
        if (layout_.isLab()) {
            storeLab(*row, rows[0][0]);
            return {};
        }
        if (layout_.bits == 16) reduceTo8Bits(*row);
        distribute(*row, rows);
        return {};
    }

private:
    base::Result<void> convertWhole() {
        TIFF* tiff = decoder_->tiff();
        std::array<char, 1024> why{};
        if (!TIFFRGBAImageOK(tiff, why.data())) return decoder_->failure(why.data());
        whole_.resize(static_cast<std::size_t>(layout_.width) * static_cast<std::size_t>(layout_.height));
        // Asked for in the file's own orientation, the pixels stay where they are stored.
        const int orientation = decoder_->field<std::uint16_t>(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        if (!TIFFReadRGBAImageOriented(tiff, static_cast<std::uint32_t>(layout_.width),
                                       static_cast<std::uint32_t>(layout_.height), whole_.data(), orientation, 1))
            return decoder_->failure();
        return {};
    }

    void takeConverted(std::uint8_t* row) const {
        const auto width = static_cast<std::size_t>(layout_.width);
        const std::uint32_t* source = whole_.data() + width * next_;
        for (std::size_t i = 0; i < width; ++i) {
            row[4 * i] = static_cast<std::uint8_t>(TIFFGetB(source[i]));
            row[4 * i + 1] = static_cast<std::uint8_t>(TIFFGetG(source[i]));
            row[4 * i + 2] = static_cast<std::uint8_t>(TIFFGetR(source[i]));
            row[4 * i + 3] = static_cast<std::uint8_t>(TIFFGetA(source[i]));
        }
    }

    void storeLab(const std::uint8_t* source, std::uint8_t* row) {
        lab_.convert(source, layout_, rgb_.data());
        for (std::size_t i = 0; i < rgb_.size(); i += 3, row += 4) {
            for (std::size_t k = 0; k < 3; ++k)
                row[2 - k] = reducedTo8Bits(rgb_[i + k]);
            row[3] = 255;
        }
    }

    void reduceTo8Bits(std::uint8_t* row) const {
        const std::size_t count = static_cast<std::size_t>(layout_.width) * layout_.samples;
        for (std::size_t i = 0; i < count; ++i)
            row[i] = reducedTo8Bits(sampleOf(row, i, 16));
    }

    void distribute(const std::uint8_t* source, std::uint8_t** const* rows) const {
        const auto width = static_cast<std::size_t>(layout_.width);
        const std::size_t step = layout_.samples;
        const std::uint8_t inversion = layout_.photometric == PHOTOMETRIC_MINISWHITE ? 0xFF : 0;
        switch (format_.kind) {
        case SampleKind::gray:
            for (std::size_t i = 0; i < width; ++i)
                rows[0][0][i] = source[i * step] ^ inversion;
            return;
        case SampleKind::cmyk:
            for (std::size_t i = 0; i < width; ++i)
                for (std::size_t k = 0; k < 4; ++k)
                    rows[k][0][i] = source[i * step + k];
            return;
        default:
            break;
        }
        std::uint8_t* row = rows[0][0];
        const std::size_t colors = layout_.isGray() ? 1 : 3;
        for (std::size_t i = 0; i < width; ++i) {
            const std::uint8_t* pixel = source + i * step;
            row[4 * i] = pixel[colors - 1] ^ inversion;
            row[4 * i + 1] = pixel[colors / 2] ^ inversion;
            row[4 * i + 2] = pixel[0] ^ inversion;
            row[4 * i + 3] = layout_.hasAlpha ? pixel[colors] : 255;
        }
        if (layout_.hasAlpha && !layout_.premultiplied) premultiply(row, width);
    }

    std::unique_ptr<TiffDecoder> decoder_;
    TiffLayout layout_;
    TiffRows rows_;
    LabRows lab_;
    std::vector<std::uint16_t> rgb_;   // out of Lab
    std::uint32_t next_ = 0;           // row of the picture
    std::vector<std::uint32_t> whole_; // of a converted picture
};

class TiffDeepReader final : public DeepReader {
public:
    explicit TiffDeepReader(std::unique_ptr<TiffDecoder> decoder)
        : decoder_(std::move(decoder)), layout_(*decoder_), rows_(*decoder_, layout_) {
        format_ = {layout_.components(), layout_.hasAlpha && layout_.components() != 4, layout_.premultiplied};
    }
    base::Result<void> start() {
        if (layout_.isLab())
            if (auto started = lab_.start(*decoder_, layout_); !started) return started;
        return rows_.start(0);
    }

    base::Result<void> readRow(std::uint16_t* row) override {
        const auto source = rows_.next();
        if (!source) return base::failure(source.error());
        if (layout_.isLab()) {
            lab_.convert(*source, layout_, row);
            return {};
        }
        const auto colors = static_cast<std::size_t>(format_.colors);
        const std::uint16_t inversion = layout_.photometric == PHOTOMETRIC_MINISWHITE ? 0xFFFF : 0;
        for (std::size_t pixel = 0; pixel < static_cast<std::size_t>(layout_.width); ++pixel) {
            const std::size_t first = pixel * layout_.samples;
            for (std::size_t k = 0; k < colors; ++k)
                *row++ = sampleOf(*source, first + k, layout_.bits) ^ inversion;
            if (format_.hasAlpha) *row++ = sampleOf(*source, first + colors, layout_.bits);
        }
        return {};
    }

private:
    std::unique_ptr<TiffDecoder> decoder_;
    TiffLayout layout_;
    TiffRows rows_;
    LabRows lab_;
};

class TiffSource final : public PixelSource {
public:
    TiffSource(std::shared_ptr<const ByteSource> bytes, std::size_t page, const TiffLayout& layout,
               ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)) {
        // Alpha, because colours lose precision when they are multiplied by it in 8 bits.
        deep_ = layout.byRows && (layout.bits == 16 || (layout.hasAlpha && !layout.premultiplied));
        width_ = layout.width;
        height_ = layout.height;
        opaque_ = layout.kind() != SampleKind::bgra;
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
        index_ = page;
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        auto decoder = TiffDecoder::open(bytes_, index_);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<TiffBandReader>(std::move(*decoder));
        if (auto started = reader->start(region); !started) return base::failure(started.error());
        return reader;
    }

    base::Result<std::unique_ptr<DeepReader>> openDeep() const override {
        if (!deep_) return nullptr;
        auto decoder = TiffDecoder::open(bytes_, index_);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<TiffDeepReader>(std::move(*decoder));
        if (auto started = reader->start(); !started) return base::failure(started.error());
        return reader;
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
    bool deep_ = false;
};

Picture pictureOf(const std::shared_ptr<const ByteSource>& bytes, const TiffDecoder& decoder, std::size_t page) {
    const TiffLayout layout(decoder);
    std::uint32_t profileSize = 0;
    void* profile = nullptr;
    if (!TIFFGetField(decoder.tiff(), TIFFTAG_ICCPROFILE, &profileSize, &profile)) profile = nullptr;
    const int components = layout.components();
    const ColorSpaceRef& otherwise = components == 1   ? ColorSpace::gray()
                                     : components == 4 ? ColorSpace::deviceCMYK()
                                                       : ColorSpace::sRGB();
    Picture picture;
    picture.pixels = std::make_shared<TiffSource>(
        bytes, page, layout,
        colorSpaceOfProfile(static_cast<const std::uint8_t*>(profile), profileSize, components, otherwise));
    picture.bitsPerComponent = layout.bits;
    const int orientation = decoder.field<std::uint16_t>(TIFFTAG_ORIENTATION, 0);
    if (orientation >= 1 && orientation <= 8) picture.orientation = orientation;
    const auto unit = decoder.field<std::uint16_t>(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    const double perInch = unit == RESUNIT_CENTIMETER ? 2.54 : 1.0;
    if (const float density = decoder.field<float>(TIFFTAG_XRESOLUTION, 0); density > 0 && unit != RESUNIT_NONE)
        picture.dpiWidth = density * perInch;
    if (const float density = decoder.field<float>(TIFFTAG_YRESOLUTION, 0); density > 0 && unit != RESUNIT_NONE)
        picture.dpiHeight = density * perInch;
    if (const auto reader = bytes->open()) {
        const auto file = TiffStructure::of(
            [&](std::uint64_t at, void* target, std::size_t count) { return (*reader)->read(at, target, count); },
            (*reader)->size());
        if (file) picture.exif = exifBlockOfPage(*file, TIFFCurrentDirOffset(decoder.tiff()));
    }
    return picture;
}

} // namespace

base::Result<std::vector<Picture>> openTiff(std::shared_ptr<const ByteSource> bytes) {
    auto decoder = TiffDecoder::open(bytes, 0);
    if (!decoder) return base::failure(decoder.error());
    std::vector<Picture> pictures;
    do {
        const auto width = (*decoder)->field<std::uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
        const auto height = (*decoder)->field<std::uint32_t>(TIFFTAG_IMAGELENGTH, 0);
        if (!checkPictureSize(*bytes, width, height)) break; // the pages before it are good
        pictures.push_back(pictureOf(bytes, **decoder, pictures.size()));
    } while (pictures.size() < maximumPages &&
             TIFFSetDirectory((*decoder)->tiff(), static_cast<tdir_t>(pictures.size())));
    return pictures;
}

} // namespace platform::draw
