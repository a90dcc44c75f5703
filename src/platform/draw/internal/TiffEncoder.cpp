#include "ByteOrder.h"
#include "PictureEncoder.h"

#include "platform/draw/ColorSpace.h"
#include "platform/draw/DeepPixels.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <memory>
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

tl::unexpected<base::Error> failed() {
    return base::failure(base::cocoaErrorDomain, 0, "the TIFF file can't be encoded");
}

struct CloseTIFF {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

struct Pixels {
    int width;
    int height;
    int bits;
    bool opaque;
    const ColorSpace& colorSpace;
    /// Writes the next row: red, green, blue, and alpha when not opaque, premultiplied. Of 16 bits in the machine's
    /// order of bytes, as the library takes them.
    std::function<base::Result<void>(std::uint8_t* target)> nextRow;
};

void describe(TIFF* tiff, const Pixels& pixels) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(pixels.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(pixels.height));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, pixels.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, pixels.opaque ? 3 : 4);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 72.0); // the standard's value for the unknown
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 72.0);
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    constexpr std::uint32_t stripBytes = 1 << 18;
    const auto rowBytes = static_cast<std::uint32_t>(pixels.width * (pixels.bits / 8) * 4);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, std::max(stripBytes / rowBytes, std::uint32_t{1}));
    if (!pixels.opaque) {
        const std::uint16_t extra[] = {EXTRASAMPLE_ASSOCALPHA};
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    const base::Data& profile = pixels.colorSpace.iccData();
    if (!profile.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(profile.size()), profile.bytes.data());
}

base::Result<void> writeRows(TIFF* tiff, const Pixels& pixels) {
    std::vector<std::uint8_t> target(4 * static_cast<std::size_t>(pixels.width * (pixels.bits / 8)));
    for (int y = 0; y < pixels.height; ++y) {
        if (auto read = pixels.nextRow(target.data()); !read) return read;
        if (TIFFWriteScanline(tiff, target.data(), static_cast<std::uint32_t>(y)) != 1) return failed();
    }
    return {};
}

// The properties become tags of the finished file, as they do in a copy of one.
base::Result<void> addTags(const ColorSpace& colorSpace, const base::Dictionary& properties, ByteSink& sink) {
    const auto file = TiffStructure::of(
        [&](std::uint64_t position, void* target, std::size_t count) {
            sink.seek(position);
            return sink.read(target, count);
        },
        sink.size());
    if (!file) return failed();
    auto tags = tagsForProperties(properties, *file);
    if (!tags) return base::failure(tags.error());
    if (std::any_of(tags->begin(), tags->end(), [](const TiffChange& tag) { return tag.place == TiffPlace::exif; })) {
        Bytes isSRGB;
        appendInteger(isSRGB, colorSpace.isSRGB() ? 1 : 65535, 2, file->isBigEndian());
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

base::Result<void> encode(const Pixels& pixels, const EncodingOptions& options, ByteSink& sink) {
    static std::once_flag quiet;
    std::call_once(quiet, [] {
        TIFFSetErrorHandler(nullptr);
        TIFFSetWarningHandler(nullptr);
    });
    std::unique_ptr<TIFF, CloseTIFF> tiff(TIFFClientOpen("product", "w", &sink, readBytes, writeBytes, seekTo,
                                                         closeNothing, sizeOfFile, nullptr, nullptr));
    if (!tiff) return failed();
    describe(tiff.get(), pixels);
    if (auto written = writeRows(tiff.get(), pixels); !written) return written;
    if (TIFFWriteDirectory(tiff.get()) != 1) return failed();
    tiff.reset();
    return addTags(pixels.colorSpace, options.properties, sink);
}

} // namespace

base::Result<void> encodeTIFF(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    const auto width = static_cast<std::size_t>(bitmap.width());
    int y = 0;
    const auto nextRow = [&](std::uint8_t* target) -> base::Result<void> {
        const std::uint8_t* row = bitmap.row(y++);
        if (bitmap.isOpaque()) {
            opaqueRGBRow(row, width, target);
        } else {
            std::copy_n(row, 4 * width, target);
            for (std::size_t byte = 0; byte < 4 * width; byte += 4)
                std::swap(target[byte], target[byte + 2]);
        }
        return {};
    };
    return encode({bitmap.width(), bitmap.height(), 8, bitmap.isOpaque(), *bitmap.colorSpace(), nextRow}, options,
                  sink);
}

base::Result<void> encodeDeepTIFF(const Image& image, DeepPixelReader& rows, const EncodingOptions& options,
                                  ByteSink& sink) {
    const std::size_t components = image.isOpaque() ? 3 : 4;
    std::vector<std::uint16_t> rgba(4 * static_cast<std::size_t>(image.width()));
    const auto nextRow = [&](std::uint8_t* target) {
        auto read = rows.readRow(rgba.data());
        auto* samples = reinterpret_cast<std::uint16_t*>(target);
        for (std::size_t i = 0; i < rgba.size(); i += 4, samples += components)
            std::copy_n(&rgba[i], components, samples);
        return read;
    };
    return encode({image.width(), image.height(), 16, image.isOpaque(), *deepColorSpace(image), nextRow}, options,
                  sink);
}

} // namespace platform::draw
