#include "app/AppDelegate.h"
#include "app/VELM.h"

#include "base/Log.h"
#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "folders/DefaultsMirror.h"
#include "platform/data/UserDefaults.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
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
        sink_ = base::setLogSink([this](std::string_view message) { log_.emplace_back(message); });
        for (const auto& [key, value] : UserDefaults::standard().dictionaryRepresentation())
            static_cast<void>(UserDefaults::standard().removeObject(key));
    }
    ~App() override { base::setLogSink(sink_); }

    static std::string path(const std::string& relative) { return home() / ("VELM/" + relative); }

    std::vector<std::string> log_;
    base::LogSink sink_;
};

class RecordingEngine final : public VELM_RenderingEngineProtocol {
public:
    void setObject(const base::Value& object, std::string_view key, const Reply& reply) override {
        pairs.emplace_back(key, object);
        reply(object, key);
    }
    std::vector<std::pair<std::string, base::Value>> pairs;
};

TEST_F(App, treeHasItsFoldersUnderTheirNames) {
    const std::vector<std::pair<base::URL, std::string>> expected = {
        {VELM::velmDirectoryTemplates(), "Templates"},
        {VELM::velmDirectoryGraphics(), "Graphics"},
        {VELM::velmDirectoryPackages(), "Packages"},
        {VELM::velmDirectoryNodes(), "Nodes"},
        {VELM::velmDirectoryJobs(), "Jobs"},
        {VELM::velmDirectoryJobsCompleted(), "Jobs/Completed"},
        {VELM::velmDirectoryJobsFailed(), "Jobs/Failed"},
        {VELM::velmDirectoryJobsPending(), "Jobs/Pending"},
        {VELM::velmDirectorySubdirectory("velmDirectory"), ""},
        {VELM::velmDirectorySubdirectory("directoryTemplates"), ""},
    };
    for (const auto& [url, relative] : expected)
        EXPECT_EQ(url, base::URL::fileURLWithPath(path(relative))) << relative;
}

TEST_F(App, makingTheTreeIsRepeatableAndKeepsWhatIsThere) {
    ASSERT_TRUE(VELM::makeVELMFolder());
    home().write("VELM/Jobs/Failed/kept.xml", "<data/>");
    ASSERT_TRUE(VELM::makeVELMFolder());
    for (const VELM::Folder& folder : VELM::folders())
        EXPECT_TRUE(fs::is_directory(folder.url().path())) << folder.name;
    EXPECT_EQ(support::readFile(path("Jobs/Failed/kept.xml")), "<data/>");
}

TEST_F(App, aFileInAFoldersPlaceIsAnError) {
    const std::string file = home().write("occupied", "a file");
    std::string reported;
    EXPECT_FALSE(VELM::makeDirectory(base::URL::fileURLWithPath(file),
                                     [&](const base::Error& error) { reported = error.localizedDescription; }));
    EXPECT_THAT(reported, testing::HasSubstr(file));
    EXPECT_FALSE(VELM::makeDirectory(base::URL::fileURLWithPath(file + "/inner")));
    EXPECT_THAT(log_, Contains(testing::HasSubstr("inner")));
    fs::remove(file);
}

TEST_F(App, launchSetsEveryFolderKeyButThePendingOne) {
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    UserDefaults& defaults = UserDefaults::standard();
    EXPECT_EQ(defaults.stringForKey(key_velmFolderTemplates), path("Templates"));
    EXPECT_EQ(defaults.stringForKey(key_velmFolderPackages), path("Packages"));
    EXPECT_EQ(defaults.stringForKey(key_velmFolderNodes), path("Nodes"));
    EXPECT_EQ(defaults.stringForKey(key_velmFolderGraphics), path("Graphics"));
    EXPECT_EQ(defaults.stringForKey(key_velmFolderJobsCompleted), path("Jobs/Completed"));
    EXPECT_EQ(defaults.stringForKey(key_velmFolderJobsFailed), path("Jobs/Failed"));
    EXPECT_EQ(defaults.objectForKey(key_velmFolderJobsPending), base::Value());
    EXPECT_EQ(defaults.stringForKey(key_velmFolderFallbackOutputPath), (home() / "Desktop/PrintToFileOutputs/Unknown"));
    EXPECT_FALSE(defaults.boolForKey(key_velmProcessorIsRunning));
    EXPECT_TRUE(fs::is_directory(path("Jobs/Completed")));
}

TEST_F(App, launchTakesBackEveryChosenFolderButThePendingOne) {
    UserDefaults& defaults = UserDefaults::standard();
    ASSERT_TRUE(defaults.setObject("/elsewhere/Packages", key_velmFolderPackages));
    ASSERT_TRUE(defaults.setObject("/elsewhere/Pending", key_velmFolderJobsPending));
    AppDelegate delegate;
    delegate.resetFolders();
    EXPECT_EQ(defaults.stringForKey(key_velmFolderPackages), path("Packages"));
    EXPECT_EQ(defaults.stringForKey(key_velmFolderJobsPending), "/elsewhere/Pending");
    EXPECT_THAT(log_, Contains("not overwritting forced pref..."));
}

TEST_F(App, foldersAreResetInOrderAndOnlyWhenTheyDiffer) {
    const auto engine = std::make_shared<RecordingEngine>();
    AppDelegate delegate(engine);
    delegate.resetFolders();
    std::vector<std::string> keys;
    for (const auto& [key, value] : engine->pairs)
        keys.push_back(key);
    EXPECT_THAT(keys, ElementsAre(key_velmFolderNodes, key_velmFolderPackages, key_velmFolderTemplates,
                                  key_velmFolderGraphics, key_velmFolderJobsCompleted, key_velmFolderJobsFailed));
    engine->pairs.clear();
    delegate.resetFolders();
    EXPECT_TRUE(engine->pairs.empty());
}

TEST_F(App, settingsOfLowerModulesReachTheMirror) {
    const auto engine = std::make_shared<RecordingEngine>();
    {
        AppDelegate delegate(engine);
        folders::setDefaultObject(base::Data("four"), "savedThings");
        EXPECT_EQ(UserDefaults::standard().dataForKey("savedThings"), base::Data("four"));
        EXPECT_THAT(engine->pairs, ElementsAre(Pair("savedThings", base::Value(base::Data("four")))));
        EXPECT_THAT(log_, Contains("remotely set 4 data bytes for savedThings"));
    }
    folders::setDefaultObject("late", "savedThings");
    EXPECT_EQ(engine->pairs.size(), 1u);
}

} // namespace
