#include "Canvas.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {
namespace {

bool isFinite(const base::Rect& rect) {
    return std::isfinite(rect.x) && std::isfinite(rect.y) && std::isfinite(rect.maxX()) && std::isfinite(rect.maxY());
}

// The pixels that the rectangle touches, within `limits`.
PixelRect touchedPixels(const base::Rect& rect, const PixelRect& limits) {
    if (!isFinite(rect)) return {};
    const double left = std::max<double>(std::floor(rect.x), limits.x);
    const double top = std::max<double>(std::floor(rect.y), limits.y);
    const double right = std::min<double>(std::ceil(rect.maxX()), limits.maxX());
    const double bottom = std::min<double>(std::ceil(rect.maxY()), limits.maxY());
    if (left >= right || top >= bottom) return {};
    return {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
            static_cast<int>(bottom - top)};
}

base::Rect moved(const base::Rect& rect, base::Point offset) {
    return {rect.x + offset.x, rect.y + offset.y, rect.width, rect.height};
}

TurnedRectangle moved(TurnedRectangle rectangle, base::Point offset) {
    rectangle.center = {rectangle.center.x + offset.x, rectangle.center.y + offset.y};
    return rectangle;
}

// Paints the colour through a mask of which one pixel is `scale` canvas pixels.
void paintThrough(cairo_t* cairo, CoverageMask& mask, const PixelRect& area, double scale, const Color::RGBA& color,
                  double opacity) {
    cairo_surface_t* surface =
        cairo_image_surface_create_for_data(mask.bytes.data(), CAIRO_FORMAT_A8, mask.width, mask.height, mask.stride);
    cairo_save(cairo);
    cairo_translate(cairo, area.x, area.y);
    cairo_scale(cairo, scale, scale);
    cairo_set_source_rgba(cairo, color.red, color.green, color.blue, color.alpha * opacity);
    cairo_pattern_t* pattern = cairo_pattern_create_for_surface(surface);
    cairo_pattern_set_filter(pattern, scale == 1 ? CAIRO_FILTER_NEAREST : CAIRO_FILTER_BILINEAR);
    cairo_mask(cairo, pattern);
    cairo_pattern_destroy(pattern);
    cairo_restore(cairo);
    cairo_surface_destroy(surface);
}

// Bands of rows, each cut in two where nothing of the shadow will show: under the caster itself, or in the middle of a
// frame.
void castRectangleShadow(cairo_t* cairo, const BitmapContext::Storage::Shadow& shadow, const ShadowCaster& caster,
                         const PixelRect& area) {
    constexpr int bandHeight = 64;
    RectangleShape shape{moved(caster.rectangle->outer, shadow.offset), std::nullopt};
    if (caster.rectangle->hole) shape.hole = moved(*caster.rectangle->hole, shadow.offset);
    std::optional<TurnedRectangle> unseen;
    if (caster.hidesItsInside)
        unseen = caster.rectangle->outer;
    else if (shape.hole)
        unseen = shape.hole->grown(-blurReach(shadow.sigma) - 1);
    if (unseen && (unseen->halfWidth <= 0 || unseen->halfHeight <= 0)) unseen.reset();

    const auto paint = [&](const PixelRect& part) {
        if (part.isEmpty()) return;
        CoverageMask mask = blurredRectangle(shape, shadow.sigma, part);
        paintThrough(cairo, mask, part, 1, shadow.color, caster.opacity);
    };
    for (int y = area.y; y < area.maxY(); y += bandHeight) {
        const PixelRect band{area.x, y, area.width, std::min(bandHeight, area.maxY() - y)};
        if (!unseen) {
            paint(band);
            continue;
        }
        // What both the first and the last row have inside, all rows between have: the rectangle is convex.
        const auto top = unseen->coveredPixels(band.y);
        const auto bottom = unseen->coveredPixels(band.maxY() - 1);
        const int hiddenFrom = std::clamp(std::max(top.first, bottom.first), band.x, band.maxX());
        const int hiddenTo = std::clamp(std::min(top.last, bottom.last), band.x, band.maxX());
        if (hiddenFrom >= hiddenTo) {
            paint(band);
            continue;
        }
        paint({band.x, band.y, hiddenFrom - band.x, band.height});
        paint({hiddenTo, band.y, band.maxX() - hiddenTo, band.height});
    }
}

void castDrawnShadow(cairo_t* cairo, const BitmapContext::Storage::Shadow& shadow, const ShadowCaster& caster,
                     const PixelRect& area) {
    // A wide blur needs no more than a coarse mask.
    constexpr double finestSigma = 16;
    double scale = 1;
    while (shadow.sigma / scale > finestSigma)
        scale *= 2;
    const double reach = blurReach(shadow.sigma) + scale;
    // Everything that throws its shadow into the area.
    const base::Rect wanted = base::Rect{double(area.x), double(area.y), double(area.width), double(area.height)}
                                  .inset(-reach, -reach)
                                  .intersection(moved(caster.deviceBounds, shadow.offset).inset(-reach, -reach))
                                  .integral();
    if (wanted.isEmpty()) return;
    const PixelRect drawn{static_cast<int>(wanted.x), static_cast<int>(wanted.y), static_cast<int>(wanted.width),
                          static_cast<int>(wanted.height)};
    CoverageMask mask(static_cast<int>(std::ceil(drawn.width / scale)),
                      static_cast<int>(std::ceil(drawn.height / scale)));
    cairo_surface_t* surface =
        cairo_image_surface_create_for_data(mask.bytes.data(), CAIRO_FORMAT_A8, mask.width, mask.height, mask.stride);
    cairo_t* onMask = cairo_create(surface);
    cairo_scale(onMask, 1 / scale, 1 / scale);
    cairo_translate(onMask, shadow.offset.x - drawn.x, shadow.offset.y - drawn.y);
    caster.draw(onMask);
    cairo_destroy(onMask);
    cairo_surface_flush(surface);
    cairo_surface_destroy(surface);
    blur(mask, shadow.sigma / scale);
    paintThrough(cairo, mask, drawn, scale, shadow.color, 1);
}

} // namespace

