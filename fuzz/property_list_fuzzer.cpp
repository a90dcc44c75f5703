// A property list in its XML or its binary form: read, written in both and read again.
#include "Fuzzing.h"
#include "platform/data/PropertyList.h"

using fuzzing::require;
using platform::data::parsePropertyList;
using platform::data::propertyListData;
using platform::data::PropertyListFormat;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    const auto value = parsePropertyList(std::string_view(reinterpret_cast<const char*>(bytes), size));
    if (!value) {
        require(!value.error().localizedDescription.empty(), "what is refused is told");
        return 0;
    }
    (void)value->description();
    // Bytes are compared: a number that is none differs from itself.
    const auto binary = propertyListData(*value, PropertyListFormat::binary);
    require(binary.has_value(), "what was read is written in the binary form");
    const auto again = parsePropertyList(*binary);
    require(again.has_value(), "what was written in the binary form is read");
    require(propertyListData(*again, PropertyListFormat::binary).value() == *binary,
            "the binary form keeps everything");

    const auto xml = propertyListData(*value, PropertyListFormat::xml);
    if (!xml) return 0; // it holds what XML has no form for
    const auto fromXML = parsePropertyList(*xml);
    require(fromXML.has_value(), "what was written as XML is read");
    require(propertyListData(*fromXML, PropertyListFormat::xml).value() == *xml, "XML keeps what it can hold");
    return 0;
}
