#include "internal/Canvas.h"
#include "internal/ImagePlacement.h"
#include "internal/TextFrameStorage.h"
#include "platform/draw/BitmapContext.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace platform::draw {

using base::Rect;

namespace {

bool isFinite(const Rect& rect) {
    return std::isfinite(rect.x) && std::isfinite(rect.y) && std::isfinite(rect.width) && std::isfinite(rect.height);
}

// With a positive width and height.
Rect standardized(const Rect& rect) {
    return {std::min(rect.x, rect.maxX()), std::min(rect.y, rect.maxY()), std::abs(rect.width), std::abs(rect.height)};
}

bool isWhole(double value) {
    return std::abs(value - std::round(value)) < 1e-4;
}

void setSource(cairo_t* cairo, const Color::RGBA& color, double alpha) {
    cairo_set_source_rgba(cairo, color.red, color.green, color.blue, color.alpha * alpha);
}

void addEllipticCorner(cairo_t* cairo, double x, double y, double width, double height, double from) {
    cairo_save(cairo);
    cairo_translate(cairo, x, y);
    cairo_scale(cairo, width, height);
    cairo_arc(cairo, 0, 0, 1, from, from + std::numbers::pi / 2);
    cairo_restore(cairo);
}

void addToPath(cairo_t* cairo, const BitmapContext::Storage::PathElement& element) {
    const Rect& rect = element.rect;
    const double width = std::min(element.cornerWidth, rect.width / 2);
    const double height = std::min(element.cornerHeight, rect.height / 2);
    cairo_save(cairo);
    applyTransform(cairo, element.deviceTransform);
    if (width > 0 && height > 0) {
        constexpr double quarter = std::numbers::pi / 2;
        cairo_new_sub_path(cairo);
        addEllipticCorner(cairo, rect.maxX() - width, rect.y + height, width, height, -quarter);
        addEllipticCorner(cairo, rect.maxX() - width, rect.maxY() - height, width, height, 0);
        addEllipticCorner(cairo, rect.x + width, rect.maxY() - height, width, height, quarter);
        addEllipticCorner(cairo, rect.x + width, rect.y + height, width, height, 2 * quarter);
        cairo_close_path(cairo);
    } else {
        cairo_rectangle(cairo, rect.x, rect.y, rect.width, rect.height);
    }
    cairo_restore(cairo);
}

// Cairo counts in 24 bits before the point: what lies far beyond the canvas is cut off.
constexpr double farthest = 1e5; // pixels from the canvas

Rect withinReach(const Rect& rect, const base::AffineTransform& deviceTransform, const Bitmap& canvas) {
    const Rect reach{-farthest, -farthest, canvas.width() + 2 * farthest, canvas.height() + 2 * farthest};
    return rect.intersection(deviceTransform.inverted().apply(reach));
}

bool touches(const Rect& deviceBounds, const PixelRect& clip) {
    return deviceBounds.x < clip.maxX() && deviceBounds.maxX() > clip.x && deviceBounds.y < clip.maxY() &&
           deviceBounds.maxY() > clip.y;
}

// The one rectangle that a path consists of, as it stands on the canvas.
std::optional<TurnedRectangle> onlyRectangle(const std::vector<BitmapContext::Storage::PathElement>& path) {
    if (path.size() != 1 || (path[0].cornerWidth > 0 && path[0].cornerHeight > 0)) return std::nullopt;
    return TurnedRectangle::from(path[0].rect, path[0].deviceTransform);
}

// By how much a transform scales lengths when it does so equally in all directions; nothing otherwise.
std::optional<double> uniformScale(const base::AffineTransform& transform) {
    const double first = std::hypot(transform.a, transform.b);
    const double second = std::hypot(transform.c, transform.d);
    if (std::abs(first - second) > 1e-6 * (first + second)) return std::nullopt;
    return first;
}

Rect boundsOfPath(const std::vector<BitmapContext::Storage::PathElement>& path) {
    double left = INFINITY, top = INFINITY, right = -INFINITY, bottom = -INFINITY;
    for (const auto& element : path) {
        const Rect box = element.deviceTransform.apply(element.rect);
        left = std::min(left, box.x);
        top = std::min(top, box.y);
        right = std::max(right, box.maxX());
        bottom = std::max(bottom, box.maxY());
    }
    return {left, top, right - left, bottom - top};
}

// The device pixels to one of the bitmap's, so that it fills the quad.
cairo_pattern_t* patternOnQuad(cairo_surface_t* surface, const Bitmap& bitmap, const ImageQuad& quad) {
    cairo_matrix_t matrix = {quad.right.x / bitmap.width(),
                             quad.right.y / bitmap.width(),
                             quad.down.x / bitmap.height(),
                             quad.down.y / bitmap.height(),
                             quad.topLeft.x,
                             quad.topLeft.y};
    if (cairo_matrix_invert(&matrix) != CAIRO_STATUS_SUCCESS) return nullptr;
    cairo_pattern_t* pattern = cairo_pattern_create_for_surface(surface);
    cairo_pattern_set_matrix(pattern, &matrix);
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD); // edges are cut by the path, not faded by the filter
    cairo_pattern_set_filter(pattern, CAIRO_FILTER_GOOD);
    return pattern;
}

