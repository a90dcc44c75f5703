#include "ArchivedClasses.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <shared_mutex>

namespace platform::data {
namespace {

std::shared_mutex classesMutex;

std::map<std::string, std::shared_ptr<const ArchivedClass>, std::less<>>& classes() {
    static auto& table = *new std::map<std::string, std::shared_ptr<const ArchivedClass>, std::less<>>;
    return table;
}

} // namespace

void registerArchivedClass(ArchivedClass archivedClass) {
    auto entry = std::make_shared<const ArchivedClass>(std::move(archivedClass));
    const std::unique_lock lock(classesMutex);
    classes().insert_or_assign(entry->name, entry);
}

std::shared_ptr<const ArchivedClass> archivedClassNamed(std::string_view name) {
    const std::shared_lock lock(classesMutex);
    const auto entry = classes().find(name);
    return entry == classes().end() ? nullptr : entry->second;
}

std::vector<std::string> ancestryOf(const std::string& className) {
    std::vector<std::string> ancestry{className};
    if (const auto known = archivedClassNamed(className)) {
        ancestry.insert(ancestry.end(), known->ancestors.begin(), known->ancestors.end());
    } else if (const std::string immutable = immutableName(className); immutable != className) {
        ancestry.push_back(immutable);
    }
    if (ancestry.back() != "NSObject") ancestry.push_back("NSObject");
    return ancestry;
}

std::string immutableName(std::string_view className) {
    constexpr std::string_view prefix = "NSMutable";
    return className.starts_with(prefix) ? "NS" + std::string(className.substr(prefix.size())) : std::string(className);
}

bool isPropertyListClass(std::string_view immutableClassName) {
    static constexpr std::array<std::string_view, 7> names = {"NSString", "NSNumber",     "NSData", "NSDate",
                                                              "NSArray",  "NSDictionary", "NSNull"};
    return std::find(names.begin(), names.end(), immutableClassName) != names.end();
}

} // namespace platform::data
