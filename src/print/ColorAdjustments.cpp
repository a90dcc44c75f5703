// Old colour settings as filters.
#include "KLARON_PrintPage.h"

#include "base/Log.h"

#include <algorithm>
#include <type_traits>
#include <variant>

using platform::filter::Filter;
using platform::filter::FilterRef;
using platform::filter::Filters;

namespace {

constexpr std::string_view settingPrefix = "colorAdjust";
constexpr std::string_view inputPrefix = "input";

// Entries of a translation: what an input is called, or this and what it is set to.
constexpr std::string_view translatedKey = "key";
constexpr std::string_view translatedValue = "value";

struct FilterSettings {
    std::string_view filterName;
    std::vector<std::string_view> keys;
    /// For a setting of this value.
    base::Dictionary (*translation)(double value);
};

base::Dictionary named(std::string_view key, base::Value value) {
    return {{std::string(translatedKey), base::Value(key)}, {std::string(translatedValue), std::move(value)}};
}

const std::vector<FilterSettings>& filterSettings() {
    static const auto none = [](double) { return base::Dictionary(); };
    static const std::vector<FilterSettings> table = {
        {"CIColorControls", {"Brightness", "Contrast", "Saturation"}, none},
        {"CIExposureAdjust",
         {"Exposure"},
         [](double) {
             return base::Dictionary{{"Exposure", "EV"}};
         }},
        {"CIHueAdjust",
         {"Hue"},
         [](double) {
             return base::Dictionary{{"Hue", "Angle"}};
         }},
        {"CIGammaAdjust",
         {"Gamma"},
         [](double) {
             return base::Dictionary{{"Gamma", "Power"}};
         }},
        {"CISharpenLuminance", {"Sharpness"}, none},
        {"CIColorMatrix",
         {"Red", "Green", "Blue"},
         [](double v) {
             return base::Dictionary{{"Red", named("RVector", base::Array{v, 0.0, 0.0, 0.0})},
                                     {"Green", named("GVector", base::Array{0.0, v, 0.0, 0.0})},
                                     {"Blue", named("BVector", base::Array{0.0, 0.0, v, 0.0})}};
         }},
    };
    return table;
}

std::string classNameOf(const base::Value& value) {
    return std::visit(
        [](const auto& content) -> std::string {
            using Content = std::decay_t<decltype(content)>;
            if constexpr (std::is_same_v<Content, base::ObjectRef>)
                return content->className();
            else if constexpr (std::is_same_v<Content, std::monostate>)
                return "NSNull";
            else if constexpr (std::is_arithmetic_v<Content>)
                return "NSNumber";
            else if constexpr (std::is_same_v<Content, std::string>)
                return "NSString";
            else if constexpr (std::is_same_v<Content, base::Data>)
                return "NSData";
            else if constexpr (std::is_same_v<Content, base::Date>)
                return "NSDate";
            else if constexpr (std::is_same_v<Content, base::URL>)
                return "NSURL";
            else if constexpr (std::is_same_v<Content, base::Array>)
                return "NSArray";
            else if constexpr (std::is_same_v<Content, base::Dictionary>)
                return "NSDictionary";
            else
                return "NSValue";
        },
        value.storage());
}

/// The number that a setting states; nothing for what is none.
base::Value numberOf(const base::Value& value) {
    if (value.isNumber()) return value;
    if (value.isText()) return value.doubleValue();
    base::log("bad value type (%@) passed via plist into %s", classNameOf(value),
              "-[KLARON_PrintPage filtersForOLDVELMColorAdjustments:]");
    return {};
}

} // namespace

FilterRef KLARON_PrintPage::filterNamed(std::string_view name, FilterCollection& collection) {
    const auto found =
        std::find_if(collection.begin(), collection.end(), [&](const FilterRef& held) { return held->name() == name; });
    if (found != collection.end()) return *found;
    FilterRef made = Filter::filterWithName(name);
    if (made) collection.push_back(made);
    return made;
}

bool KLARON_PrintPage::setFilterForKey(std::string_view key, const base::Value& value, FilterCollection& collection,
                                       std::string_view filterName, const std::vector<std::string_view>& possibleKeys,
                                       const base::Dictionary& translation) {
    if (value.isNothing() || std::find(possibleKeys.begin(), possibleKeys.end(), key) == possibleKeys.end())
        return false;
    const FilterRef filter = filterNamed(filterName, collection);
    if (!filter) return false;
    std::string input(key);
    base::Value content = value;
    const base::Value& entry = valueForKey(translation, key);
    if (const auto renamed = entry.text()) input = *renamed;
    if (const auto* both = entry.as<base::Dictionary>()) {
        if (const auto renamed = textForKey(*both, translatedKey)) input = *renamed;
        if (const base::Value& replaced = valueForKey(*both, translatedValue)) content = replaced;
    }
    filter->setInput(std::string(inputPrefix) + input, std::move(content));
    return false;
}

std::vector<Filters> KLARON_PrintPage::filtersForOLDVELMColorAdjustments(const base::Dictionary& adjustments) {
    FilterCollection collection;
    for (const auto& [name, setting] : adjustments) {
        std::string_view key = name;
        if (key.starts_with(settingPrefix)) key.remove_prefix(settingPrefix.size());
        const base::Value value = numberOf(setting);
        for (const FilterSettings& row : filterSettings())
            setFilterForKey(key, value, collection, row.filterName, row.keys, row.translation(value.doubleValue()));
    }
    return {collection};
}
