#include "TiffStructure.h"

#include "ByteOrder.h"

#include <algorithm>
#include <cstring>

namespace platform::draw {
namespace {

constexpr std::uint64_t maximumEntries = 4096;
constexpr std::uint64_t maximumPropertyBytes = 65536;
constexpr std::uint64_t maximumBlockBytes = std::uint64_t{4} << 20;

std::uint64_t elementSize(std::uint16_t type) {
    constexpr std::array<std::uint8_t, 19> sizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
    return type < sizes.size() ? sizes[type] : 0;
}

} // namespace

const TiffEntry* TiffDirectory::find(std::uint16_t tag) const {
    const auto found =
        std::find_if(entries.begin(), entries.end(), [tag](const TiffEntry& entry) { return entry.tag == tag; });
    return found == entries.end() ? nullptr : &*found;
}

std::optional<TiffStructure> TiffStructure::of(ReadAt readAt, std::uint64_t size) {
    std::array<std::uint8_t, 16> head{};
    if (readAt(0, head.data(), head.size()) < 8) return std::nullopt;
    const bool bigEndian = head[0] == 'M';
    if ((head[0] != 'I' && !bigEndian) || head[0] != head[1]) return std::nullopt;
    const std::uint64_t version = integerAt(&head[2], 2, bigEndian);
    if (version == 42)
        return TiffStructure(std::move(readAt), size, bigEndian, false, integerAt(&head[4], 4, bigEndian));
    if (version == 43 && size >= 16 && integerAt(&head[4], 4, bigEndian) == (bigEndian ? 0x80000u : 8u))
        return TiffStructure(std::move(readAt), size, bigEndian, true, integerAt(&head[8], 8, bigEndian));
    return std::nullopt;
}

std::optional<TiffStructure> TiffStructure::of(std::span<const std::uint8_t> bytes) {
    return of(
        [bytes](std::uint64_t position, void* target, std::size_t count) -> std::size_t {
            if (position >= bytes.size()) return 0;
            count = std::min(count, bytes.size() - static_cast<std::size_t>(position));
            std::memcpy(target, bytes.data() + position, count);
            return count;
        },
        bytes.size());
}

Bytes TiffStructure::empty(bool bigEndian) {
    const std::uint8_t mark = bigEndian ? 'M' : 'I';
    Bytes bytes = {mark, mark};
    appendInteger(bytes, 42, 2, bigEndian);
    appendInteger(bytes, 0, 4, bigEndian);
    return bytes;
}

std::uint64_t TiffStructure::number(const std::uint8_t* bytes, int count) const {
    return integerAt(bytes, count, bigEndian_);
}

std::optional<TiffDirectory> TiffStructure::directoryAt(std::uint64_t offset) const {
    const int countSize = isBig_ ? 8 : 2;
    const std::size_t entrySize = isBig_ ? 20 : 12;
    std::array<std::uint8_t, 8> counted{};
    if (offset < 8 || readAt_(offset, counted.data(), static_cast<std::size_t>(countSize)) < std::size_t(countSize))
        return std::nullopt;
    const std::uint64_t count = number(counted.data(), countSize);
    if (count > maximumEntries) return std::nullopt;
    Bytes bytes(static_cast<std::size_t>(count) * entrySize + static_cast<std::size_t>(offsetSize()));
    const std::size_t got = readAt_(offset + static_cast<std::uint64_t>(countSize), bytes.data(), bytes.size());
    if (got < count * entrySize) return std::nullopt;
    TiffDirectory directory;
    for (std::size_t index = 0; index < count; ++index) {
        const std::uint8_t* at = &bytes[index * entrySize];
        TiffEntry entry{static_cast<std::uint16_t>(number(at, 2)),
                        static_cast<std::uint16_t>(number(at + 2, 2)),
                        number(at + 4, offsetSize()),
                        {}};
        std::copy_n(at + 4 + offsetSize(), offsetSize(), entry.field.begin());
        directory.entries.push_back(entry);
    }
    // Some writers leave out the offset of a next one at the very end.
    if (got == bytes.size()) directory.next = number(&bytes[static_cast<std::size_t>(count) * entrySize], offsetSize());
    return directory;
}

std::optional<TiffDirectory> TiffStructure::subdirectory(const TiffDirectory& directory,
                                                         std::uint16_t pointerTag) const {
    const TiffEntry* pointer = directory.find(pointerTag);
    const auto offsets = pointer ? integersOf(*pointer, 1) : std::vector<std::uint64_t>();
    return offsets.empty() ? std::nullopt : directoryAt(offsets.front());
}

std::uint64_t TiffStructure::sizeOf(const TiffEntry& entry) const {
    const std::uint64_t element = elementSize(entry.type);
    return element == 0 || entry.count > UINT64_MAX / element ? 0 : element * entry.count;
}

std::optional<Bytes> TiffStructure::valueOf(const TiffEntry& entry, std::uint64_t maximum) const {
    const std::uint64_t length = sizeOf(entry);
    if (length == 0 || length > maximum || length > size_) return std::nullopt;
    Bytes value(static_cast<std::size_t>(length));
    if (length <= static_cast<std::uint64_t>(offsetSize()))
        std::copy_n(entry.field.begin(), value.size(), value.begin());
    else if (readAt_(number(entry.field.data(), offsetSize()), value.data(), value.size()) < value.size())
        return std::nullopt;
    return value;
}

std::vector<std::uint64_t> TiffStructure::integersOf(const TiffEntry& entry, std::uint64_t maximumCount) const {
    std::vector<std::uint64_t> numbers;
    const auto element = static_cast<int>(elementSize(entry.type));
    const bool isInteger = entry.type != static_cast<std::uint16_t>(TiffType::rational);
    if (!isInteger || element == 0 || entry.count > maximumCount) return numbers;
    const auto value = valueOf(entry, maximumCount * 8);
    for (std::size_t at = 0; value && at < value->size(); at += static_cast<std::size_t>(element))
        numbers.push_back(number(&(*value)[at], element));
    return numbers;
}

bool TiffStructure::holds(const TiffDirectory& directory) const {
    for (const TiffEntry& entry : directory.entries) {
        const std::uint64_t length = sizeOf(entry), at = number(entry.field.data(), offsetSize());
        const bool isInline = length <= static_cast<std::uint64_t>(offsetSize());
        if (!isInline && (at > size_ || length > size_ - at)) return false;
    }
    constexpr std::uint64_t maximumPieces = std::uint64_t{1} << 22;
    const std::uint64_t headerSize = isBig_ ? 16 : 8;
    constexpr std::array<std::array<std::uint16_t, 2>, 2> places = {{{273, 279}, {324, 325}}}; // stripes, tiles
    for (const auto& [offsetTag, lengthTag] : places) {
        const TiffEntry* offsetEntry = directory.find(offsetTag);
        const TiffEntry* lengthEntry = directory.find(lengthTag);
        if (!offsetEntry) continue;
        const auto offsets = integersOf(*offsetEntry, maximumPieces);
        auto lengths = std::vector<std::uint64_t>(offsets.size(), 1); // when they are not told
        if (lengthEntry) lengths = integersOf(*lengthEntry, maximumPieces);
        if (offsets.empty() || offsets.size() != lengths.size()) return false;
        for (std::size_t index = 0; index < offsets.size(); ++index) {
            if (offsets[index] > size_ || lengths[index] > size_ - offsets[index]) return false;
            // What is changed in a header must not be pixels too.
            if (lengths[index] > 0 && offsets[index] < headerSize) return false;
        }
    }
    return true;
}

// Collects the writes; new things go behind the end, at even places.
class TiffStructure::Editor {
public:
    Editor(const TiffStructure& file, bool reusesRoom)
        : file_(file), reusesRoom_(reusesRoom), end_(file.size_ + file.size_ % 2) {
        if (!reusesRoom) return;
        const auto image = addRooms(file.first_);
        if (!image) return;
        addRooms(image->next);
        for (const std::uint16_t pointerTag : {exifDirectoryTag, gpsDirectoryTag}) {
            const TiffEntry* pointer = image->find(pointerTag);
            const auto offsets = pointer ? file.integersOf(*pointer, 1) : std::vector<std::uint64_t>();
            if (!offsets.empty()) addRooms(offsets.front());
        }
    }

