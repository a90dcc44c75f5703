#include "platform/draw/ScaledRows.h"

#include "internal/Blit.h"
#include "internal/ColorTransform.h"
#include "internal/HalfRows.h"
#include "internal/PictureRows.h"
#include "internal/Resampler.h"
#include "platform/draw/DeepPixels.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

namespace platform::draw {

namespace {

/// The size and the wanted part of a placed picture, in its own sense of rows and columns.
ResampledSize sizeOf(const PlacedPicture& placed) {
    const PlacedAxis& columns = placed.columns();
    const PlacedAxis& rows = placed.rows();
    return {columns.length(),
            rows.length(),
            columns.phase(),
            rows.phase(),
            {columns.first(), rows.first(), columns.count(), rows.count()}};
}

/// An image's rows at a size, opened when the first of them is wanted.
class ImageRows final : public RowReader {
public:
    ImageRows(ImageRef image, const ResampledSize& size, RowDepth depth, const ColorSpaceRef& colorSpace,
              Quality quality)
        : image_(std::move(image)), drawing_(Drawing::of(*image_, size, quality, colorSpace, depth)) {
        format_ = {size.visible.width, size.visible.height, depth, image_->isOpaque(), colorSpace};
    }
    base::Result<void> readRow(std::uint8_t* row) override {
        return withMemory([&]() -> base::Result<void> {
            if (!rows_) {
                auto rows = goesByRows(drawing_) ? openSharedPictureRows(drawing_) : openPictureRows(drawing_);
                if (!rows) return base::failure(rows.error());
                rows_ = std::move(*rows);
            }
            return rows_->readRow(row);
        });
    }

private:
    ImageRef image_;
    Drawing drawing_;
    std::unique_ptr<PictureRows> rows_;
};

/// Part of what another reader delivers, pixel for pixel.
class PartOfRows final : public RowReader {
public:
    PartOfRows(RowReaderRef rows, const PixelRect& part)
        : rows_(std::move(rows)), left_(bytesPerPixel(rows_->format().depth) * static_cast<std::size_t>(part.x)),
          top_(part.y), whole_(rows_->format().rowBytes()) {
        format_ = rows_->format();
        format_.width = part.width;
        format_.height = part.height;
        buffer_.resize(format_.rowBytes() == whole_ ? 0 : whole_ / sizeof(std::uint64_t) + 1);
    }
    base::Result<void> readRow(std::uint8_t* row) override {
        // The rows above go to the target, where the wanted one follows them.
        std::uint8_t* target = buffer_.empty() ? row : reinterpret_cast<std::uint8_t*>(buffer_.data());
        for (; top_ >= 0; --top_)
            if (auto read = rows_->readRow(target); !read) return read;
        top_ = 0;
        if (target != row) std::memcpy(row, target + left_, format_.rowBytes());
        return {};
    }

private:
    RowReaderRef rows_;
    std::size_t left_;
    int top_;
    std::size_t whole_;
    std::vector<std::uint64_t> buffer_; // aligned for half pixels
};

/// Rows of a reader as a decoder's.
class BandsOfRows final : public BandReader {
public:
    explicit BandsOfRows(RowReaderRef rows) : rows_(std::move(rows)) {
        const RowFormat& format = rows_->format();
        format_ =
            ReadingFormat::ofRows(format.opaque ? SampleKind::bgrx : SampleKind::bgra, format.width, format.height);
    }
    base::Result<void> readBand(std::uint8_t** const* rows) override { return rows_->readRow(rows[0][0]); }

private:
    RowReaderRef rows_;
};

/// Rows of 8 bits at a size.
class ResampledRows final : public RowReader {
public:
    static base::Result<RowReaderRef> create(RowReaderRef rows, const ResampledSize& size) {
        auto reader = std::make_unique<ResampledRows>();
        const ColorSpaceRef space = rows->format().colorSpace;
        reader->format_ = {size.visible.width, size.visible.height, RowDepth::bits8, rows->format().opaque, space};
        auto resampler = Resampler::create(std::make_unique<BandsOfRows>(std::move(rows)), size, space, space);
        if (!resampler) return base::failure(resampler.error());
        reader->resampler_ = std::move(*resampler);
        return reader;
    }
    base::Result<void> readRow(std::uint8_t* row) override { return resampler_->readRow(row); }

private:
    std::unique_ptr<Resampler> resampler_;
};

unsigned factorOf(double share) {
    return static_cast<unsigned>(std::lround(share * 255));
}

void fade8(std::uint8_t* pixels, double share, std::size_t count) {
    const unsigned factor = factorOf(share);
    for (std::size_t i = 0; i < 4 * count; ++i) {
        const unsigned value = pixels[i] * factor + 128;
        pixels[i] = static_cast<std::uint8_t>((value + (value >> 8)) >> 8);
    }
}

void fade(RowDepth depth, std::uint8_t* pixels, double share, std::size_t count) {
    if (depth == RowDepth::bits8)
        fade8(pixels, share, count);
    else
        fadeHalf(reinterpret_cast<std::uint16_t*>(pixels), static_cast<float>(share), count);
}

/// Rows in their place among transparent ones, the edges by their coverage. The rows are those of the placed part.
class PlacedRows final : public RowReader {
public:
    PlacedRows(RowReaderRef rows, const PlacedAxis& x, const PlacedAxis& y, const PixelRect& visible)
        : rows_(std::move(rows)), x_(x), y_(y), row_(visible.y),
          left_(bytesPerPixel(rows_->format().depth) * static_cast<std::size_t>(x.clipLow - visible.x)) {
        format_ = rows_->format();
        format_.width = visible.width;
        format_.height = visible.height;
        const bool covers =
            x.from <= visible.x && x.to >= visible.maxX() && y.from <= visible.y && y.to >= visible.maxY();
        format_.opaque = format_.opaque && covers;
    }

