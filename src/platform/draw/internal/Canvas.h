// The inside of a bitmap context: its pixels, its state, and a Cairo drawing on them. Device coordinates: pixels from
// the top left, y down.
#pragma once

#include "PixelRect.h"
#include "Shadow.h"
#include "platform/draw/BitmapContext.h"

#include <cairo.h>
#include <functional>
#include <optional>
#include <vector>

namespace platform::draw {

struct BitmapContext::Storage {
    struct Shadow {
        base::Point offset; // device pixels, y down
        double sigma;
        Color::RGBA color;
    };
    struct TurnedClip {
        base::AffineTransform deviceTransform;
        base::Rect rect;
    };
    struct State {
        base::AffineTransform transform; // to base space, y up
        PixelRect clip;                  // pixels outside are never touched
        std::vector<TurnedClip> turnedClips;
        std::optional<Shadow> shadow;
        Color::RGBA fill{0, 0, 0, 1};
        Color::RGBA stroke{0, 0, 0, 1};
        double lineWidth = 1;
        double alpha = 1;
    };
    struct PathElement {
        base::AffineTransform deviceTransform;
        base::Rect rect;
        double cornerWidth;
        double cornerHeight;
    };

    explicit Storage(Bitmap pixels) : bitmap(std::move(pixels)) {}

    base::AffineTransform deviceTransform() const {
        return base::AffineTransform{1, 0, 0, -1, 0, static_cast<double>(bitmap.height())}.after(state.transform);
    }
    void setDrawError(base::Error error) {
        if (!drawError) drawError = std::move(error);
    }

    Bitmap bitmap;
    AlphaInfo alphaInfo = AlphaInfo::premultipliedLast;
    Quality quality = Quality::final;
    State state;
    std::vector<State> savedStates;
    std::vector<PathElement> path;
    std::optional<base::Error> drawError;
};

/// A Cairo context on the canvas for one operation, in device coordinates with the state's clip. A shared bitmap gets
/// pixels of its own first. A failure of Cairo becomes the draw error when it ends.
class CanvasDrawing {
public:
    explicit CanvasDrawing(BitmapContext::Storage& canvas);
    ~CanvasDrawing();
    CanvasDrawing(const CanvasDrawing&) = delete;
    CanvasDrawing& operator=(const CanvasDrawing&) = delete;
    cairo_t* cairo() const { return cairo_; }

private:
    BitmapContext::Storage& canvas_;
    cairo_surface_t* surface_;
    cairo_t* cairo_;
};

/// A bitmap as a Cairo surface. It must outlive the surface, which the caller destroys.
cairo_surface_t* surfaceOnBitmap(const Bitmap& bitmap);

/// Multiplies the transform in force.
void applyTransform(cairo_t* cairo, const base::AffineTransform& transform);

/// What throws a shadow.
struct ShadowCaster {
    base::Rect deviceBounds;                 ///< of all its ink
    std::optional<RectangleShape> rectangle; ///< when it is one
    bool hidesItsInside = false;             ///< the rectangle will be painted over with opaque pixels
    double opacity = 1;                      ///< of the rectangle; `draw` brings its own
    std::function<void(cairo_t*)> draw;      ///< draws it, alpha being coverage, in device coordinates
};

/// Paints the shadow of what is about to be drawn, when the state has one. Touches no pixel outside the shadow's box.
void castShadow(BitmapContext::Storage& canvas, const ShadowCaster& caster);

} // namespace platform::draw
