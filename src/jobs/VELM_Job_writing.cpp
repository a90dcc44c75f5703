// Jobs built in code, and the native ticket that a job is written as.
#include "jobs/VELM_Job.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/BundleWriter.h"
#include "internal/XMLReading.h"
#include "jobs/VELM_Package.h"
#include "output/VELM_Output.h"
#include "platform/data/Collation.h"
#include "platform/data/FileTypes.h"
#include "template/ElementWriting.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <iterator>

using platform::data::XMLDocument;
using platform::data::XMLDocumentRef;
using platform::data::XMLFormat;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

std::string classOfValue(const base::Value& value) {
    if (const auto* object = value.as<base::ObjectRef>()) return (*object)->className();
    if (value.as<base::Array>()) return "NSArray";
    if (value.as<base::Data>()) return "NSData";
    if (value.as<base::Date>()) return "NSDate";
    if (value.as<base::URL>()) return "NSURL";
    if (value.isNumber()) return "NSNumber";
    return "NSValue";
}

constexpr auto isPresent = [](const auto& pointer) { return pointer != nullptr; };

/// Null for a value that a ticket has no form for.
XMLNodeRef elementForReplacement(const std::string& key, const base::Value& value) {
    if (const auto text = value.text()) return XMLNode::element(key, *text);
    const auto* parts = value.as<base::Dictionary>();
    if (!parts) {
        base::log("need to handle key of type %@", classOfValue(value));
        return nullptr;
    }
    const XMLNodeRef element = XMLNode::element(key);
    for (const auto& [name, part] : *parts)
        if (const auto text = part.text()) element->addChild(XMLNode::element(name, *text));
    return element;
}

/// What an existing replacement becomes when another one of its key is added.
base::Value mergedReplacement(const base::Value& present, const base::Value& added) {
    if (const auto* addedEntries = added.as<base::Dictionary>()) {
        const auto* entries = present.as<base::Dictionary>();
        if (!entries) return present;
        base::Dictionary merged = *entries;
        for (const auto& [key, value] : *addedEntries)
            merged.insert_or_assign(key, value);
        return merged;
    }
    if (const auto* addedMembers = added.as<base::Array>()) {
        const auto* members = present.as<base::Array>();
        if (!members) return present;
        base::Array merged = *members;
        merged.insert(merged.end(), addedMembers->begin(), addedMembers->end());
        return merged;
    }
    return added;
}

base::Result<jobs::BundleFiles> filesOfBundle(const VELM_Job& job) {
    jobs::BundleFiles files;
    std::string ticket(job.asXMLDocument()->xmlData(XMLFormat::prettyPrinted).asText());
    // A key may be no name of an element.
    if (const auto readBack = XMLDocument::parse(ticket); !readBack)
        return base::failure(base::posixErrorDomain, jobs::jobErrorCode,
                             base::message("the job's ticket could not be read back: %@", readBack.error()));
    files["job.xml"] = std::move(ticket);

    base::Result<void> added;
    for (const base::URL& image : job.images()) {
        if (!image.isFileURL())
            return base::failure(base::urlErrorDomain, -1002, image.absoluteString() + " names no file");
        if (added) added = jobs::addFileCopy(files, "images/", image.path());
    }
    const auto addFileOf = [&files, &added](const VELM_Template& written) {
        const auto& document = written.documentURL();
        if (!added || !document) return;
        if (platform::data::conformsToType(*document, platform::data::kUTTypeData) &&
            jobs::isReadable(document->path()))
            added = jobs::addFileCopy(files, "templates/", document->path());
        else
            base::log("template %@ can't be read and is left out of the job", document->path());
    };
    for (const auto& package : job.packages())
        for (const auto& [name, node] : package->velmNodes())
            addFileOf(*node);
    for (const auto& jobTemplate : job.templates())
        addFileOf(*jobTemplate);
    if (!added) return base::failure(added.error());
    return files;
}

} // namespace

// Building in code -----------------------------------------------------------------------------------------------

void VELM_Job::addReplacements(const base::Dictionary& added) {
    const auto* present = valueForKeyInDict("key").as<base::Dictionary>();
    if (!present) {
        setObject(added, "key");
        return;
    }
    base::Dictionary merged = *present;
    for (const auto& [key, value] : added) {
        const auto entry = merged.find(key);
        if (entry == merged.end())
            merged.emplace(key, value);
        else
            entry->second = mergedReplacement(entry->second, value);
    }
    setObject(std::move(merged), "key");
}

void VELM_Job::addTemplates(const std::vector<std::shared_ptr<VELM_Template>>& templates) {
    std::copy_if(templates.begin(), templates.end(), std::back_inserter(templates_), isPresent);
}

