#include "internal/ColorProfile.h"
#include "internal/ColorTransform.h"
#include "internal/FloatKernels.h"
#include "internal/LightCoding.h"
#include "internal/PictureFormat.h"
#include "internal/PlainProfile.h"
#include "internal/RecentlyUsed.h"
#include "platform/draw/ColorRows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

namespace platform::draw {
namespace {

using CoderRef = std::shared_ptr<const LightCoder>;
using LightRef = std::shared_ptr<const LightRows>;
using RowsRef = std::shared_ptr<const ColorRows>;

/// So many pixels at a time stay in the near cache between the steps of a conversion.
constexpr std::size_t chunk = 256;

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
                const bool full = half[3] == fullHalf;
                if (!full) unpremultiply(half);
                rgba[0] = red[half[0]];
                rgba[1] = green[half[1]];
                rgba[2] = blue[half[2]];
                rgba[3] = full ? 1 : floatOfHalf(half[3]);
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
    if (!profile) return unconvertible(space);
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
    if (!transform) return unconvertible(space);
    return std::make_shared<ProfileRows>(LoadedRows(depth, {[](double value) { return value; }}), std::move(transform));
}

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
