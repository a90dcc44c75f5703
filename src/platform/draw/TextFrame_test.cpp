#include "platform/draw/BitmapContext.h"
#include "platform/draw/TextFrame.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <thread>

using namespace platform::draw;

namespace {

AttributedText text(std::string string, double size = 20, TextAlignment alignment = TextAlignment::left,
                    std::string font = "DejaVu Sans") {
    return {std::move(string), {std::move(font), size, Color(), alignment}};
}

std::vector<std::string> lineTexts(const TextFrame& frame) {
    std::vector<std::string> texts;
    for (const auto& line : frame.lines())
        texts.push_back(line.string);
    return texts;
}

} // namespace

TEST(TextFrame, WrapsByWordsAndCutsWordsOnlyWhereTheyAloneAreTooWide) {
    const TextFrame words(text("one two three four"), {120, 200});
    EXPECT_EQ(lineTexts(words), (std::vector<std::string>{"one two ", "three four"}));
    const TextFrame wide(text("a unbelievablylongword b"), {100, 200});
    const auto lines = lineTexts(wide);
    ASSERT_GE(lines.size(), 3u);
    std::string together;
    for (const auto& line : lines)
        together += line;
    EXPECT_EQ(together, "a unbelievablylongword b");
    for (const auto& line : wide.lines())
        EXPECT_LE(line.width, 100.5) << line.string;
    EXPECT_EQ(lineTexts(TextFrame(text("first\nsecond\r\nthird"), {500, 200})),
              (std::vector<std::string>{"first", "second", "third"}));
}

TEST(TextFrame, LeavesOutLinesThatDoNotFitWhole) {
    const AttributedText two = text("one\ntwo");
    const double lineHeight = sizeOfText(text("one"), 0).height;
    const struct {
        double height;
        std::size_t lines;
    } cases[] = {{lineHeight - 1, 0}, {lineHeight, 1}, {2 * lineHeight - 1, 1}, {2 * lineHeight, 2}, {-5, 0}};
    for (const auto& row : cases) {
        const TextFrame frame(two, {200, row.height});
        EXPECT_EQ(frame.lines().size(), row.lines) << row.height;
        EXPECT_EQ(frame.isComplete(), row.lines == 2) << row.height;
    }
    EXPECT_TRUE(TextFrame(text("x"), {0, 50}).lines().empty());
    EXPECT_TRUE(TextFrame(text(""), {50, 50}).isComplete());
}

TEST(TextFrame, AlignsItsLines) {
    const auto lineAt = [](TextAlignment alignment, std::string string) {
        return TextFrame(text(std::move(string), 20, alignment), {300, 100}).lines().at(0);
    };
    const auto left = lineAt(TextAlignment::left, "word");
    EXPECT_NEAR(lineAt(TextAlignment::center, "word").x, (300 - left.width) / 2, 0.51);
    const std::string hebrew = "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D";
    // Each paragraph has its own direction; left and right are the page's.
    const std::string both = "word\n" + hebrew;
    const struct {
        TextAlignment alignment;
        bool latinAtRight, hebrewAtRight;
    } cases[] = {{TextAlignment::left, false, false},
                 {TextAlignment::right, true, true},
                 {TextAlignment::natural, false, true},
                 {TextAlignment::justified, false, true}};
    for (const auto& row : cases) {
        const auto lines = TextFrame(text(both, 20, row.alignment), {300, 100}).lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_NEAR(lines[0].x, row.latinAtRight ? 300 - lines[0].width : 0, 0.51);
        EXPECT_NEAR(lines[1].x, row.hebrewAtRight ? 300 - lines[1].width : 0, 0.51);
    }
    const TextFrame justified(text("one two three four five six", 20, TextAlignment::justified), {130, 300});
    EXPECT_NEAR(justified.lines().at(0).width, 130, 1);
    EXPECT_LT(justified.lines().back().width, 100) << "the last line stays as it is";
}

