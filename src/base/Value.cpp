#include "base/Value.h"

#include "base/Text.h"

#include <cmath>
#include <ctime>
#include <fmt/format.h>
#include <initializer_list>
#include <limits>

namespace base {

namespace {

template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>; // clang 14 does not deduce it

bool equalNumbers(const Value& left, const Value& right) {
    // Two integers compare exactly; a real on either side brings both to reals.
    if (left.as<double>() || right.as<double>()) return left.doubleValue() == right.doubleValue();
    return left.integerValue() == right.integerValue();
}

std::size_t combined(std::size_t seed, std::size_t hash) {
    return seed ^ (hash + 0x9e3779b97f4a7c15 + (seed << 6) + (seed >> 2));
}

std::size_t hashOfNumbers(std::initializer_list<double> numbers) {
    std::size_t hash = 0;
    for (const double number : numbers)
        hash = combined(hash, std::hash<double>()(number)); // 0 and -0 hash alike
    return hash;
}

/// Texts that are no plain word are quoted in the old style.
std::string quotedIfNeeded(const std::string& text) {
    const bool plain = !text.empty() && text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                               "0123456789_$/:.") == std::string::npos;
    if (plain) return text;
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') quoted += '\\';
        if (character == '\n')
            quoted += "\\n";
        else
            quoted += character;
    }
    return quoted + "\"";
}

std::string oldStyle(const Value& value, int depth);

std::string oldStyleList(const Array& array, int depth) {
    std::string text = "(\n";
    for (std::size_t i = 0; i < array.size(); ++i)
        text += std::string(4 * static_cast<std::size_t>(depth + 1), ' ') + oldStyle(array[i], depth + 1) +
                (i + 1 < array.size() ? ",\n" : "\n");
    return text + std::string(4 * static_cast<std::size_t>(depth), ' ') + ")";
}

std::string oldStyleDictionary(const Dictionary& dictionary, int depth) {
    std::string text = "{\n";
    for (const auto& [key, value] : dictionary)
        text += std::string(4 * static_cast<std::size_t>(depth + 1), ' ') + quotedIfNeeded(key) + " = " +
                oldStyle(value, depth + 1) + ";\n";
    return text + std::string(4 * static_cast<std::size_t>(depth), ' ') + "}";
}

std::string oldStyle(const Value& value, int depth) {
    if (const auto* array = value.as<Array>()) return oldStyleList(*array, depth);
    if (const auto* dictionary = value.as<Dictionary>()) return oldStyleDictionary(*dictionary, depth);
    return value.isText() ? quotedIfNeeded(*value.as<std::string>()) : value.description();
}

std::string dateDescription(Date date) {
    const std::time_t seconds = std::chrono::duration_cast<std::chrono::seconds>(
                                    std::chrono::floor<std::chrono::seconds>(date).time_since_epoch())
                                    .count();
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", parts.tm_year + 1900, parts.tm_mon + 1,
                       parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

} // namespace

std::optional<std::string> Value::text() const {
    const auto* held = as<std::string>();
    return held ? std::optional(*held) : std::nullopt;
}

std::string Value::textOr(std::string_view otherwise) const {
    const auto* held = as<std::string>();
    return held ? *held : std::string(otherwise);
}

double Value::doubleValue() const {
    return std::visit(
        Overloaded{[](bool value) { return value ? 1.0 : 0.0; },
                   [](std::int64_t value) { return static_cast<double>(value); }, [](double value) { return value; },
                   [](const std::string& value) { return base::doubleValue(value); }, [](const auto&) { return 0.0; }},
        storage_);
}

std::int64_t Value::integerValue() const {
    return std::visit(Overloaded{[](bool value) { return std::int64_t(value); },
                                 [](std::int64_t value) { return value; },
                                 [](double value) {
                                     if (std::isnan(value)) return std::int64_t(0);
                                     if (value >= 9223372036854775807.0)
                                         return std::numeric_limits<std::int64_t>::max();
                                     if (value <= -9223372036854775808.0)
                                         return std::numeric_limits<std::int64_t>::min();
                                     return static_cast<std::int64_t>(value);
                                 },
                                 [](const std::string& value) { return base::integerValue(value); },
                                 [](const auto&) { return std::int64_t(0); }},
                      storage_);
}

