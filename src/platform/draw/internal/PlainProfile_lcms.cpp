#include "PlainProfile.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {

tl::unexpected<base::Error> unconvertible(const ColorSpaceRef& space) {
    return base::failure(base::cocoaErrorDomain, 0, "the colour profile \"" + space->name() + "\" can't be converted");
}

double lightOfSRGB(double value) {
    const double amount = std::abs(value);
    return std::copysign(amount <= 0.04045 ? amount / 12.92 : std::pow((amount + 0.055) / 1.055, 2.4), value);
}

double codeOfSRGB(double light) {
    return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

ExtendedCurve::ExtendedCurve(Curve curve) : curve_(std::move(curve)) {
    constexpr double near = 0.98;
    const double below = curve_(near);
    const double top = curve_(1);
    power_ = below > 0 && below < top ? std::clamp(std::log(below / top) / std::log(near), 0.5, 4.0) : 1;
    top_ = top;
}

double ExtendedCurve::operator()(double value) const {
    const double amount = std::abs(value);
    const double light = amount <= 1 ? curve_(amount) : top_ * std::pow(amount, power_);
    return value < 0 ? -light : light;
}

CodeCurve tableOf(const Curve& code) {
    CodeCurve curve;
    curve.values.reserve(CodeCurve::size + 1);
    for (std::size_t i = 0; i < CodeCurve::size; ++i)
        curve.values.push_back(static_cast<float>(code(CodeCurve::lightAt(i))));
    curve.values.push_back(curve.values.back());
    return curve;
}

CodeCurve inverseOf(const ExtendedCurve& curve) {
    constexpr std::size_t steps = 65535;
    std::vector<double> lights(steps + 1);
    double highest = 0;
    for (std::size_t i = 0; i <= steps; ++i)
        lights[i] = highest = std::max(highest, curve(static_cast<double>(i) / steps));
    return tableOf([&](double light) {
        if (light >= lights.back()) return curve.top() > 0 ? std::pow(light / curve.top(), 1 / curve.power()) : 1.0;
        const auto above = std::upper_bound(lights.begin(), lights.end(), light);
        if (above == lights.begin()) return 0.0;
        const auto index = static_cast<double>(above - lights.begin() - 1);
        const double before = *(above - 1);
        return (index + (light - before) / (*above - before)) / steps;
    });
}

const CodeCurve& sRGBCode() {
    static const auto* curve = new CodeCurve(tableOf(codeOfSRGB)); // outlives every user at exit
    return *curve;
}

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix result{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t k = 0; k < 3; ++k)
            for (std::size_t j = 0; j < 3; ++j)
                result[i][k] += a[i][j] * b[j][k];
    return result;
}

std::optional<Matrix> inverse(const Matrix& m) {
    const auto minorOf = [&](std::size_t i, std::size_t k) {
        const std::size_t a = (i + 1) % 3, b = (i + 2) % 3, c = (k + 1) % 3, d = (k + 2) % 3;
        return m[a][c] * m[b][d] - m[a][d] * m[b][c];
    };
    const double determinant = m[0][0] * minorOf(0, 0) + m[0][1] * minorOf(0, 1) + m[0][2] * minorOf(0, 2);
    if (!(std::abs(determinant) > 1e-6)) return std::nullopt;
    Matrix result{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t k = 0; k < 3; ++k)
            result[k][i] = minorOf(i, k) / determinant;
    return result;
}

Matrix3 inFloats(const Matrix& matrix) {
    Matrix3 result;
    for (std::size_t i = 0; i < 9; ++i)
        result[i] = static_cast<float>(matrix[i / 3][i % 3]);
    return result;
}

namespace {

/// From a space's light to XYZ under D50.
std::optional<Matrix> primariesOf(cmsHPROFILE profile) {
    constexpr cmsTagSignature tags[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    Matrix result{};
    for (std::size_t k = 0; k < 3; ++k) {
        const auto* color = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, tags[k]));
        if (!color) return std::nullopt;
        const double xyz[] = {color->X, color->Y, color->Z};
        for (std::size_t i = 0; i < 3; ++i)
            result[i][k] = xyz[i];
    }
    return result;
}

} // namespace

const Matrix& primariesOfSRGB() {
    static const Matrix primaries = *primariesOf(openProfile(ColorSpace::sRGB()->iccData().bytes).get());
    return primaries;
}

std::optional<PlainProfile> plainProfileOf(cmsHPROFILE profile, const ColorSpaceRef& space) {
    if (renderingIntentOf(profile) == INTENT_ABSOLUTE_COLORIMETRIC) return std::nullopt; // keeps the paper's white
    const bool isGray = space->model() == ColorModel::monochrome;
    if (!isGray && !cmsIsMatrixShaper(profile)) return std::nullopt;
    if (isGray && (cmsIsTag(profile, cmsSigAToB0Tag) || cmsIsTag(profile, cmsSigBToA0Tag))) return std::nullopt;
    constexpr cmsTagSignature colors[] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    PlainProfile plain;
    for (const cmsTagSignature color : colors) {
        const auto* curve = static_cast<const cmsToneCurve*>(cmsReadTag(profile, isGray ? cmsSigGrayTRCTag : color));
        if (!curve) return std::nullopt;
        plain.curves.emplace_back([curve](double value) {
            const double light = cmsEvalToneCurveFloat(curve, static_cast<float>(value));
            return std::isfinite(light) ? std::clamp(light, 0.0, 1.0) : 0.0;
        });
    }
    if (isGray) return plain;
    const auto primaries = primariesOf(profile);
    if (!primaries) return std::nullopt;
    plain.toXYZ = *primaries;
    return plain;
}

} // namespace platform::draw
