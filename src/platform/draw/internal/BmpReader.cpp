// BMP, read by our own code a row at a time: 1 to 32 bits, bit fields, alpha masks, run lengths, rows from the bottom
// or from the top, headers from OS/2 1.x to Windows' fifth.
#include "ByteOrder.h"
#include "PictureFormat.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>

namespace platform::draw {

namespace {

enum Compression : std::uint32_t { none = 0, runLength8 = 1, runLength4 = 2, bitFields = 3, alphaBitFields = 6 };

constexpr std::size_t fileHeaderSize = 14;
constexpr std::size_t coreHeaderSize = 12;
constexpr std::size_t infoHeaderSize = 40;
constexpr std::size_t maximumHeaderSize = 124;
constexpr std::size_t maximumProfileSize = 64u << 20;

/// A component of a pixel of 16 or 32 bits.
struct BitField {
    std::uint32_t mask = 0;
    std::uint8_t of(std::uint32_t pixel) const {
        const std::uint64_t largest = mask >> std::countr_zero(mask);
        const std::uint64_t value = (pixel & mask) >> std::countr_zero(mask);
        return static_cast<std::uint8_t>((value * 255 + largest / 2) / largest);
    }
};

struct Header {
    int width = 0;
    int height = 0;
    bool fromTop = false;
    int bits = 0;
    Compression compression = none;
    std::array<BitField, 4> fields; ///< Blue, green, red, alpha; no mask for an absent one.
    std::array<std::array<std::uint8_t, 4>, 256> palette{};
    std::uint64_t pixels = 0; ///< Where they begin in the file.

    bool hasAlpha() const { return fields[3].mask != 0; }
    bool isRunLength() const { return compression == runLength8 || compression == runLength4; }
    std::size_t rowBytes() const {
        return (static_cast<std::size_t>(width) * static_cast<std::size_t>(bits) + 31) / 32 * 4;
    }
};

std::uint32_t number(const std::uint8_t* bytes, int count) {
    return static_cast<std::uint32_t>(integerAt(bytes, count, false));
}

/// The header's fields; those that an older header lacks are 0.
class HeaderReader {
public:
    HeaderReader(const ByteSource& bytes, ByteReader& reader) : bytes_(bytes), reader_(reader) {}

    base::Result<Header> read() {
        if (reader_.read(0, file_.data(), file_.size()) < fileHeaderSize + 4)
            return pictureFailure(bytes_, "the file is cut off");
        size_ = number(&file_[fileHeaderSize], 4);
        if (size_ != coreHeaderSize && (size_ < 16 || size_ > maximumHeaderSize))
            return pictureFailure(bytes_, "a BMP file of an unknown kind");
        if (reader_.size() < fileHeaderSize + size_) return pictureFailure(bytes_, "the file is cut off");
        std::fill(file_.begin() + static_cast<std::ptrdiff_t>(fileHeaderSize + size_), file_.end(), std::uint8_t{0});
        if (auto read = readShape(); !read) return base::failure(read.error());
        if (auto read = readFields(); !read) return base::failure(read.error());
        if (auto read = readPalette(); !read) return base::failure(read.error());
        return header_;
    }

    std::optional<double> dpi(std::size_t at) const {
        const std::uint32_t perMeter = isCore() ? 0 : field(at, 4);
        if (perMeter == 0 || perMeter > 10'000'000) return std::nullopt;
        return perMeter * 0.0254;
    }

    ColorSpaceRef colorSpace() const {
        constexpr std::uint32_t embedded = 0x4D424544; // "MBED"
        const std::uint32_t size = field(116, 4);
        if (size_ < maximumHeaderSize || field(56, 4) != embedded || size > maximumProfileSize || size > reader_.size())
            return ColorSpace::sRGB();
        std::vector<std::uint8_t> profile(size);
        if (reader_.read(fileHeaderSize + field(112, 4), profile.data(), size) != size) return ColorSpace::sRGB();
        return colorSpaceOfProfile(profile.data(), size, 3, ColorSpace::sRGB());
    }

private:
    bool isCore() const { return size_ == coreHeaderSize; }
    std::uint32_t field(std::size_t at, int count) const { return number(&file_[fileHeaderSize + at], count); }

