#include "app/AppDelegate.h"
#include "app/VELM.h"

#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "folders/DefaultsMirror.h"
#include "platform/data/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using platform::data::UserDefaults;
using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

/// The defaults' suite lives as long as the process, so all tests share one place and leave it as they found it.
const support::TemporaryDirectory& home() {
    static const support::TemporaryDirectory directory;
    return directory;
}

class App : public testing::Test {
protected:
    App() {
        base::setPlaces(base::Places::below(home().path().string()));
        for (const auto& [key, value] : UserDefaults::standard().dictionaryRepresentation())
            static_cast<void>(UserDefaults::standard().removeObject(key));
    }

    static std::string path(const std::string& relative) { return home() / ("VELM/" + relative); }

    support::LogCapture log_;
};

class RecordingEngine final : public VELM_RenderingEngineProtocol {
public:
    void setObject(const base::Value& object, std::string_view key, const Reply& reply) override {
        pairs.emplace_back(key, object);
        reply(object, key);
    }
    std::vector<std::pair<std::string, base::Value>> pairs;
};

TEST_F(App, launchMakesTheTreeAndPointsTheSettingsAtItSaveThePendingOne) {
    UserDefaults& defaults = UserDefaults::standard();
    ASSERT_TRUE(defaults.setObject("/elsewhere/Packages", key_velmFolderPackages));
    home().write("VELM/Jobs/Failed/kept.xml", "<data/>");
    const auto engine = std::make_shared<RecordingEngine>();
    AppDelegate delegate(engine);
    delegate.applicationDidFinishLaunching();

    const std::vector<std::pair<std::string_view, std::string>> inTheirOrder = {
        {key_velmFolderFallbackOutputPath, home() / "Desktop/PrintToFileOutputs/Unknown"},
        {key_velmFolderNodes, path("Nodes")},
        {key_velmFolderPackages, path("Packages")},
        {key_velmFolderTemplates, path("Templates")},
        {key_velmFolderGraphics, path("Graphics")},
        {key_velmFolderJobsCompleted, path("Jobs/Completed")},
        {key_velmFolderJobsFailed, path("Jobs/Failed")},
    };
    ASSERT_EQ(engine->pairs.size(), inTheirOrder.size());
    for (std::size_t index = 0; index < inTheirOrder.size(); ++index) {
        const auto& [key, folder] = inTheirOrder[index];
        EXPECT_THAT(engine->pairs[index], Pair(key, base::Value(folder)));
        EXPECT_EQ(defaults.stringForKey(key), folder);
        EXPECT_EQ(fs::is_directory(folder), index > 0) << folder;
    }
    EXPECT_EQ(support::readFile(path("Jobs/Failed/kept.xml")), "<data/>");
    EXPECT_EQ(VELM::velmDirectorySubdirectory("directoryTemplates"), VELM::velmDirectory());

    EXPECT_EQ(defaults.objectForKey(key_velmFolderJobsPending), base::Value());
    ASSERT_TRUE(defaults.setObject("/elsewhere/Pending", key_velmFolderJobsPending));
    engine->pairs.clear();
    delegate.resetFolders();
    EXPECT_TRUE(engine->pairs.empty()) << "nothing differs";
    EXPECT_EQ(defaults.stringForKey(key_velmFolderJobsPending), "/elsewhere/Pending");
    EXPECT_THAT(log_.lines(), Contains("not overwritting forced pref..."));
}

TEST_F(App, aFileInAFoldersPlaceIsLogged) {
    const std::string file = home().write("occupied", "a file");
    EXPECT_FALSE(VELM::makeDirectory(base::URL::fileURLWithPath(file)));
    EXPECT_THAT(log_.lines(), Contains(testing::HasSubstr(file)));
}

TEST_F(App, settingsOfLowerModulesReachTheMirror) {
    const auto engine = std::make_shared<RecordingEngine>();
    {
        AppDelegate delegate(engine);
        folders::setDefaultObject(base::Data("four"), "savedThings");
        EXPECT_EQ(UserDefaults::standard().dataForKey("savedThings"), base::Data("four"));
        EXPECT_THAT(engine->pairs, ElementsAre(Pair("savedThings", base::Value(base::Data("four")))));
        EXPECT_THAT(log_.lines(), Contains("remotely set 4 data bytes for savedThings"));
    }
    folders::setDefaultObject("late", "savedThings");
    EXPECT_EQ(engine->pairs.size(), 1u);
}

} // namespace
