#include "app/AppDelegate.h"
#include "app/MainBundle.h"
#include "app/VELM.h"

#include "base/Places.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "folders/DefaultsMirror.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/Clock.h"
#include "platform/run/MainQueue.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <optional>
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

app::Services with(const std::shared_ptr<VELM_RenderingEngineProtocol>& engine) {
    app::Services services = app::Services::local();
    services.renderingEngine = [engine] { return engine; };
    return services;
}

/// Of a given version; keeps what it was asked.
class Helper final : public PrivilegedHelperProtocol {
public:
    explicit Helper(double version) : version_(version) {}
    void versionInterface(const std::function<void(double)>& reply) override { reply(version_); }
    void makeVELMFolderWithReply(const std::function<void(const base::Result<base::URL>&)>& reply) override {
        reply(base::failure(base::posixErrorDomain, 13, "no rights"));
    }

private:
    const double version_;
};

TEST_F(App, launchMakesTheTreeAndPointsTheSettingsAtItSaveThePendingOne) {
    UserDefaults& defaults = UserDefaults::standard();
    ASSERT_TRUE(defaults.setObject("/elsewhere/Packages", key_velmFolderPackages));
    home().write("VELM/Jobs/Failed/kept.xml", "<data/>");
    const auto engine = std::make_shared<RecordingEngine>();
    AppDelegate delegate(with(engine));
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
        AppDelegate delegate(with(engine));
        folders::setDefaultObject(base::Data("four"), "savedThings");
        EXPECT_EQ(UserDefaults::standard().dataForKey("savedThings"), base::Data("four"));
        EXPECT_THAT(engine->pairs, ElementsAre(Pair("savedThings", base::Value(base::Data("four")))));
        EXPECT_THAT(log_.lines(), Contains("remotely set 4 data bytes for savedThings"));
    }
    folders::setDefaultObject("late", "savedThings");
    EXPECT_EQ(engine->pairs.size(), 1u);
}

TEST_F(App, theConnectionToTheRenderingEngineIsMadeAnewAfterALoss) {
    int made = 0;
    app::Services services = app::Services::local();
    services.renderingEngine = [&made]() -> std::shared_ptr<VELM_RenderingEngineProtocol> {
        return ++made == 2 ? nullptr : std::make_shared<RecordingEngine>();
    };
    AppDelegate delegate(services);
    const auto first = delegate.getRenderingEngine();
    first->interrupt();
    EXPECT_EQ(delegate.getRenderingEngine(), first);
    first->invalidate();
    delegate.setDefaultObject("kept", "whoever is there"); // the second time there is no service
    EXPECT_EQ(UserDefaults::standard().stringForKey("whoever is there"), "kept");
    EXPECT_EQ(log_.count("remotely set"), 0u);
    delegate.setDefaultObject("told", "whoever is there");
    EXPECT_EQ(made, 3);
    EXPECT_EQ(log_.count("xpc connection terminated"), 1u);
    EXPECT_EQ(log_.count("xpc connection invalidated"), 2u);
    EXPECT_EQ(log_.count("remotely set told for whoever is there"), 1u);
}

TEST_F(App, aHelperThatIsMissingOrTooOldIsInstalledAndAskedEachSecondWhileItCanBe) {
    struct Case {
        double version; ///< 0: there is none.
        int installs;   ///< How often the installation succeeds.
        int asked;
        const char* lastWord;
    };
    const std::vector<Case> cases = {
        {0.24, 9, 1, "Error making VELM directory:no rights"},
        {0.23, 2, 3, "refused"},
        {0, 0, 1, "refused"},
    };
    platform::run::RunLoop loop;
    for (const Case& row : cases) {
        const auto clock = std::make_shared<platform::run::ManualClock>();
        platform::run::setClock(clock);
        const support::LogCapture log;
        int asked = 0;
        int installs = row.installs;
        app::Services services = app::Services::local();
        services.privilegedHelper = [&]() -> std::shared_ptr<PrivilegedHelperProtocol> {
            ++asked;
            return row.version > 0 ? std::make_shared<Helper>(row.version) : nullptr;
        };
        services.blessHelper = [&](std::string_view label) -> base::Result<void> {
            EXPECT_EQ(label, "com.kestrune.VELM-Helper");
            if (installs-- > 0) return {};
            return base::failure("domain", 1, "refused");
        };
        AppDelegate delegate(services);
        delegate.connectToPrivilegedHelper();
        for (int second = 0; second < 5; ++second) {
            clock->advance(std::chrono::milliseconds(999));
            loop.drain();
            EXPECT_EQ(asked, std::min(row.asked, second + 1)) << "not before the second has passed";
            clock->advance(std::chrono::milliseconds(1));
            loop.drain();
        }
        EXPECT_EQ(log.lines().back(), row.lastWord);
        EXPECT_EQ(log.count("invalidated -[AppDelegate connectToPrivilegedHelper]"),
                  row.version >= 0.24 ? 0u : static_cast<std::size_t>(row.asked));
    }
    platform::run::setClock(nullptr);
    AppDelegate delegate;
    EXPECT_FALSE(delegate.installHelperWithLabel(std::nullopt));
    EXPECT_FALSE(delegate.installHelperWithLabel("label"));
    EXPECT_EQ(log_.count("Failed to provide a required label"), 1u);
    EXPECT_EQ(log_.count("AuthorizationCreate() failed"), 1u);
}

