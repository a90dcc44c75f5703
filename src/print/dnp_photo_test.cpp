#include "print/dnp_photo.h"

#include "base/Text.h"
#include "print/dnp_status.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <utility>

using testing::ElementsAre;

namespace {

using Differences = std::map<std::int32_t, std::set<std::int32_t>>;

std::string typeOf(std::int32_t media) {
    return "MT" + std::to_string(media) + "0";
}

std::int32_t multicutForSize(base::Size size, bool prefersEqualPanels) {
    return dnp_multicutForWidthHeight(std::int64_t(size.width), std::int64_t(size.height), prefersEqualPanels);
}

} // namespace

TEST(DNPTables, MediumHasModesOfItsWidthWithNames) {
    std::set<std::uint64_t> inModes;
    for (const std::int32_t media : dnp_mediaSizes()) {
        const auto modes = dnp_multicutModesForMediaType(typeOf(media));
        inModes.insert(modes.begin(), modes.end());
        const std::int32_t byDefault = dnp_defaultMulticutForMedia(typeOf(media));
        EXPECT_TRUE(modes.contains(std::uint64_t(byDefault))) << media;
        EXPECT_EQ(dnp_mediaNameForType(typeOf(media)),
                  base::replacingAll(dnp_paperNameForMulticut(byDefault), " ", ""));
        EXPECT_THAT(dnp_paperNamesForMedia(media), testing::SizeIs(modes.size()));
        EXPECT_THAT(dnp_paperNamesForMedia(media), testing::Each(testing::Not("")));
        for (const std::uint64_t mode : modes)
            EXPECT_EQ(dnp_pixelsForMulticut(std::int32_t(mode)).width, dnp_pixelsForMulticut(byDefault).width) << mode;
    }
    for (std::int32_t code = -1; code < 100; ++code) {
        const bool isPanel = code == 64 || code == 65;
        const bool isDefined = dnp_pixelsForMulticut(code) != base::Size();
        EXPECT_EQ(isDefined, isPanel || inModes.contains(std::uint64_t(code))) << code;
        EXPECT_EQ(dnp_paperNameForMulticut(code).empty(), isPanel || !isDefined) << code;
        const auto modes = dnp_multicutModesForMedia(dnp_mediaCodeForMultiCut(code));
        EXPECT_EQ(modes.contains(std::uint64_t(code)), isDefined && !isPanel) << code;
    }
    EXPECT_EQ(dnp_mediaCodeForMultiCut(0), 20);
    EXPECT_EQ(dnp_mediaNameForSize(22), "missing");
    EXPECT_THAT(dnp_multicutModesForMedia(22), testing::IsEmpty());
    EXPECT_THAT(dnp_paperNamesForMulticutModes({2, 64, (std::uint64_t{1} << 32) + 2}), ElementsAre("6 x 4", "", ""));
}

TEST(DNPTables, SupportedMulticutsDifferFromModesWhereTold) {
    Differences lacking, additional;
    for (std::int32_t media = 10; media < 100; ++media)
        for (std::int32_t code = -1; code < 100; ++code) {
            const bool isMode = dnp_multicutModesForMedia(media).contains(std::uint64_t(code));
            const bool isSupported = dnp_mediaTypeSupportsMulticut(typeOf(media), code);
            if (isMode && !isSupported) lacking[media].insert(code);
            if (isSupported && !isMode) additional[media].insert(code);
        }
    EXPECT_EQ(lacking, (Differences{{31, {66}}, {40, {91}}, {60, {34, 35}}}));
    EXPECT_EQ(additional, (Differences{{60, {6, 8, 13, 16, 17, 18, 19, 21, 32, 33}}}));
}

TEST(DNPTables, FramesTileTheirSheetsButForSix) {
    std::map<std::int32_t, double> excess;
    for (const std::int32_t code : dnp_multicuts()) {
        const base::Size sheet = dnp_pixelsForMulticut(code);
        EXPECT_EQ(dnp_pixelsForMulticutHiRes(code), (base::Size{sheet.width, 2 * sheet.height}));
        const auto frames = dnp_framesForMulticut(code, false), hiRes = dnp_framesForMulticut(code, true);
        ASSERT_EQ(frames.size(), hiRes.size());
        double top = 0;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const base::Rect frame = base::rectFromString(frames[i]);
            EXPECT_EQ(base::rectFromString(hiRes[i]),
                      (base::Rect{frame.x, 2 * frame.y, frame.width, 2 * frame.height}));
            if (code != 95) {
                EXPECT_EQ(std::pair(frame.x, frame.width), std::pair(0.0, sheet.width)) << code;
            }
            EXPECT_LE(frame.maxX(), sheet.width);
            top = std::max(top, frame.maxY());
        }
        if (top != sheet.height) excess.emplace(code, top - sheet.height);
    }
    EXPECT_EQ(excess, (std::map<std::int32_t, double>{{28, 2}, {35, 496}, {66, -4}, {91, 39}, {93, 30}, {95, -9}}));
    EXPECT_THAT(dnp_framesForMulticut(12, true), ElementsAre("{{0, 0}, {1844, 2480}}", "{{0, 2516}, {1844, 2480}}"));
    EXPECT_THAT(dnp_framesForMulticut(16, false), ElementsAre("{{0, 0}, {2448, 1236}}", "{{0, 1266}, {2448, 1536}}"));
    EXPECT_THAT(dnp_framesForMulticut(0, false), ElementsAre("{{0, 0}, {0, 0}}"));
}

