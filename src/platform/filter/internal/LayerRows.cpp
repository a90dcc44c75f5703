#include "LayerRows.h"

#include "platform/draw/ColorRows.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace platform::filter {

using draw::RowDepth;

namespace {

/// Pixels of bytes, blue first.
struct BytePixels {
    using Sample = std::uint8_t;
    static constexpr Sample full = 255;

    static std::array<Sample, 4> pixel(const std::array<float, 4>& rgba) {
        const auto sample = [](float value) {
            return static_cast<Sample>(std::lround(std::clamp(value, 0.0F, 1.0F) * 255));
        };
        return {sample(rgba[2]), sample(rgba[1]), sample(rgba[0]), sample(rgba[3])};
    }
    static Sample scaled(Sample value, double by) { return static_cast<Sample>(std::lround(value * by)); }
    static Sample over(Sample top, Sample bottom, Sample alpha) {
        const unsigned product = bottom * (255U - alpha) + 128;
        return static_cast<Sample>(std::min(255U, top + ((product + (product >> 8)) >> 8)));
    }
};

struct HalfPixels {
    using Sample = std::uint16_t;
    static constexpr Sample full = 0x3C00;

    static std::array<Sample, 4> pixel(const std::array<float, 4>& rgba) {
        std::array<Sample, 4> pixel{};
        std::ranges::transform(rgba, pixel.begin(), draw::halfOfFloat);
        return pixel;
    }
    static Sample scaled(Sample value, double by) {
        return draw::halfOfFloat(draw::floatOfHalf(value) * static_cast<float>(by));
    }
    static Sample over(Sample top, Sample bottom, Sample alpha) {
        return draw::halfOfFloat(draw::floatOfHalf(top) + draw::floatOfHalf(bottom) * (1 - draw::floatOfHalf(alpha)));
    }
};

template <class Pixels>
class LayerRows final : public draw::RowReader {
public:
    using Sample = typename Pixels::Sample;

    LayerRows(std::vector<Layer> layers, const draw::RowFormat& format) : layers_(std::move(layers)) {
        format_ = format;
        const PixelRect all{0, 0, format.width, format.height};
        format_.opaque =
            std::ranges::any_of(layers_, [&](const Layer& layer) { return layer.isOpaque() && layer.rect == all; });
        for (const Layer& layer : layers_)
            opaque_.push_back(layer.isOpaque());
        buffer_.resize(4 * static_cast<std::size_t>(format.width));
    }

    base::Result<void> readRow(std::uint8_t* row) override {
        auto* samples = reinterpret_cast<Sample*>(row);
        std::memset(row, 0, format_.rowBytes());
        for (std::size_t i = 0; i < layers_.size(); ++i) {
            Layer& layer = layers_[i];
            if (next_ < layer.rect.top || next_ >= layer.rect.bottom) continue;
            Sample* target = samples + std::ptrdiff_t{4} * layer.rect.left;
            // On an empty ground, or when nothing shines through, the layer's own rows are the result.
            const bool isPlain = i == 0 || opaque_[i];
            Sample* own = isPlain ? target : buffer_.data();
            if (auto read = readLayer(layer, own); !read) return read;
            if (!isPlain) blend(own, target, static_cast<std::size_t>(layer.rect.width()));
        }
        ++next_;
        return {};
    }

private:
    base::Result<void> readLayer(Layer& layer, Sample* row) {
        const auto width = static_cast<std::size_t>(layer.rect.width());
        if (layer.reader) {
            if (auto read = layer.reader->readRow(reinterpret_cast<std::uint8_t*>(row)); !read) return read;
        } else {
            const auto pixel = Pixels::pixel(layer.color);
            for (std::size_t x = 0; x < width; ++x)
                std::copy(pixel.begin(), pixel.end(), row + 4 * x);
        }
        scale(row, layer.firstColumn);
        scale(row + 4 * (width - 1), layer.lastColumn);
        const bool isFirst = next_ == layer.rect.top;
        const bool isLast = next_ == layer.rect.bottom - 1;
        const double coverage = (isFirst ? layer.firstRow : 1) * (isLast ? layer.lastRow : 1);
        if (coverage != 1)
            for (std::size_t x = 0; x < width; ++x)
                scale(row + 4 * x, coverage);
        if (isLast) layer.reader.reset();
        return {};
    }

    static void scale(Sample* pixel, double by) {
        if (by == 1) return;
        for (int c = 0; c < 4; ++c)
            pixel[c] = Pixels::scaled(pixel[c], by);
    }

    static void blend(const Sample* top, Sample* bottom, std::size_t count) {
        for (std::size_t x = 0; x < count; ++x, top += 4, bottom += 4) {
            const Sample alpha = top[3];
            if (alpha == Pixels::full)
                std::copy(top, top + 4, bottom);
            else if (alpha != 0)
                for (int c = 0; c < 4; ++c)
                    bottom[c] = Pixels::over(top[c], bottom[c], alpha);
        }
    }

    std::vector<Layer> layers_;
    std::vector<bool> opaque_;
    std::vector<Sample> buffer_;
    int next_ = 0;
};

} // namespace

draw::RowReaderRef layerRows(std::vector<Layer> layers, int width, int height, RowDepth depth,
                             const draw::ColorSpaceRef& colorSpace) {
    const draw::RowFormat format{width, height, depth, false, colorSpace};
    if (depth == RowDepth::bits8) return std::make_unique<LayerRows<BytePixels>>(std::move(layers), format);
    return std::make_unique<LayerRows<HalfPixels>>(std::move(layers), format);
}

} // namespace platform::filter
