#include "CSSValues.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace platform::draw {
namespace {

constexpr double defaultSize = 12, pointsInPixel = 0.75, largestSize = 10'000;

struct Length {
    double number;
    std::string_view unit;
};

std::optional<Length> lengthFrom(std::string_view text) {
    text = base::trimmed(text);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (error != std::errc() || !std::isfinite(number)) return std::nullopt;
    return Length{number, base::trimmed(text.substr(static_cast<std::size_t>(end - text.data())))};
}

struct NamedSize {
    std::string_view name;
    double points;
};
constexpr NamedSize namedSizes[] = {
    {"xx-small", 7.5}, {"x-small", 7.5}, {"small", 10},    {"medium", 12},
    {"large", 13.5},   {"x-large", 18},  {"xx-large", 24}, {"xxx-large", 36},
};
/// Points for 1, and factors of the inherited size for a unit that is relative.
constexpr NamedSize absoluteUnits[] = {{"pt", 1},         {"px", pointsInPixel}, {"pc", 12},          {"in", 72},
                                       {"cm", 72 / 2.54}, {"mm", 7.2 / 2.54},    {"rem", defaultSize}};
constexpr NamedSize relativeSizes[] = {{"em", 1}, {"%", 0.01}, {"ex", 0.5}};

template <std::size_t count>
const NamedSize* find(const NamedSize (&table)[count], std::string_view name) {
    const auto* found = std::find_if(std::begin(table), std::end(table),
                                     [&](const NamedSize& row) { return base::equalIgnoringCase(row.name, name); });
    return found == std::end(table) ? nullptr : found;
}

std::optional<double> usable(double size) {
    if (!(size > 0) || size > largestSize) return std::nullopt;
    return std::round(size * 1000) / 1000; // 11 * 1.17 and the like
}

struct NamedColor {
    std::string_view name;
    unsigned rgb;
};
constexpr NamedColor namedColors[] = {
    {"black", 0x000000},     {"silver", 0xC0C0C0},   {"gray", 0x808080},    {"grey", 0x808080},
    {"white", 0xFFFFFF},     {"maroon", 0x800000},   {"red", 0xFF0000},     {"purple", 0x800080},
    {"fuchsia", 0xFF00FF},   {"magenta", 0xFF00FF},  {"green", 0x008000},   {"lime", 0x00FF00},
    {"olive", 0x808000},     {"yellow", 0xFFFF00},   {"navy", 0x000080},    {"blue", 0x0000FF},
    {"teal", 0x008080},      {"aqua", 0x00FFFF},     {"cyan", 0x00FFFF},    {"orange", 0xFFA500},
    {"brown", 0xA52A2A},     {"pink", 0xFFC0CB},     {"gold", 0xFFD700},    {"darkgray", 0xA9A9A9},
    {"lightgray", 0xD3D3D3}, {"darkblue", 0x00008B}, {"darkred", 0x8B0000}, {"darkgreen", 0x006400},
    {"transparent", 0},
};

std::optional<Color> colorFromDigits(std::string_view digits) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    const bool isShort = digits.size() == 3 || digits.size() == 4;
    if (!isShort && digits.size() != 6 && digits.size() != 8) return std::nullopt;
    if (digits.size() % 4 != 0) value = isShort ? value << 4 | 0xF : value << 8 | 0xFF;
    const auto component = [&](int place) {
        return isShort ? (value >> (4 * place) & 0xF) / 15.0 : (value >> (8 * place) & 0xFF) / 255.0;
    };
    return Color(component(3), component(2), component(1), component(0));
}

// The numbers between the parentheses, parted by commas, blanks or a slash.
std::optional<Color> colorFromFunction(std::string_view arguments) {
    std::array<double, 4> components{0, 0, 0, 1};
    std::size_t count = 0;
    while (!arguments.empty()) {
        const std::size_t end = std::min(arguments.find_first_of(", /)"), arguments.size());
        const std::string_view word = arguments.substr(0, end);
        arguments.remove_prefix(std::min(end + 1, arguments.size()));
        if (base::trimmed(word).empty()) continue;
        const auto length = lengthFrom(word);
        if (!length || count == components.size()) return std::nullopt;
        const double whole = length->unit == "%" ? 100 : count < 3 ? 255 : 1;
        components[count++] = std::clamp(length->number / whole, 0.0, 1.0);
    }
    if (count < 3) return std::nullopt;
    return Color(components[0], components[1], components[2], components[3]);
}

std::string_view unquoted(std::string_view text) {
    text = base::trimmed(text);
    if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front())
        text = text.substr(1, text.size() - 2);
    return base::trimmed(text);
}

// Up to `separator` outside quotes and parentheses; what is taken leaves the text.
std::string_view takePart(std::string_view& text, char separator) {
    char quote = 0;
    int depth = 0;
    std::size_t at = 0;
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')') {
            --depth;
        } else if (c == separator && depth <= 0) {
            break;
        }
    }
    const std::string_view part = text.substr(0, at);
    text.remove_prefix(std::min(at + 1, text.size()));
    return base::trimmed(part);
}

void setWeight(std::string_view value, TextStyle& style) {
    if (const auto weight = lengthFrom(value))
        style.isBold = weight->number >= 600;
    else if (value == "bold" || value == "bolder")
        style.isBold = true;
    else if (value == "normal" || value == "lighter")
        style.isBold = false;
}