    base::Result<void> readRow(std::uint8_t* row) override {
        const int y = row_++;
        const std::size_t bytes = rows_->format().rowBytes();
        if (y < y_.clipLow || y >= y_.clipHigh) {
            std::memset(row, 0, format_.rowBytes());
            return {};
        }
        std::memset(row, 0, left_);
        std::memset(row + left_ + bytes, 0, format_.rowBytes() - left_ - bytes);
        std::uint8_t* pixels = row + left_;
        if (auto read = rows_->readRow(pixels); !read) return read;
        if (x_.reversed) mirror(pixels);
        const double share = y_.coverage(y);
        const auto count = static_cast<std::size_t>(x_.count());
        const double first = x_.coverage(x_.clipLow);
        const double last = x_.coverage(x_.clipHigh - 1);
        std::size_t begin = 0;
        std::size_t end = count;
        const std::size_t pixel = bytesPerPixel(format_.depth);
        if (first < 1) fade(format_.depth, pixels, share * first, 1), begin = 1;
        if (last < 1 && end - 1 >= begin) --end, fade(format_.depth, pixels + pixel * end, share * last, 1);
        if (share < 1 && end > begin) fade(format_.depth, pixels + pixel * begin, share, end - begin);
        return {};
    }

private:
    void mirror(std::uint8_t* pixels) const {
        const auto count = static_cast<std::size_t>(x_.count());
        if (format_.depth == RowDepth::bits8) {
            auto* first = reinterpret_cast<std::uint32_t*>(pixels);
            std::reverse(first, first + count);
            return;
        }
        for (std::size_t i = 0; i < count / 2; ++i)
            std::swap_ranges(pixels + 8 * i, pixels + 8 * i + 8, pixels + 8 * (count - 1 - i));
    }

    RowReaderRef rows_;
    PlacedAxis x_;
    PlacedAxis y_;
    int row_;
    std::size_t left_;
};

/// All that another reader delivers, kept in memory and read in another order: turned, or from below.
class TurnedRows final : public RowReader {
public:
    /// `columnsReversed` and `rowsReversed` in the sense of the rows that are kept.
    TurnedRows(RowReaderRef rows, bool turned, bool columnsReversed, bool rowsReversed)
        : rows_(std::move(rows)), turned_(turned), columnsReversed_(columnsReversed), rowsReversed_(rowsReversed) {
        format_ = rows_->format();
        if (turned) std::swap(format_.width, format_.height);
    }

    base::Result<void> readRow(std::uint8_t* row) override {
        if (rows_)
            if (auto kept = withMemory([this] { return keep(); }); !kept) return kept;
        if (format_.depth == RowDepth::bits8)
            copyRow<std::uint32_t>(row);
        else
            copyRow<std::uint64_t>(row);
        ++next_;
        return {};
    }

private:
    base::Result<void> keep() {
        const std::size_t step = rows_->format().rowBytes();
        width_ = static_cast<std::size_t>(rows_->format().width);
        height_ = static_cast<std::size_t>(rows_->format().height);
        kept_.reset(new std::uint64_t[(step * height_ + 7) / 8]);
        auto* bytes = reinterpret_cast<std::uint8_t*>(kept_.get());
        for (std::size_t y = 0; y < height_; ++y)
            if (auto read = rows_->readRow(bytes + y * step); !read) return read;
        rows_.reset();
        return {};
    }