void VELM_Job::addPackages(const std::vector<std::shared_ptr<VELM_Package>>& packages) {
    std::copy_if(packages.begin(), packages.end(), std::back_inserter(packages_), isPresent);
    base::Array references;
    for (const auto& package : packages_) {
        base::Dictionary reference{{"package", package}};
        if (urlJobContainer_) reference.emplace("job", *urlJobContainer_);
        if (const auto name = package->name()) reference.emplace("name", *name);
        references.emplace_back(std::move(reference));
    }
    setObject(std::move(references), "package");
}

void VELM_Job::addOutputs(const base::Array& added) {
    base::Array all = outputs();
    const std::size_t before = all.size();
    for (const base::Value& entry : added)
        if (entry.object<VELM_Output>()) all.push_back(entry);
    if (all.size() == before) return;
    change("outputs", [&] { valuesDict_.insert_or_assign("output", std::move(all)); });
}

void VELM_Job::addImages(const std::vector<JobImage>& images) {
    std::vector<std::shared_ptr<VELM_Template>> templates;
    for (const JobImage& image : images) {
        if (image.URL.absoluteString().empty()) continue;
        images_.push_back(image.URL);
        if (!image.imageTemplate) continue;
        if (const auto fileName = image.imageTemplate->lastPathComponent()) {
            base::Dictionary templatesOfImages;
            if (const auto* present = valueForKeyInDict("template").as<base::Dictionary>())
                templatesOfImages = *present;
            templatesOfImages.insert_or_assign(image.URL.lastPathComponent(), *fileName);
            setObject(std::move(templatesOfImages), "template");
        }
        templates.push_back(image.imageTemplate);
    }
    addTemplates(templates);
}

// The ticket -----------------------------------------------------------------------------------------------------

std::vector<std::pair<std::string, std::string>> VELM_Job::xmlElementAttributes() const {
    return {{"type", base::lowercase(className())}, {"version", std::string(xmlVersionString)}};
}

std::vector<XMLNodeRef> VELM_Job::xmlElementChildren() const {
    std::vector<XMLNodeRef> children;
    for (const auto& [key, value] : replacements())
        if (XMLNodeRef element = elementForReplacement(key, value)) children.push_back(std::move(element));
    for (const auto& package : packages_)
        children.push_back(package->asXMLElement());
    if (!images_.empty()) {
        std::vector<std::string> names;
        for (const base::URL& image : images_)
            names.push_back(image.lastPathComponent());
        std::stable_sort(names.begin(), names.end(), [](const std::string& left, const std::string& right) {
            return platform::data::compareIgnoringCaseNumeric(left, right) < 0;
        });
        const XMLNodeRef allImages = XMLNode::element("allimages");
        for (const std::string& name : names)
            allImages->addChild(XMLNode::element("filepath", name));
        children.push_back(allImages);
    }
    return children;
}

XMLNodeRef VELM_Job::asXMLElement() const {
    return xmlElement(xmlElementName, xmlElementAttributes(), xmlElementChildren());
}

XMLDocumentRef VELM_Job::asXMLDocument() const {
    const XMLNodeRef root = asXMLElement();
    root->setName("data");
    return XMLDocument::withRoot(root);
}

void VELM_Job::writeToURL(const base::URL& url, const WriteResult& result) {
    const auto files = filesOfBundle(*this);
    const auto written =
        files ? jobs::writeBundle(url.path(), *files) : base::Result<void>(base::failure(files.error()));
    if (!result) return;
    if (written)
        result(true, std::nullopt);
    else
        result(false, written.error());
}

std::string_view VELM_Job::translatedChildName(std::string_view key) {
    return VELM_Template::translatedChildName(key);
}

std::string_view VELM_Job::translatedAttributeName(std::string_view key) {
    return VELM_Template::translatedAttributeName(key);
}

std::string_view VELM_Job::translatedAttributeValue(std::string_view value) {
    return VELM_Template::translatedAttributeValue(value);
}

XMLNodeRef VELM_Job::xmlAttributeTranslatedName(std::string_view key, std::string_view value) {
    return VELM_Template::xmlAttributeTranslatedName(key, value);
}

std::span<const std::string_view> VELM_Job::attributesForChild(std::string_view key) {
    return VELM_Template::attributesForChild(key);
}

void VELM_Job::filePath(const std::optional<base::URL>& url, const WriteResult& saveChanges) {
    if (url || documentURL_.isFileURL()) return;
    const base::Error error{std::string(base::urlErrorDomain), -1, "No filepathURL specified"};
    if (saveChanges)
        saveChanges(false, error);
    else
        base::log("%s:%@", "-[VELM_Job filePath:saveChanges:]", error);
}
