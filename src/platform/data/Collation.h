// The order in which names are listed. Pure functions, any thread.
#pragma once

#include <string_view>

namespace platform::data {

/// Below 0, 0 or above 0. Letters compare ignoring case, in all scripts; composed and decomposed forms are equal; runs
/// of decimal digits compare by value, so that "2" comes before "10" and "02" equals "2".
int compareIgnoringCaseNumeric(std::string_view left, std::string_view right);

} // namespace platform::data
