// What a report tells of files: each thing that reading passes over, with its place, and where each value stands.
#include "internal/TemplateFixture.h"

#include "base/Text.h"
#include "platform/data/UserDefaults.h"
#include "template/TemplateReport.h"

using namespace template_testing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class TemplateReports : public testing::Test {
protected:
    /// The findings as "file:line: message", without the test's folder.
    std::vector<std::string> findingsOf(std::string_view xml) {
        TemplateReport report;
        const LogCapture log;
        VELM_Template::templateWithPath(files.write("t.xml", std::string(xml)), false, container(), &report);
        std::vector<std::string> lines;
        for (const auto& [place, message] : report.findings())
            lines.push_back(base::replacingAll(place.file + ":" + std::to_string(place.line) + ": " + message,
                                               files.path().string() + "/", ""));
        return lines;
    }
    std::optional<base::URL> container() const { return base::URL::fileURLWithPath(files / "order"); }

    support::TemporaryDirectory files;
};

TEST_F(TemplateReports, TellWhatReadingPassesOver) {
    const struct {
        std::string root, body; ///< Attributes of the root; all that stands in it.
        std::vector<std::string> findings;
    } cases[] = {
        {"type='VELM_Template' version='1.0'",
         "<!-- c --><layout size='{9, 9}' name='n'><layer type='image' frame='{{0, 0}, {1, 1}}' zindex='2'><key>k</key>"
         "<shadow blur='3' color='#000' offset='{1, 1}'>no</shadow></layer></layout>",
         {}},
        {"type='Other' version='2' author='x'",
         "<layout/>",
         {"1: type \"Other\" is not that of a template, VELM_Template; it is read all the same",
          "1: version \"2\" is not one from 1.0 to 1.99; it is read all the same",
          "1: attribute author of <data> is not known and is not read"}},
        {"",
         "\n<head/>\n\n words\n<?go now?>",
         {"2: element <head> is no body of a document and is not read",
          "4: \"words\" is not read: only elements are expected here",
          "5: \"now\" is not read: only elements are expected here",
          "1: <data> holds no body (layout, node, portrait, landscape or square), so there is no document"}},
        {"",
         "<portrait/>\n<LANDSCAPE size='{9}' color='red'><Note a='1'>x</Note><frame>{{0, 0}, {1, 1}}</frame><width>0"
         "</width></LANDSCAPE>",
         {"1: body <portrait> is dropped: <LANDSCAPE> in line 2 stands in its place",
          "2: attribute size: \"{9}\" holds 1 of the 2 numbers of a size",
          "2: attribute color of <LANDSCAPE> is not known and is not read", "2: attribute a of <Note> is not read",
          "2: <Note> is kept under that name, which nothing reads",
          "2: <frame> is a text, which can't serve as the document's \"frame\"", "2: <width>: \"0\" is not above 0"}},
        {"",
         "<layout>\n<layer\n colour='red' frame='{{1, 2}, {0, 4}}' zindex='top'>\n<unknown/>\n<key a='b'>k</key>"
         "<croprect x='1'>{{0, 0}, {1}}</croprect>\n<blur>3</blur><stringnumber>1</stringnumber></layer></layout>",
         {"2: attribute colour of <layer> is not known and is not read",
          "2: attribute frame: \"{{1, 2}, {0, 4}}\" is an empty rectangle",
          "2: attribute zindex: \"top\" does not begin with a number, and is read as 0",
          "4: element <unknown> of a layer is not known and is not read", "5: attribute a of <key> is not read",
          "5: attribute x of <croprect> is not known and is not read",
          "5: <croprect>: \"{{0, 0}, {1}}\" holds 3 of the 4 numbers of a rectangle",
          "6: element <blur> of a layer is not known and is not read",
          "6: <stringnumber> is read only in a layer of type edittextbox"}},
        {"",
         "<layout><layer frame='{{0, 0}, {-1, 1}}' key='a'><font Size='x'>F</font><border width='w' shadowcolor='#1'>"
         "on</border>\n<key>b</key><shadow offset='{1}' blur='.5'/></layer></layout>",
         {"1: attribute frame: \"{{0, 0}, {-1, 1}}\" is a rectangle with a negative side",
          "1: attribute Size: \"x\" does not begin with a number, and is read as 0",
          "1: attribute Size is kept under that name, which nothing reads",
          "1: attribute width: \"w\" does not begin with a number, and is read as 0",
          "1: attribute shadowcolor of <border> is not known and is not read",
          "1: <border>: \"on\" is neither yes nor no, and is read as no",
          "1: attribute key of <layer> gives \"key\", which <key> in line 2 replaces",
          "2: attribute offset: \"{1}\" holds 1 of the 2 numbers of a point"}},
        {"", "<layout>\n<layer type='edittextbox'><stringnumber>3</stringnumber></layer></layout>", {}},
        {"",
         "<layout>\n&nothing;</layout>",
         {"2: the XML is damaged, and only what could be recovered is read: Entity 'nothing' not defined"}},
        {"",
         std::string(300, 'x') + "<layout/>",
         {"1: \"" + std::string(200, 'x') + "...\" is not read: only elements are expected here"}},
    };
    for (const auto& test : cases) {
        std::vector<std::string> expected;
        for (const std::string& finding : test.findings)
            expected.push_back("t.xml:" + finding);
        EXPECT_EQ(findingsOf("<data " + test.root + ">" + test.body + "</data>"), expected) << test.body;
    }
}

