#include "base/Geometry.h"
#include "base/Log.h"
#include "base/MessageTemplate.h"
#include "base/Path.h"
#include "base/Places.h"
#include "base/Text.h"
#include "base/Value.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

using namespace base;

TEST(Text, ReadsNumbersThatLeadAText) {
    const struct {
        const char* text;
        double real;
        std::int64_t integer;
    } cases[] = {
        {"", 0, 0},
        {"  -3.75x", -3.75, -3},
        {"+8", 8, 8},
        {"1e3", 1000, 1},
        {".5", .5, 0},
        {"-", 0, 0},
        {"inf", 0, 0},
        {"nan", 0, 0},
        {"+-3", 0, 0},
        {"0x10", 0, 0},
        {"1e-400", 0, 1},
        {"99999999999999999999", 1e20, std::numeric_limits<std::int64_t>::max()},
        {"-99999999999999999999", -1e20, std::numeric_limits<std::int64_t>::min()},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(doubleValue(c.text), c.real) << c.text;
        EXPECT_EQ(integerValue(c.text), c.integer) << c.text;
    }
    EXPECT_EQ(doubleValue("1e999"), std::numeric_limits<double>::max());
}

TEST(Text, ReadsBooleans) {
    for (const char* yes : {"yes", "Y", "true", "T", "1", " 01", "+9x", "0004"})
        EXPECT_TRUE(boolValue(yes)) << yes;
    for (const char* no : {"", "no", "0", "00", "on", "false", "-", "x1", " "})
        EXPECT_FALSE(boolValue(no)) << no;
}

TEST(Text, ReadsHexadecimal) {
    const struct {
        const char* text;
        std::uint32_t value;
    } cases[] = {{"FF", 255}, {" 0x1f", 31}, {"12ZZ", 0x12}, {"", 0}, {"zz", 0}, {"123456789A", 0xFFFFFFFF}, {"0x", 0}};
    for (const auto& c : cases)
        EXPECT_EQ(hexValue(c.text), c.value) << c.text;
}

TEST(Text, ShortestDecimalReadsBack) {
    const struct {
        double value;
        const char* text;
    } cases[] = {{0, "0"}, {-0.0, "0"}, {600, "600"}, {0.1, "0.1"}, {-12.5, "-12.5"}, {1.0 / 3, "0.3333333333333333"}};
    for (const auto& c : cases)
        EXPECT_EQ(shortestDecimal(c.value), c.text);
    for (const double value : {1e300, 1e-300, 123456789.123456, 2e-6})
        EXPECT_EQ(doubleValue(shortestDecimal(value)), value);
}

TEST(Text, IsCutBetweenItsCharacters) {
    for (const auto& [size, cut] : {std::pair{0, ""}, {1, "a"}, {2, "a"}, {3, "a\u00FC"}, {9, "a\u00FC"}})
        EXPECT_EQ(truncated("a\u00FC", static_cast<std::size_t>(size)), cut) << size;
    EXPECT_EQ(truncated("\x80\x80\x80", 2), "");
}

