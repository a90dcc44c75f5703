#include "XMLReading.h"

#include "base/Log.h"
#include "base/Text.h"
#include "template/VELM_XML_object.h"

#include <algorithm>

namespace jobs {

using platform::data::Findings;
using platform::data::Place;
using platform::data::XMLNode;
using platform::data::XMLNodeKind;

bool isElementToRead(const XMLNode& node, Findings* findings) {
    if (node.isElement()) return true;
    if (node.isComment()) return false;
    base::log("Found unexpected XML element kind:\n%lu", node.kindNumber());
    const bool isText = node.kind() == XMLNodeKind::text;
    const std::string text = findings && isText ? quotable(node.stringValue()) : std::string();
    if (!text.empty())
        note(findings, node, "the text \"%@\" stands where only elements are read and is lost", text);
    else if (!isText)
        note(findings, node, "%@ is no element and is not read", quotable(node.xmlString()));
    return false;
}

void logUnexpectedAttribute(const XMLNode& attribute, Findings* findings) {
    base::log("Found unexpected XML attribute:%@=%@", attribute.name(), attribute.stringValue());
    note(findings, attribute, "attribute %@=\"%@\" is not known and is not read", attribute.name(),
         quotable(attribute.stringValue()));
}

std::optional<base::Error> versionError(double version, std::string_view shown, std::string_view type) {
    const char* words = version > VELM_XML_object::versionMaximum   ? "file version too new %@ when parsing %@"
                        : version < VELM_XML_object::versionMinimum ? "file version too old %@ when parsing %@"
                                                                    : nullptr;
    if (!words) return std::nullopt;
    return base::Error{std::string(base::posixErrorDomain), jobErrorCode, base::message(words, shown, type)};
}

Place placeOf(const XMLNode& node, const Findings& findings) {
    unsigned line = node.line();
    if (node.kind() == XMLNodeKind::text) {
        // A text begins right behind the tag before it; its words may begin further down.
        const std::string text = node.stringValue();
        const auto words =
            text.begin() + static_cast<std::ptrdiff_t>(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
        line += static_cast<unsigned>(std::count(text.begin(), words, '\n'));
    }
    return findings.placeAt(line);
}

std::string quotable(std::string_view text) {
    constexpr std::size_t maximumLength = 200;
    text = base::trimmed(text);
    const std::string_view part = base::truncated(text, maximumLength);
    std::string quoted(part);
    std::replace_if(
        quoted.begin(), quoted.end(), [](char character) { return character >= 0 && character < ' '; }, ' ');
    return part.size() < text.size() ? quoted + "..." : quoted;
}

} // namespace jobs
