// Regular expressions on UTF-8 text. Compiled once, immutable after that: one object may serve several threads.
#pragma once

#include "base/Error.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::data {

class RegularExpression {
public:
    /// A part of the searched text, in bytes.
    struct Range {
        std::size_t offset = 0;
        std::size_t length = 0;
        friend bool operator==(const Range&, const Range&) = default;
    };
    struct Match {
        Range range;
        std::vector<std::optional<Range>> groups; ///< One for each pair of brackets; nothing for one that took no part.
    };
    enum class Case { exact, ignored };

    static base::Result<RegularExpression> compile(std::string_view pattern, Case letterCase = Case::exact);

    /// The first match at or after `start`. Nothing as well for a search that was given up because it took too long.
    std::optional<Match> firstMatch(std::string_view text, std::size_t start = 0) const;
    bool matchesWhole(std::string_view text) const;

private:
    struct Compiled;
    explicit RegularExpression(std::shared_ptr<const Compiled> compiled) : compiled_(std::move(compiled)) {}
    std::shared_ptr<const Compiled> compiled_;
};

} // namespace platform::data
