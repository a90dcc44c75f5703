#include "DeepRows.h"

#include "platform/draw/ColorSpace.h"

namespace platform::draw {

namespace {

/// A row of the reader's samples as premultiplied RGBA.
void toPremultipliedRGBA(const DeepFormat& format, const std::uint16_t* row, const DeepTransform* transform,
                         std::size_t count, std::uint16_t* colors, std::uint16_t* rgba) {
    const auto colorCount = static_cast<std::size_t>(format.colors);
    const std::size_t step = format.samplesPerPixel();
    if (transform) {
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t k = 0; k < colorCount; ++k) {
                const std::uint16_t value = row[step * i + k];
                const bool divide = format.hasAlpha && format.premultiplied;
                rgba[colorCount * i + k] = divide ? unpremultiplied(value, row[step * i + colorCount]) : value;
            }
        transform->convert(rgba, colors, count);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint16_t alpha = format.hasAlpha ? row[step * i + colorCount] : 65535;
        const std::uint16_t* color = transform ? colors + 3 * i : row + step * i;
        const bool multiply = format.hasAlpha && (transform || !format.premultiplied);
        for (std::size_t k = 0; k < 3; ++k)
            rgba[4 * i + k] = multiply ? premultiplied(color[k], alpha) : color[k];
        rgba[4 * i + 3] = alpha;
    }
}

} // namespace

base::Result<std::unique_ptr<DeepPixelReader>> DeepPixelReader::open(const Image& image) {
    auto reader = image.source().openDeep();
    if (!reader) return base::failure(reader.error());
    if (!*reader) return nullptr;
    std::shared_ptr<const DeepTransform> transform;
    if (image.colorSpace()->model() != ColorModel::rgb) {
        auto made = DeepTransform::toSRGB(image.colorSpace());
        if (!made) return base::failure(made.error());
        transform = std::move(*made);
    }
    return std::unique_ptr<DeepPixelReader>(new DeepPixelReader(image, std::move(*reader), std::move(transform)));
}

DeepPixelReader::DeepPixelReader(const Image& image, std::unique_ptr<DeepReader> reader,
                                 std::shared_ptr<const DeepTransform> transform)
    : image_(image), reader_(std::move(reader)), transform_(std::move(transform)),
      row_(static_cast<std::size_t>(image.source().width()) * reader_->format().samplesPerPixel()),
      colors_(transform_ ? 3 * static_cast<std::size_t>(image.width()) : 0) {}

base::Result<void> DeepPixelReader::readRow(std::uint16_t* rgba) {
    for (; next_ < image_.y(); ++next_)
        if (auto read = reader_->readRow(row_.data()); !read) return read;
    ++next_;
    if (auto read = reader_->readRow(row_.data()); !read) return read;
    const DeepFormat& format = reader_->format();
    toPremultipliedRGBA(format, row_.data() + static_cast<std::size_t>(image_.x()) * format.samplesPerPixel(),
                        transform_.get(), static_cast<std::size_t>(image_.width()), colors_.data(), rgba);
    return {};
}

} // namespace platform::draw
