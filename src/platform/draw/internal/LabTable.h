// The table of a device's colours over CIE Lab that an ICC profile holds, read out of it: the library walks through a
// profile stage by stage for each pixel, or makes one table of even steps of all of it, which is wrong by twenty of 255
// where the device's gamut ends. Here the profile's own table is interpolated as the library does in its exact way.
// Immutable; any thread.
#pragma once

#include "ColorProfile.h"
#include "FloatKernels.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace platform::draw {

class LabTable {
public:
    /// For relative colorimetric intent. Nothing for a profile without such a table, or of further stages.
    static std::optional<LabTable> of(cmsHPROFILE profile);

    /// From Lab, each component as 0 to 1 (L / 100, (a + 128) / 255, (b + 128) / 255), to device values of 0 to 1; a
    /// monochrome device's in all three. Alpha as it is. May be in place.
    void look(const float* lab, float* out, std::size_t pixels) const;

private:
    using Curves = std::vector<std::vector<float>>; ///< Three, or none where they change nothing.
    static bool readCurves(const cmsStage* stage, Curves& curves);
    bool readTable(const cmsStage* stage);

    Curves before_;
    ColorTable table_;
    Curves after_;
};

} // namespace platform::draw