// Fills the quad with the bitmap, in device coordinates.
void paintBitmap(cairo_t* cairo, const Bitmap& bitmap, const ImageQuad& quad, double alpha) {
    cairo_surface_t* surface = surfaceOnBitmap(bitmap);
    if (cairo_pattern_t* pattern = patternOnQuad(surface, bitmap, quad)) {
        cairo_save(cairo);
        cairo_move_to(cairo, quad.topLeft.x, quad.topLeft.y);
        cairo_rel_line_to(cairo, quad.right.x, quad.right.y);
        cairo_rel_line_to(cairo, quad.down.x, quad.down.y);
        cairo_rel_line_to(cairo, -quad.right.x, -quad.right.y);
        cairo_close_path(cairo);
        cairo_set_source(cairo, pattern);
        if (alpha >= 1) {
            cairo_fill(cairo);
        } else {
            cairo_clip(cairo);
            cairo_paint_with_alpha(cairo, alpha);
        }
        cairo_restore(cairo);
        cairo_pattern_destroy(pattern);
    }
    cairo_surface_destroy(surface);
}

// The image's pixels near the size at which the quad shows it.
base::Result<Bitmap> bitmapForQuad(const Image& image, const ImageQuad& quad, Quality quality,
                                   const ColorSpaceRef& space) {
    constexpr double largestSide = 16384;
    const auto side = [&](base::Point vector) {
        return static_cast<int>(std::clamp(std::round(std::hypot(vector.x, vector.y)), 1.0, largestSide));
    };
    return scaledBitmap(image, side(quad.right), side(quad.down), quality, space);
}

} // namespace

BitmapContext::BitmapContext(std::unique_ptr<Storage> storage) : storage_(std::move(storage)) {}
BitmapContext::~BitmapContext() = default;

BitmapContextRef BitmapContext::create(double width, double height, ColorSpaceRef space, AlphaInfo alphaInfo) {
    constexpr double largestSide = 32767; // Cairo's own limit
    if (!(width >= 1) || !(height >= 1) || width > largestSide || height > largestSide) return nullptr;
    if (!space || space->model() != ColorModel::rgb || !space->supportsOutput()) space = ColorSpace::sRGB();
    const bool opaque =
        alphaInfo == AlphaInfo::none || alphaInfo == AlphaInfo::noneSkipFirst || alphaInfo == AlphaInfo::noneSkipLast;
    auto bitmap =
        Bitmap::create(static_cast<std::int64_t>(width), static_cast<std::int64_t>(height), std::move(space), opaque);
    if (!bitmap) return nullptr;
    auto storage = std::make_unique<Storage>(std::move(*bitmap));
    storage->alphaInfo = alphaInfo;
    storage->state.clip = {0, 0, storage->bitmap.width(), storage->bitmap.height()};
    return BitmapContextRef(new BitmapContext(std::move(storage)));
}

int BitmapContext::width() const {
    return storage_->bitmap.width();
}
int BitmapContext::height() const {
    return storage_->bitmap.height();
}
const ColorSpaceRef& BitmapContext::colorSpace() const {
    return storage_->bitmap.colorSpace();
}
AlphaInfo BitmapContext::alphaInfo() const {
    return storage_->alphaInfo;
}

void BitmapContext::saveState() {
    storage_->savedStates.push_back(storage_->state);
}

void BitmapContext::restoreState() {
    if (storage_->savedStates.empty()) return;
    storage_->state = std::move(storage_->savedStates.back());
    storage_->savedStates.pop_back();
}

void BitmapContext::concatenate(const base::AffineTransform& transform) {
    storage_->state.transform = storage_->state.transform.after(transform);
}

const base::AffineTransform& BitmapContext::transform() const {
    return storage_->state.transform;
}

void BitmapContext::clipToRect(const Rect& rect) {
    auto& state = storage_->state;
    if (rect.isNull() || !isFinite(rect)) {
        state.clip = {};
        return;
    }
    const base::AffineTransform transform = storage_->deviceTransform();
    const Rect box = transform.apply(rect);
    const Rect limits{double(state.clip.x), double(state.clip.y), double(std::max(state.clip.width, 0)),
                      double(std::max(state.clip.height, 0))};
    const bool alongGrid = (transform.b == 0 && transform.c == 0) || (transform.a == 0 && transform.d == 0);
    const bool onGrid = isWhole(box.x) && isWhole(box.y) && isWhole(box.maxX()) && isWhole(box.maxY());
    if (!alongGrid || !onGrid) state.turnedClips.push_back({transform, standardized(rect)});
    const Rect snapped = alongGrid && onGrid
                             ? Rect{std::round(box.x), std::round(box.y), std::round(box.maxX()) - std::round(box.x),
                                    std::round(box.maxY()) - std::round(box.y)}
                             : box.integral();
    const Rect common = limits.intersection(snapped);
    state.clip = common.isNull() ? PixelRect{}
                                 : PixelRect{static_cast<int>(common.x), static_cast<int>(common.y),
                                             static_cast<int>(common.width), static_cast<int>(common.height)};
}

