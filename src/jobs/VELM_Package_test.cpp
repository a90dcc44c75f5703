#include "base/Text.h"
#include "internal/TestBed.h"
#include "jobs/OrderReport.h"
#include "jobs/PackageSearch.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_Package.h"
#include "platform/data/KeyedArchive.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageDestination.h"
#include "template/VELM_Template.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>
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
class PackageSearching : public ::testing::Test {
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

TEST_F(PackageSearching, ComparesNamesWithoutCaseAndTakesTheOrientedOneForEveryPictureThatDoesNotStand) {
    const std::string portrait = picture(20, 30);
    shared("3.xml", named("ABC"));
    shared("deep/4.txt", named("ABCLS"));
    for (const std::string& image : {picture(30, 20), picture(20, 20), std::string("/no/such.jpg"), std::string()})
        EXPECT_EQ(find("ABC", image), "deep/4.txt") << image;
    shared("\u00C4pfel.xml", named("\u00C4PFELprt"));
    EXPECT_EQ(find("\u00E4pfel", portrait), "Packages/\u00C4pfel.xml");
    EXPECT_EQ(find("a\u0308pfel", portrait), "Packages/\u00C4pfel.xml"); // decomposed
    shared("only.xml", named("XLS"));
    EXPECT_EQ(find("X", portrait), "(none)");
}

TEST_F(PackageSearching, SearchesTheFolderOfTheJobFirst) {
    std::filesystem::create_directories(home() / "search/order.velm_job/Images");
    std::filesystem::copy_file(picture(20, 30), home() / "search/order.velm_job/Images/p.jpg");
    shared("exact.xml", named("ABCPRT"));
    EXPECT_EQ(find("ABC", "p.jpg", true), "Packages/exact.xml");
    own("plain.xml", named("ABC"));
    EXPECT_EQ(find("ABC", "p.jpg", true), "Packages/plain.xml"); // within a folder only does the exact name win
    own("own.xml", named("ABCPRT"));
    EXPECT_EQ(find("ABC", "p.jpg", true), "Packages/own.xml");

    std::filesystem::remove_all(home() / "search/Packages");
    LogCapture log;
    EXPECT_EQ(find("Other", "p.jpg", true), "(none)");
    EXPECT_TRUE(log.has("Failed enumeration at file://"));
}

TEST_F(PackageSearching, LooksTwice) {
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
        {"<data name='ABC'><plucode>X</plucode></data>", false, "Skipping package named X at"},
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

TEST_F(PackageSearching, ReadsNoFurtherThanTheNameOfAnotherPackage) {
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

TEST_F(PackageSearching, TellsHowItWent) {
    const auto text = [](std::string_view name, const std::string& image) {
        const Dictionary reference{{"plucode", name}, {"name", "no"}, {"key", Dictionary{{"image1", image}}}};
        const PackageSearch search = searchPackage(reference);
        const auto run = VELM_Package::packageWithDictionary(reference);
        EXPECT_EQ(search.path, run ? run->documentURL()->path() : "") << name;
        std::string told = base::lastPathComponent(search.path) + "|" + search.reason;
        for (const auto& passed : search.passedOver)
            told += "|" + base::lastPathComponent(passed.path) + " " + passed.name + ": " + passed.reason;
        return base::replacingAll(told, std::string(home() / "search"), "~");
    };
    const std::string portrait = picture(20, 30);
    EXPECT_EQ(text("ABC", portrait), "|no package is named ABCPRT or ABC in ~/Packages");
    shared("1.xml", named("ABC"));
    EXPECT_EQ(text("ABC", portrait), "1.xml|fallback ABC, for no ABCPRT stands in its folder");
    shared("2.xml", named("Other"));
    shared("3.xml", named("abc"));
    shared("4.xml", packageFile("name='ABC'", "<name>X</name>"));
    shared("5.xml", packageFile("type='VELM_Package' version='2.0' name='ABC'"));
    shared("6.xml", "<data type='VELM_Template' name='ABC'/>");
    shared("7.xml", "<data/>");
    shared("8.xml", "");
    shared("9.xml", named("ABCLS"));
    const std::string rubbish = "|4.xml X: the name in its elements takes the place of the one in its attributes"
                                "|5.xml : file version too new 2.0 when parsing VELM_Package"
                                "|6.xml : encountered incorrect file type VELM_Template when parsing VELM_Package"
                                "|7.xml : it has neither product code nor name|8.xml : the file is empty";
    EXPECT_EQ(text("ABC", portrait),
              "3.xml|fallback ABC, for no ABCPRT stands in its folder: the last of 2 of that name"
              "|1.xml ABC: the last one of the plain name is taken" +
                  rubbish + "|9.xml ABCLS: it is for lying pictures, and the first picture stands");
    const std::string both = "|1.xml ABC: the last one of the plain name is taken" + rubbish +
                             "|3.xml ABC: the oriented name comes before the plain one";
    EXPECT_EQ(text("ABC", ""), "9.xml|ABCLS by its oriented name (no image1: counts as lying)" + both);
    EXPECT_EQ(text("ABC", "no.jpg"),
              "9.xml|ABCLS by its oriented name (no picture \"no.jpg\": counts as lying)" + both);
    EXPECT_EQ(searchPackage({}).reason, "the reference has neither product code nor name");
    EXPECT_TRUE(searchPackage({{"package", base::Value(VELM_Package::init())}}).isInline);
    std::filesystem::remove_all(home() / "search/Packages");
    EXPECT_EQ(searchPackage({{"name", "ABC"}}).passedOver.size(), 1U); // the folder itself
}

TEST_F(PackageSearching, IsStoppedByNothingThatLiesInTheFolder) {
    const std::string folder = home() / "search/Packages/";
    ASSERT_EQ(mkfifo((folder + "0.xml").c_str(), 0600), 0);
    std::filesystem::create_directory_symlink(".", folder + "1");
    std::filesystem::create_symlink("/dev/zero", folder + "2.xml");
    std::filesystem::create_symlink("3.xml", folder + "3.xml");
    shared("4.xml", "");
    std::filesystem::resize_file(folder + "4.xml", std::uintmax_t{1} << 40);
    shared("5.xml", std::string(1 << 20, '<'));
    std::string outputs;
    for (int i = 0; i < 10'000; ++i)
        outputs += "<output><allimages/><n type='node'/><destination/></output>";
    shared("6.xml", packageFile("name='ABC'", outputs));
    shared("7.xml", packageFile("name='ABC'", "<template name='t'><filepath>/dev/zero</filepath><filepath>" + folder +
                                                  "0.xml</filepath></template>"));
    EXPECT_NE(find("ABC", ""), "(none)");
    for (const char* heavy : {"5.xml", "6.xml"})
        std::filesystem::remove(folder + heavy);
    std::atomic<bool> isDone = false;
    std::thread others([&] { // which come and go meanwhile
        for (int i = 0; !isDone; ++i) {
            shared("8.xml", named("ABC"));
            std::filesystem::remove(folder + "8.xml");
        }
    });
    for (int i = 0; i < 20; ++i)
        EXPECT_NE(find("ABC", ""), "(none)");
    isDone = true;
    others.join();
    EXPECT_EQ(packagesInFolder(folder).size(), 6U);
}

TEST(Package, TellsAReportWhatItDrops) {
    const std::string good = home().write("report/t.xml", "<data><layout size='{3, 2}'><layer/></layout></data>");
    const std::string empty = home().write("report/e.xml", "<data/>");
    const std::string file = home().write("report/p.xml", "<data type='VELM_Package' colour='red'>\n"
                                                          "<price><q/>\n<quantity start='1'>2</quantity></price>\n"
                                                          "<what/><!-- fine -->\n"
                                                          "<template name='front' size='1'>\n<filepath>" +
                                                              good + "</filepath>\n<path/>\n<filepath>" + empty +
                                                              "</filepath>\n<filepath>no.xml</filepath></template>\n"
                                                              "<template/>\n"
                                                              "<output weight='3'>\n<front type='node' turn='1'/>\n"
                                                              "<back type='node'><fram/></back>\n<thing/>\n"
                                                              "<whattoprint>first</whattoprint>\n"
                                                              "<destination type='fax'>\n<price/></destination>\n"
                                                              "</output></data>");
    OrderReport report;
    report.setFile("ticket.xml");
    const auto package = VELM_Package::instanceWithXMLObject(URL::fileURLWithPath(file));
    package->parseXML(nullptr, &report);
    const std::pair<int, std::string_view> expected[] = {
        {1, "colour"},
        {2, "<q/> in <price> is no <quantity>"},
        {4, "<what>"},
        {5, "size"},
        {7, "<path>"},
        {8, "holds nothing that could be drawn"},
        {8, "takes the place of the one before it"},
        {9, "\"no.xml\" can't be read"},
        {10, "neither name, id nor key"},
        {10, "names no file"},
        {11, "weight"},
        {12, "turn"},
        {13, "<fram>"},
        {14, "<thing>"},
        {15, "is not \"all\""},
        {16, "neither filepath nor printer"},
        {17, "<price>"},
        {13, "<back> names no template of the package"},
    };
    ASSERT_EQ(report.findings().size(), std::size(expected));
    for (std::size_t index = 0; index < std::size(expected); ++index) {
        const auto& finding = report.findings()[index];
        EXPECT_EQ(finding.place.line, expected[index].first) << finding.message;
        EXPECT_EQ(finding.place.file, file);
        EXPECT_NE(finding.message.find(expected[index].second), std::string::npos) << finding.message;
    }
    EXPECT_EQ(report.file(), "ticket.xml");

    OrderReport wrong;
    VELM_Package::instanceWithXMLObject(URL::fileURLWithPath(home().write("report/v.xml", "<d version='3'/>")))
        ->parseXML(nullptr, &wrong);
    ASSERT_EQ(wrong.findings().size(), 1U);
    EXPECT_EQ(wrong.findings()[0].message, "file version too new 3 when parsing (null); nothing further is read");
}

TEST(Package, RunsAnOutputOncePerPicture) {
    std::filesystem::create_directories(home() / "run/out");
    const std::string to = "<destination type='filepath'><filepath>" + std::string(home() / "run/out") +
                           "</filepath></destination></output>";
    const auto job = VELM_Job::instanceWithXMLObject(URL::fileURLWithPath(home().write(
        "run/ticket.xml",
        nativeTicket("<allimages><a>" + picture(20, 30) + "</a><b>" + picture(30, 20) + "</b><c>" + picture(20, 20) +
                     "</c></allimages><package type='inline' name='P'>"
                     "<layout name='n' size='{6, 4}'><layer type='image' frame='{{0, 0}, {6, 4}}'/>"
                     "</layout><output><allimages/><n type='node'/>" +
                     to + "<output><n type='node'/>" + to + "<output><none type='node'/>" + to + "</package>"))));
    ASSERT_TRUE(job);
    job->setObject("kiosk", "ipaddress");
    const auto package = base::valueForKey(*job->jobPackages()[0].as<Dictionary>(), "package").object<VELM_Package>();
    ASSERT_TRUE(package);
    std::optional<bool> success;
    std::optional<base::Error> error;
    package->processToCompletion([&](bool flag, const std::optional<base::Error>& last) {
        success = flag;
        error = last;
    });
    EXPECT_EQ(success, false);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->localizedDescription == "no template found named none" ||
                error->localizedDescription == "failed to generate output image");
    const std::filesystem::directory_iterator files(std::filesystem::path(home() / "run/out"));
    EXPECT_EQ(std::distance(begin(files), end(files)), 4);
    for (const auto& output : package->outputs())
        EXPECT_EQ(output->destinations().at(0)->destinationLabel(), "kiosk");

    const auto archive = platform::data::archivedData(base::Value(package));
    ASSERT_TRUE(archive) << archive.error().localizedDescription;
    const auto restored = platform::data::unarchived(*archive, {"VELM_Package"});
    ASSERT_TRUE(restored) << restored.error().localizedDescription;
    const auto copy = restored->object<VELM_Package>();
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->asXMLElement()->xmlString(), package->asXMLElement()->xmlString());
    EXPECT_EQ(copy->outputs().at(0)->package(), copy);
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
