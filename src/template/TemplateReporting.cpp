// What the reader tells the report.
#include "internal/TemplateReader.h"

#include "base/Text.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/TextEncoding.h"
#include "platform/data/XMLDocument.h"
#include "template/TemplateKeys.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

using base::URL;
using base::Value;
using platform::data::XMLDocument;
using platform::data::XMLNode;
using platform::data::XMLNodeKind;

namespace {

/// "Line 12: words" as the parser's errors begin, taken apart.
TemplateReport::Finding findingOf(const base::Error& error, const std::string& file) {
    constexpr std::string_view prefix = "Line ";
    std::string_view words = error.localizedDescription;
    int line = 0;
    if (words.starts_with(prefix)) {
        const auto [end, problem] = std::from_chars(words.data() + prefix.size(), words.data() + words.size(), line);
        if (problem == std::errc()) words.remove_prefix(static_cast<std::size_t>(end - words.data()));
        if (words.starts_with(": ")) words.remove_prefix(2);
    }
    return {{file, line}, std::string(words)};
}

std::string nameOf(const TemplateReport::Origin& origin) {
    if (origin.kind == TemplateReport::Origin::Kind::element) return "<" + origin.name + ">";
    return "attribute " + origin.name + " of <" + origin.element + ">";
}

} // namespace

const std::string& TemplateReader::file() const {
    static const std::string none;
    return openFiles_.empty() ? none : openFiles_.back().path;
}

std::string TemplateReader::quotable(std::string_view text) {
    constexpr std::size_t maximumLength = 200;
    const std::string_view part = base::truncated(text, maximumLength);
    std::string quoted(base::trimmed(part));
    std::replace_if(
        quoted.begin(), quoted.end(), [](char character) { return character >= 0 && character < ' '; }, ' ');
    return part.size() < text.size() ? quoted + "..." : quoted;
}