    std::optional<TiffEdit> edit(const std::vector<TiffChange>& changes) {
        TiffDirectory image;
        if (file_.first_ != 0) {
            auto present = file_.directoryAt(file_.first_);
            if (!present) return std::nullopt;
            image = std::move(*present);
        }
        const std::size_t formerCount = image.entries.size();
        bool changed = editSub(image, exifDirectoryTag, changes, TiffPlace::exif);
        changed = editSub(image, gpsDirectoryTag, changes, TiffPlace::gps) || changed;
        changed = change(image, changes, TiffPlace::image) || changed;
        if (!changed) return TiffEdit{{}, file_.size_};
        if (const std::uint64_t offset = place(image, file_.first_, formerCount); offset != file_.first_)
            writes_.push_back({static_cast<std::uint64_t>(file_.offsetSize()), offsetBytes(offset)});
        constexpr std::uint64_t largestClassic = 0xFFFFFFFF;
        if (!file_.isBig_ && end_ > largestClassic) return std::nullopt;
        return TiffEdit{std::move(writes_), end_};
    }

private:
    struct Room {
        std::uint64_t start = 0;
        std::uint64_t size = 0;
    };

    // Of the directory at `offset` and of its values.
    std::optional<TiffDirectory> addRooms(std::uint64_t offset) {
        const auto directory = file_.directoryAt(offset);
        if (!directory) return std::nullopt;
        const std::uint64_t fixedSize = file_.isBig_ ? 8 + 8 : 2 + 4, entrySize = file_.isBig_ ? 20 : 12;
        rooms_.push_back({offset, fixedSize + entrySize * directory->entries.size()});
        for (const TiffEntry& entry : directory->entries)
            if (const std::uint64_t size = file_.sizeOf(entry); size > static_cast<std::uint64_t>(file_.offsetSize()))
                rooms_.push_back({file_.number(entry.field.data(), file_.offsetSize()), size});
        return directory;
    }

