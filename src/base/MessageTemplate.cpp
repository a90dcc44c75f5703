#include "base/MessageTemplate.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace base {

namespace {

std::string plainText(const Argument& argument) {
    if (const auto* text = std::get_if<std::string>(&argument.storage())) return *text;
    if (const auto* number = std::get_if<long long>(&argument.storage())) return std::to_string(*number);
    if (const auto* number = std::get_if<unsigned long long>(&argument.storage())) return std::to_string(*number);
    if (const auto* number = std::get_if<double>(&argument.storage())) return shortestDecimal(*number);
    return "(null)";
}

/// One number printed by the C library, which knows the flags, widths and precisions of a place.
template <class Number>
std::string printed(const std::string& place, Number number) {
    std::array<char, 512> buffer{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(buffer.data(), buffer.size(), place.c_str(), number);
#pragma GCC diagnostic pop
    if (length < 0) return {};
    return {buffer.data(), std::min(static_cast<std::size_t>(length), buffer.size() - 1)};
}

std::string filled(const std::string& flags, char conversion, const Argument& argument) {
    static constexpr std::string_view integers = "diouxX";
    static constexpr std::string_view reals = "fFgGeE";
    const auto& storage = argument.storage();
    if (integers.find(conversion) != std::string_view::npos) {
        const std::string place = "%" + flags + "ll" + conversion;
        if (const auto* number = std::get_if<long long>(&storage)) return printed(place, *number);
        if (const auto* number = std::get_if<unsigned long long>(&storage)) return printed(place, *number);
    } else if (reals.find(conversion) != std::string_view::npos) {
        const std::string place = "%" + flags + conversion;
        if (const auto* number = std::get_if<double>(&storage)) return printed(place, *number);
        if (const auto* number = std::get_if<long long>(&storage)) return printed(place, static_cast<double>(*number));
    }
    return plainText(argument);
}

} // namespace

std::string messageFromTemplate(std::string_view messageTemplate, std::initializer_list<Argument> arguments) {
    static const Argument absent(nullptr);
    std::string text;
    auto next = arguments.begin();
    for (std::size_t at = 0; at < messageTemplate.size(); ++at) {
        const char character = messageTemplate[at];
        if (character != '%' || at + 1 == messageTemplate.size()) {
            text += character;
            continue;
        }
        if (messageTemplate[at + 1] == '%') {
            text += '%';
            ++at;
            continue;
        }
        const std::size_t start = at + 1;
        const std::size_t flagsEnd = messageTemplate.find_first_not_of("0123456789.+-# ", start);
        const std::size_t end = flagsEnd == std::string_view::npos
                                    ? std::string_view::npos
                                    : messageTemplate.find_first_not_of("hlqLzjt", flagsEnd);
        if (end == std::string_view::npos) {
            text += messageTemplate.substr(at);
            break;
        }
        const Argument& argument = next == arguments.end() ? absent : *next++;
        text += filled(std::string(messageTemplate.substr(start, flagsEnd - start)), messageTemplate[end], argument);
        at = end;
    }
    return text;
}

} // namespace base
