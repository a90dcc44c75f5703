// A colour space: a model and the ICC profile that defines it. Immutable and shared; profiles of the same bytes share
// one object, so comparing pointers compares spaces. Any thread.
//
// Colours go from one space to another by relative colorimetric intent with black point compensation, to within two
// steps of 8 bits of the exact result. A source profile whose header states saturation or absolute colorimetric gets
// that (absolute without compensation, as it is defined). The header's perceptual counts as no wish: it is the number 0
// that profiles state when nobody chose, and photographs are to keep the colours that both spaces have.
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
    /// The space that an ICC profile of version 2 or 4 describes. An error for bytes that are no profile, for profiles
    /// of other than a device's RGB, grey or CMYK colours (Lab, device links, abstract and named colours), and for
    /// broken ones that colours can't be converted from: a picture is then better taken for one without a profile.
    /// A profile whose primaries and curves are those of sRGB yields a space for which isSRGB() holds.
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
    /// True when colours can be converted into the space as well. False for all but RGB and grey spaces, and for
    /// profiles that only lead out of a device, as those of scanners and cameras may.
    bool supportsOutput() const { return supportsOutput_; }

    // For make_shared within the implementation.
    struct Parts;
    explicit ColorSpace(Parts&& parts);

private:
    ColorModel model_;
    int componentCount_;
    bool isSRGB_;
    bool supportsOutput_;
    base::Data iccData_;
    std::string name_;
};

} // namespace platform::draw
