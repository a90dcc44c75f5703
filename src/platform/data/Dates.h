// The present moment and the texts of dates. Any thread.
#pragma once

#include "base/Value.h"

#include <functional>
#include <string>
#include <string_view>

namespace platform::data {

/// The present moment, by the system's clock or by the one set in its place.
base::Date now();

/// Puts another source in the place of the system's clock (for tests) and answers the present one. An empty one
/// restores the system's clock.
using DateSource = std::function<base::Date()>;
DateSource setDateSource(DateSource source);

/// The date in a pattern of Unicode TR35 ("yyyyMMdd-HHmmss"), in the user's locale and time zone. A run of S is the
/// fraction of the second, cut and known to the millisecond.
std::string stringWithUTSFormat(base::Date date, std::string_view pattern);
/// The same in a given locale ("en_US") and time zone ("Europe/Berlin").
std::string stringWithUTSFormat(base::Date date, std::string_view pattern, const std::string& locale,
                                const std::string& timeZone);

/// Seconds since 2001-01-01 00:00 UTC, the form in which archives hold dates. A number beyond what a date can hold
/// gives the nearest one that it can.
double secondsSinceReferenceDate(base::Date date);
base::Date dateFromSecondsSinceReferenceDate(double seconds);

} // namespace platform::data
