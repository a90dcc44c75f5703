// The text of a colour code.
#include "Fuzzing.h"
#include "imaging/KLARON_color.h"

#include <algorithm>
#include <cmath>

using fuzzing::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    const std::string code(reinterpret_cast<const char*>(bytes), size);
    const auto components = KLARON_color::colorComponentsForHexCode(code);
    require(std::ranges::all_of(components, [](double value) { return value >= 0 && value <= 1; }),
            "components lie within 0 and 1");
    require(KLARON_color::alphaForHexcode(code) == components[3], "the alpha is the last component");

    for (const bool withAlpha : {false, true}) {
        const std::string written = KLARON_color::hexcodeForRGBAComponents(components, withAlpha);
        require(written.size() == (withAlpha ? 9 : 7), "a written code has six or eight digits");
        const auto read = KLARON_color::colorComponentsForHexCode(written);
        for (std::size_t i = 0; i < (withAlpha ? 4u : 3u); ++i)
            require(std::abs(read[i] - components[i]) < 1 / 255.0 + 1e-9, "a written code is read as the same colour");
    }
    const auto color = KLARON_color::createColorWithHexcode(code);
    require(KLARON_color::hexcodeForColor(color) == KLARON_color::hexcodeForRGBAComponents(components, true),
            "a colour is written as its components are");

    const double alpha = size > 0 ? (bytes[0] - 64) / 100.0 : 0.5; // beyond 0 and 1 on both sides
    const std::string changed = KLARON_color::hexcodeChangingAlpha(code, alpha);
    require(changed.size() == 9, "a code with another alpha has eight digits");
    require(changed.substr(0, 7) == KLARON_color::hexcodeForRGBAComponents(components, false),
            "another alpha leaves the colour");
    require(std::abs(KLARON_color::alphaForHexcode(changed) - std::clamp(alpha, 0.0, 1.0)) < 1 / 255.0 + 1e-9,
            "another alpha is within 0 and 1");
    return 0;
}
