#include "TextForms.h"

#include "base/Text.h"
#include "platform/data/Dates.h"
#include "platform/data/TextEncoding.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace velmctl {

namespace {

constexpr std::size_t longestText = 160;
constexpr std::size_t longestList = 16;
constexpr std::size_t indentationStep = 2;

/// The first character of a text that isn't empty: its bytes, or U+FFFD in place of a byte that begins none.
struct Character {
    explicit Character(std::string_view rest) {
        for (std::size_t length = 1; length <= std::min<std::size_t>(4, rest.size()); ++length) {
            if (!platform::data::isValidUTF8(rest.substr(0, length))) continue;
            bytes = rest.substr(0, length);
            consumed = length;
            return;
        }
    }
    /// The number of a control character; -1 for all others.
    int control() const {
        const auto first = static_cast<unsigned char>(bytes[0]);
        if (bytes.size() == 1) return first < 0x20 || first == 0x7F ? first : -1;
        const auto second = static_cast<unsigned char>(bytes[1]);
        return bytes.size() == 2 && first == 0xC2 && second < 0xA0 ? second : -1;
    }
    std::string_view bytes = "\uFFFD";
    std::size_t consumed = 1;
};

template <class Append>
std::string transformed(std::string_view text, const Append& append) {
    std::string result;
    while (!text.empty()) {
        const Character character(text);
        append(result, character);
        text.remove_prefix(character.consumed);
    }
    return result;
}

std::string hexadecimal(int number, std::size_t digits) {
    std::string result(digits, '0');
    for (auto digit = result.rbegin(); digit != result.rend(); ++digit, number /= 16)
        *digit = "0123456789abcdef"[number % 16];
    return result;
}

/// "\n" and its like; empty for a control character without a letter of its own.
std::string_view letterOfControl(int control) {
    return control == '\n' ? "\\n" : control == '\r' ? "\\r" : control == '\t' ? "\\t" : "";
}

std::string base64(const base::Data& data) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    for (std::size_t start = 0; start < data.size(); start += 3) {
        const std::size_t count = std::min<std::size_t>(3, data.size() - start);
        std::uint32_t group = 0;
        for (std::size_t index = 0; index < 3; ++index)
            group = group << 8 | (index < count ? data.bytes[start + index] : 0U);
        for (std::size_t index = 0; index < 4; ++index)
            result += index <= count ? digits[group >> (18 - 6 * index) & 63] : '=';
    }
    return result;
}

std::string isoDate(base::Date date) {
    return platform::data::stringWithUTSFormat(date, "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'", "en_US_POSIX", "UTC");
}

// -- JSON ------------------------------------------------------------------------------------------------------------

std::string quoted(std::string_view text) {
    return '"' +
           transformed(text,
                       [](std::string& result, const Character& character) {
                           if (const int control = character.control(); control >= 0) {
                               const std::string_view letter = letterOfControl(control);
                               result += letter.empty() ? "\\u" + hexadecimal(control, 4) : std::string(letter);
                               return;
                           }
                           if (character.bytes == "\"" || character.bytes == "\\") result += '\\';
                           result += character.bytes;
                       }) +
           '"';
}

class JSONWriter {
public:
    explicit JSONWriter(std::size_t indentation) : indentation_(indentation) {}

