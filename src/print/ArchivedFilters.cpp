#include "ArchivedFilters.h"

#include "base/Geometry.h"
#include "platform/data/KeyedArchive.h"
#include "platform/filter/Filter.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

using platform::data::ArchivedClass;
using platform::data::registerArchivedClass;
using platform::filter::Filter;
using platform::filter::FilterRef;

namespace {

constexpr std::string_view inputPrefix = "CI_";
constexpr std::string_view nameKey = "CIName";
constexpr std::string_view countKey = "CICount";
constexpr std::string_view rectKey = "CIVector"; // in its place in the oldest archives
constexpr std::int64_t vectorLength = 4;

std::string componentKey(std::int64_t index) {
    return std::string(inputPrefix) + std::to_string(index);
}

/// A vector on its way out of an archive.
struct ArchivedVector : base::Object {
    explicit ArchivedVector(base::Array numbers) : components(std::move(numbers)) {}
    std::string className() const override { return "CIVector"; }
    base::Array components;
};

base::Result<base::ObjectRef> vectorFromArchive(const base::Dictionary& values) {
    const std::int64_t count = base::valueForKey(values, countKey).integerValue();
    if (count < 0 || count > vectorLength)
        return base::failure(base::cocoaErrorDomain, 4864,
                             "The archive can't be read: a CIVector of " + std::to_string(count) + " numbers");
    base::Array components(vectorLength, 0.0);
    if (const auto text = base::textForKey(values, rectKey)) {
        const base::Rect rect = base::rectFromString(*text);
        components = {rect.x, rect.y, rect.width, rect.height};
    }
    for (std::int64_t index = 0; index < count; ++index)
        if (const base::Value& component = base::valueForKey(values, componentKey(index)))
            components[static_cast<std::size_t>(index)] = component.doubleValue();
    return std::make_shared<ArchivedVector>(std::move(components));
}

base::Result<base::ObjectRef> filterFromArchive(std::string_view name, const base::Dictionary& values) {
    const FilterRef filter = Filter::filterWithName(name);
    if (!filter)
        return base::failure(base::cocoaErrorDomain, 4864,
                             "The archive can't be read: the filter " + std::string(name) + " is not known");
    for (const auto& [key, value] : values) {
        if (!key.starts_with(inputPrefix)) continue;
        const auto vector = value.object<ArchivedVector>();
        filter->setInput(std::string_view(key).substr(inputPrefix.size()),
                         vector ? base::Value(vector->components) : value);
    }
    return filter;
}

/// The keys under which a filter's inputs stand, with the classes that they are of.
std::map<std::string, std::vector<std::string>, std::less<>> archivedInputs(const Filter& filter) {
    std::map<std::string, std::vector<std::string>, std::less<>> keys;
    for (const auto& [key, value] : filter.inputs())
        keys.emplace(std::string(inputPrefix) + key,
                     std::vector<std::string>{value.as<base::Array>() ? "CIVector" : "NSNumber"});
    return keys;
}

} // namespace

void registerArchivedFilters() {
    ArchivedClass vector;
    vector.name = "CIVector";
    vector.ancestors = {"NSObject"};
    vector.keys = {{std::string(countKey), {}}, {std::string(rectKey), {"NSString"}}};
    for (std::int64_t index = 0; index < vectorLength; ++index)
        vector.keys.emplace(componentKey(index), std::vector<std::string>());
    vector.make = vectorFromArchive;
    registerArchivedClass(std::move(vector));

    // The common class, for archives in which the name alone tells the filter.
    ArchivedClass common;
    common.name = "CIFilter";
    common.ancestors = {"NSObject"};
    common.keys = {{std::string(nameKey), {"NSString"}}};
    for (const std::string_view name : Filter::names()) {
        ArchivedClass own;
        own.name = name;
        own.ancestors = {"CIFilter", "NSObject"};
        own.keys = archivedInputs(*Filter::filterWithName(name));
        common.keys.insert(own.keys.begin(), own.keys.end());
        own.make = [name](const base::Dictionary& values) { return filterFromArchive(name, values); };
        own.numbersAreObjects = true;
        registerArchivedClass(std::move(own));
    }
    common.make = [](const base::Dictionary& values) {
        return filterFromArchive(base::valueForKey(values, nameKey).textOr(""), values);
    };
    registerArchivedClass(std::move(common));
}
