#include "FilterRows.h"

#include "ColorKernels.h"
#include "platform/draw/ColorRows.h"

#include <algorithm>

namespace platform::filter {

using base::Result;
using draw::RowReaderRef;

PixelRect PixelRect::intersection(const PixelRect& other) const {
    return {std::max(left, other.left), std::max(top, other.top), std::min(right, other.right),
            std::min(bottom, other.bottom)};
}

PixelRect pixelsNeeded(const ColorSteps& steps, const PixelRect& wanted, const PixelRect& bounds) {
    PixelRect needed = wanted;
    for (const ColorStep& step : steps)
        if (const auto* sharpen = std::get_if<SharpenStep>(&step))
            needed = needed.grown(sharpen->reach()).intersection(bounds);
    return needed;
}

namespace {

/// Rows of floats in linear light, from the top, each once.
class LightReader {
public:
    virtual ~LightReader() = default;
    /// Writes 4 x width floats; the buffer has kernelSlackPixels more.
    virtual Result<void> readRow(float* rgba) = 0;
    const PixelRect& rect() const { return rect_; }
    bool isOpaque() const { return opaque_; }

protected:
    PixelRect rect_;
    bool opaque_ = false;
};
using LightReaderRef = std::unique_ptr<LightReader>;

std::size_t floatsOf(int width) {
    return 4 * (static_cast<std::size_t>(width) + kernelSlackPixels);
}

class SourceReader final : public LightReader {
public:
    SourceReader(RowReaderRef rows, std::shared_ptr<const draw::LightRows> light, const PixelRect& rect)
        : rows_(std::move(rows)), light_(std::move(light)), row_(rows_->format().rowBytes()) {
        rect_ = rect;
        opaque_ = rows_->format().opaque;
    }

    Result<void> readRow(float* rgba) override {
        if (auto read = rows_->readRow(row_.data()); !read) return read;
        light_->read(row_.data(), rgba, static_cast<std::size_t>(rect_.width()));
        return {};
    }

private:
    RowReaderRef rows_;
    std::shared_ptr<const draw::LightRows> light_;
    std::vector<std::uint8_t> row_;
};

/// Matrices and powers, in place.
class PointReader final : public LightReader {
public:
    PointReader(LightReaderRef source, const ColorStep& step) : source_(std::move(source)), step_(step) {
        rect_ = source_->rect();
        const auto* matrix = std::get_if<MatrixStep>(&step_);
        opaque_ = source_->isOpaque() && !(matrix && matrix->touchesAlpha());
    }

    Result<void> readRow(float* rgba) override {
        if (auto read = source_->readRow(rgba); !read) return read;
        const auto width = static_cast<std::size_t>(rect_.width());
        if (const auto* matrix = std::get_if<MatrixStep>(&step_))
            applyMatrix(*matrix, rgba, width);
        else
            applyPower(static_cast<float>(std::get<PowerStep>(step_).power), rgba, width);
        return {};
    }

private:
    LightReaderRef source_;
    ColorStep step_;
};

/// Weighs neighbours by their alpha, and knows none outside of the source: an edge has no seam.
class SharpenReader final : public LightReader {
public:
    SharpenReader(LightReaderRef source, const SharpenStep& step, const PixelRect& wanted)
        : source_(std::move(source)), sharpness_(static_cast<float>(step.sharpness)), reach_(step.reach()),
          weights_(step.weights()), next_(wanted.top), nextOfSource_(source_->rect().top) {
        rect_ = wanted;
        opaque_ = source_->isOpaque();
        scales_.assign(width() + kernelSlackPixels, 1);
        for (int x = rect_.left; x < rect_.right; ++x)
            scales_[static_cast<std::size_t>(x - rect_.left)] =
                1 / weightInside(x, source_->rect().left, source_->rect().right);
        padded_.assign(width() + weights_.size() + kernelSlackPixels, 0);
        columns_.resize(planes(), std::vector<float>(width() + kernelSlackPixels));
        ring_.resize(static_cast<std::size_t>(std::min(2 * reach_ + 1, source_->rect().height())));
        for (Row& row : ring_) {
            row.rgba.resize(floatsOf(source_->rect().width()));
            row.blurred = columns_;
        }
    }

