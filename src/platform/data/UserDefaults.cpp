#include "platform/data/UserDefaults.h"

#include "base/Log.h"
#include "base/Places.h"
#include "base/Text.h"
#include "internal/DefaultsFile.h"
#include "internal/DefaultsWatcher.h"
#include "platform/data/PropertyList.h"

#include <algorithm>
#include <condition_variable>
#include <limits>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace platform::data {
namespace {

constexpr std::string_view standardSuite = "com.kestrune.VELM";

void assign(base::Dictionary& contents, const std::string& key, const base::Value& value) {
    if (value.isNothing())
        contents.erase(key);
    else
        contents.insert_or_assign(key, value);
}

std::int64_t saturatingSum(std::int64_t left, std::int64_t right) {
    std::int64_t sum;
    if (!__builtin_add_overflow(left, right, &sum)) return sum;
    using Limits = std::numeric_limits<std::int64_t>;
    return right > 0 ? Limits::max() : Limits::min();
}

} // namespace

/// An observation as the notifying threads see it.
struct UserDefaults::Observation::Record {
    Record(std::string observedKey, Callback observer) : key(std::move(observedKey)), callback(std::move(observer)) {}

    void call(const base::Value& value) {
        {
            const std::lock_guard lock(mutex);
            if (hasEnded) return;
            calling.push_back(std::this_thread::get_id());
        }
        callback(value);
        const std::lock_guard lock(mutex);
        calling.erase(std::find(calling.begin(), calling.end(), std::this_thread::get_id()));
        idle.notify_all();
    }

    void end() {
        std::unique_lock lock(mutex);
        hasEnded = true;
        const bool isInside = std::find(calling.begin(), calling.end(), std::this_thread::get_id()) != calling.end();
        if (!isInside) idle.wait(lock, [this] { return calling.empty(); });
    }

    const std::string key;
    const Callback callback;
    std::mutex mutex; // never held during a callback
    std::condition_variable idle;
    bool hasEnded = false;
    std::vector<std::thread::id> calling;
};

struct UserDefaults::Implementation {
    using Record = Observation::Record;
    using Notices = std::vector<std::pair<std::shared_ptr<Record>, base::Value>>;
    using Edit = std::function<base::Value(const base::Value& present)>;

    explicit Implementation(std::string path) : file(std::move(path)) {
        generation = file.generation();
        if (auto stored = file.read())
            contents = std::move(*stored);
        else
            readingError = stored.error();
        if (readingError) base::log("ERROR: %@", *readingError);
    }

    /// What readers see. Called with the state locked.
    const base::Value& value(std::string_view key) const {
        const auto own = unsaved.find(key);
        return own == unsaved.end() ? base::valueForKey(contents, key) : own->second;
    }

    base::Value lockedValue(std::string_view key) const {
        const std::lock_guard lock(stateMutex);
        return value(key);
    }

    /// Puts a new state in place and tells what observers must hear of it.
    Notices accept(base::Dictionary newContents, base::Dictionary newUnsaved, std::string newGeneration) {
        const std::lock_guard lock(stateMutex);
        std::vector<base::Value> before;
        const std::vector<std::shared_ptr<Record>> records = liveRecords();
        for (const auto& record : records) {
            before.push_back(value(record->key));
        }
        contents = std::move(newContents);
        unsaved = std::move(newUnsaved);
        generation = std::move(newGeneration);
        Notices notices;
        for (std::size_t index = 0; index < records.size(); ++index) {
            const base::Value& after = value(records[index]->key);
            if (!(after == before[index])) notices.emplace_back(records[index], after);
        }
        return notices;
    }

    std::vector<std::shared_ptr<Record>> liveRecords() {
        std::vector<std::shared_ptr<Record>> live;
        std::erase_if(observers, [&](const std::weak_ptr<Record>& observer) {
            auto record = observer.lock();
            if (record) live.push_back(std::move(record));
            return observer.expired();
        });
        return live;
    }

    static void tell(const Notices& notices) {
        for (const auto& [record, value] : notices) {
            record->call(value);
        }
    }

    base::Result<base::Value> change(const std::string& key, const Edit& edit) {
        base::Value changed;
        base::Result<void> outcome;
        Notices notices;
        {
            const std::lock_guard writing(writeMutex);
            auto state = file.update([&](base::Dictionary& stored) {
                for (const auto& [unsavedKey, unsavedValue] : unsaved) {
                    assign(stored, unsavedKey, unsavedValue);
                }
                changed = edit(base::valueForKey(stored, key));
                assign(stored, key, changed);
            });
            if (state) {
                notices = accept(std::move(state->contents), {}, std::move(state->generation));
            } else {
                outcome = base::failure(state.error());
                changed = edit(lockedValue(key));
                base::Dictionary held = unsaved;
                held.insert_or_assign(key, changed);
                notices = accept(contents, std::move(held), generation);
            }
        }
        if (!outcome) base::log("ERROR: %@", outcome.error());
        tell(notices);
        if (!outcome) return base::failure(std::move(outcome.error()));
        return changed;
    }

