#include "jobs/VELM_Job.h"

#include "base/Log.h"
#include "base/Text.h"
#include "imaging/KLARON_Image.h"
#include "internal/FolderEnumeration.h"
#include "jobs/KLARON_Audit.h"
#include "jobs/OrderReport.h"
#include "platform/data/Collation.h"
#include "platform/data/Dates.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/FileTypes.h"
#include "platform/data/TextEncoding.h"

#include <algorithm>
#include <functional>
#include <set>

using platform::data::conformsToType;
using platform::data::kUTType_VELM_Job;
using platform::data::kUTTypeData;
using platform::data::kUTTypeXML;

namespace {

base::Error notAnOrder(const base::URL& url, std::string_view why) {
    return {std::string(base::cocoaErrorDomain), 256, url.path() + " " + std::string(why)};
}

/// A URL of an empty path names nothing.
std::optional<base::URL> fileURLForPath(const std::string& path) {
    if (path.empty()) return std::nullopt;
    return base::URL::fileURLWithPath(path);
}

/// "FILE: Line 12: words", as an error of the XML parser is told, or "FILE words", taken apart.
OrderReport::Finding refusalFromError(const base::Error& error, const std::string& file, unsigned line) {
    std::string_view words = error.localizedDescription;
    for (const char* separator : {": ", " "})
        if (!file.empty() && words.starts_with(file + separator))
            words.remove_prefix(file.size() + std::string_view(separator).size());
    constexpr std::string_view prefix = "Line ";
    if (const std::size_t end = words.find(": "); words.starts_with(prefix) && end != std::string_view::npos) {
        line = static_cast<unsigned>(base::integerValue(words.substr(prefix.size())));
        words.remove_prefix(end + 2);
    }
    return {{file, static_cast<int>(line)}, std::string(words)};
}

} // namespace

// Making ---------------------------------------------------------------------------------------------------------

/// Where a ticket's text came from.
struct VELM_Job::Source {
    base::URL document;
    std::optional<base::URL> container;
    std::string text;
};

VELM_Job::VELM_Job() : progress_(platform::run::Progress::create(totalProgressUnits)) {}

VELM_Job::~VELM_Job() {
    KLARON_Audit::end(this);
}

VELM_Job::Ref VELM_Job::init() {
    Ref job(new VELM_Job);
    job->valuesDict_ = {{"type", base::lowercase(job->className())}, {"version", 1.1}};
    return job;
}

base::Result<VELM_Job::Source> VELM_Job::sourceAtURL(const base::URL& url) {
    Source source;
    if (conformsToType(url, kUTType_VELM_Job)) {
        source.container = url;
        source.document = url.appendingPathComponent("job.xml");
    } else if (conformsToType(url, kUTTypeXML)) {
        const base::URL parent = url.deletingLastPathComponent();
        if (conformsToType(parent, kUTType_VELM_Job)) source.container = parent;
        source.document = url;
        // Receipts lie next to tickets and are not jobs.
        if (base::lowercase(url.lastPathComponent()).starts_with("receipt"))
            return base::failure(notAnOrder(url, "is a receipt, not a job ticket"));
    } else {
        const bool exists = platform::data::typeIdentifierOfFile(url).has_value();
        return base::failure(notAnOrder(url, exists ? "is neither a job bundle nor an XML ticket" : "is not there"));
    }
    auto text = platform::data::readTextDetectingEncoding(source.document);
    if (!text) return base::failure(text.error());
    source.text = std::move(*text);
    return source;
}

/// The error names the file, when the text comes from one.
base::Result<VELM_Job::Ref> VELM_Job::make(std::string xml, const std::string& file) {
    Ref job(new VELM_Job);
    auto document = platform::data::XMLDocument::parse(xml);
    if (!document) {
        base::Error error = document.error();
        if (!file.empty()) error.localizedDescription.insert(0, file + ": ");
        base::log("%@", error);
        return base::failure(std::move(error));
    }
    job->xmlDoc_ = std::move(*document);
    job->xmlString_ = std::move(xml);
    return job;
}

platform::data::XMLDocumentRef VELM_Job::xmlDoc() const {
    return platform::data::XMLDocument::parse(xmlString_).value_or(nullptr);
}

VELM_Job::Ref VELM_Job::initWithXML(std::string_view xml) {
    return make(std::string(xml), {}).value_or(nullptr);
}