    base::Result<void> readShape() {
        const int length = isCore() ? 2 : 4;
        const auto width = isCore() ? std::int64_t{field(4, 2)} : std::int64_t{static_cast<std::int32_t>(field(4, 4))};
        const auto height = isCore() ? std::int64_t{field(6, 2)} : std::int64_t{static_cast<std::int32_t>(field(8, 4))};
        const std::size_t behind = 4 + 2 * static_cast<std::size_t>(length) + 2;
        if (width < 0) return pictureFailure(bytes_, "it has no pixels");
        if (auto checked = checkPictureSize(bytes_, static_cast<std::uint64_t>(width),
                                            static_cast<std::uint64_t>(height < 0 ? -height : height));
            !checked)
            return checked;
        header_.width = static_cast<int>(width);
        header_.height = static_cast<int>(height < 0 ? -height : height);
        header_.fromTop = height < 0;
        header_.bits = static_cast<int>(field(behind, 2));
        header_.compression = isCore() ? none : static_cast<Compression>(field(16, 4));

        constexpr auto allows = [](int bits, std::uint32_t compression) {
            switch (compression) {
            case none:
                return bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
            case runLength8:
                return bits == 8;
            case runLength4:
                return bits == 4;
            case bitFields:
            case alphaBitFields:
                return bits == 16 || bits == 32;
            default:
                return false;
            }
        };
        if (!allows(header_.bits, header_.compression))
            return pictureFailure(bytes_, std::to_string(header_.bits) + " bits of compression " +
                                              std::to_string(header_.compression) + " are not supported");
        if (header_.isRunLength() && header_.fromTop)
            return pictureFailure(bytes_, "run lengths from the top are not allowed");
        return {};
    }

    base::Result<void> readFields() {
        end_ = fileHeaderSize + size_;
        if (header_.compression == bitFields || header_.compression == alphaBitFields) {
            // They are part of the header from its second version on, and follow it before.
            const std::size_t count = size_ > 52 || header_.compression == alphaBitFields ? 4 : 3;
            if (size_ <= infoHeaderSize) {
                if (reader_.read(end_, &file_[fileHeaderSize + infoHeaderSize], 4 * count) != 4 * count)
                    return pictureFailure(bytes_, "the file is cut off");
                end_ += 4 * count;
            }
            constexpr std::size_t places[] = {2, 1, 0, 3}; // red, green, blue, alpha
            for (std::size_t i = 0; i < count; ++i)
                header_.fields[places[i]].mask = field(infoHeaderSize + 4 * i, 4);
        } else if (header_.bits == 16) {
            header_.fields = {BitField{0x1F}, BitField{0x1F << 5}, BitField{0x1F << 10}, BitField{}};
        }
        header_.pixels = number(&file_[10], 4);
        return {};
    }

    base::Result<void> readPalette() {
        header_.palette.fill({0, 0, 0, 255});
        const std::size_t entrySize = isCore() ? 3 : 4;
        std::size_t count = 0;
        if (header_.bits <= 8) {
            count = std::size_t{1} << header_.bits;
            if (const std::size_t used = isCore() ? 0 : field(32, 4); used > 0) count = std::min(count, used);
            // The pixels may begin before a full palette would end.
            if (header_.pixels > end_)
                count = std::min(count, static_cast<std::size_t>(header_.pixels - end_) / entrySize);
            std::array<std::uint8_t, std::size_t{4} * 256> entries;
            if (reader_.read(end_, entries.data(), count * entrySize) != count * entrySize)
                return pictureFailure(bytes_, "the file is cut off");
            for (std::size_t i = 0; i < count; ++i)
                std::copy_n(&entries[i * entrySize], 3, header_.palette[i].begin());
        }
        header_.pixels = std::max<std::uint64_t>(header_.pixels, end_ + count * entrySize);
        return {};
    }