TEST(Geometry, TextFormsTakeNumbersInOrder) {
    const struct {
        const char* text;
        Rect rect;
    } cases[] = {
        {"{{0, 0}, {600, 400}}", {0, 0, 600, 400}}, {"{{-1.5,2e1},{3", {-1.5, 20, 3, 0}}, {"", {}},
        {"x: 5 - y: +6, .5", {5, 6, .5, 0}},        {"{{1, 2}, {3, 4}} 9", {1, 2, 3, 4}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(rectFromString(c.text), c.rect) << c.text;
    EXPECT_EQ(stringFromRect({0, 0.5, 600, -4}), "{{0, 0.5}, {600, -4}}");
    EXPECT_EQ(stringFromSize({1800, 1200}), "{1800, 1200}");
    EXPECT_EQ(stringFromPoint({1, 0.1}), "{1, 0.1}");
}

TEST(Geometry, RectanglesMeetShrinkAndTurn) {
    const Rect rect{10, 20, 100, 50};
    EXPECT_EQ(rect.inset(5, 5), (Rect{15, 25, 90, 40}));
    EXPECT_TRUE(rect.inset(0, 26).isNull());
    EXPECT_TRUE(rect.intersection({200, 0, 5, 5}).isNull());
    EXPECT_EQ(rect.intersection({0, 0, 50, 30}), (Rect{10, 20, 40, 10}));
    EXPECT_EQ((Rect{0.5, -0.5, 1, 1}).integral(), (Rect{0, -1, 2, 2}));
    EXPECT_TRUE((Rect{1, 1, 0, 5}).isEmpty());

    const double quarter = std::acos(-1.0) / 2;
    const Rect turned = AffineTransform::rotationAbout(rect.center(), quarter).apply(rect);
    EXPECT_NEAR(turned.width, 50, 1e-9);
    EXPECT_NEAR(turned.height, 100, 1e-9);
    EXPECT_NEAR(turned.center().x, rect.center().x, 1e-9);
    const AffineTransform transform = AffineTransform::translation(3, 4).after(AffineTransform::rotation(0.3));
    const Point back = transform.inverted().apply(transform.apply(Point{7, 8}));
    EXPECT_NEAR(back.x, 7, 1e-12);
    EXPECT_NEAR(back.y, 8, 1e-12);
}

TEST(Path, ComponentsAndExtensions) {
    const struct {
        const char* path;
        const char* last;
        const char* extension;
        const char* without;
        const char* parent;
    } cases[] = {
        {"/a/b.txt", "b.txt", "txt", "/a/b", "/a"},
        {"/a/b.tar.gz/", "b.tar.gz", "gz", "/a/b.tar", "/a"},
        {"/a/.profile", ".profile", "", "/a/.profile", "/a"},
        {"name.", "name.", "", "name.", ""},
        {"/", "/", "", "/", "/"},
        {"", "", "", "", ""},
        {"/a.b/c", "c", "", "/a.b/c", "/a.b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(lastPathComponent(c.path), c.last) << c.path;
        EXPECT_EQ(pathExtension(c.path), c.extension) << c.path;
        EXPECT_EQ(deletingPathExtension(c.path), c.without) << c.path;
        EXPECT_EQ(deletingLastPathComponent(c.path), c.parent) << c.path;
    }
    EXPECT_EQ(appendingPathComponent("/a/", "/b/"), "/a/b");
    EXPECT_EQ(appendingPathComponent("/", "b"), "/b");
    EXPECT_EQ(appendingPathComponent("/a", ""), "/a");
    EXPECT_EQ(appendingPathExtension("/a/b", ""), "/a/b");
}

TEST(Path, StandardizesAndExpandsTheHomeFolder) {
    const std::string home = places().home;
    EXPECT_EQ(standardizingPath("~/x"), appendingPathComponent(home, "x"));
    EXPECT_EQ(standardizingPath("/a//b/./c/../d/"), "/a/b/d");
    EXPECT_EQ(standardizingPath("/.."), "/");
    EXPECT_EQ(standardizingPath("a/../b"), "a/../b");
    EXPECT_EQ(standardizingPath("~other/x"), "~other/x");
    EXPECT_EQ(standardizingPath(""), "");
}

TEST(URL, SpellsAndReadsBack) {
    const URL url = URL::fileURLWithPath("/a b/ä#%.txt/");
    EXPECT_EQ(url.absoluteString(), "file:///a%20b/%C3%A4%23%25.txt");
    EXPECT_EQ(URL::fromString(url.absoluteString()), url);
    EXPECT_EQ(URL::fromString("file://localhost/x").path(), "/x");
    const URL web = URL::fromString("https://example.org/a");
    EXPECT_FALSE(web.isFileURL());
    EXPECT_EQ(web.absoluteString(), "https://example.org/a");
}

TEST(Value, ComparesDeeplyAndNumbersByValue) {
    const Dictionary one{{"a", Array{1, 2.5, "x"}}, {"b", Rect{0, 0, 1, 1}}};
    Dictionary two = one;
    EXPECT_EQ(Value(one), Value(two));
    two["a"].as<Array>()->push_back(true);
    EXPECT_NE(Value(one), Value(two));
    EXPECT_EQ(Value(1), Value(1.0));
    EXPECT_EQ(Value(true), Value(1));
    EXPECT_NE(Value(1), Value("1"));
    EXPECT_NE(Value(), Value(0));
    EXPECT_EQ(Value(std::optional<std::string>()), Value());
}

TEST(Value, EqualValuesHashAlike) {
    const Value groups[][3] = {
        {1, 1.0, true},
        {0, -0.0, false},
        {std::int64_t(9007199254740993), 9007199254740992.0, std::int64_t(9007199254740992)},
        {Rect{0, 0, 1, 1}, Rect{-0.0, 0, 1, 1}, Rect{0, -0.0, 1, 1}},
        {Dictionary{{"a", Array{1, "x"}}}, Dictionary{{"a", Array{1.0, "x"}}}, Dictionary{{"a", Array{true, "x"}}}},
    };
    for (const auto& group : groups)
        for (const Value& value : group) {
            EXPECT_EQ(value, group[1]);
            EXPECT_EQ(value.hash(), group[1].hash()) << value.description();
        }
    EXPECT_NE(Value(Array{1, 2}).hash(), Value(Array{2, 1}).hash());
    EXPECT_NE(Value(Dictionary{{"a", "b"}}).hash(), Value(Dictionary{{"b", "a"}}).hash());
}

TEST(Value, ConvertsAndPrints) {
    EXPECT_EQ(Value("12.5x").doubleValue(), 12.5);
    EXPECT_TRUE(Value("yes").boolValue());
    EXPECT_EQ(Value(1e300).integerValue(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(Value(2.0).stringValue(), "2");
    EXPECT_EQ(Value(Array{}).stringValue(), std::nullopt);
    EXPECT_EQ(Value(Dictionary{{"k", "a b"}, {"n", 3}}).description(), "{\n    k = \"a b\";\n    n = 3;\n}");
    EXPECT_EQ(Value().description(), "(null)");
}

TEST(MessageTemplate, FillsItsPlaces) {
    EXPECT_EQ(message("%s%@ %lu", "+[A b:]", URL::fileURLWithPath("/x"), 7u), "+[A b:]file:///x 7");
    EXPECT_EQ(message("%.2f seconds, 100%%", 1.239), "1.24 seconds, 100%");
    EXPECT_EQ(message("#%0.2X%0.2X", 10, 255), "#0AFF");
    EXPECT_EQ(message("%@ and %@", nullptr), "(null) and (null)");
    EXPECT_EQ(message("%@", Error{"d", 1, "sorry"}), "sorry");
    EXPECT_EQ(message("%d", "text"), "text");
    EXPECT_EQ(message("dangling %"), "dangling %");
    EXPECT_EQ(message("dangling %5"), "dangling %5");
    EXPECT_EQ(message("%@", std::optional<std::string>()), "(null)");
    EXPECT_EQ(message("%@", true), "1");
}

TEST(Log, LinesOfManyThreadsArriveWhole) {
    std::vector<std::string> lines;
    const LogSink before = setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back([thread] {
                for (int i = 0; i < 50; ++i)
                    log("line %d of %d", i, thread);
            });
    }
    setLogSink(before);
    EXPECT_EQ(lines.size(), 200u);
    EXPECT_TRUE(logLine("x").ends_with("] x\n"));
}
