#include "platform/data/Dates.h"

#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <utility>

namespace platform::data {
namespace {

constexpr std::chrono::seconds referenceDateSinceEpoch{978307200}; // 2001-01-01 00:00 UTC

std::mutex dateSourceMutex;
DateSource dateSource;

std::string formatted(base::Date date, std::string_view pattern, const icu::Locale& locale,
                      std::unique_ptr<icu::TimeZone> zone) {
    UErrorCode status = U_ZERO_ERROR;
    const auto piece = icu::StringPiece(pattern.data(), static_cast<std::int32_t>(pattern.size()));
    icu::SimpleDateFormat format(icu::UnicodeString::fromUTF8(piece), locale, status);
    if (U_FAILURE(status)) return {};
    if (zone) format.adoptTimeZone(zone.release());
    // Floored, so that fractions are cut and never rounded into the next second.
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(date).time_since_epoch().count();
    icu::UnicodeString text;
    format.format(static_cast<UDate>(milliseconds), text);
    std::string utf8;
    return text.toUTF8String(utf8);
}

} // namespace

base::Date now() {
    {
        const std::lock_guard lock(dateSourceMutex);
        if (dateSource) return dateSource();
    }
    return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
}

DateSource setDateSource(DateSource source) {
    const std::lock_guard lock(dateSourceMutex);
    return std::exchange(dateSource, std::move(source));
}

std::string stringWithUTSFormat(base::Date date, std::string_view pattern) {
    return formatted(date, pattern, icu::Locale::getDefault(), nullptr);
}

std::string stringWithUTSFormat(base::Date date, std::string_view pattern, const std::string& locale,
                                const std::string& timeZone) {
    return formatted(
        date, pattern, icu::Locale::createFromName(locale.c_str()),
        std::unique_ptr<icu::TimeZone>(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone))));
}

double secondsSinceReferenceDate(base::Date date) {
    // In two parts: as one number of nanoseconds a double could not hold it. Towards 1970, for rounded down the seconds
    // of the earliest date are no date.
    const auto sinceEpoch = date.time_since_epoch();
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
    const std::chrono::duration<double> fraction = sinceEpoch - whole;
    return static_cast<double>((whole - referenceDateSinceEpoch).count()) + fraction.count();
}

base::Date dateFromSecondsSinceReferenceDate(double seconds) {
    if (std::isnan(seconds)) return base::Date(referenceDateSinceEpoch);
    constexpr double reach = 8.2e9; // seconds on both sides of 2001 that a date can surely hold
    if (seconds > reach) return base::Date::max();
    if (seconds < -reach) return base::Date::min();
    const double whole = std::floor(seconds);
    return base::Date(referenceDateSinceEpoch + std::chrono::seconds(static_cast<std::int64_t>(whole)) +
                      std::chrono::nanoseconds(std::llround((seconds - whole) * 1e9)));
}

} // namespace platform::data
