// Whole numbers as file formats store them. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform::draw {

/// The number of `count` bytes (up to 8) at `bytes`.
inline std::uint64_t integerAt(const std::uint8_t* bytes, int count, bool bigEndian) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[bigEndian ? i : count - 1 - i];
    return value;
}

/// Appends the lowest `count` bytes of a number.
inline void appendInteger(std::vector<std::uint8_t>& target, std::uint64_t value, int count, bool bigEndian) {
    for (int i = 0; i < count; ++i)
        target.push_back(static_cast<std::uint8_t>(value >> 8 * (bigEndian ? count - 1 - i : i)));
}

} // namespace platform::draw