    const ByteSource& bytes_;
    ByteReader& reader_;
    Header header_;
    std::size_t size_ = 0;
    std::uint64_t end_ = 0; // of what was read of the header
    std::array<std::uint8_t, fileHeaderSize + maximumHeaderSize> file_{};
};

/// Rows whose place in the file can be computed.
class PlainRows {
public:
    explicit PlainRows(const Header& header) : header_(header), row_(header.rowBytes()) {}

    bool start(ByteReader&) { return true; }

    bool read(ByteReader& reader, int y, const PixelRect& region, std::uint8_t* target) {
        const auto line = static_cast<std::uint64_t>(header_.fromTop ? y : header_.height - 1 - y);
        // The filling at the end of the last row may be missing.
        const std::size_t needed =
            (static_cast<std::size_t>(header_.width) * static_cast<std::size_t>(header_.bits) + 7) / 8;
        if (reader.read(header_.pixels + line * row_.size(), row_.data(), row_.size()) < needed) return false;
        for (int x = region.x; x < region.maxX(); ++x, target += 4)
            convert(static_cast<std::size_t>(x), target);
        return true;
    }

private:
    void convert(std::size_t x, std::uint8_t* target) const {
        const auto bits = static_cast<std::size_t>(header_.bits);
        target[3] = 255;
        if (bits <= 8) {
            const std::size_t shift = 8 - bits - x * bits % 8;
            const std::size_t index = row_[x * bits / 8] >> shift & ((1u << bits) - 1);
            std::copy_n(header_.palette[index].data(), 3, target);
        } else if (header_.compression == none && bits != 16) {
            std::copy_n(&row_[x * bits / 8], 3, target);
        } else {
            const std::uint32_t pixel = number(&row_[x * bits / 8], header_.bits / 8);
            for (std::size_t k = 0; k < 4; ++k)
                if (header_.fields[k].mask != 0)
                    target[k] = header_.fields[k].of(pixel);
                else if (k < 3)
                    target[k] = 0;
        }
    }

    const Header& header_;
    std::vector<std::uint8_t> row_;
};

/// Rows of run lengths. They stand in the file from the bottom, and are wanted from the top: a first pass notes where
/// each one begins.
class RunLengthRows {
public:
    explicit RunLengthRows(const Header& header) : header_(header), indices_(static_cast<std::size_t>(header.width)) {}

    bool start(ByteReader& reader) {
        starts_.resize(static_cast<std::size_t>(header_.height));
        Place place{header_.pixels, 0, 0};
        while (place.y < header_.height) {
            starts_[static_cast<std::size_t>(place.y)] = {place.position, place.x};
            const auto next = walkRow(reader, place, nullptr);
            if (!next) return false;
            if (next->position == 0) break;
            place = *next;
        }
        return true;
    }

    bool read(ByteReader& reader, int y, const PixelRect& region, std::uint8_t* target) {
        const int line = header_.height - 1 - y;
        const Start& start = starts_[static_cast<std::size_t>(line)];
        std::fill(indices_.begin(), indices_.end(), std::uint8_t{0}); // what no run covers
        if (start.position != 0 && !walkRow(reader, {start.position, start.x, line}, indices_.data())) return false;
        for (int x = region.x; x < region.maxX(); ++x, target += 4)
            std::copy_n(header_.palette[indices_[static_cast<std::size_t>(x)]].data(), 4, target);
        return true;
    }

private:
    struct Start {
        std::uint64_t position = 0; ///< 0 for a row that was passed over.
        std::int64_t x = 0;
    };
    struct Place {
        std::uint64_t position = 0;
        std::int64_t x = 0;
        std::int64_t y = 0;
    };