TEST(DNPTables, PixelsMapBackToTheirMulticut) {
    std::string others; // what is found, without and with equal panels, for those that are not found themselves
    for (const std::int32_t code : dnp_multicuts()) {
        const base::Size size = dnp_pixelsForMulticut(code);
        const std::int32_t found = multicutForSize(size, false), equal = multicutForSize(size, true);
        if (found != code || equal != code)
            others += std::to_string(code) + ">" + std::to_string(found) + "," + std::to_string(equal) + " ";
        EXPECT_FALSE(found == code && multicutForSize({size.width, size.height + 1}, false) == code) << code;
    }
    EXPECT_EQ(others, "12>5,5 14>17,14 15>19,15 17>17,14 19>19,15 26>25,25 28>19,15 35>41,41 43>41,41 64>2,2 65>1,1 "
                      "66>2,2 68>4,4 91>4,4 93>3,3 95>4,4 ");
    const std::pair<std::int64_t, std::int32_t> bands[] = {{1548, 1}, {1549, 2},  {1844, 2},  {1845, 8},
                                                           {2448, 8}, {2449, 37}, {2528, 37}, {2529, 0}};
    for (const auto& [width, multicut] : bands)
        EXPECT_EQ(dnp_multicutForWidthHeight(width, 1, false), multicut) << width;
    EXPECT_EQ(dnp_multicutForWidthHeight(2448, 3769, false), 0);
}

TEST(DNPTables, NamedPapersAreThoseOfOnePanel) {
    std::set<std::int32_t> named;
    for (const std::int32_t code : dnp_multicuts()) {
        const std::string name = base::replacingAll(dnp_paperNameForMulticut(code), " ", "");
        const std::int32_t found = dnp_multicutForNamedPaperSize(name);
        EXPECT_EQ(dnp_multicutForNamedPaperSize("dnp" + name), found);
        if (found == 0) continue;
        EXPECT_EQ(found, code) << name;
        named.insert(code);
    }
    EXPECT_EQ(named, (std::set<std::int32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 27, 29, 30}));
    EXPECT_EQ(dnp_multicutForNamedPaperSize("dnpA4"), 0);
}

TEST(DNPTables, RepliesAndCodesHaveTheirWords) {
    for (const auto& [type, normalized] : {std::pair("MT300", "30"),
                                           {"300", "30"},
                                           {"MT31", "31"},
                                           {"31X", "31"},
                                           {"MT12345", "34"},
                                           {"MT", ""},
                                           {"", ""}})
        EXPECT_EQ(dnpNormalizedMediaType(type), normalized) << type;
    EXPECT_EQ(dnp_mediaCodeForType("x"), 0);
    for (const auto& [code, name] : {std::pair("1", "SD"), {"03", "PP"}, {"2", "unknown"}, {"", "unknown"}})
        EXPECT_EQ(dnp_mediaClassForCode(code), name);
    EXPECT_EQ(dnp_mediaRemainingForMQTY("MQTY0350\r"), 350);
    EXPECT_EQ(dnp_mediaRemainingForMQTY("12"), 12);

    for (const auto& [reply, words] : {std::pair("FU00001", "Firmware Update Mode"),
                                       {"FU00002", "Idle"},
                                       {"", "Idle"},
                                       {"00001\r", "Printing"},
                                       {"2610", "Motor Temp Error"},
                                       {"2", "Unknown Status: 2"}})
        EXPECT_EQ(dnp_stringForStatus(reply), words) << reply;
    EXPECT_THAT(dnp_waitCodesAcceptableForQueueing(), ElementsAre("Idle", "Printing", "Sleeping (standby mode)"));
    EXPECT_THAT(dnp_waitCodesAcceptableForReceiving(), ElementsAre("Idle", "Printing"));

    EXPECT_EQ(dnp_nameForQuality(30) + dnp_nameForQuality(1), "High DensityUnknown");
    EXPECT_EQ(dnp_nameForOvercoat(121) + dnp_nameForOvercoat(2), "Partial Fine Matteunknown");
    EXPECT_EQ(dnp_printerNameForProductID(0x8b01) + dnp_printerNameForProductID(7), "DS620unknown model");
    EXPECT_EQ(modelNameForOldVelmPrinterIndex(48), "DNP DS-RX1");
    EXPECT_EQ(modelNameForOldVelmPrinterIndex(47), std::nullopt);
}