    template <class Pixel>
    void copyRow(std::uint8_t* row) {
        const auto* pixels = reinterpret_cast<const Pixel*>(kept_.get());
        auto* out = reinterpret_cast<Pixel*>(row);
        const auto y = static_cast<std::size_t>(next_);
        if (!turned_) {
            const Pixel* kept = pixels + width_ * (rowsReversed_ ? height_ - 1 - y : y);
            if (columnsReversed_)
                std::reverse_copy(kept, kept + width_, out);
            else
                std::copy(kept, kept + width_, out);
            return;
        }
        // A row down the columns of what is kept touches as many lines of memory as it has pixels: several at a time.
        const std::size_t phase = y % bandRows;
        if (phase == 0) fillBand<Pixel>(pixels, y);
        std::memcpy(out, reinterpret_cast<const Pixel*>(band_.data()) + phase * height_, height_ * sizeof(Pixel));
    }

    template <class Pixel>
    void fillBand(const Pixel* pixels, std::size_t first) {
        band_.resize(bandRows * height_); // of the larger pixel
        auto* band = reinterpret_cast<Pixel*>(band_.data());
        const std::size_t rows = std::min(bandRows, width_ - first);
        // In squares: the lines that one column touches serve the next ones too, and each row is written on end.
        for (std::size_t begin = 0; begin < height_; begin += bandRows) {
            const std::size_t end = std::min(begin + bandRows, height_);
            for (std::size_t row = 0; row < rows; ++row) {
                const Pixel* column = pixels + (columnsReversed_ ? width_ - 1 - first - row : first + row);
                for (std::size_t i = begin; i < end; ++i)
                    band[row * height_ + i] = column[width_ * (rowsReversed_ ? height_ - 1 - i : i)];
            }
        }
    }

