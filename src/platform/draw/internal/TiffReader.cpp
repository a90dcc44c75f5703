// TIFF by libtiff. Plain stripes of grey, RGB and CMYK with 8 or 16 bits come a row at a time, with all their colours;
// everything else (tiles, palettes, planes, few bits) is decoded whole by the library's own conversion to RGB.
#include "PictureFormat.h"
#include "TiffProperties.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <tiffio.h>

namespace platform::draw {

namespace {

constexpr std::size_t maximumPages = 1000;
constexpr tmsize_t maximumAllocation = tmsize_t{2} << 30;

class Decoder {
public:
    Decoder(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader)
        : bytes_(std::move(bytes)), reader_(std::move(reader)) {}
    ~Decoder() {
        if (tiff_) TIFFClose(tiff_);
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    base::Result<void> open(std::size_t page) {
        TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
        if (!options) return pictureFailure(*bytes_, "no memory");
        TIFFOpenOptionsSetMaxSingleMemAlloc(options, maximumAllocation);
        TIFFOpenOptionsSetErrorHandlerExtR(options, keepError, this);
        TIFFOpenOptionsSetWarningHandlerExtR(
            options, [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
        // "m": no memory mapping; a file that is cut short while it is mapped ends the process.
        tiff_ = TIFFClientOpenExt(bytes_->name().c_str(), "rm", this, read, write, seek, close, size, nullptr, nullptr,
                                  options);
        TIFFOpenOptionsFree(options);
        if (!tiff_ || (page > 0 && !TIFFSetDirectory(tiff_, static_cast<tdir_t>(page)))) return failure();
        return {};
    }

    TIFF* tiff() const { return tiff_; }
    /// The library's own words about its last error.
    tl::unexpected<base::Error> failure() const {
        return pictureFailure(*bytes_, error_.empty() ? "the file is broken" : error_);
    }

    template <class T>
    T field(std::uint32_t tag, T otherwise) const {
        T value = otherwise;
        return TIFFGetFieldDefaulted(tiff_, tag, &value) ? value : otherwise;
    }

private:
    static Decoder& of(thandle_t handle) { return *static_cast<Decoder*>(handle); }

    static int keepError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
        std::array<char, 256> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        auto& decoder = *static_cast<Decoder*>(user);
        if (decoder.error_.empty()) decoder.error_ = text.data();
        return 1;
    }
    static tmsize_t read(thandle_t handle, void* target, tmsize_t count) {
        Decoder& decoder = of(handle);
        const std::size_t got = decoder.reader_->read(decoder.position_, target, static_cast<std::size_t>(count));
        decoder.position_ += got;
        return static_cast<tmsize_t>(got);
    }
    static tmsize_t write(thandle_t, void*, tmsize_t) { return 0; }
    static toff_t seek(thandle_t handle, toff_t offset, int whence) {
        Decoder& decoder = of(handle);
        const std::uint64_t base = whence == SEEK_CUR   ? decoder.position_
                                   : whence == SEEK_END ? decoder.reader_->size()
                                                        : 0;
        decoder.position_ = base + offset;
        return decoder.position_;
    }
    static int close(thandle_t) { return 0; }
    static toff_t size(thandle_t handle) { return of(handle).reader_->size(); }

    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    TIFF* tiff_ = nullptr;
    std::uint64_t position_ = 0;
    std::string error_;
};

/// How the samples of a file lie, and what they mean.
struct Layout {
    int width = 0;
    int height = 0;
    std::uint16_t bits = 8;
    std::uint16_t samples = 1;
    std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    bool hasAlpha = false;
    bool premultiplied = false;
    bool byRows = false; ///< Rows can be taken as they are; else the library converts the whole.

    explicit Layout(const Decoder& decoder) {
        width = static_cast<int>(decoder.field<std::uint32_t>(TIFFTAG_IMAGEWIDTH, 0));
        height = static_cast<int>(decoder.field<std::uint32_t>(TIFFTAG_IMAGELENGTH, 0));
        bits = decoder.field<std::uint16_t>(TIFFTAG_BITSPERSAMPLE, 1);
        samples = decoder.field<std::uint16_t>(TIFFTAG_SAMPLESPERPIXEL, 1);
        photometric = decoder.field<std::uint16_t>(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        std::uint16_t extraCount = 0;
        std::uint16_t* extra = nullptr;
        if (TIFFGetFieldDefaulted(decoder.tiff(), TIFFTAG_EXTRASAMPLES, &extraCount, &extra) && extraCount > 0) {
            hasAlpha = extra[0] == EXTRASAMPLE_ASSOCALPHA || extra[0] == EXTRASAMPLE_UNASSALPHA;
            premultiplied = extra[0] == EXTRASAMPLE_ASSOCALPHA;
        }
        const bool wholeNumbers =
            decoder.field<std::uint16_t>(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) == SAMPLEFORMAT_UINT;
        const bool together = samples == 1 || decoder.field<std::uint16_t>(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) ==
                                                  PLANARCONFIG_CONTIG;
        const bool known = isGray() || (photometric == PHOTOMETRIC_RGB && samples >= 3) ||
                           (photometric == PHOTOMETRIC_SEPARATED && samples == 4);
        const bool plain = decoder.field<std::uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE) != COMPRESSION_OJPEG;
        byRows =
            known && wholeNumbers && together && plain && (bits == 8 || bits == 16) && !TIFFIsTiled(decoder.tiff());
        // The library's conversion keeps an alpha of any kind, premultiplied.
        if (!byRows && !hasAlpha && samples == 4 && photometric == PHOTOMETRIC_RGB) hasAlpha = true;
    }

    bool isGray() const { return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE; }
    SampleKind kind() const {
        if (!byRows) return hasAlpha ? SampleKind::bgra : SampleKind::bgrx;
        if (photometric == PHOTOMETRIC_SEPARATED) return SampleKind::cmyk;
        if (hasAlpha) return SampleKind::bgra;
        return isGray() ? SampleKind::gray : SampleKind::bgrx;
    }
    int components() const {
        const SampleKind sampleKind = kind();
        return sampleKind == SampleKind::gray ? 1 : sampleKind == SampleKind::cmyk ? 4 : 3;
    }
};

base::Result<std::unique_ptr<Decoder>> openDecoder(const std::shared_ptr<const ByteSource>& bytes, std::size_t page) {
    auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    auto decoder = std::make_unique<Decoder>(bytes, std::move(*reader));
    if (auto opened = decoder->open(page); !opened) return base::failure(opened.error());
    const auto width = decoder->field<std::uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
    const auto height = decoder->field<std::uint32_t>(TIFFTAG_IMAGELENGTH, 0);
    if (auto size = checkPictureSize(*bytes, width, height); !size) return base::failure(size.error());
    return decoder;
}

class TiffBandReader final : public BandReader {
public:
    explicit TiffBandReader(std::unique_ptr<Decoder> decoder) : decoder_(std::move(decoder)), layout_(*decoder_) {}

    base::Result<void> start(const PixelRect& region) {
        format_.kind = layout_.kind();
        PlaneFormat plane;
        const bool planar = format_.kind == SampleKind::cmyk || format_.kind == SampleKind::gray;
        plane.samplesPerPixel = planar ? 1 : 4;
        plane.width = layout_.width;
        plane.height = layout_.height - region.y;
        plane.rowBytes = static_cast<std::size_t>(plane.width) * static_cast<std::size_t>(plane.samplesPerPixel);
        format_.planes.assign(format_.kind == SampleKind::cmyk ? 4 : 1, plane);
        format_.gridWidth = plane.width;
        format_.gridHeight = plane.height;
        format_.region = {static_cast<double>(region.x), 0, static_cast<double>(region.width),
                          static_cast<double>(region.height)};
        next_ = static_cast<std::uint32_t>(region.y);
        if (!layout_.byRows) return convertWhole();

        const auto scanline = static_cast<std::size_t>(TIFFScanlineSize64(decoder_->tiff()));
        const auto needed = static_cast<std::size_t>(layout_.width) * layout_.samples * (layout_.bits / 8u);
        if (scanline < needed) return decoder_->failure();
        row_.resize(scanline);
        // Rows before the region may be needed to unpack those of it.
        for (std::uint32_t y = 0; y < next_; ++y)
            if (TIFFReadScanline(decoder_->tiff(), row_.data(), y, 0) != 1) return decoder_->failure();
        return {};
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (next_ >= static_cast<std::uint32_t>(layout_.height)) return {};
        if (!layout_.byRows) {
            takeConverted(rows[0][0]);
            ++next_;
            return {};
        }
        if (TIFFReadScanline(decoder_->tiff(), row_.data(), next_++, 0) != 1) return decoder_->failure();
        if (layout_.bits == 16) reduceTo8Bits();
        distribute(rows);
        return {};
    }

private:
    base::Result<void> convertWhole() {
        TIFF* tiff = decoder_->tiff();
        std::array<char, 1024> why{};
        if (!TIFFRGBAImageOK(tiff, why.data())) return pictureFailureOf(why.data());
        whole_.resize(static_cast<std::size_t>(layout_.width) * static_cast<std::size_t>(layout_.height));
        // Asked for in the file's own orientation, the pixels stay where they are stored.
        const int orientation = decoder_->field<std::uint16_t>(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        if (!TIFFReadRGBAImageOriented(tiff, static_cast<std::uint32_t>(layout_.width),
                                       static_cast<std::uint32_t>(layout_.height), whole_.data(), orientation, 1))
            return decoder_->failure();
        return {};
    }

    tl::unexpected<base::Error> pictureFailureOf(const char* why) const {
        base::Error error = decoder_->failure().value();
        error.localizedDescription += std::string(": ") + why;
        return base::failure(std::move(error));
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

    void reduceTo8Bits() {
        const std::size_t count = static_cast<std::size_t>(layout_.width) * layout_.samples;
        for (std::size_t i = 0; i < count; ++i) {
            std::uint16_t value; // in this machine's order of bytes: the library has seen to that
            std::memcpy(&value, row_.data() + 2 * i, 2);
            row_[i] = static_cast<std::uint8_t>((value * 255u + 32895u) >> 16);
        }
    }

    void distribute(std::uint8_t** const* rows) const {
        const auto width = static_cast<std::size_t>(layout_.width);
        const std::size_t step = layout_.samples;
        const std::uint8_t* source = row_.data();
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

    std::unique_ptr<Decoder> decoder_;
    Layout layout_;
    std::uint32_t next_ = 0; // row of the picture
    std::vector<std::uint8_t> row_;
    std::vector<std::uint32_t> whole_; // of a converted picture
};

class TiffSource final : public PixelSource {
public:
    TiffSource(std::shared_ptr<const ByteSource> bytes, std::size_t page, const Layout& layout,
               ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)) {
        width_ = layout.width;
        height_ = layout.height;
        opaque_ = layout.kind() != SampleKind::bgra;
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
        index_ = page;
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        auto decoder = openDecoder(bytes_, index_);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<TiffBandReader>(std::move(*decoder));
        if (auto started = reader->start(region); !started) return base::failure(started.error());
        return reader;
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
};

Picture pictureOf(const std::shared_ptr<const ByteSource>& bytes, const Decoder& decoder, std::size_t page) {
    const Layout layout(decoder);
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
    picture.properties = tiffProperties(decoder.tiff());
    return picture;
}

} // namespace

base::Result<std::vector<Picture>> openTiff(std::shared_ptr<const ByteSource> bytes) {
    auto decoder = openDecoder(bytes, 0);
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
