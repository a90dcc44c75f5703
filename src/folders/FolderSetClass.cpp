#include "folders/FolderSetClass.h"

#include "folders/Coalescer.h"
#include "folders/DefaultsKeys.h"
#include "folders/DefaultsMirror.h"
#include "folders/VELM_FolderSet.h"

#include "base/Log.h"
#include "base/Text.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/MainQueue.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

using platform::data::UserDefaults;

namespace {

// A blank and digits at the end of a name: "Foo 12".
struct NumberedName {
    std::string stem;
    std::int64_t number = 0;

    static std::optional<NumberedName> of(const std::string& name) {
        const std::size_t blank = name.find_last_not_of("0123456789");
        if (blank == std::string::npos || name[blank] != ' ' || blank + 1 == name.size()) return std::nullopt;
        return NumberedName{name.substr(0, blank), base::integerValue(std::string_view(name).substr(blank + 1))};
    }

    std::int64_t nextNumber() const {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(number) + 1); // wraps round at the very end
    }
};

} // namespace

FolderSetClass::FolderSetClass(std::string className, Maker maker)
    : className_(std::move(className)), maker_(std::move(maker)) {
    platform::data::ArchivedClass archived;
    archived.name = className_;
    if (className_ != "VELM_FolderSet") archived.ancestors.push_back("VELM_FolderSet");
    archived.ancestors.push_back("NSObject");
    archived.keys = {{"self.properties", {"NSMutableDictionary"}},
                     {"self.name", {"NSString"}},
                     {"self.URL", {"NSURL"}},
                     {"self.bookmark", {"NSData"}}};
    archived.make = [make = maker_](const base::Dictionary& values) -> base::Result<base::ObjectRef> {
        return make(values);
    };
    platform::data::registerArchivedClass(std::move(archived));
}

FolderSetClass::~FolderSetClass() = default;

std::string FolderSetClass::keyForSavedFolderSets() const {
    return std::string(key_savedFolderSets);
}

void FolderSetClass::folderSetsPrivate() {
    bool isFirst = false;
    std::call_once(loaded_, [&] {
        isFirst = true;
        FolderSets sets = loadFolderSets();
        {
            std::lock_guard lock(mutex_);
            folderSets_ = std::move(sets);
        }
        observationFilesets_ = UserDefaults::standard().observe(keyForSavedFolderSets(),
                                                                [this](const base::Value&) { updateFolderSets(); });
    });
    if (isFirst) didLoadFolderSets();
}

FolderSetClass::FolderSets FolderSetClass::loadFolderSets() {
    FolderSets sets = folderSetsFromSavedData();
    return usesOldVELMNames() ? withOldVELMNames(sets) : sets;
}

FolderSetClass::FolderSetRef FolderSetClass::makeFolderSet(const std::string& name) {
    return VELM_FolderSet::initWithName(name);
}

FolderSetClass::FolderSets FolderSetClass::withOldVELMNames(const FolderSets& loaded) {
    std::vector<std::string> names;
    for (int number = 1; number <= 8; ++number)
        names.push_back("Path " + std::to_string(number));

    FolderSets sets;
    for (const FolderSetRef& set : loaded) {
        const auto found = std::find(names.begin(), names.end(), set->name());
        if (found == names.end()) continue;
        sets.push_back(set);
        names.erase(found);
    }
    for (const std::string& name : names)
        sets.push_back(makeFolderSet(name));
    return sets;
}

FolderSetClass::FolderSets FolderSetClass::folderSets() {
    folderSetsPrivate();
    std::lock_guard lock(mutex_);
    return folderSets_;
}

void FolderSetClass::setFolderSets(FolderSets folderSets) {
    folderSetsPrivate();
    std::lock_guard lock(mutex_);
    folderSets_ = std::move(folderSets);
}

void FolderSetClass::addFolderSet(const FolderSetRef& folderSet) {
    if (!folderSet) return;
    folderSetsPrivate();
    folderSet->setName(validateName(folderSet->name()).value_or(""));
    observable_.change(key_folderSets, [&] {
        std::lock_guard lock(mutex_);
        folderSets_.push_back(folderSet);
    });
    saveFolderSets();
}

