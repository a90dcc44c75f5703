// A keyed archive, as the lists of folders are kept: read with the classes of a list, used, written and read again.
#include "Fuzzing.h"
#include "folders/VELM_FolderSet.h"
#include "output/VELM_PrintToFileSet.h"
#include "platform/data/KeyedArchive.h"

#include <string>
#include <vector>

using fuzzing::require;
using platform::data::archivedData;
using platform::data::unarchived;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    static const std::vector<std::string> classes = [] {
        VELM_FolderSet::classObject();
        VELM_PrintToFileSet::classObject();
        return std::vector<std::string>{"NSDictionary", "NSArray", "VELM_FolderSet", "NSURL"};
    }();
    const auto value = unarchived({reinterpret_cast<const char*>(bytes), size}, classes);
    if (!value) {
        require(!value.error().localizedDescription.empty(), "what is refused is told");
        return 0;
    }
    (void)value->description();
    if (const auto* list = value->as<base::Array>())
        for (const base::Value& element : *list)
            if (const auto set = element.object<VELM_FolderSet>()) {
                (void)set->URL();
                require(set->copy()->isEqual(*set), "a copy is equal");
                require(set->copy()->hash() == set->hash(), "equal sets have one hash");
            }
    // Bytes are compared: a number that is none differs from itself.
    const auto written = archivedData(*value);
    require(written.has_value(), "what was read is written");
    const auto again = unarchived(*written, classes);
    require(again.has_value(), "what was written is read");
    const auto second = archivedData(*again);
    require(second && *second == *written, "what was written and read is written alike");
    return 0;
}
