#include "platform/data/KeyedArchive.h"

#include "platform/data/Dates.h"
#include "platform/data/PropertyList.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace platform::data {
namespace {

using namespace std::string_literals;

/// A class with one dictionary, in three levels of inheritance and one without coding.
struct Sample : base::Object {
    explicit Sample(std::string className, base::Dictionary content = {})
        : name(std::move(className)), values(std::move(content)) {}
    std::string className() const override { return name; }
    bool isEqual(const base::Object& other) const override {
        const auto* sample = dynamic_cast<const Sample*>(&other);
        return sample && name == sample->name && values == sample->values;
    }
    std::optional<base::Dictionary> encoded() override {
        return name == "TestUncoded" ? std::nullopt : std::optional(values);
    }
    std::string name;
    base::Dictionary values;
};

void registerSample(const std::string& name, std::vector<std::string> ancestors) {
    registerArchivedClass({name,
                           std::move(ancestors),
                           {{"self.name", {"NSString"}},
                            {"self.URL", {"NSURL"}},
                            {"self.properties", {"NSMutableDictionary"}},
                            {"self.count", {}},
                            {"self.layers", {"NSMutableArray", "TestBase"}},
                            {"self.any", {"NSMutableDictionary", "NSValue", "NSURL", "TestBase"}}},
                           [name](base::Dictionary values) -> base::Result<base::ObjectRef> {
                               if (values.contains("self.count") && values["self.count"].integerValue() < 0) {
                                   return base::failure(base::cocoaErrorDomain, 1, "negative count");
                               }
                               return std::make_shared<Sample>(name, std::move(values));
                           }});
}

class KeyedArchive : public testing::Test {
protected:
    static void SetUpTestSuite() {
        registerSample("TestBase", {"NSObject"});
        registerSample("TestDerived", {"TestBase", "NSObject"});
        registerSample("TestFolder", {"NSObject"});
    }
};

base::Result<base::Value> roundTrip(const base::Value& value, const std::vector<std::string>& classes) {
    const auto bytes = archivedData(value);
    if (!bytes) return base::failure(bytes.error());
    return unarchived(*bytes, classes);
}

TEST_F(KeyedArchive, BringsBackEveryKindOfValue) {
    const base::Dictionary values{
        {"array", base::Array{1, "text", base::Array{}, base::Dictionary{}, base::Value()}},
        {"bool", true},
        {"data", base::Data("\0\xFF"s)},
        {"date", dateFromSecondsSinceReferenceDate(795'000'000.125)},
        {"dictionary", base::Dictionary{{"a", base::Dictionary{{"b", "c"}}}}},
        {"dollar", "$null"},
        {"empty", ""},
        {"point", base::Point{0.1, -2}},
        {"real", 0.1},
        {"rect", base::Rect{1, 2, 3, 4.5}},
        {"size", base::Size{6, 4}},
        {"text", "\u00fc\U0001F600\n\x01"},
        {"url", base::URL::fileURLWithPath("/tmp/a b#c")},
        {"web", base::URL::fromString("http://example.com/x?y=z")},
        {"whole", -7},
        {"zero", "a\0b"s},
    };
    const auto value = roundTrip(values, {"NSDictionary", "NSURL", "NSValue"});
    ASSERT_TRUE(value) << value.error().localizedDescription;
    EXPECT_EQ(*value, base::Value(values)) << value->description();
    EXPECT_TRUE(value->as<base::Dictionary>()->at("bool").as<bool>());

    // The same below an object, where numbers stand inline.
    const auto object = std::make_shared<Sample>(
        "TestDerived", base::Dictionary{{"self.any", values}, {"self.name", "n"}, {"self.count", 3}});
    const auto copy = roundTrip(object, {"TestBase"});
    ASSERT_TRUE(copy) << copy.error().localizedDescription;
    EXPECT_TRUE(copy->object<Sample>()->isEqual(*object));
    EXPECT_NE(copy->object<Sample>(), object);
}

TEST_F(KeyedArchive, WritesThePlatformsForm) {
    const auto object = std::make_shared<Sample>(
        "TestDerived",
        base::Dictionary{{"self.count", 3}, {"self.name", "n"}, {"self.none", base::Value()}, {"self.copy", "n"}});
    const auto bytes = archivedData(object);
    ASSERT_TRUE(bytes);
    const auto list = parsePropertyList(*bytes);
    ASSERT_TRUE(list) << list.error().localizedDescription;
    const auto uid = [](int number) { return base::Value(base::Dictionary{{"CF$UID", number}}); };
    const base::Dictionary expected{
        {"$version", 100000},
        {"$archiver", "NSKeyedArchiver"},
        {"$top", base::Dictionary{{"root", uid(1)}}},
        {"$objects", base::Array{"$null",
                                 base::Dictionary{{"$class", uid(2)},
                                                  {"self.copy", uid(3)},
                                                  {"self.count", 3},
                                                  {"self.name", uid(3)},
                                                  {"self.none", uid(0)}},
                                 base::Dictionary{{"$classname", "TestDerived"},
                                                  {"$classes", base::Array{"TestDerived", "TestBase", "NSObject"}}},
                                 "n"}}};
    EXPECT_EQ(*list, base::Value(expected)) << list->description();
}

// Made by another writer of property lists: a list of a folder and a URL that is relative to the folder's.
constexpr std::string_view foreignArchive =
    "62706C6973743030D40102030405065F625924617263686976657258246F626A656374735424746F70582476657273696F6E5F100F4E"
    "534B657965644172636869766572AF101707080F1D1E24253036393C404448494A4B4F535455585B55246E756C6CD2090A0B0C562463"
    "6C6173735A4E532E6F626A656374738009A20D0E8002800AD709101112131415161718191A1B1C5873656C662E55524C5D73656C662E"
    "626F6F6B6D61726B5A73656C662E636F756E745973656C662E6E616D655A73656C662E6F746865725F100F73656C662E70726F706572"
    "7469657380088004800010078003800B80066A0048006F007400200192006F006C006400650072D3091F20212223574E532E62617365"
    "5B4E532E72656C61746976658007800080055F101266696C653A2F2F2F746D702F61253230622FD309260A27282C574E532E6B657973"
    "800CA3292A2B800D800E8012A32D2E2F800F80108011D2313233345824636C61737365735A24636C6173736E616D65A23435554E5355"
    "524C584E534F626A656374D231323738A238355A54657374466F6C646572D231323A3BA23B35574E534172726179D3091F203D3E3F80"
    "0780048013D209414243517880141001D231324546A34647355F10134E534D757461626C6544696374696F6E6172795C4E5344696374"
    "696F6E61727957656E61626C6564546461746509D2094C4D4E574E532E74696D658015233FE0000000000000D209505152594E532E73"
    "7472696E678016576D757461626C65547465787453737562D231325657A2573557556E6865617264D23132595AA25A35564E53446174"
    "65D231325C5DA35D5E355F100F4E534D757461626C65537472696E67584E53537472696E67D1606154726F6F74800112000186A00008"
    "0011001B0024002900320044005E006400690070007B007D0080008200840093009C00AA00B500BF00CA00DC00DE00E000E200E400E6"
    "00E800EA00FF0106010E011A011C011E01200135013C01440146014A014C014E0150015401560158015A015F016801730176017C0185"
    "018A018D0198019D01A001A801AF01B101B301B501BA01BC01BE01C001C501C901DF01EC01F401F901FA01FF02070209021202170221"
    "0223022B023002340239023C02440249024C02530258025C026E0277027A027F02810000000000000201000000000000006300000000"
    "000000000000000000000286";

std::string bytesOfHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t index = 0; index + 1 < hex.size(); index += 2) {
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(index, 2)), nullptr, 16));
    }
    return bytes;
}

