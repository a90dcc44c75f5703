// PNG by libpng, a row at a time; interlaced files are decoded whole. 16 bits are reduced to 8 by the library, unless
// the reading is a deep one.
#include "PictureFormat.h"
#include "platform/draw/ColorSpace.h"

#include <bit>
#include <csetjmp>
#include <cstring>
#include <png.h>

namespace platform::draw {

namespace {

void ignoreWarning(png_structp, png_const_charp) {}

/// A decoder up to its header. The library's calls are made only inside guarded(), which turns its errors into ours.
class Decoder {
public:
    Decoder(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader)
        : bytes_(std::move(bytes)), reader_(std::move(reader)) {}
    ~Decoder() { png_destroy_read_struct(&png_, &info_, nullptr); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    png_structp png() const { return png_; }
    png_infop info() const { return info_; }

    /// Runs library calls. They may leave by a long jump, so `calls` must hold nothing that needs destruction.
    template <class Calls>
    base::Result<void> guarded(Calls calls) {
        if (setjmp(jump_)) return pictureFailure(*bytes_, message_);
        calls();
        return {};
    }

    base::Result<void> readHeader() {
        png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, fail, ignoreWarning);
        info_ = png_ ? png_create_info_struct(png_) : nullptr;
        if (!info_) return pictureFailure(*bytes_, "no memory");
        auto result = guarded([this] {
            png_set_read_fn(png_, this, read);
            // A few kilobytes may unpack to any number of texts and profiles.
            png_set_chunk_cache_max(png_, 256);
            png_set_chunk_malloc_max(png_, 32u << 20);
            png_read_info(png_, info_);
        });
        if (!result) return result;
        return checkPictureSize(*bytes_, png_get_image_width(png_, info_), png_get_image_height(png_, info_));
    }

    bool hasAlpha() const {
        return (png_get_color_type(png_, info_) & PNG_COLOR_MASK_ALPHA) != 0 ||
               png_get_valid(png_, info_, PNG_INFO_tRNS) != 0;
    }
    bool isGray() const {
        return (png_get_color_type(png_, info_) & (PNG_COLOR_MASK_COLOR | PNG_COLOR_MASK_PALETTE)) == 0;
    }

    /// From here on rows come as one grey byte a pixel, or as blue, green, red and alpha (255 for none; grey pictures
    /// with alpha too); deep ones with 16 bits a sample, as grey, or red, green, blue, and alpha when there is one.
    base::Result<void> startRows(bool deep) {
        return guarded([this, deep] {
            png_set_expand(png_);
            if (deep) {
                png_set_expand_16(png_);
                if (std::endian::native == std::endian::little) png_set_swap(png_);
            } else {
                png_set_scale_16(png_);
                if (isGray() && hasAlpha()) png_set_gray_to_rgb(png_);
                if (!isGray() && !hasAlpha()) png_set_filler(png_, 0xFF, PNG_FILLER_AFTER);
                if (!isGray() || hasAlpha()) png_set_bgr(png_);
            }
            passes_ = png_set_interlace_handling(png_);
            png_read_update_info(png_, info_);
        });
    }
    int passes() const { return passes_; }

private:
    static Decoder& of(png_structp png) { return *static_cast<Decoder*>(png_get_error_ptr(png)); }

    [[noreturn]] static void fail(png_structp png, png_const_charp message) {
        Decoder& decoder = of(png);
        std::strncpy(decoder.message_, message, sizeof decoder.message_ - 1);
        std::longjmp(decoder.jump_, 1);
    }

    static void read(png_structp png, png_bytep target, std::size_t count) {
        Decoder& decoder = of(png);
        // Through a buffer: the library asks for a few bytes at a time.
        while (count > 0) {
            if (decoder.used_ == decoder.filled_) {
                decoder.filled_ = decoder.reader_->read(decoder.position_, decoder.buffer_, sizeof decoder.buffer_);
                decoder.position_ += decoder.filled_;
                decoder.used_ = 0;
                if (decoder.filled_ == 0) png_error(png, "the file is cut off");
            }
            const std::size_t part = std::min(count, decoder.filled_ - decoder.used_);
            std::memcpy(target, decoder.buffer_ + decoder.used_, part);
            decoder.used_ += part;
            target += part;
            count -= part;
        }
    }

    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    int passes_ = 1;
    std::jmp_buf jump_;
    char message_[256] = {};
    std::uint64_t position_ = 0;
    std::size_t used_ = 0;
    std::size_t filled_ = 0;
    std::uint8_t buffer_[32768];
};

base::Result<std::unique_ptr<Decoder>> openDecoder(const std::shared_ptr<const ByteSource>& bytes) {
    auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    auto decoder = std::make_unique<Decoder>(bytes, std::move(*reader));
    if (auto header = decoder->readHeader(); !header) return base::failure(header.error());
    return decoder;
}

/// The rows of one decoder, from any first one.
class Rows {
public:
    explicit Rows(std::unique_ptr<Decoder> decoder) : decoder_(std::move(decoder)) {}
    Decoder& decoder() const { return *decoder_; }
    int width() const { return static_cast<int>(png_get_image_width(decoder_->png(), decoder_->info())); }
    int height() const { return static_cast<int>(png_get_image_height(decoder_->png(), decoder_->info())); }
    std::size_t rowBytes() const { return rowBytes_; }

