// The pixels of a page: as a raster in the printer's colours, and as the bytes that printers take.
#include "KLARON_PrintPage.h"

#include "ImageProcessingKeys.h"
#include "RasterForms.h"
#include "base/MessageTemplate.h"
#include "platform/draw/Bitmap.h"

#include <algorithm>
#include <new>

using platform::draw::AlphaInfo;
using platform::draw::ColorModel;
using platform::draw::ColorSpace;
using platform::draw::ColorSpaceRef;
using platform::draw::Raster;
using platform::filter::FilterContext;
using platform::filter::FilterImageRef;
using platform::filter::WorkingFormat;

namespace {

constexpr int componentsInBuffer = 4;
constexpr int componentsOut = 3;

/// The buffer that the page is drawn into before its samples are moved together.
struct WorkBuffer {
    std::int64_t width = 0;
    std::int64_t height = 0;
    int bitsPerComponent = 8;
    ColorSpaceRef colorSpace;

    std::int64_t bytesPerRow() const { return width * bitsPerComponent * componentsInBuffer / 8; }
    bool isPossible() const {
        return width > 0 && height > 0 && width <= platform::draw::maximumBitmapSide &&
               height <= platform::draw::maximumBitmapSide && width * height <= platform::draw::maximumBitmapPixels;
    }
    base::Dictionary properties() const {
        return {{std::string(RasterProperty::width), width},
                {std::string(RasterProperty::height), height},
                {std::string(RasterProperty::numberOfComponents), componentsOut},
                {std::string(RasterProperty::bytesPerRow), bytesPerRow()},
                {std::string(RasterProperty::bitsPerComponent), bitsPerComponent},
                {std::string(RasterProperty::alphaInfo), static_cast<int>(AlphaInfo::noneSkipLast)},
                {std::string(RasterProperty::colorSpace), std::make_shared<ColorSpaceObject>(colorSpace)}};
    }
    base::Error contextError() const {
        return {std::string(base::cocoaErrorDomain), -1,
                base::message("FAILED to get a context for properties:%@", base::Value(properties()))};
    }

    /// The pixels, without gaps. What the image does not cover is black.
    base::Result<base::Data> drawn(const FilterImageRef& image) const try {
        if (!isPossible()) return base::failure(contextError());
        base::Data buffer(std::vector<std::uint8_t>(static_cast<std::size_t>(bytesPerRow() * height)));
        // Samples of 16 bits deserve more than 8 bits between the stages.
        const FilterContext context(colorSpace,
                                    bitsPerComponent == 16 ? WorkingFormat::rgbaHalf : WorkingFormat::rgba8);
        const base::Rect rect{0, 0, static_cast<double>(width), static_cast<double>(height)};
        const auto rendered = context.renderInto(buffer.bytes.data(), static_cast<std::size_t>(bytesPerRow()), image,
                                                 rect, bitsPerComponent);
        if (!rendered) return base::failure(rendered.error());
        return buffer;
    } catch (const std::bad_alloc&) {
        return base::failure(contextError());
    }
};

/// A side of an extent without its fraction; what is beyond all buffers stays beyond them.
std::int64_t wholePixels(double side) {
    constexpr double beyond = 1e9;
    return side >= 1 ? static_cast<std::int64_t>(std::min(side, beyond)) : 0;
}

/// A shortcut leaves what the caller says of "planar" and "cmy" where it does not need them itself.
RasterBytes rasterInForm(KLARON_PrintPage& page, const RasterForm& form, base::Dictionary* properties) {
    base::Dictionary asked = properties ? *properties : base::Dictionary();
    asked.insert_or_assign(std::string(RasterProperty::bitsPerComponent), form.bitsPerComponent);
    if (form.planar) asked.insert_or_assign(std::string(RasterProperty::planar), true);
    if (form.cmy) asked.insert_or_assign(std::string(RasterProperty::cmy), true);
    RasterBytes bytes = page.imageRasterWithProperties(&asked);
    if (properties) *properties = std::move(asked);
    return bytes;
}

} // namespace

std::optional<Raster> KLARON_PrintPage::imageRaster() {
    const FilterImageRef image = imagePreProcessWithOptions();
    if (!image) return std::nullopt;
    const FilterContext context(outputColorSpace(), rasterContextFormatWorking());
    const int bits = rasterContextFormatOutput() == RasterFormat::rgba16 ? 16 : 8;
    auto raster = context.render(image, image->extent().integral(), bits);
    if (!raster) return std::nullopt;
    return std::move(*raster);
}

RasterBytes KLARON_PrintPage::imageRasterWithProperties(base::Dictionary* properties) {
    static const base::Dictionary none;
    const base::Dictionary& asked = properties ? *properties : none;
    const RasterForm form{base::valueForKey(asked, RasterProperty::bitsPerComponent).integerValue() == 16 ? 16 : 8,
                          base::valueForKey(asked, RasterProperty::planar).boolValue(),
                          base::valueForKey(asked, RasterProperty::cmy).boolValue()};

    const FilterImageRef image = imagePreProcessWithOptions();
    if (!image) return {};
    const base::Size size = image->extent().isEmpty() ? base::Size() : image->extent().size();
    WorkBuffer work{wholePixels(size.width), wholePixels(size.height), form.bitsPerComponent, outputColorSpace()};
    if (!work.colorSpace || work.colorSpace->model() != ColorModel::rgb) work.colorSpace = ColorSpace::sRGB();
    if (properties) *properties = work.properties();
    auto buffer = work.drawn(image);
    if (!buffer) {
        if (properties)
            *properties = {{std::string(RasterProperty::error), std::make_shared<ErrorObject>(buffer.error())}};
        return {};
    }
    if (form.planar) return planesOfPixels(*buffer, form.bitsPerComponent, form.cmy);
    compactPixels(*buffer, form.bitsPerComponent, form.cmy);
    return std::move(*buffer);
}

// Each: bits a component, planar, complemented.
RasterBytes KLARON_PrintPage::rgb_8_chunky(base::Dictionary* properties) {
    return rasterInForm(*this, {8, false, false}, properties);
}
RasterBytes KLARON_PrintPage::rgb_8_planar(base::Dictionary* properties) {
    return rasterInForm(*this, {8, true, false}, properties);
}
RasterBytes KLARON_PrintPage::cmy_8_chunky(base::Dictionary* properties) {
    return rasterInForm(*this, {8, false, true}, properties);
}
RasterBytes KLARON_PrintPage::cmy_8_planar(base::Dictionary* properties) {
    return rasterInForm(*this, {8, true, true}, properties);
}
RasterBytes KLARON_PrintPage::rgb_16_chunky(base::Dictionary* properties) {
    return rasterInForm(*this, {16, false, false}, properties);
}
RasterBytes KLARON_PrintPage::rgb_16_planar(base::Dictionary* properties) {
    return rasterInForm(*this, {16, true, false}, properties);
}
RasterBytes KLARON_PrintPage::cmy_16_chunky(base::Dictionary* properties) {
    return rasterInForm(*this, {16, false, true}, properties);
}
RasterBytes KLARON_PrintPage::cmy_16_planar(base::Dictionary* properties) {
    return rasterInForm(*this, {16, true, true}, properties);
}
