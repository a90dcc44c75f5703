// The shape of a binary property list, walked once before the library reads it. The form: "bplist00", the objects, a
// table of their offsets, and 32 bytes at the end that tell where that table is. An object begins with a byte of kind
// (upper half) and length (lower half, 15: the length follows as an integer object); containers refer to others by
// their number in the table.
#include "PlistTree.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace platform::data {
namespace {

constexpr std::size_t headerLength = 8;
constexpr std::size_t trailerLength = 32;
constexpr double dateReach = 2147483647.0; // what the library can hold, in seconds from 2001

enum Kind : std::uint8_t {
    simple = 0x0,
    integer = 0x1,
    date = 0x3,
    data = 0x4,
    ascii = 0x5,
    utf16 = 0x6,
    uid = 0x8,
    array = 0xA,
    dictionary = 0xD
};

class Checker {
public:
    explicit Checker(std::string_view bytes) : bytes_(bytes) {}

    base::Result<void> check() {
        if (bytes_.size() < headerLength + trailerLength || !bytes_.starts_with("bplist0")) {
            return plistFailure("it is cut off");
        }
        const std::size_t trailer = bytes_.size() - trailerLength;
        offsetSize_ = number(trailer + 6, 1);
        referenceSize_ = number(trailer + 7, 1);
        const std::uint64_t count = number(trailer + 8, 8);
        const std::uint64_t top = number(trailer + 16, 8);
        table_ = number(trailer + 24, 8);
        const bool sizesFit = offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 && referenceSize_ <= 8;
        if (!sizesFit || table_ < headerLength || table_ > trailer || count == 0 ||
            count > (trailer - table_) / offsetSize_ || top >= count) {
            return plistFailure("its table of objects is damaged");
        }
        seen_.resize(count);
        if (visit(top, 1)) return {};
        return plistFailure(problem_);
    }

private:
    struct Seen {
        int height = 0; ///< 0: not visited, -1: being visited
        std::uint64_t values = 0;
        std::uint64_t bytes = 0; ///< of texts and data
    };

    /// Big-endian; the place must lie inside.
    std::uint64_t number(std::size_t place, std::size_t size) const {
        std::uint64_t value = 0;
        for (std::size_t index = 0; index < size; ++index) {
            value = value << 8 | static_cast<std::uint8_t>(bytes_[place + index]);
        }
        return value;
    }

    bool fail(const char* problem) {
        problem_ = problem;
        return false;
    }

    /// Visits what the object holds, and notes how deep and how large it is unfolded.
    bool visit(std::uint64_t object, int depth) {
        Seen& seen = seen_[object];
        if (seen.height < 0) return fail("it contains itself");
        if (depth + seen.height > maximumPlistDepth) return fail("it is nested too deeply");
        if (seen.height > 0) return true;
        seen.height = -1;

        std::size_t place = number(table_ + object * offsetSize_, offsetSize_);
        if (place < headerLength || place >= table_) return fail("an object lies outside of it");
        const auto marker = static_cast<std::uint8_t>(bytes_[place++]);
        const auto kind = static_cast<Kind>(marker >> 4);
        std::uint64_t length = marker & 15;
        if (length == 15 && (kind == data || kind == ascii || kind == utf16 || kind == array || kind == dictionary)) {
            const std::optional<std::uint64_t> following = lengthAt(place);
            if (!following) return fail("a length is damaged");
            length = *following;
        }
        const std::uint64_t room = table_ - place;

        int height = 1;
        std::uint64_t values = 1;
        std::uint64_t bytes = 0;
        switch (kind) {
        case array:
        case dictionary: {
            const std::uint64_t perItem = (kind == dictionary ? 2 : 1) * referenceSize_;
            if (length > room / perItem) return fail("it is cut off");
            const std::uint64_t references = kind == dictionary ? 2 * length : length;
            for (std::uint64_t index = 0; index < references; ++index) {
                const std::uint64_t child = number(place + index * referenceSize_, referenceSize_);
                if (child >= seen_.size()) return fail("it refers to an object that it does not hold");
                if (kind == dictionary && index < length && !isText(child)) return fail("a key is not a text");
                if (!visit(child, depth + 1)) return false;
                height = std::max(height, seen_[child].height + 1);
                values += seen_[child].values;
                if (values > maximumPlistValues) return fail("it unfolds into too many values");
                bytes += seen_[child].bytes;
                if (bytes > maximumPlistSize) return fail("it unfolds into too many bytes");
            }
            break;
        }
        case date: {
            if (length != 3 || room < 8) return fail("a date is damaged");
            const std::uint64_t bits = number(place, 8);
            double seconds;
            std::memcpy(&seconds, &bits, sizeof seconds);
            if (!(seconds > -dateReach && seconds < dateReach)) return fail("a date is out of range");
            break;
        }
        case utf16:
            if (length > room / 2) return fail("it is cut off");
            if (!isGoodUTF16(place, length)) return fail("a text is damaged");
            bytes = 2 * length;
            break;
        case ascii:
            if (length > room) return fail("it is cut off");
            if (bytes_.substr(place, length).find('\0') != std::string_view::npos) return fail("a text is damaged");
            bytes = length;
            break;
        case data:
            if (length > room) return fail("it is cut off");
            bytes = length;
            break;
        case uid:
            if (length + 1 > 8 || length + 1 > room) return fail("a reference is damaged");
            break;
        default:
            if (kind != simple && (length > 4 || (std::uint64_t{1} << length) > room))
                return fail("a number is damaged");
            break;
        }
        seen_[object] = {height, values, bytes};
        return true;
    }

    /// The library drops a text with a lone surrogate, and cuts one (or stops the process) at a zero character.
    bool isGoodUTF16(std::size_t place, std::uint64_t length) const {
        bool wantsLow = false;
        for (std::uint64_t index = 0; index < length; ++index) {
            const std::uint64_t unit = number(place + 2 * index, 2);
            const bool isHigh = unit >= 0xD800 && unit < 0xDC00;
            const bool isLow = unit >= 0xDC00 && unit < 0xE000;
            if (unit == 0 || isLow != wantsLow) return false;
            wantsLow = isHigh;
        }
        return !wantsLow;
    }

    bool isText(std::uint64_t object) const {
        const std::size_t place = number(table_ + object * offsetSize_, offsetSize_);
        if (place < headerLength || place >= table_) return false;
        const int kind = static_cast<std::uint8_t>(bytes_[place]) >> 4;
        return kind == ascii || kind == utf16;
    }

    /// The integer object that holds a length; moves `place` behind it.
    std::optional<std::uint64_t> lengthAt(std::size_t& place) const {
        if (place >= table_) return std::nullopt;
        const auto marker = static_cast<std::uint8_t>(bytes_[place]);
        const std::size_t size = std::size_t{1} << (marker & 15);
        if (marker >> 4 != integer || size > 8 || size >= table_ - place) return std::nullopt;
        const std::uint64_t length = number(place + 1, size);
        place += 1 + size;
        return length;
    }

    std::string_view bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::size_t table_ = 0;
    std::vector<Seen> seen_;
    const char* problem_ = "it is damaged";
};

} // namespace

base::Result<void> checkBinaryPlist(std::string_view bytes) {
    if (bytes.size() > maximumPlistSize) return plistFailure("it is too large");
    return Checker(bytes).check();
}

} // namespace platform::data
