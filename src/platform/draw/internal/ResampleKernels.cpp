// Compiled once for each instruction set that the vector library knows; the best one is chosen at run time.
#include "ResampleKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ResampleKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "RoundedHalves-inl.h"

HWY_BEFORE_NAMESPACE();
namespace platform::draw {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// From weights' 14 binary places and bytes' none to 6.
constexpr int columnShift = 14 - sampleFractionBits;
constexpr int rowShift = 14;

/// Pairs of neighbours in 32-bit sums, whatever order the instruction set adds them in.
template <class D32, class V32>
HWY_INLINE V32 pairSums(D32 d32, V32 sum0, V32 sum1) {
#if HWY_TARGET <= HWY_SSSE3 && HWY_ARCH_X86
    (void)d32;
    return hn::Add(sum0, sum1); // sum1 stays zero here
#else
    return hn::Add(hn::ConcatEven(d32, sum1, sum0), hn::ConcatOdd(d32, sum1, sum0));
#endif
}

void FilterColumns(const std::uint8_t* const* rows, const std::int16_t* weights, int count, std::size_t samples,
                   std::int16_t* out) {
    const hn::ScalableTag<std::int16_t> d16;
    const hn::RepartitionToWide<decltype(d16)> d32;
    const hn::Rebind<std::uint8_t, decltype(d16)> d8;
    const std::size_t lanes = hn::Lanes(d16);

    if (count == 1 && weights[0] == weightOne) {
        for (std::size_t x = 0; x < samples; x += lanes)
            hn::StoreU(hn::ShiftLeft<sampleFractionBits>(hn::PromoteTo(d16, hn::LoadU(d8, rows[0] + x))), d16, out + x);
        return;
    }
    const auto rounding = hn::Set(d32, 1 << (columnShift - 1));
    for (std::size_t x = 0; x < samples; x += lanes) {
        auto low0 = hn::Zero(d32);
        auto low1 = hn::Zero(d32);
        auto high0 = hn::Zero(d32);
        auto high1 = hn::Zero(d32);
        for (int t = 0; t < count; t += 2) {
            const std::uint8_t* second = t + 1 < count ? rows[t + 1] : rows[t];
            const auto a = hn::PromoteTo(d16, hn::LoadU(d8, rows[t] + x));
            const auto b = hn::PromoteTo(d16, hn::LoadU(d8, second + x));
            std::int32_t pair;
            __builtin_memcpy(&pair, weights + t, sizeof pair);
            const auto weight = hn::BitCast(d16, hn::Set(d32, pair));
            low0 = hn::ReorderWidenMulAccumulate(d32, hn::InterleaveLower(d16, a, b), weight, low0, low1);
            high0 = hn::ReorderWidenMulAccumulate(d32, hn::InterleaveUpper(d16, a, b), weight, high0, high1);
        }
        const auto low = hn::ShiftRight<columnShift>(hn::Add(pairSums(d32, low0, low1), rounding));
        const auto high = hn::ShiftRight<columnShift>(hn::Add(pairSums(d32, high0, high1), rounding));
        // InterleaveLower and this work within blocks of 128 bits, so the order comes out right.
        hn::StoreU(hn::ReorderDemote2To(d16, low, high), d16, out + x);
    }
}

/// The four sums of the lanes of a, b, c and d.
template <class D32, class V32>
HWY_INLINE V32 sumsOfFour(D32 d32, V32 a, V32 b, V32 c, V32 d) {
    const auto ab = hn::Add(hn::InterleaveLower(d32, a, b), hn::InterleaveUpper(d32, a, b));
    const auto cd = hn::Add(hn::InterleaveLower(d32, c, d), hn::InterleaveUpper(d32, c, d));
    return hn::Add(hn::ConcatLowerLower(d32, cd, ab), hn::ConcatUpperUpper(d32, cd, ab));
}

void FilterRow(const std::int16_t* in, const AxisWeights& axis, std::int16_t* out) {
    const hn::FixedTag<std::int16_t, 8> d16;
    const hn::FixedTag<std::int32_t, 4> d32;
    const hn::FixedTag<std::int16_t, 4> dOut;
    const std::int16_t* weights = axis.weights.data();
    const auto sumAt = [=](const AxisWeights::Position& position) HWY_ATTR {
        const std::int16_t* samples = in + position.start;
        const std::int16_t* weight = weights + position.offset;
        auto sum0 = hn::Zero(d32);
        auto sum1 = hn::Zero(d32);
        for (int t = 0; t < position.count; t += 8)
            sum0 =
                hn::ReorderWidenMulAccumulate(d32, hn::LoadU(d16, samples + t), hn::LoadU(d16, weight + t), sum0, sum1);
        return hn::Add(sum0, sum1);
    };
    // Four at a time: adding up the lanes of one vector costs as much as of four.
    const auto rounding = hn::Set(d32, 1 << (rowShift - 1));
    const std::size_t count = axis.positions.size();
    const AxisWeights::Position* positions = axis.positions.data();
    for (std::size_t i = 0; i < count; i += 4) {
        const std::size_t last = count - 1;
        const auto sums =
            sumsOfFour(d32, sumAt(positions[i]), sumAt(positions[i + 1 < count ? i + 1 : last]),
                       sumAt(positions[i + 2 < count ? i + 2 : last]), sumAt(positions[i + 3 < count ? i + 3 : last]));
        hn::StoreU(hn::DemoteTo(dOut, hn::ShiftRight<rowShift>(hn::Add(sums, rounding))), dOut, out + i);
    }
}

void FilterRow4(const std::int16_t* in, const AxisWeights& axis, std::int16_t* out) {
    const hn::FixedTag<std::int16_t, 4> dPixel;
    const hn::FixedTag<std::int16_t, 8> d16;
    const hn::FixedTag<std::int32_t, 4> d32;
    const auto rounding = hn::Set(d32, 1 << (rowShift - 1));
    const std::int16_t* weights = axis.weights.data();
    for (const AxisWeights::Position& position : axis.positions) {
        const std::int16_t* samples = in + 4 * static_cast<std::ptrdiff_t>(position.start);
        const std::int16_t* weight = weights + position.offset;
        auto sum0 = hn::Zero(d32);
        auto sum1 = hn::Zero(d32);
        for (int t = 0; t < position.count; t += 2) {
            const auto two = hn::LoadU(d16, samples + 4 * t);
            const auto pairs = hn::InterleaveLower(d16, two, hn::ConcatUpperUpper(d16, two, two));
            std::int32_t pair;
            __builtin_memcpy(&pair, weight + t, sizeof pair);
            sum0 = hn::ReorderWidenMulAccumulate(d32, pairs, hn::BitCast(d16, hn::Set(d32, pair)), sum0, sum1);
        }
        const auto sums = hn::ShiftRight<rowShift>(hn::Add(pairSums(d32, sum0, sum1), rounding));
        hn::StoreU(hn::DemoteTo(dPixel, sums), dPixel, out);
        out += 4;
    }
}

template <class D, class V>
HWY_INLINE V rounded(D d, V value) {
    const auto shifted =
        hn::ShiftRight<sampleFractionBits>(hn::SaturatedAdd(value, hn::Set(d, 1 << (sampleFractionBits - 1))));
    return hn::Min(hn::Max(shifted, hn::Zero(d)), hn::Set(d, 255));
}

/// Whole vectors of components from `load(x)`, and the last few through a buffer, to pixels.
template <class Load>
HWY_INLINE void storePixels(Load load, std::size_t pixels, std::uint8_t* out) {
    const hn::ScalableTag<std::int16_t> d;
    const hn::RebindToUnsigned<decltype(d)> du;
    const std::size_t lanes = hn::Lanes(d);
    HWY_ALIGN std::uint16_t last[2 * hn::MaxLanes(du)];
    for (std::size_t x = 0; x < pixels; x += lanes) {
        decltype(hn::Zero(d)) red, green, blue;
        load(d, x, red, green, blue);
        const auto blueGreen = hn::BitCast(du, hn::Or(rounded(d, blue), hn::ShiftLeft<8>(rounded(d, green))));
        const auto redAlpha = hn::Or(hn::BitCast(du, rounded(d, red)), hn::Set(du, static_cast<std::uint16_t>(0xFF00)));
        if (x + lanes <= pixels) {
            hn::StoreInterleaved2(blueGreen, redAlpha, du, reinterpret_cast<std::uint16_t*>(out + 4 * x));
        } else {
            hn::StoreInterleaved2(blueGreen, redAlpha, du, last);
            __builtin_memcpy(out + 4 * x, last, 4 * (pixels - x));
        }
    }
}

/// Samples as half floats, 1 for a full one.
template <class D>
HWY_INLINE hn::VFromD<hn::RebindToUnsigned<D>> halfOf(D, hn::VFromD<D> value) {
    const hn::RebindToUnsigned<D> du;
    const hn::Half<D> dHalf;
    const hn::Rebind<std::int32_t, decltype(dHalf)> d32;
    const hn::Rebind<float, decltype(dHalf)> dFloat;
    const auto factor = hn::Set(dFloat, 1.0f / (255 << sampleFractionBits));
    const auto part = [=](auto samples) HWY_ATTR {
        const auto scaled = hn::Mul(hn::ConvertTo(dFloat, hn::PromoteTo(d32, samples)), factor);
        return roundedHalves(dFloat, scaled);
    };
    return hn::Combine(du, part(hn::UpperHalf(dHalf, value)), part(hn::LowerHalf(dHalf, value)));
}

/// As storePixels, to half pixels. `load` also gives the alpha.
template <class Load>
HWY_INLINE void storeHalfPixels(Load load, std::size_t pixels, std::uint16_t* out) {
    const hn::ScalableTag<std::int16_t> d;
    const hn::RebindToUnsigned<decltype(d)> du;
    const std::size_t lanes = hn::Lanes(d);
    HWY_ALIGN std::uint16_t last[4 * hn::MaxLanes(du)];
    for (std::size_t x = 0; x < pixels; x += lanes) {
        auto red = hn::Zero(d), green = red, blue = red, alpha = hn::Set(d, 255 << sampleFractionBits);
        load(d, x, red, green, blue, alpha);
        const bool whole = x + lanes <= pixels;
        hn::StoreInterleaved4(halfOf(d, red), halfOf(d, green), halfOf(d, blue), halfOf(d, alpha), du,
                              whole ? out + 4 * x : last);
        if (!whole) __builtin_memcpy(out + 4 * x, last, 8 * (pixels - x));
    }
}

// What loads the components of pixels.
auto yCbCrLoader(const std::int16_t* y, const std::int16_t* cb, const std::int16_t* cr) {
    return [=](auto d, std::size_t x, auto& red, auto& green, auto& blue, auto&...) HWY_ATTR {
        const auto middle = hn::Set(d, 128 << sampleFractionBits);
        const auto fixed = [d](double factor) HWY_ATTR {
            return hn::Set(d, static_cast<std::int16_t>(factor * 32768 + (factor < 0 ? -0.5 : 0.5)));
        };
        const auto lightness = hn::LoadU(d, y + x);
        const auto u = hn::Sub(hn::LoadU(d, cb + x), middle);
        const auto v = hn::Sub(hn::LoadU(d, cr + x), middle);
        red = hn::SaturatedAdd(lightness, hn::SaturatedAdd(v, hn::MulFixedPoint15(v, fixed(0.402))));
        green = hn::SaturatedAdd(lightness, hn::SaturatedAdd(hn::MulFixedPoint15(u, fixed(-0.344136)),
                                                             hn::MulFixedPoint15(v, fixed(-0.714136))));
        blue = hn::SaturatedAdd(lightness, hn::SaturatedAdd(u, hn::MulFixedPoint15(u, fixed(0.772))));
    };
}

auto rgbLoader(const std::int16_t* r, const std::int16_t* g, const std::int16_t* b) {
    return [=](auto d, std::size_t x, auto& red, auto& green, auto& blue, auto&...) HWY_ATTR {
        red = hn::LoadU(d, r + x);
        green = hn::LoadU(d, g + x);
        blue = hn::LoadU(d, b + x);
    };
}

void StoreYCbCr(const std::int16_t* y, const std::int16_t* cb, const std::int16_t* cr, std::size_t pixels,
                std::uint8_t* out) {
    storePixels(yCbCrLoader(y, cb, cr), pixels, out);
}

void StoreRGB(const std::int16_t* red, const std::int16_t* green, const std::int16_t* blue, std::size_t pixels,
              std::uint8_t* out) {
    storePixels(rgbLoader(red, green, blue), pixels, out);
}

void StoreHalfYCbCr(const std::int16_t* y, const std::int16_t* cb, const std::int16_t* cr, std::size_t pixels,
                    std::uint16_t* out) {
    storeHalfPixels(yCbCrLoader(y, cb, cr), pixels, out);
}

void StoreHalfRGB(const std::int16_t* red, const std::int16_t* green, const std::int16_t* blue, std::size_t pixels,
                  std::uint16_t* out) {
    storeHalfPixels(rgbLoader(red, green, blue), pixels, out);
}

void StoreHalfPlain(const std::int16_t* in, bool opaque, std::size_t pixels, std::uint16_t* out) {
    const auto load = [=](auto d, std::size_t x, auto& red, auto& green, auto& blue, auto& alpha) HWY_ATTR {
        const hn::RebindToUnsigned<decltype(d)> du;
        auto b = hn::Zero(du), g = b, r = b, a = b;
        hn::LoadInterleaved4(du, reinterpret_cast<const std::uint16_t*>(in) + 4 * x, b, g, r, a);
        red = hn::BitCast(d, r);
        green = hn::BitCast(d, g);
        blue = hn::BitCast(d, b);
        if (!opaque) alpha = hn::Min(hn::Max(hn::BitCast(d, a), hn::Zero(d)), alpha);
    };
    storeHalfPixels(load, pixels, out);
}

void StorePlain(const std::int16_t* in, std::size_t samples, std::uint8_t* out) {
    const hn::ScalableTag<std::int16_t> d;
    const hn::Rebind<std::uint8_t, decltype(d)> d8;
    const std::size_t lanes = hn::Lanes(d);
    HWY_ALIGN std::uint8_t last[hn::MaxLanes(d)];
    for (std::size_t x = 0; x < samples; x += lanes) {
        const auto bytes = hn::DemoteTo(d8, rounded(d, hn::LoadU(d, in + x)));
        if (x + lanes <= samples) {
            hn::StoreU(bytes, d8, out + x);
        } else {
            hn::StoreU(bytes, d8, last);
            __builtin_memcpy(out + x, last, samples - x);
        }
    }
}

} // namespace HWY_NAMESPACE
} // namespace platform::draw
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace platform::draw {

HWY_EXPORT(FilterColumns);
HWY_EXPORT(FilterRow);
HWY_EXPORT(FilterRow4);
HWY_EXPORT(StoreYCbCr);
HWY_EXPORT(StoreRGB);
HWY_EXPORT(StorePlain);
HWY_EXPORT(StoreHalfYCbCr);
HWY_EXPORT(StoreHalfRGB);
HWY_EXPORT(StoreHalfPlain);

void filterColumns(const std::uint8_t* const* rows, const std::int16_t* weights, int count, std::size_t samples,
                   std::int16_t* out) {
    HWY_DYNAMIC_DISPATCH(FilterColumns)(rows, weights, count, samples, out);
}

void filterRow(const std::int16_t* in, const AxisWeights& axis, std::int16_t* out) {
    HWY_DYNAMIC_DISPATCH(FilterRow)(in, axis, out);
}

void filterRow4(const std::int16_t* in, const AxisWeights& axis, std::int16_t* out) {
    HWY_DYNAMIC_DISPATCH(FilterRow4)(in, axis, out);
}

void storeYCbCr(const std::int16_t* y, const std::int16_t* cb, const std::int16_t* cr, std::size_t pixels,
                std::uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreYCbCr)(y, cb, cr, pixels, out);
}

void storeRGB(const std::int16_t* red, const std::int16_t* green, const std::int16_t* blue, std::size_t pixels,
              std::uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreRGB)(red, green, blue, pixels, out);
}

void storePlain(const std::int16_t* in, std::size_t samples, std::uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(StorePlain)(in, samples, out);
}

void storeHalfYCbCr(const std::int16_t* y, const std::int16_t* cb, const std::int16_t* cr, std::size_t pixels,
                    std::uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreHalfYCbCr)(y, cb, cr, pixels, out);
}

void storeHalfRGB(const std::int16_t* red, const std::int16_t* green, const std::int16_t* blue, std::size_t pixels,
                  std::uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreHalfRGB)(red, green, blue, pixels, out);
}

void storeHalfPlain(const std::int16_t* in, bool opaque, std::size_t pixels, std::uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreHalfPlain)(in, opaque, pixels, out);
}

} // namespace platform::draw
#endif