    static constexpr std::size_t bandRows = 16;
    RowReaderRef rows_; // until they are kept
    bool turned_;
    bool columnsReversed_;
    bool rowsReversed_;
    std::unique_ptr<std::uint64_t[]> kept_; // not cleared: pages come into being as they are filled
    std::size_t width_ = 0;
    std::size_t height_ = 0;
    std::vector<std::uint64_t> band_;
    int next_ = 0;
};

/// What is wanted of it lies outside of the picture.
class NoRows final : public RowReader {
public:
    explicit NoRows(const RowFormat& format) {
        format_ = format;
        format_.opaque = false;
    }
    base::Result<void> readRow(std::uint8_t* row) override {
        std::memset(row, 0, format_.rowBytes());
        return {};
    }
};

base::Result<RowReaderRef> resampled(RowReaderRef rows, const ResampledSize& size) {
    const RowFormat& format = rows->format();
    const PixelRect& part = size.visible;
    if (size.width == format.width && size.height == format.height && size.phaseX == 0 && size.phaseY == 0) {
        if (part == PixelRect{0, 0, format.width, format.height}) return rows;
        return std::make_unique<PartOfRows>(std::move(rows), part);
    }
    if (format.depth == RowDepth::half) return resampledHalfRows(std::move(rows), size);
    return ResampledRows::create(std::move(rows), size);
}

/// The image's own rows and columns at a size, in their order.
base::Result<RowReaderRef> imageRows(const ImageRef& image, const ResampledSize& size, RowDepth depth,
                                     const ColorSpaceRef& colorSpace, Quality quality) {
    if (depth == RowDepth::half) {
        auto deep = deepRows(image);
        if (!deep) return base::failure(deep.error());
        if (*deep) return resampled(std::move(*deep), size);
        return std::make_unique<ImageRows>(image, size, depth, deepColorSpace(*image), quality);
    }
    // What can't be converted is told before anybody waits for rows.
    const ColorSpaceRef& own = image->colorSpace();
    const PixelLayout layout = own->model() == ColorModel::cmyk ? PixelLayout::cmyk8 : PixelLayout::bgra8;
    if (auto transform = ColorTransform::between(own, layout, colorSpace); !transform)
        return base::failure(transform.error());
    return std::make_unique<ImageRows>(image, size, depth, colorSpace, quality);
}

base::Result<PixelRect> visiblePart(const RowPlacement& placement) {
    const base::Rect& visible = placement.visible;
    constexpr double limit = maximumBitmapSide;
    constexpr double farthest = 1e9;
    const bool fits = visible.width >= 1 && visible.height >= 1 && visible.width <= limit && visible.height <= limit &&
                      std::abs(visible.x) <= farthest && std::abs(visible.y) <= farthest;
    const bool placed = placement.width > 0 && placement.height > 0 && std::isfinite(placement.x + placement.width) &&
                        std::isfinite(placement.y + placement.height);
    if (!fits || !placed)
        return base::failure(base::posixErrorDomain, EINVAL,
                             "no rows of " + base::stringFromSize(visible.size()) + " pixels of a picture over " +
                                 base::stringFromSize({placement.width, placement.height}));
    return PixelRect{static_cast<int>(std::llround(visible.x)), static_cast<int>(std::llround(visible.y)),
                     static_cast<int>(std::llround(visible.width)), static_cast<int>(std::llround(visible.height))};
}

PlacedPicture placedPicture(const RowPlacement& placement, int quarterTurns, bool mirrored, const PixelRect& visible) {
    return PlacedPicture({{placement.x, placement.y, placement.width, placement.height}, quarterTurns, mirrored},
                         visible);
}

bool isNothing(const PlacedPicture& placed) {
    return placed.x.isEmpty() || placed.y.isEmpty() || !(placed.x.length() > 0) || !(placed.y.length() > 0);
}

base::Result<RowReaderRef> placedRows(RowReaderRef rows, const PlacedPicture& placed, const PixelRect& visible) {
    auto sized = resampled(std::move(rows), sizeOf(placed));
    if (!sized) return sized;
    return std::make_unique<PlacedRows>(std::move(*sized), placed.x, placed.y, visible);
}

base::Result<RowReaderRef> placedImage(const ImageRef& image, int quarterTurns, bool mirrored,
                                       const RowPlacement& placement, const PixelRect& visible, RowDepth depth,
                                       const ColorSpaceRef& colorSpace, Quality quality) {
    const PlacedPicture placed = placedPicture(placement, quarterTurns, mirrored, visible);
    const ColorSpaceRef& rowSpace = depth == RowDepth::half ? deepColorSpace(*image) : colorSpace;
    if (isNothing(placed))
        return std::make_unique<NoRows>(RowFormat{visible.width, visible.height, depth, false, rowSpace});
    const PlacedAxis& columns = placed.columns();
    const PlacedAxis& rows = placed.rows();
    if (!placed.turned && !rows.reversed) {
        auto sized = imageRows(image, sizeOf(placed), depth, rowSpace, quality);
        if (!sized) return sized;
        return std::make_unique<PlacedRows>(std::move(*sized), placed.x, placed.y, visible);
    }
    // Colours are converted after the filter, as for upright pictures, so what needs that is kept as it is delivered.
    const bool converts = image->colorSpace() != rowSpace && !(image->colorSpace()->isSRGB() && rowSpace->isSRGB());
    const bool isSmaller =
        std::int64_t{1} * columns.count() * rows.count() <= std::int64_t{1} * image->width() * image->height();
    if (isSmaller || converts) {
        auto sized = imageRows(image, sizeOf(placed), depth, rowSpace, quality);
        if (!sized) return sized;
        auto turned = std::make_unique<TurnedRows>(std::move(*sized), placed.turned, columns.reversed, rows.reversed);
        PlacedAxis x = placed.x;
        x.reversed = false; // that is done
        return std::make_unique<PlacedRows>(std::move(turned), x, placed.y, visible);
    }
    const ResampledSize ownSize{static_cast<double>(image->width()),
                                static_cast<double>(image->height()),
                                0,
                                0,
                                {0, 0, image->width(), image->height()}};
    auto own = imageRows(image, ownSize, depth, rowSpace, quality);
    if (!own) return own;
    auto turned = std::make_unique<TurnedRows>(std::move(*own), placed.turned, columns.reversed, rows.reversed);
    return placedRows(std::move(turned), placedPicture(placement, 0, false, visible), visible);
}

} // namespace

base::Result<RowReaderRef> scaledRows(const ImageRef& image, int quarterTurns, bool mirrored,
                                      const RowPlacement& placement, RowDepth depth, const ColorSpaceRef& wanted,
                                      Quality quality) {
    const auto visible = visiblePart(placement);
    if (!visible) return base::failure(visible.error());
    const ColorSpaceRef& colorSpace = wanted ? wanted : deepColorSpace(*image);
    return withMemory([&]() -> base::Result<RowReaderRef> {
        auto rows = placedImage(image, quarterTurns, mirrored, placement, *visible, depth, colorSpace, quality);
        if (!rows || depth == RowDepth::bits8) return rows;
        return convertedHalfRows(std::move(*rows), colorSpace);
    });
}

base::Result<RowReaderRef> scaledRows(RowReaderRef rows, const RowPlacement& placement, Quality) {
    const auto visible = visiblePart(placement);
    if (!visible) return base::failure(visible.error());
    return withMemory([&]() -> base::Result<RowReaderRef> {
        const PlacedPicture placed = placedPicture(placement, 0, false, *visible);
        if (!isNothing(placed)) return placedRows(std::move(rows), placed, *visible);
        const RowFormat& format = rows->format();
        return std::make_unique<NoRows>(
            RowFormat{visible->width, visible->height, format.depth, false, format.colorSpace});
    });
}

} // namespace platform::draw