TEST_F(TemplateReports, TellOfFilesThatCanNotBeRead) {
    EXPECT_THAT(findingsOf("no xml at all"), ElementsAre(HasSubstr("t.xml:1: nothing of the file can be read: ")));
    EXPECT_THAT(findingsOf(""), ElementsAre(testing::AllOf(
                                    testing::StartsWith("t.xml:0: template \"t.xml\" can't be read. Tried t.xml, "),
                                    testing::EndsWith("; t.xml is empty"))));
    EXPECT_THAT(findingsOf(std::string("<\0d\0\0\xD8", 6)), ElementsAre(HasSubstr("not valid UTF-16LE text")));

    files.write("order/Nodes/empty.xml", "");
    files.write("order/Nodes/self.xml",
                fileOf("\n<layer type='node'><filepath>self.xml</filepath></layer><layer a=''/>"));
    const auto findings = findingsOf("<data><layout>\n<layer type='node'><filepath>empty.xml</filepath></layer>\n"
                                     "<layer type='node'><filename>self.xml</filename></layer></layout></data>");
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_THAT(findings[0], testing::StartsWith("t.xml:2: nested file \"empty.xml\" can't be read. Tried "));
    EXPECT_THAT(findings[0], HasSubstr("order/Nodes/empty.xml, order/empty.xml"));
    EXPECT_THAT(findings[0], testing::EndsWith("; order/Nodes/empty.xml is empty"));
    EXPECT_EQ(findings[1], "order/Nodes/self.xml:2: template file order/Nodes/self.xml includes itself");
    EXPECT_THAT(findings[2], testing::StartsWith("order/Nodes/self.xml:2: attribute a of <layer>"));
}

TEST_F(TemplateReports, TellWhereEachValueStands) {
    const std::string nested = files.write("order/Nodes/n.xml", fileOf("\n<layer key='inner'/>"));
    const std::string path = files.write(
        "t.xml",
        "<data version='1.0'>\n<layout size='{9, 9}'>\n<layer zindex='1' frame='{{0, 0}, {5, 5}}' gravity='resize'>"
        "\n<startx>3</startx><shadow blur='2'>yes</shadow><filepath>ImageFile</filepath></layer>\n"
        "<layer zindex='2' type='node' gravity='resize' key='k'>\n<filename>n.xml</filename></layer></layout></data>");
    TemplateReport report;
    const auto document = VELM_Template::templateWithPath(path, false, container(), &report);
    ASSERT_TRUE(document);
    const auto layers = document->layers();
    ASSERT_EQ(layers.size(), 2U);
    const auto inner = layers[1]->layers().at(0);
    using Kind = TemplateReport::Origin::Kind;
    const struct {
        const VELM_Template& layer;
        const char* key;
        Kind kind;
        const char *name, *element;
        TemplateReport::Place place;
    } cases[] = {
        {*layers[0], "blur", Kind::attribute, "blur", "shadow", {path, 4}},
        {*layers[0], "key", Kind::element, "filepath", "filepath", {path, 4}},
        {*layers[1], "filepath", Kind::node, "filename", "filename", {path, 6}},
        {*layers[1], "key", Kind::node, "key", "layer", {path, 5}},
        {*inner, "key", Kind::attribute, "key", "layer", {nested, 2}},
    };
    for (const auto& test : cases) {
        const auto* origin = report.originOf(test.layer, test.key);
        ASSERT_TRUE(origin) << test.key;
        EXPECT_EQ(origin->kind, test.kind) << test.key;
        EXPECT_EQ(origin->name, test.name);
        EXPECT_EQ(origin->element, test.element);
        EXPECT_EQ(origin->place, test.place) << origin->place.file << ":" << origin->place.line;
    }
    EXPECT_EQ(report.originOf(*layers[0], "type"), nullptr);
    EXPECT_EQ(report.originOf(*document->lastSaved(), "frame"), nullptr);
    EXPECT_EQ(report.placeOf(*layers[1]), (TemplateReport::Place{nested, 1}));
    ASSERT_EQ(report.findings().size(), 1U);
    EXPECT_EQ(report.findings()[0].message,
              "attribute gravity of <layer> is dropped: the document of a nested file takes the layer's place");

    // The tree of a file's elements ends with the reading, one that the caller holds does not.
    EXPECT_FALSE(document->xmlNode());
    const auto held = platform::data::XMLDocument::parse("<layout><layer/></layout>");
    const auto made = VELM_Template::initWithNode(*(*held)->rootElement(), std::nullopt);
    EXPECT_EQ(made->layers().at(0)->xmlNode(), (*held)->rootElement()->children().at(0));
}

} // namespace
