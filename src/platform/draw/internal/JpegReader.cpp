// JPEG by libjpeg-turbo. The planes come out at their own resolution, before any enlargement of colour and before the
// conversion to RGB: both are done on the reduced picture, on a fraction of the pixels.
#include "PictureFormat.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <string>

// In this order: jpeglib.h needs what cstdio declares, and the numbers in jerror.h depend on jpeglib.h.
#include <jpeglib.h>

#include <jerror.h>

namespace platform::draw {

namespace {

// A file of a few kilobytes can announce thousands of scans over a large picture, each costing a full pass.
constexpr int maximumScans = 500;

struct ErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX] = {};
};

[[noreturn]] void exitWithError(j_common_ptr jpeg) {
    auto* errors = reinterpret_cast<ErrorManager*>(jpeg->err);
    jpeg->err->format_message(jpeg, errors->message);
    std::longjmp(errors->jump, 1);
}

/// Warnings that mean lost picture data are failures: half a photograph must not become a product.
void takeMessage(j_common_ptr jpeg, int level) {
    if (level >= 0) return;
    switch (jpeg->err->msg_code) {
    case JWRN_HIT_MARKER:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_ARITH_BAD_CODE:
    case JWRN_MUST_RESYNC:
    case JWRN_JPEG_EOF:
        exitWithError(jpeg);
    default:
        break;
    }
}

void ignoreOutput(j_common_ptr) {}

/// Feeds the decoder from a ByteReader.
struct SourceManager {
    jpeg_source_mgr base;
    ByteReader* reader = nullptr;
    std::uint64_t position = 0; // of the first byte that is not in the buffer
    bool ended = false;
    std::array<JOCTET, 65536> buffer;

    static SourceManager& of(j_decompress_ptr jpeg) { return *reinterpret_cast<SourceManager*>(jpeg->src); }

    static boolean fill(j_decompress_ptr jpeg) {
        SourceManager& source = of(jpeg);
        std::size_t got = source.reader->read(source.position, source.buffer.data(), source.buffer.size());
        source.position += got;
        if (got == 0) {
            // The decoder reads ahead, so the end itself is no fault: it complains when it misses data for a block.
            source.ended = true;
            source.buffer[0] = 0xFF;
            source.buffer[1] = JPEG_EOI;
            got = 2;
        }
        source.base.next_input_byte = source.buffer.data();
        source.base.bytes_in_buffer = got;
        return TRUE;
    }
    static void skip(j_decompress_ptr jpeg, long count) {
        SourceManager& source = of(jpeg);
        if (count <= 0) return;
        const auto wanted = static_cast<std::size_t>(count);
        if (wanted <= source.base.bytes_in_buffer) {
            source.base.next_input_byte += wanted;
            source.base.bytes_in_buffer -= wanted;
        } else {
            source.position += wanted - source.base.bytes_in_buffer;
            source.base.bytes_in_buffer = 0;
        }
    }
};

