#include "internal/TestBed.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_Package.h"
#include "output/VELM_Output.h"
#include "template/VELM_Template.h"

#include <gtest/gtest.h>

using namespace jobs::testing;
using base::Dictionary;
using base::Value;

TEST(JobWriting, WritesItselfAsABundleThatReadsBack) {
    const std::string picture = home().write("writing/Source/a 10.jpg", "ten");
    const std::string other = home().write("writing/Source/a 9.jpg", "nine");
    const auto job = VELM_Job::init();
    EXPECT_EQ(job->version(), 1.1);
    job->addReplacements(
        {{"image1", "a 10.jpg"}, {"text1", Dictionary{{"filepath", "x & y"}, {"rotation", "2"}}}, {"number", 3}});
    job->addImages({{base::URL::fileURLWithPath(picture), nullptr}, {base::URL::fileURLWithPath(other), nullptr}});

    const base::URL target = base::URL::fileURLWithPath(home() / "writing/new.velm_job");
    home().write("writing/new.velm_job/old.txt", "what stood there before");
    LogCapture log;
    job->writeToURL(target, [](bool written, const std::optional<base::Error>&) { EXPECT_TRUE(written); });
    EXPECT_TRUE(log.has("need to handle key of type NSNumber"));
    EXPECT_FALSE(std::filesystem::exists(target.path() + "/old.txt"));
    EXPECT_EQ(support::readFile(target.path() + "/images/a 10.jpg"), "ten");

    const auto readBack = VELM_Job::instanceWithXMLObject(target);
    ASSERT_TRUE(readBack);
    EXPECT_EQ(readBack->jobType(), "velm_job");
    EXPECT_EQ(readBack->valueForKey("image1", std::nullopt), "a 10.jpg");
    EXPECT_EQ(readBack->valueForKey("text1", std::nullopt), "x & y");
    EXPECT_EQ(readBack->rotationForKey("text1", std::nullopt), "2");
    EXPECT_EQ(readBack->valueInDict("allimages"), Value(base::Array{"a 9.jpg", "a 10.jpg"}));
}

TEST(JobWriting, WritesNothingWhereSomethingWouldBeLost) {
    const auto file = [](const char* path, const char* contents) {
        return base::URL::fileURLWithPath(home().write("losing/" + std::string(path), contents));
    };
    const base::URL one = file("1/a.jpg", "one");
    const base::URL page = file("1/page.xml", "<data><layout size='{30, 20}'/></data>");
    const base::URL otherPage = file("2/page.xml", "<data><layout size='{30, 40}'/></data>");
    const auto templateAt = [](const base::URL& url) {
        return VELM_Template::templateWithPath(url.path(), std::nullopt);
    };
    const struct {
        std::vector<VELM_Job::JobImage> images;
        Dictionary replacements;
        const char* folder;
        std::vector<const char*> error; ///< Parts of its text; none for a job that is written.
    } cases[] = {
        {{{one, nullptr}, {one, nullptr}, {file("3/a.jpg", "one"), nullptr}, {{}, nullptr}}, {}, "", {}},
        {{{one, templateAt(page)}, {one, templateAt(page)}}, {}, "", {}},
        {{{one, nullptr}, {file("2/a.jpg", "two"), nullptr}}, {}, "", {"1/a.jpg", "2/a.jpg"}},
        {{{one, templateAt(page)}, {one, templateAt(otherPage)}}, {}, "", {"1/page.xml", "2/page.xml"}},
        {{{base::URL::fileURLWithPath("/nowhere/b.jpg"), nullptr}}, {}, "", {"/nowhere/b.jpg"}},
        {{{file("1/b\n.jpg", "x"), nullptr}}, {}, "", {"a name that a job ticket can't hold"}},
        {{}, {{"no name", "x"}}, "", {"could not be read back"}},
        {{}, {}, "missing/", {"missing"}},
    };
    for (const auto& c : cases) {
        const auto job = VELM_Job::init();
        job->addImages(c.images);
        job->addReplacements(c.replacements);
        job->addTemplates({nullptr});
        job->addPackages({nullptr});
        const std::string target = home() / ("losing/" + std::string(c.folder) + "new.velm_job");
        const std::string before = home().write("losing/new.velm_job/job.xml", "before");
        std::optional<base::Error> error;
        job->writeToURL(base::URL::fileURLWithPath(target), [&](bool written, const auto& given) {
            EXPECT_EQ(written, c.error.empty());
            error = given;
        });
        EXPECT_EQ(support::readFile(before) == "before", !c.error.empty());
        for (const char* part : c.error)
            EXPECT_NE(error->localizedDescription.find(part), std::string::npos) << error->localizedDescription;
    }
}

