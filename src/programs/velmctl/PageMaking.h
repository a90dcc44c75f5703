// What `velmctl page make` does: a page for a printer's model out of pictures, as an archive.
#pragma once

#include "base/Error.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmctl {

struct PageRequest {
    std::string model;
    std::optional<std::string> paper;
    std::optional<std::int64_t> multicut; ///< In place of the paper's.
    std::optional<std::int64_t> media;    ///< In place of the paper's.
    std::vector<std::string> images;
    std::string output;
    std::optional<std::string> gravity;
    std::optional<std::int64_t> copies;
    std::optional<std::string> quality;  ///< A name or a number.
    std::optional<std::string> overcoat; ///< A name or a number.
    bool keepsUpright = false;           ///< No turning of pictures to the shape of the page.
    std::optional<std::string> profile;
    std::optional<std::int64_t> colorManagement;
    std::vector<std::string> adjustments; ///< "Brightness=0.1"
};

/// The names that `gravity` takes, and the settings that `adjustments` names.
const std::vector<std::string>& pageGravities();
const std::vector<std::string>& pageAdjustments();
/// As a check of an option: why "Brightness=0.1" is none; empty when it is one.
std::string whyNoAdjustment(const std::string& text);

/// Writes the page and prints the path that it got; what is odd but possible is told on standard error. Pictures are
/// named in the page by their absolute paths. Fails for pictures that can't be read, and for papers, layouts, qualities
/// and overcoats that the printer doesn't know: the error lists those that it does.
base::Result<void> makePage(const PageRequest& request);

} // namespace velmctl
