// A PNG file's chunks are copied as they are, but for the one of its EXIF metadata and, when it changes, its density.

#include "ByteOrder.h"
#include "PictureCopy.h"

#include <cmath>
#include <string>
#include <zlib.h>

namespace platform::draw {
namespace {

constexpr std::string_view signature = "\x89PNG\r\n\x1A\n";

std::uint32_t checksum(View bytes) {
    return static_cast<std::uint32_t>(crc32(0, bytes.data(), static_cast<unsigned>(bytes.size())));
}

void appendChunk(Bytes& target, std::string_view type, View content) {
    appendInteger(target, content.size(), 4, true);
    const std::size_t start = target.size();
    target.insert(target.end(), type.begin(), type.end());
    append(target, content);
    appendInteger(target, checksum(View(target).subspan(start)), 4, true);
}

Bytes physicalSize(Density density) {
    constexpr double inchesInAMeter = 1 / 0.0254, largest = 0x7FFFFFFF;
    Bytes content;
    for (const double value : {density.width, density.height})
        appendInteger(content, static_cast<std::uint64_t>(std::fmin(std::round(value * inchesInAMeter), largest)), 4,
                      true);
    content.push_back(1); // metres
    return content;
}

} // namespace

base::Result<base::Data> copyPng(View file, const base::Dictionary& properties) {
    if (!hasTextAt(file, 0, signature)) return copyFailure("PNG", "it does not begin like one");
    const auto density = densityIn(properties);
    View formerExif;
    base::Data copy;
    std::vector<View> before, after; // the chunks that stay, before and from the first one of the pixels
    std::size_t position = signature.size();
    for (bool ended = false; !ended;) {
        constexpr std::size_t frameSize = 12; // length, type, checksum
        if (file.size() - position < frameSize) return copyFailure("PNG", "it is cut off");
        const auto length = static_cast<std::size_t>(integerAt(&file[position], 4, true));
        if (length > file.size() - position - frameSize) return copyFailure("PNG", "it is cut off");
        const View chunk = file.subspan(position, length + frameSize);
        const std::string type(chunk.begin() + 4, chunk.begin() + 8);
        const bool isCritical = (chunk[4] & 0x20) == 0;
        if (isCritical && checksum(chunk.subspan(4, length + 4)) != integerAt(&chunk[length + 8], 4, true))
            return copyFailure("PNG", "a part of it is broken");
        position += chunk.size();
        ended = type == "IEND";
        if (!properties.empty() && type == "eXIf")
            formerExif = chunk.subspan(8, length);
        else if (!density || type != "pHYs")
            (after.empty() && type != "IDAT" ? before : after).push_back(chunk);
    }
    append(copy.bytes, file.first(signature.size()));
    for (const View chunk : before)
        append(copy.bytes, chunk);
    if (!properties.empty()) {
        const auto block = mergedExif(formerExif, properties);
        if (!block) return base::failure(block.error());
        if (density) appendChunk(copy.bytes, "pHYs", physicalSize(*density));
        if (!block->empty()) appendChunk(copy.bytes, "eXIf", *block);
    }
    for (const View chunk : after)
        append(copy.bytes, chunk);
    append(copy.bytes, file.subspan(position));
    return copy;
}

} // namespace platform::draw