base::Result<VELM_Job::Ref> VELM_Job::jobWithSource(base::Result<Source> source, const base::Value& given,
                                                    OrderReport* report) {
    const std::string file = source && source->document.isFileURL() ? source->document.path() : std::string();
    if (report && source) report->setFile(file);
    const auto refuse = [&](const base::Error& error, unsigned line) {
        if (report) report->setRefusal(refusalFromError(error, report->file(), line));
        return base::failure(error);
    };
    if (!source) return refuse(source.error(), 0);
    auto job = make(std::move(source->text), file);
    if (!job) return refuse(job.error(), 0);
    (*job)->documentURL_ = source->document;
    (*job)->urlJobContainer_ = source->container;

    const unsigned firstLine = (*job)->xmlDoc_->rootElement()->line();
    std::optional<base::Error> error;
    (*job)->parseXML([&error](const std::optional<base::Error>& parsingError) { error = parsingError; }, report);
    if (!error) return job;
    base::log("Error %@ parsing job %@", *error, source->container ? base::Value(*source->container) : given);
    return refuse(*error, firstLine);
}

base::Result<VELM_Job::Ref> VELM_Job::jobWithContentsOfURL(const base::URL& url, OrderReport* report) {
    if (report) report->setFile(url.path());
    return jobWithSource(sourceAtURL(url), url, report);
}

VELM_Job::Ref VELM_Job::instanceWithXMLObject(const base::URL& url) {
    return jobWithContentsOfURL(url).value_or(nullptr);
}

VELM_Job::Ref VELM_Job::instanceWithXMLObject(std::string_view path) {
    return jobWithSource(sourceAtURL(base::URL::fileURLWithPath(path)), path).value_or(nullptr);
}

VELM_Job::Ref VELM_Job::instanceWithXMLObject(const base::Data& data) {
    if (!platform::data::isValidUTF8(data.asText())) return nullptr;
    return jobWithSource(Source{{}, {}, std::string(data.asText())}, data).value_or(nullptr);
}

// Values ---------------------------------------------------------------------------------------------------------

void VELM_Job::setObject(base::Value value, std::string_view key) {
    if (valueForKeyInDict(key) == value) return;
    change(key, [&] {
        if (value.isNothing())
            valuesDict_.erase(std::string(key));
        else
            valuesDict_.insert_or_assign(std::string(key), std::move(value));
        if (key == "package") indexPackageReferences();
    });
}

double VELM_Job::version() const {
    return valueForKeyInDict("version").doubleValue();
}

std::optional<std::string> VELM_Job::jobType() const {
    return base::textForKey(valuesDict_, "type");
}

std::string VELM_Job::name() const {
    const base::URL& url = urlJobContainer_ ? *urlJobContainer_ : documentURL_;
    return base::deletingPathExtension(url.lastPathComponent());
}

base::Array VELM_Job::jobPackages() const {
    const auto* references = valueForKeyInDict("package").as<base::Array>();
    return references ? *references : base::Array();
}

std::optional<std::string> VELM_Job::packageName() const {
    const base::Dictionary* reference = packageReference(std::nullopt);
    return reference ? base::textForKey(*reference, "name") : std::nullopt;
}

std::optional<std::string> VELM_Job::packageLabel() const {
    const auto name = packageName();
    return name ? name : pluCode();
}

std::optional<std::string> VELM_Job::pluCode() const {
    return base::textForKey(valuesDict_, "plucode");
}

std::optional<std::string> VELM_Job::destinationLabel() const {
    return base::textForKey(valuesDict_, "ipaddress");
}

base::Dictionary VELM_Job::replacements() const {
    const auto* values = valueForKeyInDict("key").as<base::Dictionary>();
    return values ? *values : base::Dictionary();
}

base::Array VELM_Job::outputs() const {
    const auto* outputs = valueForKeyInDict("output").as<base::Array>();
    return outputs ? *outputs : base::Array();
}

std::optional<std::string> VELM_Job::graphicPath() const {
    auto path = base::textForKey(valuesDict_, "imagepath");
    if (!path) path = valueForKey("image1", packageName());
    if (!path || !urlJobContainer_) return path;
    return urlJobContainer_->appendingPathComponent("Images").appendingPathComponent(*path).path();
}

base::Date VELM_Job::dateStarted() const {
    return platform::data::dateModified(documentURL_).value_or(platform::data::now());
}

