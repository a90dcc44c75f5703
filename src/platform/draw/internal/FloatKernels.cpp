// Compiled once for each instruction set that the vector library knows; the best one is chosen at run time.
#include "FloatKernels.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "FloatKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "RoundedHalves-inl.h"

HWY_BEFORE_NAMESPACE();
namespace platform::draw {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using FloatTag = hn::ScalableTag<float>;
using HalfTag = hn::Rebind<hwy::float16_t, FloatTag>;
using WordTag = hn::Rebind<std::uint16_t, FloatTag>;
using FloatVector = hn::Vec<FloatTag>;

HWY_INLINE FloatVector loadHalves(const std::uint16_t* halves) {
    return hn::PromoteTo(FloatTag(), hn::BitCast(HalfTag(), hn::LoadU(WordTag(), halves)));
}

HWY_INLINE hn::Vec<WordTag> halvesOf(FloatVector value) {
    return roundedHalves(FloatTag(), value);
}

void FloatsOfHalves(const std::uint16_t* halves, std::size_t count, float* out) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        hn::StoreU(loadHalves(halves + i), d, out + i);
    if (i == count) return;
    std::uint16_t last[hn::MaxLanes(d)] = {};
    HWY_ALIGN float floats[hn::MaxLanes(d)];
    __builtin_memcpy(last, halves + i, 2 * (count - i));
    hn::Store(loadHalves(last), d, floats);
    __builtin_memcpy(out + i, floats, 4 * (count - i));
}

void HalvesOfFloats(const float* floats, std::size_t count, std::uint16_t* out) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        hn::StoreU(halvesOf(hn::LoadU(d, floats + i)), WordTag(), out + i);
    if (i == count) return;
    float last[hn::MaxLanes(d)] = {};
    HWY_ALIGN std::uint16_t halves[hn::MaxLanes(d)];
    __builtin_memcpy(last, floats + i, 4 * (count - i));
    hn::StoreU(halvesOf(hn::LoadU(d, last)), WordTag(), halves);
    __builtin_memcpy(out + i, halves, 2 * (count - i));
}

void FilterFloatColumns(const float* const* rows, const std::int16_t* weights, int taps, std::size_t count,
                        float* out) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    const auto sumAt = [=](std::size_t i) HWY_ATTR {
        auto sum = hn::Zero(d);
        for (int t = 0; t < taps; ++t)
            sum = hn::MulAdd(hn::LoadU(d, rows[t] + i), hn::Set(d, static_cast<float>(weights[t]) / weightOne), sum);
        return sum;
    };
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        hn::StoreU(sumAt(i), d, out + i);
    for (; i < count; ++i) {
        float sum = 0;
        for (int t = 0; t < taps; ++t)
            sum = std::fma(rows[t][i], static_cast<float>(weights[t]) / weightOne, sum);
        out[i] = sum;
    }
}

void FilterFloatRow4(const float* in, const AxisWeights& axis, float* out) {
    const hn::FixedTag<float, 4> d;
    for (const AxisWeights::Position& position : axis.positions) {
        const float* pixels = in + 4 * static_cast<std::ptrdiff_t>(position.start);
        const std::int16_t* weights = axis.weights.data() + position.offset;
        auto even = hn::Zero(d);
        auto odd = hn::Zero(d);
        int t = 0;
        for (; t + 2 <= position.count; t += 2) {
            even = hn::MulAdd(hn::LoadU(d, pixels + 4 * t), hn::Set(d, static_cast<float>(weights[t])), even);
            odd = hn::MulAdd(hn::LoadU(d, pixels + 4 * t + 4), hn::Set(d, static_cast<float>(weights[t + 1])), odd);
        }
        if (t < position.count)
            even = hn::MulAdd(hn::LoadU(d, pixels + 4 * t), hn::Set(d, static_cast<float>(weights[t])), even);
        hn::StoreU(hn::Mul(hn::Add(even, odd), hn::Set(d, 1.0f / weightOne)), d, out);
        out += 4;
    }
}

