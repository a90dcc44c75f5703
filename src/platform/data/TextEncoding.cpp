#include "platform/data/TextEncoding.h"

#include "platform/data/AtomicFile.h"
#include "platform/data/RegularExpression.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <unicode/ucnv.h>
#include <unicode/utf8.h>

namespace platform::data {
namespace {

constexpr int unknownEncoding = 264; // as the platform numbers them: NSFileReadUnknownStringEncodingError
constexpr int wrongEncoding = 261;   // NSFileReadInapplicableStringEncodingError
constexpr std::size_t declarationReach = 256;

struct UTF16Form {
    const char* converter;
    std::size_t markLength;
};

/// By the byte order mark, else by the first character, which in a markup file is one of ASCII.
std::optional<UTF16Form> utf16FormOf(std::string_view bytes) {
    if (bytes.starts_with("\xFF\xFE")) return UTF16Form{"UTF-16LE", 2};
    if (bytes.starts_with("\xFE\xFF")) return UTF16Form{"UTF-16BE", 2};
    if (bytes.size() < 2) return std::nullopt;
    if (bytes[0] != 0 && bytes[1] == 0) return UTF16Form{"UTF-16LE", 0};
    if (bytes[0] == 0 && bytes[1] != 0) return UTF16Form{"UTF-16BE", 0};
    return std::nullopt;
}

/// Fails at the first byte sequence that the encoding does not know, and for an encoding of no known name.
base::Result<std::string> converted(std::string_view bytes, const char* encoding, std::string_view name) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UConverter, decltype(&ucnv_close)> source(ucnv_open(encoding, &status), ucnv_close);
    const std::unique_ptr<UConverter, decltype(&ucnv_close)> target(ucnv_open("UTF-8", &status), ucnv_close);
    if (U_FAILURE(status)) {
        return base::failure(base::cocoaErrorDomain, unknownEncoding,
                             std::string(name) + " is in an unknown text encoding, \"" + encoding + "\"");
    }
    ucnv_setToUCallBack(source.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    ucnv_setFromUCallBack(target.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    // A UTF-16 unit becomes three bytes at most, a byte of a single-byte encoding as well.
    std::string text(bytes.size() * 3 + 16, '\0');
    char* out = text.data();
    const char* in = bytes.data();
    ucnv_convertEx(target.get(), source.get(), &out, text.data() + text.size(), &in, bytes.data() + bytes.size(),
                   nullptr, nullptr, nullptr, nullptr, true, true, &status);
    if (U_FAILURE(status)) {
        return base::failure(base::cocoaErrorDomain, wrongEncoding,
                             std::string(name) + " is not valid " + encoding + " text: damaged at byte " +
                                 std::to_string(in - bytes.data()));
    }
    text.resize(static_cast<std::size_t>(out - text.data()));
    return text;
}

/// The encoding that an XML declaration names, when the bytes begin with one.
std::optional<std::string> declaredEncoding(std::string_view bytes) {
    static const auto pattern =
        RegularExpression::compile(R"(^<\?xml\s[^>]*?encoding\s*=\s*["']([A-Za-z0-9._:-]+)["'])");
    const std::string_view head = bytes.substr(0, declarationReach);
    if (!pattern || !head.starts_with("<?xml")) return std::nullopt;
    const auto match = pattern->firstMatch(head);
    if (!match || !match->groups[0]) return std::nullopt;
    return std::string(head.substr(match->groups[0]->offset, match->groups[0]->length));
}

} // namespace

bool isValidUTF8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int64_t>(text.size());
    std::int64_t position = 0;
    while (position < length) {
        // Nearly all of it is ASCII: eight bytes at a time.
        std::uint64_t block;
        while (position + 8 <= length && (std::memcpy(&block, bytes + position, 8), !(block & 0x8080808080808080u))) {
            position += 8;
        }
        if (position == length) break;
        UChar32 character;
        U8_NEXT(bytes, position, length, character);
        if (character < 0) return false;
    }
    return true;
}

base::Result<std::string> textDetectingEncoding(std::string bytes, std::string_view name) {
    if (const auto form = utf16FormOf(bytes)) {
        return converted(std::string_view(bytes).substr(form->markLength), form->converter, name);
    }
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.erase(0, 3);
    if (isValidUTF8(bytes)) return bytes;
    const std::optional<std::string> encoding = declaredEncoding(bytes);
    const bool claimsUnicode = encoding && (encoding->starts_with("UTF") || encoding->starts_with("utf"));
    if (!encoding || claimsUnicode) {
        return base::failure(base::cocoaErrorDomain, wrongEncoding,
                             std::string(name) + " is neither UTF-8 nor UTF-16 text");
    }
    return converted(bytes, encoding->c_str(), name);
}

base::Result<std::string> readTextDetectingEncoding(const base::URL& url) {
    if (!url.isFileURL()) {
        return base::failure(base::urlErrorDomain, -1002, url.absoluteString() + " names no file");
    }
    auto bytes = readFileBytes(url.path(), maximumTextFileSize);
    if (!bytes) return bytes;
    return textDetectingEncoding(std::move(*bytes), url.path());
}

} // namespace platform::data
