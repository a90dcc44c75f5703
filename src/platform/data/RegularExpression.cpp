#include "platform/data/RegularExpression.h"

#include <cstdint>
#include <unicode/regex.h>
#include <unicode/utext.h>

namespace platform::data {
namespace {

// Both bound what a pattern that backtracks without end may cost: steps of matching, and bytes of its stack.
constexpr std::int32_t timeLimit = 1'000;
constexpr std::int32_t stackLimit = 8 << 20;

/// UTF-8 read where it stands, so that positions are bytes.
class TextView {
public:
    explicit TextView(std::string_view text) {
        UErrorCode status = U_ZERO_ERROR;
        utext_openUTF8(&text_, text.data() ? text.data() : "", static_cast<std::int64_t>(text.size()), &status);
    }
    ~TextView() { utext_close(&text_); }
    TextView(const TextView&) = delete;
    TextView& operator=(const TextView&) = delete;
    UText* get() { return &text_; }

private:
    UText text_ = UTEXT_INITIALIZER;
};

} // namespace

struct RegularExpression::Compiled {
    std::unique_ptr<icu::RegexPattern> pattern;

    std::unique_ptr<icu::RegexMatcher> matcher(TextView& text) const {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(status));
        if (U_FAILURE(status) || !matcher) return nullptr;
        matcher->setTimeLimit(timeLimit, status);
        matcher->setStackLimit(stackLimit, status);
        matcher->reset(text.get());
        return matcher;
    }
};

base::Result<RegularExpression> RegularExpression::compile(std::string_view pattern, Case letterCase) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError place = {};
    const auto piece = icu::StringPiece(pattern.data(), static_cast<std::int32_t>(pattern.size()));
    auto compiled = std::make_shared<Compiled>();
    compiled->pattern.reset(icu::RegexPattern::compile(
        icu::UnicodeString::fromUTF8(piece), letterCase == Case::ignored ? std::uint32_t{UREGEX_CASE_INSENSITIVE} : 0u,
        place, status));
    if (U_FAILURE(status)) {
        return base::failure(base::cocoaErrorDomain, 2048,
                             "The regular expression \"" + std::string(pattern) + "\" is invalid at character " +
                                 std::to_string(place.offset) + ": " + u_errorName(status));
    }
    return RegularExpression(std::move(compiled));
}

std::optional<RegularExpression::Match> RegularExpression::firstMatch(std::string_view text, std::size_t start) const {
    if (start > text.size()) return std::nullopt;
    TextView view(text);
    const auto matcher = compiled_->matcher(view);
    UErrorCode status = U_ZERO_ERROR;
    if (!matcher || !matcher->find(static_cast<std::int64_t>(start), status) || U_FAILURE(status)) return std::nullopt;

    const auto rangeOfGroup = [&](std::int32_t group) -> std::optional<Range> {
        UErrorCode groupStatus = U_ZERO_ERROR;
        const std::int64_t begin = matcher->start64(group, groupStatus);
        const std::int64_t end = matcher->end64(group, groupStatus);
        if (U_FAILURE(groupStatus) || begin < 0) return std::nullopt;
        return Range{static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin)};
    };
    Match match{rangeOfGroup(0).value_or(Range{}), {}};
    for (std::int32_t group = 1; group <= matcher->groupCount(); ++group) {
        match.groups.push_back(rangeOfGroup(group));
    }
    return match;
}

bool RegularExpression::matchesWhole(std::string_view text) const {
    TextView view(text);
    const auto matcher = compiled_->matcher(view);
    UErrorCode status = U_ZERO_ERROR;
    return matcher && matcher->matches(status) && U_SUCCESS(status);
}

} // namespace platform::data