bool Value::boolValue() const {
    return std::visit(Overloaded{[](bool value) { return value; }, [](std::int64_t value) { return value != 0; },
                                 [](double value) { return value != 0; },
                                 [](const std::string& value) { return base::boolValue(value); },
                                 [](const auto&) { return false; }},
                      storage_);
}

std::optional<std::string> Value::stringValue() const {
    return std::visit(Overloaded{[](bool value) { return std::optional<std::string>(value ? "1" : "0"); },
                                 [](std::int64_t value) { return std::optional(std::to_string(value)); },
                                 [](double value) { return std::optional(shortestDecimal(value)); },
                                 [](const std::string& value) { return std::optional(value); },
                                 [](const auto&) { return std::optional<std::string>(); }},
                      storage_);
}

bool operator==(const Value& left, const Value& right) {
    if (left.isNumber() && right.isNumber()) return equalNumbers(left, right);
    const auto* leftObject = left.as<ObjectRef>();
    const auto* rightObject = right.as<ObjectRef>();
    if (leftObject && rightObject) return *leftObject == *rightObject || (*leftObject)->isEqual(**rightObject);
    return left.storage_ == right.storage_;
}

std::size_t Value::hash() const {
    if (isNumber()) return hashOfNumbers({doubleValue()}); // an integer equals the real that it rounds to
    return std::visit(Overloaded{[](std::monostate) { return std::size_t(0); },
                                 [](const std::string& value) { return std::hash<std::string>()(value); },
                                 [](const Data& value) { return std::hash<std::string_view>()(value.asText()); },
                                 [](Date value) { return std::hash<std::int64_t>()(value.time_since_epoch().count()); },
                                 [](const URL& value) { return std::hash<std::string>()(value.absoluteString()); },
                                 [](Point value) {
                                     return hashOfNumbers({value.x, value.y});
                                 },
                                 [](Size value) {
                                     return hashOfNumbers({value.width, value.height});
                                 },
                                 [](const Rect& value) {
                                     return hashOfNumbers({value.x, value.y, value.width, value.height});
                                 },
                                 [](const Array& value) {
                                     std::size_t hash = value.size();
                                     for (const Value& member : value)
                                         hash = combined(hash, member.hash());
                                     return hash;
                                 },
                                 [](const Dictionary& value) { return hashOf(value); },
                                 [](const ObjectRef& value) { return value ? value->hash() : 0; },
                                 [](const auto&) { return std::size_t(0); }}, // numbers, above
                      storage_);
}

std::size_t Value::hashOf(const Dictionary& dictionary) {
    std::size_t hash = dictionary.size();
    for (const auto& [key, member] : dictionary)
        hash = combined(combined(hash, std::hash<std::string>()(key)), member.hash());
    return hash;
}

std::string Value::description() const {
    return std::visit(
        Overloaded{[](std::monostate) { return std::string("(null)"); },
                   [](const Data& value) { return fmt::format("{{length = {}}}", value.size()); },
                   [](Date value) { return dateDescription(value); },
                   [](const URL& value) { return value.absoluteString(); },
                   [](Point value) { return stringFromPoint(value); }, [](Size value) { return stringFromSize(value); },
                   [](const Rect& value) { return stringFromRect(value); },
                   [](const Array& value) { return oldStyleList(value, 0); },
                   [](const Dictionary& value) { return oldStyleDictionary(value, 0); },
                   [](const ObjectRef& value) { return value ? value->description() : std::string("(null)"); },
                   [this](const auto&) { return stringValue().value_or(std::string()); }},
        storage_);
}

const Value& valueForKey(const Dictionary& dictionary, std::string_view key) {
    static const Value nothing;
    const auto entry = dictionary.find(key);
    return entry == dictionary.end() ? nothing : entry->second;
}

std::optional<std::string> textForKey(const Dictionary& dictionary, std::string_view key) {
    return valueForKey(dictionary, key).text();
}

} // namespace base