/// Each hole of each package of a run asks for its reference.
void VELM_Job::indexPackageReferences() {
    referencesByName_.clear();
    const base::Array references = jobPackages();
    for (std::size_t index = 0; index < references.size(); ++index)
        if (const auto* reference = references[index].as<base::Dictionary>())
            for (const char* key : {"plucode", "name"})
                if (const auto name = base::textForKey(*reference, key))
                    referencesByName_.emplace(platform::data::foldedForm(*name), index);
}

const base::Dictionary* VELM_Job::packageReference(const std::optional<std::string>& packageName) const {
    const auto* references = valueForKeyInDict("package").as<base::Array>();
    if (!references || references->empty()) return nullptr;
    const auto named =
        packageName ? referencesByName_.find(platform::data::foldedForm(*packageName)) : referencesByName_.end();
    return (*references)[named == referencesByName_.end() ? 0 : named->second].as<base::Dictionary>();
}

std::optional<std::string> VELM_Job::valueForKey(std::string_view key, const std::optional<std::string>& packageName,
                                                 std::string_view metaKey) const {
    std::optional<std::string> name = packageName;
    if (name) {
        // A package's own name may end in the suffix of an orientation, which the ticket does not know.
        for (const std::string_view suffix : {"PRT", "LS"}) {
            if (!name->ends_with(suffix)) continue;
            name->resize(name->size() - suffix.size());
            break;
        }
    }
    if (metaKey == "stamp") {
        if (key != "filename") return std::string(key);
        if (const auto path = base::textForKey(valuesDict_, "imagepath")) return base::lastPathComponent(*path);
    }
    for (const base::Dictionary* values : {packageReference(name), &valuesDict_}) {
        const auto* table = values ? base::valueForKey(*values, metaKey).as<base::Dictionary>() : nullptr;
        if (!table) continue;
        if (auto value = base::valueForKey(*table, key).stringValue()) return value;
    }
    return std::nullopt;
}

bool VELM_Job::isEqual(const base::Object& other) const {
    if (this == &other) return true;
    const auto* job = dynamic_cast<const VELM_Job*>(&other);
    return job && documentURL_.isFileURL() && documentURL_ == job->documentURL_;
}

std::size_t VELM_Job::hash() const {
    const std::size_t ofPath = documentURL_.isFileURL() ? std::hash<std::string>()(documentURL_.path()) : 0;
    return ofPath != 0 ? ofPath : std::hash<const VELM_Job*>()(this);
}

std::string VELM_Job::description() const {
    const base::URL& url = urlJobContainer_ ? *urlJobContainer_ : documentURL_;
    return "<" + className() + " " + url.path() + ">";
}

// Preview --------------------------------------------------------------------------------------------------------

void VELM_Job::makePreviewItems() {
    std::vector<std::optional<base::URL>> items;
    if (documentURL_.isFileURL()) items.emplace_back(documentURL_);
    if (urlJobContainer_) {
        std::set<std::string> listed;
        if (!items.empty()) listed.insert(documentURL_.path());
        jobs::enumerateFolder(
            urlJobContainer_->path(), jobs::Depth::deep,
            [&](const jobs::FolderItem& item) {
                const base::URL url = base::URL::fileURLWithPath(item.path);
                const bool isData = item.isRegularFile || (!item.isFolder && conformsToType(url, kUTTypeData));
                if (isData && listed.insert(item.path).second) items.emplace_back(url);
                return true;
            },
            [](const std::string&, const base::Error&) { return true; });
    } else {
        const auto* allImages = valueForKeyInDict("allimages").as<base::Array>();
        if (const auto path = graphicPath()) {
            const bool isListed =
                allImages && std::find(allImages->begin(), allImages->end(), base::Value(*path)) != allImages->end();
            if (!isListed) items.push_back(fileURLForPath(*path));
        }
        if (allImages)
            for (const base::Value& path : *allImages)
                items.push_back(fileURLForPath(path.textOr("")));
    }
    previewItems_ = std::move(items);
}

std::shared_ptr<KLARON_Image> VELM_Job::previewImage() const {
    return KLARON_Image::imageWithObject(graphicPath().value_or(""));
}

std::int64_t VELM_Job::previewItemIndex() {
    if (!previewItemURL_) previewItemIndex_ = -1;
    return previewItemIndex_;
}

void VELM_Job::setPreviewItemIndex(std::int64_t index) {
    const bool inRange = index >= 0 && static_cast<std::uint64_t>(index) < previewItems_.size();
    previewItemURL_ = inRange ? previewItems_[static_cast<std::size_t>(index)] : std::nullopt;
    previewItemIndex_ = index;
}
