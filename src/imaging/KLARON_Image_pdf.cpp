#include "base/Log.h"
#include "imaging/KLARON_Image.h"
#include "internal/ErrorPlaces.h"
#include "platform/draw/PDFDocument.h"

#include <cmath>

using namespace platform::draw;
using base::AffineTransform;
using base::Rect;
using base::Size;

namespace {

constexpr const char* operationName = "+[KLARON_Image imageWithPDFObject:size:alpha:backgroundColorCode:error:]";

// The side of a bitmap for a target's side, in single precision; 0 for what is no number.
double pixelSide(double side) {
    return std::isfinite(side) ? std::round(static_cast<float>(side)) : 0;
}

KLARON_ImageRef fail(ErrorPlace place, base::Error error) {
    if (place) *place = std::move(error);
    return nullptr;
}

// The first page of the document; an error when it can't be had.
base::Result<PDFPageRef> firstPage(const ImageObject& object) {
    const auto url = object.fileURL();
    if (!url) return base::failure(base::cocoaErrorDomain, 0, "cannot read " + object.description());
    const auto document = PDFDocument::createWithURL(*url);
    if (!document) return base::failure(document.error());
    auto page = (*document)->page(1);
    if (!page) return base::failure(base::cocoaErrorDomain, 0, "cannot read the first page of " + url->path());
    return page;
}

// The page centred in the target; one that is lower than the target is enlarged to its height about the middle.
AffineTransform placement(const PDFPage& page, Size size) {
    const Rect box = page.boxRect(PDFBox::crop);
    constexpr double radiansPerDegree = 0.017453292519943295;
    const Rect turned = AffineTransform::rotation(-page.rotationAngle() * radiansPerDegree).apply(box);
    const double scale = size.height / turned.height;
    const AffineTransform transform = page.drawingTransform(PDFBox::crop, {0, 0, size.width, size.height}, 0, true);
    if (!(scale > 1.0)) return transform;
    const base::Point middle = box.center();
    return transform.after(AffineTransform::translation(middle.x, middle.y))
        .after(AffineTransform::scaling(scale, scale))
        .after(AffineTransform::translation(-middle.x, -middle.y));
}

} // namespace

KLARON_ImageRef KLARON_Image::imageWithPDFObject(const ImageObject& object, Size size, ErrorPlace error) {
    return imageWithPDFObject(object, size, std::nullopt, std::nullopt, error);
}

KLARON_ImageRef KLARON_Image::imageWithPDFObject(const ImageObject& object, Size size, std::optional<double> alpha,
                                                 ErrorPlace error) {
    return imageWithPDFObject(object, size, alpha, std::nullopt, error);
}

KLARON_ImageRef KLARON_Image::imageWithPDFObject(const ImageObject& object, Size size, std::optional<double> alpha,
                                                 const std::optional<std::string>& backgroundColorCode,
                                                 ErrorPlace error) {
    clear(error);
    if (!object.as<std::string>() && !object.as<base::URL>()) {
        const std::string text = base::message("Passed parameter to %s not a path or URL", operationName);
        base::log("%@", text);
        return fail(error, {std::string(base::cocoaErrorDomain), 0, text});
    }
    const auto page = firstPage(object);
    return page ? imageWithPDFPage(*page, size, alpha, backgroundColorCode, error) : fail(error, page.error());
}

KLARON_ImageRef KLARON_Image::imageWithPDFPage(const PDFPageRef& page, Size size, std::optional<double> alpha,
                                               const std::optional<std::string>& backgroundColorCode,
                                               ErrorPlace error) {
    clear(error);
    const Rect box = page->boxRect(PDFBox::crop);
    const double width = pixelSide(size.width), height = pixelSide(size.height);
    const auto context = BitmapContext::create(width, height, ColorSpace::sRGB(), AlphaInfo::premultipliedFirst);
    if (!context)
        return fail(error, {std::string(base::cocoaErrorDomain), 0,
                            base::message("cannot make a picture of %@", base::stringFromSize(size))});
    context->setAlpha(alpha.value_or(1.0));
    if (const auto background = KLARON_color::colorForHexcode(backgroundColorCode)) {
        context->setFillColor(*background);
        context->fillRect({0, 0, width, height});
    }
    context->concatenate(placement(*page, size));
    context->clipToRect(box);
    context->drawPDFPage(page);
    if (context->drawError()) return fail(error, *context->drawError());
    return initWithCGImage(context->makeImage());
}