void setSlant(std::string_view value, TextStyle& style) {
    if (value == "normal" || value == "italic" || value.starts_with("oblique")) style.isItalic = value != "normal";
}

// "italic bold 12px/30px Georgia, serif": all before the size is of the face, all behind it the list of fonts.
void setFont(std::string_view value, TextStyle& style) {
    TextStyle changed = style;
    changed.isBold = changed.isItalic = false;
    while (!value.empty()) {
        const std::string word = base::lowercase(takePart(value, ' '));
        if (word.empty()) continue;
        const auto length = lengthFrom(word);
        if (!find(namedSizes, word) && (!length || length->unit.empty())) {
            if (word != "normal") { // which undoes neither of the others
                setWeight(word, changed);
                setSlant(word, changed);
            }
            continue;
        }
        changed.size = fontSizeFromCSS(std::string_view(word).substr(0, word.find('/')), style.size);
        changed.font = fontFromList(value);
        if (changed.size && !base::trimmed(value).empty()) style = changed;
        return;
    }
}

} // namespace

std::optional<Color> colorFromCSS(std::string_view text) {
    text = base::trimmed(text);
    if (text.starts_with('#')) return colorFromDigits(text.substr(1));
    const std::string folded = base::lowercase(text);
    for (const std::string_view function : {"rgb(", "rgba("})
        if (folded.starts_with(function)) return colorFromFunction(std::string_view(folded).substr(function.size()));
    for (const NamedColor& named : namedColors)
        if (named.name == folded)
            return Color((named.rgb >> 16) / 255.0, (named.rgb >> 8 & 0xFF) / 255.0, (named.rgb & 0xFF) / 255.0,
                         folded == "transparent" ? 0 : 1);
    return std::nullopt;
}

std::optional<double> fontSizeFromCSS(std::string_view text, std::optional<double> inherited) {
    text = base::trimmed(text);
    const double base = inherited.value_or(defaultSize);
    if (const NamedSize* named = find(namedSizes, text)) return named->points;
    if (base::equalIgnoringCase(text, "larger")) return usable(base * 1.2);
    if (base::equalIgnoringCase(text, "smaller")) return usable(base / 1.2);
    const auto length = lengthFrom(text);
    if (!length) return std::nullopt;
    if (const NamedSize* unit = find(absoluteUnits, length->unit)) return usable(length->number * unit->points);
    if (const NamedSize* unit = find(relativeSizes, length->unit)) return usable(length->number * unit->points * base);
    return std::nullopt;
}

std::optional<double> fontSizeFromHTML(std::string_view text) {
    constexpr std::array<double, 7> sizes{7.5, 10, 12, 13.5, 18, 24, 36};
    text = base::trimmed(text);
    if (text.empty()) return std::nullopt;
    const bool isRelative = text.front() == '+' || text.front() == '-';
    const auto number = std::clamp<std::int64_t>(base::integerValue(text), -10, 10) + (isRelative ? 3 : 0);
    return sizes[static_cast<std::size_t>(std::clamp<std::int64_t>(number, 1, 7) - 1)];
}

std::optional<TextAlignment> alignmentFromCSS(std::string_view text) {
    constexpr std::pair<std::string_view, TextAlignment> alignments[] = {
        {"left", TextAlignment::left},
        {"right", TextAlignment::right},
        {"center", TextAlignment::center},
        {"justify", TextAlignment::justified},
        {"-webkit-center", TextAlignment::center},
        {"start", TextAlignment::natural},
    };
    for (const auto& [name, alignment] : alignments)
        if (base::equalIgnoringCase(base::trimmed(text), name)) return alignment;
    return std::nullopt;
}

std::optional<std::string> fontFromList(std::string_view list) {
    constexpr std::string_view generic[] = {"serif",     "sans-serif",    "monospace",          "cursive", "fantasy",
                                            "system-ui", "-apple-system", "blinkmacsystemfont", "inherit", "initial"};
    std::optional<std::string> first;
    while (!list.empty()) {
        const std::string_view name = unquoted(takePart(list, ','));
        if (name.empty()) continue;
        if (std::find(std::begin(generic), std::end(generic), base::lowercase(name)) != std::end(generic)) continue;
        if (isFontAvailable(name)) return std::string(name);
        if (!first) first = name;
    }
    return first;
}

void applyDeclarations(std::string_view declarations, ElementStyle& style) {
    while (!declarations.empty()) {
        std::string_view value = takePart(declarations, ';');
        const std::string property = base::lowercase(takePart(value, ':'));
        value = base::trimmed(value.substr(0, value.find('!')));
        const std::string word = base::lowercase(value);
        if (property == "font-family") {
            style.text.font = fontFromList(value);
        } else if (property == "font-size") {
            if (const auto size = fontSizeFromCSS(value, style.text.size)) style.text.size = size;
        } else if (property == "color") {
            if (const auto color = colorFromCSS(value)) style.text.color = color;
        } else if (property == "text-align") {
            if (const auto alignment = alignmentFromCSS(value)) style.text.alignment = alignment;
        } else if (property == "font-weight") {
            setWeight(word, style.text);
        } else if (property == "font-style") {
            setSlant(word, style.text);
        } else if (property == "font") {
            setFont(value, style.text);
        } else if (property == "white-space") {
            style.keepsWhiteSpace = word.starts_with("pre") || word == "break-spaces";
        } else if ((property == "display" && word == "none") || (property == "mso-list" && word == "ignore")) {
            style.isHidden = true;
        }
    }
}

} // namespace platform::draw
