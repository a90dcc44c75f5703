// Keyed archives: graphs of values and objects in the platform's own binary form, read back only as the classes that
// the reader expects. Deep copies are made with it too.
//
// A class is archived by base::Object::encoded() and read back by what it registers here. Texts, numbers, data, dates,
// arrays and dictionaries (the property-list kinds) are always accepted where no narrower class is asked for; URLs
// ("NSURL"), points, sizes and rectangles ("NSValue") and all registered classes only where they are named. A name
// admits the classes that descend from it; the mutable and immutable variant of a class count as one. Any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace platform::data {

/// How a class comes out of an archive.
struct ArchivedClass {
    std::string name;                   ///< "VELM_JobFolders"
    std::vector<std::string> ancestors; ///< From the nearest to the farthest: {"VELM_FolderSet", "NSObject"}.
    /// The keys that are read, each with the classes that are expected under it: a value of another class fails the
    /// whole reading. Within a list or dictionary the same classes are expected of what it holds, besides the
    /// property-list kinds. {"self.name", {"NSString"}}, {"self.layers", {"NSMutableArray", "VELM_Template"}}.
    /// An empty list of classes stands for numbers and booleans. Keys that are not named here are passed over.
    std::map<std::string, std::vector<std::string>, std::less<>> keys;
    /// Makes the object out of the values read. Keys that were absent or null are missing in `values`.
    std::function<base::Result<base::ObjectRef>(base::Dictionary values)> make;
    /// The order in which the class writes its keys; those that are not named here follow by their names.
    std::vector<std::string> order = {};
    /// Whether numbers under its keys are objects of their own, as a list's are, and not written in place.
    bool numbersAreObjects = false;
};

/// Makes a class known. Again under the same name replaces it.
void registerArchivedClass(ArchivedClass archivedClass);

/// The archive of a value or an object. An object that is met twice is written once and comes back as one. An error
/// when an object does not offer coding or text is not UTF-8.
base::Result<base::Data> archivedData(const base::Value& root);

/// Reads an archive back. `allowedClasses` are the classes expected of the root, and of the elements if it is a list
/// or dictionary. An error (NSCocoaErrorDomain, 4864) for a class that is not expected or not known, for damaged
/// data, for objects that contain themselves, and for what unfolds into more than a million values or 256 MiB.
base::Result<base::Value> unarchived(std::string_view bytes, const std::vector<std::string>& allowedClasses);
inline base::Result<base::Value> unarchived(const base::Data& data, const std::vector<std::string>& allowedClasses) {
    return unarchived(data.asText(), allowedClasses);
}

} // namespace platform::data
