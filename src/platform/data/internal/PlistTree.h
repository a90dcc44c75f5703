// The plist library's tree, owned and checked. Shared by property lists and keyed archives.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <plist/plist.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::data {

struct FreePlist {
    void operator()(void* tree) const { plist_free(tree); }
};
/// The topmost node; it owns all others. A node that is put into another one must be released here.
using PlistTree = std::unique_ptr<void, FreePlist>;

inline constexpr std::size_t maximumPlistSize = std::size_t{256} << 20; ///< bytes
inline constexpr int maximumPlistDepth = 200;
inline constexpr std::uint64_t maximumPlistValues = 1'000'000;

/// An error in the Cocoa domain with the code for a corrupt property list.
tl::unexpected<base::Error> plistFailure(std::string_view what);

/// The binary form, checked before the library sees it: its own reader follows references without end, unfolds
/// shared ones exponentially and recurses as deep as the data ask for.
base::Result<PlistTree> readBinaryPlist(std::string_view bytes);
base::Result<void> checkBinaryPlist(std::string_view bytes);

base::Data binaryPlistData(plist_t tree);

/// The content of a node. Entries and items keep the order of the file.
std::string_view plistText(plist_t node);
std::int64_t plistInteger(plist_t node);
double plistReal(plist_t node);
std::uint64_t plistUID(plist_t node);
base::Data plistData(plist_t node);
std::uint64_t plistDataSize(plist_t node);
/// The value of a boolean, a number or data; nothing for another kind of node.
std::optional<base::Value> plistScalar(plist_t node);
std::vector<plist_t> plistItems(plist_t array);
std::vector<std::pair<std::string, plist_t>> plistEntries(plist_t dictionary);

PlistTree newPlistText(const std::string& text);
PlistTree newPlistData(const base::Data& data);

} // namespace platform::data
