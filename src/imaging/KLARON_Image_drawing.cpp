#include "base/Log.h"
#include "imaging/KLARON_Image.h"

#include <numbers>
#include <utility>

using platform::draw::AttributedText;
using platform::draw::BitmapContext;

struct KLARON_Image::DrawingState {
    BitmapContextRef context;
    ImageRef image;
    base::Rect destination;
    base::Rect borderFrame;
    base::Size orientedSize;
};

namespace {

// From the coordinates of the upright picture (size W x H) to those of the pixels as they lie.
base::Rect transformedRect(const base::Rect& rect, base::Size upright, int orientation) {
    switch (orientation) {
    case 3:
        return {upright.width - rect.maxX(), upright.height - rect.maxY(), rect.width, rect.height};
    case 6:
        return {rect.y, upright.width - rect.maxX(), rect.height, rect.width};
    case 8:
        return {upright.height - rect.maxY(), rect.x, rect.height, rect.width};
    default:
        return rect;
    }
}

// The turn that brings pixels of an orientation upright, in a context with y up. Mirrored ones stay as they lie.
std::optional<double> turnForOrientation(int orientation) {
    switch (orientation) {
    case 3:
        return std::numbers::pi;
    case 6:
        return -std::numbers::pi / 2;
    case 8:
        return std::numbers::pi / 2;
    default:
        return std::nullopt;
    }
}

base::Size sizeOf(const platform::draw::ImageRef& image) {
    return {static_cast<double>(image->width()), static_cast<double>(image->height())};
}

} // namespace

KLARON_Image::BitmapContextRef KLARON_Image::drawingContextWithCanvasSize(base::Size size) {
    drawingContext_.reset();
    if (!(size.width > 0) || !(size.height > 0)) {
        base::log("ERROR: Both width and height must be > 0 (");
        return nullptr;
    }
    drawingContext_ = BitmapContext::create(size.width, size.height, colorSpace(), alphaInfo());
    return drawingContext_;
}

KLARON_Image::BitmapContextRef KLARON_Image::drawingContext() {
    if (!drawingContext_)
        base::log("ERROR: call %@ to create a context before accessing this property!",
                  "drawingContextWithCanvasSize:");
    return drawingContext_;
}

void KLARON_Image::setDrawingContext(BitmapContextRef context) {
    drawingContext_ = std::move(context);
}

base::Size KLARON_Image::drawingContextSize() const {
    if (!drawingContext_) return {};
    return {static_cast<double>(drawingContext_->width()), static_cast<double>(drawingContext_->height())};
}

void KLARON_Image::draw() {
    DrawingState state{drawingContext(), cgImage(), destinationRect_, {}, orientedSize()};
    place(state);

    if (!state.context) {
        base::log("ERROR: set a drawing context before attempting to draw!");
        return;
    }
    if (state.borderFrame.width == 0) {
        base::log("ERROR: attempting to draw an image with zero width");
        return;
    }
    if (state.borderFrame.height == 0) {
        base::log("ERROR: attempting to draw an image with zero height");
        return;
    }

    BitmapContext& context = *state.context;
    const ColorSpaceRef& space = context.colorSpace();
    context.saveState();
    if (rotation_ && *rotation_ != 0)
        context.concatenate(base::AffineTransform::rotationAbout(state.borderFrame.center(), -*rotation_));
    if (backgroundColorCode_) {
        context.setFillColor(createColorWithHexcode(backgroundColorCode_, space));
        context.fillRect(state.destination);
    }
    if (hasShadow_)
        context.setShadow(shadowOffset_, shadowBlur_,
                          createColorWithHexcode(shadowColorCode_.value_or("#00000055"), space));
    drawContent(state);
    if (hasBorder_)
        drawBorderforFrame(state.borderFrame, borderWidth_,
                           createColorWithHexcode(borderColorCode_.value_or("#FFFFFFFF"), space), 0);
    context.restoreState();
}

void KLARON_Image::place(DrawingState& state) {
    if (state.destination == base::Rect{}) {
        const base::Size canvas = drawingContextSize();
        state.destination.width = canvas.width;
        state.destination.height = canvas.height;
    }
    applyCrop(state);
    applyGravity(state);
    state.borderFrame = state.destination;
    if (hasBorder_ && !borderClipsContent_) state.destination = state.destination.inset(borderWidth_, borderWidth_);
}

KLARON_Image::Placement KLARON_Image::drawingPlacement() {
    DrawingState state{drawingContext_, cgImage(), destinationRect_, {}, orientedSize()};
    place(state);
    Placement placement{state.destination, {}};
    if (state.image) {
        // From the pixels as they lie to the upright picture: a quarter turn back is one the other way.
        const int turned = orientation();
        const base::Rect pixels{static_cast<double>(state.image->x() - cgImage()->x()),
                                static_cast<double>(state.image->y() - cgImage()->y()), sizeOf(state.image).width,
                                sizeOf(state.image).height};
        placement.shown = transformedRect(pixels, actualSize(), turned == 6 ? 8 : turned == 8 ? 6 : turned);
    }
    return placement;
}

