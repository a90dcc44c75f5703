// User defaults: settings by key, one property list for each suite in the settings folder (`places().settings`). Each
// change goes to the disk at once, merged into what other processes wrote meanwhile, written aside and renamed.
// Changes are observed: those of this process at once, those of others soon after. Any thread. A suite's object lives
// as long as the process.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform::data {

class UserDefaults {
public:
    /// The suite of this system, "com.kestrune.VELM".
    static UserDefaults& standard();
    /// The suite of that name; its file is `<name>.plist`. A slash in the name is replaced by "_".
    static UserDefaults& suite(std::string_view name);

    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    const std::string& path() const;
    /// Why the file could not be read when the process began with it: its settings count as absent. The next write
    /// keeps a damaged file under another name.
    const std::optional<base::Error>& readingError() const;

    /// Reading never touches the disk. An absent key reads as nothing, no or 0; texts are read as numbers and
    /// booleans by base/Text.h.
    base::Value objectForKey(std::string_view key) const;
    std::optional<std::string> stringForKey(std::string_view key) const;
    bool boolForKey(std::string_view key) const;
    std::int64_t integerForKey(std::string_view key) const;
    double doubleForKey(std::string_view key) const;
    std::optional<base::Data> dataForKey(std::string_view key) const;
    base::Dictionary dictionaryRepresentation() const;

    /// Stores a value of a kind that property lists hold; nothing removes the key. A file that can't be written is
    /// logged and answered as an error: the value then holds in this process and goes along with the next write that
    /// succeeds. A value of another kind is an error and changes nothing.
    base::Result<void> setObject(const base::Value& value, std::string_view key);
    base::Result<void> removeObject(std::string_view key);
    /// Adds to the integer under the key, safely against other processes that do the same, and answers the sum.
    base::Result<std::int64_t> addToInteger(std::string_view key, std::int64_t amount);

    /// Ends the observation when it is destroyed, and waits for a callback that is just running on another thread; so
    /// a callback must not wait for the thread that ends its observation. It may end it itself.
    class Observation {
    public:
        Observation() = default;
        Observation(Observation&&) noexcept = default;
        Observation& operator=(Observation&& other) noexcept;
        ~Observation();
        void end();

    private:
        friend class UserDefaults;
        struct Record;
        explicit Observation(std::shared_ptr<Record> record) : record_(std::move(record)) {}
        std::shared_ptr<Record> record_;
    };
    using Callback = std::function<void(const base::Value& newValue)>;

    /// Calls back with the new value (nothing for a removed key) after each change to a different one: on the thread
    /// that sets it, before setObject returns, and on a thread of this class's own for a change by another process.
    /// Two threads that set the key may both be calling back at once.
    [[nodiscard]] Observation observe(std::string_view key, Callback callback);

    struct Implementation;

private:
    explicit UserDefaults(std::unique_ptr<Implementation> implementation);
    ~UserDefaults();
    std::unique_ptr<Implementation> implementation_;
};

} // namespace platform::data
