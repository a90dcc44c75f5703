#include "internal/Canvas.h"
#include "internal/PdfPages.h"
#include "platform/draw/BitmapContext.h"

namespace platform::draw {

using base::AffineTransform;
using base::Rect;

void BitmapContext::drawPDFPage(const PDFPageRef& page) {
    if (!page || page->boxRect(PDFBox::crop).isEmpty()) return;
    const Storage::State& state = storage_->state;
    const PixelRect& clip = state.clip;
    if (clip.isEmpty()) return;
    if (state.alpha >= 1 && !state.shadow && colorSpace()->isSRGB()) {
        const CanvasDrawing drawing(*storage_);
        applyTransform(drawing.cairo(), storage_->deviceTransform());
        if (const auto drawn = renderPage(*page, drawing.cairo()); !drawn) setDrawError(drawn.error());
        return;
    }
    // Apart, and then as a picture of its own: things that lie over each other on the page stay opaque to each other
    // and throw one shadow.
    const auto apart = create(clip.width, clip.height, ColorSpace::sRGB());
    if (!apart) return setDrawError({std::string(base::cocoaErrorDomain), 0, "no memory to draw a PDF page"});
    const Rect place{double(clip.x), double(height() - clip.maxY()), double(clip.width), double(clip.height)};
    apart->concatenate(AffineTransform::translation(-place.x, -place.y).after(state.transform));
    apart->drawPDFPage(page);
    if (apart->drawError()) return setDrawError(*apart->drawError());
    saveState();
    concatenate(transform().inverted());
    drawImage(apart->makeImage(), place);
    restoreState();
}

} // namespace platform::draw
