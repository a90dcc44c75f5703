// Value: the one variant in which attributes, settings and archives are held. Deep equality, copying, archiving and
// the property-list form are written once against it. Arrays and dictionaries are values too (copying copies them);
// objects are shared. Not synchronized: a value that several threads read must not be written.
#pragma once

#include "base/Geometry.h"
#include "base/Path.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace base {

class Value;

using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;
using Date = std::chrono::sys_time<std::chrono::nanoseconds>;

/// Bytes, as they stand in files and settings.
struct Data {
    std::vector<std::uint8_t> bytes;
    Data() = default;
    explicit Data(std::vector<std::uint8_t> content) : bytes(std::move(content)) {}
    explicit Data(std::string_view text) : bytes(text.begin(), text.end()) {}
    std::size_t size() const { return bytes.size(); }
    bool empty() const { return bytes.empty(); }
    std::string_view asText() const { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
    friend bool operator==(const Data&, const Data&) = default;
};

/// What a class must answer to be held in a Value, compared, printed and archived.
class Object {
public:
    virtual ~Object() = default;
    /// The name under which it is archived and logged ("VELM_Template").
    virtual std::string className() const = 0;
    virtual bool isEqual(const Object& other) const { return this == &other; }
    /// Equal objects hash alike: a class that overrides isEqual overrides this too.
    virtual std::size_t hash() const { return std::hash<const Object*>()(this); }
    virtual std::string description() const { return "<" + className() + ">"; }
    /// The archived form: each key with its value, which may hold further objects. Nothing for a class that does not
    /// offer coding. Not const: coding may drop what can't be coded from the live object.
    virtual std::optional<Dictionary> encoded() { return std::nullopt; }
};
using ObjectRef = std::shared_ptr<Object>;

class Value {
public:
    using Storage = std::variant<std::monostate, bool, std::int64_t, double, std::string, Data, Date, URL, Point, Size,
                                 Rect, Array, Dictionary, ObjectRef>;

    Value() = default;
    Value(std::nullopt_t) {}
    Value(bool value) : storage_(value) {}
    template <class Integer>
    requires(std::is_integral_v<Integer> && !std::is_same_v<Integer, bool>) Value(Integer value)
        : storage_(static_cast<std::int64_t>(value)) {}
    Value(double value) : storage_(value) {}
    Value(const char* text) : storage_(std::string(text)) {}
    Value(std::string_view text) : storage_(std::string(text)) {}
    Value(std::string text) : storage_(std::move(text)) {}
    Value(Data data) : storage_(std::move(data)) {}
    Value(Date date) : storage_(date) {}
    Value(URL url) : storage_(std::move(url)) {}
    Value(Point point) : storage_(point) {}
    Value(Size size) : storage_(size) {}
    Value(Rect rect) : storage_(rect) {}
    Value(Array array) : storage_(std::move(array)) {}
    Value(Dictionary dictionary) : storage_(std::move(dictionary)) {}
    /// A null pointer is nothing.
    template <class T>
    requires std::is_base_of_v<Object, T> Value(std::shared_ptr<T> object) {
        if (object) storage_ = ObjectRef(std::move(object));
    }
    template <class T>
    Value(const std::optional<T>& value) {
        if (value) *this = Value(*value);
    }

    bool isNothing() const { return std::holds_alternative<std::monostate>(storage_); }
    explicit operator bool() const { return !isNothing(); }

    /// The content when it is of that kind, else null. `as<std::string>()`, `as<Array>()`, `as<Rect>()`...
    template <class T>
    const T* as() const {
        return std::get_if<T>(&storage_);
    }
    template <class T>
    T* as() {
        return std::get_if<T>(&storage_);
    }
    /// The object when it is of that class, else null.
    template <class T>
    std::shared_ptr<T> object() const {
        const ObjectRef* held = std::get_if<ObjectRef>(&storage_);
        return held ? std::dynamic_pointer_cast<T>(*held) : nullptr;
    }

    bool isText() const { return as<std::string>() != nullptr; }
    bool isNumber() const { return as<bool>() || as<std::int64_t>() || as<double>(); }
    /// The text when this is one.
    std::optional<std::string> text() const;
    std::string textOr(std::string_view otherwise) const;
    /// Numbers as they are, texts as base/Text.h reads them, everything else 0 or false.
    double doubleValue() const;
    std::int64_t integerValue() const;
    bool boolValue() const;
    /// Texts as they are, numbers in decimal; nothing for everything else.
    std::optional<std::string> stringValue() const;

    /// Deep equality. Numbers compare by value across their kinds; objects by isEqual.
    friend bool operator==(const Value& left, const Value& right);
    /// Equal values hash alike, whatever the kinds of their numbers.
    std::size_t hash() const;
    static std::size_t hashOf(const Dictionary& dictionary);

    /// What "%@" prints: "(null)" for nothing, texts as they are, lists and dictionaries in the old style.
    std::string description() const;

    const Storage& storage() const { return storage_; }

private:
    Storage storage_;
};

/// The entry under a key, or nothing.
const Value& valueForKey(const Dictionary& dictionary, std::string_view key);
/// The text under a key when there is one.
std::optional<std::string> textForKey(const Dictionary& dictionary, std::string_view key);

} // namespace base
