#include "platform/data/PropertyList.h"

#include "platform/data/Dates.h"
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace platform::data {
namespace {

using namespace std::string_literals;

/// The binary form around objects that are given byte by byte; references and offsets take one and two bytes.
std::string binaryPlist(const std::vector<std::string>& objects, char top = 0) {
    std::string bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += static_cast<char>(bytes.size() >> 8);
        table += static_cast<char>(bytes.size() & 0xFF);
        bytes += object;
    }
    const std::size_t tablePlace = bytes.size();
    std::string trailer(32, '\0');
    trailer[6] = 2;
    trailer[7] = 1;
    trailer[14] = static_cast<char>(objects.size() >> 8);
    trailer[15] = static_cast<char>(objects.size() & 0xFF);
    trailer[23] = top;
    trailer[30] = static_cast<char>(tablePlace >> 8);
    trailer[31] = static_cast<char>(tablePlace & 0xFF);
    return bytes + table + trailer;
}

base::Value sample() {
    const base::Date date{std::chrono::seconds(1'773'569'472)};
    return base::Dictionary{
        {"", "empty key"},
        {"array", base::Array{1, base::Array{}, base::Dictionary{}, false}},
        {"big", std::numeric_limits<std::int64_t>::max()},
        {"data", base::Data("\0\x01\xFF bytes"s)},
        {"date", date},
        {"early", base::Date{std::chrono::seconds(-1)}},
        {"emptyData", base::Data()},
        {"emptyText", ""},
        {"k\u00e9y <&>", "t\u00ebxt <&> \u20ac \U0001F600 \"quoted\"\nline\ttab"},
        {"real", 0.1},
        {"small", std::numeric_limits<std::int64_t>::min()},
        {"spaces", "  kept  "},
        {"tiny", 5e-324},
        {"true", true},
        {"whole", 3.0},
    };
}

TEST(PropertyList, ComesBackAsItWentOut) {
    for (const auto format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
        const auto bytes = propertyListData(sample(), format);
        ASSERT_TRUE(bytes) << bytes.error().localizedDescription;
        EXPECT_EQ(bytes->asText().starts_with("bplist00"), format == PropertyListFormat::binary);
        const auto value = parsePropertyList(*bytes);
        ASSERT_TRUE(value) << value.error().localizedDescription;
        EXPECT_EQ(*value, sample()) << value->description();
        EXPECT_TRUE(value->as<base::Dictionary>()->at("true").as<bool>()) << "a boolean, no number";
        EXPECT_TRUE(value->as<base::Dictionary>()->at("whole").as<double>()) << "a real, no whole number";
        EXPECT_EQ(*parsePropertyList(*propertyListData("text", format)), base::Value("text"));
    }
}

TEST(PropertyList, ReadsWhatOthersWrite) {
    const std::string_view xml =
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//"
        "DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<!-- note -->"
        "<plist version=\"1.0\"><dict><key>a</key>\n<!-- note --><string>x &#x26; "
        "<![CDATA[<y>]]></string><key>d</key><data>\n\tAQID\n\tBA==\n</data><key>n</key>"
        "<integer>-7</integer><key>e</key><array/><key>t</key><date>2001-01-01T00:00:01Z</date>"
        "</dict></plist>";
    const auto value = parsePropertyList(xml);
    ASSERT_TRUE(value) << value.error().localizedDescription;
    const base::Dictionary expected{{"a", "x & <y>"},
                                    {"d", base::Data("\x01\x02\x03\x04")},
                                    {"n", -7},
                                    {"e", base::Array{}},
                                    {"t", dateFromSecondsSinceReferenceDate(1)}};
    EXPECT_EQ(*value, base::Value(expected)) << value->description();

    // Objects that are shared in the binary form come out as equal values.
    const auto shared = parsePropertyList(binaryPlist({"\xA2\x01\x01"s, "\xA1\x02"s, "\x51x"s}));
    ASSERT_TRUE(shared) << shared.error().localizedDescription;
    EXPECT_EQ(*shared, base::Value(base::Array{base::Array{"x"}, base::Array{"x"}}));
}

TEST(PropertyList, RefusesValuesThatItCanNotHold) {
    struct Case {
        base::Value value;
        bool binary; // that form holds it, XML does not
        std::string words;
    };
    const Case cases[] = {
        {base::Dictionary{{"a", base::Array{1, base::URL::fileURLWithPath("/x")}}}, false, "\"a\"[1]"},
        {base::Dictionary{{"a", base::Dictionary{{"b", base::Point{1, 2}}}}}, false, "\"a\".\"b\""},
        {base::Value(), false, "kind"},
        {base::Dictionary{{"a", "\xFF"}}, false, "UTF-8"},
        {base::Dictionary{{"\xFF", "a"}}, false, "key"},
        {"a\0b"s, false, "zero"},
        {"a\x01", true, "control"},
        {"a\r\n", true, "control"},
        {"\uFFFF", true, "XML"},
        {std::numeric_limits<double>::infinity(), true, "finite"},
        {base::Date::max(), false, "range"},
    };
    for (const Case& test : cases) {
        const auto binary = propertyListData(test.value, PropertyListFormat::binary);
        const auto xml = propertyListData(test.value, PropertyListFormat::xml);
        EXPECT_EQ(bool(binary), test.binary) << test.words;
        if (binary) {
            EXPECT_EQ(*parsePropertyList(*binary), test.value);
        }
        ASSERT_FALSE(xml);
        EXPECT_NE(xml.error().localizedDescription.find(test.words), std::string::npos)
            << xml.error().localizedDescription;
    }
    base::Value deep = "end";
    for (int level = 0; level < 300; ++level) {
        deep = base::Array{deep};
    }
    EXPECT_FALSE(propertyListData(deep, PropertyListFormat::binary));
}

std::string nested(std::string_view opening, std::string_view closing, int depth) {
    std::string text = "<plist>";
    for (int level = 0; level < depth; ++level) {
        text += opening;
    }
    for (int level = 0; level < depth; ++level) {
        text += closing;
    }
    return text + "</plist>";
}

TEST(PropertyList, RefusesHostileData) {
    // 40 lists, each of which holds the next one twice: two to the 40 values.
    std::vector<std::string> bomb;
    for (char level = 0; level < 40; ++level) {
        const char next = static_cast<char>(level + 1);
        bomb.push_back(std::string("\xA2") + next + next);
    }
    bomb.push_back("\x51x");
    // 250 lists, each in the one before.
    std::vector<std::string> chain;
    for (int level = 0; level < 250; ++level) {
        chain.push_back(std::string("\xA1") + static_cast<char>(level + 1));
    }
    chain.push_back("\x51x");

    struct Case {
        std::string name, bytes;
    };
    const Case cases[] = {
        {"nothing", ""},
        {"binary rubbish", "\x89PNG\r\n\x1A\n\0\0\0"s},
        {"head and zeros", "bplist00" + std::string(64, '\0')},
        {"head and ones", "bplist00" + std::string(64, '\xFF')},
        {"bomb", binaryPlist(bomb)},
        {"deep", binaryPlist(chain)},
        {"cycle", binaryPlist({"\xA1\x01"s, "\xA1\0"s})},
        {"itself", binaryPlist({"\xA1\0"s})},
        {"reference outside", binaryPlist({"\xA1\x09"s})},
        {"list longer than the file", binaryPlist({"\xAF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s})},
        {"text longer than the file", binaryPlist({"\x5F\x12\x7F\xFF\xFF\xFF"s})},
        {"wide text longer than the file", binaryPlist({"\x6F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s})},
        {"length that is no number", binaryPlist({"\x5F\x51x"s})},
        {"key that is a list", binaryPlist({"\xD1\x01\x02"s, "\xA0"s, "\x51x"s})},
        {"date beyond reach", binaryPlist({"\x33\x7F\xEF\xFF\xFF\xFF\xFF\xFF\xFF"s})},
        {"date that is no number", binaryPlist({"\x33\x7F\xF8\0\0\0\0\0\0"s})},
        {"lone surrogate", binaryPlist({"\x61\xD8\0"s})},
        {"zero character", binaryPlist({"\x52x\0"s})},
        {"zero character in a key", binaryPlist({"\xD1\x01\x01"s, "\x52x\0"s})},
        {"wide zero character", binaryPlist({"\x61\0\0"s})},
        {"number of odd size", binaryPlist({"\x15\0"s})},
        {"top outside", binaryPlist({"\x08"s}, 5)},
        {"XML of another kind", "<html/>"},
        {"XML without content", "<plist></plist>"},
        {"XML deep", nested("<array>", "</array>", 100'000)},
        {"XML deep by dictionaries", nested("<dict><key>a</key>", "</dict>", 300)},
        {"XML entity bomb",
         "<!DOCTYPE plist [<!ENTITY a 'aa'><!ENTITY b '&a;&a;'>]><plist><string>&b;</string></plist>"},
        {"XML unknown element", "<plist><nonsense/></plist>"},
        {"XML not UTF-8", "<plist><string>\xFF</string></plist>"},
    };
    for (const Case& test : cases) {
        const auto value = parsePropertyList(test.bytes);
        ASSERT_FALSE(value) << test.name << " gave " << value->description();
        EXPECT_FALSE(value.error().localizedDescription.empty());
    }
}

TEST(PropertyList, SurvivesEveryCutAndManyMutations) {
    for (const auto format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
        const std::string whole(propertyListData(sample(), format)->asText());
        for (std::size_t length = 0; length + 20 < whole.size(); ++length) {
            EXPECT_FALSE(parsePropertyList(std::string_view(whole).substr(0, length))) << length;
        }
        std::uint32_t random = 4711;
        for (int round = 0; round < 5000; ++round) {
            std::string mutated = whole;
            for (int change = 0; change < 3; ++change) {
                random = random * 1664525 + 1013904223;
                mutated[(random >> 8) % mutated.size()] = static_cast<char>(random >> 24);
            }
            if (const auto value = parsePropertyList(mutated)) {
                EXPECT_TRUE(propertyListData(*value, PropertyListFormat::binary) || value->description().size());
            }
        }
    }
}

} // namespace
} // namespace platform::data
