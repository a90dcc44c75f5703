#include "TableTransform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <lcms2_plugin.h>
#include <vector>

namespace platform::draw {
namespace {

// Points on a side of the profile's table; 0 without one.
cmsUInt32Number gridPoints(cmsHPROFILE profile, cmsUInt32Number intent) {
    constexpr cmsTagSignature tables[] = {cmsSigAToB0Tag, cmsSigAToB1Tag, cmsSigAToB2Tag, cmsSigAToB1Tag};
    const cmsTagSignature wanted = cmsIsTag(profile, tables[intent]) ? tables[intent] : cmsSigAToB0Tag;
    const auto* pipeline = static_cast<const cmsPipeline*>(cmsReadTag(profile, wanted));
    for (const cmsStage* stage = pipeline ? cmsPipelineGetPtrToFirstStage(pipeline) : nullptr; stage;
         stage = cmsStageNext(stage))
        if (cmsStageType(stage) == cmsSigCLutElemType)
            return static_cast<const _cmsStageCLutData*>(cmsStageData(stage))->Params->nSamples[0];
    return 0;
}

// Linear light to sRGB's eight bits.
const std::vector<std::uint8_t>& encoded() {
    static const auto* table = [] {
        auto* made = new std::vector<std::uint8_t>(65536); // outlives every user at exit
        for (std::size_t step = 0; step < made->size(); ++step) {
            const double light = static_cast<double>(step) / 65535;
            const double value = light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
            (*made)[step] = static_cast<std::uint8_t>(std::lround(value * 255));
        }
        return made;
    }();
    return *table;
}

// The inverse of Lab's cube root.
float cubed(float value) {
    return value > 6.0f / 29 ? value * value * value : (value - 4.0f / 29) * (108.0f / 841);
}

class TableTransform final : public ColorTransform {
public:
    TableTransform(Transform toLab, PixelLayout layout, const cmsCIEXYZ& black)
        : toLab_(std::move(toLab)), layout_(layout), encoded_(encoded()) {
        // Black point compensation: the source's black goes to sRGB's, which is 0, and white stays.
        const cmsCIEXYZ white = *cmsD50_XYZ();
        const double whites[] = {white.X, white.Y, white.Z};
        const double blacks[] = {black.X, black.Y, black.Z};
        constexpr double toLinear[3][3] = {{3.1338561, -1.6168667, -0.4906146}, // from XYZ at D50
                                           {-0.9787684, 1.9161415, 0.0334540},
                                           {0.0719453, -0.2289914, 1.4052427}};
        for (std::size_t channel = 0; channel < 3; ++channel)
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const double share = toLinear[channel][axis] * whites[axis] / (whites[axis] - blacks[axis]);
                matrix_[channel][axis] = static_cast<float>(share * whites[axis]);
                offset_[channel] -= static_cast<float>(share * blacks[axis]);
            }
    }

    void convert(const std::uint8_t* source, std::uint8_t* target, std::size_t count) const override {
        constexpr std::size_t most = 256;
        std::uint16_t lab[3 * most];
        while (count > 0) {
            const std::size_t part = std::min(count, most);
            cmsDoTransform(toLab_.get(), source, lab, static_cast<cmsUInt32Number>(part));
            for (std::size_t pixel = 0; pixel < part; ++pixel) {
                const std::uint8_t alpha = layout_ == PixelLayout::bgra8 ? source[4 * pixel + 3] : 255;
                encode(lab + 3 * pixel, target + 4 * pixel);
                target[4 * pixel + 3] = alpha;
            }
            source += 4 * part; // all layouts with tables have four bytes
            target += 4 * part;
            count -= part;
        }
    }

private:
    void encode(const std::uint16_t* lab, std::uint8_t* bgr) const {
        const float y = (static_cast<float>(lab[0]) * (100 / 65535.0f) + 16) / 116;
        const float xyz[] = {cubed(y + (static_cast<float>(lab[1]) / 257 - 128) / 500), cubed(y),
                             cubed(y - (static_cast<float>(lab[2]) / 257 - 128) / 200)};
        for (std::size_t channel = 0; channel < 3; ++channel) {
            const auto& row = matrix_[channel];
            const float light = row[0] * xyz[0] + row[1] * xyz[1] + row[2] * xyz[2] + offset_[channel];
            bgr[2 - channel] = encoded_[static_cast<std::size_t>(std::clamp(light, 0.0f, 1.0f) * 65535 + 0.5f)];
        }
    }

    Transform toLab_;
    PixelLayout layout_;
    const std::vector<std::uint8_t>& encoded_;
    std::array<std::array<float, 3>, 3> matrix_{};
    std::array<float, 3> offset_{};
};

} // namespace

std::unique_ptr<ColorTransform> makeTableTransform(cmsHPROFILE source, PixelLayout layout, cmsUInt32Number format) {
    const cmsUInt32Number intent = renderingIntentOf(source);
    const cmsUInt32Number points = gridPoints(source, intent);
    constexpr cmsUInt32Number mostPoints = 65; // of the library's flag, 255; more than this take too long to gather
    if (points < 2 || points > mostPoints) return nullptr;
    cmsCIEXYZ black{0, 0, 0};
    if (intent != INTENT_ABSOLUTE_COLORIMETRIC) cmsDetectBlackPoint(&black, source, intent, 0);
    if (!(black.Y < 0.5)) return nullptr; // no black at all
    const Profile lab(cmsCreateLab4Profile(nullptr));
    Transform toLab(cmsCreateTransform(source, format, lab.get(), TYPE_Lab_16, intent,
                                       cmsFLAGS_GRIDPOINTS(points) | cmsFLAGS_CLUT_PRE_LINEARIZATION |
                                           cmsFLAGS_NOWHITEONWHITEFIXUP));
    if (!toLab) return nullptr;
    return std::make_unique<TableTransform>(std::move(toLab), layout, black);
}

} // namespace platform::draw
