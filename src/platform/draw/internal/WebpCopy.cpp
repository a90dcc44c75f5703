// A WebP file's chunks are copied as they are, but for the one of its EXIF metadata. A file without the chunk that says
// that there are others gets one.

#include "ByteOrder.h"
#include "PictureCopy.h"

#include <string>
#include <webp/decode.h>

namespace platform::draw {
namespace {

constexpr std::uint8_t alphaFlag = 0x10, exifFlag = 0x08;

void appendChunk(Bytes& target, std::string_view type, View content) {
    target.insert(target.end(), type.begin(), type.end());
    appendInteger(target, content.size(), 4, false);
    append(target, content);
    if (content.size() % 2 == 1) target.push_back(0);
}

// What the chunks of a plain file leave unsaid; empty for broken pixels.
Bytes extendedHeader(View file) {
    WebPBitstreamFeatures features;
    Bytes content;
    if (WebPGetFeatures(file.data(), file.size(), &features) != VP8_STATUS_OK) return content;
    appendInteger(content, features.has_alpha ? alphaFlag : 0, 4, false);
    appendInteger(content, static_cast<std::uint64_t>(features.width) - 1, 3, false);
    appendInteger(content, static_cast<std::uint64_t>(features.height) - 1, 3, false);
    return content;
}

} // namespace

base::Result<base::Data> copyWebp(View file, const base::Dictionary& properties) {
    constexpr std::size_t headSize = 12;
    if (!hasTextAt(file, 0, "RIFF") || !hasTextAt(file, 8, "WEBP"))
        return copyFailure("WebP", "it does not begin like one");
    const std::uint64_t end = integerAt(&file[4], 4, false) + 8;
    if (end > file.size() || end < headSize) return copyFailure("WebP", "it is cut off");
    base::Data copy;
    if (properties.empty()) {
        append(copy.bytes, file);
        return copy;
    }
    struct Chunk {
        std::string type;
        View content;
    };
    std::vector<Chunk> chunks;
    View formerExif;
    for (std::size_t position = headSize; position < end;) {
        if (end - position < 8) return copyFailure("WebP", "it is cut off");
        const std::string type(file.begin() + static_cast<std::ptrdiff_t>(position),
                               file.begin() + static_cast<std::ptrdiff_t>(position) + 4);
        const std::uint64_t length = integerAt(&file[position + 4], 4, false);
        if (length > end - position - 8) return copyFailure("WebP", "it is cut off");
        const View content = file.subspan(position + 8, static_cast<std::size_t>(length));
        position += 8 + static_cast<std::size_t>(length + length % 2);
        if (type == "EXIF")
            formerExif = content;
        else
            chunks.push_back({type, content});
    }
    if (chunks.empty()) return copyFailure("WebP", "it has no pixels");
    const bool isExtended = chunks.front().type == "VP8X";
    Bytes header =
        isExtended ? Bytes(chunks.front().content.begin(), chunks.front().content.end()) : extendedHeader(file);
    if (header.size() < 10) return copyFailure("WebP", "its header is broken");
    if (hasTextAt(formerExif, 0, exifMark)) formerExif = formerExif.subspan(exifMark.size());
    const auto block = mergedExif(formerExif, properties);
    if (!block) return base::failure(block.error());
    header[0] = static_cast<std::uint8_t>(block->empty() ? header[0] & ~exifFlag : header[0] | exifFlag);

    append(copy.bytes, file.first(headSize));
    appendChunk(copy.bytes, "VP8X", header);
    for (const Chunk& chunk : chunks)
        if (chunk.type != "VP8X" && chunk.type != "XMP ") appendChunk(copy.bytes, chunk.type, chunk.content);
    if (!block->empty()) appendChunk(copy.bytes, "EXIF", *block);
    for (const Chunk& chunk : chunks)
        if (chunk.type == "XMP ") appendChunk(copy.bytes, chunk.type, chunk.content);
    Bytes size;
    appendInteger(size, copy.bytes.size() - 8, 4, false);
    std::copy(size.begin(), size.end(), copy.bytes.begin() + 4);
    append(copy.bytes, file.subspan(static_cast<std::size_t>(end)));
    return copy;
}

} // namespace platform::draw
