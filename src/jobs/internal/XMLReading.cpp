#include "XMLReading.h"

#include "base/Log.h"
#include "template/VELM_XML_object.h"

namespace jobs {

using platform::data::XMLNode;

bool isElementToRead(const XMLNode& node) {
    if (node.isElement()) return true;
    if (!node.isComment()) base::log("Found unexpected XML element kind:\n%lu", node.kindNumber());
    return false;
}

void logUnexpectedAttribute(const XMLNode& attribute) {
    base::log("Found unexpected XML attribute:%@=%@", attribute.name(), attribute.stringValue());
}

std::optional<base::Error> versionError(double version, std::string_view shown, std::string_view type) {
    const char* words = version > VELM_XML_object::versionMaximum   ? "file version too new %@ when parsing %@"
                        : version < VELM_XML_object::versionMinimum ? "file version too old %@ when parsing %@"
                                                                    : nullptr;
    if (!words) return std::nullopt;
    return base::Error{std::string(base::posixErrorDomain), jobErrorCode, base::message(words, shown, type)};
}

} // namespace jobs
