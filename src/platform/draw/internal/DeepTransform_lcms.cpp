#include "ColorProfile.h"
#include "DeepTransform.h"

#include <cmath>

namespace platform::draw {
namespace {

using TransformRef = std::shared_ptr<const DeepTransform>;

class ProfileTransform final : public DeepTransform {
public:
    explicit ProfileTransform(Transform transform) : transform_(std::move(transform)) {}
    void convert(const std::uint16_t* source, std::uint16_t* rgb, std::size_t count) const override {
        cmsDoTransform(transform_.get(), source, rgb, static_cast<cmsUInt32Number>(count));
    }

private:
    Transform transform_;
};

// Grey with sRGB's own tone curve.
class CopyingTransform final : public DeepTransform {
public:
    void convert(const std::uint16_t* source, std::uint16_t* rgb, std::size_t count) const override {
        for (std::size_t i = 0; i < count; ++i)
            std::fill_n(rgb + 3 * i, 3, source[i]);
    }
};

// CMYK without a profile.
class FormulaTransform final : public DeepTransform {
public:
    void convert(const std::uint16_t* source, std::uint16_t* rgb, std::size_t count) const override {
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t k = 0; k < 3; ++k)
                rgb[3 * i + k] = premultiplied(65535 - source[4 * i + k], 65535 - source[4 * i + 3]);
    }
};

// Lab of another white than that of the profiles.
class OtherWhiteTransform final : public DeepTransform {
public:
    OtherWhiteTransform(const cmsCIExyY& white, TransformRef fromD50) : fromD50_(std::move(fromD50)) {
        cmsxyY2XYZ(&white_, &white);
    }
    void convert(const std::uint16_t* source, std::uint16_t* rgb, std::size_t count) const override {
        for (std::size_t i = 0; i < 3 * count; i += 3) {
            cmsCIELab lab;
            cmsCIEXYZ own;
            cmsCIEXYZ adapted;
            cmsLabEncoded2Float(&lab, source + i);
            cmsLab2XYZ(&white_, &own, &lab);
            cmsAdaptToIlluminant(&adapted, &white_, cmsD50_XYZ(), &own);
            cmsXYZ2Lab(cmsD50_XYZ(), &lab, &adapted);
            cmsFloat2LabEncoded(rgb + i, &lab);
        }
        fromD50_->convert(rgb, rgb, count);
    }

private:
    cmsCIEXYZ white_;
    TransformRef fromD50_;
};

base::Result<TransformRef> transformFrom(const Profile& from, cmsUInt32Number format, const std::string& name) {
    const Profile to = openProfile(ColorSpace::sRGB()->iccData().bytes);
    // Not gathered into one table: that is wrong by a tenth where colours are clipped.
    constexpr cmsUInt32Number flags = cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE;
    Transform transform(
        from && to ? cmsCreateTransform(from.get(), format, to.get(), TYPE_RGB_16, renderingIntentOf(from.get()), flags)
                   : nullptr);
    if (!transform)
        return base::failure(base::cocoaErrorDomain, 0, "the colour profile \"" + name + "\" can't be converted");
    return std::make_shared<ProfileTransform>(std::move(transform));
}

} // namespace

base::Result<TransformRef> DeepTransform::toSRGB(const ColorSpaceRef& source) {
    if (source == ColorSpace::gray()) return std::make_shared<CopyingTransform>();
    if (source == ColorSpace::deviceCMYK()) return std::make_shared<FormulaTransform>();
    const bool isGray = source->model() == ColorModel::monochrome;
    if (!isGray && source->model() != ColorModel::cmyk)
        return base::failure(base::cocoaErrorDomain, 0, "\"" + source->name() + "\" is no space of grey or CMYK");
    return transformFrom(openProfile(source->iccData().bytes), isGray ? TYPE_GRAY_16 : TYPE_CMYK_16, source->name());
}

base::Result<TransformRef> DeepTransform::labToSRGB(std::optional<std::pair<double, double>> white) {
    auto fromD50 = transformFrom(Profile(cmsCreateLab4Profile(nullptr)), TYPE_Lab_16, "Lab");
    const cmsCIExyY& usual = *cmsD50_xyY();
    constexpr double near = 0.001;
    if (!fromD50 || !white || std::hypot(white->first - usual.x, white->second - usual.y) < near) return fromD50;
    const bool possible = white->first > 0.1 && white->second > 0.1 && white->first + white->second < 1;
    if (!possible) return fromD50;
    return std::make_shared<OtherWhiteTransform>(cmsCIExyY{white->first, white->second, 1}, std::move(*fromD50));
}

} // namespace platform::draw
