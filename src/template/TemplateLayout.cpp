#include "template/TemplateLayout.h"

#include "base/MessageTemplate.h"
#include "base/Path.h"
#include "folders/QueueHelpers.h"
#include "internal/TemplateRenderer.h"

#include <array>
#include <cmath>
#include <utility>

using base::Rect;
using platform::draw::TextFrame;

namespace {

TextLayout layoutOfText(const platform::draw::AttributedText& text, const Rect& rect) {
    TextLayout layout{.text = text.string,
                      .fontName = text.attributes.fontName,
                      .fontSize = text.attributes.fontSize,
                      .alignment = text.attributes.alignment,
                      .rect = rect};
    const TextFrame frame(text, rect.size());
    layout.fontFamily = frame.resolvedFontFamily();
    layout.isComplete = frame.isComplete();
    for (const TextFrame::Line& line : frame.lines())
        layout.lines.push_back({line.string, rect.x + line.x, rect.y + line.baseline, line.width});
    return layout;
}

} // namespace

std::vector<LayerLayout> TemplateRenderer::layout() {
    std::vector<LayerLayout> layers;
    for (const auto& layer : drawingList()) {
        const bool isEmptyContainer = layer.get() == &drawn_ && layer->layerType() == VELM_Template::LayerTypeContainer;
        if (!isEmptyContainer) layers.push_back(layoutOf(*layer));
    }
    return layers;
}

LayerLayout TemplateRenderer::layoutOf(VELM_Template& layer) {
    const PlacedLayer placed = place(layer, Purpose::layout);
    LayerLayout layout{.layer = layer.shared_from_this(),
                       .type = layer.layerType(),
                       .frame = placed.frame,
                       .omission = placed.omission};
    if (layout.type == VELM_Template::LayerTypeContainer)
        folders::performSyncOnQueue(layer.renderingQueue(), [&] { layout.layers = TemplateRenderer(layer).layout(); });
    if (!placed.image) return layout;
    KLARON_Image& image = *placed.image;
    layout.rotation = image.rotation().value_or(0);
    if (image.destinationRect() == Rect{}) { // draws over the whole canvas
        image.setDestinationRect({0, 0, std::trunc(drawn_.width()), std::trunc(drawn_.height())});
    } else if (placed.frame.width == 0 || placed.frame.height == 0) {
        layout.omission = LayerOmission::emptyFrame;
        return layout;
    }
    auto [content, shown] = image.drawingPlacement();
    if (content.isNull()) { // the border leaves nothing of it
        const base::Point middle = image.destinationRect().center();
        content = {middle.x, middle.y, 0, 0};
        shown = {};
    }
    content.y = flipped(content.y, content.height);
    if (placed.text) {
        layout.text = layoutOfText(*placed.text, content);
        // What the layer asked for, not what stands in for it.
        if (layer.stringValue()) layout.text->fontName = layer.fontName();
        layout.text->isFontAvailable = platform::draw::isFontAvailable(layout.text->fontName);
    } else {
        layout.picture = PictureLayout{.file = placed.file,
                                       .isPlaceholder = placed.isPlaceholder,
                                       .orientation = image.orientation(),
                                       .size = image.orientedSize(),
                                       .shown = shown,
                                       .rect = content};
    }
    return layout;
}

std::vector<LayerLayout> layoutOf(VELM_Template& document) {
    std::vector<LayerLayout> layers;
    folders::performSyncOnQueue(document.renderingQueue(), [&] { layers = TemplateRenderer(document).layout(); });
    return layers;
}

std::string_view descriptionOf(LayerOmission omission) {
    switch (omission) {
    case LayerOmission::none:
        return "";
    case LayerOmission::typeIsNotDrawn:
        return "its type is not drawn";
    case LayerOmission::noText:
        return "no text";
    case LayerOmission::noPath:
        return "no picture is named";
    case LayerOmission::missingPicture:
        return "the picture is missing";
    case LayerOmission::unreadablePicture:
        return "the picture can't be read";
    case LayerOmission::noCanvas:
        return "its frame makes no canvas";
    case LayerOmission::emptyFrame:
        return "its frame is empty";
    }
    return "";
}

