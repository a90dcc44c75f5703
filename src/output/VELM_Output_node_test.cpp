#include "output/VELM_Output_node.h"

#include <gtest/gtest.h>

namespace {

VELM_Output_node nodeWithFrames(const std::vector<std::string>& frames) {
    VELM_Output_node node;
    for (const std::string& frame : frames)
        node.addOutputFrameString(frame);
    return node;
}

TEST(OutputNode, givesFramesInDrawingCoordinates) {
    // On a canvas of 1200 by 1800, with a template of 600 by 900.
    const std::vector<std::pair<std::string, base::Rect>> cases = {
        {"{{0, 0}, {0, 0}}", {0, 900, 600, 900}},
        {"{{600, 900}, {600, 900}}", {600, 0, 600, 900}},
        {"{{0, 0}, {500, 0}}", {0, 900, 600, 900}},
        {"{{10, 20}, {30, 40}}", {10, 1740, 30, 40}},
        {"{{-50, 1700}, {100, 200}}", {-50, -100, 100, 200}},
    };
    for (const auto& [frame, expected] : cases) {
        const VELM_Output_node node = nodeWithFrames({frame});
        int calls = 0;
        node.canvasSize({1200, 1800}, {600, 900}, [&](std::size_t index, bool&, const base::Rect& rect) {
            EXPECT_EQ(index, 0u);
            EXPECT_EQ(rect, expected) << frame;
            ++calls;
        });
        EXPECT_EQ(calls, 1);
    }
}

TEST(OutputNode, countsAllFramesAndStopsWhenTold) {
    const VELM_Output_node node = nodeWithFrames({"{{0, 0}, {1, 1}}", "{{0, 0}, {1, 1}}", "{{0, 0}, {1, 1}}"});
    std::vector<std::size_t> indices;
    node.canvasSize({10, 10}, {1, 1}, [&](std::size_t index, bool& stop, const base::Rect&) {
        indices.push_back(index);
        stop = index == 1;
    });
    EXPECT_EQ(indices, (std::vector<std::size_t>{0, 1}));
    node.canvasSize({10, 10}, {1, 1}, nullptr);
}

TEST(OutputNode, matchesASizeThatItsOneFrameCovers) {
    const base::Size size{1200, 1800};
    EXPECT_TRUE(nodeWithFrames({}).matchesOutputSize(size));
    EXPECT_TRUE(nodeWithFrames({"{{0, 0}, {1200, 1800}}"}).matchesOutputSize(size));
    EXPECT_FALSE(nodeWithFrames({"{{0, 1}, {1200, 1800}}"}).matchesOutputSize(size));
    EXPECT_FALSE(nodeWithFrames({"{{0, 0}, {1200, 1799}}"}).matchesOutputSize(size));
    EXPECT_FALSE(nodeWithFrames({"{{0, 0}, {0, 0}}"}).matchesOutputSize(size));
    EXPECT_FALSE(nodeWithFrames({"{{0, 0}, {1200, 1800}}", "{{0, 0}, {1200, 1800}}"}).matchesOutputSize(size));
}

} // namespace
