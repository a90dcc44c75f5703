#include "base/Text.h"
#include "internal/TestBed.h"
#include "jobs/OrderReport.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_Package.h"

#include <gtest/gtest.h>

using namespace jobs::testing;
using base::Dictionary;
using base::Value;

namespace {

VELM_Job::Ref jobFromText(const std::string& text) {
    return VELM_Job::instanceWithXMLObject(base::Data(text));
}

/// A value by its path through dictionaries, "key/image1".
std::string valueAt(const Dictionary& dictionary, std::string_view path) {
    const std::size_t slash = path.find('/');
    const Value& value = base::valueForKey(dictionary, path.substr(0, slash));
    if (slash == std::string_view::npos) return value.textOr("(none)");
    const auto* inner = value.as<Dictionary>();
    return inner ? valueAt(*inner, path.substr(slash + 1)) : "(none)";
}

Dictionary referenceAt(const VELM_Job::Ref& job, std::size_t index) {
    const base::Array references = job->jobPackages();
    return index < references.size() ? *references[index].as<Dictionary>() : Dictionary();
}

} // namespace

TEST(Job, ReadsSlotsInShortAndLongForm) {
    const struct {
        const char* element;
        const char* path;
        const char* expected;
    } cases[] = {
        {"<image1>a.jpg</image1>", "key/image1", "a.jpg"},
        {"<image1 croprect='{{0, 0}, {1, 1}}'>a.jpg</image1>", "croprect/image1", "{{0, 0}, {1, 1}}"},
        {"<image1><rotation>2</rotation></image1>", "key/image1", "2"},
        {"<image1>\n  <FilePath>a.jpg</FilePath>\n  <rotation>1.5</rotation>\n</image1>", "key/image1", "a.jpg"},
        {"<image1><template>t.xml</template><croprect>c</croprect></image1>", "croprect/image1", "c"},
        {"<image1><template>t.xml</template><croprect>c</croprect></image1>", "key/image1", "(none)"},
        {"<image1><!-- two nodes -->a.jpg</image1>", "key/image1", "(none)"},
        {"<image1/>", "key/image1", "(none)"},
        {"<Image1>a.jpg</Image1>", "key/Image1", "a.jpg"},
        {"<text1>a &amp; b &#228;</text1>", "key/text1", "a & b \u00E4"},
        {"<text1><![CDATA[a < b]]></text1>", "key/text1", "a < b"},
        {"<text1>a<![CDATA[b]]></text1>", "key/text1", "(none)"},
        {"<text1><!-- alone --></text1>", "key/text1", ""},
        {"<x:text1 xmlns:x='y'>a</x:text1>", "key/x:text1", "a"},
    };
    LogCapture log;
    for (const auto& c : cases) {
        const auto job = jobFromText(nativeTicket(c.element));
        ASSERT_TRUE(job) << c.element;
        EXPECT_EQ(valueAt(job->valuesDict(), c.path), c.expected) << c.element;
        // The same forms stand in a package reference.
        const auto withReference = jobFromText(nativeTicket("<package>" + std::string(c.element) + "</package>"));
        ASSERT_TRUE(withReference) << c.element;
        EXPECT_EQ(valueAt(referenceAt(withReference, 0), c.path), c.expected) << c.element;
    }
    EXPECT_TRUE(log.has("unrecognized element image1 : "));
}