/// Whole vectors of pixels, and the last few through a buffer: change(red, green, blue) in place.
template <class Change>
HWY_INLINE void changePixels(const float* in, std::size_t pixels, float* out, Change change) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    HWY_ALIGN float last[4 * hn::MaxLanes(d)] = {};
    for (std::size_t i = 0; i < pixels; i += lanes) {
        const bool whole = i + lanes <= pixels;
        if (!whole) __builtin_memcpy(last, in + 4 * i, 16 * (pixels - i));
        auto red = hn::Zero(d), green = red, blue = red, alpha = red;
        hn::LoadInterleaved4(d, whole ? in + 4 * i : last, red, green, blue, alpha);
        change(red, green, blue);
        hn::StoreInterleaved4(red, green, blue, alpha, d, whole ? out + 4 * i : last);
        if (!whole) __builtin_memcpy(out + 4 * i, last, 16 * (pixels - i));
    }
}

void ApplyMatrix(const float* in, const Matrix3& matrix, std::size_t pixels, float* out) {
    const FloatTag d;
    const float* m = matrix.data();
    changePixels(in, pixels, out, [=](FloatVector& red, FloatVector& green, FloatVector& blue) HWY_ATTR {
        const auto row = [&](const float* factors) HWY_ATTR {
            const auto sum = hn::MulAdd(green, hn::Set(d, factors[1]), hn::Mul(blue, hn::Set(d, factors[2])));
            return hn::MulAdd(red, hn::Set(d, factors[0]), sum);
        };
        const auto first = row(m);
        const auto second = row(m + 3);
        blue = row(m + 6);
        red = first;
        green = second;
    });
}

HWY_INLINE FloatVector coded(FloatVector light, const float* values) {
    const FloatTag d;
    const hn::RebindToSigned<FloatTag> di;
    constexpr std::int32_t lowestBits = (127 + CodeCurve::lowestExponent) << 23;
    constexpr int shift = 15; // leaves 8 bits of the mantissa: a 256th of a binade
    const auto lowest = hn::BitCast(d, hn::Set(di, lowestBits));
    const auto highest = hn::BitCast(d, hn::Set(di, (127 + CodeCurve::highestExponent) << 23));
    const auto amount = hn::Abs(light);
    const auto offset = hn::Sub(hn::BitCast(di, hn::Min(hn::Max(amount, lowest), highest)), hn::Set(di, lowestBits));
    const auto index = hn::ShiftRight<shift>(offset);
    const auto share =
        hn::Mul(hn::ConvertTo(d, hn::And(offset, hn::Set(di, (1 << shift) - 1))), hn::Set(d, 1.0f / (1 << shift)));
    const auto first = hn::GatherIndex(d, values, index);
    const auto second = hn::GatherIndex(d, values + 1, index);
    const auto curved = hn::MulAdd(share, hn::Sub(second, first), first);
    const auto straight = hn::Mul(amount, hn::Div(hn::Set(d, values[0]), lowest));
    return hn::CopySign(hn::IfThenElse(hn::Lt(amount, lowest), straight, curved), light);
}

void CodeLight(const float* in, const CodeCurve* const (&curves)[3], std::size_t pixels, float* out) {
    const float* r = curves[0]->values.data();
    const float* g = curves[1]->values.data();
    const float* b = curves[2]->values.data();
    changePixels(in, pixels, out, [=](FloatVector& red, FloatVector& green, FloatVector& blue) HWY_ATTR {
        red = coded(red, r);
        green = coded(green, g);
        blue = coded(blue, b);
    });
}

