// Pages in the form that came before archives: a property list beside a picture of the same name. All of what the
// kinds of pages read of it. Pure functions; any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstdint>
#include <optional>

/// The dictionary of an old page: of the file that a URL names, or one that is given as it stands. An error, which
/// names the file, for one that can't be read or holds something else, and for a value of another kind.
base::Result<base::Dictionary> readOldPage(const base::Value& urlOrDictionary);

/// What chooses printer, medium and layout. 0 for what is missing or no number.
struct OldPageSettings {
    std::int64_t printer = 0;
    std::int64_t mediaType = 0;
    std::int64_t cutInHalf = 0;
    std::int64_t printingMode = 0;
    std::int64_t lamination = 0;
};

/// Nothing where readOldPage() fails.
std::optional<OldPageSettings> oldPageSettings(const base::Value& urlOrDictionary);