void BitmapContext::setFillColor(const Color& color) {
    storage_->state.fill = color.inSpace(colorSpace());
}
void BitmapContext::setStrokeColor(const Color& color) {
    storage_->state.stroke = color.inSpace(colorSpace());
}
void BitmapContext::setLineWidth(double width) {
    storage_->state.lineWidth = width;
}
void BitmapContext::setAlpha(double alpha) {
    storage_->state.alpha = std::isnan(alpha) ? 1 : std::clamp(alpha, 0.0, 1.0);
}

void BitmapContext::setShadow(base::Size offset, double blur, const Color& color) {
    if (!std::isfinite(offset.width) || !std::isfinite(offset.height)) return clearShadow();
    const double widest = 2.0 * std::max(width(), height()); // beyond that it is even all over
    const double sigma = std::isnan(blur) ? 0 : std::clamp(blur / 2, 0.0, widest);
    storage_->state.shadow = Storage::Shadow{{offset.width, -offset.height}, sigma, color.inSpace(colorSpace())};
}

void BitmapContext::clearShadow() {
    storage_->state.shadow.reset();
}

void BitmapContext::setQuality(Quality quality) {
    storage_->quality = quality;
}
Quality BitmapContext::quality() const {
    return storage_->quality;
}

void BitmapContext::beginPath() {
    storage_->path.clear();
}

void BitmapContext::addRect(const Rect& rect) {
    addRoundedRect(rect, 0, 0);
}

void BitmapContext::addRoundedRect(const Rect& rect, double cornerWidth, double cornerHeight) {
    if (rect.isNull() || !isFinite(rect)) return;
    const base::AffineTransform transform = storage_->deviceTransform();
    const Rect visible = withinReach(standardized(rect), transform, storage_->bitmap);
    if (!visible.isNull()) storage_->path.push_back({transform, visible, cornerWidth, cornerHeight});
}

void BitmapContext::fillPath() {
    const auto path = std::move(storage_->path);
    storage_->path.clear();
    if (path.empty()) return;
    const auto& state = storage_->state;
    const auto fill = [&](cairo_t* cairo) {
        for (const auto& element : path)
            addToPath(cairo, element);
        setSource(cairo, state.fill, state.alpha);
        cairo_fill(cairo);
    };
    ShadowCaster caster{boundsOfPath(path), std::nullopt, false, state.fill.alpha * state.alpha, fill};
    if (const auto rectangle = onlyRectangle(path)) {
        caster.rectangle = RectangleShape{*rectangle, std::nullopt};
        caster.hidesItsInside = caster.opacity >= 1;
    }
    castShadow(*storage_, caster);
    fill(CanvasDrawing(*storage_).cairo());
}

void BitmapContext::strokePath() {
    const auto path = std::move(storage_->path);
    storage_->path.clear();
    const auto& state = storage_->state;
    if (path.empty() || !(state.lineWidth > 0)) return;
    const double lineWidth = std::min(state.lineWidth, farthest);
    const base::AffineTransform transform = storage_->deviceTransform();
    const auto stroke = [&](cairo_t* cairo) {
        for (const auto& element : path)
            addToPath(cairo, element);
        setSource(cairo, state.stroke, state.alpha);
        cairo_save(cairo);
        applyTransform(cairo, transform);
        cairo_set_line_width(cairo, lineWidth);
        cairo_stroke(cairo);
        cairo_restore(cairo);
    };
    const double reach =
        lineWidth * std::max(std::hypot(transform.a, transform.b), std::hypot(transform.c, transform.d));
    ShadowCaster caster{boundsOfPath(path).inset(-reach, -reach), std::nullopt, false, state.stroke.alpha * state.alpha,
                        stroke};
    const auto rectangle = onlyRectangle(path);
    if (const auto scale = uniformScale(transform); rectangle && scale) {
        const double half = lineWidth * *scale / 2;
        const TurnedRectangle hole = rectangle->grown(-half);
        caster.rectangle = RectangleShape{rectangle->grown(half), std::nullopt};
        if (hole.halfWidth > 0 && hole.halfHeight > 0) caster.rectangle->hole = hole;
    }
    castShadow(*storage_, caster);
    stroke(CanvasDrawing(*storage_).cairo());
}

