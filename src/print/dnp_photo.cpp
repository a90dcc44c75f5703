#include "print/dnp_photo.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <utility>

namespace {

// Media --------------------------------------------------------------------------------------------------------------

/// One code, or all from the first to the last.
struct Codes {
    constexpr Codes(std::int32_t code) : first(code), last(code) {}
    constexpr Codes(std::int32_t firstCode, std::int32_t lastCode) : first(firstCode), last(lastCode) {}
    std::int32_t first;
    std::int32_t last;
};

class CodeSet {
public:
    constexpr CodeSet(std::initializer_list<Codes> codes) : count_(codes.size()) {
        std::ranges::copy(codes, codes_.begin());
    }
    bool contains(std::int32_t code) const {
        return std::ranges::any_of(codes(), [&](Codes run) { return run.first <= code && code <= run.last; });
    }
    std::set<std::uint64_t> all() const {
        std::set<std::uint64_t> result;
        for (const Codes run : codes())
            for (std::int32_t code = run.first; code <= run.last; ++code)
                result.insert(static_cast<std::uint64_t>(code));
        return result;
    }

private:
    std::span<const Codes> codes() const { return std::span(codes_).first(count_); }

    std::array<Codes, 16> codes_{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    std::size_t count_;
};

struct Medium {
    std::int32_t code;
    std::string_view name;
    std::int32_t defaultMulticut;
    CodeSet modes;
    CodeSet supported;
};

// What a medium supports is a table of its own, not the modes: 31 lacks 66, 40 lacks 91, and A4 takes layouts of 8
// inches but neither 34 nor 35.
constexpr Medium media[] = {
    {20, "5x3.5", 1, {1}, {1}},
    {21, "5x7", 3, {1, 3, 22, 29, 93}, {1, 3, 22, 29, 93}},
    {30, "6x4", 2, {2, 66}, {2, 66}},
    {31, "6x8", 4, {2, 4, 12, 27, 30, 66, 68, 91, 95}, {2, 4, 12, 27, 30, 68, 91, 95}},
    {40, "6x9", 5, {2, 4, 5, 12, 27, 30, 31, 91}, {2, 4, 5, 12, 27, 30, 31}},
    {50, "8x10", 6, {6, 8, 9, 10, 11, 13, 14, 16, 17, 32, 33}, {6, 8, 9, 10, 11, 13, 14, 16, 17, 32, 33}},
    {51,
     "8x12",
     7,
     {6, 7, 8, 9, 10, 11, {13, 21}, 25, 26, 28, 32, 33},
     {6, 7, 8, 9, 10, 11, {13, 21}, 25, 26, 28, 32, 33}},
    {60, "A4", 41, {34, 35, 37, 38, 39, 40, 41, 43}, {6, 8, 13, 16, 17, 18, 19, 21, 32, 33, 37, 38, 39, 40, 41, 43}},
};

const Medium* mediumForCode(std::int32_t code) {
    const auto* row = std::ranges::find(media, code, &Medium::code);
    return row == std::end(media) ? nullptr : row;
}

const Medium* mediumForType(std::string_view type) {
    return mediumForCode(dnp_mediaCodeForType(type));
}

// Multicuts ----------------------------------------------------------------------------------------------------------

/// Panels above each other, the lowest first; 0 where there are fewer.
using Panels = std::array<std::int32_t, 4>;

struct Multicut {
    std::int32_t code;
    std::string_view name;
    int width;
    int height;
    std::int32_t media;
    Panels panels{};
    int gap = 0;
};

// Layouts of the same name or the same pixels stand as the printers have them.
constexpr Multicut multicuts[] = {
    {1, "5 x 3.5", 1548, 1088, 20},
    {2, "6 x 4", 1844, 1240, 30},
    {3, "5 x 7", 1548, 2138, 21},
    {4, "6 x 8", 1844, 2436, 31},
    {5, "6 x 9", 1844, 2740, 40},
    {6, "8 x 10", 2448, 3036, 50},
    {7, "8 x 12", 2448, 3636, 51},
    {8, "8 x 4", 2448, 1236, 50},
    {9, "8 x 5", 2448, 1536, 50},
    {10, "8 x 6", 2448, 1836, 50},
    {11, "8 x 8", 2448, 2436, 50},
    {12, "6 x 4 (x2)", 1844, 2498, 31, {2, 2}, 18},
    {13, "8 x 4 (x2)", 2448, 2502, 50, {8, 8}, 30},
    {14, "8 x 5 (x2)", 2448, 3102, 50, {9, 9}, 30},
    {15, "8 x 6 (x2)", 2448, 3702, 51, {10, 10}, 30},
    {16, "(8 x 5) + (8 x 4)", 2448, 2802, 50, {8, 9}, 30},
    {17, "(8 x 6) + (8 x 4)", 2448, 3102, 50, {8, 10}, 30},
    {18, "(8 x 6) + (8 x 5)", 2448, 3402, 51, {9, 10}, 30},
    {19, "(8 x 8) + (8 x 4)", 2448, 3702, 51, {8, 11}, 30},
    {20, "8 x 4 (x3)", 2448, 3768, 51, {8, 8, 8}, 30},
    {21, "8 x A4Length", 2448, 3544, 51},
    {22, "5 x 3.5 (x2)", 1548, 2176, 21, {1, 1}, 0},
    {25, "8 x 10.5", 2448, 3186, 51},
    {26, "8 x 10.75", 2448, 3186, 51},
    {27, "6 x 6", 1844, 1836, 31},
    {28, "8 x 4 (x3)", 2448, 3702, 51, {8, 8, 8}, -2},
    {29, "5 x 5", 1548, 1540, 21},
    {30, "6 x 4.5", 1844, 1386, 40},
    {31, "6 x 4.5 (x2)", 1844, 2802, 40, {30, 30}, 30},
    {32, "8 x 7", 2448, 2136, 50},
    {33, "8 x 9", 2448, 2736, 50},
    {34, "A4 x 5", 2528, 1784, 60},
    {35, "A5 x 2", 2528, 3102, 60, {34, 34}, 30},
    {37, "A4 x 5", 2528, 1536, 60},
    {38, "A4 x 6", 2528, 1836, 60},
    {39, "A4 x 8", 2528, 2436, 60},
    {40, "A4 x 10", 2528, 3036, 60},
    {41, "A4", 2528, 3544, 60},
    {43, "A4 x 5 (x2)", 2528, 3102, 60, {37, 37}, 30},
    {64, "", 1844, 609, 20}, // a panel of 66, 68 and 91
    {65, "", 1548, 598, 20}, // a panel of 93
    {66, "6 x 2 (x2)", 1844, 1240, 30, {64, 64}, 18},
    {68, "6 x 2 (x4)", 1844, 2436, 31, {64, 64, 64, 64}, 0},
    {91, "(6 x 6) + (6 x 2)", 1844, 2436, 31, {64, 27}, 30},
    {93, "(5 x 5) + (5 x 2)", 1548, 2138, 21, {65, 29}, 30},
    {95, "(5 x 5) + (3 x 3)x2 + (5 x 1)", 1844, 2436, 31}, // its panels are custom2Frames
};

/// At 300 lines per inch.
struct Frame {
    int x, y, width, height;
};

constexpr Frame custom2Frames[] = {
    {26, 22, 750, 1050},   {26, 1073, 750, 1050},  {26, 2124, 750, 300},   {777, 22, 1050, 750},
    {777, 773, 1050, 750}, {777, 1524, 1050, 750}, {777, 2275, 1050, 152},
};

struct NamedPaper {
    std::string_view name;
    std::int32_t multicut;
};

constexpr NamedPaper namedPapers[] = {
    {"6x8", 4}, {"8x10", 6}, {"8x12", 7}, {"6x4", 2}, {"6x9", 5}, {"6x4.5", 30}, {"5x3.5", 1},
    {"5x7", 3}, {"6x6", 27}, {"5x5", 29}, {"8x4", 8}, {"8x5", 9}, {"8x6", 10},   {"8x8", 11},
};

struct PixelLimit {
    std::int64_t widest; ///< Of the band of widths.
    std::int64_t heightUnder;
    std::int32_t multicut;
    std::int32_t equalPanels = multicut; ///< When equal panels are preferred.
};

constexpr PixelLimit pixelLimits[] = {
    {1548, 1089, 1},  {1548, 1541, 29},     {1548, 2139, 3},      {1548, 2177, 22}, //
    {1844, 1241, 2},  {1844, 1387, 30},     {1844, 1837, 27},     {1844, 2437, 4},
    {1844, 2741, 5},  {1844, 2803, 31}, //
    {2448, 1237, 8},  {2448, 1537, 9},      {2448, 1837, 10},     {2448, 2137, 32},
    {2448, 2437, 11}, {2448, 2503, 13},     {2448, 2737, 33},     {2448, 2803, 16},
    {2448, 3037, 6},  {2448, 3103, 17, 14}, {2448, 3187, 25},     {2448, 3403, 18},
    {2448, 3545, 21}, {2448, 3637, 7},      {2448, 3703, 19, 15}, {2448, 3769, 20}, //
    {2528, 1537, 37}, {2528, 1785, 34},     {2528, 1837, 38},     {2528, 2437, 39},
    {2528, 3037, 40}, {2528, 3545, 41},
};

const Multicut* multicutForCode(std::int32_t code) {
    const auto* row = std::ranges::find(multicuts, code, &Multicut::code);
    return row == std::end(multicuts) ? nullptr : row;
}

base::Size pixels(std::int32_t multicut, bool hiRes) {
    return hiRes ? dnp_pixelsForMulticutHiRes(multicut) : dnp_pixelsForMulticut(multicut);
}

std::string_view without(std::string_view prefix, std::string_view text) {
    return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

} // namespace

std::vector<std::int32_t> dnp_mediaSizes() {
    std::vector<std::int32_t> codes;
    std::ranges::transform(media, std::back_inserter(codes), &Medium::code);
    return codes;
}

std::string dnpNormalizedMediaType(std::string_view type) {
    type = without("MT", type);
    return std::string(type.size() < 3 ? type : type.substr(type.size() - 3, 2));
}

std::int32_t dnp_mediaCodeForType(std::string_view type) {
    return static_cast<std::int32_t>(base::integerValue(dnpNormalizedMediaType(type)));
}

std::string dnp_mediaClassForCode(std::string_view code) {
    const std::int64_t number = base::integerValue(code);
    return number == 1 ? "SD" : number == 3 ? "PP" : "unknown";
}

std::string dnp_mediaNameForSize(std::int32_t mediaSize) {
    const Medium* medium = mediumForCode(mediaSize);
    return std::string(medium ? medium->name : "missing");
}

std::string dnp_mediaNameForType(std::string_view type) {
    return dnp_mediaNameForSize(dnp_mediaCodeForType(type));
}

std::int32_t dnp_mediaCodeForMultiCut(std::int32_t multicut) {
    const Multicut* row = multicutForCode(multicut);
    return row ? row->media : 20;
}

std::int32_t dnp_defaultMulticutForMedia(std::string_view type) {
    const Medium* medium = mediumForType(type);
    return medium ? medium->defaultMulticut : 0;
}

bool dnp_mediaTypeSupportsMulticut(std::string_view type, std::int32_t multicut) {
    const Medium* medium = mediumForType(type);
    return medium && medium->supported.contains(multicut);
}

std::vector<std::int32_t> dnp_multicuts() {
    std::vector<std::int32_t> codes;
    std::ranges::transform(multicuts, std::back_inserter(codes), &Multicut::code);
    return codes;
}

base::Size dnp_pixelsForMulticut(std::int32_t multicut) {
    const Multicut* row = multicutForCode(multicut);
    return row ? base::Size{static_cast<double>(row->width), static_cast<double>(row->height)} : base::Size{};
}

base::Size dnp_pixelsForMulticutHiRes(std::int32_t multicut) {
    const base::Size size = dnp_pixelsForMulticut(multicut);
    return {size.width, 2 * size.height};
}

std::string dnp_paperNameForMulticut(std::int32_t multicut) {
    const Multicut* row = multicutForCode(multicut);
    return std::string(row ? row->name : "");
}

std::set<std::uint64_t> dnp_multicutModesForMedia(std::int32_t mediaSize) {
    const Medium* medium = mediumForCode(mediaSize);
    return medium ? medium->modes.all() : std::set<std::uint64_t>();
}

std::set<std::uint64_t> dnp_multicutModesForMediaType(std::string_view type) {
    return dnp_multicutModesForMedia(dnp_mediaCodeForType(type));
}

std::vector<std::string> dnp_paperNamesForMulticutModes(const std::set<std::uint64_t>& modes) {
    std::vector<std::string> names;
    std::ranges::transform(modes, std::back_inserter(names), [](std::uint64_t mode) {
        return dnp_paperNameForMulticut(std::in_range<std::int32_t>(mode) ? static_cast<std::int32_t>(mode) : 0);
    });
    return names;
}

std::vector<std::string> dnp_paperNamesForMedia(std::int32_t mediaSize) {
    return dnp_paperNamesForMulticutModes(dnp_multicutModesForMedia(mediaSize));
}

std::int32_t dnp_multicutForNamedPaperSize(std::string_view name) {
    const auto* row = std::ranges::find(namedPapers, without("dnp", name), &NamedPaper::name);
    return row == std::end(namedPapers) ? 0 : row->multicut;
}

std::int32_t dnp_multicutForWidthHeight(std::int64_t width, std::int64_t height, bool prefersEqualPanels) {
    const auto* band = std::ranges::find_if(pixelLimits, [&](const PixelLimit& row) { return width <= row.widest; });
    for (const auto* row = band; row != std::end(pixelLimits) && row->widest == band->widest; ++row)
        if (height < row->heightUnder) return prefersEqualPanels ? row->equalPanels : row->multicut;
    return 0;
}

std::vector<std::string> dnp_framesForMulticut(std::int32_t multicut, bool hiRes) {
    if (multicut == 95) return framesForCustom2(hiRes);
    const Multicut* row = multicutForCode(multicut);
    const Panels panels = row && row->panels[0] ? row->panels : Panels{multicut};
    const auto end = std::find(panels.begin() + 1, panels.end(), 0);
    return framesForMuticutsAndGap({panels.begin(), end}, hiRes, row ? row->gap : 0);
}

std::vector<std::string> framesForMuticutsAndGap(std::span<const std::int32_t> panels, bool hiRes, double gap) {
    if (hiRes) gap *= 2;
    std::vector<std::string> frames;
    double y = 0;
    for (const std::int32_t panel : panels) {
        const base::Size size = pixels(panel, hiRes);
        frames.push_back(base::stringFromRect({0, y, size.width, size.height}));
        y += size.height + gap;
    }
    return frames;
}

std::vector<std::string> framesForCustom2(bool hiRes) {
    const double scale = hiRes ? 2 : 1;
    std::vector<std::string> frames;
    std::ranges::transform(custom2Frames, std::back_inserter(frames), [&](const Frame& frame) {
        return base::stringFromRect(
            {static_cast<double>(frame.x), frame.y * scale, static_cast<double>(frame.width), frame.height * scale});
    });
    return frames;
}
