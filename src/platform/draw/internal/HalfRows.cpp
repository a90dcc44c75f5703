#include "HalfRows.h"

#include "DeepRows.h"
#include "FloatKernels.h"
#include "LightCoding.h"
#include "platform/draw/ColorRows.h"
#include "platform/draw/DeepPixels.h"

#include <algorithm>

namespace platform::draw {

namespace {

class DeepRows final : public RowReader {
public:
    DeepRows(ImageRef image, std::unique_ptr<DeepPixelReader> reader)
        : image_(std::move(image)), reader_(std::move(reader)), samples_(4 * static_cast<std::size_t>(image_->width())),
          floats_(samples_.size()) {
        format_ = {image_->width(), image_->height(), RowDepth::half, image_->isOpaque(), deepColorSpace(*image_)};
    }
    base::Result<void> readRow(std::uint8_t* row) override {
        if (auto read = withMemory([this] { return reader_->readRow(samples_.data()); }); !read) return read;
        for (std::size_t i = 0; i < samples_.size(); ++i)
            floats_[i] = static_cast<float>(samples_[i]) * (1.0f / 65535);
        halvesOfFloats(floats_.data(), floats_.size(), reinterpret_cast<std::uint16_t*>(row));
        return {};
    }

private:
    ImageRef image_;
    std::unique_ptr<DeepPixelReader> reader_;
    std::vector<std::uint16_t> samples_;
    std::vector<float> floats_;
};

/// The last few rows that a filter needs, in floats.
class HalfResampler final : public RowReader {
public:
    HalfResampler(RowReaderRef rows, const ResampledSize& size) : rows_(std::move(rows)) {
        const RowFormat& in = rows_->format();
        format_ = in;
        format_.width = size.visible.width;
        format_.height = size.visible.height;
        const auto weights = [](double length, double phase, int first, int count, int grid, double outputLength) {
            return axisWeights({0, length, outputLength, phase, first, count, grid}, {}, grid);
        };
        columns_ = weights(in.width, size.phaseX, size.visible.x, size.visible.width, in.width, size.width);
        lines_ = weights(in.height, size.phaseY, size.visible.y, size.visible.height, in.height, size.height);
        int end = 0;
        std::size_t most = 1;
        for (const AxisWeights::Position& position : lines_.positions) {
            end = std::max(end, position.start + position.count);
            most = std::max(most, static_cast<std::size_t>(end - position.start));
        }
        ring_.resize(most, std::vector<float>(4 * static_cast<std::size_t>(in.width)));
        halves_.resize(4 * static_cast<std::size_t>(in.width));
        column_.resize(halves_.size());
        floats_.resize(4 * static_cast<std::size_t>(format_.width));
    }

    base::Result<void> readRow(std::uint8_t* row) override {
        const AxisWeights::Position& position = lines_.positions[next_++];
        while (available_ < position.start + position.count) {
            if (auto read = rows_->readRow(reinterpret_cast<std::uint8_t*>(halves_.data())); !read) return read;
            if (available_ >= lines_.begin) floatsOfHalves(halves_.data(), halves_.size(), line(available_).data());
            ++available_;
        }
        taps_.clear();
        const std::size_t begin = 4 * static_cast<std::size_t>(columns_.begin);
        const std::size_t end = 4 * static_cast<std::size_t>(columns_.end);
        for (int i = 0; i < position.count; ++i)
            taps_.push_back(line(position.start + i).data() + begin);
        filterFloatColumns(taps_.data(), lines_.weights.data() + position.offset, position.count, end - begin,
                           column_.data() + begin);
        filterFloatRow4(column_.data(), columns_, floats_.data());
        if (!format_.opaque) limitAlpha();
        for (std::size_t i = 3; format_.opaque && i < floats_.size(); i += 4)
            floats_[i] = 1;
        halvesOfFloats(floats_.data(), floats_.size(), reinterpret_cast<std::uint16_t*>(row));
        return {};
    }

private:
    std::vector<float>& line(int index) { return ring_[static_cast<std::size_t>(index) % ring_.size()]; }

    /// Overshoots of the filter may leave a clear pixel with a colour, which has no meaning.
    void limitAlpha() {
        for (std::size_t i = 0; i < floats_.size(); i += 4) {
            floats_[i + 3] = std::clamp(floats_[i + 3], 0.0f, 1.0f);
            if (floats_[i + 3] == 0) std::fill_n(floats_.begin() + static_cast<std::ptrdiff_t>(i), 3, 0.0f);
        }
    }

    RowReaderRef rows_;
    AxisWeights columns_;
    AxisWeights lines_;
    std::vector<std::vector<float>> ring_;
    std::vector<std::uint16_t> halves_;
    std::vector<float> column_;
    std::vector<float> floats_;
    std::vector<const float*> taps_;
    std::size_t next_ = 0;
    int available_ = 0;
};

/// Half rows by way of linear light.
class ConvertedRows final : public RowReader {
public:
    ConvertedRows(RowReaderRef rows, const ColorSpaceRef& target, std::shared_ptr<const LightRows> light,
                  std::shared_ptr<const LightCoder> coder)
        : rows_(std::move(rows)), light_(std::move(light)), coder_(std::move(coder)) {
        format_ = rows_->format();
        format_.colorSpace = target;
        floats_.resize(4 * static_cast<std::size_t>(format_.width));
    }
    base::Result<void> readRow(std::uint8_t* row) override {
        if (auto read = rows_->readRow(row); !read) return read;
        const auto count = static_cast<std::size_t>(format_.width);
        light_->read(row, floats_.data(), count);
        coder_->code(floats_.data(), floats_.data(), count);
        storeHalves(floats_.data(), count, reinterpret_cast<std::uint16_t*>(row));
        return {};
    }

private:
    RowReaderRef rows_;
    std::shared_ptr<const LightRows> light_;
    std::shared_ptr<const LightCoder> coder_;
    std::vector<float> floats_;
};

} // namespace

base::Result<RowReaderRef> convertedHalfRows(RowReaderRef rows, const ColorSpaceRef& target) {
    const ColorSpaceRef& source = rows->format().colorSpace;
    if (source == target || (source->isSRGB() && target->isSRGB())) return rows;
    if (target->model() != ColorModel::rgb || !target->supportsOutput())
        return base::failure(base::cocoaErrorDomain, 0, "rows can't be converted to \"" + target->name() + "\"");
    auto light = LightRows::of(source, RowDepth::half);
    if (!light) return base::failure(light.error());
    auto coder = LightCoder::to(target);
    if (!coder) return base::failure(coder.error());
    return std::make_unique<ConvertedRows>(std::move(rows), target, std::move(*light), std::move(*coder));
}

base::Result<RowReaderRef> deepRows(const ImageRef& image) {
    auto reader = DeepPixelReader::open(*image);
    if (!reader) return base::failure(reader.error());
    if (!*reader) return nullptr;
    return std::make_unique<DeepRows>(image, std::move(*reader));
}

base::Result<RowReaderRef> resampledHalfRows(RowReaderRef rows, const ResampledSize& size) {
    return std::make_unique<HalfResampler>(std::move(rows), size);
}

void fadeHalf(std::uint16_t* pixels, float share, std::size_t count) {
    for (std::size_t i = 0; i < 4 * count; ++i)
        pixels[i] = halfOfFloat(floatOfHalf(pixels[i]) * share);
}

} // namespace platform::draw
