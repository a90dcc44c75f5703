#include "base/Text.h"
#include "internal/TestBed.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_Package.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageDestination.h"
#include "template/VELM_Template.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>

using namespace jobs::testing;
using base::Dictionary;
using base::URL;

namespace {

/// A JPEG file of that size; made once.
std::string picture(int width, int height) {
    const std::string path = home() / ("pictures/" + std::to_string(width) + "x" + std::to_string(height) + ".jpg");
    if (std::filesystem::exists(path)) return path;
    std::filesystem::create_directories(home() / "pictures");
    const auto context = platform::draw::BitmapContext::create(width, height, platform::draw::ColorSpace::sRGB());
    auto destination = platform::draw::ImageDestination::createWithURL(URL::fileURLWithPath(path), "public.jpeg");
    if (!destination) return {};
    (*destination)->addImage(context->makeImage(), {});
    return (*destination)->finalize() ? path : std::string();
}

/// Two folders of package files: that of a job and the configured one.
class PackageSearch : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(home() / "search");
        std::filesystem::create_directories(home() / "search/order.velm_job/Packages");
        std::filesystem::create_directories(home() / "search/Packages");
        ASSERT_TRUE(defaults().setObject(home() / "search/Packages", key_velmFolderPackages));
    }
    static void shared(std::string_view file, std::string_view content) {
        home().write("search/Packages/" + std::string(file), content);
    }
    static void own(std::string_view file, std::string_view content) {
        home().write("search/order.velm_job/Packages/" + std::string(file), content);
    }
    static std::string named(std::string_view name) {
        return packageFile("type='VELM_Package' version='1.0' name='" + std::string(name) + "'");
    }
    /// The file of the package that is found, or "(none)".
    static std::string find(std::string_view name, const std::string& image, bool inBundle = false) {
        Dictionary reference{{"name", name}, {"key", Dictionary{{"image1", image}}}};
        if (inBundle) reference["job"] = URL::fileURLWithPath(home() / "search/order.velm_job");
        const auto package = VELM_Package::packageWithDictionary(reference);
        if (!package) return "(none)";
        return base::lastPathComponent(base::deletingLastPathComponent(package->documentURL()->path())) + "/" +
               package->documentURL()->lastPathComponent();
    }
};

} // namespace

TEST_F(PackageSearch, TakesTheOrientedNameBeforeThePlainOne) {
    const std::string portrait = picture(20, 30);
    const std::string landscape = picture(30, 20);
    const std::string square = picture(20, 20);
    shared("1.xml", named("ABC"));
    EXPECT_EQ(find("ABC", portrait), "Packages/1.xml");
    shared("2.xml", named("abcprt"));
    shared("3.xml", named("ABC"));
    EXPECT_EQ(find("ABC", portrait), "Packages/2.xml");
    EXPECT_EQ(find("ABC", landscape), "Packages/3.xml"); // the last one of the plain name
    shared("deep/4.txt", named("ABCLS"));
    for (const std::string& image : {landscape, square, std::string("/no/such.jpg"), std::string()})
        EXPECT_EQ(find("ABC", image), "deep/4.txt") << image;

    shared("only.xml", named("XLS"));
    EXPECT_EQ(find("X", portrait), "(none)");
    EXPECT_EQ(find("Nobody", portrait), "(none)");
}

TEST_F(PackageSearch, SearchesTheFolderOfTheJobFirst) {
    std::filesystem::create_directories(home() / "search/order.velm_job/Images");
    std::filesystem::copy_file(picture(20, 30), home() / "search/order.velm_job/Images/p.jpg");
    shared("exact.xml", named("ABCPRT"));
    EXPECT_EQ(find("ABC", "p.jpg", true), "Packages/exact.xml");
    own("plain.xml", named("ABC"));
    EXPECT_EQ(find("ABC", "p.jpg", true), "Packages/plain.xml"); // within a folder only does the exact name win
    own("exact.xml", named("ABCPRT"));
    const Dictionary reference{{"name", "ABC"},
                               {"key", Dictionary{{"image1", "p.jpg"}}},
                               {"job", URL::fileURLWithPath(home() / "search/order.velm_job")}};
    const auto package = VELM_Package::packageWithDictionary(reference);
    ASSERT_TRUE(package);
    EXPECT_EQ(package->documentURL()->path(), home() / "search/order.velm_job/Packages/exact.xml");
    EXPECT_EQ(package->urlJobContainer()->path(), home() / "search/order.velm_job");

    std::filesystem::remove_all(home() / "search/Packages");
    LogCapture log;
    EXPECT_EQ(find("Other", "p.jpg", true), "(none)");
    EXPECT_TRUE(log.has("Failed enumeration at file://"));
}