TemplateReport::Place TemplateReader::placeOf(const XMLNode& node) const {
    auto line = static_cast<int>(node.line());
    if (node.kind() == XMLNodeKind::text) {
        // A text begins right behind the tag before it; its words may begin further down.
        const std::string text = node.stringValue();
        const auto words =
            text.begin() + static_cast<std::ptrdiff_t>(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
        line += static_cast<int>(std::count(text.begin(), words, '\n'));
    }
    return {file(), line};
}

TemplateReport::Place TemplateReader::placeOfPath(const VELM_Template& layer, const XMLNode& element) const {
    for (const std::string_view key : {VELM_XML_Key_filepath, VELM_XML_Key_filename}) {
        if (const auto* origin = report_ ? report_->originOf(layer, key) : nullptr) return origin->place;
    }
    return placeOf(element);
}

void TemplateReader::noteFault(const XMLNode& source, grammar::Form form, const std::string& text) const {
    if (!report_) return;
    const auto fault = grammar::faultOf(form, text);
    if (!fault) return;
    if (source.kind() == XMLNodeKind::attribute)
        note(source, "attribute %@: \"%@\" %@", source.name(), text, *fault);
    else
        note(source, "<%@>: \"%@\" %@", source.name(), text, *fault);
}

void TemplateReader::noteUnsound(VELM_Template& readingObject) const {
    if (!report_) return;
    const auto xmlDoc = readingObject.xmlDoc();
    if (xmlDoc && !xmlDoc->recoveredFrom()) return;
    auto error = xmlDoc ? xmlDoc->recoveredFrom() : std::nullopt;
    if (!xmlDoc) {
        const auto parsed = XMLDocument::parse(readingObject.xmlString().value_or(""));
        error = parsed ? base::Error() : parsed.error();
    }
    auto finding = findingOf(*error, file());
    report_->add(std::move(finding.place),
                 base::message(xmlDoc ? "the XML is damaged, and only what could be recovered is read: %@"
                                      : "nothing of the file can be read: %@",
                               quotable(finding.message)));
}

void TemplateReader::noteRoot(const XMLNode& root) const {
    if (!report_) return;
    for (const auto& attribute : root.attributes()) {
        const std::string text = attribute->stringValue();
        if (attribute->nameIs(VELM_XML_Key_type)) {
            if (text != "VELM_Template")
                note(*attribute, "type \"%@\" is not that of a template, VELM_Template; it is read all the same", text);
        } else if (attribute->nameIs(VELM_XML_Key_version)) {
            const double version = base::doubleValue(text);
            if (version < VELM_Template::versionMinimum || version > VELM_Template::versionMaximum)
                note(*attribute, "version \"%@\" is not one from 1.0 to 1.99; it is read all the same", text);
        } else {
            note(*attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(), root.name());
        }
    }
}

void TemplateReader::noteMissing(const Value& path, bool isNode, TemplateReport::Place place) const {
    if (!report_) return;
    std::vector<std::string> tried;
    std::string reasons;
    for (const Value& candidate : placesOf(path, isNode)) {
        const auto text = candidate.text();
        const auto* url = candidate.as<URL>();
        const std::string triedPath = text ? URL::fileURLWithPath(*text).path() : url ? url->path() : "";
        if (triedPath.empty() || std::find(tried.begin(), tried.end(), triedPath) != tried.end()) continue;
        tried.push_back(triedPath);
        std::error_code failed;
        if (!std::filesystem::exists(triedPath, failed)) continue;
        const auto read = platform::data::readTextDetectingEncoding(URL::fileURLWithPath(triedPath));
        reasons += "; " + (read ? triedPath + " is empty" : read.error().localizedDescription);
    }
    std::string places;
    for (const std::string& triedPath : tried)
        places += (places.empty() ? "" : ", ") + triedPath;
    report_->add(std::move(place),
                 base::message("%@ \"%@\" can't be read. Tried %@%@", isNode ? "nested file" : "template",
                               quotable(path.description()), places, reasons));
}

void TemplateReader::noteKept(const XMLNode& source, std::string_view key) const {
    if (!report_) return;
    const TemplateKey* known = templateKey(key);
    const bool isAttribute = source.kind() == XMLNodeKind::attribute;
    const std::string named = isAttribute ? "attribute " + source.name() : "<" + source.name() + ">";
    if (!known)
        note(source, "%@ is kept under that name, which nothing reads", named);
    else if (known->kind == TemplateKey::Kind::rectangle || known->kind == TemplateKey::Kind::templates ||
             known->kind == TemplateKey::Kind::dictionary)
        note(source, "%@ is a text, which can't serve as the document's \"%@\"", named, key);
}

void TemplateReader::noteUnknownChild(const VELM_Template& layer, const XMLNode& child) const {
    if (!report_) return;
    if (child.nameIs("stringnumber")) {
        const auto* key = report_->originOf(layer, VELM_XML_Key_stamp);
        if (key && base::equalIgnoringCase(key->name, "stringnumber")) {
            if (key->place.line == static_cast<int>(child.line())) return;
            return note(child, "<%@> stands twice; the first is read", child.name());
        }
        return note(child, "<%@> is read only in a layer of type edittextbox", child.name());
    }
    note(child, "element <%@> of a layer is not known and is not read", child.name());
}

void TemplateReader::noteSubstituted(const VELM_Template& document, const VELM_Template& layer) const {
    if (!report_) return;
    const TemplateReport::Place place = report_->placeOf(layer).value_or(TemplateReport::Place{file(), 0});
    constexpr std::string_view taken[] = {VELM_XML_Key_filepath, VELM_XML_Key_filename, VELM_XML_Key_frame,
                                          VELM_XML_Key_zindex, VELM_XML_Key_key};
    for (const std::string_view key : taken) {
        if (key == VELM_XML_Key_filename || (key == VELM_XML_Key_key && !layer.value(key))) continue;
        const auto* origin = report_->originOf(layer, key);
        if (!origin && key == VELM_XML_Key_filepath) origin = report_->originOf(layer, VELM_XML_Key_filename);
        TemplateReport::Origin given = origin ? *origin : TemplateReport::Origin{.name = "layer", .place = place};
        given.kind = TemplateReport::Origin::Kind::node;
        report_->setOrigin(document, key, std::move(given));
    }
    for (const auto& [key, value] : layer.valuesDict()) {
        if (key == VELM_XML_Key_type || std::find(std::begin(taken), std::end(taken), key) != std::end(taken)) continue;
        if (const auto* origin = report_->originOf(layer, key))
            report_->add(origin->place,
                         nameOf(*origin) + " is dropped: the document of a nested file takes the layer's place");
    }
}

void TemplateReader::setOrigins(const VELM_Template& layer, const XMLNode& element, const XMLNode& source,
                                const std::vector<grammar::Target::Stored>& stored) const {
    if (!report_) return;
    using Kind = TemplateReport::Origin::Kind;
    const bool isAttribute = source.kind() == XMLNodeKind::attribute;
    const TemplateReport::Origin origin{isAttribute ? Kind::attribute : Kind::element, source.name(), element.name(),
                                        placeOf(source)};
    for (const auto& [key, isReplaced] : stored) {
        const auto* before = report_->originOf(layer, key);
        if (before && isReplaced)
            report_->add(before->place, base::message("%@ gives \"%@\", which %@ in line %d replaces", nameOf(*before),
                                                      key, nameOf(origin), origin.place.line));
        report_->setOrigin(layer, key, origin);
    }
}
