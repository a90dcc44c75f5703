// HEIC by libheif and x265.
#include "HeifLibrary.h"
#include "PictureEncoder.h"
#include "PictureFormat.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <string>

namespace platform::draw {
namespace {

/// The library's errors, carried to the one place that makes them ours.
struct Failure : std::exception {
    explicit Failure(std::string text) : message(std::move(text)) {}
    const char* what() const noexcept override { return message.c_str(); }
    std::string message;
};
void check(const heif_error& error) {
    if (error.code != heif_error_Ok) throw Failure(error.message ? error.message : "unknown error");
}

Heif<heif_image> imageOf(const Bitmap& bitmap) {
    const bool opaque = bitmap.isOpaque();
    heif_image* made = nullptr;
    check(heif_image_create(bitmap.width(), bitmap.height(), heif_colorspace_RGB,
                            opaque ? heif_chroma_interleaved_RGB : heif_chroma_interleaved_RGBA, &made));
    Heif<heif_image> image(made);
    check(heif_image_add_plane(made, heif_channel_interleaved, bitmap.width(), bitmap.height(), 8));
    int stride = 0;
    std::uint8_t* target = heif_image_get_plane(made, heif_channel_interleaved, &stride);
    if (!target) throw Failure("no memory");
    const auto width = static_cast<std::size_t>(bitmap.width());
    for (int y = 0; y < bitmap.height(); ++y, target += stride) {
        if (opaque) {
            opaqueRGBRow(bitmap.row(y), width, target);
            continue;
        }
        std::memcpy(target, bitmap.row(y), 4 * width);
        unpremultiply(target, width);
        for (std::size_t i = 0; i < 4 * width; i += 4)
            std::swap(target[i], target[i + 2]);
    }
    const base::Data& profile = bitmap.colorSpace()->iccData();
    if (!profile.empty()) check(heif_image_set_raw_color_profile(made, "prof", profile.bytes.data(), profile.size()));
    return image;
}

void encode(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    constexpr int largestSide = 32768; // the library encodes larger ones and does not read them again
    if (std::max(bitmap.width(), bitmap.height()) > largestSide) throw Failure("more than 32768 pixels a side");
    const Heif<heif_context> context = newHeifContext();
    if (!context) throw Failure("no memory");
    heif_encoder* found = nullptr;
    check(heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &found));
    const Heif<heif_encoder> encoder(found);
    check(heif_encoder_set_lossy_quality(found, static_cast<int>(std::lround(options.quality * 100))));
    check(heif_encoder_set_logging_level(found, 0));
    // Half of the default's time for files within a hundredth of its size.
    check(heif_encoder_set_parameter_string(found, "preset", "fast"));
    // Pictures are written side by side on threads of their own; a pool for each one only makes them wait.
    check(heif_encoder_set_parameter_string(found, "x265:pools", "none"));

    const Heif<heif_encoding_options> settings(heif_encoding_options_alloc());
    if (!settings) throw Failure("no memory");
    settings->save_alpha_channel = !bitmap.isOpaque();

    const Heif<heif_image> image = imageOf(bitmap);
    heif_image_handle* encoded = nullptr;
    check(heif_context_encode_image(context.get(), image.get(), found, settings.get(), &encoded));
    const Heif<heif_image_handle> handle(encoded);
    if (!options.exif.empty()) {
        // Introduced as in JPEG, which some readers insist on.
        Bytes exif(exifMark.begin(), exifMark.end());
        exif.insert(exif.end(), options.exif.begin(), options.exif.end());
        check(heif_context_add_exif_metadata(context.get(), encoded, exif.data(), static_cast<int>(exif.size())));
    }
    heif_writer writer{1, [](heif_context*, const void* bytes, std::size_t count, void* target) {
                           static_cast<ByteSink*>(target)->write(bytes, count);
                           return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
                       }};
    check(heif_context_write(context.get(), &writer, &sink));
}

} // namespace

base::Result<void> encodeHEIC(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    try {
        encode(bitmap, options, sink);
        return {};
    } catch (const std::exception& exception) {
        return base::failure(base::cocoaErrorDomain, 0,
                             "a picture of " + std::to_string(bitmap.width()) + " x " +
                                 std::to_string(bitmap.height()) +
                                 " pixels can't be encoded as HEIC: " + exception.what());
    }
}

} // namespace platform::draw