TEST_F(PackageSearch, LooksTwice) {
    const std::string landscape = picture(30, 20);
    const struct {
        const char* content;
        bool isFound;
        const char* logged;
    } cases[] = {
        // The name stands in a child, where only the second look sees it.
        {"<data type='VELM_Package' version='1.0'><name>ABC</name></data>", true,
         "Found fallback package named ABC at"},
        {"<data type='VELM_Package' version='1.0'><plucode>abcls</plucode></data>", true, "Found package named abcls"},
        // The product code wins over the name, in both looks.
        {"<data type='VELM_Package' version='1.0' name='ABC' plucode='X'/>", false, "Skipping package named X at"},
        {"<data type='VELM_Package' version='1.0' name='X' plucode='ABC'/>", true, "Found fallback package named ABC"},
        {"<data type='VELM_Package' version='1.0' name='ABCLS'><plucode>X</plucode></data>", false,
         "Skipping package named X at"},
        // A wrong root ends the reading there; what was read of the name until then counts.
        {"<data type='VELM_Job' version='1.0' name='ABC'/>", false, "Scanning package file"},
        {"<data name='ABC' type='VELM_Job' version='1.0'/>", true, "Found fallback package named ABC"},
        {"<data type='VELM_Package' version='2.0' name='ABC'/>", false, "Scanning package file"},
        {"<data type='VELM_Package' name='ABCLS' version='2.0'><output/></data>", true, "Found package named ABCLS"},
        {"<data name='ABC' other='1'/>", true, "Found unexpected XML attribute:other=1"},
        {"<data/>", false, "with type public.xml"},
        {"no package at all", false, "Scanning package file"},
        {"", false, "Scanning package file"},
    };
    std::string tooDeep = "<data type='VELM_Package' version='1.0' name='ABC'>";
    for (std::size_t level = 0; level <= platform::data::maximumXMLDepth; ++level)
        tooDeep += "<a>";
    for (const std::string_view name : {"ABC", "ABCLS"}) {
        shared("candidate.xml", base::replacingAll(tooDeep, "ABC", name));
        EXPECT_EQ(find("ABC", landscape), "(none)") << name; // a name, but nothing that can be parsed
    }
    for (const auto& c : cases) {
        shared("candidate.xml", c.content);
        LogCapture log;
        EXPECT_EQ(find("ABC", landscape) != "(none)", c.isFound) << c.content;
        EXPECT_TRUE(log.has(c.logged)) << c.content;
    }
    shared("candidate.xml", "<data type='VELM_Package' name='ABCLS' version='2.0'><output/></data>");
    const auto partial = VELM_Package::packageWithDictionary({{"plucode", "ABC"}, {"name", "other"}});
    ASSERT_TRUE(partial);
    EXPECT_TRUE(partial->outputs().empty());
}

TEST_F(PackageSearch, ReadsNoFurtherThanTheNameOfAnotherPackage) {
    LogCapture log;
    shared("other.xml",
           packageFile("type='VELM_Package' version='1.0' name='Other'",
                       "<template name='t'><filepath>missing.xml</filepath></template><price><x/></price>"));
    EXPECT_EQ(find("ABC", ""), "(none)");
    EXPECT_TRUE(log.has("Skipping package named Other at"));
    EXPECT_FALSE(log.has("failed to read template at path missing.xml"));
    EXPECT_EQ(find("Other", ""), "Packages/other.xml");
    EXPECT_TRUE(log.has("failed to read template at path missing.xml"));
    EXPECT_TRUE(log.has("error! bad element kind 2 for element <x/>"));
}

TEST(Package, ReadsTemplatesAndOutputs) {
    ASSERT_TRUE(defaults().removeObject(key_velmFolderTemplates));
    const std::string path = home().write(
        "reading/p.xml", packageFile("type='velm_package' version='1.5' NAME='P'",
                                     "<!-- c --><ProductID>9</ProductID><icon>i</icon><unknown/>"
                                     "<template id='front'><filepath>" +
                                         home().write("reading/t.xml", "<data><layout size='{30, 20}'/></data>") +
                                         "</filepath></template>"
                                         "<layout name='back' size='{10, 10}'/><square size='{5, 5}'/>"
                                         "<output size='{3, 4}'/><output><allimages/></output>"));
    const auto package = VELM_Package::instanceWithXMLObject(URL::fileURLWithPath(path));
    ASSERT_TRUE(package);
    package->parseXML(nullptr);
    EXPECT_EQ(package->name(), "P");
    EXPECT_EQ(package->value("productid"), base::Value("9"));
    std::set<std::string> slots;
    for (const auto& [slot, node] : package->velmNodes())
        slots.insert(slot);
    EXPECT_EQ(slots, (std::set<std::string>{"front", "back", "square"}));
    ASSERT_EQ(package->outputs().size(), 2U);
    EXPECT_EQ(package->outputs()[0]->width(), 3);
    EXPECT_TRUE(package->outputs()[1]->allImages());
    EXPECT_EQ(package->outputs()[1]->package(), package);

    package->addTemplates({VELM_Template::initForCopy(), VELM_Template::initForCopy()});
    EXPECT_EQ(package->velmNodes().size(), 4U);
    EXPECT_TRUE(package->velmNodes().contains("booger"));
    int changes = 0;
    const auto token = package->observable().observe("outputs", [&changes] { ++changes; });
    package->addOutputs({base::Value("no output")});
    EXPECT_EQ(changes, 0);
    package->addOutputs({base::Value(std::make_shared<VELM_Output>())});
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(package->outputs().size(), 3U);
}

TEST(Package, HandsOutItsQueuesRoundRobin) {
    std::vector<std::string> labels;
    const std::size_t count = std::max(1U, std::thread::hardware_concurrency()) * 2;
    for (std::size_t index = 0; index < count * 2; ++index)
        labels.push_back(VELM_Package::outputQueue()->label());
    EXPECT_EQ(std::set<std::string>(labels.begin(), labels.end()).size(), count);
    for (std::size_t index = 0; index < count; ++index)
        EXPECT_EQ(labels[index], labels[index + count]);
    EXPECT_TRUE(labels[0].starts_with("com.kestrune.velm.template.rendering."));
}