void Interpolate(const float* in, const ColorTable& table, std::size_t pixels, float* out) {
    const hn::FixedTag<float, 4> d;
    const float* nodes = table.nodes.data();
    const std::array<std::ptrdiff_t, 3> steps{4 * static_cast<std::ptrdiff_t>(table.points[1]) * table.points[2],
                                              4 * static_cast<std::ptrdiff_t>(table.points[2]), 4};
    for (std::size_t i = 0; i < 4 * pixels; i += 4) {
        const float alpha = in[i + 3];
        std::ptrdiff_t place = 0;
        float shares[3];
        for (std::size_t k = 0; k < 3; ++k) {
            const float limited = in[i + k] > 0 ? (in[i + k] < 1 ? in[i + k] : 1) : 0; // 0 for what is no number
            const float along = limited * static_cast<float>(table.points[k] - 1);
            int index = static_cast<int>(along);
            index = index < table.points[k] - 2 ? index : table.points[k] - 2;
            shares[k] = along - static_cast<float>(index);
            place += steps[k] * index;
        }
        const auto last = hn::Set(d, shares[2]);
        const auto along = [=](const float* node) HWY_ATTR {
            const auto first = hn::LoadU(d, node);
            return hn::MulAdd(last, hn::Sub(hn::LoadU(d, node + 4), first), first);
        };
        const auto across = [=](const float* node) HWY_ATTR {
            const auto first = along(node);
            return hn::MulAdd(hn::Set(d, shares[1]), hn::Sub(along(node + steps[1]), first), first);
        };
        const auto first = across(nodes + place);
        const auto color = hn::MulAdd(hn::Set(d, shares[0]), hn::Sub(across(nodes + place + steps[0]), first), first);
        hn::StoreU(color, d, out + i);
        out[i + 3] = alpha;
    }
}

/// Samples of each pixel's premultiplied components by store(red, green, blue, alpha, place), of `Sample` type.
template <class Sample, class Store>
HWY_INLINE void storePixels(const float* in, bool cutColors, std::size_t pixels, Sample* out, Store store) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    const auto zero = hn::Zero(d);
    const auto one = hn::Set(d, 1.0f);
    HWY_ALIGN float last[4 * hn::MaxLanes(d)] = {};
    HWY_ALIGN Sample samples[4 * hn::MaxLanes(d)];
    for (std::size_t i = 0; i < pixels; i += lanes) {
        const bool whole = i + lanes <= pixels;
        if (!whole) __builtin_memcpy(last, in + 4 * i, 16 * (pixels - i));
        auto red = zero, green = zero, blue = zero, alpha = zero;
        hn::LoadInterleaved4(d, whole ? in + 4 * i : last, red, green, blue, alpha);
        alpha = hn::Min(hn::Max(alpha, zero), one);
        if (cutColors) {
            red = hn::Min(hn::Max(red, zero), one);
            green = hn::Min(hn::Max(green, zero), one);
            blue = hn::Min(hn::Max(blue, zero), one);
        }
        store(hn::Mul(red, alpha), hn::Mul(green, alpha), hn::Mul(blue, alpha), alpha, whole ? out + 4 * i : samples);
        if (!whole) __builtin_memcpy(out + 4 * i, samples, 4 * sizeof(Sample) * (pixels - i));
    }
}

void StoreBytes(const float* in, bool blueFirst, std::size_t pixels, std::uint8_t* out) {
    const hn::RebindToSigned<FloatTag> di;
    const auto store = [=](FloatVector red, FloatVector green, FloatVector blue, FloatVector alpha,
                           std::uint8_t* place) HWY_ATTR {
        const auto level = [=](FloatVector value)
                               HWY_ATTR { return hn::NearestInt(hn::Mul(value, hn::Set(FloatTag(), 255.0f))); };
        const auto first = level(blueFirst ? blue : red);
        const auto third = level(blueFirst ? red : blue);
        const auto low = hn::Or(first, hn::ShiftLeft<8>(level(green)));
        const auto pixel = hn::Or(low, hn::Or(hn::ShiftLeft<16>(third), hn::ShiftLeft<24>(level(alpha))));
        hn::StoreU(pixel, di, reinterpret_cast<std::int32_t*>(place));
    };
    storePixels(in, true, pixels, out, store);
}

