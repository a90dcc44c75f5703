#include "internal/ColorProfile.h"
#include "internal/ColorTransform.h"
#include "internal/FloatKernels.h"
#include "internal/LightCoding.h"
#include "internal/PictureFormat.h"
#include "internal/RecentlyUsed.h"
#include "internal/TableTransform.h"
#include "platform/draw/ColorRows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <vector>

namespace platform::draw {
namespace {

using CoderRef = std::shared_ptr<const LightCoder>;
using LightRef = std::shared_ptr<const LightRows>;
using RowsRef = std::shared_ptr<const ColorRows>;

/// So many pixels at a time stay in the near cache between the steps of a conversion.
constexpr std::size_t chunk = 256;

base::Result<void> unconvertible(const ColorSpaceRef& space) {
    return base::failure(base::cocoaErrorDomain, 0, "the colour profile \"" + space->name() + "\" can't be converted");
}

// ---- Curves and primaries

using Curve = std::function<double(double)>; ///< From a coded value of 0 to 1 to light.

double lightOfSRGB(double value) {
    const double amount = std::abs(value);
    return std::copysign(amount <= 0.04045 ? amount / 12.92 : std::pow((amount + 0.055) / 1.055, 2.4), value);
}

double codeOfSRGB(double light) {
    return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

/// A curve beyond 0 to 1: mirrored below, as a power above, whose slope at 1 is the curve's own.
class ExtendedCurve {
public:
    explicit ExtendedCurve(Curve curve) : curve_(std::move(curve)) {
        constexpr double near = 0.98;
        const double below = curve_(near);
        const double top = curve_(1);
        power_ = below > 0 && below < top ? std::clamp(std::log(below / top) / std::log(near), 0.5, 4.0) : 1;
        top_ = top;
    }
    double operator()(double value) const {
        const double amount = std::abs(value);
        const double light = amount <= 1 ? curve_(amount) : top_ * std::pow(amount, power_);
        return value < 0 ? -light : light;
    }
    double top() const { return top_; }
    double power() const { return power_; }

private:
    Curve curve_;
    double power_ = 1;
    double top_ = 1;
};

CodeCurve tableOf(const Curve& code) {
    CodeCurve curve;
    curve.values.reserve(CodeCurve::size + 1);
    for (std::size_t i = 0; i < CodeCurve::size; ++i)
        curve.values.push_back(static_cast<float>(code(CodeCurve::lightAt(i))));
    curve.values.push_back(curve.values.back());
    return curve;
}

/// The inverse of a curve that rises, by its values at 65536 places.
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

using Matrix = std::array<std::array<double, 3>, 3>;

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

const Matrix& primariesOfSRGB() {
    static const Matrix primaries = *primariesOf(openProfile(ColorSpace::sRGB()->iccData().bytes).get());
    return primaries;
}

/// What a profile of primaries and curves says, or of one curve of grey.
struct PlainProfile {
    Matrix toXYZ{};
    std::vector<ExtendedCurve> curves; ///< One for each of red, green and blue; all the same for grey.
};

// The curves point into the profile.
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

// ---- From light to coded values

/// By primaries and curves.
class CurveCoder final : public LightCoder {
public:
    CurveCoder(std::optional<Matrix3> matrix, std::vector<CodeCurve> curves)
        : matrix_(matrix), curves_(std::move(curves)) {}
    void code(const float* light, float* out, std::size_t count) const override {
        if (matrix_) applyMatrix(light, *matrix_, count, out);
        const bool hasOwn = !curves_.empty();
        const CodeCurve* const curves[3] = {hasOwn ? &curves_.front() : &sRGBCode(),
                                            hasOwn ? &curves_[curves_.size() / 2] : &sRGBCode(),
                                            hasOwn ? &curves_.back() : &sRGBCode()};
        codeLight(matrix_ ? out : light, curves, count, out);
    }

private:
    std::optional<Matrix3> matrix_;
    std::vector<CodeCurve> curves_; // none for sRGB's, one, or three
};

/// The cube root of CIE Lab, from 0.
const CodeCurve& labCurve() {
    static const auto* curve = new CodeCurve(tableOf([](double light) {
        return light > 216.0 / 24389 ? std::cbrt(light) - 16.0 / 116 : light * 841 / 108;
    })); // outlives every user at exit
    return *curve;
}

/// By a profile's tables, which start from CIE Lab: so far colours are computed, and every colour has its place there.
class TableCoder final : public LightCoder {
public:
    /// `black` is what the device's darkest colour measures; light's black becomes that.
    TableCoder(Transform fromLab, const cmsCIEXYZ& black, bool isGray) : fromLab_(std::move(fromLab)), isGray_(isGray) {
        const cmsCIEXYZ white = *cmsD50_XYZ();
        const double whites[] = {white.X, white.Y, white.Z};
        const double blacks[] = {black.X, black.Y, black.Z};
        Matrix matrix = primariesOfSRGB();
        for (std::size_t i = 0; i < 3; ++i) {
            for (double& share : matrix[i])
                share *= (whites[i] - blacks[i]) / (whites[i] * whites[i]);
            offset_[i] = static_cast<float>(blacks[i] / whites[i]);
        }
        matrix_ = inFloats(matrix);
    }

    void code(const float* light, float* out, std::size_t count) const override {
        for (std::size_t done = 0; done < count; done += chunk)
            codeChunk(light + 4 * done, out + 4 * done, std::min(chunk, count - done));
    }

    static constexpr cmsUInt32Number labFormat =
        COLORSPACE_SH(PT_Lab) | CHANNELS_SH(3) | BYTES_SH(2) | EXTRA_SH(1); // a word is left over

private:
    void codeChunk(const float* light, float* out, std::size_t count) const {
        std::array<float, 4 * chunk> lab;
        std::array<float, chunk> alphas;
        applyMatrix(light, matrix_, count, lab.data());
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t k = 0; k < 3; ++k)
                lab[4 * i + k] += offset_[k];
        codeLight(lab.data(), {&labCurve(), &labCurve(), &labCurve()}, count, lab.data());
        for (std::size_t i = 0; i < count; ++i) {
            float* pixel = &lab[4 * i];
            const float x = pixel[0], y = pixel[1], z = pixel[2];
            pixel[0] = 1.16f * y;
            pixel[1] = (500 * (x - y) + 128) * (1.0f / 255);
            pixel[2] = (200 * (y - z) + 128) * (1.0f / 255);
            alphas[i] = pixel[3];
            pixel[3] = 1;
        }
        std::array<std::uint16_t, 4 * chunk> words;
        std::array<std::uint16_t, 3 * chunk> result;
        storeWords(lab.data(), count, words.data());
        cmsDoTransform(fromLab_.get(), words.data(), result.data(), static_cast<cmsUInt32Number>(count));
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t k = 0; k < 3; ++k)
                out[4 * i + k] = static_cast<float>(result[isGray_ ? i : 3 * i + k]) * (1.0f / 65535);
            out[4 * i + 3] = alphas[i];
        }
    }

