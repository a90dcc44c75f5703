// Tables of codes and what they are called.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace print {

template <class Code>
struct CodeName {
    Code code;
    std::string_view name;
};

/// The name of a code; nothing for one that is not in the table.
template <class Code, std::size_t count>
std::optional<std::string> nameForCode(const CodeName<Code> (&table)[count], std::type_identity_t<Code> code) {
    for (const CodeName<Code>& row : table)
        if (row.code == code) return std::string(row.name);
    return std::nullopt;
}

} // namespace print
