#include "ColorProfile.h"
#include "ColorTransform.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <mutex>

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
    explicit GrayTransform(const ColorTransform& anyway) {
        std::array<std::uint8_t, 256> levels;
        for (int level = 0; level < 256; ++level)
            levels[level] = static_cast<std::uint8_t>(level);
        anyway.convert(levels.data(), table_[0].data(), levels.size());
    }
    void convert(const std::uint8_t* source, std::uint8_t* target, std::size_t count) const override {
        for (std::size_t pixel = 0; pixel < count; ++pixel)
            std::memcpy(target + 4 * pixel, table_[source[pixel]].data(), 4);
    }

private:
    std::array<std::array<std::uint8_t, 4>, 256> table_;
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
    {PixelLayout::cmyk8, ColorModel::cmyk, TYPE_CMYK_8},
    {PixelLayout::cmykInverted8, ColorModel::cmyk, TYPE_CMYK_8_REV},
};

base::Result<TransformRef> makeTransform(const ColorSpaceRef& source, const LayoutRow& row,
                                         const ColorSpaceRef& target) {
    if (source->iccData().empty()) {
        auto fromSRGB = ColorTransform::between(ColorSpace::sRGB(), PixelLayout::bgra8, target);
        if (!fromSRGB) return base::failure(fromSRGB.error());
        return std::make_shared<FormulaTransform>(row.layout == PixelLayout::cmykInverted8, std::move(*fromSRGB));
    }
    const Profile from = openProfile(source->iccData().bytes);
    const Profile to = openProfile(target->iccData().bytes);
    const cmsUInt32Number alpha = row.layout == PixelLayout::bgra8 ? cmsFLAGS_COPY_ALPHA : 0;
    Transform transform(from && to ? cmsCreateTransform(from.get(), row.format, to.get(), TYPE_BGRA_8,
                                                        INTENT_PERCEPTUAL, cmsFLAGS_BLACKPOINTCOMPENSATION | alpha)
                                   : nullptr);
    if (!transform)
        return base::failure(base::cocoaErrorDomain, 0,
                             "the colour profile \"" + source->name() + "\" can't be converted");
    auto byProfile = std::make_shared<ProfileTransform>(std::move(transform), row.layout);
    if (row.layout == PixelLayout::gray8) return std::make_shared<GrayTransform>(*byProfile);
    return byProfile;
}

// The transforms made, the last used in front. Making one costs as much as converting a small picture.
class TransformCache {
public:
    static TransformCache& shared() {
        static auto* cache = new TransformCache; // outlives every user at exit
        return *cache;
    }
    TransformRef find(const ColorSpaceRef& source, PixelLayout layout, const ColorSpaceRef& target) {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
            return entry.source == source && entry.layout == layout && entry.target == target;
        });
        if (found == entries_.end()) return nullptr;
        entries_.splice(entries_.begin(), entries_, found);
        return found->transform;
    }
    void add(const ColorSpaceRef& source, PixelLayout layout, const ColorSpaceRef& target, TransformRef transform) {
        constexpr std::size_t limit = 32;
        const std::lock_guard lock(mutex_);
        entries_.push_front({source, layout, target, std::move(transform)});
        if (entries_.size() > limit) entries_.pop_back();
    }

private:
    struct Entry {
        ColorSpaceRef source;
        PixelLayout layout;
        ColorSpaceRef target;
        TransformRef transform;
    };
    std::mutex mutex_;
    std::list<Entry> entries_;
};

} // namespace

base::Result<TransformRef> ColorTransform::between(const ColorSpaceRef& source, PixelLayout layout,
                                                   const ColorSpaceRef& target) {
    const auto* row = std::find_if(std::begin(layoutRows), std::end(layoutRows),
                                   [&](const LayoutRow& candidate) { return candidate.layout == layout; });
    if (!source || !target || row->model != source->model() || target->model() != ColorModel::rgb)
        return base::failure(base::cocoaErrorDomain, 0,
                             "pixels of this layout can't be converted between these colour spaces");
    if (layout == PixelLayout::bgra8 && (source == target || (source->isSRGB() && target->isSRGB()))) return nullptr;
    if (TransformRef made = TransformCache::shared().find(source, layout, target)) return made;
    auto transform = makeTransform(source, *row, target);
    if (transform) TransformCache::shared().add(source, layout, target, *transform);
    return transform;
}

} // namespace platform::draw
