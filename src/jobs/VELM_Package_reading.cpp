// The reading of package files, and of packages inside tickets.
#include "jobs/VELM_Package.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/XMLReading.h"
#include "jobs/VELM_Job.h"
#include "template/TemplateReport.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <array>

using base::equalIgnoringCase;
using jobs::note;
using platform::data::Findings;
using platform::data::XMLDocument;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

constexpr int wrongTypeErrorCode = -2;
constexpr std::array<std::string_view, 4> textElements = {"plucode", "productid", "name", "icon"};
constexpr std::array<std::string_view, 4> inlineTemplateElements = {"layout", "portrait", "landscape", "square"};
constexpr std::array<std::string_view, 3> slotAttributes = {"name", "id", "key"};
constexpr std::array<std::string_view, 2> pathElements = {"filepath", "filename"};

template <class Names>
bool isOneOf(const Names& names, std::string_view name) {
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view known) { return equalIgnoringCase(known, name); });
}

/// Prices have no effect; only what is wrong with them is told.
void checkPrice(const XMLNode& element, Findings* report) {
    for (const XMLNodeRef& child : element.children()) {
        if (child->isElement() && child->nameIs("quantity")) continue;
        base::log("error! bad element kind %lu for element %@", child->kindNumber(), child);
        if (!child->isComment())
            note(report, *child, "%@ in <%@> is no <quantity>", jobs::quotable(child->xmlString()), element.name());
    }
}

void noteUnknownAttributes(const XMLNode& element, Findings* report) {
    for (const XMLNodeRef& attribute : element.attributes())
        if (!isOneOf(slotAttributes, attribute->name()))
            note(report, *attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(),
                 element.name());
}

/// The nodes of an output for which the package has no template, in an output that needs them.
void noteNodesWithoutTemplate(const XMLNode& element, const VELM_Output& output,
                              const VELM_Package::Templates& templates, Findings& report) {
    if (output.ignoresTemplates()) return;
    for (const XMLNodeRef& child : element.children()) {
        if (!child->isElement() || !isOneOf(output.nodeNames(), child->name()) || templates.contains(child->name()) ||
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
        if (isOneOf(textElements, name)) {
            setValue(name, child->stringValue());
        } else if (name == "price") {
            checkPrice(*child, report);
        } else if (name == "template") {
            parseTemplateReference(*child, report);
        } else if (name == "output") {
            const auto output = VELM_Output::initWithNode(*child, report);
            output->setPackage(weak_from_this());
            outputs.emplace_back(output);
            if (report) readOutputs.emplace_back(child, output);
        } else if (isOneOf(inlineTemplateElements, name)) {
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

void VELM_Package::parseTemplateReference(const XMLNode& element, Findings* report) {
    std::optional<std::string> slot;
    for (const XMLNodeRef& attribute : element.attributes())
        if (isOneOf(slotAttributes, attribute->name())) slot = attribute->stringValue();
    if (report) noteUnknownAttributes(element, report);
    if (!slot) note(report, element, "<%@> has neither name, id nor key: no node can name it", element.name());

    bool namesFile = false;
    for (const XMLNodeRef& child : element.children()) {
        if (!jobs::isElementToRead(*child, report)) continue;
        if (!isOneOf(pathElements, child->name())) {
            note(report, *child, "element <%@> in <%@> is not known and is not read", child->name(), element.name());
            continue;
        }
        namesFile = true;
        if (const auto found = templateAt(*child, report)) {
            noteReplaced(slot.value_or(""), *child, report);
            addTemplate(slot.value_or(""), found);
        }
    }
    if (!namesFile) note(report, element, "<%@> names no file in a <filepath>", element.name());
}

std::shared_ptr<VELM_Template> VELM_Package::templateAt(const XMLNode& element, Findings* report) {
    if (!report) return VELM_Template::templateWithPath(element.stringValue(), urlJobContainer());
    TemplateReport reading;
    const auto found = VELM_Template::templateWithPath(element.stringValue(), false, urlJobContainer(), &reading);
    if (!found && !reading.findings().empty())
        note(report, element, "%@", reading.findings().front().message);
    else if (found && !found->value(VELM_XML_Key_layers))
        note(report, element, "the template \"%@\" holds nothing that could be drawn",
             jobs::quotable(element.stringValue()));
    return found;
}
