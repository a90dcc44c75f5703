// The typed filling of message templates. Every message of the system is a template with the places %@ %s %d %i %u
// %ld %lu %lx %x %X %f %g and their widths and precisions; a search for a logged line's words finds its template.
// Pure functions, any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace base {

/// One thing to fill in. Absent things (no text, a null object, nothing) print "(null)" under %@ and %s.
class Argument {
public:
    Argument(std::nullptr_t) {}
    Argument(std::nullopt_t) {}
    Argument(const char* text) : storage_(text ? Storage(std::string(text)) : Storage()) {}
    Argument(std::string_view text) : storage_(std::string(text)) {}
    Argument(const std::string& text) : storage_(text) {}
    Argument(bool value) : storage_(static_cast<long long>(value)) {}
    template <class Number>
    requires std::is_integral_v<Number> Argument(Number value) {
        if constexpr (std::is_signed_v<Number>)
            storage_ = static_cast<long long>(value);
        else
            storage_ = static_cast<unsigned long long>(value);
    }
    Argument(double value) : storage_(value) {}
    Argument(const Error& error) : storage_(error.localizedDescription) {}
    Argument(const Value& value) : storage_(value.description()) {}
    Argument(const URL& url) : storage_(url.absoluteString()) {}
    Argument(const Object& object) : storage_(object.description()) {}
    template <class T>
    requires std::is_base_of_v<Object, T> Argument(const std::shared_ptr<T>& object) {
        if (object) storage_ = object->description();
    }
    template <class T>
    Argument(const std::optional<T>& value) {
        if (value) *this = Argument(*value);
    }

    using Storage = std::variant<std::monostate, std::string, long long, unsigned long long, double>;
    const Storage& storage() const { return storage_; }

private:
    Storage storage_;
};

/// The template with its places filled in order. A place without an argument prints "(null)"; a surplus argument is
/// dropped; an argument that does not fit its place is printed by its own kind.
std::string messageFromTemplate(std::string_view messageTemplate, std::initializer_list<Argument> arguments);

template <class... Arguments>
std::string message(std::string_view messageTemplate, const Arguments&... arguments) {
    return messageFromTemplate(messageTemplate, {Argument(arguments)...});
}

} // namespace base
