#include "RowPlan.h"

#include "LayerRows.h"
#include "base/MessageTemplate.h"
#include "platform/draw/ColorRows.h"
#include "platform/draw/ScaledRows.h"

#include <algorithm>
#include <cmath>

namespace platform::filter {

using base::AffineTransform;
using base::Rect;
using base::Result;
using draw::ColorSpaceRef;
using draw::RowReaderRef;

namespace {

/// As resampling treats edges (ScaledRows.h).
constexpr double edgeTolerance = 1.0 / 512;
/// Beyond it pixels can't be counted any more.
constexpr double largestPlacement = 1e9;
/// Pixels of the input on each side that a resampled one is made of, and some more.
constexpr double resamplingReach = 3;
constexpr double resamplingSlack = 2;

PixelRect pixelRect(const Rect& rect) {
    return {static_cast<int>(rect.x), static_cast<int>(rect.y), static_cast<int>(rect.maxX()),
            static_cast<int>(rect.maxY())};
}

Rect rectOf(const PixelRect& rect) {
    return {static_cast<double>(rect.left), static_cast<double>(rect.top), static_cast<double>(rect.width()),
            static_cast<double>(rect.height())};
}

/// The transform's mirroring and turning without its scale and translation.
AffineTransform turnOf(const AffineTransform& t) {
    const auto sign = [](double value) { return static_cast<double>((value > 0) - (value < 0)); };
    return {sign(t.a), sign(t.b), sign(t.c), sign(t.d), 0, 0};
}

bool isWhole(double number) {
    return std::abs(number - std::round(number)) <= edgeTolerance;
}

bool isUnscaled(const AffineTransform& t) {
    const AffineTransform turn = turnOf(t);
    constexpr double tolerance = 1e-9;
    return std::abs(t.a - turn.a) < tolerance && std::abs(t.b - turn.b) < tolerance &&
           std::abs(t.c - turn.c) < tolerance && std::abs(t.d - turn.d) < tolerance;
}

/// What is visible of a leaf: the whole pixels that it touches, and how much of each it covers where a crop ends
/// between pixels. Edges of the leaf itself are its reader's matter.
struct VisiblePart {
    Rect box;
    Rect covered;

    VisiblePart(const Rect& leaf, const Rect& clip, const Rect& visible) {
        const Rect whole = snapped(leaf, edgeTolerance);
        const Rect part = whole.intersection(snapped(clip, edgeTolerance));
        if (part.isEmpty()) return;
        box = part.integral().intersection(visible);
        const auto edge = [](double at, double own, double outward) {
            return std::abs(at - own) <= edgeTolerance ? outward : at;
        };
        const double left = edge(part.x, whole.x, std::floor(part.x));
        const double top = edge(part.y, whole.y, std::floor(part.y));
        covered = {left, top, edge(part.maxX(), whole.maxX(), std::ceil(part.maxX())) - left,
                   edge(part.maxY(), whole.maxY(), std::ceil(part.maxY())) - top};
    }

    void setCoverage(Layer& layer) const {
        const auto part = [](double pixel, double from, double to) {
            return std::clamp(std::min(pixel + 1, to) - std::max(pixel, from), 0.0, 1.0);
        };
        layer.firstColumn = part(box.x, covered.x, covered.maxX());
        layer.firstRow = part(box.y, covered.y, covered.maxY());
        if (box.width > 1) layer.lastColumn = part(box.maxX() - 1, covered.x, covered.maxX());
        if (box.height > 1) layer.lastRow = part(box.maxY() - 1, covered.y, covered.maxY());
    }
};

/// A colour of sRGB, premultiplied and coded in another space.
Result<std::array<float, 4>> colorIn(const ColorSpaceRef& space, const std::array<float, 4>& color) {
    std::array<float, 4> result{color[0], color[1], color[2], color[3]};
    if (!space->isSRGB()) {
        constexpr int deepBits = 16;
        const auto conversion =
            draw::ColorRows::between(draw::ColorSpace::sRGB(), draw::RowDepth::half, space, deepBits);
        if (!conversion) return base::failure(conversion.error());
        const std::array<std::uint16_t, 4> pixel{draw::halfOfFloat(color[0]), draw::halfOfFloat(color[1]),
                                                 draw::halfOfFloat(color[2]), draw::halfOfFloat(1)};
        std::array<std::uint16_t, 4> converted{};
        (*conversion)
            ->convert(reinterpret_cast<const std::uint8_t*>(pixel.data()),
                      reinterpret_cast<std::uint8_t*>(converted.data()), 1);
        for (std::size_t c = 0; c < 3; ++c)
            result.at(c) = static_cast<float>(converted.at(c)) / 65535;
    }
    for (std::size_t c = 0; c < 3; ++c)
        result.at(c) *= color[3];
    return result;
}

/// From a picture's pixels, y down, to its plane, y up.
AffineTransform fromTopOf(const draw::Image& image) {
    return {1, 0, 0, -1, 0, static_cast<double>(image.height())};
}

struct LargestPicture {
    double pixels = 0;
    AffineTransform turn;

