#include "base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

namespace base {

namespace {

bool isBlank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

char lowered(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

std::string_view withoutLeadingBlanks(std::string_view text) {
    const auto first = std::find_if_not(text.begin(), text.end(), isBlank);
    return text.substr(static_cast<std::size_t>(first - text.begin()));
}

std::optional<unsigned> hexDigit(char character) {
    if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
    const char letter = lowered(character);
    if (letter >= 'a' && letter <= 'f') return static_cast<unsigned>(letter - 'a' + 10);
    return std::nullopt;
}

} // namespace

double doubleValue(std::string_view text) {
    text = withoutLeadingBlanks(text);
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') return 0;
    }
    // from_chars also reads "inf" and "nan"; only digits and a point begin a number here.
    std::string_view digits = text;
    if (!digits.empty() && digits.front() == '-') digits.remove_prefix(1);
    if (digits.empty() || !((digits.front() >= '0' && digits.front() <= '9') || digits.front() == '.')) return 0;
    double value = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (problem == std::errc::result_out_of_range) {
        // Too large or too small: the library leaves the value alone, so tell the two apart by the exponent's sign.
        const std::string_view number(text.data(), static_cast<std::size_t>(end - text.data()));
        const std::size_t exponent = number.find_first_of("eE");
        const bool tiny = exponent != std::string_view::npos && number.find('-', exponent) != std::string_view::npos;
        if (tiny) return 0;
        return text.front() == '-' ? -std::numeric_limits<double>::max() : std::numeric_limits<double>::max();
    }
    return problem == std::errc() ? value : 0;
}

std::int64_t integerValue(std::string_view text) {
    text = withoutLeadingBlanks(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    const std::uint64_t limit =
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) + (negative ? 1 : 0);
    std::uint64_t value = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') break;
        const auto digit = static_cast<std::uint64_t>(character - '0');
        if (value > (limit - digit) / 10) {
            value = limit;
            break;
        }
        value = value * 10 + digit;
    }
    return negative ? static_cast<std::int64_t>(~value + 1) : static_cast<std::int64_t>(value);
}

bool boolValue(std::string_view text) {
    text = withoutLeadingBlanks(text);
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
    while (!text.empty() && text.front() == '0')
        text.remove_prefix(1);
    if (text.empty()) return false;
    const char first = lowered(text.front());
    return first == 'y' || first == 't' || (first >= '1' && first <= '9');
}

std::uint32_t hexValue(std::string_view text) {
    text = withoutLeadingBlanks(text);
    if (text.size() > 2 && text[0] == '0' && lowered(text[1]) == 'x' && hexDigit(text[2])) text.remove_prefix(2);
    std::uint64_t value = 0;
    for (const char character : text) {
        const auto digit = hexDigit(character);
        if (!digit) break;
        value = std::min<std::uint64_t>(value * 16 + *digit, std::numeric_limits<std::uint32_t>::max());
    }
    return static_cast<std::uint32_t>(value);
}

std::string_view stringForBOOL(bool value) {
    return value ? "yes" : "no";
}

std::string shortestDecimal(double value) {
    if (!std::isfinite(value)) return std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf";
    if (value == 0) return "0";
    std::array<char, 400> buffer{};
    // Geometry is read by scanners that know exponents, and by people who don't: plain digits while they stay short.
    const bool plain = std::fabs(value) < 1e15 && std::fabs(value) >= 1e-5;
    const auto format = plain ? std::chars_format::fixed : std::chars_format::general;
    const auto [end, problem] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, format);
    return problem == std::errc() ? std::string(buffer.data(), end) : std::string("0");
}

bool equalIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lowered(a) == lowered(b); });
}

std::string lowercase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lowered);
    return result;
}

std::string uppercase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char character) {
        return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
    });
    return result;
}

std::string_view trimmed(std::string_view text) {
    text = withoutLeadingBlanks(text);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view truncated(std::string_view text, std::size_t maximumSize) {
    if (text.size() <= maximumSize) return text;
    std::size_t size = maximumSize;
    while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
        --size;
    return text.substr(0, size);
}

std::vector<std::string> split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (std::size_t at; !separator.empty() && (at = text.find(separator, from)) != std::string_view::npos;
         from = at + separator.size())
        parts.emplace_back(text.substr(from, at - from));
    parts.emplace_back(text.substr(from));
    return parts;
}

std::string replacingAll(std::string_view text, std::string_view what, std::string_view with) {
    if (what.empty()) return std::string(text);
    std::string result;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(what, from)) != std::string_view::npos; from = at + what.size())
        result.append(text.substr(from, at - from)).append(with);
    return result.append(text.substr(from));
}

std::string percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '%' && at + 2 < text.size()) {
            const auto high = hexDigit(text[at + 1]);
            const auto low = hexDigit(text[at + 2]);
            if (high && low) {
                result += static_cast<char>(*high * 16 + *low);
                at += 2;
                continue;
            }
        }
        result += text[at];
    }
    return result;
}

std::string percentEncodedPath(std::string_view path) {
    static constexpr std::string_view hex = "0123456789ABCDEF";
    static constexpr std::string_view allowed = "/-._~!$&'()*+,=:@";
    std::string result;
    for (const char character : path) {
        const auto byte = static_cast<unsigned char>(character);
        const char letter = lowered(character);
        if ((letter >= 'a' && letter <= 'z') || (character >= '0' && character <= '9') ||
            allowed.find(character) != std::string_view::npos) {
            result += character;
        } else {
            result += '%';
            result += hex[byte >> 4];
            result += hex[byte & 15];
        }
    }
    return result;
}

} // namespace base
