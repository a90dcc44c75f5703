// A Photoshop file is copied as it is, but for the image resources that hold its EXIF metadata and its density.

#include "ByteOrder.h"
#include "PictureCopy.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {
namespace {

constexpr std::size_t headerSize = 26;
constexpr std::uint16_t exifResource = 1058, resolutionResource = 1005;

void appendResource(Bytes& target, std::uint16_t number, View content) {
    constexpr std::string_view mark = "8BIM";
    target.insert(target.end(), mark.begin(), mark.end());
    appendInteger(target, number, 2, true);
    appendInteger(target, 0, 2, true); // without a name
    appendInteger(target, content.size(), 4, true);
    append(target, content);
    if (content.size() % 2 == 1) target.push_back(0);
}

Bytes resolution(Density density) {
    constexpr double largest = 0xFFFFFFFF;
    Bytes content;
    for (const double value : {density.width, density.height}) {
        appendInteger(content, static_cast<std::uint64_t>(std::fmin(std::round(value * 65536), largest)), 4, true);
        appendInteger(content, 1, 2, true); // shown as pixels an inch
        appendInteger(content, 1, 2, true); // and lengths in inches
    }
    return content;
}

// Whether the flattened picture, which ends the file, is all there.
bool holdsPicture(View file, std::uint64_t position) {
    const bool isLarge = file[5] == 2;
    const std::size_t lengthSize = isLarge ? 8 : 4;
    if (position + lengthSize > file.size()) return false;
    const std::uint64_t layers =
        integerAt(&file[static_cast<std::size_t>(position)], static_cast<int>(lengthSize), true);
    if (layers > file.size() - position - lengthSize) return false;
    const View data = file.subspan(static_cast<std::size_t>(position + lengthSize + layers));
    if (data.size() < 2) return false;
    const std::uint64_t rows = integerAt(&file[12], 2, true) * integerAt(&file[14], 4, true);
    const std::uint64_t rowBytes = (integerAt(&file[18], 4, true) * integerAt(&file[22], 2, true) + 7) / 8;
    const std::uint64_t compression = integerAt(data.data(), 2, true), room = data.size() - 2;
    if (compression == 0) return rowBytes == 0 || rows <= room / rowBytes;
    if (compression != 1) return true; // nothing but decoding tells
    const std::uint64_t countSize = isLarge ? 4 : 2;
    if (rows > room / countSize) return false;
    std::uint64_t total = rows * countSize;
    for (std::uint64_t row = 0; row < rows; ++row)
        total += integerAt(&data[static_cast<std::size_t>(2 + row * countSize)], static_cast<int>(countSize), true);
    return total <= room;
}

} // namespace

base::Result<base::Data> copyPsd(View file, const base::Dictionary& properties) {
    const auto cutOff = [] { return copyFailure("PSD", "it is broken or cut off"); };
    if (!hasTextAt(file, 0, "8BPS") || file.size() < headerSize)
        return copyFailure("PSD", "it does not begin like one");
    const auto sectionEnd = [&](std::uint64_t start) -> std::uint64_t { // 0 for one that runs out of the file
        if (start + 4 > file.size()) return 0;
        const std::uint64_t length = integerAt(&file[static_cast<std::size_t>(start)], 4, true);
        return length > file.size() - start - 4 ? 0 : start + 4 + length;
    };
    const std::uint64_t resourcesAt = sectionEnd(headerSize);
    const std::uint64_t resourcesEnd = resourcesAt == 0 ? 0 : sectionEnd(resourcesAt);
    if (resourcesEnd == 0 || !holdsPicture(file, resourcesEnd)) return cutOff();
    base::Data copy;
    if (properties.empty()) {
        append(copy.bytes, file);
        return copy;
    }
    const auto density = densityIn(properties);
    Bytes resources;
    View formerExif;
    for (auto position = static_cast<std::size_t>(resourcesAt + 4); position < resourcesEnd;) {
        constexpr std::size_t nameAt = 6;
        if (resourcesEnd - position < nameAt + 6) break; // padding
        const std::size_t nameSize = (file[position + nameAt] / 2 + 1) * std::size_t{2};
        const std::size_t lengthAt = position + nameAt + nameSize;
        if (lengthAt + 4 > resourcesEnd) return cutOff();
        const std::uint64_t length = integerAt(&file[lengthAt], 4, true);
        if (length > resourcesEnd - lengthAt - 4) return cutOff();
        const View content = file.subspan(lengthAt + 4, static_cast<std::size_t>(length));
        const auto next = static_cast<std::size_t>(std::min(lengthAt + 4 + length + length % 2, resourcesEnd));
        const std::uint64_t number = integerAt(&file[position + 4], 2, true);
        if (number == exifResource)
            formerExif = content;
        else if (number != resolutionResource || !density)
            append(resources, file.subspan(position, next - position));
        position = next;
    }
    const auto block = mergedExif(formerExif, properties);
    if (!block) return base::failure(block.error());
    if (density) appendResource(resources, resolutionResource, resolution(*density));
    if (!block->empty()) appendResource(resources, exifResource, *block);
    append(copy.bytes, file.first(static_cast<std::size_t>(resourcesAt)));
    appendInteger(copy.bytes, resources.size(), 4, true);
    append(copy.bytes, resources);
    append(copy.bytes, file.subspan(static_cast<std::size_t>(resourcesEnd)));
    return copy;
}

} // namespace platform::draw
