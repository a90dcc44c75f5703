#include "folders/VELM_FolderSet.h"

#include "folders/Coalescer.h"
#include "folders/DefaultsKeys.h"
#include "folders/DefaultsMirror.h"
#include "folders/FolderSetClass.h"

#include "base/Places.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/Clock.h"
#include "platform/run/Group.h"
#include "platform/run/MainQueue.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace std::chrono_literals;
using platform::data::UserDefaults;
using platform::run::ManualClock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

base::URL url(std::string_view path) {
    return base::URL::fileURLWithPath(path);
}

class TestSet final : public VELM_FolderSet {
public:
    TestSet(FolderSetClass& ownClass, std::string name, base::URL place)
        : VELM_FolderSet(std::move(name), std::move(place)), ownClass_(ownClass) {}
    TestSet(FolderSetClass& ownClass, const base::Dictionary& archived)
        : VELM_FolderSet(archived), ownClass_(ownClass) {}
    FolderSetClass& folderSetClass() const override { return ownClass_; }

private:
    FolderSetClass& ownClass_;
};

// A class like those of the job folders and the print-to-file sets. Each test has one of its own, with an empty list.
class TestClass final : public FolderSetClass {
public:
    TestClass(std::string name, bool usesOldNames)
        : FolderSetClass(
              std::move(name),
              [this](const base::Dictionary& archived) { return std::make_shared<TestSet>(*this, archived); }),
          usesOldNames_(usesOldNames) {}
    std::string keyForSavedFolderSets() const override { return "saved" + className(); }
    bool usesOldVELMNames() const override { return usesOldNames_; }

    int loads = 0;

protected:
    void didLoadFolderSets() override {
        folderSets(); // may use the list
        ++loads;
    }

private:
    const bool usesOldNames_;
};

class FolderSets : public ::testing::Test {
protected:
    FolderSets() {
        static const support::TemporaryDirectory home; // the settings live as long as the process
        base::setPlaces(base::Places::below(home.path().string()));
        platform::run::setClock(clock_);
    }
    ~FolderSets() override {
        pass(10s);
        platform::run::setClock(nullptr);
    }

    // Classes live as long as the process: observations and timers know them.
    TestClass& newClass(bool usesOldNames = false) {
        static int count = 0;
        return *new TestClass("Test" + std::to_string(++count), usesOldNames);
    }
    std::shared_ptr<TestSet> newSet(TestClass& ofClass, std::string name, std::string_view path = "/tmp") {
        return std::make_shared<TestSet>(ofClass, std::move(name), url(path));
    }
    void pass(std::chrono::milliseconds time) {
        for (std::chrono::milliseconds passed{0}; passed < time; passed += 50ms) {
            clock_->advance(50ms);
            folders::Coalescer::shared().queue()->sync([] {});
            loop_.drain();
        }
    }
    static std::vector<std::string> names(const FolderSetClass::FolderSets& sets) {
        std::vector<std::string> names;
        for (const auto& set : sets)
            names.push_back(set->name());
        return names;
    }

    platform::run::RunLoop loop_;
    const std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
    const support::LogCapture log_;
};

TEST_F(FolderSets, NumberNamesThatAreTaken) {
    struct Case {
        std::vector<std::string> taken;
        std::string name, valid;
    };
    const Case cases[] = {
        {{"Bar"}, "Foo", "Foo"},
        {{"Foo"}, "Foo", "Foo 1"},
        {{"foo", "FOO 1"}, "Foo", "Foo 2"},
        {{"Foo 9"}, "Foo 9", "Foo 10"},
        {{"Foo 12", "Foo 13"}, "Foo 12", "Foo 14"},
        {{"Foo12"}, "Foo12", "Foo12 1"},
        {{"Foo 1 "}, "Foo 1 ", "Foo 1  1"},
        {{"Foo 007"}, "Foo 007", "Foo 8"},
        {{" 7"}, " 7", " 8"},
        {{""}, "", " 1"},
        {{"Foo 9223372036854775807"}, "Foo 9223372036854775807", "Foo -9223372036854775808"},
    };
    for (const Case& each : cases) {
        TestClass& ofClass = newClass();
        FolderSetClass::FolderSets sets;
        for (const std::string& name : each.taken)
            sets.push_back(newSet(ofClass, name));
        ofClass.setFolderSets(sets);
        EXPECT_EQ(ofClass.validateName(each.name), each.valid);
        EXPECT_EQ(ofClass.validateName(std::nullopt), std::nullopt);
    }
}