    void find(const Node& node, const AffineTransform& toDevice) {
        if (const auto* picture = std::get_if<PictureNode>(&node.content)) {
            if (node.extent.width * node.extent.height <= pixels) return;
            pixels = node.extent.width * node.extent.height;
            turn = turnOf(toDevice.after(fromTopOf(*picture->image)));
        } else if (const auto* placed = std::get_if<PlacedNode>(&node.content)) {
            find(*placed->source, toDevice.after(placed->transform));
        } else if (const auto* cropped = std::get_if<CroppedNode>(&node.content)) {
            find(*cropped->source, toDevice);
        } else if (const auto* filtered = std::get_if<FilteredNode>(&node.content)) {
            find(*filtered->source, toDevice);
        } else if (const auto* over = std::get_if<OverNode>(&node.content)) {
            find(*over->bottom, toDevice);
            find(*over->top, toDevice);
        }
    }
};

} // namespace

AffineTransform turnOfRows(const Node& node, const AffineTransform& toDevice) {
    LargestPicture largest;
    largest.find(node, toDevice);
    return largest.turn;
}

Result<RowReaderRef> RowPlan::rows(const Node& node, const AffineTransform& toDevice, const Rect& visible,
                                   const ColorSpaceRef& colorSpace) {
    std::vector<Leaf> leaves;
    collect(node, toDevice, visible, leaves);
    const bool isSinglePicture = leaves.size() == 1 && !std::holds_alternative<ConstantNode>(leaves[0].node->content);
    const ColorSpaceRef space = colorSpace || isSinglePicture ? colorSpace : draw::ColorSpace::sRGB();

    // From the top, for what lies under something opaque need not be made.
    std::vector<Layer> layers;
    for (auto leaf = leaves.rbegin(); leaf != leaves.rend(); ++leaf) {
        const VisiblePart part(transformed(leaf->node->extent, leaf->toDevice), leaf->clip, visible);
        if (part.box.isEmpty()) continue;
        Layer layer;
        layer.rect = pixelRect({part.box.x - visible.x, part.box.y - visible.y, part.box.width, part.box.height});
        if (std::ranges::any_of(layers, [&](const Layer& upper) {
                return upper.isOpaque() && upper.rect.intersection(layer.rect) == layer.rect;
            }))
            continue;
        if (const auto* constant = std::get_if<ConstantNode>(&leaf->node->content)) {
            auto color = colorIn(space, constant->color);
            if (!color) return base::failure(std::move(color.error()));
            layer.color = *color;
        } else {
            auto reader = leafRows(*leaf, part.box, space);
            if (!reader) return reader;
            layer.reader = std::move(*reader);
        }
        part.setCoverage(layer);
        layers.push_back(std::move(layer));
    }
    std::ranges::reverse(layers);
    if (layers.size() == 1 && layers[0].reader && layers[0].isWhole() &&
        rectOf(layers[0].rect).size() == visible.size())
        return std::move(layers[0].reader);
    const ColorSpaceRef own = !layers.empty() && layers[0].reader ? layers[0].reader->format().colorSpace : space;
    return layerRows(std::move(layers), static_cast<int>(visible.width), static_cast<int>(visible.height), depth_,
                     own ? own : draw::ColorSpace::sRGB());
}

void RowPlan::collect(const Node& node, const AffineTransform& toDevice, const Rect& clip, std::vector<Leaf>& leaves) {
    const Rect common = clip.intersection(transformed(node.extent, toDevice));
    if (common.isEmpty()) return;
    if (const auto* placed = std::get_if<PlacedNode>(&node.content)) {
        collect(*placed->source, toDevice.after(placed->transform), clip, leaves);
    } else if (const auto* cropped = std::get_if<CroppedNode>(&node.content)) {
        collect(*cropped->source, toDevice, common, leaves);
    } else if (const auto* over = std::get_if<OverNode>(&node.content)) {
        collect(*over->bottom, toDevice, clip, leaves);
        collect(*over->top, toDevice, clip, leaves);
    } else if (!std::holds_alternative<EmptyNode>(node.content)) {
        leaves.push_back({&node, toDevice, clip});
    }
}

Result<RowReaderRef> RowPlan::leafRows(const Leaf& leaf, const Rect& box, const ColorSpaceRef& colorSpace) {
    if (const auto* picture = std::get_if<PictureNode>(&leaf.node->content))
        return pictureRows(*picture, leaf.toDevice, box, colorSpace);
    return isUnscaled(leaf.toDevice) ? filterRows(*leaf.node, leaf.toDevice, box)
                                     : resampledFilterRows(*leaf.node, leaf.toDevice, box);
}

Result<RowReaderRef> RowPlan::pictureRows(const PictureNode& picture, const AffineTransform& toDevice, const Rect& box,
                                          const ColorSpaceRef& colorSpace) {
    const double width = picture.image->width();
    const double height = picture.image->height();
    const AffineTransform fromTop = toDevice.after(fromTopOf(*picture.image));
    const Rect place = fromTop.apply({0, 0, width, height});
    if (std::max(place.width, place.height) > largestPlacement)
        return base::failure(base::cocoaErrorDomain, -1,
                             base::message("A picture of %d x %d pixels can't be drawn %g x %g pixels large.",
                                           picture.image->width(), picture.image->height(), place.width, place.height));

    // Mirrored first, then turned clockwise, as scaledRows does it.
    const AffineTransform turn = turnOf(fromTop);
    constexpr AffineTransform quarter{0, 1, -1, 0, 0, 0};
    const bool isMirrored = turn.a * turn.d - turn.b * turn.c < 0;
    AffineTransform made{isMirrored ? -1.0 : 1.0, 0, 0, 1, 0, 0};
    int quarterTurns = 0;
    for (; quarterTurns < 3 && made != turn; ++quarterTurns)
        made = quarter.after(made);

    const bool isResampled = !isUnscaled(fromTop) || !isWhole(place.x) || !isWhole(place.y);
    if (isResampled) statistics_.resampledPixels += static_cast<std::uint64_t>(box.width * box.height);
    return draw::scaledRows(picture.image, quarterTurns, isMirrored, {place.x, place.y, place.width, place.height, box},
                            depth_, colorSpace, draw::Quality::final);
}

Result<RowReaderRef> RowPlan::filterRows(const Node& node, const AffineTransform& toDevice, const Rect& box) {
    const auto& filtered = std::get<FilteredNode>(node.content);
    const PixelRect wanted = pixelRect(box);
    // Wide enough for any reach, narrow enough for whole numbers.
    constexpr double around = 1e6;
    const Rect extent = snapped(transformed(node.extent, toDevice), edgeTolerance).integral();
    const PixelRect bounds = pixelRect(extent.intersection(box.inset(-around, -around)));
    auto source = rows(*filtered.source, toDevice, rectOf(pixelsNeeded(filtered.steps, wanted, bounds)), nullptr);
    if (!source) return source;
    statistics_.filteredPixels += static_cast<std::uint64_t>(box.width * box.height);
    return filteredRows(std::move(*source), filtered.steps, wanted, bounds);
}

Result<RowReaderRef> RowPlan::resampledFilterRows(const Node& node, const AffineTransform& toDevice, const Rect& box) {
    // The filters' own pixels, turned already; from there on only scaling and moving are left.
    const AffineTransform turn = turnOf(toDevice);
    const AffineTransform scaling = toDevice.after(turn.inverted());
    const auto reach = [](double scale) { return resamplingReach * std::max(1.0, 1 / scale) + resamplingSlack; };
    const Rect needed = scaling.inverted().apply(box).inset(-reach(scaling.a), -reach(scaling.d)).integral();
    const Rect pixels = snapped(transformed(node.extent, turn), edgeTolerance).integral().intersection(needed);
    if (pixels.isEmpty() || std::max(pixels.width, pixels.height) > static_cast<double>(draw::maximumBitmapSide))
        return base::failure(
            base::cocoaErrorDomain, -1,
            base::message("A filtered image of %g x %g pixels can't be resampled.", pixels.width, pixels.height));

    auto source = filterRows(node, AffineTransform::translation(-pixels.x, -pixels.y).after(turn),
                             {0, 0, pixels.width, pixels.height});
    if (!source) return source;
    const Rect place = scaling.apply(pixels);
    statistics_.resampledPixels += static_cast<std::uint64_t>(box.width * box.height);
    return draw::scaledRows(std::move(*source), {place.x, place.y, place.width, place.height, box},
                            draw::Quality::final);
}

} // namespace platform::filter
