// The pages of a PDF document as pictures of 72 pixels an inch, transparent where nothing is printed. A page is drawn
// anew for each reading, a stretch of rows at a time.
#include "PdfMetadata.h"
#include "PdfPages.h"
#include "PictureFormat.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

namespace platform::draw {
namespace {

constexpr std::int64_t largestStretch = 16'000'000; // pixels that are drawn at once
constexpr double largestPageSide = 32767;           // points; what a canvas can be

base::Size displayedSize(const PDFPage& page) {
    const base::Size size = page.boxRect(PDFBox::crop).size();
    return page.rotationAngle() % 180 == 0 ? size : base::Size{size.height, size.width};
}

class PdfBandReader final : public BandReader {
public:
    PdfBandReader(std::shared_ptr<const ByteSource> bytes, PDFPageRef page, base::Size pictureSize,
                  const PixelRect& region)
        : bytes_(std::move(bytes)), page_(std::move(page)), pictureSize_(pictureSize), region_(region) {
        format_ = ReadingFormat::ofRows(SampleKind::bgra, region.width, region.height);
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (next_ >= region_.height) return {};
        if (next_ >= stretchEnd_)
            if (auto drawn = drawStretch(); !drawn) return drawn;
        std::memcpy(rows[0][0], stretch_->row(next_ - stretchBegin_), format_.planes.front().rowBytes);
        ++next_;
        return {};
    }

private:
    base::Result<void> drawStretch() {
        stretch_.reset();
        const auto rows =
            static_cast<int>(std::clamp<std::int64_t>(largestStretch / region_.width, 1, region_.height - stretchEnd_));
        const auto canvas = BitmapContext::create(region_.width, rows, ColorSpace::sRGB());
        if (!canvas) return pictureFailure(*bytes_, "no memory");
        const base::Size size = displayedSize(*page_);
        // The picture's whole pixels cover the page, whose sides may have fractions.
        canvas->concatenate(
            base::AffineTransform::translation(-region_.x, -(pictureSize_.height - region_.y - stretchEnd_ - rows))
                .after(
                    base::AffineTransform::scaling(pictureSize_.width / size.width, pictureSize_.height / size.height))
                .after(page_->drawingTransform(PDFBox::crop, {0, 0, size.width, size.height}, 0, true)));
        canvas->drawPDFPage(page_);
        if (canvas->drawError()) return pictureFailure(*bytes_, canvas->drawError()->localizedDescription);
        stretch_ = canvas->makeImage()->bitmap().value();
        stretchBegin_ = stretchEnd_;
        stretchEnd_ += rows;
        return {};
    }

    std::shared_ptr<const ByteSource> bytes_;
    PDFPageRef page_;
    base::Size pictureSize_;
    PixelRect region_;
    int next_ = 0; // rows of the region
    int stretchBegin_ = 0;
    int stretchEnd_ = 0;
    std::optional<Bitmap> stretch_;
};

class PdfSource final : public PixelSource {
public:
    PdfSource(std::shared_ptr<const ByteSource> bytes, int width, int height, std::size_t index)
        : bytes_(std::move(bytes)) {
        width_ = width;
        height_ = height;
        opaque_ = false;
        colorSpace_ = ColorSpace::sRGB();
        identity_ = bytes_->identity();
        index_ = index;
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        const auto document = openPdfDocument(*bytes_);
        if (!document) return base::failure(document.error());
        auto page = (*document)->page(static_cast<int>(index_) + 1);
        if (!page) return pictureFailure(*bytes_, "page " + std::to_string(index_ + 1) + " is damaged");
        return std::make_unique<PdfBandReader>(
            bytes_, std::move(page), base::Size{static_cast<double>(width_), static_cast<double>(height_)}, region);
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
};

} // namespace

base::Result<std::vector<Picture>> openPdf(std::shared_ptr<const ByteSource> bytes) {
    const std::shared_ptr<const ByteSource> source = std::move(bytes); // every page keeps it
    const auto document = openPdfDocument(*source);
    if (!document) return base::failure(document.error());
    std::vector<Picture> pictures;
    for (int number = 1; number <= (*document)->pageCount(); ++number) {
        const auto page = (*document)->page(number);
        if (!page) return pictureFailure(*source, "page " + std::to_string(number) + " is damaged");
        const base::Size size = displayedSize(*page);
        if (!(size.width > 0 && size.height > 0)) return pictureFailure(*source, "it has no pixels");
        if (size.width > largestPageSide || size.height > largestPageSide)
            return pictureFailure(*source, "page " + std::to_string(number) + " is larger than " +
                                               std::to_string(static_cast<int>(largestPageSide)) + " points");
        const int width = std::max(1, static_cast<int>(std::lround(size.width)));
        const int height = std::max(1, static_cast<int>(std::lround(size.height)));
        if (auto allowed =
                checkPictureSize(*source, static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height));
            !allowed)
            return base::failure(allowed.error());
        Picture picture;
        picture.dpiWidth = picture.dpiHeight = 72;
        picture.pixels = std::make_shared<PdfSource>(source, width, height, pictures.size());
        pictures.push_back(std::move(picture));
    }
    pictures.front().properties = propertiesOfXmpPacket(bytesOf(**document));
    return pictures;
}

} // namespace platform::draw
