// Text from a pasteboard; the type is the target's own (TEXT_TYPE).
#include "Fuzzing.h"
#include "platform/draw/StyledText.h"

using namespace platform::draw;
using fuzzing::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    const auto text = readStyledText(fuzzing::dataOf(bytes, size), TEXT_TYPE);
    if (!text) {
        require(!text.error().localizedDescription.empty(), "a refusal says why");
        return 0;
    }
    require(text->string.size() <= maximumStyledText, "a text stays within its limit");
    for (const char byte : text->string)
        require(static_cast<unsigned char>(byte) >= 0x20 || byte == '\n' || byte == '\t',
                "a text holds no control characters");
    require(!text->fontSize || (*text->fontSize > 0 && *text->fontSize < 1e9), "a font has a size");
    if (text->color) {
        require(text->color->components().size() == 4, "a colour has red, green, blue and alpha");
        for (const double component : text->color->components())
            require(component >= 0 && component <= 1, "components lie within 0 and 1");
    }
    // What came out is well-formed: as plain text it comes back.
    const auto again = readStyledText(base::Data(text->string), "public.utf8-plain-text");
    require(again && (again->string == text->string || text->string.starts_with("\uFEFF")), "a text is UTF-8");
    return 0;
}