// What stands in each line, and whether all of it fitted.
TEST(TextFrame, BreaksTextsIntoLines) {
    using Lines = std::vector<std::string>;
    const std::string hebrew = "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D";
    const std::string accents = "e\xCC\x81\xCC\xA3\xCC\xA7";                   // one letter with three marks
    const std::string family = "\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7"; // two pictures joined to one
    const struct {
        std::string text;
        base::Size size;
        Lines lines;
        bool complete;
    } cases[] = {
        {"one\n\n\ntwo", {300, 200}, {"one", "", "", "two"}, true},
        {"\n", {300, 200}, {"", ""}, true},
        {"one\n", {300, 200}, {"one", ""}, true},
        {"one\n\n\ntwo", {300, 60}, {"one", ""}, false},
        {"a\tb\t\tc", {300, 200}, {"a\tb\t\tc"}, true},
        {"   leading", {300, 200}, {"   leading"}, true},
        {"   ", {300, 200}, {"   "}, true},
        {"wwwwwwww", {70, 200}, {"wwww", "wwww"}, true},
        {"x-ray", {40, 200}, {"x-", "ray"}, true},
        {accents + accents + accents, {20, 200}, {accents, accents, accents}, true},
        {"a " + hebrew + " b", {300, 200}, {"a " + hebrew + " b"}, true},
        {hebrew + " " + hebrew, {60, 200}, {hebrew + " ", hebrew}, true},
        {"a\xC2\xA0"
         "b c",
         {40, 200},
         {"a\xC2\xA0"
          "b ",
          "c"},
         true}, // a blank that does not break
        {family, {300, 200}, {family}, true},
        {"text", {0.001, 200}, {"t", "e", "x", "t"}, true},
        {"text", {300, 0.001}, {}, false},
        {"text", {1e9, 1e9}, {"text"}, true},
    };
    for (const auto& row : cases) {
        const TextFrame frame(text(row.text), row.size);
        EXPECT_EQ(lineTexts(frame), row.lines) << row.text;
        EXPECT_EQ(frame.isComplete(), row.complete) << row.text;
        const auto canvas = BitmapContext::create(50, 50, ColorSpace::sRGB());
        canvas->drawText(text(row.text), {0, 0, std::min(row.size.width, 50.0), std::min(row.size.height, 50.0)});
        EXPECT_FALSE(canvas->drawError());
    }
}

TEST(TextFrame, FindsFontsByAnyOfTheirNames) {
    const struct {
        const char* name;
        bool available;
        const char* family;
    } cases[] = {
        {"DejaVuSans-Bold", true, "DejaVu Sans"},    {"dejavusans-bold", true, "DejaVu Sans"},
        {"DejaVu Sans Bold", true, "DejaVu Sans"},   {"DejaVu Serif", true, "DejaVu Serif"},
        {"LiberationMono", true, "Liberation Mono"}, {"Helvetica", true, "Liberation Sans"},
        {"Helvetica-Bold", true, "Liberation Sans"}, {"No Such Font At All", false, nullptr},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(isFontAvailable(row.name), row.available) << row.name;
        const std::string family =
            TextFrame(text("x", 20, TextAlignment::left, row.name), {100, 100}).resolvedFontFamily();
        if (row.family)
            EXPECT_EQ(family, row.family) << row.name;
        else
            EXPECT_FALSE(family.empty()) << "something draws in its place";
    }
    const auto fonts = availableFonts();
    EXPECT_TRUE(std::is_sorted(fonts.begin(), fonts.end()));
    EXPECT_TRUE(std::binary_search(fonts.begin(), fonts.end(), "DejaVuSans-Bold"));
    EXPECT_FALSE(std::binary_search(fonts.begin(), fonts.end(), "DejaVu Sans Bold"));
    const auto width = [](const char* font) {
        return sizeOfText(text("wide", 20, TextAlignment::left, font), 0).width;
    };
    EXPECT_GT(width("DejaVuSans-Bold"), width("DejaVu Sans") * 1.05);
    EXPECT_EQ(width("DejaVuSans-Bold"), width("DejaVu Sans Bold"));
}

TEST(TextFrame, BearsBrokenTextAndSizes) {
    EXPECT_EQ(TextFrame(text("a\xFF\xFE b"), {300, 100}).lines().size(), 1u);
    EXPECT_EQ(TextFrame(text(std::string("a\0b", 3)), {300, 100}).lines().size(), 1u);
    for (const double size : {0.0, -3.0, 1e9, std::numeric_limits<double>::quiet_NaN()})
        TextFrame(text("x", size), {300, 100}).lines();
}

TEST(TextFrame, IsLaidOutByManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::vector<base::Size> sizes(6);
    for (auto& size : sizes)
        threads.emplace_back([&size] {
            for (int round = 0; round < 20; ++round) {
                const auto canvas = BitmapContext::create(300, 60, ColorSpace::sRGB());
                canvas->drawText(text("threads " + std::to_string(round), 20 + round), {0, 0, 300, 60});
                size = sizeOfText(text("The same for all", 31), 0);
            }
        });
    for (auto& thread : threads)
        thread.join();
    for (const auto& size : sizes)
        EXPECT_EQ(size, sizes.front());
}