    Result<void> readRow(float* rgba) override {
        const PixelRect& all = source_->rect();
        const int first = std::max(next_ - reach_, all.top);
        const int end = std::min(next_ + reach_ + 1, all.bottom);
        for (; nextOfSource_ < end; ++nextOfSource_)
            if (auto read = readSource(); !read) return read;

        const float scale = 1 / weightInside(next_, all.top, all.bottom);
        std::vector<float> weights;
        for (int y = first; y < end; ++y)
            weights.push_back(scale * weights_[static_cast<std::size_t>(y - next_ + reach_)]);
        for (std::size_t plane = 0; plane < planes(); ++plane) {
            std::vector<const float*> rows;
            for (int y = first; y < end; ++y)
                rows.push_back(rowAt(y).blurred[plane].data());
            blurColumns(rows.data(), weights.data(), rows.size(), columns_[plane].data(), width());
        }

        const float* in = rowAt(next_).rgba.data() + std::ptrdiff_t{4} * (rect_.left - all.left);
        const float* mean = columns_[0].data();
        const float* alpha = opaque_ ? nullptr : columns_[1].data();
        for (std::size_t x = 0; x < width(); ++x, in += 4, rgba += 4) {
            const float around = !alpha ? mean[x] : alpha[x] > 0 ? mean[x] / alpha[x] : luminance(in);
            const float change = sharpness_ * (luminance(in) - around);
            for (int c = 0; c < 3; ++c)
                rgba[c] = in[c] + change;
            rgba[3] = in[3];
        }
        ++next_;
        return {};
    }

private:
    struct Row {
        std::vector<float> rgba;
        std::vector<std::vector<float>> blurred; // luminance by alpha, and alpha unless opaque, along the row
    };

    std::size_t width() const { return static_cast<std::size_t>(rect_.width()); }
    std::size_t planes() const { return opaque_ ? 1 : 2; }
    Row& rowAt(int y) { return ring_[static_cast<std::size_t>(y - source_->rect().top) % ring_.size()]; }

    static float luminance(const float* rgba) {
        return static_cast<float>(luminanceWeights[0]) * rgba[0] + static_cast<float>(luminanceWeights[1]) * rgba[1] +
               static_cast<float>(luminanceWeights[2]) * rgba[2];
    }

    /// The sum of the weights about `at` whose places are there.
    float weightInside(int at, int begin, int end) const {
        float sum = 0;
        for (int place = std::max(at - reach_, begin); place < std::min(at + reach_ + 1, end); ++place)
            sum += weights_[static_cast<std::size_t>(place - at + reach_)];
        return sum;
    }

    Result<void> readSource() {
        Row& row = rowAt(nextOfSource_);
        if (auto read = source_->readRow(row.rgba.data()); !read) return read;
        const PixelRect& all = source_->rect();
        const int begin = std::max(all.left, rect_.left - reach_);
        const int end = std::min(all.right, rect_.right + reach_);
        const float* in = row.rgba.data() + std::ptrdiff_t{4} * (begin - all.left);
        float* out = padded_.data() + (begin - (rect_.left - reach_));
        for (std::size_t plane = 0; plane < planes(); ++plane) {
            for (int x = 0; x < end - begin; ++x)
                out[x] =
                    plane == 1 ? in[4 * x + 3] : luminance(in + std::ptrdiff_t{4} * x) * (opaque_ ? 1 : in[4 * x + 3]);
            blurRow(padded_.data(), weights_.data(), weights_.size(), scales_.data(), row.blurred[plane].data(),
                    width());
        }
        return {};
    }

    LightReaderRef source_;
    float sharpness_;
    int reach_;
    std::vector<float> weights_;
    std::vector<float> scales_; // what the missing weights at the sides are made up by
    std::vector<float> padded_; // one plane of a row with zeros where there is nothing
    std::vector<std::vector<float>> columns_;
    std::vector<Row> ring_;
    int next_;
    int nextOfSource_;
};

class FilteredRows final : public draw::RowReader {
public:
    FilteredRows(LightReaderRef light, draw::RowDepth depth)
        : light_(std::move(light)), row_(floatsOf(light_->rect().width())) {
        format_ = {light_->rect().width(), light_->rect().height(), depth, light_->isOpaque(),
                   draw::ColorSpace::sRGB()};
    }

    Result<void> readRow(std::uint8_t* row) override {
        if (auto read = light_->readRow(row_.data()); !read) return read;
        draw::LightRows::write(row_.data(), format_.depth, row, static_cast<std::size_t>(format_.width));
        return {};
    }

private:
    LightReaderRef light_;
    std::vector<float> row_;
};

} // namespace

Result<RowReaderRef> filteredRows(RowReaderRef source, const ColorSteps& steps, const PixelRect& wanted,
                                  const PixelRect& bounds) {
    const draw::RowFormat format = source->format();
    auto light = draw::LightRows::of(format.colorSpace, format.depth);
    if (!light) return base::failure(std::move(light.error()));
    LightReaderRef reader =
        std::make_unique<SourceReader>(std::move(source), std::move(*light), pixelsNeeded(steps, wanted, bounds));
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (const auto* sharpen = std::get_if<SharpenStep>(&steps[i])) {
            const ColorSteps rest(steps.begin() + static_cast<std::ptrdiff_t>(i) + 1, steps.end());
            reader = std::make_unique<SharpenReader>(std::move(reader), *sharpen, pixelsNeeded(rest, wanted, bounds));
        } else {
            reader = std::make_unique<PointReader>(std::move(reader), steps[i]);
        }
    }
    return std::make_unique<FilteredRows>(std::move(reader), format.depth);
}

} // namespace platform::filter
