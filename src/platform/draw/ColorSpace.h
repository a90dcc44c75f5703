// A colour space: a model and the ICC profile that defines it. Immutable and shared; profiles of the same bytes share
// one object, so comparing pointers compares spaces. Any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace platform::draw {

/// The numbers are those of the platform that stored files come from.
enum class ColorModel { unknown = -1, monochrome = 0, rgb = 1, cmyk = 2, lab = 3 };

class ColorSpace;
using ColorSpaceRef = std::shared_ptr<const ColorSpace>;

class ColorSpace {
public:
    /// sRGB, with the profile that products carry.
    static const ColorSpaceRef& sRGB();
    /// Grey with sRGB's tone curve and white: the space of grey pictures without a profile.
    static const ColorSpaceRef& gray();
    /// CMYK without a profile, converted by the plain formula (1 - C)(1 - K). It has no ICC data.
    static const ColorSpaceRef& deviceCMYK();
    /// The space that an ICC profile describes. An error for bytes that are no profile or none of a device's space. A
    /// profile whose primaries and curves are those of sRGB yields a space for which isSRGB() holds.
    static base::Result<ColorSpaceRef> fromICC(std::span<const std::uint8_t> profile);

    ColorModel model() const { return model_; }
    /// Colour components without alpha: 1, 3 or 4.
    int componentCount() const { return componentCount_; }
    /// The profile's bytes; empty for a space without one.
    const base::Data& iccData() const { return iccData_; }
    /// The profile's own description ("sRGB IEC61966-2.1").
    const std::string& name() const { return name_; }
    /// True for sRGB and for whatever can't be told from it in 8 bits: no conversion is needed between such spaces.
    bool isSRGB() const { return isSRGB_; }

    // For make_shared within the implementation.
    struct Parts;
    explicit ColorSpace(Parts&& parts);

private:
    ColorModel model_;
    int componentCount_;
    bool isSRGB_;
    base::Data iccData_;
    std::string name_;
};

} // namespace platform::draw