    Transform fromLab_;
    bool isGray_;
    Matrix3 matrix_;
    std::array<float, 3> offset_;
};

/// Whether two ways from Lab to a device give the same to a quarter of a step of 8 bits, by a sample that is the same
/// each time.
bool agree(cmsHTRANSFORM one, cmsHTRANSFORM other, std::size_t channels) {
    constexpr std::size_t count = 4096;
    std::vector<std::uint16_t> colors(4 * count), first(channels * count), second(channels * count);
    std::minstd_rand random(1);
    for (std::uint16_t& value : colors)
        value = static_cast<std::uint16_t>(random() >> 8);
    cmsDoTransform(one, colors.data(), first.data(), count);
    cmsDoTransform(other, colors.data(), second.data(), count);
    return std::equal(first.begin(), first.end(), second.begin(), [](int a, int b) { return std::abs(a - b) <= 64; });
}

/// From Lab to the device: in one table of the profile's own points, where that is the same as walking through it.
Transform transformFromLab(cmsHPROFILE profile, bool isGray) {
    const Profile lab(cmsCreateLab4Profile(nullptr));
    const auto made = [&](cmsUInt32Number flags) {
        return Transform(cmsCreateTransform(lab.get(), TableCoder::labFormat, profile,
                                            isGray ? TYPE_GRAY_16 : TYPE_RGB_16, INTENT_RELATIVE_COLORIMETRIC,
                                            flags | cmsFLAGS_NOCACHE));
    };
    Transform exact = made(cmsFLAGS_NOOPTIMIZE);
    const cmsUInt32Number points = gridPoints(profile, TableDirection::fromLab, INTENT_RELATIVE_COLORIMETRIC);
    if (!exact || points < 2 || points > mostGridPoints) return exact;
    Transform fast = made(cmsFLAGS_GRIDPOINTS(points) | cmsFLAGS_CLUT_PRE_LINEARIZATION | cmsFLAGS_NOWHITEONWHITEFIXUP);
    return fast && agree(fast.get(), exact.get(), isGray ? 1 : 3) ? std::move(fast) : std::move(exact);
}

