// A canvas of 8-bit premultiplied pixels to draw on. Coordinates are in points of the base space (one a pixel), origin
// at the bottom left, y up, changed by the transform of the state. The state holds transform, clip, shadow, colours,
// line width and alpha, and is saved and restored as a whole.
//
// A context is shared by those who draw on it in turn; it is used by one thread at a time.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "platform/draw/Color.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/Image.h"
#include "platform/draw/PDFDocument.h"
#include "platform/draw/TextFrame.h"

#include <memory>
#include <optional>

namespace platform::draw {

class BitmapContext;
using BitmapContextRef = std::shared_ptr<BitmapContext>;

class BitmapContext {
public:
    /// Sizes are in pixels and are cut to whole numbers. Null for a size that is not positive, is not a number or is
    /// beyond the limits (32767 a side, maximumBitmapPixels), and when memory is short. With alpha the canvas starts
    /// transparent, without it black. A space that is not RGB, or that colours can't be converted into, gives a canvas
    /// in sRGB.
    static BitmapContextRef create(double width, double height, ColorSpaceRef space,
                                   AlphaInfo alphaInfo = AlphaInfo::premultipliedLast);
    ~BitmapContext();
    BitmapContext(const BitmapContext&) = delete;
    BitmapContext& operator=(const BitmapContext&) = delete;

    int width() const;
    int height() const;
    const ColorSpaceRef& colorSpace() const;
    AlphaInfo alphaInfo() const;

    void saveState();
    /// Without a saved state nothing happens.
    void restoreState();

    /// The new transform does `transform` first and then the present one.
    void concatenate(const base::AffineTransform& transform);
    const base::AffineTransform& transform() const;
    /// The drawing area becomes its common part with the rectangle.
    void clipToRect(const base::Rect& rect);

    void setFillColor(const Color& color);
    void setStrokeColor(const Color& color);
    void setLineWidth(double width);
    /// Multiplies the alpha of everything drawn; 0 to 1.
    void setAlpha(double alpha);
    /// Everything drawn from now on until the state is restored throws a shadow. Offset (y up) and blur are in pixels
    /// of the base space: no transform turns or scales them. Blur is two standard deviations.
    void setShadow(base::Size offset, double blur, const Color& color);
    void clearShadow();
    /// How images are resampled; not part of the state. `final` at the start.
    void setQuality(Quality quality);
    Quality quality() const;

    /// The path is not part of the state and is emptied by filling and stroking.
    void beginPath();
    void addRect(const base::Rect& rect);
    /// Corners of quarter ellipses, limited to half of the rectangle's sides.
    void addRoundedRect(const base::Rect& rect, double cornerWidth, double cornerHeight);
    void fillPath();
    void strokePath();

    void fillRect(const base::Rect& rect);
    /// Makes the pixels transparent (black on a canvas without alpha) inside the rectangle; no shadow.
    void clearRect(const base::Rect& rect);
    /// The image stands upright in the rectangle, stretched to fill it. Null draws nothing. A picture whose pixels
    /// can't be had draws at most its shadow and sets the draw error. Of a file that is cut off, that is told of the
    /// part that shows: a crop from above the cut is whole and is drawn.
    void drawImage(const ImageRef& image, const base::Rect& rect);
    /// The text, laid out from the top of the rectangle, in its own colour.
    void drawText(const AttributedText& text, const base::Rect& rect);
    /// The page's content within its crop box, in the page's own user space: PDFPage::drawingTransform, concatenated
    /// before, brings it into a rectangle. Alpha and shadow are those of the page as a whole. Null draws nothing.
    /// One that takes a minute of the processor, or reads its document over and over, is given up: see drawError().
    void drawPDFPage(const PDFPageRef& page);

    /// What is drawn so far, as an image in the canvas's space. Copies no pixels: the canvas takes a copy of its own
    /// when it is drawn to again while the image lives.
    ImageRef makeImage() const;

    /// The first thing that could not be drawn since the context was made or the error cleared. A product made with a
    /// draw error must not be delivered.
    const std::optional<base::Error>& drawError() const;
    void setDrawError(base::Error error); ///< Keeps an earlier error.
    void clearDrawError();

    struct Storage; ///< For the drawing code of this module.

private:
    explicit BitmapContext(std::unique_ptr<Storage> storage);
    std::unique_ptr<Storage> storage_;
};

} // namespace platform::draw
