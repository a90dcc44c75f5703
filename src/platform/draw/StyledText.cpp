#include "platform/draw/StyledText.h"

#include "base/Text.h"
#include "internal/FontCatalog.h"
#include "internal/StyledTextReading.h"
#include "internal/UnicodeText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iconv.h>

namespace platform::draw {
namespace {

using namespace std::string_view_literals;

std::string utf16(std::string_view bytes, bool bigEndian) {
    return utf8FromUTF16({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, bigEndian);
}

base::Result<StyledText> plain(std::string_view text) {
    StyledTextCollector collector;
    collector.append(text, {});
    return collector.finish();
}

base::Result<StyledText> readPlain(std::string_view bytes) {
    const auto marked = utf8ByMark(bytes);
    return plain(marked ? *marked : utf8FromEncoding(bytes, "UTF-8"));
}

template <bool bigEndian>
base::Result<StyledText> readUTF16(std::string_view bytes) {
    const auto marked = utf8ByMark(bytes);
    return plain(marked ? *marked : utf16(bytes, bigEndian));
}

struct Type {
    std::string_view identifier;
    base::Result<StyledText> (*read)(std::string_view bytes);
};
constexpr std::array types{
    Type{"public.rtf", readRTF},
    Type{"public.html", readHTML},
    Type{"public.utf8-plain-text", readPlain},
    Type{"public.utf16-external-plain-text", readUTF16<true>},
    Type{"public.utf16-plain-text", readUTF16<false>},
    Type{"public.plain-text", readPlain},
    Type{"public.text", readPlain},
};
constexpr auto identifiers = [] {
    std::array<std::string_view, types.size()> all;
    std::transform(types.begin(), types.end(), all.begin(), [](const Type& type) { return type.identifier; });
    return all;
}();

} // namespace

AttributedText StyledText::attributedText() const {
    AttributedText text{string, {}};
    if (fontName) text.attributes.fontName = *fontName;
    if (fontSize) text.attributes.fontSize = *fontSize;
    if (color) text.attributes.color = *color;
    if (alignment) text.attributes.alignment = *alignment;
    return text;
}

std::span<const std::string_view> styledTextTypes() {
    return identifiers;
}

base::Result<StyledText> readStyledText(const base::Data& data, std::string_view type) {
    const auto* known = std::find_if(types.begin(), types.end(), [&](const Type& candidate) {
        return base::equalIgnoringCase(candidate.identifier, type);
    });
    if (known == types.end()) return base::failure(styledTextError(std::string(type) + " is no type of text"));
    if (data.size() > maximumStyledTextData)
        return base::failure(styledTextError("it is larger than " + std::to_string(maximumStyledTextData) + " bytes"));
    return known->read(data.asText());
}

base::Error styledTextError(std::string_view what) {
    return {std::string(base::cocoaErrorDomain), 259, "cannot read the text: " + std::string(what)};
}

void StyledTextCollector::append(std::string_view text, const TextStyle& style) {
    const bool begins = isEmpty();
    std::string& string = text_.string;
    const auto offset = static_cast<std::ptrdiff_t>(string.size());
    for (std::size_t at = 0; at < text.size() && string.size() <= maximumStyledText; ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const std::string_view rest = text.substr(at);
        if (byte == '\r' || byte == '\v' || byte == '\f') {
            string += '\n';
            if (rest.starts_with("\r\n")) ++at;
        } else if (rest.starts_with("\u2028"sv) || rest.starts_with("\u2029"sv)) {
            string += '\n';
            at += 2;
        } else if (rest.starts_with("\xEF\xBF\xBE"sv) || rest.starts_with("\xEF\xBF\xBF"sv)) {
            at += 2;
        } else if (byte >= 0x20 ? byte != 0x7F : byte == '\t' || byte == '\n') {
            string += text[at];
        }
    }
    lines_ += static_cast<std::size_t>(std::count(string.begin() + offset, string.end(), '\n'));
    if (!begins || isEmpty()) return;
    if (style.font)
        text_.fontName = FontCatalog::shared().postScriptNameFor(*style.font, style.isBold, style.isItalic);
    else if (style.isBold || style.isItalic)
        text_.fontName =
            FontCatalog::shared().postScriptNameFor(TextAttributes().fontName, style.isBold, style.isItalic);
    text_.fontSize = style.size;
    text_.color = style.color;
    text_.alignment = style.alignment;
}

void StyledTextCollector::removeLineBreaksAtEnd() {
    if (!isFull()) text_.string.erase(text_.string.find_last_not_of('\n') + 1);
}

base::Result<StyledText> StyledTextCollector::finish() {
    if (text_.string.size() > maximumStyledText)
        return base::failure(styledTextError("it is longer than " + std::to_string(maximumStyledText) + " bytes"));
    if (isFull())
        return base::failure(styledTextError("it has more than " + std::to_string(maximumStyledTextLines) + " lines"));
    return std::move(text_);
}

std::string utf8FromEncoding(std::string_view bytes, const char* encoding) {
    constexpr std::string_view replacement = "\uFFFD";
    std::string text;
    if (std::all_of(bytes.begin(), bytes.end(), [](char byte) { return static_cast<signed char>(byte) >= 0; }))
        return std::string(bytes);
    const iconv_t converter = iconv_open("UTF-8", encoding);
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        for (const char byte : bytes)
            text.append(static_cast<signed char>(byte) >= 0 ? std::string_view(&byte, 1) : replacement);
        return text;
    }
    char* input = const_cast<char*>(bytes.data()); // read only, whatever its type says
    std::size_t left = bytes.size();
    while (left > 0) {
        char buffer[4096];
        char* output = buffer;
        std::size_t room = sizeof buffer;
        const bool isBroken =
            iconv(converter, &input, &left, &output, &room) == static_cast<std::size_t>(-1) && errno != E2BIG;
        text.append(buffer, sizeof buffer - room);
        if (isBroken && left > 0) {
            text += replacement;
            ++input;
            --left;
        }
    }
    iconv_close(converter);
    return text;
}

std::optional<std::string> utf8ByMark(std::string_view bytes) {
    if (bytes.starts_with("\xEF\xBB\xBF"sv)) return utf8FromEncoding(bytes.substr(3), "UTF-8");
    if (bytes.starts_with("\xFF\xFE"sv)) return utf16(bytes.substr(2), false);
    if (bytes.starts_with("\xFE\xFF"sv)) return utf16(bytes.substr(2), true);
    return std::nullopt;
}

} // namespace platform::draw
