#include "TiffDecoder.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace platform::draw {

namespace {

constexpr tmsize_t maximumAllocation = tmsize_t{2} << 30;
constexpr std::uint64_t maximumTile = 256u << 20;

} // namespace

base::Result<std::unique_ptr<TiffDecoder>> TiffDecoder::open(const std::shared_ptr<const ByteSource>& bytes,
                                                             std::size_t page) {
    auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    auto decoder = std::unique_ptr<TiffDecoder>(new TiffDecoder(bytes, std::move(*reader)));
    if (auto opened = decoder->openPage(page); !opened) return base::failure(opened.error());
    const auto width = decoder->field<std::uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
    const auto height = decoder->field<std::uint32_t>(TIFFTAG_IMAGELENGTH, 0);
    if (auto size = checkPictureSize(*bytes, width, height); !size) return base::failure(size.error());
    return decoder;
}

TiffDecoder::~TiffDecoder() {
    if (tiff_) TIFFClose(tiff_);
}

base::Result<void> TiffDecoder::openPage(std::size_t page) {
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options) return pictureFailure(*bytes_, "no memory");
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, maximumAllocation);
    TIFFOpenOptionsSetErrorHandlerExtR(options, keepError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(
        options, [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
    const auto writeNothing = [](thandle_t, void*, tmsize_t) -> tmsize_t { return 0; };
    const auto closeNothing = [](thandle_t) { return 0; };
    const auto size = [](thandle_t handle) -> toff_t { return of(handle).reader_->size(); };
    // "m": no memory mapping; a file that is cut short while it is mapped ends the process.
    tiff_ = TIFFClientOpenExt(bytes_->name().c_str(), "rm", this, read, writeNothing, seek, closeNothing, size, nullptr,
                              nullptr, options);
    TIFFOpenOptionsFree(options);
    if (!tiff_ || (page > 0 && !TIFFSetDirectory(tiff_, static_cast<tdir_t>(page)))) return failure();
    return {};
}

tl::unexpected<base::Error> TiffDecoder::failure() const {
    return failure(error_.empty() ? "the file is broken" : error_);
}

int TiffDecoder::keepError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& decoder = *static_cast<TiffDecoder*>(user);
    if (decoder.error_.empty()) decoder.error_ = text.data();
    return 1;
}

tmsize_t TiffDecoder::read(thandle_t handle, void* target, tmsize_t count) {
    TiffDecoder& decoder = of(handle);
    const std::size_t got = decoder.reader_->read(decoder.position_, target, static_cast<std::size_t>(count));
    decoder.position_ += got;
    return static_cast<tmsize_t>(got);
}

toff_t TiffDecoder::seek(thandle_t handle, toff_t offset, int whence) {
    TiffDecoder& decoder = of(handle);
    const std::uint64_t base = whence == SEEK_CUR   ? decoder.position_
                               : whence == SEEK_END ? decoder.reader_->size()
                                                    : 0;
    decoder.position_ = base + offset;
    return decoder.position_;
}

TiffLayout::TiffLayout(const TiffDecoder& decoder) {
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
    if (isLab()) hasAlpha = false; // which no converter of its colours would know of
    const auto format = decoder.field<std::uint16_t>(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    const bool wholeNumbers = format == SAMPLEFORMAT_UINT || (isLab() && format == SAMPLEFORMAT_INT);
    tiled = TIFFIsTiled(decoder.tiff()) != 0;
    separate =
        samples > 1 && decoder.field<std::uint16_t>(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
    const bool known = isGray() || ((photometric == PHOTOMETRIC_RGB || isLab()) && samples >= 3) ||
                       (photometric == PHOTOMETRIC_SEPARATED && samples >= 4);
    const bool plain = decoder.field<std::uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE) != COMPRESSION_OJPEG;
    byRows = known && wholeNumbers && plain && (bits == 8 || bits == 16);
    // The library's conversion keeps an alpha of any kind, premultiplied.
    if (!byRows && !hasAlpha && samples == 4 && photometric == PHOTOMETRIC_RGB) hasAlpha = true;
}

base::Result<void> TiffRows::start(std::uint32_t first) {
    TIFF* tiff = decoder_.tiff();
    next_ = first;
    byScanlines_ = !layout_.tiled && !layout_.separate;
    if (byScanlines_) {
        const auto scanline = static_cast<std::size_t>(TIFFScanlineSize64(tiff));
        if (scanline < layout_.rowBytes() || scanline > maximumTile) return decoder_.failure();
        band_.resize(scanline);
        // Rows before the first may be needed to unpack it.
        for (std::uint32_t y = 0; y < first; ++y)
            if (TIFFReadScanline(tiff, band_.data(), y, 0) != 1) return decoder_.failure();
        return {};
    }
    const auto width = static_cast<std::uint32_t>(layout_.width);
    const auto height = static_cast<std::uint32_t>(layout_.height);
    chunkWidth_ = layout_.tiled ? decoder_.field<std::uint32_t>(TIFFTAG_TILEWIDTH, 0) : width;
    bandRows_ = layout_.tiled ? decoder_.field<std::uint32_t>(TIFFTAG_TILELENGTH, 0)
                              : decoder_.field<std::uint32_t>(TIFFTAG_ROWSPERSTRIP, height);
    if (!layout_.tiled) bandRows_ = std::min(bandRows_, height);
    if (chunkWidth_ == 0 || bandRows_ == 0) return decoder_.failure();
    const std::uint64_t chunkBytes = layout_.tiled ? TIFFTileSize64(tiff) : TIFFStripSize64(tiff);
    const std::uint64_t chunkPixels = std::uint64_t{chunkWidth_} * bandRows_;
    if (layout_.tiled && chunkBytes > maximumTile) return decoder_.failure("its tiles are too large");
    if (chunkBytes < chunkPixels * (layout_.bits / 8u) * (layout_.separate ? 1 : layout_.samples))
        return decoder_.failure();
    const std::uint64_t bandBytes = std::uint64_t{layout_.rowBytes()} * std::min(bandRows_, height);
    if (bandBytes + chunkBytes > static_cast<std::uint64_t>(maximumAllocation))
        return decoder_.failure("its rows are too many to be read at once");
    chunk_.resize(chunkBytes);
    band_.resize(bandBytes);
    bandStart_ = first / bandRows_ * bandRows_;
    return fillBand();
}

base::Result<std::uint8_t*> TiffRows::next() {
    if (byScanlines_) {
        if (TIFFReadScanline(decoder_.tiff(), band_.data(), next_++, 0) != 1) return decoder_.failure();
        return band_.data();
    }
    if (next_ >= bandStart_ + bandRows_) {
        bandStart_ += bandRows_;
        if (auto filled = fillBand(); !filled) return base::failure(filled.error());
    }
    return band_.data() + layout_.rowBytes() * (next_++ - bandStart_);
}

base::Result<void> TiffRows::fillBand() {
    const std::uint32_t rows = std::min(bandRows_, static_cast<std::uint32_t>(layout_.height) - bandStart_);
    const std::uint16_t planes = layout_.separate ? layout_.samples : 1;
    for (std::uint16_t plane = 0; plane < planes; ++plane)
        for (std::uint32_t x = 0; x < static_cast<std::uint32_t>(layout_.width); x += chunkWidth_)
            if (auto taken = takeChunk(x, plane, rows); !taken) return taken;
    return {};
}

base::Result<void> TiffRows::takeChunk(std::uint32_t x, std::uint16_t plane, std::uint32_t rows) {
    TIFF* tiff = decoder_.tiff();
    const std::size_t sampleBytes = layout_.bits / 8u;
    const std::size_t samples = layout_.separate ? 1 : layout_.samples;
    const std::size_t chunkRow = chunkWidth_ * samples * sampleBytes;
    const tmsize_t got = layout_.tiled ? TIFFReadEncodedTile(tiff, TIFFComputeTile(tiff, x, bandStart_, 0, plane),
                                                             chunk_.data(), static_cast<tmsize_t>(chunk_.size()))
                                       : TIFFReadEncodedStrip(tiff, TIFFComputeStrip(tiff, bandStart_, plane),
                                                              chunk_.data(), static_cast<tmsize_t>(chunk_.size()));
    if (got < static_cast<tmsize_t>(chunkRow * rows)) return decoder_.failure();
    const std::size_t columns = std::min(chunkWidth_, static_cast<std::uint32_t>(layout_.width) - x);
    const std::size_t pixelBytes = layout_.samples * sampleBytes;
    for (std::uint32_t y = 0; y < rows; ++y) {
        const std::uint8_t* source = chunk_.data() + chunkRow * y;
        std::uint8_t* target = band_.data() + layout_.rowBytes() * y + pixelBytes * x;
        if (!layout_.separate) {
            std::memcpy(target, source, columns * pixelBytes);
            continue;
        }
        target += plane * sampleBytes;
        for (std::size_t i = 0; i < columns; ++i)
            std::memcpy(target + i * pixelBytes, source + i * sampleBytes, sampleBytes);
    }
    return {};
}

} // namespace platform::draw
