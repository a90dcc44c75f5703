#include "ByteOrder.h"
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

void describe(TIFF* tiff, const Bitmap& bitmap) {
    const bool opaque = bitmap.isOpaque();
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(bitmap.width()));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(bitmap.height()));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, opaque ? 3 : 4);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 72.0); // the standard's value for the unknown
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 72.0);
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
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

// The properties become tags of the finished file, as they do in a copy of one.
base::Result<void> addTags(const Bitmap& bitmap, const base::Dictionary& properties, ByteSink& sink) {
    const auto file = TiffStructure::of(
        [&](std::uint64_t position, void* target, std::size_t count) {
            sink.seek(position);
            return sink.read(target, count);
        },
        sink.size());
    if (!file) return base::failure(base::cocoaErrorDomain, 0, "the TIFF file can't be encoded");
    auto tags = tagsForProperties(properties, *file);
    if (!tags) return base::failure(tags.error());
    if (std::any_of(tags->begin(), tags->end(), [](const TiffChange& tag) { return tag.place == TiffPlace::exif; })) {
        Bytes isSRGB;
        appendInteger(isSRGB, bitmap.colorSpace()->isSRGB() ? 1 : 65535, 2, file->isBigEndian());
        tags->push_back({TiffPlace::exif, 0xA000, TiffType::undefined, {'0', '1', '0', '0'}}); // FlashPix version
        tags->push_back({TiffPlace::exif, 0xA001, TiffType::shortInteger, std::move(isSRGB)});
    }
    const auto edit = file->editFor(*tags, false);
    if (!edit) return base::failure(imageMetadataErrorDomain, 0, "the metadata finds no room");
    for (const TiffWrite& write : edit->writes) {
        sink.seek(write.position);
        sink.write(write.bytes.data(), write.bytes.size());
    }
    return {};
}

} // namespace

base::Result<void> encodeTIFF(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    static std::once_flag quiet;
    std::call_once(quiet, [] {
        TIFFSetErrorHandler(nullptr);
        TIFFSetWarningHandler(nullptr);
    });
    const auto failed = [] { return base::failure(base::cocoaErrorDomain, 0, "the TIFF file can't be encoded"); };
    std::unique_ptr<TIFF, CloseTIFF> tiff(TIFFClientOpen("product", "w", &sink, readBytes, writeBytes, seekTo,
                                                         closeNothing, sizeOfFile, nullptr, nullptr));
    if (!tiff) return failed();
    describe(tiff.get(), bitmap);
    if (!writeRows(tiff.get(), bitmap) || TIFFWriteDirectory(tiff.get()) != 1) return failed();
    tiff.reset();
    return addTags(bitmap, options.properties, sink);
}

} // namespace platform::draw
