// Owning handles for Little CMS profiles and transforms, for the files of this module that convert colours.
#pragma once

#include <cstdint>
#include <lcms2.h>
#include <memory>
#include <type_traits>
#include <vector>

namespace platform::draw {

struct CloseProfile {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<std::remove_pointer_t<cmsHPROFILE>, CloseProfile>;

struct DeleteTransform {
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using Transform = std::unique_ptr<std::remove_pointer_t<cmsHTRANSFORM>, DeleteTransform>;

/// Null for bytes that are no profile. The bytes must outlive the handle.
inline Profile openProfile(const std::vector<std::uint8_t>& bytes) {
    return Profile(bytes.empty() ? nullptr
                                 : cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

/// Relative colorimetric, or what the profile's header asks for when that is saturation or absolute colorimetric.
/// Perceptual is what nearly every profile states for want of a choice, so it is no wish.
inline cmsUInt32Number renderingIntentOf(cmsHPROFILE profile) {
    const cmsUInt32Number stated = cmsGetHeaderRenderingIntent(profile) & 0xFFFF; // the rest is reserved
    return stated == INTENT_SATURATION || stated == INTENT_ABSOLUTE_COLORIMETRIC ? stated
                                                                                 : INTENT_RELATIVE_COLORIMETRIC;
}

} // namespace platform::draw
