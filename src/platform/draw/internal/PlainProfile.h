// What profiles of primaries and curves say, and the arithmetic of such: curves between coded values and linear light,
// and matrices of colours. Values and pure functions; any thread.
#pragma once

#include "ColorProfile.h"
#include "FloatKernels.h"
#include "base/Error.h"
#include "platform/draw/ColorSpace.h"

#include <array>
#include <functional>
#include <optional>
#include <vector>

namespace platform::draw {

using Curve = std::function<double(double)>; ///< From a coded value of 0 to 1 to light.

double lightOfSRGB(double value); ///< Mirrored below zero.
double codeOfSRGB(double light);  ///< Of light from 0.
const CodeCurve& sRGBCode();      ///< The same as a table.

/// A curve beyond 0 to 1: mirrored below, as a power above, whose slope at 1 is the curve's own.
class ExtendedCurve {
public:
    explicit ExtendedCurve(Curve curve);
    double operator()(double value) const;
    double top() const { return top_; }
    double power() const { return power_; }

private:
    Curve curve_;
    double power_ = 1;
    double top_ = 1;
};

/// What is told of a profile that no conversion can be made of.
tl::unexpected<base::Error> unconvertible(const ColorSpaceRef& space);

using Matrix = std::array<std::array<double, 3>, 3>;

Matrix product(const Matrix& a, const Matrix& b);
std::optional<Matrix> inverse(const Matrix& matrix);
Matrix3 inFloats(const Matrix& matrix);

/// From sRGB's linear light to XYZ under D50.
const Matrix& primariesOfSRGB();

struct PlainProfile {
    Matrix toXYZ{};                    ///< Not for grey.
    std::vector<ExtendedCurve> curves; ///< One for each of red, green and blue; all the same for grey. They point into
                                       ///< the profile.
};

/// Nothing for a profile of tables, or one that asks for what curves can't do.
std::optional<PlainProfile> plainProfileOf(cmsHPROFILE profile, const ColorSpaceRef& space);

/// A curve from light from 0 to coded values as a table, and the inverse of a curve that rises.
CodeCurve tableOf(const Curve& code);
CodeCurve inverseOf(const ExtendedCurve& curve);

} // namespace platform::draw
