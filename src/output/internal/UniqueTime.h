// The time that stands in product names. Any thread.
#pragma once

#include <string>

namespace output {

/// The present time in the form "yyyy-MM-dd_HH-mm-ss.SSS", moved on by whole milliseconds where needed so that no two
/// calls of this process answer the same: names that are told apart by their time alone then never meet.
std::string uniqueTimeStamp();

} // namespace output
