// Floats to 16-bit floats, rounded to the nearest on every instruction set: included by the kernels once for each.
#if defined(PLATFORM_DRAW_ROUNDED_HALVES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef PLATFORM_DRAW_ROUNDED_HALVES_INL_H
#undef PLATFORM_DRAW_ROUNDED_HALVES_INL_H
#else
#define PLATFORM_DRAW_ROUNDED_HALVES_INL_H
#endif

#include <cstdint>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace platform::draw {
namespace HWY_NAMESPACE {

/// The bits of the halves that `value`, floats of the tag `d`, are rounded to.
template <class D>
HWY_INLINE hwy::HWY_NAMESPACE::Vec<hwy::HWY_NAMESPACE::Rebind<std::uint16_t, D>>
roundedHalves(D d, hwy::HWY_NAMESPACE::Vec<D> value) {
    namespace hn = hwy::HWY_NAMESPACE;
#if HWY_ARCH_X86 && HWY_TARGET >= HWY_SSE4
    // The library cuts off where the processor has no instruction for it: a half of the last place goes in first.
    constexpr int lost = 13;
    const hn::RebindToUnsigned<D> du;
    const auto bits = hn::BitCast(du, value);
    const auto odd = hn::And(hn::ShiftRight<lost>(bits), hn::Set(du, 1u));
    value = hn::BitCast(d, hn::Add(bits, hn::Add(odd, hn::Set(du, (1u << (lost - 1)) - 1))));
#else
    (void)d;
#endif
    const hn::Rebind<hwy::float16_t, D> dHalf;
    return hn::BitCast(hn::Rebind<std::uint16_t, D>(), hn::DemoteTo(dHalf, value));
}

} // namespace HWY_NAMESPACE
} // namespace platform::draw
HWY_AFTER_NAMESPACE();

#endif
