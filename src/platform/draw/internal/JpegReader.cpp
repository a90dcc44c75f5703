// JPEG by libjpeg-turbo. The planes come out at their own resolution, before any enlargement of colour and before the
// conversion to RGB: both are done on the reduced picture, on a fraction of the pixels.
#include "ExifProperties.h"
#include "PictureFormat.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

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
                jpeg_save_markers(&jpeg, JPEG_APP0 + 13, 0xFFFF);
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

/// Begins to decode. A cut between two scans leaves a whole, but coarse picture: no product is made of it.
base::Result<void> startDecoding(Decoder& decoder, jpeg_progress_mgr& progress) {
    progress.progress_monitor = [](j_common_ptr common) {
        auto* decompress = reinterpret_cast<j_decompress_ptr>(common);
        if (decompress->input_scan_number > maximumScans) ERREXIT(common, JERR_BAD_PROGRESSION);
    };
    decoder.jpeg().progress = &progress;
    auto started = decoder.guarded([](jpeg_decompress_struct& jpeg) { jpeg_start_decompress(&jpeg); });
    if (started && jpeg_has_multiple_scans(&decoder.jpeg()) && decoder.sourceEnded())
        return pictureFailure(decoder.bytes(), "the file is cut off");
    return started;
}

/// The planes as they are in the file.
class JpegBandReader final : public BandReader {
public:
    explicit JpegBandReader(std::unique_ptr<Decoder> decoder) : decoder_(std::move(decoder)) {}

    base::Result<void> start(const PixelRect& region, int reduction, SampleKind kind) {
        jpeg_decompress_struct& jpeg = decoder_->jpeg();
        jpeg.scale_num = 1;
        jpeg.scale_denom = static_cast<unsigned>(reduction);
        jpeg.raw_data_out = TRUE;
        jpeg.out_color_space = jpeg.jpeg_color_space;
        if (auto started = startDecoding(*decoder_, progress_); !started) return started;
        describe(region, reduction, kind);
        return {};
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        const auto planes = const_cast<JSAMPIMAGE>(rows); // the library writes to the rows only
        return decoder_->guarded([planes, lines = lines_](jpeg_decompress_struct& jpeg) {
            if (jpeg.output_scanline < jpeg.output_height) jpeg_read_raw_data(&jpeg, planes, lines);
        });
    }

