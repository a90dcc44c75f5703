#include "PictureCopy.h"

#include <set>

namespace platform::draw {

base::Result<base::Data> copyTiff(View file, const base::Dictionary& properties) {
    const auto structure = TiffStructure::of(file);
    if (!structure) return copyFailure("TIFF", "it does not begin like one");
    std::set<std::uint64_t> pages;
    for (std::uint64_t at = structure->firstDirectory(); at != 0 && pages.insert(at).second;) {
        const auto page = structure->directoryAt(at);
        if (!page || !structure->holds(*page)) return copyFailure("TIFF", "it is broken or cut off");
        for (const std::uint16_t pointer : {exifDirectoryTag, gpsDirectoryTag}) {
            if (!page->find(pointer)) continue;
            const auto directory = structure->subdirectory(*page, pointer);
            if (!directory || !structure->holds(*directory)) return copyFailure("TIFF", "it is broken or cut off");
        }
        at = page->next;
    }
    if (pages.empty()) return copyFailure("TIFF", "it has no pages");
    const auto tags = tagsForProperties(properties, *structure);
    if (!tags) return base::failure(tags.error());
    const auto edit = structure->editFor(*tags, false);
    if (!edit) return copyFailure("TIFF", "the metadata finds no room");
    base::Data copy;
    append(copy.bytes, file);
    apply(*edit, copy.bytes);
    return copy;
}

} // namespace platform::draw
