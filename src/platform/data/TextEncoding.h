// Texts out of files, whatever Unicode form they were saved in. Any thread.
#pragma once

#include "base/Error.h"
#include "base/Path.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace platform::data {

/// The largest file that is read as text: 64 MiB.
inline constexpr std::size_t maximumTextFileSize = std::size_t{64} << 20;

/// The text of a file as UTF-8, without a byte order mark. Detects UTF-8 and UTF-16 of both byte orders, with and
/// without the mark; text that is neither is read in the encoding that its XML declaration names. An error for
/// anything else and for files above maximumTextFileSize. An empty file gives the empty text.
base::Result<std::string> readTextDetectingEncoding(const base::URL& url);

/// The same for bytes at hand; `name` stands for them in errors.
base::Result<std::string> textDetectingEncoding(std::string bytes, std::string_view name);

/// True when the text is well-formed UTF-8.
bool isValidUTF8(std::string_view text);

} // namespace platform::data
