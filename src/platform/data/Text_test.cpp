// Dates, the order of names, regular expressions, encodings.
#include "platform/data/Collation.h"
#include "platform/data/Dates.h"
#include "platform/data/RegularExpression.h"
#include "platform/data/TextEncoding.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <limits>

namespace platform::data {
namespace {

using namespace std::string_literals;

TEST(Dates, FollowThePatternsOfTR35) {
    // 2026-03-15 10:11:12.345999 UTC
    const base::Date date{std::chrono::microseconds(1'773'569'472'345'999)};
    struct Case {
        std::string pattern, locale, zone, text;
    };
    const Case cases[] = {
        {"yyyyMMdd-HHmmss", "en_US", "Europe/Berlin", "20260315-111112"},
        {"yyyy-MM-dd_HH-mm-ss.SSSSS", "en_US", "UTC", "2026-03-15_10-11-12.34500"},
        {"EEEE, MMMM d, yyyy", "en_US", "UTC", "Sunday, March 15, 2026"},
        {"EEE, MMM d, yyyy", "de_DE", "UTC", "So., M\u00e4rz 15, 2026"},
        {"h:mm:ss aa", "en_US", "America/New_York", "6:11:12 AM"},
        {"", "en_US", "UTC", ""},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(stringWithUTSFormat(date, test.pattern, test.locale, test.zone), test.text) << test.pattern;
    }
    EXPECT_EQ(stringWithUTSFormat(date, "SSS").size(), 3u) << "the user's own locale and zone";
}

TEST(Dates, ConvertToSecondsSinceTheReferenceDate) {
    const base::Date reference{std::chrono::seconds(978'307'200)};
    EXPECT_EQ(secondsSinceReferenceDate(reference), 0.0);
    EXPECT_GT(now(), reference) << "by the system's clock";
    for (const double seconds : {0.5, -0.25, 795'000'000.125, -3'000'000'000.0}) {
        EXPECT_EQ(secondsSinceReferenceDate(dateFromSecondsSinceReferenceDate(seconds)), seconds);
    }
    using Limits = std::numeric_limits<double>;
    for (const double extreme : {1e300, Limits::infinity()}) {
        EXPECT_EQ(dateFromSecondsSinceReferenceDate(extreme), base::Date::max());
        EXPECT_EQ(dateFromSecondsSinceReferenceDate(-extreme), base::Date::min());
    }
    EXPECT_EQ(dateFromSecondsSinceReferenceDate(Limits::quiet_NaN()), reference);
}

TEST(Collation, IgnoresCaseAndComparesDigitsByValue) {
    struct Case {
        std::string left, right;
        int order;
    };
    const Case cases[] = {
        {"IMG_9.jpg", "img_10.JPG", -1},
        {"a", "B", -1},
        {"\u00c4rger", "\u00e4RGER", 0},
        {"\u00e9", "e\u0301", 0},
        {"02", "2", 0},
        {"a2b", "a02c", -1},
        {"", "a", -1},
        {"a", "a1", -1},
        {"1a", "a", -1},
        {"99999999999999999999998", "99999999999999999999999", -1},
        {"x100000000000000000000000", "x99", 1},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(compareIgnoringCaseNumeric(test.left, test.right), test.order) << test.left << " " << test.right;
        EXPECT_EQ(compareIgnoringCaseNumeric(test.right, test.left), -test.order) << test.right << " " << test.left;
    }
}

TEST(RegularExpressions, FindByBytesAndMatchWhole) {
    const auto number = RegularExpression::compile(" [0-9]+$");
    ASSERT_TRUE(number);
    EXPECT_EQ(number->firstMatch("\u00fcber 7")->range, (RegularExpression::Range{5, 2}));
    EXPECT_FALSE(number->firstMatch(""));
    EXPECT_FALSE(number->firstMatch(" 1", 5));

    const auto stamp = RegularExpression::compile("2[01][0-9]{6}-[0-9]{6}");
    EXPECT_TRUE(stamp->matchesWhole("20260315-101112"));
    EXPECT_FALSE(stamp->matchesWhole("x20260315-101112"));
    EXPECT_FALSE(stamp->matchesWhole("20260315-1011123"));

    const auto groups = RegularExpression::compile("(a)|(B)", RegularExpression::Case::ignored);
    const auto match = groups->firstMatch("xb");
    ASSERT_TRUE(match);
    EXPECT_FALSE(match->groups[0]);
    EXPECT_EQ(match->groups[1], (RegularExpression::Range{1, 1}));

    EXPECT_FALSE(RegularExpression::compile("("));
    const auto endless = RegularExpression::compile("(a+)+$");
    EXPECT_FALSE(endless->firstMatch(std::string(5000, 'a') + "b")) << "given up, not searched for years";
}

std::string utf16(std::u16string_view text, bool bigEndian) {
    std::string bytes;
    for (const char16_t unit : text) {
        const char high = static_cast<char>(unit >> 8);
        const char low = static_cast<char>(unit & 0xFF);
        bytes += bigEndian ? high : low;
        bytes += bigEndian ? low : high;
    }
    return bytes;
}

TEST(TextEncoding, DetectsUnicodeWithAndWithoutAMark) {
    const std::u16string_view wide = u"<a>\u00fc\u20ac\U0001F600</a>";
    const std::string text = "<a>\u00fc\u20ac\U0001F600</a>";
    const std::string latin = "<?xml version='1.0' encoding=\"ISO-8859-1\"?><a>\xFC</a>";
    struct Case {
        std::string bytes, text;
    };
    const Case cases[] = {
        {text, text},
        {"\xEF\xBB\xBF" + text, text},
        {utf16(wide, false), text},
        {utf16(wide, true), text},
        {"\xFF\xFE" + utf16(wide, false), text},
        {"\xFE\xFF" + utf16(wide, true), text},
        {"", ""},
        {"\xFF\xFE", ""},
        {"a", "a"},
        {latin, "<?xml version='1.0' encoding=\"ISO-8859-1\"?><a>\u00fc</a>"},
    };
    const support::TemporaryDirectory folder;
    for (const Case& test : cases) {
        const auto read = readTextDetectingEncoding(base::URL::fileURLWithPath(folder.write("a.xml", test.bytes)));
        ASSERT_TRUE(read) << read.error().localizedDescription;
        EXPECT_EQ(*read, test.text);
    }
}

TEST(TextEncoding, RefusesWhatIsNoText) {
    const std::string cases[] = {
        "<a>\xFC</a>",                                   // Latin-1 that does not say so
        "\xC3",                                          // cut off within a character
        "\xED\xA0\x80",                                  // a surrogate in UTF-8
        "\xC0\xAF",                                      // an overlong form
        "<?xml encoding='nonsense-99'?>\xFC",            // an encoding that nobody knows
        "<?xml encoding='UTF-8'?>\xFC",                  // one that it is not
        "\xFF\xFE" + utf16(u"<a>", false) + "x",         // an odd number of bytes
        "\xFF\xFE" + utf16(u"<a>", false) + "\x3D\xD8"s, // a high surrogate at the end
        "\xFE\xFF" + utf16(u"<a>", true) +
            "\xDE\x00"
            "a\0"s, // a low surrogate alone
    };
    for (const std::string& bytes : cases) {
        const auto text = textDetectingEncoding(bytes, "ticket.xml");
        ASSERT_FALSE(text) << *text;
        EXPECT_NE(text.error().localizedDescription.find("ticket.xml"), std::string::npos);
    }
    EXPECT_FALSE(readTextDetectingEncoding(base::URL::fileURLWithPath("/no/such/file")));
    EXPECT_FALSE(readTextDetectingEncoding(base::URL::fromString("http://example.com/a.xml")));
}

} // namespace
} // namespace platform::data
