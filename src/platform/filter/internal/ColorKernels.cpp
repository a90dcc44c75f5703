// Compiled once for each instruction set that the vector library knows; the best one is chosen at run time.
#include "ColorKernels.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ColorKernels.cpp"
#include <hwy/foreach_target.h>
// after it, as the library asks
#include <hwy/contrib/math/math-inl.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace platform::filter {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using FloatTag = hn::ScalableTag<float>;

/// `columns`: five times four floats.
void ApplyMatrix(const float* columns, float* rgba, std::size_t count) {
    const FloatTag d;
    const auto ofRed = hn::LoadDup128(d, columns);
    const auto ofGreen = hn::LoadDup128(d, columns + 4);
    const auto ofBlue = hn::LoadDup128(d, columns + 8);
    const auto ofAlpha = hn::LoadDup128(d, columns + 12);
    const auto constant = hn::LoadDup128(d, columns + 16);
    for (std::size_t i = 0; i < 4 * count; i += hn::Lanes(d)) {
        const auto pixel = hn::LoadU(d, rgba + i);
        auto sum = hn::MulAdd(hn::Broadcast<0>(pixel), ofRed, constant);
        sum = hn::MulAdd(hn::Broadcast<1>(pixel), ofGreen, sum);
        sum = hn::MulAdd(hn::Broadcast<2>(pixel), ofBlue, sum);
        sum = hn::MulAdd(hn::Broadcast<3>(pixel), ofAlpha, sum);
        hn::StoreU(sum, d, rgba + i);
    }
}

void ApplyPower(float power, float* rgba, std::size_t count) {
    const FloatTag d;
    HWY_ALIGN const float lanes[4] = {0, 0, 0, 1};
    const auto isAlpha = hn::Gt(hn::LoadDup128(d, lanes), hn::Zero(d));
    const auto exponent = hn::Set(d, power);
    const auto smallest = hn::Set(d, 1e-30F);  // in the place of zero, which has no logarithm
    const auto largest = hn::Set(d, 11.0898F); // of 65504
    const auto ofZero = hn::Set(d, power > 0 ? 0 : power < 0 ? 65504 : 1); // what a raised zero is
    for (std::size_t i = 0; i < 4 * count; i += hn::Lanes(d)) {
        const auto pixel = hn::LoadU(d, rgba + i);
        const auto logarithm = hn::Mul(hn::Log(d, hn::Max(pixel, smallest)), exponent);
        const auto raised = hn::Exp(d, hn::Max(hn::Min(logarithm, largest), hn::Set(d, -80.0F)));
        const auto color = hn::IfThenElse(hn::Gt(pixel, smallest), raised, ofZero);
        hn::StoreU(hn::IfThenElse(isAlpha, pixel, color), d, rgba + i);
    }
}

void BlurRow(const float* in, const float* weights, std::size_t taps, const float* scales, float* out,
             std::size_t count) {
    const FloatTag d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d)) {
        auto sum = hn::Zero(d);
        for (std::size_t t = 0; t < taps; ++t)
            sum = hn::MulAdd(hn::LoadU(d, in + x + t), hn::Set(d, weights[t]), sum);
        hn::StoreU(hn::Mul(sum, hn::LoadU(d, scales + x)), d, out + x);
    }
}

void BlurColumns(const float* const* rows, const float* weights, std::size_t taps, float* out, std::size_t count) {
    const FloatTag d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d)) {
        auto sum = hn::Zero(d);
        for (std::size_t t = 0; t < taps; ++t)
            sum = hn::MulAdd(hn::LoadU(d, rows[t] + x), hn::Set(d, weights[t]), sum);
        hn::StoreU(sum, d, out + x);
    }
}

} // namespace HWY_NAMESPACE
} // namespace platform::filter
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace platform::filter {

HWY_EXPORT(ApplyMatrix);
HWY_EXPORT(ApplyPower);
HWY_EXPORT(BlurRow);
HWY_EXPORT(BlurColumns);

void applyMatrix(const MatrixStep& matrix, float* rgba, std::size_t count) {
    HWY_ALIGN float columns[20];
    for (std::size_t column = 0; column < 5; ++column)
        for (std::size_t row = 0; row < 4; ++row)
            columns[column * 4 + row] = static_cast<float>(matrix.rows[row][column]);
    HWY_DYNAMIC_DISPATCH(ApplyMatrix)(columns, rgba, count);
}

void applyPower(float power, float* rgba, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(ApplyPower)(power, rgba, count);
}

void blurRow(const float* in, const float* weights, std::size_t taps, const float* scales, float* out,
             std::size_t count) {
    HWY_DYNAMIC_DISPATCH(BlurRow)(in, weights, taps, scales, out, count);
}

void blurColumns(const float* const* rows, const float* weights, std::size_t taps, float* out, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(BlurColumns)(rows, weights, taps, out, count);
}

} // namespace platform::filter
#endif
