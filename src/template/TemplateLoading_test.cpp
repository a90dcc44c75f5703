// Finding template files, reading their roots, and putting nested files in the place of layers.
#include "internal/TemplateFixture.h"

#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/UserDefaults.h"

#include <filesystem>

using namespace template_testing;
using base::URL;
using base::Value;
using platform::data::UserDefaults;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// A job container, configured folders and a place for files of neither.
class TemplateLoading : public testing::Test {
protected:
    TemplateLoading() {
        setDefault(key_velmFolderTemplates, files / "Templates");
        setDefault(key_velmFolderNodes, files / "Nodes");
    }
    ~TemplateLoading() override {
        setDefault(key_velmFolderTemplates, {});
        setDefault(key_velmFolderNodes, {});
    }
    static void setDefault(std::string_view key, const Value& value) {
        EXPECT_TRUE(UserDefaults::standard().setObject(value, key));
    }
    URL url(std::string_view relative) const { return URL::fileURLWithPath(files / relative); }
    /// Where the template came from, relative to the test's folder.
    std::string found(const Value& path, bool isNode, const std::optional<URL>& container) const {
        const LogCapture log;
        const auto document = VELM_Template::templateWithPath(path, isNode, container);
        if (!document) return log.lines().empty() ? "silence" : log.lines().back();
        return std::filesystem::path(document->documentURL()->path()).lexically_relative(files.path()).string();
    }

    support::TemporaryDirectory files;
};

TEST_F(TemplateLoading, FilesAreFoundInOrder) {
    const URL container = url("order.velm_job");
    const std::string places[] = {"order.velm_job/Templates/a.xml", "order.velm_job/a.xml", "Templates/a.xml"};
    for (const std::string& place : places)
        files.write(place, fileOf(""));
    files.write("order.velm_job/Nodes/a.xml", fileOf(""));
    files.write("Nodes/a.xml", fileOf(""));

    EXPECT_EQ(found("a.xml", true, container), "order.velm_job/Nodes/a.xml");
    EXPECT_EQ(found("a.xml", true, std::nullopt), "Nodes/a.xml");
    EXPECT_EQ(found(files / "Nodes/a.xml", false, container), "Nodes/a.xml");
    EXPECT_EQ(found(url("Nodes/a.xml"), false, container), "Nodes/a.xml");
    const std::string atHome = base::appendingPathComponent(base::places().home, "home.xml");
    std::filesystem::copy_file(files / "Nodes/a.xml", atHome);
    EXPECT_THAT(found("~/home.xml", false, std::nullopt),
                testing::AllOf(testing::StartsWith(".."), testing::EndsWith("home.xml")));
    std::filesystem::remove(atHome);
    for (const std::string& place : places) {
        EXPECT_EQ(found("a.xml", false, container), place);
        std::filesystem::remove(files / place);
    }
    EXPECT_EQ(found("a.xml", false, container), "failed to read template at path a.xml");
    EXPECT_EQ(found("b.xml", true, container), "failed to read node at path b.xml");
}

TEST_F(TemplateLoading, AnEmptyFileIsNoneAndAURLIsNotLookedUpInTheConfiguredFolder) {
    files.write("Templates/empty.xml", "");
    files.write("Templates/a.xml", fileOf(""));
    EXPECT_EQ(found("empty.xml", false, std::nullopt), "failed to read template at path empty.xml");
    EXPECT_THAT(found(URL::fileURLWithPath("/a.xml"), false, std::nullopt), HasSubstr("failed to read template"));
    EXPECT_EQ(found(5, false, std::nullopt), "failed to read template at path 5");
    setDefault(key_velmFolderTemplates, 7);
    EXPECT_EQ(found("a.xml", false, std::nullopt), "failed to read template at path a.xml");
}

TEST_F(TemplateLoading, TheLastBodyIsTheDocument) {
    const auto path = files.write("two.xml", R"(<any TYPE="Foreign" version="77"><!-- c --><other/>text
        <portrait size="{2, 3}" name="p"/><landscape size="{3, 2}"><layer zindex="3"/><layer zindex="1"/></landscape></any>)");
    const LogCapture log;
    const auto document = VELM_Template::instanceWithXMLObject(path);
    ASSERT_TRUE(document);
    EXPECT_EQ(document->name(), "landscape");
    EXPECT_EQ(document->versionXML(), "77");
    EXPECT_EQ(document->type(), "container");
    EXPECT_EQ(document->documentURL(), URL::fileURLWithPath(path));
    EXPECT_THAT(log.lines(), ElementsAre("Found unexpected XML element kind:\n7"));

    // Levels are renumbered before the state is remembered.
    EXPECT_FALSE(document->hasUnsavedChanges());
    const auto count = document->changeCount();
    document->layers()[0]->setKey("k");
    EXPECT_TRUE(document->hasUnsavedChanges());
    document->layers()[0]->setKey({});
    EXPECT_FALSE(document->hasUnsavedChanges());
    EXPECT_EQ(document->changeCount(), count + 2);
}

std::string nodeLayer(std::string_view file) {
    return "<layer type='node' frame='{{0, 0}, {50, 50}}'><filepath>" + std::string(file) + "</filepath></layer>";
}