void FolderSetClass::removeFolderSet(const FolderSetRef& folderSet) {
    base::log("%s:sender %@", "+[VELM_FolderSet removeFolderSet:]", folderSet);
    if (!folderSet) return;
    folderSetsPrivate();
    observable_.change(key_folderSets, [&] {
        std::lock_guard lock(mutex_);
        std::erase_if(folderSets_, [&](const FolderSetRef& each) { return folderSet->isEqual(*each); });
    });
    saveFolderSets();
}

FolderSetClass::FolderSetRef FolderSetClass::folderSetWithName(std::string_view name) {
    for (const FolderSetRef& set : folderSets())
        if (base::equalIgnoringCase(set->name(), name)) return set;
    return nullptr;
}

std::optional<std::string> FolderSetClass::validateName(std::optional<std::string> name) {
    if (!name) return name;
    const FolderSets sets = folderSets();
    const auto isTaken = [&] {
        return std::any_of(sets.begin(), sets.end(),
                           [&](const FolderSetRef& set) { return base::equalIgnoringCase(set->name(), *name); });
    };
    while (isTaken()) {
        const auto numbered = NumberedName::of(*name);
        const std::string stem = numbered ? numbered->stem : *name;
        name = base::message("%@ %ld", stem, numbered ? numbered->nextNumber() : 1);
    }
    return name;
}

void FolderSetClass::saveFolderSets() {
    folders::runOnceForKeyAfterWaiting("saveFolderSets", platform::run::mainQueue(), 0.5, [this] {
        // What can't be stored is logged there.
        if (const auto saved = saveNow(); !saved && saved.error().domain == base::cocoaErrorDomain)
            base::log("%@", saved.error());
    });
}

base::Result<void> FolderSetClass::saveNow() {
    const FolderSets sets = folderSets();
    const auto data = platform::data::archivedData(base::Array(sets.begin(), sets.end()));
    if (!data) return base::failure(data.error());
    const std::string key = keyForSavedFolderSets();
    const auto stored = UserDefaults::standard().setObject(*data, key);
    folders::setDefaultObject(*data, key);
    return stored;
}

void FolderSetClass::updateFolderSets() {
    folders::runOnceForKeyAfterWaiting("updateFolderSets", platform::run::mainQueue(), 0.1, [this] {
        base::log("%s", "+[VELM_FolderSet updateFolderSets]_block_invoke");
        const FolderSets sets = folderSets();
        std::vector<ObserverBlock> blocks;
        {
            std::lock_guard lock(mutex_);
            std::erase_if(mapObservers_, [](const Observer& each) { return each.observer.expired(); });
            for (const Observer& each : mapObservers_)
                blocks.push_back(each.block);
        }
        for (const ObserverBlock& block : blocks)
            block(sets);
    });
}

void FolderSetClass::updateFromSavedData() {
    setFolderSets(folderSetsFromSavedData());
}

base::Result<FolderSetClass::FolderSets> FolderSetClass::readSavedData() const {
    FolderSets sets;
    const auto data = UserDefaults::standard().dataForKey(keyForSavedFolderSets());
    if (!data || data->empty()) return sets;
    VELM_FolderSet::classObject(); // makes the base class known to archives
    const auto saved =
        platform::data::unarchived(*data, {"NSDictionary", "NSArray", "VELM_FolderSet", className_, "NSURL"});
    if (!saved) return base::failure(saved.error());
    if (const auto* array = saved->as<base::Array>())
        for (const base::Value& element : *array)
            if (auto set = element.object<VELM_FolderSet>()) sets.push_back(std::move(set));
    return sets;
}

FolderSetClass::FolderSets FolderSetClass::folderSetsFromSavedData() const {
    auto sets = readSavedData();
    if (!sets) base::log("%@", sets.error());
    return std::move(sets).value_or(FolderSets());
}

void FolderSetClass::addObserver(const std::shared_ptr<const void>& observer, ObserverBlock block) {
    removeObserver(observer);
    std::lock_guard lock(mutex_);
    mapObservers_.push_back({observer, observer.get(), std::move(block)});
}

void FolderSetClass::removeObserver(const std::shared_ptr<const void>& observer) {
    std::lock_guard lock(mutex_);
    std::erase_if(mapObservers_,
                  [&](const Observer& each) { return each.observer.expired() || each.identity == observer.get(); });
}