TEST_F(FolderSets, AreAddedRenamedAndRemovedWithNotification) {
    TestClass& ofClass = newClass();
    std::string trace;
    const auto note = [&](const char* what) {
        return [&, what] { trace += what + std::to_string(ofClass.folderSets().size()) + ";"; };
    };
    const auto token = ofClass.observable().observe("folderSets", note("did"), note("will"));
    const auto set = newSet(ofClass, "Foo");
    const auto nameToken = set->observable().observe("name", note("name"));
    ofClass.addFolderSet(set);
    ofClass.addFolderSet(newSet(ofClass, "foo"));
    EXPECT_THAT(names(ofClass.folderSets()), ElementsAre("Foo", "foo 1"));
    EXPECT_EQ(ofClass.folderSetWithName("FOO 1"), ofClass.folderSets()[1]);
    EXPECT_EQ(ofClass.folderSetWithName("none"), nullptr);
    set->setName("Foo"); // its own name is taken, too
    ofClass.removeFolderSet(newSet(ofClass, "FOO 2"));
    EXPECT_THAT(names(ofClass.folderSets()), ElementsAre("foo 1"));
    EXPECT_EQ(trace, "will0;did1;will1;did2;name2;will2;did1;");
    EXPECT_TRUE(log_.has("+[VELM_FolderSet removeFolderSet:]:sender <Test"));
    EXPECT_EQ(ofClass.loads, 1);
}

TEST_F(FolderSets, AreSavedHalfASecondAfterTheLastChangeAndOfTheLastClassAlone) {
    TestClass& ofClass = newClass();
    TestClass& before = newClass();
    std::vector<std::string> mirrored;
    folders::setDefaultsMirror([&](const base::Value&, std::string_view key) { mirrored.emplace_back(key); });
    before.addFolderSet(newSet(before, "Foo"));
    const auto set = newSet(ofClass, "Foo", "/tmp/foo bar");
    set->setProperty("jobFileUTType", "public.xml");
    ofClass.addFolderSet(set);
    pass(400ms);
    set->setName("Bar");
    pass(450ms);
    EXPECT_FALSE(UserDefaults::standard().dataForKey(ofClass.keyForSavedFolderSets()));
    pass(50ms);
    EXPECT_TRUE(UserDefaults::standard().dataForKey(ofClass.keyForSavedFolderSets()));
    EXPECT_FALSE(UserDefaults::standard().dataForKey(before.keyForSavedFolderSets()));
    EXPECT_THAT(mirrored, ElementsAre(ofClass.keyForSavedFolderSets()));
    folders::setDefaultsMirror(nullptr);

    ofClass.setFolderSets({});
    ofClass.updateFromSavedData();
    const auto loaded = ofClass.folderSets();
    ASSERT_THAT(names(loaded), ElementsAre("Bar"));
    EXPECT_EQ(loaded[0]->className(), ofClass.className());
    EXPECT_EQ(loaded[0]->URL(), url("/tmp/foo bar"));
    EXPECT_EQ(loaded[0]->properties(), set->properties());
    EXPECT_NE(loaded[0]->uuid(), set->uuid());
}

TEST_F(FolderSets, TellTheirObserversOfSavedChanges) {
    TestClass& ofClass = newClass();
    auto observer = std::make_shared<int>(0);
    const auto other = std::make_shared<int>(0);
    std::string trace;
    ofClass.addObserver(observer, [&](const auto& sets) { trace += "a" + std::to_string(sets.size()) + ";"; });
    ofClass.addObserver(other, [&](const auto&) { trace += "replaced;"; });
    ofClass.addObserver(other, [&](const auto&) { trace += "b;"; });
    ofClass.addFolderSet(newSet(ofClass, "Foo")); // its saving changes the defaults, and that is observed
    pass(500ms);
    EXPECT_EQ(trace, "");
    pass(100ms);
    EXPECT_EQ(trace, "a1;b;");
    EXPECT_TRUE(log_.has("+[VELM_FolderSet updateFolderSets]_block_invoke"));

    observer.reset();
    ofClass.updateFolderSets();
    ofClass.updateFolderSets();
    pass(100ms);
    EXPECT_EQ(trace, "a1;b;b;");
    ofClass.removeObserver(other);
    ofClass.updateFolderSets();
    pass(100ms);
    EXPECT_EQ(trace, "a1;b;b;");
}

