#include "output/VELM_Output.h"

#include "base/Places.h"
#include "internal/OutputFixture.h"
#include "output/VELM_OuputBarcode.h"
#include "platform/data/KeyedArchive.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

namespace {

using namespace output_testing;
using testing::ElementsAre;

// The tests of this module keep their settings to themselves.
class OwnPlaces : public testing::Environment {
public:
    void SetUp() override {
        std::filesystem::create_directory(folder_ / "Settings");
        base::setPlaces(base::Places::below(folder_.path()));
    }

private:
    support::TemporaryDirectory folder_;
};
[[maybe_unused]] const auto* const ownPlaces = testing::AddGlobalTestEnvironment(new OwnPlaces);

TEST(OutputReading, runsForAllImages) {
    const std::vector<std::pair<std::string, bool>> cases = {
        {"", false},
        {"<whattoprint>ALL</whattoprint>", true},
        {"<whattoprint>first</whattoprint>", false},
        {"<allimages/>", true},
        {"<AllImages>yes</AllImages>", true},
        {"<allimages>no</allimages>", false},
        {"<allimages><!-- yes --></allimages>", false},
        {"<allimages/><allimages>no</allimages>", true},
    };
    for (const auto& [children, expected] : cases)
        EXPECT_EQ(outputFrom("<output>" + children + "</output>")->allImages(), expected) << children;
}

TEST(OutputReading, readsNodesAndSkipsOtherElements) {
    const auto output = outputFrom(R"(<output NAME='sheet' Size='{1800, 1200}' height='900.5' other='x'>
        <Front TYPE="node" frame="{{1,2},{3,4}}" croprect="{{0, 0}, {5, 6}}">
            <Frame>{{10, 20}, {30, 40}}</Frame><origin>{7, 8}</origin><frame>nonsense</frame>
            <gravity>resizeAspect</gravity><backgroundColor>#FFF</backgroundColor>
            <tiffOrientation>6</tiffOrientation><shadowcolor Blur="4" offset="{1, 2}">#00000055</shadowcolor>
        </Front>
        <plain/><group type="other"/><back type="node"/>
    </output>)");
    EXPECT_EQ(output->size(), (base::Size{1800, 900.5}));
    EXPECT_EQ(base::textForKey(output->valuesDict(), "name"), "sheet");
    EXPECT_THAT(output->nodeNames(), ElementsAre("Front", "back"));
    const VELM_Output_node& node = *output->outputNodes().front();
    EXPECT_THAT(node.frames(),
                ElementsAre("{{1, 2}, {3, 4}}", "{{10, 20}, {30, 40}}", "{{7, 8}, {0, 0}}", "{{0, 0}, {0, 0}}"));
    EXPECT_EQ(node.cropRectString(), "{{0, 0}, {5, 6}}");
    EXPECT_EQ(node.gravity(), "resizeAspect");
    EXPECT_EQ(node.backgroundColor(), "#FFF");
    EXPECT_EQ(node.tiffOrientation(), 6);
    EXPECT_EQ(node.shadowColor(), "#00000055");
    EXPECT_EQ(node.shadowBlur(), "4");
    EXPECT_EQ(node.offsetPointString(), "{1, 2}");
    EXPECT_FALSE(output->outputNodes().back()->gravity());
}

TEST(OutputReading, readsDestinationsUnderTheirCanonicalKeys) {
    const auto output = outputFrom(R"(<output>
        <destination type="filepath"><FilePath>/out/a.tif</FilePath><FILENAME>originalImageName</FILENAME>
            <saveOriginalFileAs>no</saveOriginalFileAs><SaveOriginalFileAsIs>yes</SaveOriginalFileAsIs>
            <limitsize>1200</limitsize><itempath>3</itempath></destination>
        <destination type="printer" name="LabPrinter"><mediatype>4</mediatype><CUTINHALF>1</CUTINHALF>
            <model>DS620</model><papersize>6x8</papersize><copies>2</copies><gravity>odd</gravity></destination>
        <destination type="fax"/>
    </output>)");
    ASSERT_EQ(output->destinations().size(), 3u);
    const VELM_Destination& file = *output->destinations()[0];
    EXPECT_EQ(file.kind(), VELM_Destination::Kind::file);
    EXPECT_EQ(file.filepath(), "/out/a.tif");
    EXPECT_EQ(file.filename(), "originalImageName");
    EXPECT_TRUE(file.saveOriginal());
    EXPECT_EQ(file.limitSize(), 1200);
    EXPECT_EQ(file.printToFileSetPathIndex(), "3");
    EXPECT_EQ(file.description(), "VELM_Destination(filepath):/out/a.tif");
    const VELM_Destination& printer = *output->destinations()[1];
    EXPECT_EQ(printer.mediaType() * 10 + printer.cutInHalf(), 41);
    EXPECT_EQ(printer.gravity(), "resizeAspectFill");
    EXPECT_EQ(printer.description(), "VELM_Destination(printer){queue:LabPrinter;model:DS620;papersize:6x8;copies:2;}");
    EXPECT_EQ(output->destinations()[2]->kind(), VELM_Destination::Kind::unknown);
    EXPECT_FALSE(output->ignoresTemplates());
}

TEST(OutputReading, normalizesBarcodesByTheSizeKnownSoFar) {
    const std::string barcode = R"(<barcode type="qrcode" scale="2.5" origin="{1, 1}"><message>abc</message>
        <origin xflip="yes" yflip="0">{450, 300}</origin></barcode>)";
    const auto output = outputFrom("<output size='{1800, 1200}'>" + barcode + "</output>");
    ASSERT_EQ(output->barcodes().size(), 1u);
    const std::vector<std::pair<std::string_view, base::Value>> expected = {{klaron_2dCodeKey_origin, "{0.25, 0.25}"},
                                                                            {klaron_2dCodeKey_message, "abc"},
                                                                            {klaron_2dCodeKey_type, 1},
                                                                            {klaron_2dCodeKey_scale, 2.5},
                                                                            {klaron_2dCodeKey_isFlippedX, true},
                                                                            {klaron_2dCodeKey_isFlippedY, false}};
    for (const auto& [key, value] : expected)
        EXPECT_EQ(base::valueForKey(*output->barcodes()[0].as<base::Dictionary>(), key), value) << key;
    const auto unsized = outputFrom("<output>" + barcode + "</output>");
    EXPECT_EQ(base::valueForKey(*unsized->barcodes()[0].as<base::Dictionary>(), klaron_2dCodeKey_origin),
              base::Value("{0, 0}"));
}

