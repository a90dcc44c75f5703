// The classes that archives know: those of the platform and those that were registered.
#pragma once

#include "platform/data/KeyedArchive.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform::data {

/// The registered class of that name, or null.
std::shared_ptr<const ArchivedClass> archivedClassNamed(std::string_view name);

/// The class and its ancestors, the nearest first, as an archive lists them.
std::vector<std::string> ancestryOf(const std::string& className);

/// "NSDictionary" for "NSMutableDictionary": values make no difference between the two.
std::string immutableName(std::string_view className);

/// True for the kinds that a property list could hold.
bool isPropertyListClass(std::string_view immutableClassName);

} // namespace platform::data
