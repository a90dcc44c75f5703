#include "print/mitsu_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utility>

TEST(MitsuTables, LayoutsHavePixelsAndNames) {
    const std::set<std::uint64_t> layouts{1, 5, 16, 32, 64, 128, 256, 512, 1024, 2048, 4232, 6036};
    for (std::uint64_t multicut = 0; multicut < 7000; ++multicut) {
        const bool isLayout = layouts.contains(multicut);
        EXPECT_EQ(mitsu_pixelsHighForMulticut(multicut, mitsu_modelD90) > 0, isLayout) << multicut;
        EXPECT_EQ(mitsu_pixelsHighForMulticut(multicut, 56) > 0, isLayout) << multicut;
        EXPECT_EQ(mitsu_printNameForMulticut(multicut).has_value(), isLayout && multicut != 1024) << multicut;
        if (multicut > 4000 && isLayout) {
            EXPECT_EQ(mitsu_pixelsHighForMulticut(multicut, 56), int(multicut));
        }
    }
    EXPECT_THAT(mitsu_paperNamesForMulticutModes({5, 1024, 128}), testing::ElementsAre("6 x 2 (x2)", "6 x 4", ""));
    EXPECT_EQ(mitsu_pixelsHighForMulticut(1, 57), 2488);
    EXPECT_EQ(mitsu_pixelsHighForMulticut(1, 47), 2730);
    for (const auto& [multicut, onD90, otherwise] :
         {std::tuple(16, 1550, 1864), {32, 1550, 1568}, {64, 1550, 1568}, {128, 1852, 1864}, {0, 1852, 1864}}) {
        EXPECT_EQ(mitsu_pixelsWideForMulticut(std::uint64_t(multicut), 57), onD90) << multicut;
        EXPECT_EQ(mitsu_pixelsWideForMulticut(std::uint64_t(multicut), 56), otherwise) << multicut;
    }
}

TEST(MitsuTables, NamesFollowTheirRulesInOrder) {
    for (const auto& [name, multicut] : {std::pair("6x8", 512),
                                         {"Media6x9Cut6x8.5", 1024},
                                         {"6x8CutA", 0},
                                         {"Cut6x9Cut6x20", 6036},
                                         {"a6x14", 4232},
                                         {"4x6", 128},
                                         {"6x4", 128},
                                         {"Cut2-2x6", 5},
                                         {"Cut2-4x6", 128},
                                         {"Cut35x5", 32},
                                         {"Cut5x7", 64},
                                         {"6x6", 256},
                                         {"", 0},
                                         {"6x4 ", 0}})
        EXPECT_EQ(mitsu_multicutForNamedPaperSize(name), std::uint64_t(multicut)) << name;
    for (const auto& [name, media] : {std::pair("aMedia4x6Media6x9b", 5),
                                      {"Media35x5", 1},
                                      {"Media4x6Cut", 2},
                                      {"Media5x7", 4},
                                      {"Media6x8", 15},
                                      {"", 15}})
        EXPECT_EQ(mitsu_mediaCodeForPaperName(name), media) << name;
    EXPECT_EQ(mitsu_mediaNameForCode(15), "6 x 8");
    EXPECT_EQ(mitsu_mediaNameForCode(3), std::nullopt);
    EXPECT_EQ(mitsu_nameForQuality(3) + mitsu_nameForQuality(10), "Super FineAutomatic");
    EXPECT_EQ(mitsu_nameForOvercoat(1), std::nullopt);
}
