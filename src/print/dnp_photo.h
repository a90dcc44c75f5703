// The tables of DNP's dye-sublimation printers: media, the multicuts that a sheet of each can be cut into, their
// pixels, names and frames, and the codes of qualities, overcoats and models. Pure functions without state, any thread.
// Pixels are 300 dots per inch across; down the sheet 300 lines per inch, or 600 ("hi-res"). The type of media is a
// text as the printer reports it: "MT" and three digits, or the digits.
#pragma once

#include "base/Geometry.h"

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Media --------------------------------------------------------------------------------------------------------------

/// All media codes, ascending.
std::vector<std::int32_t> dnp_mediaSizes();

/// Without a leading "MT", and of a text of three characters or more the two before its last: "MT310" gives "31".
std::string dnpNormalizedMediaType(std::string_view type);
/// The number of the normalised type; 0 when it is none.
std::int32_t dnp_mediaCodeForType(std::string_view type);
/// "SD", "PP" or "unknown".
std::string dnp_mediaClassForCode(std::string_view code);
/// "6x4"; "missing" for an unknown medium.
std::string dnp_mediaNameForSize(std::int32_t media);
std::string dnp_mediaNameForType(std::string_view type);
/// 20 also for every code that has no medium.
std::int32_t dnp_mediaCodeForMultiCut(std::int32_t multicut);
/// 0 for an unknown medium.
std::int32_t dnp_defaultMulticutForMedia(std::string_view type);
/// A test of its own: it differs from the modes below.
bool dnp_mediaTypeSupportsMulticut(std::string_view type, std::int32_t multicut);

// Multicuts ----------------------------------------------------------------------------------------------------------

/// All codes that have pixels, ascending.
std::vector<std::int32_t> dnp_multicuts();

/// Zero for an undefined code.
base::Size dnp_pixelsForMulticut(std::int32_t multicut);
/// The same with twice the height.
base::Size dnp_pixelsForMulticutHiRes(std::int32_t multicut);
/// Empty for an undefined code, and for the panels of the 6 x 2 and 5 x 2 layouts.
std::string dnp_paperNameForMulticut(std::int32_t multicut);

/// The multicuts that a medium can be cut into; none for an unknown medium.
std::set<std::uint64_t> dnp_multicutModesForMedia(std::int32_t media);
std::set<std::uint64_t> dnp_multicutModesForMediaType(std::string_view type);
/// One name for each mode, in the order of the set.
std::vector<std::string> dnp_paperNamesForMulticutModes(const std::set<std::uint64_t>& modes);
std::vector<std::string> dnp_paperNamesForMedia(std::int32_t media);

/// "6x4" or "dnp6x4" is 2; 0 for a name that is not in the table.
std::int32_t dnp_multicutForNamedPaperSize(std::string_view name);
/// The smallest layout of that width's paper which is high enough; 0 when there is none. Where two have the same
/// pixels, the flag prefers the one of equal panels.
std::int32_t dnp_multicutForWidthHeight(std::int64_t width, std::int64_t height, bool prefersEqualPanels);

/// Where the panels of a layout lie, as rectangle texts, in pixels, y up: the first lies at the origin and the others
/// follow upward. One rectangle of its own size for a code that is no layout of panels.
std::vector<std::string> dnp_framesForMulticut(std::int32_t multicut, bool hiRes);
/// Panels of these multicuts above each other. `gap` is in pixels at 300 lines per inch.
std::vector<std::string> framesForMuticutsAndGap(std::span<const std::int32_t> multicuts, bool hiRes, double gap);
/// The seven panels of multicut 95.
std::vector<std::string> framesForCustom2(bool hiRes);

// Names of codes -----------------------------------------------------------------------------------------------------

std::string dnp_nameForQuality(std::int32_t quality);
std::string dnp_nameForOvercoat(std::int32_t overcoat);
/// By the product identifier of USB.
std::string dnp_printerNameForProductID(std::int32_t productID);
/// By the number that old pages hold; nothing for others.
std::optional<std::string> modelNameForOldVelmPrinterIndex(std::int64_t index);
