// What the readers of tickets and packages share: which nodes they pass over, and their words about it.
#pragma once

#include "base/Error.h"
#include "platform/data/XMLDocument.h"

#include <optional>
#include <string_view>

namespace jobs {

/// The code of the errors that a ticket or its run reports, in the POSIX domain.
inline constexpr int jobErrorCode = -3;

/// True for an element; comments pass in silence, any other node is logged.
bool isElementToRead(const platform::data::XMLNode& node);
void logUnexpectedAttribute(const platform::data::XMLNode& attribute);

/// The error of a file whose version lies outside 1.0 through 1.99. `shown` is the version as the error tells it.
std::optional<base::Error> versionError(double version, std::string_view shown, std::string_view type);

} // namespace jobs
