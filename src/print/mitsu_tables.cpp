#include "print/mitsu_tables.h"

#include "base/Text.h"
#include "internal/CodeNames.h"

#include <algorithm>
#include <iterator>

namespace {

using print::CodeName;
using print::nameForCode;

constexpr CodeName<std::uint8_t> mediaNames[] = {
    {1, "5 x 3.5"}, {2, "6 x 4"}, {4, "5 x 7"}, {5, "6 x 9"}, {15, "6 x 8"},
};

struct Layout {
    std::uint64_t multicut;
    const char* name; ///< Null for none.
    int heightOnD90;
    int height;
};

constexpr Layout layouts[] = {
    {1, "6 x 4 (x2)", 2488, 2730},
    {5, "6 x 2 (x2)", 1226, 1228},
    {16, "5 x 3.5", 1076, 1076},
    {32, "5 x 5", 1527, 1524},
    {64, "5 x 7", 2128, 2128},
    {128, "6 x 4", 1226, 1228},
    {256, "6 x 6", 1827, 1820},
    {512, "6 x 8", 2428, 2422},
    {1024, nullptr, 2568, 2568},
    {2048, "6 x 9", 2729, 2729},
    {4232, "6 x 14 Panorama", 4232, 4232},
    {6036, "6 x 20 Panorama", 6036, 6036},
};

struct NameRule {
    std::string_view text;
    std::uint64_t code;
};

// The first that fits decides: a name ending in 2-4x6 ends in 4x6 too and gets that, one in 35x5 that of 5x5.
constexpr NameRule layoutEndings[] = {
    {"6x8", 512}, {"6x14", 4232}, {"6x20", 6036}, {"4x6", 128}, {"6x4", 128}, {"6x9", 2048}, {"6x8.5", 1024},
    {"6x6", 256}, {"5x7", 64},    {"5x5", 32},    {"35x5", 16}, {"2-2x6", 5}, {"2-4x6", 1},
};

constexpr NameRule mediaWords[] = {
    {"Media6x9", 5},
    {"Media5x7", 4},
    {"Media35x5", 1},
    {"Media4x6", 2},
};

constexpr CodeName<std::uint8_t> qualities[] = {{0, "Fine"}, {3, "Super Fine"}, {4, "Ultra Fine"}};
constexpr CodeName<std::uint8_t> overcoats[] = {{0, "Glossy"}, {2, "Matte"}};

const Layout* layoutForMulticut(std::uint64_t multicut) {
    const auto* row = std::ranges::find(layouts, multicut, &Layout::multicut);
    return row == std::end(layouts) ? nullptr : row;
}

} // namespace

std::optional<std::string> mitsu_mediaNameForCode(std::uint8_t media) {
    return nameForCode(mediaNames, media);
}

std::optional<std::string> mitsu_printNameForMulticut(std::uint64_t multicut) {
    const Layout* layout = layoutForMulticut(multicut);
    if (!layout || !layout->name) return std::nullopt;
    return layout->name;
}

std::vector<std::string> mitsu_paperNamesForMulticutModes(const std::set<std::uint64_t>& modes) {
    std::vector<std::string> names;
    for (const std::uint64_t mode : modes)
        names.push_back(mitsu_printNameForMulticut(mode).value_or(""));
    return names;
}

int mitsu_pixelsHighForMulticut(std::uint64_t multicut, std::int64_t model) {
    const Layout* layout = layoutForMulticut(multicut);
    return !layout ? 0 : model == mitsu_modelD90 ? layout->heightOnD90 : layout->height;
}

int mitsu_pixelsWideForMulticut(std::uint64_t multicut, std::int64_t model) {
    if (model == mitsu_modelD90) return multicut == 16 || multicut == 32 || multicut == 64 ? 1550 : 1852;
    return multicut == 32 || multicut == 64 ? 1568 : 1864;
}

std::uint64_t mitsu_multicutForNamedPaperSize(std::string_view name) {
    const std::string ending = base::split(name, "Cut").back();
    const auto* rule =
        std::ranges::find_if(layoutEndings, [&](const NameRule& row) { return ending.ends_with(row.text); });
    return rule == std::end(layoutEndings) ? 0 : rule->code;
}

std::uint8_t mitsu_mediaCodeForPaperName(std::string_view name) {
    const auto* rule =
        std::ranges::find_if(mediaWords, [&](const NameRule& row) { return name.find(row.text) != name.npos; });
    return rule == std::end(mediaWords) ? 15 : static_cast<std::uint8_t>(rule->code);
}

std::string mitsu_nameForQuality(std::uint8_t quality) {
    return nameForCode(qualities, quality).value_or("Automatic");
}

std::optional<std::string> mitsu_nameForOvercoat(std::uint8_t overcoat) {
    return nameForCode(overcoats, overcoat);
}
