// From a picture to the image of a page: turned, scaled, cropped or padded, filtered. Everything here is told, nothing
// computed: the pixels come into being when a FilterContext renders the image.
#include "KLARON_PrintPage.h"

#include "ImageProcessingKeys.h"
#include "base/Log.h"
#include "imaging/KLARON_Image.h"
#include "internal/ProfileFiles.h"

#include <algorithm>
#include <cmath>

using platform::draw::ColorModel;
using platform::draw::ColorSpace;
using platform::draw::ColorSpaceRef;
using platform::filter::Filter;
using platform::filter::FilterImage;
using platform::filter::FilterImageRef;
using platform::filter::FilterRef;
using platform::filter::Filters;

namespace {

constexpr int quarterTurnOrientation = 6; // as EXIF numbers them: upright after a turn clockwise

/// A preview asks for a size from here on; a smaller one asks for a proportional picture only.
constexpr double smallestPreview = 9;

std::optional<base::Size> sizeForKey(const base::Dictionary& options, std::string_view key) {
    const auto text = base::textForKey(options, key);
    return text ? std::optional(base::sizeFromString(*text)) : std::nullopt;
}

Filters filtersOf(const base::Array& values) {
    Filters filters;
    for (const base::Value& value : values)
        if (FilterRef filter = value.object<Filter>()) filters.push_back(std::move(filter));
    return filters;
}

FilterImageRef filtered(FilterImageRef image, const Filters& filters) {
    for (const FilterRef& filter : filters)
        image = filter->outputImage(image);
    return image;
}

/// What a picture is brought to.
struct Target {
    base::Size size;
    /// Vertical resolution by horizontal: how much wider than high a pixel of the printer is.
    double pixelAspect = 1;
    std::string gravity;

    bool resizes() const { return gravity.starts_with(kCAGravityResize); }

    void fitPreview(base::Size preview) {
        if (size.height == 0 || size.width == 0) {
            gravity = kCAGravityResizeAspect;
            size = preview;
        } else {
            if (pixelAspect < 1) size.width *= pixelAspect;
            if (pixelAspect > 1) size.height /= pixelAspect;
            if (preview.width > smallestPreview && preview.height > smallestPreview) {
                const double reduction = std::min(preview.width / size.width, preview.height / size.height);
                size = {size.width * reduction, size.height * reduction};
            }
        }
        pixelAspect = 1;
    }

    /// Whether the picture lies across the page; a square one, or a square page, is left as it is.
    bool isAcross(base::Size picture) const {
        const double pageRatio = size.width / (size.height == 0 ? 1 : size.height) * pixelAspect;
        const double pictureRatio = picture.width / picture.height;
        return (pageRatio > 1 && pictureRatio < 1) || (pageRatio < 1 && pictureRatio > 1);
    }

    /// The scale of both axes, before the one with the lower resolution is brought down to it.
    double scaleOf(base::Size picture, base::Size resolution) const {
        double x = size.width / picture.width;
        double y = size.height / picture.height;
        if (resolution.width <= resolution.height)
            x *= pixelAspect;
        else
            y /= pixelAspect;
        return gravity == kCAGravityResizeAspectFill ? std::max(x, y) : std::min(x, y);
    }
};

/// A page without a resolution has square pixels.
double pixelAspectOf(base::Size resolution) {
    const double aspect = resolution.height / resolution.width;
    return std::isfinite(aspect) && aspect > 0 ? aspect : 1;
}

/// The middle of the image, of the given size; where the image is too small, white stands around it when asked for.
FilterImageRef centered(const FilterImageRef& image, base::Size size, bool drawsCanvas) {
    const base::Rect extent = image->extent();
    const double dx = (extent.width - size.width) * 0.5;
    const double dy = (extent.height - size.height) * 0.5;
    const base::Rect rect{extent.x + dx, extent.y + dy, size.width, size.height};
    if (rect == extent) return image;
    FilterImageRef result = image->imageByCroppingToRect(rect);
    if (drawsCanvas && (rect.width > result->extent().width || rect.height > result->extent().height)) {
        const FilterImageRef canvas = FilterImage::imageWithColor(1, 1, 1)->imageByCroppingToRect(rect);
        result = result->imageByCompositingOverImage(canvas);
    }
    return result->imageByApplyingTransform(base::AffineTransform::translation(-dx, -dy));
}

} // namespace