TEST(JobWriting, WritesItsPackagesInline) {
    const std::string page = home().write("packing/page.xml", "<data><layout size='{30, 20}'/></data>");
    const std::string file =
        home().write("packing/p.xml", packageFile("type='VELM_Package' version='1.0' name='Prints'",
                                                  "<template id='front'><filepath>" + page +
                                                      "</filepath></template><layout name='back' size='{1, 1}'/>"
                                                      "<output size='{30, 20}'><front type='node'/></output>"));
    const auto job = VELM_Job::init();
    const auto unread = VELM_Package::instanceWithXMLObject(base::URL::fileURLWithPath(file));
    job->addPackages({VELM_Package::init()});
    job->addPackages({unread});
    ASSERT_EQ(job->jobPackages().size(), 2U);
    EXPECT_EQ(job->packageName(), "inlinePkg");

    const base::URL target = base::URL::fileURLWithPath(home() / "packing/new.velm_job");
    job->writeToURL(target, [](bool written, const std::optional<base::Error>&) { EXPECT_TRUE(written); });
    EXPECT_TRUE(std::filesystem::exists(target.path() + "/templates/page.xml"));
    EXPECT_EQ(unread->asXMLElement()->xmlString(),
              "<package type=\"inline\" id=\"Prints\"><template id=\"front\"><filepath>page.xml</filepath></template>"
              "<output size=\"{30, 20}\"><front type=\"node\"/><whattoprint>all</whattoprint></output></package>");
    const auto readBack = VELM_Job::instanceWithXMLObject(target);
    ASSERT_TRUE(readBack);
    ASSERT_EQ(readBack->jobPackages().size(), 2U);
    EXPECT_EQ(base::textForKey(*readBack->jobPackages()[1].as<Dictionary>(), "name"), "Prints");
    const auto inlined = readBack->jobPackages()[1].as<Dictionary>()->at("package").object<VELM_Package>();
    ASSERT_TRUE(inlined);
    ASSERT_EQ(inlined->outputs().size(), 1U);
    EXPECT_EQ(inlined->outputs()[0]->nodeNames(), std::vector<std::string>{"front"});
    EXPECT_NE(job->hash(), 0U);
    EXPECT_NE(job->hash(), VELM_Job::init()->hash());
    EXPECT_EQ(readBack->hash(), VELM_Job::instanceWithXMLObject(target)->hash());
    EXPECT_FALSE(job->previewImage());
}

TEST(JobWriting, MergesReplacements) {
    const Value list = base::Array{"a"};
    const Value table = Dictionary{{"a", "1"}, {"b", "2"}};
    const struct {
        Value present, added, merged;
    } cases[] = {
        {"old", "new", "new"},
        {list, "new", "new"},
        {"old", list, "old"},
        {"old", table, "old"},
        {list, table, list},
        {list, base::Array{"b"}, base::Array{"a", "b"}},
        {table, Dictionary{{"b", "3"}, {"c", "4"}}, Dictionary{{"a", "1"}, {"b", "3"}, {"c", "4"}}},
    };
    for (const auto& c : cases) {
        const auto job = VELM_Job::init();
        job->addReplacements({{"slot", c.present}});
        job->addReplacements({{"slot", c.added}, {"other", "x"}});
        EXPECT_EQ(job->replacements(), (Dictionary{{"slot", c.merged}, {"other", "x"}})) << c.merged.description();
    }
}
