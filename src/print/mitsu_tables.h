// The tables of Mitsubishi's CP-D70DW, CP-D80DW and CP-D90DW: media, layouts with their names and pixels, and what the
// names of papers mean. A multicut is a layout's bit, or the pixel height of a panorama. Pure functions without state,
// any thread. Pixels are 300 dots per inch both ways.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// The number by which old pages name the CP-D90DW: its layouts have other pixels than those of the other models.
inline constexpr std::int64_t mitsu_modelD90 = 57;

/// "6 x 4"; nothing for an unknown code.
std::optional<std::string> mitsu_mediaNameForCode(std::uint8_t media);
/// Nothing for an unknown multicut, and for 1024.
std::optional<std::string> mitsu_printNameForMulticut(std::uint64_t multicut);
/// One name for each mode, in the order of the set; empty for one that has none.
std::vector<std::string> mitsu_paperNamesForMulticutModes(const std::set<std::uint64_t>& modes);

/// 0 for an unknown multicut.
int mitsu_pixelsHighForMulticut(std::uint64_t multicut, std::int64_t model);
int mitsu_pixelsWideForMulticut(std::uint64_t multicut, std::int64_t model);

/// By how the name ends, behind its last "Cut"; 0 when it ends in no layout.
std::uint64_t mitsu_multicutForNamedPaperSize(std::string_view name);
/// By the medium that the name holds ("Media6x9"); 15 when it holds none.
std::uint8_t mitsu_mediaCodeForPaperName(std::string_view name);

/// "Fine"; "Automatic" for an unknown print mode.
std::string mitsu_nameForQuality(std::uint8_t quality);
/// Nothing for an unknown overcoat.
std::optional<std::string> mitsu_nameForOvercoat(std::uint8_t overcoat);