base::Result<CoderRef> makeCoder(const ColorSpaceRef& space) {
    if (space->isSRGB()) return std::make_shared<CurveCoder>(std::nullopt, std::vector<CodeCurve>{});
    const bool isGray = space->model() == ColorModel::monochrome;
    const Profile profile = openProfile(space->iccData().bytes);
    if (!profile) return base::failure(unconvertible(space).error());
    if (const auto plain = plainProfileOf(profile.get(), space)) {
        std::vector<CodeCurve> curves;
        for (const ExtendedCurve& curve : plain->curves)
            if (curves.empty() || !isGray) curves.push_back(inverseOf(curve));
        // A grey level is the lightness, Y, of each colour's share in it.
        const Matrix& own = primariesOfSRGB();
        if (isGray) return std::make_shared<CurveCoder>(inFloats({own[1], own[1], own[1]}), std::move(curves));
        if (const auto fromXYZ = inverse(plain->toXYZ))
            return std::make_shared<CurveCoder>(inFloats(product(*fromXYZ, own)), std::move(curves));
    }
    Transform fromLab = transformFromLab(profile.get(), isGray);
    if (!fromLab) return base::failure(unconvertible(space).error());
    cmsCIEXYZ black{0, 0, 0};
    cmsDetectDestinationBlackPoint(&black, profile.get(), INTENT_RELATIVE_COLORIMETRIC, 0);
    return std::make_shared<TableCoder>(std::move(fromLab), black, isGray);
}

// ---- From rows to light

/// Rows as colours that are not premultiplied, each component by a table of what its coded values mean.
class LoadedRows : public LightRows {
public:
    LoadedRows(RowDepth depth, const std::vector<Curve>& curves) : depth_(depth) {
        const std::size_t size = depth == RowDepth::bits8 ? 256 : 65536;
        for (const Curve& curve : curves) {
            std::vector<float> table(size);
            for (std::size_t i = 0; i < size; ++i) {
                const float value =
                    depth == RowDepth::bits8 ? static_cast<float>(i) / 255 : floatOfHalf(static_cast<std::uint16_t>(i));
                // What is no number, or of no sensible size, must not spread.
                constexpr float most = 64;
                table[i] = std::isnan(value) ? 0 : static_cast<float>(curve(std::clamp(value, -most, most)));
            }
            tables_.push_back(std::move(table));
        }
    }
    void read(const std::uint8_t* row, float* rgba, std::size_t count) const override {
        const float* red = tables_.front().data();
        const float* green = tables_[tables_.size() / 2].data();
        const float* blue = tables_.back().data();
        if (depth_ == RowDepth::bits8)
            for (std::size_t i = 0; i < count; ++i, row += 4, rgba += 4) {
                if (row[3] != 255) {
                    readClear8(row, rgba);
                    continue;
                }
                rgba[0] = red[row[2]];
                rgba[1] = green[row[1]];
                rgba[2] = blue[row[0]];
                rgba[3] = 1;
            }
        else
            for (std::size_t i = 0; i < count; ++i, row += 8, rgba += 4) {
                std::uint16_t half[4];
                std::memcpy(half, row, sizeof half);
                if (half[3] != fullHalf) unpremultiply(half);
                rgba[0] = red[half[0]];
                rgba[1] = green[half[1]];
                rgba[2] = blue[half[2]];
                rgba[3] = floatOfHalf(half[3]);
                if (rgba[3] == 0) std::fill_n(rgba, 3, 0.0f);
            }
    }

private:
    static constexpr std::uint16_t fullHalf = 0x3C00;