TEST(OutputReading, logsWhatItDoesNotKnow) {
    support::LogCapture log;
    outputFrom("<output><!-- fine --><?php no?><a type='node'><shadowcolor size='3'>#000</shadowcolor></a>"
               "<destination><price>3</price></destination><barcode><price/></barcode></output>");
    EXPECT_THAT(log.lines(),
                ElementsAre("Found unexpected XML element kind:\n5", "encountered unknown shadowcolor attribute: size",
                            "Found unexpected XML element \"price\" while parsing destination",
                            "Found unexpected XML element \"price\" while parsing barcode"));
}

TEST(OutputWriting, writesSizeFramesAndSettingsAlone) {
    const auto output = outputFrom(
        "<output name='sheet' size='{1800, 1200}'><front type='node' croprect='{{0, 0}, {1, 1}}'>"
        "<frame>{{0, 0}, {900, 1200}}</frame><origin>{900, "
        "0}</origin><backgroundcolor>#123456</backgroundcolor></front>"
        "<barcode type='aztec'/><destination type='printer' name='LabPrinter'><Copies>2</Copies></destination>"
        "<destination type='filepath'><filepath>/p/a &amp; b</filepath></destination><destination/></output>");
    EXPECT_EQ(output->asXMLElement()->xmlString(),
              "<output size=\"{1800, 1200}\"><front type=\"node\"><frame>{{0, 0}, {900, 1200}}</frame>"
              "<frame>{{900, 0}, {0, 0}}</frame></front><whattoprint>all</whattoprint>"
              "<destination type=\"printer\"><copies>2</copies><queue>LabPrinter</queue></destination>"
              "<destination type=\"filepath\"><filepath>/p/a &amp; b</filepath></destination>"
              "<destination type=\"unknown\"/></output>");

    const auto whole = outputFrom("<output/>");
    EXPECT_EQ(whole->asXMLElement()->xmlString(), "<output><whattoprint>all</whattoprint></output>");
    const auto page = VELM_Template::initForCopy();
    page->setDocumentURL(base::URL::fileURLWithPath("/t/page.xml"));
    whole->setTemplates({{"page", page}});
    EXPECT_EQ(whole->asXMLElement()->xmlString(),
              "<output><template><filepath>page.xml</filepath></template><whattoprint>all</whattoprint></output>");
}

