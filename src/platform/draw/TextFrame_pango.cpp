#include "internal/FontCatalog.h"
#include "internal/TextFrameStorage.h"
#include "platform/draw/TextFrame.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace platform::draw {
namespace {

constexpr double unit = PANGO_SCALE;

// A font map that threads share crashes: each has its own, with a context for layouts without hinting, so that text
// takes the same room at every scale.
PangoContext* contextOfThread() {
    thread_local const ObjectPointer<PangoFontMap> map(pango_cairo_font_map_new());
    thread_local const ObjectPointer<PangoContext> context = [] {
        ObjectPointer<PangoContext> made(pango_font_map_create_context(map.get()));
        cairo_font_options_t* options = cairo_font_options_create();
        cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
        cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
        cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
        pango_cairo_context_set_font_options(made.get(), options);
        cairo_font_options_destroy(options);
        pango_context_set_round_glyph_positions(made.get(), FALSE);
        return made;
    }();
    return context.get();
}

void applyAlignment(PangoLayout* layout, TextAlignment alignment) {
    // Pango exchanges left and right in paragraphs that run from right to left, as natural alignment wants it; the
    // others are told apart when the lines are placed.
    pango_layout_set_alignment(layout, alignment == TextAlignment::center  ? PANGO_ALIGN_CENTER
                                       : alignment == TextAlignment::right ? PANGO_ALIGN_RIGHT
                                                                           : PANGO_ALIGN_LEFT);
    pango_layout_set_justify(layout, alignment == TextAlignment::justified);
}

// A word that is cut stays as it is written.
void forbidHyphens(PangoLayout* layout) {
    PangoAttrList* attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_insert_hyphens_new(FALSE));
    pango_layout_set_attributes(layout, attributes);
    pango_attr_list_unref(attributes);
}

// `width` 0 or less lays each paragraph out in one line.
ObjectPointer<PangoLayout> makeLayout(const AttributedText& text, double width) {
    ObjectPointer<PangoLayout> layout(pango_layout_new(contextOfThread()));
    constexpr double defaultSize = 12, largestSize = 10000;
    const double size = text.attributes.fontSize;
    const FontDescription description = FontCatalog::shared().descriptionFor(text.attributes.fontName);
    pango_font_description_set_absolute_size(description.get(),
                                             (size > 0 ? std::min(size, largestSize) : defaultSize) * unit);
    pango_layout_set_font_description(layout.get(), description.get());
    char* valid = g_utf8_make_valid(text.string.data(), static_cast<gssize>(text.string.size()));
    pango_layout_set_text(layout.get(), valid, -1);
    applyAlignment(layout.get(), text.attributes.alignment);
    g_free(valid);
    forbidHyphens(layout.get());
    if (width > 0) {
        constexpr double widest = std::numeric_limits<int>::max() / 2;
        pango_layout_set_width(layout.get(), static_cast<int>(std::min(width * unit, widest)));
        pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    }
    return layout;
}

base::Rect inPixels(const PangoRectangle& rectangle) {
    return {rectangle.x / unit, rectangle.y / unit, rectangle.width / unit, rectangle.height / unit};
}

// Where a line begins whose alignment does not depend on its direction.
std::optional<double> fixedEdge(TextAlignment alignment, double width, double lineWidth) {
    if (alignment == TextAlignment::left) return 0.0;
    if (alignment == TextAlignment::right) return width - lineWidth;
    return std::nullopt;
}

base::Rect unionOf(const base::Rect& one, const base::Rect& other) {
    if (one.isEmpty()) return other;
    if (other.isEmpty()) return one;
    const double x = std::min(one.x, other.x);
    const double y = std::min(one.y, other.y);
    return {x, y, std::max(one.maxX(), other.maxX()) - x, std::max(one.maxY(), other.maxY()) - y};
}

} // namespace

std::vector<std::string> availableFonts() {
    return FontCatalog::shared().postScriptNames();
}

bool isFontAvailable(std::string_view name) {
    return FontCatalog::shared().contains(name);
}

TextFrame::TextFrame(const AttributedText& text, base::Size size) : storage_(std::make_unique<Storage>()) {
    storage_->isComplete = text.string.empty();
    if (text.string.empty() || !(size.width > 0) || !(size.height > 0)) return;
    storage_->layout = makeLayout(text, size.width);

    const char* characters = pango_layout_get_text(storage_->layout.get());
    PangoLayoutIter* iterator = pango_layout_get_iter(storage_->layout.get());
    constexpr double tolerance = 0.01; // a height computed from the text's own must hold it
    do {
        PangoRectangle inkBox, logicalBox;
        pango_layout_iter_get_line_extents(iterator, &inkBox, &logicalBox);
        base::Rect logical = inPixels(logicalBox);
        if (logical.maxY() > size.height + tolerance) break;
        base::Rect ink = inPixels(inkBox);
        if (const auto x = fixedEdge(text.attributes.alignment, size.width, logical.width)) {
            ink.x += *x - logical.x;
            logical.x = *x;
        }
        PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iterator);
        const double baseline = pango_layout_iter_get_baseline(iterator) / unit;
        storage_->lines.push_back(
            {line,
             {std::string(characters + line->start_index, static_cast<std::size_t>(line->length)), logical.x, baseline,
              logical.width, baseline - logical.y, logical.maxY() - baseline},
             ink});
    } while (pango_layout_iter_next_line(iterator));
    pango_layout_iter_free(iterator);
    storage_->isComplete =
        storage_->lines.size() == static_cast<std::size_t>(pango_layout_get_line_count(storage_->layout.get()));
}

TextFrame::~TextFrame() = default;
TextFrame::TextFrame(TextFrame&&) noexcept = default;
TextFrame& TextFrame::operator=(TextFrame&&) noexcept = default;

std::vector<TextFrame::Line> TextFrame::lines() const {
    std::vector<Line> lines;
    for (const Storage::PlacedLine& line : storage_->lines)
        lines.push_back(line.placed);
    return lines;
}

bool TextFrame::isComplete() const {
    return storage_->isComplete;
}

base::Rect TextFrame::inkBounds() const {
    base::Rect bounds;
    for (const Storage::PlacedLine& line : storage_->lines)
        bounds = unionOf(bounds, line.ink);
    return bounds;
}

std::string TextFrame::resolvedFontFamily() const {
    if (!storage_->layout) return {};
    const ObjectPointer<PangoFont> font(
        pango_context_load_font(contextOfThread(), pango_layout_get_font_description(storage_->layout.get())));
    if (!font) return {};
    const FontDescription description(pango_font_describe(font.get()));
    return pango_font_description_get_family(description.get());
}

void TextFrame::Storage::drawGlyphs(cairo_t* cairo) const {
    for (const PlacedLine& line : lines) {
        cairo_move_to(cairo, line.placed.x, line.placed.baseline);
        pango_cairo_show_layout_line(cairo, line.line);
    }
}

base::Size sizeOfText(const AttributedText& text, double maximumWidth) {
    if (text.string.empty()) return {};
    const ObjectPointer<PangoLayout> layout = makeLayout(text, maximumWidth);
    PangoRectangle logicalBox;
    pango_layout_get_extents(layout.get(), nullptr, &logicalBox);
    return inPixels(logicalBox).size();
}

} // namespace platform::draw
