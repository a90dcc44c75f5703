#include "PictureEncoder.h"

#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <tiffio.h>

namespace platform::draw {
namespace {

ByteSink& sinkOf(thandle_t handle) {
    return *static_cast<ByteSink*>(handle);
}
tmsize_t readBytes(thandle_t handle, void* bytes, tmsize_t count) {
    return static_cast<tmsize_t>(sinkOf(handle).read(bytes, static_cast<std::size_t>(count)));
}
tmsize_t writeBytes(thandle_t handle, void* bytes, tmsize_t count) {
    sinkOf(handle).write(bytes, static_cast<std::size_t>(count));
    return count;
}
toff_t seekTo(thandle_t handle, toff_t offset, int whence) {
    ByteSink& sink = sinkOf(handle);
    const std::uint64_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? sink.position() : sink.size();
    sink.seek(from + offset);
    return sink.position();
}
int closeNothing(thandle_t) {
    return 0;
}
toff_t sizeOfFile(thandle_t handle) {
    return sinkOf(handle).size();
}

struct CloseTIFF {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

void describe(TIFF* tiff, const Bitmap& bitmap, const EncodingOptions& options) {
    const bool opaque = bitmap.isOpaque();
    const base::Value& orientation = base::valueForKey(options.properties, kCGImagePropertyOrientation);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(bitmap.width()));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(bitmap.height()));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, opaque ? 3 : 4);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, orientation ? static_cast<int>(orientation.integerValue()) : 1);
    constexpr std::uint32_t stripBytes = 1 << 18;
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP,
                 std::max(stripBytes / (4 * static_cast<std::uint32_t>(bitmap.width())), std::uint32_t{1}));
    if (!opaque) {
        const std::uint16_t extra[] = {EXTRASAMPLE_ASSOCALPHA};
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    const base::Data& profile = bitmap.colorSpace()->iccData();
    if (!profile.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(profile.size()), profile.bytes.data());
}

bool writeRows(TIFF* tiff, const Bitmap& bitmap) {
    std::vector<std::uint8_t> target(4 * static_cast<std::size_t>(bitmap.width()));
    for (int y = 0; y < bitmap.height(); ++y) {
        const std::uint8_t* row = bitmap.row(y);
        if (bitmap.isOpaque()) {
            opaqueRGBRow(row, static_cast<std::size_t>(bitmap.width()), target.data());
        } else {
            std::copy_n(row, target.size(), target.begin());
            for (std::size_t byte = 0; byte < target.size(); byte += 4)
                std::swap(target[byte], target[byte + 2]);
        }
        if (TIFFWriteScanline(tiff, target.data(), static_cast<std::uint32_t>(y)) != 1) return false;
    }
    return true;
}

void setExifText(TIFF* tiff, const base::Dictionary& exif, std::string_view property, std::uint32_t tag) {
    const std::string text = base::textForKey(exif, property).value_or("");
    if (!text.empty()) TIFFSetField(tiff, tag, text.c_str());
}

// The EXIF tags stand in a directory of their own, written before the picture's one, which points to it. Answers where
// it stands, or 0.
std::uint64_t writeExif(TIFF* tiff, const base::Dictionary& exif) {
    if (TIFFCreateEXIFDirectory(tiff) != 0) return 0;
    TIFFSetField(tiff, EXIFTAG_EXIFVERSION, "0230");
    setExifText(tiff, exif, kCGImagePropertyExifDateTimeOriginal, EXIFTAG_DATETIMEORIGINAL);
    setExifText(tiff, exif, kCGImagePropertyExifDateTimeDigitized, EXIFTAG_DATETIMEDIGITIZED);
    const std::string note = base::textForKey(exif, kCGImagePropertyExifMakerNote).value_or("");
    if (!note.empty()) TIFFSetField(tiff, EXIFTAG_MAKERNOTE, static_cast<std::uint32_t>(note.size()), note.data());
    const std::string comment = base::textForKey(exif, kCGImagePropertyExifUserComment).value_or("");
    if (!comment.empty()) {
        const bool isASCII = std::all_of(comment.begin(), comment.end(), [](unsigned char byte) { return byte < 128; });
        // Eight bytes name the encoding; eight empty ones say that it is for the reader to find out.
        const std::string coded = (isASCII ? std::string("ASCII\0\0\0", 8) : std::string(8, '\0')) + comment;
        TIFFSetField(tiff, EXIFTAG_USERCOMMENT, static_cast<std::uint32_t>(coded.size()), coded.data());
    }
    std::uint64_t offset = 0;
    const bool written = TIFFWriteCustomDirectory(tiff, &offset) == 1;
    TIFFFreeDirectory(tiff);
    TIFFCreateDirectory(tiff);
    return written ? offset : 0;
}

} // namespace

base::Result<void> encodeTIFF(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    static std::once_flag quiet;
    std::call_once(quiet, [] {
        TIFFSetErrorHandler(nullptr);
        TIFFSetWarningHandler(nullptr);
    });
    const auto failed = [] { return base::failure(base::cocoaErrorDomain, 0, "the TIFF file can't be encoded"); };
    const std::unique_ptr<TIFF, CloseTIFF> tiff(TIFFClientOpen("product", "w", &sink, readBytes, writeBytes, seekTo,
                                                               closeNothing, sizeOfFile, nullptr, nullptr));
    if (!tiff) return failed();
    std::uint64_t exifOffset = 0;
    if (const auto* exif =
            base::valueForKey(options.properties, kCGImagePropertyExifDictionary).as<base::Dictionary>()) {
        exifOffset = writeExif(tiff.get(), *exif);
        if (exifOffset == 0) return failed();
    }
    describe(tiff.get(), bitmap, options);
    if (exifOffset != 0) TIFFSetField(tiff.get(), TIFFTAG_EXIFIFD, exifOffset);
    if (!writeRows(tiff.get(), bitmap) || TIFFWriteDirectory(tiff.get()) != 1) return failed();
    return {};
}

} // namespace platform::draw