    void readClear8(const std::uint8_t* row, float* rgba) const {
        const float alpha = row[3];
        rgba[3] = alpha / 255;
        for (std::size_t k = 0; k < 3; ++k) {
            const std::vector<float>& table = tables_[tables_.size() == 1 ? 0 : k];
            const float value = alpha == 0 ? 0 : std::min(255.0f, static_cast<float>(row[2 - k]) * 255 / alpha);
            const auto index = std::min<std::size_t>(254, static_cast<std::size_t>(value));
            const float share = value - static_cast<float>(index);
            rgba[k] = alpha == 0 ? 0 : table[index] + (table[index + 1] - table[index]) * share;
        }
    }
    static void unpremultiply(std::uint16_t* half) {
        const float alpha = std::clamp(floatOfHalf(half[3]), 0.0f, 1.0f); // of what is no number, that
        half[3] = alpha > 0 ? halfOfFloat(alpha) : 0;
        for (std::size_t k = 0; k < 3; ++k)
            half[k] = alpha > 0 ? halfOfFloat(floatOfHalf(half[k]) / alpha) : 0;
    }

    RowDepth depth_;
    std::vector<std::vector<float>> tables_; // one, or three
};

class MatrixRows final : public LightRows {
public:
    MatrixRows(LoadedRows rows, const Matrix3& matrix) : rows_(std::move(rows)), matrix_(matrix) {}
    void read(const std::uint8_t* row, float* rgba, std::size_t count) const override {
        rows_.read(row, rgba, count);
        applyMatrix(rgba, matrix_, count, rgba);
    }

private:
    LoadedRows rows_;
    Matrix3 matrix_;
};

/// By the library, which computes with floats.
class ProfileRows final : public LightRows {
public:
    ProfileRows(LoadedRows rows, Transform transform) : rows_(std::move(rows)), transform_(std::move(transform)) {}
    void read(const std::uint8_t* row, float* rgba, std::size_t count) const override {
        rows_.read(row, rgba, count);
        std::vector<float> colors(4 * count);
        cmsDoTransform(transform_.get(), rgba, colors.data(), static_cast<cmsUInt32Number>(count));
        for (std::size_t i = 0; i < 4 * count; i += 4)
            if (rgba[i + 3] > 0) std::copy_n(&colors[i], 3, rgba + i);
    }

private:
    LoadedRows rows_;
    Transform transform_;
};

