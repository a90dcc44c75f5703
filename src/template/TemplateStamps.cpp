// Stamps: texts that are worked out when they are drawn.
#include "template/VELM_Template.h"

#include "base/Text.h"
#include "platform/data/Dates.h"
#include "template/VELM_EditableText.h"

#include <array>

namespace {

constexpr std::string_view customFilenamePart = "customfilenamepart";
constexpr std::string_view timeFormat = "h:mm:ss aa";

struct DateFormat {
    std::string_view name;
    std::string_view format;
};
// In the order in which they are offered; "custom" stands for any text that is no name.
constexpr std::array dateFormats{
    DateFormat{"shortDate", "MM-dd-yyyy"},
    DateFormat{"abrevDate", "EEE, MMM d, yyyy"},
    DateFormat{"longDate", "EEEE, MMMM d, yyyy"},
};

std::string dateText(const std::string& string) {
    for (const DateFormat& known : dateFormats) {
        if (string == known.name) return platform::data::stringWithUTSFormat(platform::data::now(), known.format);
    }
    return string;
}

// The key ends in the letter of the part, "a" to "e"; the parts of a file name stand between its underscores.
std::string filenamePart(const std::string& filename, const std::string& key) {
    const auto parts = base::split(base::deletingPathExtension(filename), "_");
    const std::string letter = base::lowercase(base::replacingAll(key, customFilenamePart, ""));
    if (letter.size() != 1 || letter[0] < 'a' || letter[0] > 'e') return {};
    const auto index = static_cast<std::size_t>(letter[0] - 'a');
    return index < parts.size() ? parts[index] : std::string();
}

} // namespace

std::vector<std::string_view> VELM_Template::stampFormats() const {
    std::vector<std::string_view> names;
    if (key() != "date") return names;
    for (const DateFormat& known : dateFormats)
        names.push_back(known.name);
    names.push_back("custom");
    return names;
}

std::optional<std::string> VELM_Template::stampFormat() const {
    if (auto stored = textOf(VELM_XML_Key_stampFormat)) return stored;
    const auto formats = stampFormats();
    return formats.empty() ? std::nullopt : std::optional<std::string>(formats.front());
}

std::optional<std::string> VELM_Template::stampValue() const {
    const auto string = stringValue();
    const auto key = keyPlaceholder();
    if (!key) return string;
    const auto keyIs = [&](std::string_view text) { return base::equalIgnoringCase(*key, text); };
    const auto runningPackage = package();
    const auto filename = [&]() -> std::optional<std::string> {
        auto path = filepathCustomImage();
        if (const auto job = runningPackage ? runningPackage->job() : nullptr; job && !path) path = job->graphicPath();
        return path ? std::optional(base::lastPathComponent(*path)) : std::nullopt;
    };

    if (keyIs("filename")) {
        if (!hideExtension()) return filename();
        return string ? std::optional(base::deletingPathExtension(*string)) : std::nullopt;
    }
    if (base::lowercase(*key).starts_with(customFilenamePart)) return filenamePart(filename().value_or(""), *key);
    if (keyIs("date")) return string ? std::optional(dateText(*string)) : std::nullopt;
    if (keyIs("time")) return platform::data::stringWithUTSFormat(platform::data::now(), timeFormat);
    if (keyIs("edittextbox")) {
        const auto number = textOf(VELM_XML_Key_stamp);
        if (!number) return std::nullopt;
        const auto stored = VELM_EditableText::editableTextForKey(*number);
        return stored ? stored : VELM_EditableText::editableTextForKey("text " + *number);
    }
    if (keyIs("packagename")) {
        const auto packageName = runningPackage ? runningPackage->name() : std::nullopt;
        return packageName ? packageName : key;
    }
    return string ? string : key;
}