FilterImageRef KLARON_PrintPage::imagePreProcessWithOptions(const base::Dictionary& options) {
    const base::Size resolution = outputResolution();
    Target target{sizeForKey(options, PreProcessOption::outputSize).value_or(outputSize()), pixelAspectOf(resolution),
                  base::textForKey(options, PreProcessOption::imageGravity).value_or(imageGravity())};
    if (const auto preview = sizeForKey(options, PreProcessOption::previewSize)) target.fitPreview(*preview);

    const base::URL* url = base::valueForKey(options, PreProcessOption::urlImage).as<base::URL>();
    if (!url && !inputImages().empty()) url = &inputImages().front();
    if (!url) return nullptr;
    const auto opened = FilterImage::imageWithContentsOfURL(*url, true);
    if (!opened) return nullptr;
    FilterImageRef image = *opened;

    Filters filters;
    if (const auto* given = base::valueForKey(options, PreProcessOption::imageFilters).as<base::Array>())
        filters = filtersOf(*given);
    else if (!imageFilters().empty())
        filters = imageFilters().front();
    if (!applyImageFilters()) filters.clear();

    if (autoRotate() && target.isAcross(image->extent().size()))
        image = image->imageByApplyingOrientation(quarterTurnOrientation);
    if (!target.resizes()) return filtered(std::move(image), filters);

    // Filters cost by the pixel: they run before an enlargement and after a reduction.
    const double scale = target.scaleOf(image->extent().size(), resolution);
    const bool grows = scale > 1;
    if (grows) image = filtered(std::move(image), filters);
    image = image->imageByApplyingLanczosScale(scale);
    if (image->extent().isEmpty()) return image;

    const bool isPreview = base::valueForKey(options, PreProcessOption::isPreviewImage).boolValue();
    if (!isPreview && resolution.width != resolution.height) {
        const double aspect = target.pixelAspect;
        image = image->imageByApplyingTransform(resolution.width > resolution.height
                                                    ? base::AffineTransform::scaling(1, aspect)
                                                    : base::AffineTransform::scaling(1 / aspect, 1));
    }
    const base::Value& drawsCanvas = base::valueForKey(options, PreProcessOption::drawsCanvas);
    image = centered(image, target.size, drawsCanvas.isNothing() || drawsCanvas.boolValue());
    return grows ? image : filtered(std::move(image), filters);
}

ColorSpaceRef KLARON_PrintPage::outputColorSpace() {
    const bool usesProfile = colorManagement() == 1 || colorManagement() == 2;
    if (!usesProfile || !printerProfileICC()) return ColorSpace::sRGB();
    const ColorSpaceRef space = print::colorSpaceOfFile(*printerProfileICC());
    if (!space) return ColorSpace::sRGB();
    if (space->model() != ColorModel::monochrome && space->model() != ColorModel::rgb)
        base::log("incompatible color space %d for color profile. must be RGB or monochrome!",
                  static_cast<int>(space->model()));
    else if (!space->supportsOutput())
        base::log("incompatible color profile does not produce output!");
    else
        return space;
    setPrinterProfileICC(std::nullopt);
    setColorManagement(1);
    return ColorSpace::sRGB();
}

platform::filter::WorkingFormat KLARON_PrintPage::rasterContextFormatWorking() const {
    return platform::filter::WorkingFormat::rgba8;
}

RasterFormat KLARON_PrintPage::rasterContextFormatOutput() const {
    return RasterFormat::rgba8;
}