    // Whether what stands at `start` can be written over: thrifty and broken files let values share their bytes.
    bool isReusable(std::uint64_t start, std::uint64_t size) const {
        const auto meets = [&](const Room& room) {
            return start < room.start ? room.start - start < size : start - room.start < room.size;
        };
        constexpr std::uint64_t headSize = 8;
        return reusesRoom_ && start >= headSize && std::count_if(rooms_.begin(), rooms_.end(), meets) <= 1;
    }

    Bytes offsetBytes(std::uint64_t offset) const {
        Bytes bytes;
        appendInteger(bytes, offset, file_.offsetSize(), file_.bigEndian_);
        return bytes;
    }

    std::uint64_t append(Bytes bytes) {
        const std::uint64_t position = end_;
        end_ += bytes.size() + bytes.size() % 2;
        writes_.push_back({position, std::move(bytes)});
        return position;
    }

    bool editSub(TiffDirectory& image, std::uint16_t pointerTag, const std::vector<TiffChange>& changes,
                 TiffPlace place) {
        const TiffEntry* pointer = image.find(pointerTag);
        const auto offsets = pointer ? file_.integersOf(*pointer, 1) : std::vector<std::uint64_t>();
        auto present = offsets.empty() ? std::nullopt : file_.directoryAt(offsets.front());
        TiffDirectory directory = present.value_or(TiffDirectory());
        if (!change(directory, changes, place)) return false;
        const std::uint64_t former = present ? offsets.front() : 0;
        const std::uint64_t offset = this->place(directory, former, present ? present->entries.size() : 0);
        if (offset == former) return true;
        const auto type = file_.isBig_ ? TiffType::long8 : TiffType::longInteger;
        set(image, {TiffPlace::image, pointerTag, type, offsetBytes(offset)});
        return true;
    }

    bool change(TiffDirectory& directory, const std::vector<TiffChange>& changes, TiffPlace place) {
        bool changed = false;
        for (const TiffChange& wanted : changes) {
            if (wanted.place != place) continue;
            if (!wanted.value.empty()) {
                set(directory, wanted);
                changed = true;
                continue;
            }
            changed = std::erase_if(directory.entries,
                                    [&](const TiffEntry& entry) {
                                        if (entry.tag != wanted.tag) return false;
                                        giveBackEnd(entry);
                                        return true;
                                    }) > 0 ||
                      changed;
        }
        return changed;
    }

    // A value that stands at the end, and shares its bytes with no other, leaves its room to what comes.
    bool giveBackEnd(const TiffEntry& entry) {
        const std::uint64_t length = file_.sizeOf(entry);
        const std::uint64_t at = file_.number(entry.field.data(), file_.offsetSize());
        const bool isInline = length <= static_cast<std::uint64_t>(file_.offsetSize());
        if (isInline || at % 2 != 0 || at >= end_ || end_ - at != length + length % 2) return false;
        if (!isReusable(at, length)) return false;
        end_ = at;
        return true;
    }