    std::string operator()(std::monostate) const { return "null"; }
    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(double value) const { return std::isfinite(value) ? base::shortestDecimal(value) : "null"; }
    std::string operator()(const std::string& value) const { return quoted(value); }
    std::string operator()(const base::Data& value) const { return quoted(base64(value)); }
    std::string operator()(base::Date value) const { return quoted(isoDate(value)); }
    std::string operator()(const base::Array& value) const {
        std::vector<std::string> members;
        for (const base::Value& member : value)
            members.push_back(inside(member));
        return list("[", members, "]");
    }
    std::string operator()(const base::Dictionary& value) const {
        std::vector<std::string> members;
        for (const auto& [key, member] : value)
            members.push_back(quoted(key) + ": " + inside(member));
        return list("{", members, "}");
    }
    template <class Other>
    std::string operator()(const Other& value) const {
        return quoted(base::Value(value).description());
    }

private:
    std::string inside(const base::Value& value) const {
        return std::visit(JSONWriter(indentation_ + indentationStep), value.storage());
    }
    std::string list(std::string_view open, const std::vector<std::string>& members, std::string_view close) const {
        std::string result(open);
        for (std::size_t index = 0; index < members.size(); ++index)
            result += (index == 0 ? "\n" : ",\n") + std::string(indentation_ + indentationStep, ' ') + members[index];
        if (!members.empty()) result += '\n' + std::string(indentation_, ' ');
        return result.append(close);
    }

    std::size_t indentation_;
};

// -- Trees -----------------------------------------------------------------------------------------------------------

std::string shortText(const base::Value& value) {
    if (const auto* text = value.as<std::string>()) {
        if (text->size() <= longestText) return oneLine(*text);
        return oneLine(base::truncated(*text, longestText)) + "... (" + std::to_string(text->size()) + " bytes)";
    }
    if (const auto* truth = value.as<bool>()) return std::string(base::stringForBOOL(*truth));
    if (const auto* data = value.as<base::Data>()) return "(" + std::to_string(data->size()) + " bytes)";
    if (const auto* date = value.as<base::Date>()) return isoDate(*date);
    if (const auto* array = value.as<base::Array>()) {
        std::string result;
        for (std::size_t index = 0; index < std::min(array->size(), longestList); ++index)
            result += (index == 0 ? "" : ", ") + shortText((*array)[index]);
        return array->size() > longestList ? result + "... (" + std::to_string(array->size()) + ")" : result;
    }
    return oneLine(value.description());
}

} // namespace

std::string oneLine(std::string_view text) {
    return transformed(text, [](std::string& result, const Character& character) {
        const int control = character.control();
        if (control < 0)
            result += character.bytes;
        else if (const std::string_view letter = letterOfControl(control); !letter.empty())
            result += letter;
        else
            result += "\\x" + hexadecimal(control, 2);
    });
}

std::string oneLine(const std::string& path, const base::Error& reason) {
    const std::string lead = path + ": ";
    const std::string& words = reason.localizedDescription;
    return oneLine(words.starts_with(lead) ? words : lead + words);
}

std::string joined(const std::vector<std::string>& texts) {
    std::string result;
    for (const std::string& text : texts)
        result += (result.empty() ? "" : ", ") + text;
    return result;
}

std::string sizeText(base::Size size) {
    return base::shortestDecimal(size.width) + " x " + base::shortestDecimal(size.height);
}

std::string rectText(const base::Rect& rect) {
    return sizeText(rect.size()) + " at " + base::shortestDecimal(rect.x) + ", " + base::shortestDecimal(rect.y);
}

std::string jsonText(const base::Value& value) {
    return std::visit(JSONWriter(0), value.storage());
}

std::vector<std::string> treeLines(const Entries& entries, std::size_t indentation) {
    std::size_t width = 0;
    for (const auto& [key, value] : entries)
        if (!value.as<base::Dictionary>()) width = std::max(width, oneLine(key).size());
    std::vector<std::string> lines;
    for (const auto& [key, value] : entries) {
        std::string line = std::string(indentation, ' ') + oneLine(key);
        const auto* inner = value.as<base::Dictionary>();
        if (!inner) {
            line.resize(std::max(line.size(), indentation + width) + indentationStep, ' ');
            line += shortText(value);
        }
        lines.push_back(std::move(line));
        if (!inner) continue;
        for (std::string& innerLine : treeLines({inner->begin(), inner->end()}, indentation + indentationStep))
            lines.push_back(std::move(innerLine));
    }
    return lines;
}

} // namespace velmctl