// --- The text

namespace {

// The same on every machine: two decimals, and no minus before a zero.
std::string number(double value) {
    const std::string text = base::message("%.2f", value);
    return text == "-0.00" ? "0.00" : text;
}

std::string numbers(base::Size size) {
    return number(size.width) + " x " + number(size.height);
}

std::string numbers(const Rect& rect) {
    return number(rect.x) + ", " + number(rect.y) + ", " + numbers(rect.size());
}

// On one line, between quotes.
std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) {
        switch (character) {
        case '"':
        case '\\':
            result += {'\\', character};
            break;
        case '\n':
            result += "\\n";
            break;
        case '\r':
            result += "\\r";
            break;
        case '\t':
            result += "\\t";
            break;
        default:
            result += character;
        }
    }
    return result + "\"";
}

std::string_view nameOf(platform::draw::TextAlignment alignment) {
    constexpr std::array<std::string_view, 5> names{"left", "right", "center", "justified", "natural"};
    return names[static_cast<std::size_t>(alignment)];
}

class LayoutWriter {
public:
    void write(const std::vector<LayerLayout>& layers, int depth) {
        for (const LayerLayout& layer : layers)
            write(layer, depth);
    }
    void line(int depth, std::string_view text) {
        text_.append(static_cast<std::size_t>(depth) * 2, ' ').append(text).append("\n");
    }
    std::string take() { return std::move(text_); }

private:
    void write(const LayerLayout& layer, int depth) {
        std::string head = layer.layer->type().value_or("layer");
        if (const auto key = layer.layer->key()) head += " " + quoted(*key);
        line(depth, head);
        ++depth;
        line(depth, "frame " + numbers(layer.frame));
        if (layer.rotation != 0) line(depth, "rotation " + number(layer.rotation));
        if (!layer.isDrawn()) line(depth, base::message("not drawn: %@", descriptionOf(layer.omission)));
        if (layer.picture) write(*layer.picture, layer.type == VELM_Template::LayerTypeContainer, depth);
        if (layer.text) write(*layer.text, depth);
        write(layer.layers, depth);
    }

    void write(const PictureLayout& picture, bool isContainer, int depth) {
        const std::string name = picture.isPlaceholder  ? "placeholder"
                                 : isContainer          ? "canvas"
                                 : picture.file.empty() ? "picture in memory"
                                                        : "picture " + quoted(base::lastPathComponent(picture.file));
        line(depth, name + " " + numbers(picture.size) + " orientation " + std::to_string(picture.orientation));
        line(depth, picture.shown.isEmpty() ? "shows nothing" : "shows " + numbers(picture.shown));
        line(depth, "in " + numbers(picture.rect));
    }

    void write(const TextLayout& text, int depth) {
        line(depth, "text " + quoted(text.text));
        line(depth, "font " + quoted(text.fontName) + (text.isFontAvailable ? "" : " (not available)") + " drawn by " +
                        quoted(text.fontFamily) + " size " + number(text.fontSize) + " " +
                        std::string(nameOf(text.alignment)));
        line(depth, "in " + numbers(text.rect));
        for (const TextLayout::Line& row : text.lines)
            line(depth, "line " + number(row.x) + ", " + number(row.baseline) + " width " + number(row.width) + " " +
                            quoted(row.text));
        if (!text.isComplete) line(depth, "the text does not fit");
    }

    std::string text_;
};

} // namespace

std::string layoutText(const VELM_Template& document, const std::vector<LayerLayout>& layers) {
    LayoutWriter writer;
    writer.line(0, "canvas " + numbers(document.canvasSize()));
    writer.write(layers, 1);
    return writer.take();
}
