// What a text of a template or package means, and whether it can mean that: for reports of reading, which itself takes
// every text. Constant data, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace grammar {

/// What a text of the file means.
enum class Form {
    text,
    number, ///< 0 when no number leads the text.
    integer,
    side, ///< A number above 0.
    yesNo,
    point,
    size, ///< Both sides above 0.
    rectangle,
    frame, ///< A rectangle that may have no size.
    gravity,
    color,
};

/// Whether reading the text as a number finds one.
bool isLedByNumber(std::string_view text);

/// Why the text can't mean what its author had in mind, as the end of a sentence ("is an empty rectangle"); none for a
/// sound one.
std::optional<std::string> faultOf(Form form, const std::string& text);

} // namespace grammar