/// A decoder with its managers. The library's calls are made only inside guarded(), which turns its errors into ours.
class Decoder {
public:
    Decoder(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader)
        : bytes_(std::move(bytes)), reader_(std::move(reader)) {
        jpeg_.err = jpeg_std_error(&errors_.base);
        errors_.base.error_exit = exitWithError;
        errors_.base.emit_message = takeMessage;
        errors_.base.output_message = ignoreOutput;
    }
    ~Decoder() {
        if (created_) jpeg_destroy_decompress(&jpeg_);
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    jpeg_decompress_struct& jpeg() { return jpeg_; }
    const ByteSource& bytes() const { return *bytes_; }
    bool sourceEnded() const { return source_.ended; }

    /// Runs library calls. They may leave by a long jump, so `calls` must hold nothing that needs destruction.
    template <class Calls>
    base::Result<void> guarded(Calls calls) {
        if (setjmp(errors_.jump)) return pictureFailure(*bytes_, errors_.message);
        calls(jpeg_);
        return {};
    }

    base::Result<void> readHeader(bool keepMetadata) {
        auto result = guarded([this, keepMetadata](jpeg_decompress_struct& jpeg) {
            jpeg_create_decompress(&jpeg);
            created_ = true;
            source_.reader = reader_.get();
            source_.base.init_source = [](j_decompress_ptr) {};
            source_.base.fill_input_buffer = SourceManager::fill;
            source_.base.skip_input_data = SourceManager::skip;
            source_.base.resync_to_restart = jpeg_resync_to_restart;
            source_.base.term_source = [](j_decompress_ptr) {};
            source_.base.bytes_in_buffer = 0;
            source_.base.next_input_byte = nullptr;
            jpeg.src = &source_.base;
            if (keepMetadata) {
                jpeg_save_markers(&jpeg, JPEG_APP0 + 1, 0xFFFF);
                jpeg_save_markers(&jpeg, JPEG_APP0 + 2, 0xFFFF);
            }
            jpeg_read_header(&jpeg, TRUE);
        });
        if (!result) return result;
        return checkPictureSize(*bytes_, jpeg_.image_width, jpeg_.image_height);
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    jpeg_decompress_struct jpeg_{};
    ErrorManager errors_{};
    SourceManager source_{};
    bool created_ = false;
};

base::Result<std::unique_ptr<Decoder>> openDecoder(const std::shared_ptr<const ByteSource>& bytes, bool keepMetadata) {
    auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    auto decoder = std::make_unique<Decoder>(bytes, std::move(*reader));
    if (auto header = decoder->readHeader(keepMetadata); !header) return base::failure(header.error());
    return decoder;
}

base::Result<SampleKind> sampleKind(const ByteSource& bytes, const jpeg_decompress_struct& jpeg) {
    switch (jpeg.jpeg_color_space) {
    case JCS_GRAYSCALE:
        return SampleKind::gray;
    case JCS_YCbCr:
        return SampleKind::yCbCr;
    case JCS_RGB:
        return SampleKind::rgb;
    // Adobe's programs write ink as 0, and mark the file as theirs.
    case JCS_CMYK:
        return jpeg.saw_Adobe_marker ? SampleKind::cmykInverted : SampleKind::cmyk;
    case JCS_YCCK:
        return jpeg.saw_Adobe_marker ? SampleKind::yccKInverted : SampleKind::yccK;
    default:
        return pictureFailure(bytes, "a JPEG file of an unknown colour model");
    }
}

int planeCount(SampleKind kind) {
    return kind == SampleKind::gray ? 1 : kind == SampleKind::yCbCr || kind == SampleKind::rgb ? 3 : 4;
}

class JpegBandReader final : public BandReader {
public:
    explicit JpegBandReader(std::unique_ptr<Decoder> decoder) : decoder_(std::move(decoder)) {}

    base::Result<void> start(const PixelRect& region, int reduction, SampleKind kind) {
        jpeg_decompress_struct& jpeg = decoder_->jpeg();
        auto limitScans = [](j_common_ptr common) {
            auto* decompress = reinterpret_cast<j_decompress_ptr>(common);
            if (decompress->input_scan_number > maximumScans) ERREXIT(common, JERR_BAD_PROGRESSION);
        };
        progress_.progress_monitor = limitScans;
        jpeg.progress = &progress_;
        const auto started = decoder_->guarded([reduction](jpeg_decompress_struct& decompress) {
            decompress.scale_num = 1;
            decompress.scale_denom = static_cast<unsigned>(reduction);
            decompress.raw_data_out = TRUE;
            decompress.out_color_space = decompress.jpeg_color_space;
            jpeg_start_decompress(&decompress);
        });
        if (!started) return started;
        // All scans are in by now. A cut between two of them leaves a whole, but coarse picture.
        if (jpeg_has_multiple_scans(&jpeg) && decoder_->sourceEnded())
            return pictureFailure(decoder_->bytes(), "the file is cut off");
        describe(region, reduction, kind);
        return skipBands();
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        const auto planes = const_cast<JSAMPIMAGE>(rows); // the library writes to the rows only
        return decoder_->guarded([planes, lines = lines_](jpeg_decompress_struct& jpeg) {
            if (jpeg.output_scanline < jpeg.output_height) jpeg_read_raw_data(&jpeg, planes, lines);
        });
    }

private:
    void describe(const PixelRect& region, int reduction, SampleKind kind) {
        jpeg_decompress_struct& jpeg = decoder_->jpeg();
        lines_ = static_cast<unsigned>(jpeg.max_v_samp_factor * jpeg.min_DCT_scaled_size);
        // One band above the region is kept: smooth enlargement of colour looks at the row above.
        skippedBands_ = std::max(0, region.y / reduction / static_cast<int>(lines_) - 1);
        const int skippedLines = skippedBands_ * static_cast<int>(lines_);

        format_.kind = kind;
        format_.gridWidth = static_cast<int>(jpeg.output_width);
        format_.gridHeight = static_cast<int>(jpeg.output_height) - skippedLines;
        format_.region = {
            static_cast<double>(region.x) / reduction, static_cast<double>(region.y) / reduction - skippedLines,
            static_cast<double>(region.width) / reduction, static_cast<double>(region.height) / reduction};
        for (int i = 0; i < planeCount(kind); ++i) {
            const jpeg_component_info& component = jpeg.comp_info[i];
            PlaneFormat plane;
            plane.rowsPerBand = component.v_samp_factor * component.DCT_scaled_size;
            plane.width = static_cast<int>(component.downsampled_width);
            plane.height = static_cast<int>(component.downsampled_height) - skippedBands_ * plane.rowsPerBand;
            plane.rowBytes = static_cast<std::size_t>(component.width_in_blocks) *
                             static_cast<std::size_t>(component.DCT_scaled_size);
            plane.horizontal = {jpeg.max_h_samp_factor * jpeg.min_DCT_scaled_size,
                                component.h_samp_factor * component.DCT_scaled_size, false};
            plane.vertical = {static_cast<int>(lines_), plane.rowsPerBand, false};
            // Where the library itself would enlarge smoothly: factors of two, of pictures that are not tiny.
            const bool smooth = jpeg.min_DCT_scaled_size > 1 && plane.width > 2;
            const bool halfWide = plane.horizontal.numerator == 2 * plane.horizontal.denominator;
            const bool halfHigh = plane.vertical.numerator == 2 * plane.vertical.denominator;
            const bool sameHigh = plane.vertical.numerator == plane.vertical.denominator;
            const bool sameWide = plane.horizontal.numerator == plane.horizontal.denominator;
            plane.horizontal.triangle = smooth && halfWide && (halfHigh || sameHigh);
            plane.vertical.triangle = smooth && halfHigh && (halfWide || sameWide);
            format_.planes.push_back(plane);
        }
    }

    /// Decodes what stands above the region, into nowhere.
    base::Result<void> skipBands() {
        if (skippedBands_ == 0) return {};
        std::vector<std::vector<std::uint8_t>> row;
        std::vector<std::vector<std::uint8_t*>> rows;
        std::vector<std::uint8_t**> planes;
        for (const PlaneFormat& plane : format_.planes) {
            row.emplace_back(plane.rowBytes);
            rows.emplace_back(static_cast<std::size_t>(plane.rowsPerBand), row.back().data());
        }
        for (auto& pointers : rows)
            planes.push_back(pointers.data());
        for (int i = 0; i < skippedBands_; ++i)
            if (auto read = readBand(planes.data()); !read) return read;
        return {};
    }

    std::unique_ptr<Decoder> decoder_;
    jpeg_progress_mgr progress_{};
    unsigned lines_ = 0;
    int skippedBands_ = 0;
};

class JpegSource final : public PixelSource {
public:
    JpegSource(std::shared_ptr<const ByteSource> bytes, int width, int height, SampleKind kind,
               ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)), kind_(kind) {
        width_ = width;
        height_ = height;
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int reduction) const override {
        auto decoder = openDecoder(bytes_, false);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<JpegBandReader>(std::move(*decoder));
        if (auto started = reader->start(region, std::min(reduction, 8), kind_); !started)
            return base::failure(started.error());
        return reader;
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
    SampleKind kind_;
};

std::vector<std::uint8_t> exifOf(const jpeg_decompress_struct& jpeg) {
    constexpr std::string_view mark("Exif\0\0", 6);
    for (jpeg_saved_marker_ptr marker = jpeg.marker_list; marker; marker = marker->next) {
        const std::string_view content(reinterpret_cast<const char*>(marker->data), marker->data_length);
        if (marker->marker == JPEG_APP0 + 1 && content.starts_with(mark))
            return {content.begin() + static_cast<std::ptrdiff_t>(mark.size()), content.end()};
    }
    return {};
}

ColorSpaceRef colorSpaceOf(Decoder& decoder, SampleKind kind) {
    JOCTET* profile = nullptr;
    unsigned size = 0;
    // A broken profile is no reason to refuse the picture.
    (void)decoder.guarded([&](jpeg_decompress_struct& jpeg) {
        if (!jpeg_read_icc_profile(&jpeg, &profile, &size)) profile = nullptr;
    });
    const int planes = planeCount(kind);
    const ColorSpaceRef& otherwise = planes == 1   ? ColorSpace::gray()
                                     : planes == 4 ? ColorSpace::deviceCMYK()
                                                   : ColorSpace::sRGB();
    ColorSpaceRef space = colorSpaceOfProfile(profile, size, planes, otherwise);
    std::free(profile);
    return space;
}

} // namespace

base::Result<std::vector<Picture>> openJpeg(std::shared_ptr<const ByteSource> bytes) {
    auto opened = openDecoder(bytes, true);
    if (!opened) return base::failure(opened.error());
    Decoder& decoder = **opened;
    const jpeg_decompress_struct& jpeg = decoder.jpeg();
    const auto kind = sampleKind(*bytes, jpeg);
    if (!kind) return base::failure(kind.error());
    if (jpeg.num_components < planeCount(*kind))
        return pictureFailure(*bytes, "a JPEG file without all its components");

    Picture picture;
    picture.bitsPerComponent = jpeg.data_precision;
    picture.exif = exifOf(jpeg);
    if (jpeg.saw_JFIF_marker && jpeg.density_unit != 0) {
        const double perInch = jpeg.density_unit == 2 ? 2.54 : 1.0;
        picture.dpiWidth = jpeg.X_density * perInch;
        picture.dpiHeight = jpeg.Y_density * perInch;
    }
    picture.pixels =
        std::make_shared<JpegSource>(bytes, static_cast<int>(jpeg.image_width), static_cast<int>(jpeg.image_height),
                                     *kind, colorSpaceOf(decoder, *kind));
    return std::vector<Picture>{std::move(picture)};
}

} // namespace platform::draw