TEST(OutputAttributes, ignoresTemplatesWhenNoDestinationWantsAProduct) {
    const std::string save =
        "<destination type='filepath'><saveoriginalfileasis>1</saveoriginalfileasis></destination>";
    EXPECT_TRUE(outputFrom("<output/>")->ignoresTemplates());
    EXPECT_TRUE(outputFrom("<output>" + save + save + "</output>")->ignoresTemplates());
    EXPECT_FALSE(outputFrom("<output>" + save + "<destination/></output>")->ignoresTemplates());
}

VELM_Output_node nodeWithFrames(const std::vector<std::string>& frames) {
    VELM_Output_node node;
    for (const std::string& frame : frames)
        node.addOutputFrameString(frame);
    return node;
}

TEST(OutputNode, matchesASizeThatItsOneFrameCovers) {
    const std::string whole = "{{0, 0}, {1200, 1800}}";
    const std::vector<std::pair<std::vector<std::string>, bool>> cases = {{{}, true},
                                                                          {{whole}, true},
                                                                          {{whole, whole}, false},
                                                                          {{"{{0, 1}, {1200, 1800}}"}, false},
                                                                          {{"{{0, 0}, {1200, 1799}}"}, false},
                                                                          {{"{{0, 0}, {0, 0}}"}, false}};
    for (const auto& [frames, expected] : cases)
        EXPECT_EQ(nodeWithFrames(frames).matchesOutputSize({1200, 1800}), expected) << frames.size();
}

const char* const fullOutput = R"(<output name="n" size="{100, 50}"><whattoprint>all</whattoprint>
    <front type="node" croprect="{{0, 0}, {5, 6}}"><frame>{{1, 2}, {3, 4}}</frame><gravity>resize</gravity>
        <backgroundcolor>#FFF</backgroundcolor><tiffOrientation>6</tiffOrientation>
        <shadowcolor blur="4" offset="{1, 2}">#000</shadowcolor></front>
    <destination type="printer" name="Lab"><copies>2</copies></destination>
    <destination type="filepath"><filepath>/x</filepath></destination>
    <barcode type="pdf417" origin="{10, 20}"><message>m</message></barcode></output>)";

TEST(OutputCopy, isWhatTheArchiveGivesBackAndSharesNothing) {
    const auto output = outputFrom(fullOutput);
    output->setAllImagesPath("/pictures/a.jpg");
    const auto original = photographTemplate(10, 20);
    output->setTemplates({{"front", original}});
    const auto package = std::make_shared<TestPackage>();
    output->setPackage(package);

    const auto archive = platform::data::archivedData(base::Value(output));
    ASSERT_TRUE(archive) << archive.error().localizedDescription;
    const auto restored = platform::data::unarchived(*archive, {"VELM_Output"});
    ASSERT_TRUE(restored) << restored.error().localizedDescription;
    const auto unarchived = restored->object<VELM_Output>();
    ASSERT_TRUE(unarchived);
    const auto copy = output->copyWithZone();

    // All that is read back of an output's parts.
    const auto parts = [](const VELM_Output& whole) {
        base::Array all{whole.description(), whole.valuesDict(), whole.barcodes(), whole.allImagesPath()};
        for (const auto& node : whole.outputNodes())
            all.emplace_back(*node->encoded());
        for (const auto& destination : whole.destinations())
            all.emplace_back(*destination->encoded());
        return base::Value(all);
    };
    for (const auto& one : {unarchived, copy}) {
        EXPECT_EQ(parts(*one), parts(*output));
        EXPECT_NE(one->outputNodes().at(0), output->outputNodes()[0]);
        EXPECT_NE(one->destinations().at(0), output->destinations()[0]);
        ASSERT_EQ(one->templates().size(), 1u);
        EXPECT_NE(one->templates().at("front"), original);
        EXPECT_TRUE(one->templates().at("front")->isEqual(*original));
    }
    EXPECT_EQ(copy->package(), package);
    EXPECT_FALSE(unarchived->package());
}

} // namespace
