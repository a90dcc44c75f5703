// What the readers of styled text share: the style in force, where the text is collected, and decoding.
#pragma once

#include "platform/draw/StyledText.h"

#include <string>
#include <string_view>

namespace platform::draw {

/// The style at some place of a text.
struct TextStyle {
    std::optional<std::string> font; ///< A family or a face.
    std::optional<double> size;      ///< Points.
    std::optional<Color> color;
    std::optional<TextAlignment> alignment;
    bool isBold = false;
    bool isItalic = false;
};

/// Collects a text; the style of its first character is the text's.
class StyledTextCollector {
public:
    /// Well-formed UTF-8. Line breaks of all kinds become "\n"; what XML can't hold is left out.
    void append(std::string_view text, const TextStyle& style);
    bool isEmpty() const { return text_.string.empty(); }
    /// Beyond the limits: reading may end.
    bool isFull() const { return text_.string.size() > maximumStyledText || lines_ > maximumStyledTextLines; }
    void removeLineBreaksAtEnd();
    base::Result<StyledText> finish();

private:
    StyledText text_;
    std::size_t lines_ = 1;
};

base::Result<StyledText> readRTF(std::string_view bytes);
base::Result<StyledText> readHTML(std::string_view bytes);

/// From an encoding by its name for iconv. Bytes that mean nothing in it become replacement characters, and so does all
/// but ASCII when the encoding is unknown.
std::string utf8FromEncoding(std::string_view bytes, const char* encoding);
/// The text behind a byte order mark of UTF-8 or UTF-16; nothing without one.
std::optional<std::string> utf8ByMark(std::string_view bytes);

base::Error styledTextError(std::string_view what);

} // namespace platform::draw