TEST_F(KeyedArchive, ReadsWhatOthersWrite) {
    const auto value = unarchived(bytesOfHex(foreignArchive), {"NSArray", "TestFolder", "NSURL"});
    ASSERT_TRUE(value) << value.error().localizedDescription;
    const base::Array& list = *value->as<base::Array>();
    ASSERT_EQ(list.size(), 2u);
    const base::Dictionary expected{
        {"self.name", "Hot \u0192older"},
        {"self.URL", base::URL::fileURLWithPath("/tmp/a b")},
        {"self.count", 7},
        {"self.properties",
         base::Dictionary{{"enabled", true}, {"date", dateFromSecondsSinceReferenceDate(0.5)}, {"text", "mutable"}}}};
    EXPECT_EQ(list[0].object<Sample>()->values, expected)
        << base::Value(list[0].object<Sample>()->values).description();
    EXPECT_EQ(list[1], base::Value(base::URL::fileURLWithPath("/tmp/a b/sub")));
}

TEST_F(KeyedArchive, KeepsSharingAndRefusesCycles) {
    const auto shared = std::make_shared<Sample>("TestBase", base::Dictionary{{"self.name", "s"}});
    const auto value =
        roundTrip(base::Array{shared, shared, std::make_shared<Sample>("TestBase")}, {"NSArray", "TestBase"});
    ASSERT_TRUE(value);
    const base::Array& list = *value->as<base::Array>();
    EXPECT_EQ(list[0].object<Sample>(), list[1].object<Sample>());
    EXPECT_NE(list[0].object<Sample>(), list[2].object<Sample>());

    const auto snake = std::make_shared<Sample>("TestBase");
    snake->values["self.layers"] = base::Array{snake};
    const auto bytes = archivedData(snake);
    ASSERT_TRUE(bytes) << "written once, so writing ends";
    snake->values.clear();
    const auto back = unarchived(*bytes, {"TestBase"});
    ASSERT_FALSE(back);
    EXPECT_NE(back.error().localizedDescription.find("contains itself"), std::string::npos);
}

