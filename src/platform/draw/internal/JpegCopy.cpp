// A JPEG file's segments are copied as they are, but for the one that holds its EXIF metadata (and the density in its
// JFIF segment when that changes).

#include "ByteOrder.h"
#include "PictureCopy.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace platform::draw {
namespace {

constexpr std::uint8_t markerSOI = 0xD8, markerEOI = 0xD9, markerSOS = 0xDA, markerAPP0 = 0xE0, markerAPP1 = 0xE1;

// A segment with its marker and length; `payload` is what follows them.
struct Segment {
    std::uint8_t marker = 0;
    std::size_t start = 0;
    std::size_t end = 0;
    View payload;
};

bool isExif(const Segment& segment) {
    return segment.marker == markerAPP1 && hasTextAt(segment.payload, 0, exifMark);
}

// The segment that begins at `position`; nothing when none does or it runs beyond the end.
std::optional<Segment> segmentAt(View bytes, std::size_t position) {
    const std::size_t start = position;
    if (position >= bytes.size() || bytes[position] != 0xFF) return std::nullopt;
    while (position < bytes.size() && bytes[position] == 0xFF) // fill bytes may stand before a marker
        ++position;
    if (position + 3 > bytes.size()) return std::nullopt;
    const auto length = static_cast<std::size_t>(integerAt(&bytes[position + 1], 2, true));
    const std::size_t end = position + 1 + length;
    if (length < 2 || end > bytes.size()) return std::nullopt;
    return Segment{bytes[position], start, end, bytes.subspan(position + 3, length - 2)};
}

// Whether the picture that begins with the scan at `position` comes to its end.
bool reachesEnd(View bytes, std::size_t position) {
    while (position + 1 < bytes.size()) {
        if (bytes[position] != 0xFF) {
            ++position;
            continue;
        }
        const std::uint8_t marker = bytes[position + 1];
        if (marker == markerEOI) return true;
        const bool isData = marker == 0 || (marker >= 0xD0 && marker <= 0xD7);
        if (isData) {
            position += 2;
        } else if (marker == 0xFF) {
            ++position;
        } else {
            const auto segment = segmentAt(bytes, position);
            if (!segment) return false;
            position = segment->end;
        }
    }
    return false;
}

tl::unexpected<base::Error> noJPEG(const char* why) {
    return copyFailure("JPEG", why);
}

base::Result<Bytes> exifSegment(View formerBlock, const base::Dictionary& properties) {
    auto block = mergedExif(formerBlock, properties);
    if (!block) return block;
    if (block->empty()) return Bytes();
    const std::size_t length = 2 + exifMark.size() + block->size();
    if (length > 0xFFFF) return base::failure(imageMetadataErrorDomain, 0, "the metadata is too large for a JPEG file");
    Bytes segment;
    segment.reserve(2 + length);
    for (const std::size_t byte : {std::size_t{0xFF}, std::size_t{markerAPP1}, length >> 8, length & 0xFF})
        segment.push_back(static_cast<std::uint8_t>(byte));
    segment.insert(segment.end(), exifMark.begin(), exifMark.end());
    segment.insert(segment.end(), block->begin(), block->end());
    return segment;
}

// In the JFIF segment: whole pixels an inch.
void setDensity(Bytes& copy, const Segment& jfif, Density density) {
    constexpr std::size_t unitAt = 7;
    constexpr double largest = 65535;
    if (!hasTextAt(jfif.payload, 0, "JFIF") || jfif.payload.size() < unitAt + 5) return;
    Bytes values = {1};
    for (const double value : {density.width, density.height})
        appendInteger(values, static_cast<std::uint64_t>(std::clamp(std::round(value), 1.0, largest)), 2, true);
    const std::size_t payloadAt = jfif.end - jfif.payload.size();
    std::copy(values.begin(), values.end(), copy.begin() + static_cast<std::ptrdiff_t>(payloadAt + unitAt));
}

} // namespace

base::Result<base::Data> copyJpeg(View bytes, const base::Dictionary& properties) {
    if (bytes.size() < 4 || bytes[0] != 0xFF || bytes[1] != markerSOI) return noJPEG("it does not begin like one");

    std::optional<Segment> former; // the EXIF segment
    std::optional<Segment> jfif;
    std::size_t afterJFIF = 2; // where a new one goes
    std::size_t position = 2;
    while (true) {
        const auto segment = segmentAt(bytes, position);
        if (!segment) return noJPEG("its header is broken");
        if (segment->marker == markerAPP0 && segment->start == afterJFIF) {
            afterJFIF = segment->end;
            if (!jfif) jfif = segment;
        }
        if (isExif(*segment) && !former) former = segment;
        position = segment->end;
        if (segment->marker == markerSOS) break;
    }
    if (!reachesEnd(bytes, position)) return noJPEG("it is cut off");
    base::Data copy;
    if (properties.empty()) {
        append(copy.bytes, bytes);
        return copy;
    }
    const auto segment = exifSegment(former ? former->payload.subspan(exifMark.size()) : View(), properties);
    if (!segment) return base::failure(segment.error());
    copy.bytes.reserve(bytes.size() + segment->size());
    append(copy.bytes, bytes.first(former ? former->start : afterJFIF));
    append(copy.bytes, *segment);
    append(copy.bytes, bytes.subspan(former ? former->end : afterJFIF));
    const auto density = densityIn(properties);
    // Before the EXIF segment nothing moved.
    if (density && jfif && (!former || jfif->end <= former->start)) setDensity(copy.bytes, *jfif, *density);
    return copy;
}

} // namespace platform::draw
