// Styled text and its layout in a rectangle. Text is laid out from the top of the rectangle, wraps by words (by
// characters where a word alone is too wide), and lines that do not fit whole in the height are left out. Sizes are in
// points, one point being one pixel of an unscaled context. Values; any thread (each thread lays out with a font map
// of its own), but a frame stays on the thread that made it.
#pragma once

#include "base/Geometry.h"
#include "platform/draw/Color.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform::draw {

/// The numbers are those of stored paragraph styles.
enum class TextAlignment { left = 0, right = 1, center = 2, justified = 3, natural = 4 };

/// What text without attributes is drawn with: Helvetica 12 in black, aligned as its script asks.
struct TextAttributes {
    std::string fontName = "Helvetica"; ///< PostScript ("DejaVuSans-Bold"), full ("DejaVu Sans Bold") or family name.
    double fontSize = 12;               ///< Points.
    Color color;
    TextAlignment alignment = TextAlignment::natural;

    friend bool operator==(const TextAttributes&, const TextAttributes&) = default;
};

/// A text with one set of attributes over its whole length.
struct AttributedText {
    std::string string; ///< UTF-8; broken sequences are drawn as replacement characters.
    TextAttributes attributes;

    friend bool operator==(const AttributedText&, const AttributedText&) = default;
};

/// The PostScript names of all fonts, sorted, each once.
std::vector<std::string> availableFonts();
/// Whether a font answers to this PostScript, full or family name, compared exactly but for case. The Helvetica faces
/// always do: where they are not installed, metric-compatible ones draw for them.
bool isFontAvailable(std::string_view name);

class TextFrame {
public:
    /// Lays the text out in a rectangle of `size`. A width or height of 0 or less holds no line.
    TextFrame(const AttributedText& text, base::Size size);
    ~TextFrame();
    TextFrame(TextFrame&&) noexcept;
    TextFrame& operator=(TextFrame&&) noexcept;

    /// One visible line, in the frame's coordinates: x to the right, y down from the top edge.
    struct Line {
        std::string string;
        double x = 0;
        double baseline = 0;
        double width = 0;
        double ascent = 0;
        double descent = 0;
    };
    std::vector<Line> lines() const;
    /// True when the whole text fitted.
    bool isComplete() const;
    /// The box of all ink of the visible lines, y down from the frame's top edge; empty when nothing shows.
    base::Rect inkBounds() const;
    /// The name of the font that draws, as installed ("Liberation Sans").
    std::string resolvedFontFamily() const;

    struct Storage;
    /// For the bitmap context, on the thread that made the frame.
    const Storage& storage() const { return *storage_; }

private:
    std::unique_ptr<Storage> storage_;
};

/// The size that the text takes when it may be at most `maximumWidth` wide (0 or less for no limit).
base::Size sizeOfText(const AttributedText& text, double maximumWidth);

} // namespace platform::draw
