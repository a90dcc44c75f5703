#include "imaging/KLARON_Image.h"
#include "imaging/KLARON_color.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

using platform::draw::Color;
using platform::draw::ColorSpace;

TEST(KLARON_color, ReadsEveryFormOfCode) {
    const struct {
        std::optional<std::string_view> code;
        KLARON_color::Components components;
    } cases[] = {
        {"#FF000080", {1, 0, 0, 128 / 255.0}},
        {"F00", {1, 0, 0, 1}},
        {"F008", {1, 0, 0, 8 / 15.0}},
        {"#12345", {0, 0, 0, 1}},
        {"", {0, 0, 0, 1}},
        {"#", {0, 0, 0, 1}},
        {std::nullopt, {0, 0, 0, 1}},
        {"###00FF00", {0, 1, 0, 1}},
        {"ffFFff", {1, 1, 1, 1}},
        {"zzzzzz", {0, 0, 0, 1}},
        {"#12ZZ5678", {0, 0, 0, 18 / 255.0}},
        {"0xFFFF", {0, 1, 1, 1}}, // a number's mark counts as digits
        {"  FF00", {0, 1, 0, 1}}, // and so do blanks
        {"#12\xC3\xA9"
         "4",
         {0, 0, 1 / 15.0, 2 / 15.0}}, // four characters
        {"#F#F", {0, 0, 1, 1}},
        {"#-1F00", {0, 0, 0, 1}},
    };
    for (const auto& row : cases)
        EXPECT_EQ(KLARON_color::colorComponentsForHexCode(row.code), row.components) << row.code.value_or("none");
    EXPECT_EQ(KLARON_color::alphaForHexcode("#00000055"), 0x55 / 255.0);
}

TEST(KLARON_color, WritesCodesCutTowardZero) {
    EXPECT_EQ(KLARON_color::hexcodeForRGBAComponents({1, 0.5, 0.999, 0.1}, true), "#FF7FFE19");
    EXPECT_EQ(KLARON_color::hexcodeForRGBAComponents({1, 0.5, 0, 0.1}, false), "#FF7F00");
    const struct {
        const char* code;
        double alpha;
        const char* changed;
    } cases[] = {
        {"#FFFFFF", 0.5, "#FFFFFF7F"}, {"#FFFFFF", 2, "#FFFFFFFF"}, {"abc", -1, "#AABBCC00"}, {"?", 1, "#000000FF"}};
    for (const auto& row : cases)
        EXPECT_EQ(KLARON_color::hexcodeChangingAlpha(row.code, row.alpha), row.changed);
}

TEST(KLARON_color, WritesTheCodeOfAColourByItsModel) {
    EXPECT_EQ(KLARON_color::hexcodeForColor(Color(1, 0, 0)), "#FF0000FF");
    EXPECT_EQ(KLARON_color::hexcodeForColorIgnoringAlpha(Color(1, 0, 0)), "#FF0000");
    EXPECT_EQ(KLARON_color::hexcodeForColor(Color(ColorSpace::gray(), {0.7, 1})), "#000000");
    const Color ink(ColorSpace::deviceCMYK(), {0, 1, 0.5, 0.5, 1});
    EXPECT_EQ(KLARON_color::hexcodeForColor(ink), "#7F003FFF");
    EXPECT_EQ(KLARON_color::hexcodeForColorIgnoringAlpha(ink), "#7F003F");
    const support::LogCapture log;
    EXPECT_EQ(KLARON_color::hexcodeForColor(Color(ColorSpace::sRGB(), {1, 1})), "#000000");
    EXPECT_EQ(KLARON_color::hexcodeForColor(Color(ColorSpace::deviceCMYK(), {1, 1, 1, 1})), "#000000");
    KLARON_Image::colorComponentsForHexCode(std::nullopt);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"Bad count (2) for components in RGB colorspace",
                                                     "Bad count (4) for components in CMYK colorspace",
                                                     "using default color black"}));
}

TEST(KLARON_color, KeepsColoursByKeyForAllThreads) {
    EXPECT_EQ(KLARON_color::colorForHexcode(std::nullopt), nullptr);
    EXPECT_EQ(KLARON_color::colorForKey("a key that nobody set"), nullptr);
    KLARON_color::setColorWithHexcodeForKey("#00FF00", "leaf");
    EXPECT_EQ(KLARON_color::hexcodeForColor(*KLARON_color::colorForKey("leaf")), "#00FF00FF");
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([] {
            for (int index = 0; index < 200; ++index)
                KLARON_color::colorForHexcode("#0000" + std::to_string(10 + index % 80));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(KLARON_color::colorForHexcode("#000042"), KLARON_color::colorForKey("#000042"));
    EXPECT_EQ(KLARON_color::colorsDict().at("#000042")->components()[2], 0x42 / 255.0);
}