    /// Follows the runs of one row, into `row` unless that is null. Answers where the next row begins (position 0 at
    /// the end of the picture), nothing when the file ends before.
    std::optional<Place> walkRow(ByteReader& reader, Place place, std::uint8_t* row) {
        const bool packed = header_.bits == 4;
        const auto put = [&](std::uint8_t index) {
            if (row && place.x < header_.width) row[place.x] = index;
            ++place.x;
        };
        for (;;) {
            const auto count = byteAt(reader, place.position++);
            const auto value = byteAt(reader, place.position++);
            if (!count || !value) // only the end mark may be missing
                return place.y == header_.height - 1 && place.x >= header_.width ? std::optional(Place{})
                                                                                 : std::nullopt;
            if (*count > 0) {
                for (unsigned i = 0; i < *count; ++i)
                    put(packed ? (i % 2 == 0 ? *value >> 4 : *value & 15) : *value);
            } else if (*value == 0) {
                return Place{place.position, 0, place.y + 1};
            } else if (*value == 1) {
                return Place{};
            } else if (*value == 2) {
                const auto right = byteAt(reader, place.position++);
                const auto up = byteAt(reader, place.position++);
                if (!right || !up) return std::nullopt;
                place.x += *right;
                if (*up > 0) return Place{place.position, place.x, place.y + *up};
            } else {
                for (unsigned i = 0; i < *value; ++i) {
                    const auto byte = byteAt(reader, place.position + (packed ? i / 2 : i));
                    if (!byte) return std::nullopt;
                    put(packed ? (i % 2 == 0 ? *byte >> 4 : *byte & 15) : *byte);
                }
                const unsigned bytes = packed ? (*value + 1u) / 2 : *value;
                place.position += bytes + bytes % 2;
            }
        }
    }

    std::optional<std::uint8_t> byteAt(ByteReader& reader, std::uint64_t position) {
        if (position < from_ || position >= from_ + filled_) {
            from_ = position;
            filled_ = reader.read(position, buffer_.data(), buffer_.size());
            if (filled_ == 0) return std::nullopt;
        }
        return buffer_[position - from_];
    }

    const Header& header_;
    std::vector<std::uint8_t> indices_;
    std::vector<Start> starts_;
    std::uint64_t from_ = 0;
    std::size_t filled_ = 0;
    std::array<std::uint8_t, 8192> buffer_;
};

template <class Rows>
class BmpBandReader final : public BandReader {
public:
    BmpBandReader(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader, const Header& header,
                  const PixelRect& region)
        : bytes_(std::move(bytes)), reader_(std::move(reader)), header_(header), rows_(header_), region_(region) {
        format_ =
            ReadingFormat::ofRows(header.hasAlpha() ? SampleKind::bgra : SampleKind::bgrx, region.width, region.height);
    }

    base::Result<void> start() {
        if (!rows_.start(*reader_)) return pictureFailure(*bytes_, "the file is cut off");
        return {};
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (next_ == region_.height) return {};
        if (!rows_.read(*reader_, region_.y + next_++, region_, rows[0][0]))
            return pictureFailure(*bytes_, "the file is cut off");
        if (header_.hasAlpha()) premultiply(rows[0][0], static_cast<std::size_t>(region_.width));
        return {};
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    Header header_;
    Rows rows_;
    PixelRect region_;
    int next_ = 0;
};

class BmpSource final : public PixelSource {
public:
    BmpSource(std::shared_ptr<const ByteSource> bytes, const Header& header, ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)), header_(header) {
        width_ = header.width;
        height_ = header.height;
        opaque_ = !header.hasAlpha();
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        return header_.isRunLength() ? openRows<RunLengthRows>(region) : openRows<PlainRows>(region);
    }

private:
    template <class Rows>
    base::Result<std::unique_ptr<BandReader>> openRows(const PixelRect& region) const {
        auto opened = bytes_->open();
        if (!opened) return base::failure(opened.error());
        auto reader = std::make_unique<BmpBandReader<Rows>>(bytes_, std::move(*opened), header_, region);
        if (auto started = reader->start(); !started) return base::failure(started.error());
        return reader;
    }

    std::shared_ptr<const ByteSource> bytes_;
    Header header_;
};

} // namespace

base::Result<std::vector<Picture>> openBmp(std::shared_ptr<const ByteSource> bytes) {
    const auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    HeaderReader headers(*bytes, **reader);
    const auto header = headers.read();
    if (!header) return base::failure(header.error());
    Picture picture;
    picture.dpiWidth = headers.dpi(24);
    picture.dpiHeight = headers.dpi(28);
    picture.pixels = std::make_shared<BmpSource>(bytes, *header, headers.colorSpace());
    return std::vector<Picture>{std::move(picture)};
}

} // namespace platform::draw
