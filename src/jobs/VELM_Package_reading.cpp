// The reading of package files, and of packages inside tickets.
#include "jobs/VELM_Package.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/ProductElements.h"
#include "internal/XMLReading.h"
#include "jobs/VELM_Job.h"
#include "template/VELM_Template.h"

#include <set>

using base::equalIgnoringCase;
using jobs::note;
using platform::data::Findings;
using platform::data::XMLDocument;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

constexpr int wrongTypeErrorCode = -2;
/// The nodes of an output for which the package has no template, in an output that needs them.
void noteNodesWithoutTemplate(const XMLNode& element, const VELM_Output& output,
                              const VELM_Package::Templates& templates, Findings& report) {
    if (output.ignoresTemplates()) return;
    const std::vector<std::string> names = output.nodeNames();
    const std::set<std::string> nodes(names.begin(), names.end());
    for (const XMLNodeRef& child : element.children()) {
        if (!child->isElement() || !nodes.contains(child->name()) || templates.contains(child->name()) ||
            child->attributeValue("type") != "node")
            continue;
        note(&report, *child, "node <%@> names no template of the package", child->name());
    }
    if (output.outputNodes().empty() && templates.size() != 1)
        note(&report, element, "<%@> has no node, and the package has %d templates: with one alone it could do without",
             element.name(), static_cast<int>(templates.size()));
}

/// Lets a report speak of another file for a while.
class FileOfReport {
public:
    FileOfReport(Findings* report, const std::optional<base::URL>& file) : report_(report) {
        if (!report_) return;
        before_ = report_->file();
        if (file) report_->setFile(file->path());
    }
    ~FileOfReport() {
        if (report_) report_->setFile(before_);
    }
    FileOfReport(const FileOfReport&) = delete;
    FileOfReport& operator=(const FileOfReport&) = delete;

private:
    Findings* report_;
    std::string before_;
};

} // namespace

VELM_Package::Ref VELM_Package::initWithNode(const XMLNodeRef& element, const std::shared_ptr<VELM_Job>& job,
                                             Findings* report) {
    auto package = std::make_shared<VELM_Package>();
    package->setJob(job);
    package->parseChildren(*element, Surroundings::ticket, report);
    return package;
}

XMLNodeRef VELM_Package::rootForFirstLook() {
    if (xmlString())
        if (auto root = XMLDocument::parseRootStartTag(*xmlString())) return *root;
    const auto& document = xmlDoc();
    return document ? document->rootElement() : nullptr;
}

/// Answers whether the reading goes on.
bool VELM_Package::parseRootAttributes(const Look& look, Findings* report) {
    const XMLNodeRef root = rootForFirstLook();
    if (!root) return true;
    const auto endWith = [&](const base::Error& error) {
        note(report, *root, "%@; nothing further is read", error.localizedDescription);
        bool stop = true;
        if (look) look(*this, error, stop);
        return false;
    };
    for (const XMLNodeRef& attribute : root->attributes()) {
        const std::string text = attribute->stringValue();
        if (attribute->nameIs("type")) {
            setValue("type", className());
            if (!equalIgnoringCase(text, className()))
                return endWith(
                    {std::string(base::posixErrorDomain), wrongTypeErrorCode,
                     base::message("encountered incorrect file type %@ when parsing %@", text, className())});
        } else if (attribute->nameIs("version")) {
            setValue("version", text);
            if (const auto error = jobs::versionError(base::doubleValue(text), text, base::message("%@", type()))) {
                if (!look) base::log("%@", *error);
                return endWith(*error);
            }
        } else if (attribute->nameIs("name")) {
            setValue("name", text);
        } else if (attribute->nameIs("plucode")) {
            setValue("plucode", text);
        } else {
            jobs::logUnexpectedAttribute(*attribute, report);
        }
    }
    return true;
}

void VELM_Package::parseXML(const Look& look, Findings* report) {
    const FileOfReport file(report, documentURL());
    if (!parseRootAttributes(look, report)) return;
    bool stop = false;
    if (look) look(*this, std::nullopt, stop);
    if (stop) return;
    const auto& document = xmlDoc();
    if (report && document && document->recoveredFrom())
        report->add(document->rootElement()->line(),
                    base::message("the XML is damaged, and only what could be recovered is read: %@",
                                  jobs::quotable(document->recoveredFrom()->localizedDescription)));
    if (const XMLNodeRef root = document ? document->rootElement() : nullptr) parseXMLNode(*root, report);
    stop = false;
    if (look) look(*this, std::nullopt, stop);
}

void VELM_Package::parseXMLNode(const XMLNode& element, Findings* report) {
    parseChildren(element, Surroundings::packageFile, report);
}

void VELM_Package::parseChildren(const XMLNode& element, Surroundings surroundings, Findings* report) {
    // What else stands in a ticket's element is read, and told, by the ticket.
    Findings* const reportOfOthers = surroundings == Surroundings::packageFile ? report : nullptr;
    setValue("output", base::Value());
    base::Array outputs;
    std::vector<std::pair<XMLNodeRef, std::shared_ptr<VELM_Output>>> readOutputs;
    for (const XMLNodeRef& child : element.children()) {
        if (!jobs::isElementToRead(*child, reportOfOthers)) continue;
        const std::string name = base::lowercase(child->name());
        if (jobs::isTextElement(name)) {
            setValue(name, child->stringValue());
        } else if (name == "price") {
            jobs::checkPrice(*child, report);
        } else if (name == "template") {
            jobs::readTemplateReference(
                *child, urlJobContainer(), report,
                [&](const std::string& slot, const std::shared_ptr<VELM_Template>& found, const XMLNode& file) {
                    noteReplaced(slot, file, report);
                    addTemplate(slot, found);
                });
        } else if (name == "output") {
            const auto output = VELM_Output::initWithNode(*child, report);
            output->setPackage(weak_from_this());
            outputs.emplace_back(output);
            if (report) readOutputs.emplace_back(child, output);
        } else if (jobs::isInlineTemplateElement(name)) {
            if (const auto inlineTemplate = VELM_Template::initWithNode(*child, urlJobContainer())) {
                const std::string slot = inlineTemplate->name().value_or("");
                noteReplaced(slot, *child, report);
                addTemplate(slot, inlineTemplate);
            }
        } else {
            note(reportOfOthers, *child, "element <%@> is not known and is not read", child->name());
        }
    }
    if (!outputs.empty()) setValue("output", std::move(outputs));
    for (const auto& [child, output] : readOutputs)
        noteNodesWithoutTemplate(*child, *output, velmNodes(), *report);
}

void VELM_Package::noteReplaced(const std::string& slot, const XMLNode& element, Findings* report) const {
    if (report && velmNodes().contains(slot))
        note(report, element, "template \"%@\" takes the place of the one before it under that name", slot);
}
