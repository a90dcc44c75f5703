// What the readings of a Photoshop file share: what its header says of the merged picture, and the rows of that
// picture's planes. Objects of one thread.
#pragma once

#include "ByteOrder.h"
#include "PictureFormat.h"

#include <array>
#include <cstring>
#include <optional>

namespace platform::draw {

enum class PsdMode { bitmap = 0, gray = 1, indexed = 2, rgb = 3, cmyk = 4, multichannel = 7, duotone = 8, lab = 9 };

struct PsdPicture {
    int version = 1; // 2 for the large format
    int width = 0;
    int height = 0;
    int bits = 8;
    int channels = 0;
    PsdMode mode = PsdMode::rgb;
    bool hasAlpha = false;
    std::vector<std::uint8_t> palette;     // 256 reds, greens and blues
    std::optional<std::size_t> clearIndex; // of the palette
    std::uint64_t data = 0;                // where the merged picture begins

    int colors() const { return mode == PsdMode::rgb || mode == PsdMode::lab ? 3 : mode == PsdMode::cmyk ? 4 : 1; }
    int planes() const { return colors() + (hasAlpha ? 1 : 0); }
    std::size_t rowBytes() const { return (static_cast<std::size_t>(width) * static_cast<std::size_t>(bits) + 7) / 8; }
    /// Its colours must be converted before alpha can be looked at, or before 8 bits can hold them.
    bool needsDeepRows() const { return mode == PsdMode::lab || (mode == PsdMode::gray && hasAlpha); }
};

/// Big-endian numbers at a moving position. Behind the end everything is 0 and `failed` is set.
class PsdCursor {
public:
    PsdCursor(ByteReader& reader, std::uint64_t position) : reader_(reader), position_(position) {}
    std::uint64_t number(std::size_t bytes) {
        std::array<std::uint8_t, 8> raw{};
        read(raw.data(), bytes);
        return integerAt(raw.data(), static_cast<int>(bytes), true);
    }
    void read(void* target, std::size_t count) {
        if (reader_.read(position_, target, count) != count) {
            std::memset(target, 0, count);
            failed_ = true;
        }
        position_ += count;
    }
    std::vector<std::uint8_t> bytes(std::uint64_t count) {
        if (position_ > reader_.size() || count > reader_.size() - position_) failed_ = true;
        std::vector<std::uint8_t> result(failed_ ? 0 : static_cast<std::size_t>(count));
        read(result.data(), result.size());
        return result;
    }
    std::uint64_t position() const { return position_; }
    void moveTo(std::uint64_t position) { position_ = position; }
    bool failed() const { return failed_; }

private:
    ByteReader& reader_;
    std::uint64_t position_;
    bool failed_ = false;
};

/// The rows of the planes of a merged picture. Any row is found without unpacking those before it.
class PsdPlanes {
public:
    PsdPlanes(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader, const PsdPicture& psd)
        : bytes_(std::move(bytes)), reader_(std::move(reader)), psd_(psd), row_(psd.rowBytes()) {}

    /// Fails when a plane that is needed is cut off, or packed in an unknown way.
    base::Result<void> start();
    /// A row of a plane as psd.width samples of 8 bits, or of 16.
    base::Result<void> read8(int plane, int y, std::uint8_t* target);
    base::Result<void> read16(int plane, int y, std::uint16_t* target);

private:
    /// As it is stored: psd.rowBytes() bytes.
    base::Result<void> read(int plane, int y, std::uint8_t* target);
    bool unpack(std::uint8_t* target, std::size_t wanted) const;
    tl::unexpected<base::Error> cutOff() const { return pictureFailure(*bytes_, "the file is cut off"); }

    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    PsdPicture psd_;
    bool packed_ = false;
    std::uint64_t start_ = 0;            // of rows that are not packed
    std::vector<std::uint64_t> offsets_; // of packed rows, plane after plane
    std::vector<std::uint8_t> row_;
    std::vector<std::uint8_t> packedRow_;
};

} // namespace platform::draw