TEST_F(TemplateLoading, FilesThatIncludeThemselvesFailVisibly) {
    // Directly, through another file, by another name of the same file.
    files.write("Nodes/self.xml", fileOf(nodeLayer("self.xml") + nodeLayer("self.xml")));
    files.write("Nodes/a.xml", fileOf(nodeLayer("b.xml")));
    files.write("Nodes/b.xml", fileOf(nodeLayer("a.xml")));
    files.write("Nodes/linked.xml", fileOf(nodeLayer("link.xml")));
    std::filesystem::create_symlink(files / "Nodes/linked.xml", files / "Nodes/link.xml");
    for (const std::string_view file : {"self.xml", "a.xml", "linked.xml"}) {
        const LogCapture log;
        const auto node = VELM_Template::nodeWithPath(file, std::nullopt);
        ASSERT_TRUE(node);
        EXPECT_TRUE(node->createProductImage());
        const auto error = node->renderError();
        ASSERT_TRUE(error) << file;
        const auto actual = std::filesystem::canonical(files / ("Nodes/" + std::string(file)));
        EXPECT_EQ(error->localizedDescription, "template file " + actual.string() + " includes itself");
        EXPECT_THAT(log.lines(), testing::Contains("ERROR: " + error->localizedDescription));

        // An output for each photograph draws copies.
        const auto copy = node->copyWithZone();
        copy->image();
        ASSERT_TRUE(copy->renderError()) << file;
        EXPECT_EQ(copy->renderError()->localizedDescription, error->localizedDescription);
    }
}

TEST_F(TemplateLoading, NestingIsLimited) {
    // A chain of nested files: level 0 is the outermost.
    const auto writeChain = [&](int levels, int perLevel) {
        for (int level = 0; level <= levels; ++level) {
            std::string layers;
            for (int copy = 0; level < levels && copy < perLevel; ++copy)
                layers += nodeLayer(std::to_string(level + 1) + ".xml");
            files.write("Nodes/" + std::to_string(level) + ".xml", fileOf(layers));
        }
        const LogCapture log;
        const auto node = VELM_Template::nodeWithPath("0.xml", std::nullopt);
        EXPECT_TRUE(node->createProductImage());
        return node->renderError();
    };
    EXPECT_EQ(writeChain(VELM_Template::maximumNesting, 1), std::nullopt);
    const auto tooDeep = writeChain(VELM_Template::maximumNesting + 1, 1);
    ASSERT_TRUE(tooDeep);
    EXPECT_THAT(tooDeep->localizedDescription, HasSubstr("nested more than 16 levels deep"));
    const auto tooMany = writeChain(10, 3);
    ASSERT_TRUE(tooMany);
    EXPECT_THAT(tooMany->localizedDescription, HasSubstr("more than 1000 nested files"));
}

TEST_F(TemplateLoading, HugeFilesAreLimitedAndLogLinesStayShort) {
    // With what is nested in it, a document holds so many layers and no more.
    const auto bareLayers = [](int count) { return base::replacingAll(std::string(count, '.'), ".", "<layer/>"); };
    files.write("Nodes/half.xml", fileOf(bareLayers(VELM_Template::maximumLayers / 2)));
    const std::string two = nodeLayer("half.xml") + nodeLayer("half.xml");
    LogCapture log;
    const auto document = VELM_Template::instanceWithXMLObject(files.write("t.xml", fileOf(two)));
    ASSERT_TRUE(document);
    ASSERT_EQ(document->layers().size(), 2U);
    EXPECT_THAT(log.lines(), testing::Contains("failed to init a layer for <layer/>").Times(1));
    const auto full = document->layers()[1];
    EXPECT_EQ(full->layers().size(), VELM_Template::maximumLayers / 2U - 2);
    ASSERT_TRUE(full->renderError());
    EXPECT_EQ(full->renderError()->localizedDescription,
              "template " + (files / "Nodes/half.xml") + " holds more than 20000 layers");

    // Names end at 50 000 bytes, texts don't.
    const std::string name(40'000, 'n');
    const std::string text(1'000'000, 't');
    const std::string inside = "<filepath>" + text + "</filepath><border " + name + "='a'/>";
    VELM_Template::instanceWithXMLObject(
        files.write("t.xml", fileOf("<layer type='node' " + name + "='" + text + "'>" + inside + "</layer>")));
    templateFrom("<" + name + ">" + text + "</" + name + ">");
    EXPECT_THAT(log.lines(), testing::Each(testing::SizeIs(testing::Lt(10'000U))));
    for (const std::string_view words : {"unknown layer attribute: nnn", "unknown border attribute: nnn",
                                         "read node at path of 1000000 bytes", "adding unknown XML <nnn"})
        EXPECT_THAT(log.lines(), testing::Contains(HasSubstr(words)));
}

TEST_F(TemplateLoading, TheNodesFolderIsFoundAboveTheTemplates) {
    std::filesystem::create_directories(files / "VELM/Nodes");
    std::filesystem::create_directories(files / "VELM/Shops/Templates");
    VELM_Template::setCurrentTemplatesFolder(url("VELM/Shops/Templates"));
    EXPECT_EQ(VELM_Template::currentTemplatesFolder(), url("VELM/Shops/Templates"));
    EXPECT_EQ(UserDefaults::standard().stringForKey(key_velmFolderNodes), files / "VELM/Nodes");
}

} // namespace
