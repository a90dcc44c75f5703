#include "PictureEncoder.h"

#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstddef>
// jpeglib.h wants <cstdio> before it.
#include <jerror.h>
#include <jpeglib.h>

namespace platform::draw {
namespace {

constexpr std::size_t outputBufferSize = 1 << 16;
constexpr double fullColorFrom = 0.9;

// All that the library calls back into. Its errors jump to `onError`: nothing with a destructor may live between.
struct Compression {
    jpeg_compress_struct codec;
    jpeg_error_mgr errors;
    jpeg_destination_mgr output;
    std::jmp_buf onError;
    char message[JMSG_LENGTH_MAX];
    ByteSink* sink;
    std::uint8_t buffer[outputBufferSize];

    static Compression& of(j_compress_ptr codec) { return *static_cast<Compression*>(codec->client_data); }
};

void useWholeBuffer(j_compress_ptr codec) {
    Compression& compression = Compression::of(codec);
    compression.output.next_output_byte = compression.buffer;
    compression.output.free_in_buffer = outputBufferSize;
}

boolean emptyBuffer(j_compress_ptr codec) {
    Compression& compression = Compression::of(codec);
    compression.sink->write(compression.buffer, outputBufferSize);
    useWholeBuffer(codec);
    return TRUE;
}

void writeRest(j_compress_ptr codec) {
    Compression& compression = Compression::of(codec);
    compression.sink->write(compression.buffer, outputBufferSize - compression.output.free_in_buffer);
}

[[noreturn]] void jumpOut(j_common_ptr codec) {
    Compression& compression = *static_cast<Compression*>(codec->client_data);
    codec->err->format_message(codec, compression.message);
    std::longjmp(compression.onError, 1);
}

void keepQuiet(j_common_ptr, int) {}

// Most rows of most products are: they need no copy.
bool isOpaqueRow(const std::uint8_t* row, std::size_t count) {
    std::uint8_t common = 255;
    for (std::size_t pixel = 0; pixel < count; ++pixel)
        common &= row[4 * pixel + 3];
    return common == 255;
}

// Blue, green, red, anything: laid on white.
void layOnWhite(const std::uint8_t* row, std::size_t count, std::uint8_t* target) {
    for (std::size_t byte = 0; byte < 4 * count; byte += 4) {
        const int light = 255 - row[byte + 3];
        for (std::size_t channel = 0; channel < 3; ++channel)
            target[byte + channel] = static_cast<std::uint8_t>(std::min(row[byte + channel] + light, 255));
        target[byte + 3] = 255;
    }
}

void writeMetadata(j_compress_ptr codec, const Bitmap& bitmap, const Bytes& exifMarker) {
    if (!exifMarker.empty())
        jpeg_write_marker(codec, JPEG_APP0 + 1, exifMarker.data(), static_cast<unsigned>(exifMarker.size()));
    const base::Data& profile = bitmap.colorSpace()->iccData();
    if (!profile.empty()) jpeg_write_icc_profile(codec, profile.bytes.data(), static_cast<unsigned>(profile.size()));
}

bool compress(Compression& compression, const Bitmap& bitmap, double quality, const Bytes& exifMarker,
              std::uint8_t* rowOnWhite) {
    j_compress_ptr codec = &compression.codec;
    if (setjmp(compression.onError)) return false;
    jpeg_create_compress(codec);
    compression.output = {nullptr, 0, useWholeBuffer, emptyBuffer, writeRest};
    codec->dest = &compression.output;
    codec->image_width = static_cast<JDIMENSION>(bitmap.width());
    codec->image_height = static_cast<JDIMENSION>(bitmap.height());
    codec->input_components = 4;
    codec->in_color_space = JCS_EXT_BGRX;
    jpeg_set_defaults(codec);
    jpeg_set_quality(codec, std::clamp(static_cast<int>(std::lround(quality * 100)), 1, 100), TRUE);
    if (quality >= fullColorFrom) codec->comp_info[0].h_samp_factor = codec->comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(codec, TRUE);
    writeMetadata(codec, bitmap, exifMarker);
    for (int y = 0; y < bitmap.height(); ++y) {
        const std::uint8_t* row = bitmap.row(y);
        const auto width = static_cast<std::size_t>(bitmap.width());
        if (!bitmap.isOpaque() && !isOpaqueRow(row, width)) {
            layOnWhite(row, width, rowOnWhite);
            row = rowOnWhite;
        }
        JSAMPROW rows[] = {const_cast<std::uint8_t*>(row)}; // only read
        jpeg_write_scanlines(codec, rows, 1);
    }
    jpeg_finish_compress(codec);
    return true;
}

} // namespace

base::Result<void> encodeJPEG(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    constexpr std::size_t largestMarker = 65533;
    Bytes exifMarker;
    if (!options.exif.empty()) {
        exifMarker.assign(exifMark.begin(), exifMark.end());
        exifMarker.insert(exifMarker.end(), options.exif.begin(), options.exif.end());
        if (exifMarker.size() > largestMarker)
            return base::failure(base::cocoaErrorDomain, 0, "the metadata is too large for a JPEG file");
    }
    std::vector<std::uint8_t> rowOnWhite(bitmap.isOpaque() ? 0 : 4 * static_cast<std::size_t>(bitmap.width()));
    const auto compression = std::make_unique<Compression>();
    compression->sink = &sink;
    compression->codec.err = jpeg_std_error(&compression->errors);
    compression->errors.error_exit = jumpOut;
    compression->errors.emit_message = keepQuiet;
    compression->codec.client_data = compression.get();
    const bool done = compress(*compression, bitmap, options.quality, exifMarker, rowOnWhite.data());
    jpeg_destroy_compress(&compression->codec);
    if (!done) return base::failure(base::cocoaErrorDomain, 0, std::string("JPEG: ") + compression->message);
    return {};
}

} // namespace platform::draw
