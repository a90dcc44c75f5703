// Small readings and comparisons of text that the whole system shares: numbers and booleans as they are read out of
// files, comparison without regard to case, and the shortest text of a number. Pure functions; texts are UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace base {

/// Leading blanks, sign, decimal digits and exponent; 0 when no number leads the text.
double doubleValue(std::string_view text);
/// Leading blanks, sign, digits; saturates at the ends of the range; 0 when no number leads the text.
std::int64_t integerValue(std::string_view text);
/// True for Y, y, T, t or a digit 1 to 9 after optional blanks, sign and zeros.
bool boolValue(std::string_view text);
/// Skips blanks, takes an optional 0x and hexadecimal digits, saturates at 0xFFFFFFFF; 0 when no digit leads.
std::uint32_t hexValue(std::string_view text);
/// "yes" or "no".
std::string_view stringForBOOL(bool value);

/// The shortest decimal text that reads back as the same double; whole numbers without a point.
std::string shortestDecimal(double value);

/// Comparison and folding of the ASCII letters only; other characters compare by their bytes.
bool equalIgnoringCase(std::string_view left, std::string_view right);
std::string lowercase(std::string_view text);
std::string uppercase(std::string_view text);

std::string_view trimmed(std::string_view text);
/// At most so many bytes of a UTF-8 text, without a part of a character at the end.
std::string_view truncated(std::string_view text, std::size_t maximumSize);
std::vector<std::string> split(std::string_view text, std::string_view separator);
std::string replacingAll(std::string_view text, std::string_view what, std::string_view with);
/// Decodes the hundredth encoding of URLs (%20) and encodes all that a path of a URL may not hold.
std::string percentDecoded(std::string_view text);
std::string percentEncodedPath(std::string_view path);

} // namespace base
