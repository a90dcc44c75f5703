#include "FilterContext.h"

#include "base/MessageTemplate.h"
#include "internal/Node.h"
#include "internal/RowPlan.h"
#include "platform/draw/ColorRows.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <new>

namespace platform::filter {

using base::Rect;
using base::Result;
using draw::RowDepth;

namespace {

Result<void> checkedRect(const Rect& rect, int bitsPerComponent) {
    constexpr auto side = static_cast<double>(draw::maximumBitmapSide);
    constexpr auto area = static_cast<double>(draw::maximumBitmapPixels);
    constexpr double farthest = 1e9;
    const bool isWhole =
        rect == Rect{std::round(rect.x), std::round(rect.y), std::round(rect.width), std::round(rect.height)};
    const bool isNear = std::abs(rect.x) <= farthest && std::abs(rect.y) <= farthest;
    if (!isWhole || !isNear || !(rect.width >= 1 && rect.width <= side && rect.height >= 1 && rect.height <= side) ||
        rect.width * rect.height > area)
        return base::failure(base::cocoaErrorDomain, -1,
                             "The rectangle " + base::stringFromRect(rect) + " of an image can't be rendered.");
    if (bitsPerComponent != 8 && bitsPerComponent != 16)
        return base::failure(base::cocoaErrorDomain, -1,
                             base::message("Rasters have 8 or 16 bits a component, not %d.", bitsPerComponent));
    return {};
}

/// A rendering that is ready to run. Its rows are those of the page as its largest picture lies in its file, so that
/// this one streams by; each pixel is turned to its place when it is written.
struct Rendering {
    draw::RowReaderRef reader;
    std::shared_ptr<const draw::ColorRows> conversion;
    base::AffineTransform toPage; ///< From the reader's pixels to the page's, y down.
};

Result<Rendering> rendering(const FilterContext& context, const FilterImageRef& image, const Rect& rect, int bits,
                            RenderStatistics& statistics) {
    if (auto checked = checkedRect(rect, bits); !checked) return base::failure(std::move(checked.error()));
    if (!image) return base::failure(base::cocoaErrorDomain, -1, "There is no image to render.");
    const draw::ColorSpaceRef& output = context.outputSpace();
    if (!output->supportsOutput())
        return base::failure(base::cocoaErrorDomain, -1,
                             "Colors can't be converted into the color space " + output->name() + ".");

    // Filters end in sRGB. Without them all is in the output's colours from the start, unless it has but one.
    draw::ColorSpaceRef space = output->model() == draw::ColorModel::rgb ? output : nullptr;
    if (hasFilters(*image->node())) space = draw::ColorSpace::sRGB();
    const RowDepth depth = context.workingFormat() == WorkingFormat::rgba8 ? RowDepth::bits8 : RowDepth::half;
    const base::AffineTransform toDevice{1, 0, 0, -1, -rect.x, rect.maxY()};
    base::AffineTransform toPage = turnOfRows(*image->node(), toDevice);
    const Rect turned = toPage.inverted().apply({0, 0, rect.width, rect.height});
    toPage = toPage.after(base::AffineTransform::translation(turned.x, turned.y));
    auto reader =
        RowPlan(depth, statistics)
            .rows(*image->node(), toPage.inverted().after(toDevice), {0, 0, turned.width, turned.height}, space);
    if (!reader) return base::failure(std::move(reader.error()));
    auto conversion = draw::ColorRows::between((*reader)->format().colorSpace, depth, output, bits);
    if (!conversion) return base::failure(std::move(conversion.error()));
    return Rendering{std::move(*reader), std::move(*conversion), toPage};
}

template <std::size_t pixelBytes>
void scatter(const std::uint8_t* band, int rows, std::size_t width, std::uint8_t* target, std::ptrdiff_t alongRow,
             std::ptrdiff_t downRows) {
    for (std::size_t x = 0; x < width; ++x, target += alongRow) {
        std::uint8_t* pixel = target;
        for (int row = 0; row < rows; ++row, pixel += downRows)
            std::memcpy(pixel, band + (static_cast<std::size_t>(row) * width + x) * pixelBytes, pixelBytes);
    }
}

/// `pixels` is the page's first pixel.
Result<void> run(const Rendering& rendering, std::uint8_t* pixels, std::size_t bytesPerRow, int bitsPerComponent) {
    const draw::RowFormat& format = rendering.reader->format();
    const auto width = static_cast<std::size_t>(format.width);
    const std::size_t pixelBytes = 4 * static_cast<std::size_t>(bitsPerComponent) / 8;
    const base::AffineTransform& toPage = rendering.toPage;
    const auto offset = [&](double x, double y) {
        return static_cast<std::ptrdiff_t>(x) * static_cast<std::ptrdiff_t>(pixelBytes) +
               static_cast<std::ptrdiff_t>(y) * static_cast<std::ptrdiff_t>(bytesPerRow);
    };
    const std::ptrdiff_t alongRow = offset(toPage.a, toPage.b);
    const std::ptrdiff_t downRows = offset(toPage.c, toPage.d);
    const base::Point middle = toPage.apply(base::Point{0.5, 0.5});
    std::uint8_t* target = pixels + offset(std::floor(middle.x), std::floor(middle.y));

    const bool isStraight = alongRow == static_cast<std::ptrdiff_t>(pixelBytes);
    constexpr int bandRows = 16; // a turned band writes whole cache lines
    const int step = isStraight ? 1 : bandRows;
    std::vector<std::uint8_t> row(format.rowBytes());
    std::vector<std::uint8_t> band(isStraight ? 0 : width * pixelBytes * bandRows);
    for (int y = 0; y < format.height; y += step, target += step * downRows) {
        const int rows = std::min(step, format.height - y);
        for (int i = 0; i < rows; ++i) {
            if (auto read = rendering.reader->readRow(row.data()); !read) return read;
            std::uint8_t* samples =
                isStraight ? target : band.data() + static_cast<std::size_t>(i) * width * pixelBytes;
            rendering.conversion->convert(row.data(), samples, width);
        }
        if (isStraight) continue;
        if (bitsPerComponent == 8)
            scatter<4>(band.data(), rows, width, target, alongRow, downRows);
        else
            scatter<8>(band.data(), rows, width, target, alongRow, downRows);
    }
    return {};
}

std::size_t sampleBytes(double width, int bitsPerComponent) {
    return static_cast<std::size_t>(width) * 4 * static_cast<std::size_t>(bitsPerComponent) / 8;
}

} // namespace

FilterContext::FilterContext(draw::ColorSpaceRef outputSpace, WorkingFormat workingFormat)
    : outputSpace_(outputSpace ? std::move(outputSpace) : draw::ColorSpace::sRGB()), workingFormat_(workingFormat) {}

Result<draw::Raster> FilterContext::render(const FilterImageRef& image, const Rect& rect, int bitsPerComponent,
                                           RenderStatistics* statistics) const {
    RenderStatistics ignored;
    auto ready = rendering(*this, image, rect, bitsPerComponent, statistics ? *statistics : ignored);
    if (!ready) return base::failure(std::move(ready.error()));
    draw::Raster raster;
    raster.width = static_cast<int>(rect.width);
    raster.height = static_cast<int>(rect.height);
    raster.bytesPerRow = sampleBytes(rect.width, bitsPerComponent);
    raster.bitsPerComponent = bitsPerComponent;
    raster.alphaInfo =
        ready->reader->format().opaque ? draw::AlphaInfo::noneSkipLast : draw::AlphaInfo::premultipliedLast;
    raster.colorSpace = outputSpace_;
    try {
        raster.pixels =
            std::make_shared<std::vector<std::uint8_t>>(raster.bytesPerRow * static_cast<std::size_t>(raster.height));
    } catch (const std::bad_alloc&) {
        return base::failure(base::systemError(ENOMEM, "cannot render " + base::stringFromRect(rect)));
    }
    if (auto done = run(*ready, raster.pixels->data(), raster.bytesPerRow, bitsPerComponent); !done)
        return base::failure(std::move(done.error()));
    return raster;
}

Result<void> FilterContext::renderInto(std::uint8_t* pixels, std::size_t bytesPerRow, const FilterImageRef& image,
                                       const Rect& rect, int bitsPerComponent, RenderStatistics* statistics) const {
    RenderStatistics ignored;
    auto ready = rendering(*this, image, rect, bitsPerComponent, statistics ? *statistics : ignored);
    if (!ready) return base::failure(std::move(ready.error()));
    if (bytesPerRow < sampleBytes(rect.width, bitsPerComponent))
        return base::failure(base::cocoaErrorDomain, -1,
                             base::message("%lu bytes are too few for a row of %g pixels.", bytesPerRow, rect.width));
    return run(*ready, pixels, bytesPerRow, bitsPerComponent);
}

} // namespace platform::filter