void StoreWords(const float* in, std::size_t pixels, std::uint16_t* out) {
    const auto store = [=](FloatVector red, FloatVector green, FloatVector blue, FloatVector alpha,
                           std::uint16_t* place) HWY_ATTR {
        const auto level = [=](FloatVector value) HWY_ATTR {
            return hn::DemoteTo(WordTag(), hn::NearestInt(hn::Mul(value, hn::Set(FloatTag(), 65535.0f))));
        };
        hn::StoreInterleaved4(level(red), level(green), level(blue), level(alpha), WordTag(), place);
    };
    storePixels(in, true, pixels, out, store);
}

void StoreHalves(const float* in, std::size_t pixels, std::uint16_t* out) {
    const auto store = [=](FloatVector red, FloatVector green, FloatVector blue, FloatVector alpha,
                           std::uint16_t* place) HWY_ATTR {
        hn::StoreInterleaved4(halvesOf(red), halvesOf(green), halvesOf(blue), halvesOf(alpha), WordTag(), place);
    };
    storePixels(in, false, pixels, out, store);
}

} // namespace HWY_NAMESPACE
} // namespace platform::draw
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace platform::draw {

HWY_EXPORT(FloatsOfHalves);
HWY_EXPORT(HalvesOfFloats);
HWY_EXPORT(FilterFloatColumns);
HWY_EXPORT(FilterFloatRow4);
HWY_EXPORT(ApplyMatrix);
HWY_EXPORT(CodeLight);
HWY_EXPORT(Interpolate);
HWY_EXPORT(StoreBytes);
HWY_EXPORT(StoreWords);
HWY_EXPORT(StoreHalves);

void floatsOfHalves(const std::uint16_t* halves, std::size_t count, float* out) {
    HWY_DYNAMIC_DISPATCH(FloatsOfHalves)(halves, count, out);
}

void halvesOfFloats(const float* floats, std::size_t count, std::uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(HalvesOfFloats)(floats, count, out);
}

void filterFloatColumns(const float* const* rows, const std::int16_t* weights, int taps, std::size_t count,
                        float* out) {
    HWY_DYNAMIC_DISPATCH(FilterFloatColumns)(rows, weights, taps, count, out);
}

void filterFloatRow4(const float* in, const AxisWeights& axis, float* out) {
    HWY_DYNAMIC_DISPATCH(FilterFloatRow4)(in, axis, out);
}

double CodeCurve::lightAt(std::size_t index) {
    const auto binade = static_cast<int>(index / stepsPerBinade);
    const auto step = static_cast<double>(index % stepsPerBinade);
    return std::ldexp(1 + step / stepsPerBinade, lowestExponent + binade);
}

void applyMatrix(const float* in, const Matrix3& matrix, std::size_t pixels, float* out) {
    HWY_DYNAMIC_DISPATCH(ApplyMatrix)(in, matrix, pixels, out);
}

void codeLight(const float* in, const CodeCurve* const (&curves)[3], std::size_t pixels, float* out) {
    HWY_DYNAMIC_DISPATCH(CodeLight)(in, curves, pixels, out);
}

void interpolate(const float* in, const ColorTable& table, std::size_t pixels, float* out) {
    HWY_DYNAMIC_DISPATCH(Interpolate)(in, table, pixels, out);
}

void storeBytes(const float* in, bool blueFirst, std::size_t pixels, std::uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreBytes)(in, blueFirst, pixels, out);
}

void storeWords(const float* in, std::size_t pixels, std::uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreWords)(in, pixels, out);
}

void storeHalves(const float* in, std::size_t pixels, std::uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(StoreHalves)(in, pixels, out);
}

} // namespace platform::draw
#endif
