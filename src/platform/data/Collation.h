// When names are equal, and the order in which they are listed. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

namespace platform::data {

/// Below 0, 0 or above 0. Letters compare ignoring case, in all scripts; composed and decomposed forms are equal; runs
/// of decimal digits compare by value, so that "2" comes before "10" and "02" equals "2".
int compareIgnoringCaseNumeric(std::string_view left, std::string_view right);

/// One text for all that differ in letter case, in all scripts, or in being composed or decomposed: names that people
/// give are equal when these are.
std::string foldedForm(std::string_view text);

} // namespace platform::data
