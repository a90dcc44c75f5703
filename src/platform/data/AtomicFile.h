// Whole files in and out. What is written appears whole or not at all: it is written beside its target, brought to
// the disk and renamed into place, so that a reader never meets half a file and a failure leaves the old contents.
// Pure operations on the file system, any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform::data {

/// What readFile takes unless told otherwise: 256 MiB.
inline constexpr std::size_t defaultMaximumFileSize = std::size_t{256} << 20;

/// Writes `bytes` to `path`. A new file gets mode 0644 less the process's mask, a replaced one keeps its mode; a
/// symbolic link is kept and its target replaced; an error for a folder, a pipe, a device. The enclosing folder must
/// exist. Leaves nothing behind on failure.
base::Result<void> writeFileAtomically(std::string_view path, std::string_view bytes);
inline base::Result<void> writeFileAtomically(std::string_view path, const base::Data& data) {
    return writeFileAtomically(path, data.asText());
}

/// Gives a file or folder another name on its volume. Fails with EEXIST when something bears that name already, with
/// EXDEV when it lies on another volume; the item stays where it was then.
base::Result<void> renameWithoutReplacing(std::string_view from, std::string_view to);

/// Writes a new file: an error of code EEXIST when something stands at `path` already, be it a broken link, and nothing
/// is replaced, even when it comes to be there meanwhile. Mode, whole appearance and failures as above.
base::Result<void> writeNewFileAtomically(std::string_view path, std::string_view bytes);

/// The contents of a regular file; an error for anything else (a folder, a pipe) and for one that holds more than
/// `maximumSize` bytes. Never waits for a writer.
base::Result<base::Data> readFile(std::string_view path, std::size_t maximumSize = defaultMaximumFileSize);
base::Result<std::string> readFileBytes(std::string_view path, std::size_t maximumSize = defaultMaximumFileSize);

/// Up to `count` bytes of a regular file from `position` on; fewer at its end.
base::Result<base::Data> readFilePart(std::string_view path, std::uint64_t position, std::size_t count);

} // namespace platform::data
