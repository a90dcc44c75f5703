#include "ColorProfile.h"
#include "ColorTransform.h"
#include "LightCoding.h"
#include "RecentlyUsed.h"
#include "TableTransform.h"
#include "platform/draw/ColorRows.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

namespace platform::draw {
namespace {

using TransformRef = std::shared_ptr<const ColorTransform>;

class ProfileTransform : public ColorTransform {
public:
    ProfileTransform(Transform transform, PixelLayout layout) : transform_(std::move(transform)), layout_(layout) {}
    void convert(const std::uint8_t* source, std::uint8_t* target, std::size_t count) const override {
        if (layout_ != PixelLayout::bgra8) std::memset(target, 255, count * 4); // alpha, which the transform skips
        cmsDoTransform(transform_.get(), source, target, static_cast<cmsUInt32Number>(count));
    }

private:
    Transform transform_;
    PixelLayout layout_;
};

class GrayTransform : public ColorTransform {
public:
    GrayTransform(const ColorTransform& exact, PixelLayout layout) : layout_(layout) {
        std::array<std::uint8_t, 256> levels;
        for (int level = 0; level < 256; ++level)
            levels[level] = static_cast<std::uint8_t>(level);
        exact.convert(levels.data(), table_[0].data(), levels.size());
    }
    void convert(const std::uint8_t* source, std::uint8_t* target, std::size_t count) const override {
        if (layout_ == PixelLayout::gray8) {
            for (std::size_t pixel = 0; pixel < count; ++pixel)
                std::memcpy(target + 4 * pixel, table_[source[pixel]].data(), 4);
            return;
        }
        for (std::size_t byte = 0; byte < 4 * count; byte += 4) {
            const std::uint8_t alpha = source[byte + 3];
            std::memcpy(target + byte, table_[source[byte]].data(), 3);
            target[byte + 3] = alpha;
        }
    }

private:
    PixelLayout layout_;
    std::array<std::array<std::uint8_t, 4>, 256> table_;
};

// To a printer's tables, by linear light.
class LightTransform : public ColorTransform {
public:
    LightTransform(std::shared_ptr<const LightRows> light, std::shared_ptr<const LightCoder> coder)
        : light_(std::move(light)), coder_(std::move(coder)) {}
    void convert(const std::uint8_t* source, std::uint8_t* target, std::size_t count) const override {
        constexpr std::size_t most = 256;
        std::array<std::uint8_t, 4 * most> pixels;
        std::array<std::uint8_t, most> alphas;
        std::array<float, 4 * most> colors;
        for (std::size_t done = 0; done < count; done += most) {
            const std::size_t part = std::min(most, count - done);
            std::memcpy(pixels.data(), source + 4 * done, 4 * part);
            for (std::size_t i = 0; i < part; ++i)
                alphas[i] = std::exchange(pixels[4 * i + 3], std::uint8_t{255}); // values are not premultiplied
            light_->read(pixels.data(), colors.data(), part);
            coder_->code(colors.data(), colors.data(), part);
            storeBytes(colors.data(), true, part, target + 4 * done);
            for (std::size_t i = 0; i < part; ++i)
                target[4 * (done + i) + 3] = alphas[i];
        }
    }

private:
    std::shared_ptr<const LightRows> light_;
    std::shared_ptr<const LightCoder> coder_;
};

// CMYK without a profile.
class FormulaTransform : public ColorTransform {
public:
    FormulaTransform(bool inverted, TransformRef fromSRGB) : inverted_(inverted), fromSRGB_(std::move(fromSRGB)) {}
    void convert(const std::uint8_t* source, std::uint8_t* target, std::size_t count) const override {
        const int flip = inverted_ ? 0 : 255;
        for (std::size_t pixel = 0; pixel < count; ++pixel, source += 4) {
            const int light = source[3] ^ flip;
            for (int channel = 0; channel < 3; ++channel)
                target[4 * pixel + 2 - channel] =
                    static_cast<std::uint8_t>(((source[channel] ^ flip) * light + 127) / 255);
            target[4 * pixel + 3] = 255;
        }
        if (fromSRGB_) fromSRGB_->convert(target, target, count);
    }

private:
    bool inverted_;
    TransformRef fromSRGB_;
};

struct LayoutRow {
    PixelLayout layout;
    ColorModel model;
    cmsUInt32Number format;
};
constexpr LayoutRow layoutRows[] = {
    {PixelLayout::bgra8, ColorModel::rgb, TYPE_BGRA_8},
    {PixelLayout::gray8, ColorModel::monochrome, TYPE_GRAY_8},
    {PixelLayout::bgra8, ColorModel::monochrome, TYPE_GRAY_8}, // of the levels that its table is made of
    {PixelLayout::cmyk8, ColorModel::cmyk, TYPE_CMYK_8},
    {PixelLayout::cmykInverted8, ColorModel::cmyk, TYPE_CMYK_8_REV},
};

TransformRef byLibrary(cmsHPROFILE from, const LayoutRow& row, cmsHPROFILE to, cmsUInt32Number flags) {
    const bool isGray = row.model == ColorModel::monochrome;
    if (row.layout == PixelLayout::bgra8 && !isGray) flags |= cmsFLAGS_COPY_ALPHA;
    Transform transform(cmsCreateTransform(from, row.format, to, TYPE_BGRA_8, renderingIntentOf(from),
                                           cmsFLAGS_BLACKPOINTCOMPENSATION | flags));
    if (!transform) return nullptr;
    return std::make_shared<ProfileTransform>(std::move(transform), isGray ? PixelLayout::gray8 : row.layout);
}

// Whether both give the same colours, to `steps` of 8 bits, by a sample that is the same each time.
bool agree(const ColorTransform& one, const ColorTransform& other, int steps) {
    constexpr std::size_t count = 4096;
    std::vector<std::uint8_t> colors(4 * count), first(4 * count), second(4 * count);
    std::minstd_rand random(1);
    for (std::uint8_t& value : colors)
        value = static_cast<std::uint8_t>(random() >> 8);
    one.convert(colors.data(), first.data(), count);
    other.convert(colors.data(), second.data(), count);
    return std::equal(first.begin(), first.end(), second.begin(),
                      [steps](int a, int b) { return std::abs(a - b) <= steps; });
}

// Matrix profiles have a fast way in the library that is exact. For tables the fast ways are taken where they prove to
// be close, else the library walks through the profiles for each pixel, which takes several times as long. A grey
// profile is asked for its 256 levels only.
TransformRef convert(cmsHPROFILE from, const ColorSpaceRef& source, const LayoutRow& row, cmsHPROFILE to,
                     const ColorSpaceRef& target) {
    if (row.model == ColorModel::rgb && cmsIsMatrixShaper(from) && cmsIsMatrixShaper(to))
        return byLibrary(from, row, to, 0);
    TransformRef exact = byLibrary(from, row, to, cmsFLAGS_NOOPTIMIZE);
    if (exact && row.model == ColorModel::monochrome) return std::make_shared<GrayTransform>(*exact, row.layout);
    if (!exact) return exact;
    if (row.model == ColorModel::rgb && !cmsIsMatrixShaper(to)) {
        auto light = LightRows::of(source, RowDepth::bits8);
        auto coder = LightCoder::to(target);
        if (!light || !coder) return exact;
        auto ours = std::make_shared<LightTransform>(std::move(*light), std::move(*coder));
        return agree(*ours, *exact, 2) ? ours : exact;
    }
    if (!target->isSRGB()) return exact;
    TransformRef ours = makeTableTransform(from, row.layout, row.format);
    return ours && agree(*ours, *exact, 1) ? ours : exact;
}

base::Result<TransformRef> makeTransform(const ColorSpaceRef& source, const LayoutRow& row,
                                         const ColorSpaceRef& target) {
    if (source->iccData().empty()) {
        auto fromSRGB = ColorTransform::between(ColorSpace::sRGB(), PixelLayout::bgra8, target);
        if (!fromSRGB) return base::failure(fromSRGB.error());
        return std::make_shared<FormulaTransform>(row.layout == PixelLayout::cmykInverted8, std::move(*fromSRGB));
    }
    const Profile from = openProfile(source->iccData().bytes);
    const Profile to = openProfile(target->iccData().bytes);
    TransformRef transform = from && to ? convert(from.get(), source, row, to.get(), target) : nullptr;
    if (!transform)
        return base::failure(base::cocoaErrorDomain, 0,
                             "the colour profile \"" + source->name() + "\" can't be converted");
    return transform;
}

struct TransformKey {
    ColorSpaceRef source;
    PixelLayout layout;
    ColorSpaceRef target;
    friend bool operator==(const TransformKey&, const TransformKey&) = default;
};

// Making a transform costs as much as converting a small picture.
RecentlyUsed<TransformKey, TransformRef>& madeTransforms() {
    static auto* made = new RecentlyUsed<TransformKey, TransformRef>(32); // outlives every user at exit
    return *made;
}

} // namespace

base::Result<TransformRef> ColorTransform::between(const ColorSpaceRef& source, PixelLayout layout,
                                                   const ColorSpaceRef& target) {
    const auto* row = std::find_if(std::begin(layoutRows), std::end(layoutRows), [&](const LayoutRow& candidate) {
        return source && candidate.layout == layout && candidate.model == source->model();
    });
    if (row == std::end(layoutRows) || !target || target->model() != ColorModel::rgb)
        return base::failure(base::cocoaErrorDomain, 0,
                             "pixels of this layout can't be converted between these colour spaces");
    if (layout == PixelLayout::bgra8 && (source == target || (source->isSRGB() && target->isSRGB()))) return nullptr;
    const TransformKey key{source, layout, target};
    if (TransformRef made = madeTransforms().find(key)) return made;
    auto transform = makeTransform(source, *row, target);
    if (transform) madeTransforms().add(key, *transform);
    return transform;
}

} // namespace platform::draw
