#include "template/ValueForm.h"

#include "base/Geometry.h"
#include "base/MessageTemplate.h"
#include "base/Text.h"

#include <algorithm>
#include <array>

namespace grammar {
namespace {

bool isClearlyNo(std::string_view text) {
    text = base::trimmed(text);
    return text.empty() || std::string_view("nNfF0").find(text.front()) != std::string_view::npos;
}

std::array<double, 4> numbersOf(const std::string& text) {
    const base::Rect rect = base::rectFromString(text);
    return {rect.x, rect.y, rect.width, rect.height};
}

/// How many numbers the text holds, counted to 4: those that stay the same whatever follows the text.
int numberCount(const std::string& text) {
    const auto ones = numbersOf(text + " 1 1 1 1");
    const auto twos = numbersOf(text + " 2 2 2 2");
    return static_cast<int>(std::mismatch(ones.begin(), ones.end(), twos.begin()).first - ones.begin());
}

bool isColorCode(std::string_view code) {
    while (code.starts_with('#'))
        code.remove_prefix(1);
    constexpr std::array<std::size_t, 4> lengths{3, 4, 6, 8};
    return std::find(lengths.begin(), lengths.end(), code.size()) != lengths.end() &&
           code.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

} // namespace

bool isLedByNumber(std::string_view text) {
    text = base::trimmed(text);
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
    if (!text.empty() && text.front() == '.') text.remove_prefix(1);
    return !text.empty() && text.front() >= '0' && text.front() <= '9';
}

std::optional<std::string> faultOf(Form form, const std::string& text) {
    const auto missing = [&](int needed, std::string_view what) -> std::optional<std::string> {
        const int held = numberCount(text);
        if (held >= needed) return std::nullopt;
        return base::message("holds %d of the %d numbers of a %@", held, needed, what);
    };
    switch (form) {
    case Form::text:
        return std::nullopt;
    case Form::yesNo:
        if (base::boolValue(text) || isClearlyNo(text)) return std::nullopt;
        return "is neither yes nor no, and is read as no";
    case Form::number:
    case Form::integer:
        if (isLedByNumber(text)) return std::nullopt;
        return "does not begin with a number, and is read as 0";
    case Form::side:
        if (!isLedByNumber(text)) return "does not begin with a number, and is read as 0";
        if (base::doubleValue(text) > 0) return std::nullopt;
        return "is not above 0";
    case Form::point:
        return missing(2, "point");
    case Form::size: {
        if (auto fault = missing(2, "size")) return fault;
        const base::Size size = base::sizeFromString(text);
        if (size.width > 0 && size.height > 0) return std::nullopt;
        return "has a side that is not above 0";
    }
    case Form::frame:
        return missing(4, "rectangle");
    case Form::gravity:
        if (text == "resize" || text == "resizeAspect" || text == "resizeAspectFill") return std::nullopt;
        return "is unknown: resizeAspectFill is taken";
    case Form::color:
        if (isColorCode(text)) return std::nullopt;
        return "is no colour code such as #RRGGBB: black is taken";
    case Form::rectangle: {
        if (auto fault = missing(4, "rectangle")) return fault;
        const base::Rect rect = base::rectFromString(text);
        if (rect.width < 0 || rect.height < 0) return "is a rectangle with a negative side";
        if (rect.isEmpty()) return "is an empty rectangle";
        return std::nullopt;
    }
    }
    return std::nullopt;
}

} // namespace grammar