    base::Result<void> start(int first, bool deep) {
        if (auto started = decoder_->startRows(deep); !started) return started;
        rowBytes_ = png_get_rowbytes(decoder_->png(), decoder_->info());
        if (decoder_->passes() > 1) {
            whole_.resize(rowBytes_ * static_cast<std::size_t>(height()));
            next_ = static_cast<std::size_t>(first);
            return readInterlaced();
        }
        std::vector<std::uint8_t> skipped(rowBytes_);
        for (int y = 0; y < first; ++y)
            if (auto read = decode(skipped.data()); !read) return read;
        return {};
    }

    base::Result<void> read(std::uint8_t* row) {
        if (whole_.empty()) return decode(row);
        std::memcpy(row, whole_.data() + next_++ * rowBytes_, rowBytes_);
        return {};
    }

private:
    base::Result<void> decode(std::uint8_t* row) {
        return decoder_->guarded([this, row] { png_read_row(decoder_->png(), row, nullptr); });
    }
    base::Result<void> readInterlaced() {
        for (int pass = 0; pass < decoder_->passes(); ++pass)
            for (std::size_t start = 0; start < whole_.size(); start += rowBytes_)
                if (auto read = decode(whole_.data() + start); !read) return read;
        return {};
    }

    std::unique_ptr<Decoder> decoder_;
    std::size_t rowBytes_ = 0;
    std::vector<std::uint8_t> whole_; // of an interlaced picture
    std::size_t next_ = 0;            // row of it
};

class PngBandReader final : public BandReader {
public:
    explicit PngBandReader(std::unique_ptr<Decoder> decoder) : rows_(std::move(decoder)) {}

    base::Result<void> start(const PixelRect& region) {
        alpha_ = rows_.decoder().hasAlpha();
        const bool isGray = rows_.decoder().isGray() && !alpha_;
        const SampleKind kind = isGray ? SampleKind::gray : alpha_ ? SampleKind::bgra : SampleKind::bgrx;
        format_ = ReadingFormat::ofWholeRows(kind, rows_.width(), rows_.height(), region);
        if (auto started = rows_.start(region.y, false); !started) return started;
        format_.planes.front().rowBytes = rows_.rowBytes(); // the library's, which may be more
        return {};
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        std::uint8_t* row = rows[0][0];
        if (auto read = rows_.read(row); !read) return read;
        if (alpha_) premultiply(row, static_cast<std::size_t>(format_.gridWidth));
        return {};
    }

private:
    Rows rows_;
    bool alpha_ = false;
};

class PngDeepReader final : public DeepReader {
public:
    explicit PngDeepReader(std::unique_ptr<Decoder> decoder) : rows_(std::move(decoder)) {
        format_ = {rows_.decoder().isGray() ? 1 : 3, rows_.decoder().hasAlpha(), false};
    }
    base::Result<void> start() { return rows_.start(0, true); }
    base::Result<void> readRow(std::uint16_t* row) override { return rows_.read(reinterpret_cast<std::uint8_t*>(row)); }

private:
    Rows rows_;
};

class PngSource final : public PixelSource {
public:
    PngSource(std::shared_ptr<const ByteSource> bytes, int width, int height, int bits, bool opaque,
              ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)), bits_(bits) {
        width_ = width;
        height_ = height;
        opaque_ = opaque;
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        auto decoder = openDecoder(bytes_);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<PngBandReader>(std::move(*decoder));
        if (auto started = reader->start(region); !started) return base::failure(started.error());
        return reader;
    }

    base::Result<std::unique_ptr<DeepReader>> openDeep() const override {
        // Alpha, because colours lose precision when they are multiplied by it in 8 bits.
        if (bits_ < 16 && opaque_) return nullptr;
        auto decoder = openDecoder(bytes_);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<PngDeepReader>(std::move(*decoder));
        if (auto started = reader->start(); !started) return base::failure(started.error());
        return reader;
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
    int bits_;
};

} // namespace

base::Result<std::vector<Picture>> openPng(std::shared_ptr<const ByteSource> bytes) {
    auto opened = openDecoder(bytes);
    if (!opened) return base::failure(opened.error());
    Decoder& decoder = **opened;
    png_structp png = decoder.png();
    png_infop info = decoder.info();

    png_charp profileName = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    png_uint_32 profileSize = 0;
    if (!png_get_iCCP(png, info, &profileName, &compression, &profile, &profileSize)) profile = nullptr;
    const ColorSpaceRef space = colorSpaceOfProfile(profile, profileSize, decoder.isGray() ? 1 : 3,
                                                    decoder.isGray() ? ColorSpace::gray() : ColorSpace::sRGB());
    Picture picture;
    picture.bitsPerComponent = png_get_bit_depth(png, info);
    png_bytep exif = nullptr;
    png_uint_32 exifSize = 0;
    if (png_get_eXIf_1(png, info, &exifSize, &exif) && exif) picture.exif.assign(exif, exif + exifSize);
    png_uint_32 densityX = 0;
    png_uint_32 densityY = 0;
    int unit = PNG_RESOLUTION_UNKNOWN;
    if (png_get_pHYs(png, info, &densityX, &densityY, &unit) && unit == PNG_RESOLUTION_METER) {
        picture.dpiWidth = densityX * 0.0254;
        picture.dpiHeight = densityY * 0.0254;
    }
    picture.pixels = std::make_shared<PngSource>(bytes, static_cast<int>(png_get_image_width(png, info)),
                                                 static_cast<int>(png_get_image_height(png, info)),
                                                 picture.bitsPerComponent, !decoder.hasAlpha(), space);
    return std::vector<Picture>{std::move(picture)};
}

} // namespace platform::draw