base::Result<LightRef> makeLight(const ColorSpaceRef& space, RowDepth depth) {
    if (space->isSRGB()) return std::make_shared<LoadedRows>(depth, std::vector<Curve>{lightOfSRGB});
    const Profile profile = openProfile(space->iccData().bytes);
    if (!profile) return base::failure(unconvertible(space).error());
    if (const auto plain = plainProfileOf(profile.get(), space)) {
        const auto fromXYZ = inverse(primariesOfSRGB());
        return std::make_shared<MatrixRows>(
            LoadedRows(depth, std::vector<Curve>(plain->curves.begin(), plain->curves.end())),
            inFloats(product(*fromXYZ, plain->toXYZ)));
    }
    constexpr cmsCIExyY white{0.3127, 0.3290, 1};
    constexpr cmsCIExyYTRIPLE colors{{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
    cmsToneCurve* straight = cmsBuildGamma(nullptr, 1);
    cmsToneCurve* const curves[] = {straight, straight, straight};
    const Profile linear(cmsCreateRGBProfile(&white, &colors, curves));
    cmsFreeToneCurve(straight);
    Transform transform(linear ? cmsCreateTransform(profile.get(), TYPE_RGBA_FLT, linear.get(), TYPE_RGBA_FLT,
                                                    renderingIntentOf(profile.get()),
                                                    cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE)
                               : nullptr);
    if (!transform) return base::failure(unconvertible(space).error());
    return std::make_shared<ProfileRows>(LoadedRows(depth, {[](double value) { return value; }}), std::move(transform));
}

// ---- From rows to samples

void storeSamples(const float* rgba, int bits, std::uint8_t* samples, std::size_t count) {
    if (bits == 8)
        storeBytes(rgba, false, count, samples);
    else
        storeWords(rgba, count, reinterpret_cast<std::uint16_t*>(samples));
}

/// The same space: nothing but the form changes.
class CopiedRows final : public ColorRows {
public:
    CopiedRows(RowDepth depth, int bits) : depth_(depth), bits_(bits) {}
    void convert(const std::uint8_t* row, std::uint8_t* samples, std::size_t count) const override {
        if (depth_ == RowDepth::half)
            copyHalves(reinterpret_cast<const std::uint16_t*>(row), samples, count);
        else if (bits_ == 8)
            copyBytes(row, samples, count);
        else
            widenBytes(row, reinterpret_cast<std::uint16_t*>(samples), count);
    }
    static void copyBytes(const std::uint8_t* row, std::uint8_t* samples, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            std::uint32_t pixel = 0; // of which red and blue change places
            std::memcpy(&pixel, row + 4 * i, 4);
            pixel = (pixel & 0xFF00FF00) | ((pixel >> 16) & 0xFF) | ((pixel & 0xFF) << 16);
            std::memcpy(samples + 4 * i, &pixel, 4);
        }
    }

private:
    static void widenBytes(const std::uint8_t* row, std::uint16_t* samples, std::size_t count) {
        for (std::size_t i = 0; i < 4 * count; i += 4) {
            samples[i] = static_cast<std::uint16_t>(row[i + 2] * 257);
            samples[i + 1] = static_cast<std::uint16_t>(row[i + 1] * 257);
            samples[i + 2] = static_cast<std::uint16_t>(row[i] * 257);
            samples[i + 3] = static_cast<std::uint16_t>(row[i + 3] * 257);
        }
    }
    void copyHalves(const std::uint16_t* row, std::uint8_t* samples, std::size_t count) const {
        std::array<float, 4 * chunk> floats;
        for (std::size_t done = 0; done < count; done += chunk) {
            const std::size_t part = std::min(chunk, count - done);
            floatsOfHalves(row + 4 * done, 4 * part, floats.data());
            for (std::size_t i = 0; i < 4 * part; i += 4)
                if (const float alpha = floats[i + 3]; alpha > 0 && alpha < 1)
                    for (std::size_t k = 0; k < 3; ++k)
                        floats[i + k] /= alpha; // which the storing multiplies by
            storeSamples(floats.data(), bits_, samples + 4 * done * static_cast<std::size_t>(bits_ / 8), part);
        }
    }

    RowDepth depth_;
    int bits_;
};

/// Bytes to bytes, by the library's fast ways.
class ByteRows final : public ColorRows {
public:
    explicit ByteRows(std::shared_ptr<const ColorTransform> transform) : transform_(std::move(transform)) {}
    void convert(const std::uint8_t* row, std::uint8_t* samples, std::size_t count) const override {
        std::array<std::uint8_t, 4 * chunk> pixels;
        for (std::size_t done = 0; done < count; done += chunk) {
            const std::size_t part = std::min(chunk, count - done);
            std::memcpy(pixels.data(), row + 4 * done, 4 * part);
            unpremultiply(pixels.data(), part);
            transform_->convert(pixels.data(), pixels.data(), part);
            premultiply(pixels.data(), part);
            CopiedRows::copyBytes(pixels.data(), samples + 4 * done, part);
        }
    }

private:
    std::shared_ptr<const ColorTransform> transform_;
};

class LitRows final : public ColorRows {
public:
    LitRows(LightRef light, CoderRef coder, RowDepth depth, int bits)
        : light_(std::move(light)), coder_(std::move(coder)), depth_(depth), bits_(bits) {}
    void convert(const std::uint8_t* row, std::uint8_t* samples, std::size_t count) const override {
        std::array<float, 4 * chunk> floats;
        for (std::size_t done = 0; done < count; done += chunk) {
            const std::size_t part = std::min(chunk, count - done);
            light_->read(row + done * bytesPerPixel(depth_), floats.data(), part);
            coder_->code(floats.data(), floats.data(), part);
            storeSamples(floats.data(), bits_, samples + 4 * done * static_cast<std::size_t>(bits_ / 8), part);
        }
    }

private:
    LightRef light_;
    CoderRef coder_;
    RowDepth depth_;
    int bits_;
};

template <class Key, class Value>
RecentlyUsed<Key, Value>& made() {
    static auto* store = new RecentlyUsed<Key, Value>(16); // outlives every user at exit
    return *store;
}

/// What the store has, or `make` makes for it.
template <class Key, class Value, class Make>
base::Result<Value> madeOnce(const Key& key, Make make) {
    if (Value found = made<Key, Value>().find(key)) return found;
    auto result = make();
    if (result) made<Key, Value>().add(key, *result);
    return result;
}

} // namespace

