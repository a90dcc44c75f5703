#include "PsdPlanes.h"

#include "DeepTransform.h"

#include <algorithm>
#include <cstring>

namespace platform::draw {

base::Result<void> PsdPlanes::start() {
    PsdCursor cursor(*reader_, psd_.data);
    const std::uint64_t compression = cursor.number(2);
    if (cursor.failed()) return cutOff();
    if (compression == 2 || compression == 3)
        return pictureFailure(*bytes_, "a merged picture that is packed by ZIP can't be read");
    if (compression > 3) return pictureFailure(*bytes_, "its compression is unknown");
    const auto rows = static_cast<std::uint64_t>(psd_.height);
    packed_ = compression == 1;
    start_ = cursor.position();
    if (!packed_) {
        const std::uint64_t wanted = psd_.rowBytes() * rows * static_cast<std::uint64_t>(psd_.planes());
        return reader_->size() - start_ < wanted ? cutOff() : base::Result<void>();
    }
    const std::size_t countBytes = psd_.version == 2 ? 4 : 2;
    const std::vector<std::uint8_t> counts =
        cursor.bytes(rows * static_cast<std::uint64_t>(psd_.planes()) * countBytes);
    if (cursor.failed()) return cutOff();
    std::uint64_t position = start_ + rows * static_cast<std::uint64_t>(psd_.channels) * countBytes;
    offsets_.reserve(counts.size() / countBytes + 1);
    for (std::size_t i = 0; i < counts.size(); i += countBytes) {
        offsets_.push_back(position);
        position += integerAt(&counts[i], static_cast<int>(countBytes), true);
    }
    offsets_.push_back(position);
    return position > reader_->size() ? cutOff() : base::Result<void>();
}

base::Result<void> PsdPlanes::read(int plane, int y, std::uint8_t* target) {
    const std::size_t wanted = psd_.rowBytes();
    const std::uint64_t index =
        static_cast<std::uint64_t>(plane) * static_cast<std::uint64_t>(psd_.height) + static_cast<std::uint64_t>(y);
    if (!packed_) {
        if (reader_->read(start_ + index * wanted, target, wanted) != wanted) return cutOff();
        return {};
    }
    const auto count = static_cast<std::size_t>(offsets_[index + 1] - offsets_[index]);
    // No packing needs more than this; a row that does is followed by nothing of use.
    packedRow_.resize(std::min(count, 2 * wanted + 64));
    if (reader_->read(offsets_[index], packedRow_.data(), packedRow_.size()) != packedRow_.size()) return cutOff();
    if (!unpack(target, wanted)) return pictureFailure(*bytes_, "a row of it is broken");
    return {};
}

base::Result<void> PsdPlanes::read8(int plane, int y, std::uint8_t* target) {
    if (psd_.bits == 8) return read(plane, y, target);
    if (auto done = read(plane, y, row_.data()); !done) return done;
    for (std::size_t i = 0; i < static_cast<std::size_t>(psd_.width); ++i)
        target[i] = psd_.bits == 1 ? ((row_[i / 8] << i % 8 & 0x80) ? 0 : 255)
                                   : reducedTo8Bits(static_cast<std::uint16_t>(row_[2 * i] << 8 | row_[2 * i + 1]));
    return {};
}

base::Result<void> PsdPlanes::read16(int plane, int y, std::uint16_t* target) {
    if (auto done = read(plane, y, row_.data()); !done) return done;
    for (std::size_t i = 0; i < static_cast<std::size_t>(psd_.width); ++i)
        target[i] =
            psd_.bits == 8 ? widenedTo16Bits(row_[i]) : static_cast<std::uint16_t>(row_[2 * i] << 8 | row_[2 * i + 1]);
    return {};
}

bool PsdPlanes::unpack(std::uint8_t* target, std::size_t wanted) const {
    std::size_t in = 0;
    std::size_t out = 0;
    while (out < wanted) {
        if (in >= packedRow_.size()) return false;
        const auto control = static_cast<std::int8_t>(packedRow_[in++]);
        if (control == -128) continue; // nothing
        const std::size_t count = std::min<std::size_t>(control >= 0 ? control + 1 : 1 - control, wanted - out);
        if (in + (control >= 0 ? count : 1) > packedRow_.size()) return false;
        if (control >= 0)
            std::memcpy(target + out, packedRow_.data() + in, count);
        else
            std::memset(target + out, packedRow_[in], count);
        in += control >= 0 ? count : 1;
        out += count;
    }
    return true;
}

} // namespace platform::draw