void BitmapContext::fillRect(const Rect& rect) {
    auto path = std::exchange(storage_->path, {});
    addRect(rect);
    fillPath();
    storage_->path = std::move(path);
}

void BitmapContext::clearRect(const Rect& rect) {
    if (rect.isNull() || !isFinite(rect)) return;
    const base::AffineTransform transform = storage_->deviceTransform();
    const Rect visible = withinReach(standardized(rect), transform, storage_->bitmap);
    if (visible.isNull()) return;
    const CanvasDrawing drawing(*storage_);
    addToPath(drawing.cairo(), {transform, visible, 0, 0});
    if (storage_->bitmap.isOpaque())
        cairo_set_source_rgb(drawing.cairo(), 0, 0, 0);
    else
        cairo_set_operator(drawing.cairo(), CAIRO_OPERATOR_CLEAR);
    cairo_fill(drawing.cairo());
}

void BitmapContext::drawImage(const ImageRef& image, const Rect& rect) {
    if (!image || rect.isNull() || !isFinite(rect) || rect.isEmpty()) return;
    const auto& state = storage_->state;
    const base::AffineTransform transform = storage_->deviceTransform();
    const ImageQuad quad = ImageQuad::from(standardized(rect), transform);
    const auto placement = state.turnedClips.empty() ? axisAlignedPlacement(quad) : std::nullopt;

    if (!placement && (std::abs(quad.right.x) + std::abs(quad.right.y) > farthest ||
                       std::abs(quad.down.x) + std::abs(quad.down.y) > farthest)) {
        setDrawError({std::string(base::cocoaErrorDomain), 0, "a turned picture is too large to draw"});
        return;
    }
    std::optional<Bitmap> scaled; // the pixels themselves, where the straight way is not open
    const auto needPixels = [&] {
        if (scaled) return true;
        auto pixels = bitmapForQuad(*image, quad, storage_->quality, colorSpace());
        if (pixels)
            scaled = std::move(*pixels);
        else
            setDrawError(pixels.error());
        return scaled.has_value();
    };

    if (state.shadow) {
        ShadowCaster caster{quad.bounds(), std::nullopt, image->isOpaque() && state.alpha >= 1, state.alpha, nullptr};
        if (image->isOpaque())
            if (const auto rectangle = TurnedRectangle::from(standardized(rect), transform))
                caster.rectangle = RectangleShape{*rectangle, std::nullopt};
        const bool drawn = !caster.rectangle || state.shadow->sigma < 0.5;
        if (drawn && !needPixels()) return;
        caster.draw = [&](cairo_t* cairo) { paintBitmap(cairo, *scaled, quad, state.alpha); };
        castShadow(*storage_, caster);
    }
    if (placement) {
        const PixelTarget target{storage_->bitmap.mutablePixels(), storage_->bitmap.stride(), width(), height(),
                                 colorSpace()};
        if (auto result = drawScaled(*image, *placement, storage_->quality, state.alpha, state.clip, target); !result)
            setDrawError(result.error());
        return;
    }
    if (touches(quad.bounds(), state.clip) && needPixels())
        paintBitmap(CanvasDrawing(*storage_).cairo(), *scaled, quad, state.alpha);
}

void BitmapContext::drawText(const AttributedText& text, const Rect& rect) {
    if (rect.isNull() || !isFinite(rect)) return;
    const Rect box = standardized(rect);
    const TextFrame frame(text, box.size());
    const Rect ink = frame.inkBounds();
    if (ink.isEmpty()) return;
    const auto& state = storage_->state;
    // Frame coordinates run down from the rectangle's top.
    const base::AffineTransform toDevice =
        storage_->deviceTransform().after(base::AffineTransform{1, 0, 0, -1, box.x, box.maxY()});
    const Color::RGBA color = text.attributes.color.inSpace(colorSpace());
    const auto draw = [&](cairo_t* cairo) {
        cairo_save(cairo);
        applyTransform(cairo, toDevice);
        setSource(cairo, color, state.alpha);
        frame.storage().drawGlyphs(cairo);
        cairo_restore(cairo);
    };
    const Rect deviceInk = toDevice.apply(ink.inset(-1, -1));
    castShadow(*storage_, {deviceInk, std::nullopt, false, 1, draw});
    if (touches(deviceInk, state.clip)) draw(CanvasDrawing(*storage_).cairo());
}

ImageRef BitmapContext::makeImage() const {
    return Image::fromBitmap(storage_->bitmap);
}

const std::optional<base::Error>& BitmapContext::drawError() const {
    return storage_->drawError;
}
void BitmapContext::setDrawError(base::Error error) {
    storage_->setDrawError(std::move(error));
}
void BitmapContext::clearDrawError() {
    storage_->drawError.reset();
}

} // namespace platform::draw
