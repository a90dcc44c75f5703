// What the readers of tickets and packages share: which nodes they pass over, and their words about it. Findings, where
// a list is given, say the same to who asks for a report; the log does not depend on it.
#pragma once

#include "base/Error.h"
#include "base/MessageTemplate.h"
#include "platform/data/Finding.h"
#include "platform/data/XMLDocument.h"

#include <optional>
#include <string>
#include <string_view>

namespace jobs {

/// The code of the errors that a ticket or its run reports, in the POSIX domain.
inline constexpr int jobErrorCode = -3;

/// True for an element; comments pass in silence, any other node is logged.
bool isElementToRead(const platform::data::XMLNode& node, platform::data::Findings* findings = nullptr);
void logUnexpectedAttribute(const platform::data::XMLNode& attribute, platform::data::Findings* findings = nullptr);

/// The error of a file whose version lies outside 1.0 through 1.99. `shown` is the version as the error tells it.
std::optional<base::Error> versionError(double version, std::string_view shown, std::string_view type);

/// Where a node stands; of a text the line in which its words begin.
platform::data::Place placeOf(const platform::data::XMLNode& node, const platform::data::Findings& findings);
/// A text of the file for a sentence: on one line, cut where it is long.
std::string quotable(std::string_view text);

/// Adds a sentence, made as base::message makes it, when there is a list.
template <class... Arguments>
void note(platform::data::Findings* findings, const platform::data::XMLNode& node, std::string_view words,
          const Arguments&... arguments) {
    if (findings) findings->add(placeOf(node, *findings), base::message(words, arguments...));
}

} // namespace jobs
