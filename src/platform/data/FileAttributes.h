// Size, dates and identity of files, without opening them. Symbolic links are followed. Any thread.
#pragma once

#include "base/Error.h"
#include "base/Path.h"
#include "base/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace platform::data {

/// Nothing for a file that is not there or may not be asked.
std::optional<std::uint64_t> fileSize(const base::URL& url);
std::optional<base::Date> dateModified(const base::URL& url);
/// The date that was set, else that of the file's birth; nothing as well where the file system does not know it.
std::optional<base::Date> dateCreated(const base::URL& url);

/// Linux can't set a birth time: the date is kept in an extended attribute of the file, which goes with it when it is
/// renamed. An error on a file system without such attributes.
base::Result<void> setDateCreated(const base::URL& url, base::Date date);
/// Leaves the date of the last access alone.
base::Result<void> setDateModified(const base::URL& url, base::Date date);

/// An opaque text that changes when the file is written or replaced.
std::optional<std::string> generationIdentifier(const base::URL& url);

} // namespace platform::data