    void set(TiffDirectory& directory, const TiffChange& wanted) {
        auto& entries = directory.entries;
        auto entry = std::find_if(entries.begin(), entries.end(),
                                  [&](const TiffEntry& candidate) { return candidate.tag == wanted.tag; });
        std::uint64_t formerSize = 0; // of the room that is left where it is
        if (entry == entries.end()) {
            entry = std::find_if(entries.begin(), entries.end(),
                                 [&](const TiffEntry& candidate) { return candidate.tag > wanted.tag; });
            entry = entries.insert(entry, TiffEntry{wanted.tag, 0, 0, {}});
        } else {
            formerSize = giveBackEnd(*entry) ? 0 : file_.sizeOf(*entry);
            entries.erase(std::remove_if(entry + 1, entries.end(), // else a second one could count in its place
                                         [&](const TiffEntry& further) { return further.tag == wanted.tag; }),
                          entries.end());
        }
        entry->type = static_cast<std::uint16_t>(wanted.type);
        entry->count = wanted.value.size() / elementSize(entry->type);
        const auto inlineSize = static_cast<std::size_t>(file_.offsetSize());
        if (wanted.value.size() <= inlineSize) {
            entry->field.fill(0);
            std::copy(wanted.value.begin(), wanted.value.end(), entry->field.begin());
            return;
        }
        const std::uint64_t former = file_.number(entry->field.data(), file_.offsetSize());
        if (formerSize >= wanted.value.size() && former <= file_.size_ && formerSize <= file_.size_ - former &&
            isReusable(former, formerSize)) {
            writes_.push_back({former, wanted.value});
            return;
        }
        const Bytes offset = offsetBytes(append(wanted.value));
        entry->field.fill(0);
        std::copy(offset.begin(), offset.end(), entry->field.begin());
    }

    // Where the directory stands now.
    std::uint64_t place(const TiffDirectory& directory, std::uint64_t former, std::size_t formerCount) {
        Bytes bytes;
        appendInteger(bytes, directory.entries.size(), file_.isBig_ ? 8 : 2, file_.bigEndian_);
        for (const TiffEntry& entry : directory.entries) {
            appendInteger(bytes, entry.tag, 2, file_.bigEndian_);
            appendInteger(bytes, entry.type, 2, file_.bigEndian_);
            appendInteger(bytes, entry.count, file_.offsetSize(), file_.bigEndian_);
            bytes.insert(bytes.end(), entry.field.begin(), entry.field.begin() + file_.offsetSize());
        }
        appendInteger(bytes, directory.next, file_.offsetSize(), file_.bigEndian_);
        if (directory.entries.size() > formerCount || !isReusable(former, bytes.size()))
            return append(std::move(bytes));
        writes_.push_back({former, std::move(bytes)});
        return former;
    }

    const TiffStructure& file_;
    bool reusesRoom_;
    std::uint64_t end_;
    std::vector<Room> rooms_; // of all that is known to stand in the structure
    std::vector<TiffWrite> writes_;
};

std::optional<TiffEdit> TiffStructure::editFor(const std::vector<TiffChange>& changes, bool reusesRoom) const {
    return Editor(*this, reusesRoom).edit(changes);
}

void apply(const TiffEdit& edit, Bytes& bytes) {
    for (const TiffWrite& write : edit.writes) {
        const auto position = static_cast<std::size_t>(write.position);
        if (position + write.bytes.size() > bytes.size()) bytes.resize(position + write.bytes.size());
        std::copy(write.bytes.begin(), write.bytes.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position));
    }
    bytes.resize(static_cast<std::size_t>(edit.size));
}

Bytes exifBlockOfPage(const TiffStructure& file, std::uint64_t directoryOffset) {
    // Where stripes, tiles and further directories lie, tables and profiles: of no use without the pixels.
    constexpr std::uint16_t leftOut[] = {273,   279, 320, 324, 325, 330, 347, 34675, exifDirectoryTag, gpsDirectoryTag,
                                         0xA005};
    const auto page = file.directoryAt(directoryOffset);
    if (!page) return {};
    std::vector<TiffChange> tags;
    std::uint64_t total = 0;
    const auto collect = [&](const std::optional<TiffDirectory>& directory, TiffPlace place) {
        if (!directory) return;
        for (const TiffEntry& entry : directory->entries) {
            const bool isLeftOut = std::find(std::begin(leftOut), std::end(leftOut), entry.tag) != std::end(leftOut);
            if (isLeftOut || entry.type >= static_cast<std::uint16_t>(TiffType::ifd)) continue;
            auto value = file.valueOf(entry, maximumPropertyBytes);
            if (!value || (total += value->size()) > maximumBlockBytes) continue;
            tags.push_back({place, entry.tag, static_cast<TiffType>(entry.type), std::move(*value)});
        }
    };
    collect(page, TiffPlace::image);
    collect(file.subdirectory(*page, exifDirectoryTag), TiffPlace::exif);
    collect(file.subdirectory(*page, gpsDirectoryTag), TiffPlace::gps);
    if (tags.empty()) return {};
    Bytes block = TiffStructure::empty(file.isBigEndian());
    const auto structure = TiffStructure::of(block);
    const auto edit = structure->editFor(tags, false);
    if (!edit) return {};
    apply(*edit, block);
    return block;
}

} // namespace platform::draw