TEST(Job, ReadsTicketsInManyEncodingsAndRefusesOthersWithAMessageThatNamesTheFile) {
    const auto ticket = [](const std::string& declared, const std::string& text) {
        return "<?xml version=\"1.0\" encoding=\"" + declared + "\"?><d type='velm_job' version='1.0'>" + text + "</d>";
    };
    const auto repeated = [](std::size_t count, std::string_view part) {
        return base::replacingAll(std::string(count, 'x'), "x", part);
    };
    const struct {
        std::string bytes;
        const char* refusal; ///< Empty for a ticket that is read.
    } cases[] = {
        {ticket("windows-1252", "<t>\xF6</t>"), ""},
        {ticket("UTF-8", "<t>\xF6</t>"), "is neither UTF-8 nor UTF-16 text"},
        {ticket("x-nobody", "<t>\xF6</t>"), "unknown text encoding"},
        {ticket("UTF-8", "<t>a" + std::string(1, '\0') + "</t>"), ": Line 1: "},
        {ticket("UTF-8", "<t>\u00F6</t>" + repeated(10'000, "<package name='p'/>")), ""},
        {ticket("UTF-8", "<t " + repeated(100'000, "a='' ") + "/>"), ": Line 1: an element has more than 1000"},
        {ticket("UTF-8", repeated(100'000, "<a>")), ": Line 1: the elements are nested deeper than 200 levels"},
        {"<!DOCTYPE d [<!ENTITY a 'b'>]>\n<d type='velm_job' version='1.0'><t>&a;</t></d>", "declares an entity"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        const std::string path = home().write("encodings/a.xml", c.bytes);
        OrderReport report;
        const auto job = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(path), &report);
        ASSERT_EQ(job.has_value(), *c.refusal == 0) << c.bytes.substr(0, 200);
        if (job) {
            EXPECT_EQ(valueAt((*job)->valuesDict(), "key/t"), "\u00F6");
            continue;
        }
        const std::string& told = job.error().localizedDescription;
        EXPECT_TRUE(told.starts_with(path) && told.find(c.refusal) != std::string::npos) << told;
        ASSERT_TRUE(report.refusal());
        EXPECT_EQ(report.refusal()->place.line > 0, log.has(told)); // what can't be read as text passes in silence
    }
    EXPECT_FALSE(jobFromText(ticket("ISO-8859-1", "<t>\xF6</t>"))); // bytes without a file are UTF-8
}

TEST(Job, TellsAReportWhatReadingDropsAndLogsTheSameWithoutOne) {
    const struct {
        const char* ticket;
        std::vector<std::string> findings;
    } cases[] = {
        {R"(<data type='velm_job' version='1.0' colour='red'>
lost words
  <?php x?>
  <!-- silent -->
  <text1/>
  <image1 croprect='c' rotation='1'>a.jpg</image1>
  <image1>
    <filepath>a.jpg</filepath>
    <Other>b</Other>
  </image1>
  <image2><!-- two nodes -->b.jpg</image2>
  <image3><rotation>2</rotation></image3>
  <package/>
  <package name='A' id='B' type='outline' size='1'/>
  <package type='inline' name='C'><icon>i</icon><?x y?><text1>t</text1><layout/></package>
  <allimages order='1'><f>a.jpg</f>b.jpg</allimages>
</data>)",
         {"1: attribute colour=\"red\" is not known and is not read",
          "2: the text \"lost words\" stands where only elements are read and is lost",
          "3: <?php x?> is no element and is not read", "5: <text1> is empty and is not read",
          "6: attribute rotation of <image1> is not read", "7: <image1> stands in line 6 already; the last one counts",
          "9: <Other> in <image1> is not known and is not read",
          "11: the text \"b.jpg\" stands where only elements are read and is lost",
          "12: <rotation> is all that <image3> holds, so its text is read as the <filepath>",
          "13: <package> is empty and is dropped", "14: attribute id=\"B\" replaces the name \"A\"",
          "14: the type \"outline\" of a package is not \"inline\" and has no effect",
          "14: attribute size of <package> is not known and is not read", "15: <?x y?> is no element and is not read",
          "16: attribute order of <allimages> is not read",
          "16: the text \"b.jpg\" stands where only elements are read and is lost"}},
        {"<o from='x'>\n<plucode unit='1'>4x6</plucode>\n<quantity>3</quantity>\n<imagepath>a</imagepath>"
         "\n<ImagePath>b</ImagePath></o>",
         {"1: attribute from=\"x\" is not known and is not read", "2: attribute unit of <plucode> is not read",
          "3: <quantity> is \"3\", but an order makes each product once",
          "5: <ImagePath> stands in line 4 already; the last one counts"}},
    };
    for (const auto& c : cases) {
        const auto url = base::URL::fileURLWithPath(home().write("reports/a.xml", c.ticket));
        OrderReport report;
        std::vector<std::string> logged[2];
        for (OrderReport* given : {&report, static_cast<OrderReport*>(nullptr)}) {
            LogCapture log;
            ASSERT_TRUE(VELM_Job::jobWithContentsOfURL(url, given));
            logged[given ? 0 : 1] = log.lines();
        }
        EXPECT_EQ(logged[0], logged[1]);
        std::vector<std::string> findings;
        for (const auto& finding : report.findings()) {
            EXPECT_EQ(finding.place.file, url.path());
            findings.push_back(std::to_string(finding.place.line) + ": " + finding.message);
        }
        EXPECT_EQ(findings, c.findings);
        const bool isNative = url.path() == report.file() && report.placeOf(1).has_value();
        EXPECT_EQ(report.placeOf(0)->line, isNative ? 14 : 2);
        EXPECT_EQ(report.placeOf(std::nullopt, isNative ? "image1" : "imagepath")->line, isNative ? 7 : 5);
        EXPECT_EQ(report.placeOf(1, "text1").has_value(), isNative);
        EXPECT_FALSE(report.placeOf(std::nullopt, "image9"));
    }
}

TEST(Job, ReadsPackageReferences) {
    LogCapture log;
    const auto job =
        jobFromText(nativeTicket("<!-- comment --><?php x?>"
                                 "<package name='A' id='B'><image1>a.jpg</image1></package>"
                                 "<Package KEY='C' PluCode='77' colour='red'/>"
                                 "<package/>"
                                 "<package type='inline'><icon>i.png</icon><text1>t</text1></package>"
                                 "<package type='InLine' id='D'/>"
                                 "<allimages><filepath>1.jpg</filepath><!-- c --><x>2.jpg</x></allimages>"));
    ASSERT_TRUE(job);
    ASSERT_EQ(job->jobPackages().size(), 4U);
    EXPECT_EQ(valueAt(referenceAt(job, 0), "name"), "B");
    EXPECT_EQ(valueAt(referenceAt(job, 0), "key/image1"), "a.jpg");
    EXPECT_EQ(valueAt(referenceAt(job, 1), "name"), "C");
    EXPECT_EQ(valueAt(referenceAt(job, 1), "plucode"), "77");
    EXPECT_FALSE(referenceAt(job, 0).contains("job"));
    const auto nameOfInline = [&](std::size_t index) {
        const auto package = base::valueForKey(referenceAt(job, index), "package").object<VELM_Package>();
        return package ? package->name().value_or("(none)") : "(no package)";
    };
    EXPECT_EQ(nameOfInline(2), "inline");
    EXPECT_EQ(valueAt(referenceAt(job, 2), "key/text1"), "t");
    EXPECT_EQ(nameOfInline(3), "D");
    EXPECT_EQ(job->valueInDict("allimages"), Value(base::Array{"1.jpg", "2.jpg"}));
    EXPECT_EQ(job->packageName(), "B");
    EXPECT_TRUE(log.has("Found unexpected XML attribute \"colour=red\" while parsing package"));
}

TEST(Job, ChoosesTheParserByTypeAndRefusesOtherVersions) {
    const struct {
        const char* attributes;
        const char* error; ///< Empty for a ticket that is accepted.
    } cases[] = {
        {"type='VELM_JOB' version='1.0'", ""},
        {"Type='velm_job' Version='1.99' extra='x'", ""},
        {"type='velm_job' version='2.0'", "file version too new 2 when parsing velm_job"},
        {"type='velm_job' version='0.9'", "file version too old 0.9 when parsing velm_job"},
        {"type='velm_job'", "file version too old 0 when parsing velm_job"},
        {"type='whatever' version='9'", "Error parsing job; no plucode"},
        {"", "Error parsing job; no plucode"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        const std::string path =
            home().write("versions/a.xml", "<any " + std::string(c.attributes) + "><image1>a</image1></any>");
        const auto job = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(path));
        EXPECT_EQ(job.has_value(), *c.error == 0) << c.attributes;
        EXPECT_EQ(log.has("Found unexpected XML attribute:extra=x"), job && (*job)->version() > 1.9);
        if (job) continue;
        EXPECT_EQ(job.error(), (base::Error{std::string(base::posixErrorDomain), -3, c.error})) << c.attributes;
        EXPECT_TRUE(log.has("Error " + std::string(c.error) + " parsing job file://")) << c.attributes;
    }
}

TEST(Job, FindsTicketAndBundle) {
    const std::string ticket = nativeTicket("<image1>a.jpg</image1><package name='P'/>");
    home().write("find/order7.velm_job/job.xml", ticket);
    home().write("find/order7.velm_job/Images/a.jpg", "x");
    home().write("find/empty.velm_job/readme.txt", "x");
    home().write("find/order8.xml", ticket);
    home().write("find/Receipt-1234.xml", ticket);
    home().write("find/notes.txt", ticket);
    home().write("find/cut.xml", ticket.substr(0, ticket.size() / 2));
    home().write("find/zero.xml", "");
    const std::string bundle = home() / "find/order7.velm_job";
    const struct {
        const char* path;
        const char* name; ///< Null where there is no job.
        bool inBundle;
        bool isLogged;
    } cases[] = {
        {"find/order7.velm_job", "order7", true, false}, {"find/order7.velm_job/job.xml", "order7", true, false},
        {"find/order8.xml", "order8", false, false},     {"find/Receipt-1234.xml", nullptr, false, false},
        {"find/notes.txt", nullptr, false, false},       {"find/missing.xml", nullptr, false, false},
        {"find/empty.velm_job", nullptr, false, false},  {"find/cut.xml", nullptr, false, true},
        {"find/zero.xml", nullptr, false, true},
    };
    for (const auto& c : cases) {
        LogCapture log;
        const auto job = VELM_Job::instanceWithXMLObject(home() / c.path);
        EXPECT_EQ(log.has(""), c.isLogged) << c.path;
        EXPECT_EQ(job != nullptr, c.name != nullptr) << c.path;
        const auto withReason = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(home() / c.path));
        EXPECT_EQ(withReason.has_value(), c.name != nullptr) << c.path;
        if (!job || !withReason) continue;
        EXPECT_EQ(job->name(), c.name);
        EXPECT_EQ(job->urlJobContainer().has_value(), c.inBundle) << c.path;
        EXPECT_TRUE(job->isEqual(**withReason));
        EXPECT_EQ(job->graphicPath(), c.inBundle ? bundle + "/Images/a.jpg" : "a.jpg");
        if (c.inBundle) {
            EXPECT_EQ(base::valueForKey(referenceAt(job, 0), "job"), Value(base::URL::fileURLWithPath(bundle)));
        }
    }
}

TEST(Job, ListsPreviewItems) {
    home().write("preview/o.velm_job/job.xml", nativeTicket("<image1>a.jpg</image1>"));
    home().write("preview/o.velm_job/Images/deep/a.jpg", "x");
    home().write("preview/o.velm_job/Packages/p.xml", "x");
    const auto bundle = VELM_Job::instanceWithXMLObject(home() / "preview/o.velm_job");
    ASSERT_TRUE(bundle);
    std::vector<std::string> names;
    for (const auto& item : bundle->previewItems())
        names.push_back(item->lastPathComponent());
    EXPECT_EQ(names, (std::vector<std::string>{"job.xml", "a.jpg", "p.xml"}));
    EXPECT_EQ(bundle->previewItemIndex(), -1);
    bundle->setPreviewItemIndex(1);
    EXPECT_EQ(bundle->previewItemIndex(), 1);
    EXPECT_EQ(bundle->previewItemURL()->lastPathComponent(), "a.jpg");
    bundle->setPreviewItemIndex(3);
    EXPECT_EQ(bundle->previewItemIndex(), -1);

    home().write("preview/o.xml", nativeTicket("<package name='P'><image1>/p/a.jpg</image1></package>"
                                               "<allimages><f>/p/b.jpg</f><f></f></allimages>"));
    const auto ticket = VELM_Job::instanceWithXMLObject(home() / "preview/o.xml");
    ASSERT_TRUE(ticket);
    ASSERT_EQ(ticket->previewItemsCount(), 4U);
    EXPECT_EQ(ticket->previewItems()[1]->path(), "/p/a.jpg");
    EXPECT_FALSE(ticket->previewItems()[3]);
}

TEST(Job, LooksUpValues) {
    const auto job =
        jobFromText(nativeTicket("<image1>job.jpg</image1><image2>two.jpg</image2>"
                                 "<package name='ABC'><image1>abc.jpg</image1></package>"
                                 "<package name='\u00C4ndere' plucode='XYZ'><image1 croprect='c'>xyz.jpg</image1>"
                                 "</package>"));
    ASSERT_TRUE(job);
    const struct {
        const char* key;
        std::optional<std::string> package;
        const char* table;
        std::optional<std::string> expected;
    } cases[] = {
        {"image1", "ABCPRT", "key", "abc.jpg"},      {"image1", "xyzLS", "key", "xyz.jpg"},
        {"image1", "xyzls", "key", "abc.jpg"}, // the suffix counts in capitals only
        {"image1", "\u00E4ndere", "key", "xyz.jpg"}, {"image1", "nobody", "key", "abc.jpg"},
        {"image2", "XYZ", "key", "two.jpg"},         {"image3", "XYZ", "key", std::nullopt},
        {"image1", "XYZ", "croprect", "c"},          {"date", "ABC", "stamp", "date"},
        {"filename", "ABC", "stamp", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(job->valueForKey(c.key, c.package, c.table), c.expected)
            << c.key << " of " << c.package.value_or("-");
}

TEST(Job, TranslatesForeignTickets) {
    auto& store = platform::data::UserDefaults::suite("com.apple.java.util.prefs");
    const std::string text = "<order from='x'><PluCode>4x6</PluCode><imagepath>old.jpg</imagepath>"
                             "<imagepath>dir/a.jpg</imagepath><ipaddress>kiosk 3</ipaddress><quantity>2</quantity>"
                             "<allimages><f>dir/a.jpg</f><!-- c --><f>b.jpg</f></allimages><text1>Hi</text1></order>";
    const auto inNode = [](const Value& folder) {
        return Dictionary{{"Sorrel/", Dictionary{{"searchfolder", folder}}}};
    };
    const struct {
        Value root;
        std::string prefix;
    } stores[] = {
        {{}, ""},        {inNode("/search"), "/search/"}, {inNode("/search/"), "/search/"},    {inNode(""), ""},
        {inNode(7), ""}, {inNode(base::Array{"/a"}), ""}, {Dictionary{{"Sorrel/", "/a"}}, ""}, {"/a", ""},
    };
    for (const auto& [root, prefix] : stores) {
        ASSERT_TRUE(store.setObject(root, "/"));
        const auto job = jobFromText(text);
        ASSERT_TRUE(job) << root.description();
        EXPECT_EQ(job->jobType(), "VELM_Job_sorrel");
        EXPECT_EQ(job->destinationLabel(), "kiosk 3");
        EXPECT_EQ(job->graphicPath(), prefix + "dir/a.jpg");
        EXPECT_EQ(job->valueInDict("allimages"), Value(base::Array{prefix + "dir/a.jpg", prefix + "b.jpg"}));
        EXPECT_EQ(job->jobPackages(),
                  (base::Array{Dictionary{{"name", "4x6"}, {"key", Dictionary{{"image1", prefix + "dir/a.jpg"}}}}}));
        EXPECT_EQ(job->valueForKey("filename", "4x6", "stamp"), "a.jpg");
        EXPECT_EQ(job->valueForKey("text1", "4x6"), "Hi");
    }
    ASSERT_TRUE(store.removeObject("/"));

    const struct {
        const char* text;
        const char* missing;
    } cases[] = {
        {"<o><plucode/><imagepath>a</imagepath></o>", "plucode"},
        {"<o><plucode>1</plucode><imagepath></imagepath><allimages><f>a</f></allimages></o>", "imagepath"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        EXPECT_FALSE(jobFromText(c.text)) << c.text;
        EXPECT_TRUE(log.has("Error parsing job; no " + std::string(c.missing) + " parsing job ")) << c.text;
    }
}

TEST(Job, SharesItsProgressAmongItsPackagesAndReportsWhatIsMissing) {
    ASSERT_TRUE(defaults().setObject((home() / "NoPackages"), key_velmFolderPackages));
    const std::string reference = "<package type='inline' name='P'><plucode>P</plucode></package>";
    const struct {
        std::string elements;
        std::size_t rendered;
        const char* error; ///< Null for none.
    } cases[] = {
        {reference, 1, nullptr},
        {reference + reference + reference + reference + reference + reference + reference, 7, nullptr},
        {reference + "<package name='Nowhere'/>", 1, "could not find package with name Nowhere"},
        {"<image1>a.jpg</image1>", 0, "no package references"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        const auto job = jobFromText(nativeTicket(c.elements));
        ASSERT_TRUE(job);
        EXPECT_EQ(job->progress()->completedUnitCount(), 10);
        int calls = 0;
        std::optional<base::Error> error;
        job->processJob([&](bool success, const std::optional<base::Error>& given) {
            EXPECT_FALSE(success);
            error = given;
            ++calls;
        });
        EXPECT_EQ(calls, 1);
        ASSERT_EQ(error.has_value(), c.error != nullptr) << c.elements;
        if (c.error) {
            EXPECT_EQ(error->code, -3);
            EXPECT_NE(error->localizedDescription.find(c.error), std::string::npos);
        }
        EXPECT_EQ(log.count("render commencing"), c.rendered) << c.elements;
        if (c.rendered) {
            EXPECT_EQ(job->progress()->completedUnitCount(), 100) << c.elements;
        }
    }
}

TEST(Job, NotifiesOfChangedValuesOnly) {
    const auto job = VELM_Job::init();
    int changes = 0;
    const auto token = job->observe("imagepath", [&changes] { ++changes; });
    job->setObject("a", "imagepath");
    job->setObject("a", "imagepath");
    job->setObject("b", "imagepath");
    job->setObject("x", "quantity");
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(job->objectForKeyedSubscript("imagepath"), Value("b"));
}