    base::Result<void> skipBands(int count, std::uint8_t** const* rows) override {
        // The data has to be gone through, but not be turned into samples.
        need(false);
        auto skipped = BandReader::skipBands(count, rows);
        need(true);
        return skipped;
    }

private:
    void describe(const PixelRect& region, int reduction, SampleKind kind) {
        jpeg_decompress_struct& jpeg = decoder_->jpeg();
        lines_ = static_cast<unsigned>(jpeg.max_v_samp_factor * jpeg.min_DCT_scaled_size);
        format_.kind = kind;
        format_.gridWidth = static_cast<int>(jpeg.output_width);
        format_.gridHeight = static_cast<int>(jpeg.output_height);
        format_.region = {static_cast<double>(region.x) / reduction, static_cast<double>(region.y) / reduction,
                          static_cast<double>(region.width) / reduction,
                          static_cast<double>(region.height) / reduction};
        for (int i = 0; i < planeCount(kind); ++i) {
            const jpeg_component_info& component = jpeg.comp_info[i];
            PlaneFormat plane;
            plane.rowsPerBand = component.v_samp_factor * component.DCT_scaled_size;
            plane.width = static_cast<int>(component.downsampled_width);
            plane.height = static_cast<int>(component.downsampled_height);
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

    void need(bool needed) {
        jpeg_decompress_struct& jpeg = decoder_->jpeg();
        for (int i = 0; i < jpeg.num_components; ++i)
            jpeg.comp_info[i].component_needed = needed ? TRUE : FALSE;
    }

    std::unique_ptr<Decoder> decoder_;
    jpeg_progress_mgr progress_{};
    unsigned lines_ = 0;
};

/// Pixels in full colour, as the library makes them of YCbCr.
class JpegPixelReader final : public BandReader {
public:
    explicit JpegPixelReader(std::unique_ptr<Decoder> decoder) : decoder_(std::move(decoder)) {}

    base::Result<void> start(const PixelRect& region) {
        jpeg_decompress_struct& jpeg = decoder_->jpeg();
        jpeg.out_color_space = JCS_EXT_BGRX;
        if (auto started = startDecoding(*decoder_, progress_); !started) return started;
        format_ = ReadingFormat::ofRows(SampleKind::bgrx, static_cast<int>(jpeg.output_width),
                                        static_cast<int>(jpeg.output_height));
        format_.region = {static_cast<double>(region.x), static_cast<double>(region.y),
                          static_cast<double>(region.width), static_cast<double>(region.height)};
        return {};
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        return decoder_->guarded([rows](jpeg_decompress_struct& jpeg) {
            if (jpeg.output_scanline < jpeg.output_height) jpeg_read_scanlines(&jpeg, rows[0], 1);
        });
    }

private:
    std::unique_ptr<Decoder> decoder_;
    jpeg_progress_mgr progress_{};
};

class JpegSource final : public PixelSource {
public:
    JpegSource(std::shared_ptr<const ByteSource> bytes, const jpeg_decompress_struct& jpeg, SampleKind kind,
               ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)), kind_(kind) {
        width_ = static_cast<int>(jpeg.image_width);
        height_ = static_cast<int>(jpeg.image_height);
        largestReduction_ = 8;
        for (int i = 0; i < planeCount(kind); ++i)
            bytesPerPixel_ += static_cast<double>(jpeg.comp_info[i].h_samp_factor * jpeg.comp_info[i].v_samp_factor) /
                              (jpeg.max_h_samp_factor * jpeg.max_v_samp_factor);
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int reduction) const override {
        auto decoder = openDecoder(bytes_, false);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<JpegBandReader>(std::move(*decoder));
        if (auto started = reader->start(region, std::min(reduction, largestReduction()), kind_); !started)
            return base::failure(started.error());
        return reader;
    }

    base::Result<std::unique_ptr<BandReader>> openAtOwnSize(const PixelRect& region) const override {
        if (kind_ != SampleKind::yCbCr) return open(region, 1);
        auto decoder = openDecoder(bytes_, false);
        if (!decoder) return base::failure(decoder.error());
        auto reader = std::make_unique<JpegPixelReader>(std::move(*decoder));
        if (auto started = reader->start(region); !started) return base::failure(started.error());
        return reader;
    }

    std::int64_t planeBytes(int reduction) const override {
        const double pixels = static_cast<double>(width_ / reduction) * (height_ / reduction);
        // A reduction is made on the finer planes first.
        return static_cast<std::int64_t>(pixels * (reduction == 1 ? bytesPerPixel_ : planeCount(kind_)));
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
    SampleKind kind_;
    double bytesPerPixel_ = 0; // of all planes
};

/// What follows `mark` in the segments of this kind that begin with it: of the first one or, as Photoshop goes on in
/// further ones, of all.
std::vector<std::uint8_t> contentOf(const jpeg_decompress_struct& jpeg, int kind, std::string_view mark, bool ofAll) {
    std::vector<std::uint8_t> content;
    for (jpeg_saved_marker_ptr marker = jpeg.marker_list; marker; marker = marker->next) {
        const std::string_view segment(reinterpret_cast<const char*>(marker->data), marker->data_length);
        if (marker->marker != kind || !segment.starts_with(mark)) continue;
        content.insert(content.end(), segment.begin() + static_cast<std::ptrdiff_t>(mark.size()), segment.end());
        if (!ofAll) break;
    }
    return content;
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
    using namespace std::string_view_literals;
    picture.exif = contentOf(jpeg, JPEG_APP0 + 1, "Exif\0\0"sv, false);
    const auto iptc =
        iptcProperties(iptcInPhotoshopResources(contentOf(jpeg, JPEG_APP0 + 13, "Photoshop 3.0\0"sv, true)));
    if (!iptc.empty()) picture.properties.emplace(kCGImagePropertyIPTCDictionary, iptc);
    if (jpeg.saw_JFIF_marker && jpeg.density_unit != 0) {
        const double perInch = jpeg.density_unit == 2 ? 2.54 : 1.0;
        picture.dpiWidth = jpeg.X_density * perInch;
        picture.dpiHeight = jpeg.Y_density * perInch;
    }
    picture.pixels = std::make_shared<JpegSource>(bytes, jpeg, *kind, colorSpaceOf(decoder, *kind));
    return std::vector<Picture>{std::move(picture)};
}

} // namespace platform::draw
