// The rows of an image that holds more than 8 bits: red, green, blue and alpha of 16 bits, premultiplied, in
// deepColorSpace(). An object of one thread.
#pragma once

#include "DeepTransform.h"
#include "PixelSource.h"
#include "platform/draw/Image.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace platform::draw {

class DeepPixelReader {
public:
    /// Null for an image that has no more than 8 bits. The image must outlive the reader.
    static base::Result<std::unique_ptr<DeepPixelReader>> open(const Image& image);
    /// The next row: 4 x image.width() samples.
    base::Result<void> readRow(std::uint16_t* rgba);

private:
    DeepPixelReader(const Image& image, std::unique_ptr<DeepReader> reader,
                    std::shared_ptr<const DeepTransform> transform);

    const Image& image_;
    std::unique_ptr<DeepReader> reader_;
    std::shared_ptr<const DeepTransform> transform_;
    std::vector<std::uint16_t> row_;
    std::vector<std::uint16_t> colors_;
    int next_ = 0; // of the source's rows
};

} // namespace platform::draw
