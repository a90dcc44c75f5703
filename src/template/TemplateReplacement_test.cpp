// The job's values in the holes of a template, stamps, and the stored texts.
#include "internal/TemplateFixture.h"

#include "base/Text.h"
#include "platform/data/Dates.h"
#include "platform/data/UserDefaults.h"
#include "template/VELM_EditableText.h"

using namespace template_testing;
using base::Dictionary;
using base::Value;

namespace {

TEST(TemplateReplacement, ValuesGoIntoTheHoles) {
    const std::string crop = "{{1, 2}, {3, 4}}";
    const struct {
        std::string layer;
        std::map<std::string, std::string> job; // by table, all under the key "a"
        std::optional<std::string> custom;
        Dictionary changed; // of the layer's values
    } cases[] = {
        {"type='image' key='a'", {{"key", "x.jpg"}}, {}, {{"filepath", "x.jpg"}}},
        {"type='graphic' key='a'",
         {{"key", "x.jpg"}, {"croprect", crop}, {"rotation", "1"}},
         {},
         {{"filepath", "x.jpg"}, {"croprect", crop}}},
        {"type='image' key='a'", {{"key", "x.jpg"}}, "y.jpg", {{"filepath", "y.jpg"}}},
        {"type='image' key='a'", {{"croprect", crop}}, "y.jpg", {{"croprect", crop}}},
        {"type='image' key='a'", {{"croprect", "{{1, 2}, {0, 4}}"}}, {}, {}},
        {"type='image'", {{"key", "x.jpg"}}, "y.jpg", {}},
        {"type='textbox' key='a'", {{"key", "text"}}, {}, {{"string", "text"}}},
        {"type='textbox' key='a'", {}, "y.jpg", {}},
        {"type='stamp' key='a'", {{"key", "text"}}, {}, {}},
        {"type='node' key='a'", {{"key", "text"}}, {}, {}},
        // A template that is missing leaves the hole as it was.
        {"type='image' key='a'", {{"key", "x.jpg"}, {"template", "/no/such.xml"}}, {}, {}},
    };
    for (const auto& test : cases) {
        const LogCapture log;
        const auto package = std::make_shared<TestPackage>();
        package->code = "PLU";
        std::vector<std::string> requests;
        package->order->asked = &requests;
        for (const auto& [table, value] : test.job)
            package->order->values[{table, "a"}] = value;
        const auto document =
            templateFrom("<layout size='{10, 10}'><layer " + test.layer + "><string>old</string></layer></layout>");
        document->setPackage(package);
        document->setFilepathCustomImage(test.custom);
        Dictionary expected = document->layers()[0]->valuesDict();
        for (const auto& [key, value] : test.changed)
            expected.insert_or_assign(key, value);
        document->replaceKeyValues();
        EXPECT_EQ(Value(document->layers()[0]->valuesDict()), Value(expected)) << test.layer;
        EXPECT_EQ(document->renderError(), std::nullopt);
        // The product code is for the value alone.
        for (const std::string& asked : requests)
            EXPECT_THAT(asked, testing::EndsWith(asked.starts_with("key/") ? "/PLU" : "/Classic"));
    }
}

TEST(TemplateReplacement, AnErrorInTheTemplateOfAHoleIsTheDocuments) {
    const support::TemporaryDirectory files;
    files.write("self.xml", fileOf("<layer type='node'><filepath>" + (files / "self.xml") + "</filepath></layer>"));
    const auto package = std::make_shared<TestPackage>();
    package->order->values = {{{"key", "a"}, "photo.png"}, {{"template", "a"}, files / "self.xml"}};
    const auto document = templateFrom("<layout size='{5, 5}'><layer type='image' key='a'/></layout>");
    document->setPackage(package);
    const LogCapture log;
    document->replaceKeyValues();
    ASSERT_TRUE(document->renderError());
    EXPECT_THAT(document->renderError()->localizedDescription, testing::HasSubstr("includes itself"));
}

TEST(TemplateReplacement, ReplaceImagesFillsEveryImageLayer) {
    const auto document = templateFrom("<layout><layer type='image'/><layer type='graphic'/></layout>");
    document->replaceImages({base::URL::fileURLWithPath("/a.jpg"), base::URL::fileURLWithPath("/b.jpg")},
                            {"{{0, 0}, {1, 1}}"});
    EXPECT_EQ(document->layers()[0]->graphicPath(), Value("/a.jpg"));
    EXPECT_EQ(document->layers()[0]->value("croprect"), Value("{{0, 0}, {1, 1}}"));
    EXPECT_FALSE(document->layers()[0]->autorotate());
    EXPECT_TRUE(document->layers()[1]->graphicPath().isNothing());
}

TEST(TemplateStamps, TextsByTheirKey) {
    const auto moment = base::Date(std::chrono::sys_days(std::chrono::year(2026) / 3 / 5) + std::chrono::hours(12));
    const auto previous = platform::data::setDateSource([&] { return moment; });
    const auto formatted = [&](std::string_view pattern) {
        return platform::data::stringWithUTSFormat(moment, pattern);
    };
    const struct {
        std::string layer; // the inside of a stamp layer
        std::string expected;
    } cases[] = {
        {"<key>filename</key><string>s.txt</string>", "A_B_C.jpg"},
        {"<key>FileName</key><string>s.txt</string><hideExtension>yes</hideExtension>", "s"},
        {"<key>filename</key><hideExtension>yes</hideExtension>", "(null)"},
        {"<key>customfilenamepartf</key>", ""},
        {"<key>CustomFilenamePartB</key>", ""},
        {"<key>date</key>", "(null)"},
        {"<key>date</key><string>longDate</string>", formatted("EEEE, MMMM d, yyyy")},
        {"<key>date</key><string>abrevDate</string>", formatted("EEE, MMM d, yyyy")},
        {"<key>TIME</key>", formatted("h:mm:ss aa")},
        {"<key>packageName</key>", "Classic"},
        {"<key>other</key><string>s</string>", "s"},
        {"", "(null)"},
    };
    const auto package = std::make_shared<TestPackage>();
    package->order->picture = "/photos/A_B_C.jpg";
    for (const auto& test : cases) {
        const auto stamp = templateFrom("<layer type='stamp'>" + test.layer + "</layer>");
        stamp->setPackage(package);
        EXPECT_EQ(Value(stamp->stampValue()).description(), test.expected) << test.layer;
    }
    // The run's own picture comes before the job's first one.
    const auto stamp = templateFrom("<layer type='stamp' key='filename'/>");
    stamp->setPackage(package);
    stamp->setFilepathCustomImage("/x/run.jpg");
    EXPECT_EQ(stamp->stampValue(), "run.jpg");
    package->packageName.reset();
    stamp->setKey("packagename");
    EXPECT_EQ(stamp->stampValue(), "packagename");
    platform::data::setDateSource(previous);
}

TEST(TemplateStamps, StoredTexts) {
    const auto stampOf = [](const std::string& number) {
        return templateFrom("<layer type='edittextbox'>" + number + "</layer>")->stampValue();
    };
    EXPECT_EQ(stampOf("<stringnumber>3</stringnumber>"), "Editable Text #3");
    EXPECT_EQ(stampOf("<stringnumber>99</stringnumber>"), std::nullopt);
    EXPECT_EQ(stampOf(""), std::nullopt);
    VELM_EditableText("3").setValue("three");
    VELM_EditableText::setEditableText("old", "text 99");
    EXPECT_EQ(stampOf("<stringnumber>3</stringnumber>"), "three");
    EXPECT_EQ(stampOf("<stringnumber>99</stringnumber>"), "old");

    const auto objects = VELM_EditableText::editableTextObjects();
    ASSERT_EQ(objects.size(), 21U);
    EXPECT_EQ(objects[1]->key(), "2");
    EXPECT_EQ(objects[9]->key(), "10");
    EXPECT_EQ(VELM_EditableText("none").value(), "");
    const Value kept = platform::data::UserDefaults::standard().objectForKey(VELM_EditableText::defaultsKey);
    EXPECT_EQ(base::valueForKey(*kept.as<Dictionary>(), "3"), Value("three"));
    VELM_EditableText::setEditableText(std::nullopt, "text 99");
    VELM_EditableText("3").setValue("Editable Text #3");
    EXPECT_EQ(stampOf("<stringnumber>99</stringnumber>"), std::nullopt);
}

TEST(TemplateStamps, AnOlderFormOfTheStoreIsDropped) {
    const struct {
        std::string_view prefix;
        int count;
        std::string_view key;
        std::optional<std::string> expected;
    } cases[] = {
        {"text ", 20, "text 1", {}},
        {"text ", 20, "20", "Editable Text #20"},
        {"", 20, "20", "mine"},
        {"text ", 19, "text 1", "mine"}, // 19 entries are no older form
        {"text ", 19, "1", "Editable Text #1"},
        {"", 0, "7", "Editable Text #7"},
    };
    for (const auto& test : cases) {
        Dictionary stored;
        for (int number = 1; number <= test.count; ++number)
            stored.emplace(std::string(test.prefix) + std::to_string(number), "mine");
        EXPECT_EQ(base::textForKey(VELM_EditableText::storageFromDefaults(stored), test.key), test.expected);
    }
    EXPECT_EQ(VELM_EditableText::storageFromDefaults("rubbish").size(), 20U);
}

} // namespace
