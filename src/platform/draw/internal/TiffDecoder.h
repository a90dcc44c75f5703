// What the readings of a TIFF file share: the library's handle on one page of a file, how that page's samples lie and
// what they mean, and its rows. Objects of one thread.
#pragma once

#include "PictureFormat.h"

#include <cstdarg>
#include <memory>
#include <string>
#include <tiffio.h>
#include <vector>

namespace platform::draw {

class TiffDecoder {
public:
    /// Fails for a page whose size is beyond the limits.
    static base::Result<std::unique_ptr<TiffDecoder>> open(const std::shared_ptr<const ByteSource>& bytes,
                                                           std::size_t page);
    ~TiffDecoder();
    TiffDecoder(const TiffDecoder&) = delete;
    TiffDecoder& operator=(const TiffDecoder&) = delete;

    TIFF* tiff() const { return tiff_; }
    /// The library's own words about its last error.
    tl::unexpected<base::Error> failure() const;
    tl::unexpected<base::Error> failure(std::string_view why) const { return pictureFailure(*bytes_, why); }

    template <class T>
    T field(std::uint32_t tag, T otherwise) const {
        T value = otherwise;
        return TIFFGetFieldDefaulted(tiff_, tag, &value) ? value : otherwise;
    }

private:
    TiffDecoder(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader)
        : bytes_(std::move(bytes)), reader_(std::move(reader)) {}
    base::Result<void> openPage(std::size_t page);

    static TiffDecoder& of(thandle_t handle) { return *static_cast<TiffDecoder*>(handle); }
    static int keepError(TIFF*, void* user, const char*, const char* format, va_list arguments);
    static tmsize_t read(thandle_t handle, void* target, tmsize_t count);
    static toff_t seek(thandle_t handle, toff_t offset, int whence);

    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    TIFF* tiff_ = nullptr;
    std::uint64_t position_ = 0;
    std::string error_;
};

/// How the samples of a file lie, and what they mean.
struct TiffLayout {
    int width = 0;
    int height = 0;
    std::uint16_t bits = 8;
    std::uint16_t samples = 1;
    std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    bool hasAlpha = false;
    bool premultiplied = false;
    bool byRows = false; ///< Rows can be taken as they are; else the library converts the whole.

    bool tiled = false;
    bool separate = false; ///< A plane of its own for each sample.

    explicit TiffLayout(const TiffDecoder& decoder);
    std::size_t rowBytes() const { return static_cast<std::size_t>(width) * samples * (bits / 8u); }
    bool isGray() const { return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE; }
    bool isLab() const { return photometric == PHOTOMETRIC_CIELAB || photometric == PHOTOMETRIC_ICCLAB; }
    SampleKind kind() const {
        if (!byRows) return hasAlpha ? SampleKind::bgra : SampleKind::bgrx;
        if (photometric == PHOTOMETRIC_SEPARATED) return SampleKind::cmyk;
        if (hasAlpha) return SampleKind::bgra;
        return isGray() ? SampleKind::gray : SampleKind::bgrx;
    }
    /// Of the colours that kind() delivers; grey may come as three equal ones.
    int components() const { return isGray() ? 1 : kind() == SampleKind::cmyk ? 4 : 3; }
};

/// The rows of a page that can be taken as they are: the samples of each pixel together, 8 or 16 bits each in this
/// machine's order of bytes.
class TiffRows {
public:
    TiffRows(const TiffDecoder& decoder, const TiffLayout& layout) : decoder_(decoder), layout_(layout) {}
    base::Result<void> start(std::uint32_t first);
    /// The next row: layout.rowBytes() bytes that hold until the next call.
    base::Result<std::uint8_t*> next();

private:
    base::Result<void> fillBand();
    base::Result<void> takeChunk(std::uint32_t x, std::uint16_t plane, std::uint32_t rows);

    const TiffDecoder& decoder_;
    const TiffLayout& layout_;
    bool byScanlines_ = false; // else by bands: rows of tiles, or of the planes' stripes
    std::uint32_t next_ = 0;
    std::uint32_t bandStart_ = 0;
    std::uint32_t bandRows_ = 0; // in a whole band
    std::uint32_t chunkWidth_ = 0;
    std::vector<std::uint8_t> band_;
    std::vector<std::uint8_t> chunk_;
};

} // namespace platform::draw