TEST_F(App, theLaunchTellsItsCountersAndHearsOfThePendingFolder) {
    UserDefaults& defaults = UserDefaults::standard();
    ASSERT_TRUE(defaults.setObject(7, key_velmProcessorJobsCompleted));
    ASSERT_TRUE(defaults.setObject(2, key_velmProcessorJobsFailed));
    AppDelegate delegate;
    delegate.awakeFromNib();
    EXPECT_EQ(delegate.jobsCompleted() * 10 + delegate.jobsFailed(), 72);
    delegate.applicationDidFinishLaunching();
    const std::string description = defaults.stringForKey(key_prefLongVersionDescriptionString).value_or("");
    EXPECT_THAT(description, testing::MatchesRegex("Velm - v[0-9.]+ \\(xc-.* sdk-.*\\)"));
    EXPECT_EQ(app::longDescriptionWithLabel("Server"), base::replacingAll(description, "Velm ", "Velm Server "));
    ASSERT_TRUE(defaults.setObject("/elsewhere", key_velmFolderJobsPending));
    EXPECT_EQ(log_.count("observeValueForKeyPath:ofObject:change:context:"), 1u);
    EXPECT_FALSE(delegate.applicationOpenFile("/a/file"));
    EXPECT_TRUE(log_.has("request to open file /a/file"));
    AppDelegate::replaceWithExecutable("/no/such/program");
    EXPECT_TRUE(log_.has("Failed exec to /no/such/program with error No such file or directory"));
}

TEST_F(App, aJobIsTestedWithoutTheFoldersAndAnUnreadableOneGetsNoReply) {
    AppDelegate delegate;
    int replies = 0;
    std::optional<base::Error> replied;
    const auto reply = [&](const std::optional<base::Error>& error) { ++replies, replied = error; };
    delegate.testJobWithPath(home() / "nowhere.velm_job", reply);
    delegate.testJobWithPath(home().write("broken.xml", "<data"), reply);
    EXPECT_EQ(replies, 0);
    platform::run::RunLoop loop;
    delegate.testJobWithPath(
        home().write("job.xml", "<data type=\"VELM_Job\" version=\"1.0\"><package name=\"none\"/></data>"), reply);
    EXPECT_EQ(replies, 1);
    ASSERT_TRUE(replied);
    EXPECT_TRUE(log_.has(replied->localizedDescription));
}

TEST_F(App, oneEngineRunsWithTheSameSettings) {
    int ended = -1;
    std::string steps;
    const app::DuplicateHandling handling = {[&] { steps += "beep "; }, [&] { steps += "forward"; },
                                             [&](int status) { ended = status; }};
    {
        const auto held = app::checkForDuplicateRunningInstances(handling);
        ASSERT_TRUE(held);
        EXPECT_EQ(ended, -1);
        EXPECT_FALSE(app::checkForDuplicateRunningInstances(handling));
        EXPECT_EQ(ended, 0);
        EXPECT_EQ(steps, "beep forward");
        EXPECT_EQ(log_.count("already running an instance of our app bundleIdentifier..."), 1u);
    }
    EXPECT_TRUE(app::SingleInstance::take()) << "the right ends with its holder";
    home().write("File", "no folder");
    base::setPlaces(base::Places::below(home() / "File"));
    EXPECT_FALSE(app::checkForDuplicateRunningInstances(handling));
    EXPECT_THAT(log_.lines().back(), testing::HasSubstr(home() / "File"));
}

} // namespace