TEST_F(KeyedArchive, AdmitsOnlyTheClassesExpected) {
    const base::Value url = base::URL::fileURLWithPath("/x");
    const auto sample = [](const std::string& name, base::Dictionary values) {
        return base::Value(std::make_shared<Sample>(name, std::move(values)));
    };
    struct Case {
        std::string name;
        base::Value value;
        std::vector<std::string> classes;
        bool isAdmitted;
    };
    const Case cases[] = {
        {"a URL that is not", url, {"NSString"}, false},
        {"a URL in a list", base::Array{url}, {"NSArray", "NSURL"}, true},
        {"a URL in a list that expects none", base::Array{url}, {"NSArray"}, false},
        {"texts and numbers in a list", base::Array{"a", 1}, {"NSArray"}, true},
        {"a text where a list is expected", "a", {"NSArray"}, false},
        {"a list where its element is expected", base::Array{url}, {"NSURL"}, false},
        {"a text for an empty list of classes", "a", {}, false},
        {"anything for the root class", url, {"NSObject"}, true},
        {"a descendant", sample("TestDerived", {}), {"TestBase"}, true},
        {"an ancestor", sample("TestBase", {}), {"TestDerived"}, false},
        {"a class that nobody registered", sample("TestStranger", {}), {"TestStranger"}, false},
        {"a key of the wrong class", sample("TestBase", {{"self.URL", "/x"}}), {"TestBase"}, false},
        {"a number for a text", sample("TestBase", {{"self.name", 1}}), {"TestBase"}, false},
        {"a text for a number", sample("TestBase", {{"self.count", "1"}}), {"TestBase"}, false},
        {"a real for a number", sample("TestBase", {{"self.count", 0.5}}), {"TestBase"}, true},
        {"a key that is not read", sample("TestBase", {{"self.extra", url}}), {"TestBase"}, true},
        {"objects in a list",
         sample("TestBase", {{"self.layers", base::Array{sample("TestDerived", {})}}}),
         {"TestBase"},
         true},
        {"strange objects in a list", sample("TestBase", {{"self.layers", base::Array{url}}}), {"TestBase"}, false},
        {"an object that its class refuses", sample("TestBase", {{"self.count", -1}}), {"TestBase"}, false},
    };
    for (const Case& test : cases) {
        const auto back = roundTrip(test.value, test.classes);
        EXPECT_EQ(bool(back), test.isAdmitted) << test.name << (back ? "" : ": " + back.error().localizedDescription);
    }
}

TEST_F(KeyedArchive, RefusesWhatCanNotBeWritten) {
    base::Value deep = "end";
    for (int level = 0; level < 300; ++level) {
        deep = base::Array{deep};
    }
    for (const base::Value& value : {base::Value(base::Array{std::make_shared<Sample>("TestUncoded")}),
                                     base::Value("\xFF"), base::Value(base::Dictionary{{"\xFF", 1}}), deep}) {
        EXPECT_FALSE(archivedData(value));
    }
}

TEST_F(KeyedArchive, RefusesHostileData) {
    const auto list = [](const base::Value& value) {
        return std::string(propertyListData(value, PropertyListFormat::binary)->asText());
    };
    const std::string cases[] = {
        "",
        "rubbish",
        list(base::Array{1}),
        list(base::Dictionary{}),
        list(base::Dictionary{{"$objects", base::Array{}}, {"$top", base::Dictionary{{"root", 1}}}}),
        std::string(propertyListData(base::Dictionary{{"$top", 1}}, PropertyListFormat::xml)->asText()),
    };
    for (const std::string& bytes : cases) {
        const auto value = unarchived(bytes, {"NSObject"});
        ASSERT_FALSE(value);
        EXPECT_EQ(value.error().code, 4864);
    }
    const auto tooMany = unarchived(archivedData(base::Array(1000, base::Array(1001, "x"))).value(), {"NSArray"});
    ASSERT_FALSE(tooMany);
    EXPECT_NE(tooMany.error().localizedDescription.find("too many"), std::string::npos);

    const std::string whole = bytesOfHex(foreignArchive);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(unarchived(std::string_view(whole).substr(0, length), {"NSObject"})) << length;
    }
    std::uint32_t random = 99;
    for (int round = 0; round < 5000; ++round) {
        std::string mutated = whole;
        random = random * 1664525 + 1013904223;
        mutated[(random >> 8) % mutated.size()] = static_cast<char>(random >> 24);
        static_cast<void>(unarchived(mutated, {"NSArray", "TestFolder", "NSURL"}));
    }
}

} // namespace
} // namespace platform::data
