#include "imaging/KLARON_color.h"

#include "base/Log.h"
#include "base/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <mutex>

namespace {

using platform::draw::ColorModel;

struct CodeForm {
    std::size_t digits;
    double divisor;
    int bitsPerField;
    bool hasAlpha;
};
constexpr CodeForm codeForms[] = {
    {6, 255, 8, false},
    {8, 255, 8, true},
    {3, 15, 4, false},
    {4, 15, 4, true},
};

constexpr KLARON_color::Components opaqueBlack{0, 0, 0, 1};

// As codes are counted: in units of UTF-16.
std::size_t lengthOf(std::string_view text) {
    std::size_t units = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
    }
    return units;
}

// A component in 255ths, cut toward zero; out of any range's way.
unsigned cut(double value) {
    if (std::isnan(value)) return 0;
    return static_cast<unsigned>(static_cast<int>(std::clamp(value, -2147483648.0, 2147483647.0)));
}

std::string codeFor(double red, double green, double blue, double alpha, bool includingAlpha) {
    char text[48];
    if (includingAlpha)
        std::snprintf(text, sizeof text, "#%02X%02X%02X%02X", cut(red), cut(green), cut(blue), cut(alpha));
    else
        std::snprintf(text, sizeof text, "#%02X%02X%02X", cut(red), cut(green), cut(blue));
    return text;
}

struct Cache {
    std::mutex mutex;
    std::map<std::string, KLARON_color::ColorRef, std::less<>> colors;
};
Cache& cache() {
    static auto* shared = new Cache; // outlives every user at exit
    return *shared;
}

} // namespace

KLARON_color::Components KLARON_color::colorComponentsForHexCode(std::optional<std::string_view> code) {
    if (!code) return opaqueBlack;
    std::string_view digits = *code;
    while (digits.starts_with('#'))
        digits.remove_prefix(1);
    const auto* form = std::find_if(std::begin(codeForms), std::end(codeForms),
                                    [&](const CodeForm& candidate) { return candidate.digits == lengthOf(digits); });
    if (form == std::end(codeForms)) return opaqueBlack;
    const std::uint32_t value = base::hexValue(digits);
    const std::uint32_t mask = (1u << form->bitsPerField) - 1;
    const int fields = form->hasAlpha ? 4 : 3;
    Components components = opaqueBlack;
    for (int field = 0; field < fields; ++field)
        components[static_cast<std::size_t>(field)] =
            ((value >> ((fields - 1 - field) * form->bitsPerField)) & mask) / form->divisor;
    return components;
}

double KLARON_color::alphaForHexcode(std::optional<std::string_view> code) {
    return colorComponentsForHexCode(code)[3];
}

std::string KLARON_color::hexcodeChangingAlpha(std::optional<std::string_view> code, double alpha) {
    Components components = colorComponentsForHexCode(code);
    components[3] = std::clamp(alpha, 0.0, 1.0);
    return hexcodeForRGBAComponents(components, true);
}

std::string KLARON_color::hexcodeForRGBAComponents(const Components& components, bool includingAlpha) {
    return codeFor(components[0] * 255.0, components[1] * 255.0, components[2] * 255.0, components[3] * 255.0,
                   includingAlpha);
}

std::string KLARON_color::hexcodeForColor(const Color& color) {
    return hexcodeForColor(color, true);
}

std::string KLARON_color::hexcodeForColorIgnoringAlpha(const Color& color) {
    return hexcodeForColor(color, false);
}

std::string KLARON_color::hexcodeForColor(const Color& color, bool includingAlpha) {
    const std::vector<double>& components = color.components();
    switch (color.colorSpace()->model()) {
    case ColorModel::rgb:
        if (components.size() < 4) {
            base::log("Bad count (%lu) for components in RGB colorspace", components.size());
            return "#000000";
        }
        return hexcodeForRGBAComponents({components[0], components[1], components[2], components[3]}, includingAlpha);
    case ColorModel::cmyk: {
        if (components.size() < 5) {
            base::log("Bad count (%lu) for components in CMYK colorspace", components.size());
            return "#000000";
        }
        const auto light = [&](std::size_t ink) { return (1 - components[ink]) * 255.0 * (1 - components[3]); };
        return codeFor(light(0), light(1), light(2), components[4] * 255.0, includingAlpha);
    }
    default:
        return "#000000";
    }
}

KLARON_color::Color KLARON_color::createColorWithHexcode(std::optional<std::string_view> code,
                                                         const ColorSpaceRef& space) {
    const Components components = colorComponentsForHexCode(code);
    return Color(space ? space : platform::draw::ColorSpace::sRGB(),
                 std::vector<double>(components.begin(), components.end()));
}

std::map<std::string, KLARON_color::ColorRef, std::less<>> KLARON_color::colorsDict() {
    const std::lock_guard lock(cache().mutex);
    return cache().colors;
}

const KLARON_color::ColorSpaceRef& KLARON_color::colorSpace() {
    return platform::draw::ColorSpace::sRGB();
}

void KLARON_color::setColorWithHexcodeForKey(std::string_view code, std::string_view key) {
    auto color = std::make_shared<const Color>(createColorWithHexcode(code, colorSpace()));
    const std::lock_guard lock(cache().mutex);
    cache().colors.insert_or_assign(std::string(key), std::move(color));
}

KLARON_color::ColorRef KLARON_color::colorForKey(std::string_view key) {
    const std::lock_guard lock(cache().mutex);
    const auto found = cache().colors.find(key);
    return found == cache().colors.end() ? nullptr : found->second;
}

KLARON_color::ColorRef KLARON_color::colorForHexcode(std::optional<std::string_view> code) {
    if (!code) return nullptr;
    if (ColorRef known = colorForKey(*code)) return known;
    setColorWithHexcodeForKey(*code, *code);
    return colorForKey(*code);
}
