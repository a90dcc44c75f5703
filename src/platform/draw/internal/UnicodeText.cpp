#include "UnicodeText.h"

#include "ByteOrder.h"

#include <optional>

namespace platform::draw {
namespace {

constexpr char32_t replacement = 0xFFFD;

void appendUTF8(std::string& text, char32_t character) {
    const auto tail = [&](int shift) { text += static_cast<char>(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | character >> 6);
        tail(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | character >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0 | character >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

// The character that begins the text, which loses it; nothing, and one byte less, for an ill-formed one.
std::optional<char32_t> takeCharacter(std::string_view& text) {
    const auto first = static_cast<std::uint8_t>(text.front());
    text.remove_prefix(1);
    if (first < 0x80) return first;
    const std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    constexpr char32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (first < 0xC2 || first > 0xF4 || text.size() < more) return std::nullopt;
    char32_t character = first & (0x3Fu >> more);
    for (std::size_t index = 0; index < more; ++index) {
        const auto byte = static_cast<std::uint8_t>(text[index]);
        if ((byte & 0xC0) != 0x80) return std::nullopt;
        character = character << 6 | (byte & 0x3F);
    }
    if (character < least[more] || character > 0x10FFFF || (character >= 0xD800 && character < 0xE000))
        return std::nullopt;
    text.remove_prefix(more);
    return character;
}

} // namespace

bool isUTF8(std::string_view bytes) {
    while (!bytes.empty())
        if (!takeCharacter(bytes)) return false;
    return true;
}

std::string utf8FromUTF16(std::span<const std::uint8_t> bytes, bool bigEndian) {
    std::string text;
    const auto unitAt = [&](std::size_t at) { return static_cast<char32_t>(integerAt(&bytes[at], 2, bigEndian)); };
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        const char32_t unit = unitAt(at);
        if (unit < 0xD800 || unit > 0xDFFF) {
            appendUTF8(text, unit);
            continue;
        }
        const char32_t low = unit < 0xDC00 && at + 3 < bytes.size() ? unitAt(at + 2) : 0;
        if (low >= 0xDC00 && low <= 0xDFFF) {
            appendUTF8(text, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
            at += 2;
        } else {
            appendUTF8(text, replacement);
        }
    }
    return text;
}

std::vector<std::uint8_t> utf16FromUTF8(std::string_view text, bool bigEndian) {
    std::vector<std::uint8_t> bytes;
    while (!text.empty()) {
        const char32_t character = takeCharacter(text).value_or(replacement);
        if (character < 0x10000) {
            appendInteger(bytes, character, 2, bigEndian);
        } else {
            appendInteger(bytes, 0xD800 + ((character - 0x10000) >> 10), 2, bigEndian);
            appendInteger(bytes, 0xDC00 + ((character - 0x10000) & 0x3FF), 2, bigEndian);
        }
    }
    return bytes;
}

std::string utf8FromLatin1(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes)
        appendUTF8(text, static_cast<std::uint8_t>(byte));
    return text;
}

} // namespace platform::draw
