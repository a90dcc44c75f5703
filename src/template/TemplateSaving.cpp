// A document on its way back into its file.
#include "template/VELM_Template.h"

#include "base/Log.h"
#include "base/Text.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/XMLDocument.h"

using base::Value;
using platform::data::XMLDocument;
using platform::data::XMLDocumentRef;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

std::string textForFile(const Value& value, std::string_view key) {
    if (auto text = value.stringValue()) return *text;
    base::log("ERROR! non-string value:%@ %@", value, key);
    return {};
}

XMLNodeRef childElement(const VELM_Template& layer, std::string_view key) {
    const auto child = XMLNode::element(VELM_Template::translatedChildName(key), textForFile(layer.value(key), key));
    for (const std::string_view attribute : VELM_Template::attributesForChild(key)) {
        if (const Value& value = layer.value(attribute))
            child->setAttribute(VELM_Template::translatedAttributeName(attribute), textForFile(value, attribute));
    }
    return child;
}

XMLNodeRef layerElement(const VELM_Template& layer) {
    const auto element = XMLNode::element("layer");
    if (const auto type = layer.type())
        element->addAttribute(VELM_Template::xmlAttributeTranslatedName(VELM_XML_Key_type, *type));
    element->setAttribute(VELM_XML_Key_frame, base::stringFromRect(layer.frame()));
    if (const auto level = layer.zLevelString()) element->setAttribute(VELM_XML_Key_zindex, *level);
    for (const std::string_view key : layer.availableChildren()) {
        if (layer.value(key)) element->addChild(childElement(layer, key));
    }
    return element;
}

bool isOlder(const std::optional<std::string>& version) {
    return !version || base::doubleValue(*version) < VELM_Template::versionMinimum;
}

// Where the file stands then; none when there is no file that can be read, or when it stays.
std::optional<base::URL> fileMovedAside(const base::URL& url) {
    if (!platform::data::readFilePart(url.path(), 0, 0)) return std::nullopt;
    const base::URL aside = url.deletingPathExtension().appendingPathExtension("oldVELM").appendingPathExtension("xml");
    if (!platform::data::renameWithoutReplacing(url.path(), aside.path())) return std::nullopt;
    return aside;
}

} // namespace

XMLDocumentRef VELM_Template::xmlForSaving() {
    const auto layout = XMLNode::element(allContainerKeys().front());
    layout->setAttribute(VELM_XML_Key_size, base::stringFromSize(frame().size()));
    for (const Ref& layer : storedLayers())
        layout->addChild(layerElement(*layer));
    const auto root = XMLNode::element("data");
    root->setAttribute(VELM_XML_Key_type, className());
    root->setAttribute(VELM_XML_Key_version, xmlVersionString);
    root->addChild(layout);
    return XMLDocument::withRoot(root);
}

base::Result<void> VELM_Template::writeToURL(const base::URL& url, bool movesOldFileAside) {
    if (!url.isFileURL()) return base::failure(base::urlErrorDomain, -1002, url.absoluteString() + " names no file");
    const auto aside = movesOldFileAside && isOlder(versionXML()) ? fileMovedAside(url) : std::nullopt;
    auto written = platform::data::writeFileAtomically(
        url.path(), xmlForSaving()->xmlData(platform::data::XMLFormat::prettyPrinted));
    // A failure leaves the old contents where they were.
    if (!written && aside) (void)platform::data::renameWithoutReplacing(aside->path(), url.path());
    return written;
}

void VELM_Template::filePathSaveChanges(const std::optional<base::URL>& url, const SaveReply& saveChanges) {
    const auto fail = [&](const base::Error& error) {
        if (saveChanges)
            saveChanges(std::nullopt, error);
        else
            base::log("%s:%@", "-[VELM_Template filePath:saveChanges:]", error);
    };
    if (!hasUnsavedChanges()) {
        if (saveChanges) saveChanges(documentURL(), std::nullopt);
        return;
    }
    const std::optional<base::URL> target = url ? url : documentURL();
    if (!target) return fail({std::string(base::urlErrorDomain), -1, "No filepathURL specified"});
    if (const auto written = writeToURL(*target, url.has_value()); !written) return fail(written.error());
    setLastSaved(copyWithZone());
    if (saveChanges) saveChanges(target, std::nullopt);
}
