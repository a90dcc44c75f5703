#include "template/VELM_XML_object.h"

#include "base/Log.h"
#include "platform/data/XMLDocument.h"

using base::Value;
using platform::data::XMLDocument;

namespace {

// Keys of the archived form.
constexpr std::string_view archivedValuesDict = "self.valuesDict";
constexpr std::string_view archivedDocumentURL = "self.documentURL";
constexpr std::string_view archivedXMLString = "self.xmlString";

} // namespace

Value VELM_XML_object::pathAsURL(const Value& object) {
    const auto path = object.text();
    return path ? Value(base::URL::fileURLWithPath(*path)) : object;
}

bool VELM_XML_object::initWithObject(const Value& object) {
    valuesDict_.clear();
    if (const auto* text = object.as<std::string>()) {
        xmlString_ = *text;
    } else if (const auto* url = object.as<base::URL>()) {
        documentURL_ = *url;
        if (auto read = platform::data::readTextDetectingEncoding(*url))
            xmlString_ = std::move(*read);
        else
            base::log("%@", read.error());
    } else if (const auto* data = object.as<base::Data>(); data && platform::data::isValidUTF8(data->asText())) {
        xmlString_ = std::string(data->asText());
    }
    return xmlString_ && !xmlString_->empty();
}

const std::shared_ptr<const XMLDocument>& VELM_XML_object::xmlDoc() {
    if (xmlDocIsMade_) return xmlDoc_;
    xmlDocIsMade_ = true;
    if (!xmlString_ && documentURL_) {
        if (auto read = platform::data::readTextDetectingEncoding(*documentURL_)) xmlString_ = std::move(*read);
    }
    auto parsed = XMLDocument::parse(xmlString_.value_or(""));
    if (!parsed) {
        base::log("%@ %@", documentURL_, parsed.error());
        parsed = XMLDocument::parseTidy(xmlString_.value_or(""));
        if (!parsed) base::log("%@", parsed.error());
    }
    if (parsed) xmlDoc_ = *parsed;
    return xmlDoc_;
}

std::optional<std::string> VELM_XML_object::name() const {
    return value(VELM_XML_Key_name).stringValue();
}

std::optional<std::string> VELM_XML_object::type() const {
    return value(VELM_XML_Key_type).stringValue();
}

std::optional<std::string> VELM_XML_object::versionXML() const {
    return value(VELM_XML_Key_version).stringValue();
}

std::optional<std::string> VELM_XML_object::lastPathComponent() const {
    return documentURL_ ? std::optional(documentURL_->lastPathComponent()) : std::nullopt;
}

void VELM_XML_object::setValue(std::string_view key, Value value) {
    if (value)
        valuesDict_.insert_or_assign(std::string(key), std::move(value));
    else if (const auto found = valuesDict_.find(key); found != valuesDict_.end())
        valuesDict_.erase(found);
}

void VELM_XML_object::dropUncodedValues() {
    std::erase_if(valuesDict_, [](const auto& entry) {
        const auto* object = entry.second.template as<base::ObjectRef>();
        if (!object || (*object)->encoded()) return false;
        base::log("found a non-coding object %@ for key %@", **object, entry.first);
        return true;
    });
}

std::optional<base::Dictionary> VELM_XML_object::encoded() {
    dropUncodedValues();
    base::Dictionary archived;
    archived.emplace(archivedValuesDict, valuesDict_);
    if (documentURL_) archived.emplace(archivedDocumentURL, *documentURL_);
    if (xmlString_) archived.emplace(archivedXMLString, *xmlString_);
    return archived;
}

bool VELM_XML_object::takeArchived(const base::Dictionary& archived) {
    const Value& values = base::valueForKey(archived, archivedValuesDict);
    const Value& url = base::valueForKey(archived, archivedDocumentURL);
    const Value& text = base::valueForKey(archived, archivedXMLString);
    if ((values && !values.as<base::Dictionary>()) || (url && !url.as<base::URL>()) || (text && !text.isText()))
        return false;
    if (values) valuesDict_ = *values.as<base::Dictionary>();
    if (url) documentURL_ = *url.as<base::URL>();
    xmlString_ = text.text();
    return true;
}