void KLARON_Image::applyCrop(DrawingState& state) {
    if (!state.image || cropRect_.isEmpty()) return;
    const base::Rect crop = isNormalizedCropRect_ ? denormalizedRect(cropRect_, naturalOrientedSize()) : cropRect_;
    state.image = croppedImage(state.image, crop, orientationNatural());
    if (state.image) state.orientedSize = orientedSizeForSize(sizeOf(state.image));
}

void KLARON_Image::applyGravity(DrawingState& state) {
    base::Rect& destination = state.destination;
    const base::Size image = state.orientedSize;
    if (!state.image || !contentsGravity_ || image == destination.size()) return;
    const double destinationAspect = destination.width / destination.height;
    const double imageAspect = image.width / image.height;

    if (*contentsGravity_ == kCAGravityResizeAspect) {
        if (destinationAspect > imageAspect) {
            const double width = destination.height * imageAspect;
            destination.x += (destination.width - width) * 0.5;
            destination.width = width;
        } else if (imageAspect > destinationAspect) {
            const double height = destination.width / imageAspect;
            destination.y += (destination.height - height) * 0.5;
            destination.height = height;
        }
    } else if (*contentsGravity_ == kCAGravityResizeAspectFill) {
        base::Rect visible;
        if (destinationAspect > imageAspect) {
            visible.width = image.width;
            visible.height = image.width / destinationAspect;
            visible.y = (image.height - visible.height) * 0.5;
        } else if (imageAspect > destinationAspect) {
            visible.height = image.height;
            visible.width = destinationAspect * image.height;
            visible.x = (image.width - visible.width) * 0.5;
        }
        if (visible.width != 0) state.image = croppedImage(state.image, visible);
    }
}

void KLARON_Image::drawContent(DrawingState& state) {
    if (!state.image) {
        if (stringInternal_) state.context->drawText(*stringInternal_, state.destination);
        return;
    }
    base::Rect target = state.destination;
    if (const auto turn = turnForOrientation(orientation())) {
        const auto transform = base::AffineTransform::rotationAbout(state.destination.center(), *turn);
        target = transform.apply(state.destination);
        state.borderFrame = target.inset(-borderWidth_, -borderWidth_);
        state.context->concatenate(transform);
    }
    state.context->drawImage(state.image, target);
}

void KLARON_Image::drawBorderforFrame(const base::Rect& frame, double width, const platform::draw::Color& color,
                                      double corner) {
    const BitmapContextRef context = drawingContext();
    if (!context) return;
    context->saveState();
    context->beginPath();
    context->addRoundedRect(frame.inset(width * 0.5, width * 0.5), corner, corner);
    context->setStrokeColor(color);
    context->setLineWidth(width);
    context->strokePath();
    context->restoreState();
}

KLARON_Image::ImageRef KLARON_Image::copyWithMaxDimension(double maximum) {
    const base::Size present = size();
    const base::Size wanted = present.width > present.height
                                  ? base::Size{maximum, present.height / present.width * maximum}
                                  : base::Size{present.width / present.height * maximum, maximum};
    const BitmapContextRef context = drawingContextWithCanvasSize(wanted);
    setDestinationRect({0, 0, wanted.width, wanted.height});
    setContentsGravity(std::string(kCAGravityResizeAspect));
    draw();
    if (!context) return nullptr;
    if (context->drawError()) {
        base::log("ERROR: %@", *context->drawError());
        return nullptr;
    }
    return context->makeImage();
}

KLARON_Image::ImageRef KLARON_Image::croppedImage(const ImageRef& image, const base::Rect& rect, int orientation) {
    if (!image) return nullptr;
    const base::Size upright = orientedSizeForOrientation(orientation, sizeOf(image));
    return image->cropped(transformedRect(rect, upright, orientation));
}

KLARON_Image::ImageRef KLARON_Image::croppedImage(const ImageRef& image, const base::Rect& rect) {
    return croppedImage(image, rect, orientation());
}

KLARON_Image::ImageRef KLARON_Image::croppedImageWithRect(const base::Rect& rect) {
    return croppedImage(cgImage(), rect);
}

void KLARON_Image::renderStringInDrawingRect(const AttributedText& text, const base::Rect& rect) {
    if (const BitmapContextRef context = drawingContext()) context->drawText(text, rect);
}

void KLARON_Image::renderStringToContextInRect(const AttributedText& text, const BitmapContextRef& context,
                                               const base::Rect& rect) {
    if (!context) return;
    context->saveState();
    context->drawText(text, rect);
    context->restoreState();
}
