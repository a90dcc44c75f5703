// The directories of a TIFF structure, which a TIFF file and a block of EXIF metadata share, classic or with 64-bit
// offsets: read as they stand, and changed without moving anything else, so that pictures, makers' private offsets and
// unknown tags stay what they are. Objects of one thread; every offset is checked against the size.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace platform::draw {

using Bytes = std::vector<std::uint8_t>;

/// Reads up to `count` bytes at `position`; fewer only at the end.
using ReadAt = std::function<std::size_t(std::uint64_t position, void* target, std::size_t count)>;

enum class TiffType : std::uint16_t {
    byte = 1,
    ascii = 2,
    shortInteger = 3,
    longInteger = 4,
    rational = 5,
    undefined = 7,
    ifd = 13,
    long8 = 16,
    ifd8 = 18,
};

inline constexpr std::uint16_t exifDirectoryTag = 0x8769, gpsDirectoryTag = 0x8825;

struct TiffEntry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint64_t count = 0;
    std::array<std::uint8_t, 8> field{}; ///< The value or its offset; 4 bytes in use in a classic structure.
};

struct TiffDirectory {
    std::vector<TiffEntry> entries; ///< By rising tags when we wrote them.
    std::uint64_t next = 0;
    const TiffEntry* find(std::uint16_t tag) const;
};

/// A tag of the first directory, or of the EXIF or GPS directory that it points to.
enum class TiffPlace { image, exif, gps };
struct TiffChange {
    TiffPlace place = TiffPlace::image;
    std::uint16_t tag = 0;
    TiffType type = TiffType::undefined;
    Bytes value; ///< In the structure's byte order; empty to remove the tag.
};

/// Bytes to put at a position, which may lie behind the end.
struct TiffWrite {
    std::uint64_t position = 0;
    Bytes bytes;
};

struct TiffEdit {
    std::vector<TiffWrite> writes;
    std::uint64_t size = 0; ///< Of the structure afterwards.
};

class TiffStructure {
public:
    /// Nothing for what is no TIFF structure.
    static std::optional<TiffStructure> of(ReadAt readAt, std::uint64_t size);
    /// `bytes` must outlive the structure.
    static std::optional<TiffStructure> of(std::span<const std::uint8_t> bytes);
    /// The bytes of a classic structure without tags.
    static Bytes empty(bool bigEndian);

    bool isBigEndian() const { return bigEndian_; }
    std::uint64_t firstDirectory() const { return first_; }
    /// Nothing for a broken one, or one of more entries than any writer makes.
    std::optional<TiffDirectory> directoryAt(std::uint64_t offset) const;
    /// The one to which an entry points.
    std::optional<TiffDirectory> subdirectory(const TiffDirectory& directory, std::uint16_t pointerTag) const;
    /// The size of a value in bytes; 0 for an unknown type.
    std::uint64_t sizeOf(const TiffEntry& entry) const;
    /// The bytes of a value as they stand; nothing when it is larger than `maximum` or runs out of the structure.
    std::optional<Bytes> valueOf(const TiffEntry& entry, std::uint64_t maximum) const;
    /// The whole numbers of a value.
    std::vector<std::uint64_t> integersOf(const TiffEntry& entry, std::uint64_t maximumCount) const;
    /// Whether the values of a directory, and the stripes and tiles of its picture, lie inside and behind the header.
    bool holds(const TiffDirectory& directory) const;
    std::uint64_t size() const { return size_; }

    /// What makes the changes. Former values stay where they are, unused, and directories that change are written anew
    /// behind the end; with `reusesRoom` what is no larger than before takes its former place, and what stood at the
    /// end gives its room back. Nothing when the first directory is broken, or the structure would outgrow its offsets.
    std::optional<TiffEdit> editFor(const std::vector<TiffChange>& changes, bool reusesRoom) const;

private:
    class Editor;
    TiffStructure(ReadAt readAt, std::uint64_t size, bool bigEndian, bool isBig, std::uint64_t first)
        : readAt_(std::move(readAt)), size_(size), bigEndian_(bigEndian), isBig_(isBig), first_(first) {}
    std::uint64_t number(const std::uint8_t* bytes, int count) const;
    int offsetSize() const { return isBig_ ? 8 : 4; }

    ReadAt readAt_;
    std::uint64_t size_ = 0;
    bool bigEndian_ = false;
    bool isBig_ = false;
    std::uint64_t first_ = 0;
};

/// The edit of a structure in memory.
void apply(const TiffEdit& edit, Bytes& bytes);

/// The tags of one page of a TIFF file as an EXIF block, but for those that say where its pixels lie and very large
/// ones. Empty when the page has none.
Bytes exifBlockOfPage(const TiffStructure& file, std::uint64_t directoryOffset);

} // namespace platform::draw
