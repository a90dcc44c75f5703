// Styled text as other programs put it on a pasteboard: RTF, HTML and plain text in UTF-8 or UTF-16. Read into one text
// with the style of its first character, which is what a text layer can hold. Pure functions; any thread.
//
// Paragraphs and line breaks become "\n", with none at the end; cells of a table are parted by tabs. Pictures, marks of
// lists, notes, hidden text and scripts are left out, and so are characters that no XML document can hold. Plain text
// keeps all its line breaks.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/draw/TextFrame.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace platform::draw {

/// What is read at most, and how long a text may come of it: 32 MiB, and 256 KiB in 2000 lines, as the time to lay a
/// text out grows with the square of its lines.
inline constexpr std::size_t maximumStyledTextData = std::size_t{32} << 20;
inline constexpr std::size_t maximumStyledText = std::size_t{256} << 10;
inline constexpr std::size_t maximumStyledTextLines = 2000;
/// How deep groups and elements may be nested.
inline constexpr std::size_t maximumStyledTextDepth = 1000;

struct StyledText {
    std::string string; ///< UTF-8.
    /// Of the first character, each only when the source tells it. The font is the PostScript name of the face that is
    /// asked for where one is installed, else its name as the source has it.
    std::optional<std::string> fontName;
    std::optional<double> fontSize; ///< Points.
    std::optional<Color> color;
    std::optional<TextAlignment> alignment;

    /// With the defaults of TextAttributes for what the source leaves open.
    AttributedText attributedText() const;

    friend bool operator==(const StyledText&, const StyledText&) = default;
};

/// The identifiers of the types that are read, those with style first.
std::span<const std::string_view> styledTextTypes();
/// Fails for a type that is not among them, for data or text beyond the limits and for what is not of its type. UTF-16
/// without a byte order mark is little endian as public.utf16-plain-text, big endian as its external form.
base::Result<StyledText> readStyledText(const base::Data& data, std::string_view type);

} // namespace platform::draw
