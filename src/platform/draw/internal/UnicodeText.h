// Texts of UTF-16 and Latin-1, as metadata hold them, to and from UTF-8. Broken pairs become the replacement character.
// Pure functions; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform::draw {

/// Whether the bytes are well-formed UTF-8.
bool isUTF8(std::string_view bytes);
/// An odd byte at the end is dropped.
std::string utf8FromUTF16(std::span<const std::uint8_t> bytes, bool bigEndian);
std::vector<std::uint8_t> utf16FromUTF8(std::string_view text, bool bigEndian);
std::string utf8FromLatin1(std::string_view bytes);

} // namespace platform::draw
