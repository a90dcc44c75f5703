#include "ColorProfile.h"
#include "LabTable.h"
#include "LightCoding.h"
#include "PlainProfile.h"
#include "RecentlyUsed.h"

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <vector>

namespace platform::draw {
namespace {

using CoderRef = std::shared_ptr<const LightCoder>;

/// So many pixels at a time stay in the near cache between the steps of a conversion.
constexpr std::size_t chunk = 256;

std::uint16_t wordOf(float value) {
    return static_cast<std::uint16_t>(std::clamp(value, 0.0f, 1.0f) * 65535 + 0.5f);
}

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
    TableCoder(std::optional<LabTable> table, Transform fromLab, const cmsCIEXYZ& black, bool isGray)
        : table_(std::move(table)), fromLab_(std::move(fromLab)), isGray_(isGray) {
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
        }
        if (table_)
            table_->look(lab.data(), out, count);
        else
            byLibrary(lab.data(), out, count);
    }

    void byLibrary(const float* lab, float* out, std::size_t count) const {
        std::array<std::uint16_t, 4 * chunk> words; // of which the fourth is alpha, that stays
        std::array<std::uint16_t, 3 * chunk> result;
        for (std::size_t i = 0; i < 4 * count; ++i)
            words[i] = wordOf(lab[i]);
        cmsDoTransform(fromLab_.get(), words.data(), result.data(), static_cast<cmsUInt32Number>(count));
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t k = 0; k < 3; ++k)
                out[4 * i + k] = static_cast<float>(result[isGray_ ? i : 3 * i + k]) * (1.0f / 65535);
            out[4 * i + 3] = lab[4 * i + 3];
        }
    }

    std::optional<LabTable> table_;
    Transform fromLab_;
    bool isGray_;
    Matrix3 matrix_;
    std::array<float, 3> offset_;
};

/// Whether the table gives what the library gives, to a quarter of a step of 8 bits, by a sample that is the same each
/// time.
bool agree(const LabTable& table, cmsHTRANSFORM exact, std::size_t channels) {
    constexpr std::size_t count = 4096;
    std::vector<std::uint16_t> colors(4 * count), wanted(channels * count);
    std::vector<float> lab(4 * count);
    std::minstd_rand random(1);
    for (std::size_t i = 0; i < colors.size(); ++i) {
        colors[i] = static_cast<std::uint16_t>(random() >> 8);
        lab[i] = static_cast<float>(colors[i]) / 65535;
    }
    cmsDoTransform(exact, colors.data(), wanted.data(), count);
    table.look(lab.data(), lab.data(), count);
    for (std::size_t i = 0; i < wanted.size(); ++i)
        if (std::abs(wordOf(lab[i / channels * 4 + i % channels]) - wanted[i]) > 64) return false;
    return true;
}

base::Result<CoderRef> makeCoder(const ColorSpaceRef& space) {
    if (space->isSRGB()) return std::make_shared<CurveCoder>(std::nullopt, std::vector<CodeCurve>{});
    const bool isGray = space->model() == ColorModel::monochrome;
    const Profile profile = openProfile(space->iccData().bytes);
    if (!profile) return unconvertible(space);
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
    const Profile lab(cmsCreateLab4Profile(nullptr));
    Transform fromLab(cmsCreateTransform(lab.get(), TableCoder::labFormat, profile.get(),
                                         isGray ? TYPE_GRAY_16 : TYPE_RGB_16, INTENT_RELATIVE_COLORIMETRIC,
                                         cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE));
    if (!fromLab) return unconvertible(space);
    auto table = LabTable::of(profile.get());
    if (table && !agree(*table, fromLab.get(), isGray ? 1 : 3)) table.reset();
    cmsCIEXYZ black{0, 0, 0};
    cmsDetectDestinationBlackPoint(&black, profile.get(), INTENT_RELATIVE_COLORIMETRIC, 0);
    return std::make_shared<TableCoder>(std::move(table), std::move(fromLab), black, isGray);
}

} // namespace

base::Result<CoderRef> LightCoder::to(const ColorSpaceRef& space) {
    static auto* made = new RecentlyUsed<ColorSpaceRef, CoderRef>(16); // outlives every user at exit
    if (CoderRef found = made->find(space)) return found;
    auto coder = makeCoder(space);
    if (coder) made->add(space, *coder);
    return coder;
}

} // namespace platform::draw
