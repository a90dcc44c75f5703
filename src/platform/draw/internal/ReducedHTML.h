// HTML cut down to what styled text needs, before a parser sees it.
#pragma once

#include <string>
#include <string_view>

namespace platform::draw {

/// The text and the tags of a document, with no attributes but those that style text, each once and in quotes.
/// Comments, declarations ("<![if ...]>"), instructions, scripts and style sheets are left out, and so is a tag without
/// an end. The parser takes time with the square of a tag's attributes, and shows declarations that no browser shows.
std::string reducedHTML(std::string_view html);

} // namespace platform::draw