base::Result<CoderRef> LightCoder::to(const ColorSpaceRef& space) {
    return madeOnce<ColorSpaceRef, CoderRef>(space, [&] { return makeCoder(space); });
}

base::Result<LightRef> LightRows::of(const ColorSpaceRef& space, RowDepth depth) {
    return madeOnce<std::pair<ColorSpaceRef, RowDepth>, LightRef>({space, depth},
                                                                  [&] { return makeLight(space, depth); });
}

void LightRows::write(const float* rgba, RowDepth depth, std::uint8_t* row, std::size_t count) {
    const CodeCurve* const curves[3] = {&sRGBCode(), &sRGBCode(), &sRGBCode()};
    std::array<float, 4 * chunk> floats;
    for (std::size_t done = 0; done < count; done += chunk) {
        const std::size_t part = std::min(chunk, count - done);
        codeLight(rgba + 4 * done, curves, part, floats.data());
        std::uint8_t* pixels = row + done * bytesPerPixel(depth);
        if (depth == RowDepth::bits8)
            storeBytes(floats.data(), true, part, pixels);
        else
            storeHalves(floats.data(), part, reinterpret_cast<std::uint16_t*>(pixels));
    }
}

base::Result<RowsRef> ColorRows::between(const ColorSpaceRef& source, RowDepth depth, const ColorSpaceRef& target,
                                         int bits) {
    if (source->model() != ColorModel::rgb || !target->supportsOutput() || (bits != 8 && bits != 16))
        return base::failure(base::cocoaErrorDomain, 0,
                             "rows can't be converted from \"" + source->name() + "\" to \"" + target->name() + "\"");
    if (source == target || (source->isSRGB() && target->isSRGB())) return std::make_shared<CopiedRows>(depth, bits);
    if (depth == RowDepth::bits8 && bits == 8 && target->model() == ColorModel::rgb) {
        auto transform = ColorTransform::between(source, PixelLayout::bgra8, target);
        if (!transform) return base::failure(transform.error());
        return std::make_shared<ByteRows>(std::move(*transform));
    }
    auto light = LightRows::of(source, depth);
    if (!light) return base::failure(light.error());
    auto coder = LightCoder::to(target);
    if (!coder) return base::failure(coder.error());
    return std::make_shared<LitRows>(std::move(*light), std::move(*coder), depth, bits);
}

float floatOfHalf(std::uint16_t half) {
    float value = 0;
    floatsOfHalves(&half, 1, &value);
    return value;
}

std::uint16_t halfOfFloat(float value) {
    std::uint16_t half = 0;
    halvesOfFloats(&value, 1, &half);
    return half;
}

} // namespace platform::draw
