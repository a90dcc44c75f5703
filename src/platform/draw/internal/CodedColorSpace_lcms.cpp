#include "CodedColorSpace.h"

#include "ColorProfile.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace platform::draw {
namespace {

struct Primaries {
    int code;
    cmsCIExyY white;
    cmsCIExyYTRIPLE colors;
};
constexpr cmsCIExyY d65{0.3127, 0.3290, 1};
constexpr cmsCIExyY illuminantC{0.310, 0.316, 1};
constexpr Primaries knownPrimaries[] = {
    {4, illuminantC, {{0.67, 0.33, 1}, {0.21, 0.71, 1}, {0.14, 0.08, 1}}}, // NTSC of 1953
    {5, d65, {{0.64, 0.33, 1}, {0.29, 0.60, 1}, {0.15, 0.06, 1}}},         // PAL
    {6, d65, {{0.630, 0.340, 1}, {0.310, 0.595, 1}, {0.155, 0.070, 1}}},   // NTSC
    {7, d65, {{0.630, 0.340, 1}, {0.310, 0.595, 1}, {0.155, 0.070, 1}}},
    {9, d65, {{0.708, 0.292, 1}, {0.170, 0.797, 1}, {0.131, 0.046, 1}}},                // BT.2020
    {11, {0.314, 0.351, 1}, {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}}}, // cinema P3
    {12, d65, {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}}},               // Display P3
};
constexpr cmsCIExyYTRIPLE colorsOfSRGB{{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};

struct FreeCurve {
    void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
using Curve = std::unique_ptr<cmsToneCurve, FreeCurve>;

Curve curveOf(int transfer) {
    switch (transfer) {
    case 4:
        return Curve(cmsBuildGamma(nullptr, 2.2));
    case 5:
        return Curve(cmsBuildGamma(nullptr, 2.8));
    case 8:
        return Curve(cmsBuildGamma(nullptr, 1.0));
    default:
        constexpr std::array curveOfSRGB{2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
        return Curve(cmsBuildParametricToneCurve(nullptr, 4, curveOfSRGB.data()));
    }
}

bool isPlain(int transfer) {
    return transfer != 4 && transfer != 5 && transfer != 8;
}

} // namespace

ColorSpaceRef colorSpaceOfCodePoints(int primaries, int transfer) {
    const auto* known = std::find_if(std::begin(knownPrimaries), std::end(knownPrimaries),
                                     [&](const Primaries& candidate) { return candidate.code == primaries; });
    const bool isKnown = known != std::end(knownPrimaries);
    if (!isKnown && isPlain(transfer)) return ColorSpace::sRGB();

    const cmsCIExyY white = isKnown ? known->white : d65;
    const cmsCIExyYTRIPLE colors = isKnown ? known->colors : colorsOfSRGB;
    const Curve curve = curveOf(transfer);
    cmsToneCurve* const curves[] = {curve.get(), curve.get(), curve.get()};
    const Profile profile(curve ? cmsCreateRGBProfile(&white, &colors, curves) : nullptr);
    std::vector<std::uint8_t> bytes;
    cmsUInt32Number size = 0;
    if (profile && cmsSaveProfileToMem(profile.get(), nullptr, &size)) bytes.resize(size);
    if (bytes.empty() || !cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) return ColorSpace::sRGB();
    // The same space must be the same bytes tomorrow: without the moment of its making.
    constexpr std::size_t datePosition = 24;
    constexpr std::uint8_t date[] = {0x07, 0xD0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0}; // 2000-01-01
    if (bytes.size() >= datePosition + sizeof date)
        std::copy(std::begin(date), std::end(date), bytes.begin() + datePosition);
    const auto space = ColorSpace::fromICC(bytes);
    return space ? *space : ColorSpace::sRGB();
}

} // namespace platform::draw
