// Colour codes: "#" and 3, 4, 6 or 8 hexadecimal digits (RGB, RGBA, RRGGBB, RRGGBBAA), meant as sRGB unless the caller
// names another space. Class operations only, with one process-wide cache of colours by key; any thread.
#pragma once

#include "platform/draw/Color.h"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class KLARON_color {
public:
    using Color = platform::draw::Color;
    using ColorRef = std::shared_ptr<const Color>;
    using ColorSpaceRef = platform::draw::ColorSpaceRef;
    /// Red, green, blue, alpha, each 0 to 1.
    using Components = std::array<double, 4>;

    /// A code that can't be read, or none, is opaque black.
    static Components colorComponentsForHexCode(std::optional<std::string_view> code);
    static double alphaForHexcode(std::optional<std::string_view> code);
    /// The same colour with an alpha, which is kept within 0 and 1; always eight digits.
    static std::string hexcodeChangingAlpha(std::optional<std::string_view> code, double alpha);
    /// Each component times 255, cut toward zero, in capitals.
    static std::string hexcodeForRGBAComponents(const Components& components, bool includingAlpha);
    static std::string hexcodeForColor(const Color& color);
    static std::string hexcodeForColorIgnoringAlpha(const Color& color);
    /// Of an RGB or CMYK colour; "#000000" for every other model, whatever `includingAlpha` says.
    static std::string hexcodeForColor(const Color& color, bool includingAlpha);
    /// The code's four components in `space`, as they are, or in sRGB when there is none.
    static Color createColorWithHexcode(std::optional<std::string_view> code, const ColorSpaceRef& space = nullptr);

    /// A copy of the cache.
    static std::map<std::string, ColorRef, std::less<>> colorsDict();
    /// The shared sRGB space.
    static const ColorSpaceRef& colorSpace();
    static void setColorWithHexcodeForKey(std::string_view code, std::string_view key);
    /// Null for a key that is not there.
    static ColorRef colorForKey(std::string_view key);
    /// Made and kept on the first call; null without a code.
    static ColorRef colorForHexcode(std::optional<std::string_view> code);
};