    /// Reads the file again if another process has changed it.
    void look() {
        Notices notices;
        {
            const std::lock_guard writing(writeMutex);
            // Asked before reading: a change in between is then seen at the next look.
            std::string present = file.generation();
            if (present == generation) return;
            auto stored = file.read();
            if (!stored) base::log("ERROR: %@", stored.error());
            notices = accept(stored ? std::move(*stored) : contents, unsaved, std::move(present));
        }
        tell(notices);
    }

    const DefaultsFile file;
    std::optional<base::Error> readingError; // of the first reading
    std::mutex writeMutex;                   // one writer or reader of the file at a time; taken before stateMutex
    mutable std::mutex stateMutex;           // guards what follows; written only by whoever holds both
    base::Dictionary contents;               // what stands in the file
    base::Dictionary unsaved;                // what could not be written; nothing for a removed key
    std::string generation;
    std::vector<std::weak_ptr<Record>> observers;
};

UserDefaults::Observation& UserDefaults::Observation::operator=(Observation&& other) noexcept {
    if (this != &other) {
        end();
        record_ = std::move(other.record_);
    }
    return *this;
}

UserDefaults::Observation::~Observation() {
    end();
}

void UserDefaults::Observation::end() {
    if (const auto record = std::exchange(record_, nullptr)) record->end();
}

UserDefaults::UserDefaults(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

UserDefaults::~UserDefaults() = default;

UserDefaults& UserDefaults::standard() {
    return suite(standardSuite);
}

UserDefaults& UserDefaults::suite(std::string_view name) {
    // Never destroyed: settings are asked for until the very end of the process.
    static auto& mutex = *new std::mutex;
    static auto& suites = *new std::map<std::string, UserDefaults*>;
    const std::string path =
        base::appendingPathComponent(base::places().settings, base::replacingAll(name, "/", "_") + ".plist");
    const std::lock_guard lock(mutex);
    UserDefaults*& suite = suites[path];
    if (!suite) {
        auto implementation = std::make_unique<Implementation>(path);
        Implementation* watched = implementation.get();
        suite = new UserDefaults(std::move(implementation));
        DefaultsWatcher::shared().watch(base::deletingLastPathComponent(path), [watched] { watched->look(); });
    }
    return *suite;
}

const std::string& UserDefaults::path() const {
    return implementation_->file.path();
}

const std::optional<base::Error>& UserDefaults::readingError() const {
    return implementation_->readingError;
}

base::Value UserDefaults::objectForKey(std::string_view key) const {
    return implementation_->lockedValue(key);
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
    return objectForKey(key).stringValue();
}

bool UserDefaults::boolForKey(std::string_view key) const {
    return objectForKey(key).boolValue();
}

std::int64_t UserDefaults::integerForKey(std::string_view key) const {
    return objectForKey(key).integerValue();
}

double UserDefaults::doubleForKey(std::string_view key) const {
    return objectForKey(key).doubleValue();
}

std::optional<base::Data> UserDefaults::dataForKey(std::string_view key) const {
    const base::Value value = objectForKey(key);
    const auto* data = value.as<base::Data>();
    return data ? std::optional(*data) : std::nullopt;
}

base::Dictionary UserDefaults::dictionaryRepresentation() const {
    const std::lock_guard lock(implementation_->stateMutex);
    base::Dictionary all = implementation_->contents;
    for (const auto& [key, value] : implementation_->unsaved) {
        assign(all, key, value);
    }
    return all;
}

base::Result<void> UserDefaults::setObject(const base::Value& value, std::string_view key) {
    const base::Value checked = value.isNothing() ? base::Value(base::Dictionary()) : value;
    auto storable = propertyListData(base::Dictionary{{std::string(key), checked}}, PropertyListFormat::binary);
    if (!storable) return base::failure(std::move(storable.error()));
    auto changed = implementation_->change(std::string(key), [&](const base::Value&) { return value; });
    if (!changed) return base::failure(std::move(changed.error()));
    return {};
}

base::Result<void> UserDefaults::removeObject(std::string_view key) {
    return setObject({}, key);
}

base::Result<std::int64_t> UserDefaults::addToInteger(std::string_view key, std::int64_t amount) {
    const auto changed = implementation_->change(std::string(key), [&](const base::Value& present) {
        return base::Value(saturatingSum(present.integerValue(), amount));
    });
    if (!changed) return base::failure(changed.error());
    return changed->integerValue();
}

UserDefaults::Observation UserDefaults::observe(std::string_view key, Callback callback) {
    auto record = std::make_shared<Observation::Record>(std::string(key), std::move(callback));
    const std::lock_guard lock(implementation_->stateMutex);
    implementation_->observers.push_back(record);
    return Observation(std::move(record));
}

} // namespace platform::data