CanvasDrawing::CanvasDrawing(BitmapContext::Storage& canvas)
    : canvas_(canvas), surface_(cairo_image_surface_create_for_data(canvas.bitmap.mutablePixels(), CAIRO_FORMAT_ARGB32,
                                                                    canvas.bitmap.width(), canvas.bitmap.height(),
                                                                    static_cast<int>(canvas.bitmap.stride()))),
      cairo_(cairo_create(surface_)) {
    const PixelRect& clip = canvas.state.clip;
    cairo_rectangle(cairo_, clip.x, clip.y, std::max(clip.width, 0), std::max(clip.height, 0));
    cairo_clip(cairo_);
    for (const auto& turned : canvas.state.turnedClips) {
        cairo_save(cairo_);
        applyTransform(cairo_, turned.deviceTransform);
        cairo_rectangle(cairo_, turned.rect.x, turned.rect.y, turned.rect.width, turned.rect.height);
        cairo_restore(cairo_);
        cairo_clip(cairo_);
    }
}

CanvasDrawing::~CanvasDrawing() {
    if (const cairo_status_t status = cairo_status(cairo_); status != CAIRO_STATUS_SUCCESS)
        canvas_.setDrawError(
            {std::string(base::cocoaErrorDomain), 0, std::string("drawing failed: ") + cairo_status_to_string(status)});
    cairo_destroy(cairo_);
    cairo_surface_flush(surface_);
    cairo_surface_destroy(surface_);
}

cairo_surface_t* surfaceOnBitmap(const Bitmap& bitmap) {
    // Cairo takes no read-only pixels; a source surface is not written to.
    return cairo_image_surface_create_for_data(const_cast<std::uint8_t*>(bitmap.pixels()),
                                               bitmap.isOpaque() ? CAIRO_FORMAT_RGB24 : CAIRO_FORMAT_ARGB32,
                                               bitmap.width(), bitmap.height(), static_cast<int>(bitmap.stride()));
}

void applyTransform(cairo_t* cairo, const base::AffineTransform& transform) {
    const cairo_matrix_t matrix = {transform.a, transform.b, transform.c, transform.d, transform.tx, transform.ty};
    cairo_transform(cairo, &matrix);
}

void castShadow(BitmapContext::Storage& canvas, const ShadowCaster& caster) {
    const auto& shadow = canvas.state.shadow;
    if (!shadow || shadow->color.alpha <= 0) return;
    const double reach = blurReach(shadow->sigma) + 1;
    const PixelRect area =
        touchedPixels(moved(caster.deviceBounds, shadow->offset).inset(-reach, -reach), canvas.state.clip);
    if (area.isEmpty()) return;
    CanvasDrawing drawing(canvas);
    constexpr double softEnough = 0.5; // a harder edge is drawn as an edge
    if (caster.rectangle && shadow->sigma >= softEnough)
        castRectangleShadow(drawing.cairo(), *shadow, caster, area);
    else
        castDrawnShadow(drawing.cairo(), *shadow, caster, area);
}

} // namespace platform::draw
