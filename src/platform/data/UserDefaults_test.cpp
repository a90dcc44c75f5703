#include "platform/data/UserDefaults.h"

#include "base/Places.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/PropertyList.h"
#include "support/TemporaryDirectory.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace platform::data {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds patience{20};

class UserDefaultsTest : public testing::Test {
protected:
    UserDefaultsTest() { useSettings("Settings"); }
    ~UserDefaultsTest() override { base::setPlaces(base::Places::standard()); }

    /// Takes the settings of another folder from here on.
    void useSettings(const std::string& name) const {
        base::Places places = base::Places::below(folder_.path().string());
        places.settings = folder_ / name;
        fs::create_directories(places.settings);
        base::setPlaces(places);
    }
    static UserDefaults& defaults() { return UserDefaults::standard(); }
    static base::Value onDisk() { return parsePropertyList(*readFileBytes(defaults().path())).value(); }

    /// Changes the file as another process does.
    static void writeFromOutside(const base::Dictionary& contents, const std::string& path = defaults().path()) {
        ASSERT_TRUE(writeFileAtomically(path, *propertyListData(contents, PropertyListFormat::binary)));
    }

    support::TemporaryDirectory folder_;
};

/// Collects what an observer hears, on whatever thread.
class Heard {
public:
    UserDefaults::Callback callback() {
        return [this](const base::Value& value) {
            const std::lock_guard lock(mutex_);
            values_.push_back(value);
            changed_.notify_all();
        };
    }
    bool waitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return values_.size() >= count; });
    }
    std::vector<base::Value> values() {
        const std::lock_guard lock(mutex_);
        return values_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<base::Value> values_;
};

TEST_F(UserDefaultsTest, StoresEachChangeOnTheDisk) {
    EXPECT_FALSE(defaults().objectForKey("k") || defaults().integerForKey("k") || defaults().stringForKey("k"));
    EXPECT_FALSE(fs::exists(defaults().path())) << "reading makes no file";
    ASSERT_TRUE(defaults().setObject("12 things", "count"));
    ASSERT_TRUE(defaults().setObject(base::Data("\x01\x02"), "data"));
    ASSERT_TRUE(defaults().setObject(base::Array{1, "two"}, "list"));
    EXPECT_EQ(defaults().integerForKey("count"), 12);
    EXPECT_EQ(defaults().dataForKey("data")->size(), 2u);
    EXPECT_EQ(onDisk(), base::Value(defaults().dictionaryRepresentation()));
    EXPECT_TRUE(readFileBytes(defaults().path())->starts_with("<?xml")) << "a person can read it";

    ASSERT_TRUE(defaults().removeObject("data"));
    ASSERT_TRUE(defaults().setObject(base::Value(), "list"));
    ASSERT_TRUE(defaults().setObject("a\x01 control character", "odd"));
    EXPECT_EQ(onDisk(), base::Value(base::Dictionary{{"count", "12 things"}, {"odd", "a\x01 control character"}}));

    EXPECT_FALSE(defaults().setObject(base::Array{base::URL::fileURLWithPath("/x")}, "url"));
    EXPECT_FALSE(defaults().objectForKey("url"));

    UserDefaults& other = UserDefaults::suite("com.example/../other");
    EXPECT_EQ(base::deletingLastPathComponent(other.path()), base::places().settings);
    EXPECT_EQ(&other, &UserDefaults::suite("com.example/../other"));
    EXPECT_TRUE(defaults().path().ends_with("/com.kestrune.VELM.plist"));
}

TEST_F(UserDefaultsTest, MergesIntoWhatOthersWrote) {
    ASSERT_TRUE(defaults().setObject(1, "mine"));
    writeFromOutside({{"mine", 1}, {"theirs", 2}});
    ASSERT_TRUE(defaults().setObject(3, "mine"));
    EXPECT_EQ(onDisk(), base::Value(base::Dictionary{{"mine", 3}, {"theirs", 2}}));
    EXPECT_EQ(defaults().integerForKey("theirs"), 2);
}

TEST_F(UserDefaultsTest, TellsObserversOfOwnChangesAtOnce) {
    Heard heard;
    auto observation = defaults().observe("k", heard.callback());
    ASSERT_TRUE(defaults().setObject(1, "k"));
    ASSERT_TRUE(defaults().setObject(1, "k"));
    ASSERT_TRUE(defaults().setObject(1, "another"));
    ASSERT_TRUE(defaults().removeObject("k"));
    EXPECT_EQ(heard.values(), (std::vector<base::Value>{1, base::Value()}));
    observation.end();
    ASSERT_TRUE(defaults().setObject(2, "k"));
    EXPECT_EQ(heard.values().size(), 2u);
}

TEST_F(UserDefaultsTest, ACallbackMayChangeSettingsAndEndItsObservation) {
    UserDefaults::Observation observation;
    int calls = 0;
    observation = defaults().observe("k", [&](const base::Value&) {
        ++calls;
        EXPECT_TRUE(defaults().setObject("from the callback", "other"));
        observation.end();
    });
    ASSERT_TRUE(defaults().setObject(1, "k"));
    ASSERT_TRUE(defaults().setObject(2, "k"));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(defaults().stringForKey("other"), "from the callback");
}

TEST_F(UserDefaultsTest, SeesChangesByOtherProcesses) {
    Heard flag;
    Heard untouched;
    const auto first = defaults().observe("flag", flag.callback());
    const auto second = defaults().observe("untouched", untouched.callback());
    writeFromOutside({{"flag", true}});
    ASSERT_TRUE(flag.waitFor(1));
    EXPECT_TRUE(defaults().boolForKey("flag"));
    fs::remove(defaults().path());
    ASSERT_TRUE(flag.waitFor(2));
    EXPECT_EQ(flag.values(), (std::vector<base::Value>{true, base::Value()}));
    EXPECT_TRUE(untouched.values().empty());
}

