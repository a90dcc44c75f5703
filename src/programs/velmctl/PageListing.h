// A print page as text: for people as aligned lines, for programs as a value that jsonText prints. Asks the disk which
// of the page's files are there, and opens no more of a picture than its headers.
#pragma once

#include "base/Value.h"
#include "print/KLARON_PrintPage.h"

#include <string>
#include <vector>

namespace velmctl {

/// All that the page's class stores and what follows of it; one picture or file a line, with what is wrong with it.
std::vector<std::string> pageLines(const KLARON_PrintPage& page);

/// The same under the names of the page's members: `images` and `filters` as lists, `frames` as [x, y, width, height],
/// sizes as [width, height].
base::Dictionary pageValue(const KLARON_PrintPage& page);

} // namespace velmctl
