// Values as text for people and for programs. What comes out of files is not trusted: no control character reaches a
// terminal, and bytes that are no UTF-8 become U+FFFD. Pure functions.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Value.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmctl {

/// A text as a part of one line: line breaks and other control characters become \n, \r, \t and \x1b; all else stands
/// as it is, backslashes too.
std::string oneLine(std::string_view text);

/// "PATH: reason" as one line; a reason may begin with the path itself.
std::string oneLine(const std::string& path, const base::Error& reason);

/// "a, b, c"
std::string joined(const std::vector<std::string>& texts);
/// "1844 x 1240"
std::string sizeText(base::Size size);
/// "1844 x 1240 at 0, 1258": the size and the origin.
std::string rectText(const base::Rect& rect);

/// A JSON document, indented by two blanks. Data is base64, a date ISO 8601 in UTC; URLs, geometry and objects are
/// their texts; numbers that JSON doesn't know (infinity) are null.
std::string jsonText(const base::Value& value);

/// Keys and values as aligned lines, the entries of a dictionary indented below its key. Long texts and lists are cut,
/// data is told by its size.
using Entries = std::vector<std::pair<std::string, base::Value>>;
std::vector<std::string> treeLines(const Entries& entries, std::size_t indentation = 0);

} // namespace velmctl