TEST_F(UserDefaultsTest, WatchesAFolderThatIsMadeLaterAndMadeAgain) {
    fs::remove_all(base::places().settings);
    Heard heard;
    const auto observation = UserDefaults::suite("late").observe("k", heard.callback());
    const std::string path = UserDefaults::suite("late").path();
    for (int round = 1; round <= 2; ++round) {
        fs::create_directories(base::places().settings);
        writeFromOutside({{"k", round}}, path);
        ASSERT_TRUE(heard.waitFor(static_cast<std::size_t>(2 * round - 1)));
        fs::remove_all(base::places().settings);
        ASSERT_TRUE(heard.waitFor(static_cast<std::size_t>(2 * round)));
    }
    EXPECT_EQ(heard.values(), (std::vector<base::Value>{1, base::Value(), 2, base::Value()}));
}

TEST_F(UserDefaultsTest, KeepsADamagedFile) {
    for (const std::string& rubbish : {std::string("<plist><dict><key>cut off"), std::string("bplist00\xFF\xFF", 10),
                                       std::string("<plist><array/></plist>"), std::string()}) {
        const std::string settings = "damaged" + std::to_string(rubbish.size());
        useSettings(settings);
        folder_.write(settings + "/com.kestrune.VELM.plist", rubbish);
        EXPECT_TRUE(defaults().dictionaryRepresentation().empty());
        ASSERT_TRUE(defaults().setObject(1, "k"));
        EXPECT_EQ(onDisk(), base::Value(base::Dictionary{{"k", 1}}));
        bool isKept = false;
        for (const auto& entry : fs::directory_iterator(base::places().settings)) {
            if (entry.path().string().find(".damaged-") != std::string::npos) {
                isKept = support::readFile(entry.path()) == rubbish;
            }
        }
        EXPECT_TRUE(isKept);
    }
}

TEST_F(UserDefaultsTest, HoldsWhatItCouldNotWriteAndWritesItLater) {
    // A file in the place of the folder stops writing, for root too.
    const std::string settings = base::places().settings;
    fs::remove_all(settings);
    folder_.write("Settings", "in the way");
    Heard heard;
    const auto observation = defaults().observe("k", heard.callback());
    EXPECT_FALSE(defaults().setObject(1, "k"));
    EXPECT_FALSE(defaults().addToInteger("k", 5));
    EXPECT_EQ(defaults().integerForKey("k"), 6);
    EXPECT_EQ(heard.values(), (std::vector<base::Value>{1, 6}));
    fs::remove(settings);
    ASSERT_TRUE(defaults().setObject("x", "other"));
    EXPECT_EQ(onDisk(), base::Value(base::Dictionary{{"k", 6}, {"other", "x"}}));
    EXPECT_EQ(heard.values().size(), 2u);
}

constexpr int additions = 25;

/// Runs in a process of its own, which the next test starts.
TEST(UserDefaultsChild, DISABLED_AddsToTheCounter) {
    const char* settings = std::getenv("VELM_TEST_SETTINGS");
    ASSERT_TRUE(settings);
    base::Places places = base::Places::below(settings);
    places.settings = settings;
    base::setPlaces(places);
    for (int round = 0; round < additions; ++round) {
        ASSERT_TRUE(UserDefaults::standard().addToInteger("counter", 1));
    }
}

TEST_F(UserDefaultsTest, CountsAcrossProcessesAndThreads) {
    setenv("VELM_TEST_SETTINGS", base::places().settings.c_str(), 1);
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    std::string filter = "--gtest_filter=UserDefaultsChild.*";
    std::string disabled = "--gtest_also_run_disabled_tests";
    std::string program = self;
    char* arguments[] = {program.data(), filter.data(), disabled.data(), nullptr};
    std::vector<pid_t> children(3);
    for (pid_t& child : children) {
        ASSERT_EQ(posix_spawn(&child, self.c_str(), nullptr, nullptr, arguments, environ), 0);
    }
    std::vector<std::thread> threads;
    for (int index = 0; index < 2; ++index) {
        threads.emplace_back([] {
            for (int round = 0; round < additions; ++round) {
                EXPECT_TRUE(defaults().addToInteger("counter", 1));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(defaults().addToInteger("counter", 0), 5 * additions);
    ASSERT_TRUE(defaults().setObject(std::numeric_limits<std::int64_t>::max(), "counter"));
    EXPECT_EQ(defaults().addToInteger("counter", 1), std::numeric_limits<std::int64_t>::max());
}

TEST_F(UserDefaultsTest, EndingWaitsForACallbackOnAnotherThread) {
    std::atomic<bool> isInside{false};
    std::atomic<bool> mayLeave{false};
    std::atomic<bool> hasLeft{false};
    auto observation = defaults().observe("k", [&](const base::Value&) {
        isInside = true;
        while (!mayLeave) {
            std::this_thread::yield();
        }
        hasLeft = true;
    });
    std::thread setter([] { EXPECT_TRUE(defaults().setObject(1, "k")); });
    while (!isInside) {
        std::this_thread::yield();
    }
    std::thread release([&] { mayLeave = true; });
    observation.end();
    EXPECT_TRUE(hasLeft);
    setter.join();
    release.join();
}

} // namespace
} // namespace platform::data