TEST_F(FolderSets, OfFixedNamesAreExactlyEight) {
    TestClass& ofClass = newClass(true);
    const base::Array saved{newSet(ofClass, "Path 3", "/three"), newSet(ofClass, "Mine"), newSet(ofClass, "Path 1"),
                            newSet(ofClass, "Path 3", "/again")};
    const auto data = platform::data::archivedData(saved);
    ASSERT_TRUE(data) << data.error().localizedDescription;
    ASSERT_TRUE(UserDefaults::standard().setObject(*data, ofClass.keyForSavedFolderSets()));
    const auto sets = ofClass.folderSets();
    EXPECT_THAT(names(sets),
                ElementsAre("Path 3", "Path 1", "Path 2", "Path 4", "Path 5", "Path 6", "Path 7", "Path 8"));
    EXPECT_EQ(sets[0]->URL(), url("/three"));
    EXPECT_EQ(sets[2]->URL(), url(base::places().home));
    EXPECT_EQ(sets[2]->className(), "VELM_FolderSet");
}

TEST_F(FolderSets, ThatCannotBeReadLeaveAnEmptyList) {
    for (const base::Value& stored :
         {base::Value(base::Data(std::string_view("rubbish"))), base::Value("text"),
          base::Value(platform::data::archivedData(base::Value(base::Array{"text"})).value())}) {
        TestClass& ofClass = newClass();
        ASSERT_TRUE(UserDefaults::standard().setObject(stored, ofClass.keyForSavedFolderSets()));
        EXPECT_THAT(ofClass.folderSets(), IsEmpty());
    }
    EXPECT_FALSE(log_.lines().empty());
}

TEST_F(FolderSets, CompareByClassAndName) {
    TestClass& ofClass = newClass();
    const auto set = newSet(ofClass, "Foo", "/a");
    set->setProperty("key", 7);
    const auto copy = set->copy();
    EXPECT_EQ(copy->className(), ofClass.className());
    EXPECT_EQ(copy->properties(), set->properties());
    EXPECT_EQ(copy->URL(), set->URL());
    EXPECT_NE(copy->uuid(), set->uuid());
    EXPECT_EQ(set->uuid(), set->uuid());

    const auto lowerCase = newSet(ofClass, "foo", "/b");
    EXPECT_TRUE(set->isEqual(*lowerCase));
    EXPECT_EQ(set->hash(), lowerCase->hash());
    EXPECT_FALSE(set->isEqual(*newSet(ofClass, "Bar")));
    EXPECT_FALSE(set->isEqual(*newSet(newClass(), "Foo")));
    const auto base = VELM_FolderSet::initWithName("Foo");
    EXPECT_TRUE(base->isEqual(*set));
    EXPECT_FALSE(set->isEqual(*base));
    EXPECT_EQ(base->description(), "<VELM_FolderSet>{name='Foo';path='" + base::places().home + "'}");
}

TEST_F(FolderSets, KeepABookmarkOfOtherVolumesOnly) {
    struct stat root {
    }, shared{};
    if (stat("/", &root) != 0 || stat("/dev/shm", &shared) != 0 || root.st_dev == shared.st_dev)
        GTEST_SKIP() << "no second volume";
    const std::string folder = "/dev/shm/velm-test-" + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    TestClass& ofClass = newClass();
    const auto set = newSet(ofClass, "Foo", "/usr");
    EXPECT_FALSE(set->bookmark());
    set->setURL(url(folder));
    EXPECT_TRUE(set->bookmark());
    EXPECT_FALSE(set->copy()->bookmark());
    EXPECT_EQ(set->URL(), url(folder));
    EXPECT_TRUE(log_.lines().empty());

    std::filesystem::remove(folder); // the volume is gone
    EXPECT_EQ(set->URL(), url(folder));
    EXPECT_TRUE(log_.has(folder));
    set->setURL(url("/usr"));
    EXPECT_FALSE(set->bookmark());
}

TEST_F(FolderSets, MayBeUsedFromManyThreads) {
    TestClass& ofClass = newClass();
    platform::run::Group group;
    const auto shared = newSet(ofClass, "Shared");
    for (int i = 0; i < 4; ++i)
        group.async(platform::run::Queue::global(), [&, i] {
            for (int j = 0; j < 20; ++j) {
                shared->setProperty("key", j);
                shared->setName("Name" + std::to_string(i));
                EXPECT_TRUE(shared->property("key"));
                EXPECT_FALSE(shared->uuid().empty());
                ofClass.addFolderSet(newSet(ofClass, "Set"));
                EXPECT_FALSE(ofClass.folderSets().empty());
            }
        });
    group.wait();
    EXPECT_EQ(ofClass.folderSets().size(), 80u);
    EXPECT_EQ(ofClass.loads, 1);
}

} // namespace
