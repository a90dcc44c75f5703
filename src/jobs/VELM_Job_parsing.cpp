// The reading of native tickets.
#include "jobs/VELM_Job.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/TicketReading.h"
#include "jobs/VELM_Package.h"

#include <algorithm>
#include <utility>

using base::equalIgnoringCase;
using jobs::TicketReading;
using platform::data::XMLDocumentRef;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

/// The children of a long slot, and the table into which each goes under the slot's name.
constexpr struct {
    std::string_view child;
    std::string_view table;
} slotChildren[] = {
    {"croprect", "croprect"},
    {"rotation", "rotation"},
    {"template", "template"},
    {"filepath", "key"},
};

base::Dictionary& tableIn(base::Dictionary& target, std::string_view table) {
    base::Value& entry = target[std::string(table)];
    if (!entry.as<base::Dictionary>()) entry = base::Dictionary();
    return *entry.as<base::Dictionary>();
}

/// What an inline package reads of its element.
bool isPackageElement(std::string_view name) {
    constexpr std::string_view known[] = {"plucode", "productid", "name",     "icon",      "price", "template",
                                          "output",  "layout",    "portrait", "landscape", "square"};
    return std::any_of(std::begin(known), std::end(known),
                       [name](std::string_view each) { return equalIgnoringCase(each, name); });
}

} // namespace

void VELM_Job::parseXML(const ParseCompletion& completion, OrderReport* report) {
    const auto parsing = platform::run::Progress::child(1, progress_, 10);
    const XMLDocumentRef document = xmlDoc_ ? std::exchange(xmlDoc_, nullptr) : xmlDoc();
    const XMLNodeRef root = document ? document->rootElement() : nullptr;
    if (root) {
        for (const XMLNodeRef& attribute : root->attributes()) {
            if (attribute->nameIs("type"))
                setObject(attribute->stringValue(), "type");
            else if (attribute->nameIs("version"))
                setObject(attribute->stringValue(), "version");
            else
                jobs::logUnexpectedAttribute(*attribute, report);
        }
    }
    if (equalIgnoringCase(jobType().value_or(""), className())) {
        if (const auto error =
                jobs::versionError(version(), base::shortestDecimal(version()), jobType().value_or(""))) {
            if (completion)
                completion(error);
            else
                base::log("%@", *error);
            return;
        }
        parseXML_velmVersion1(root, completion, report);
    } else {
        parseXML_sorrelVersion1(root, completion, report);
    }
    makePreviewItems();
    parsing->setCompletedUnitCount(1);
}

void VELM_Job::parseXML_velmVersion1(const XMLNodeRef& root, const ParseCompletion& completion, OrderReport* report) {
    base::Array references;
    for (const XMLNodeRef& child : jobs::childrenOf(root)) {
        if (!jobs::isElementToRead(*child, report)) continue;
        if (child->nameIs("package"))
            parsePackage(child, references, report);
        else
            parseElement(*child, report);
    }
    if (!references.empty()) setObject(std::move(references), "package");
    if (completion) completion(std::nullopt);
}

void VELM_Job::parseElement(const XMLNode& element, OrderReport* report) {
    if (element.nameIs("allimages"))
        parseAllImages(element, {report, {}});
    else
        buildDictionary(valuesDict_, element, {report, {}});
}

void VELM_Job::parseAllImages(const XMLNode& element, const TicketReading& reading) {
    reading.noteElement(element, "allimages");
    reading.noteAttributes(element);
    base::Array paths;
    for (const XMLNodeRef& child : element.children()) {
        if (!jobs::isElementToRead(*child, reading.report)) continue;
        reading.noteAttributes(*child);
        paths.emplace_back(child->stringValue());
    }
    setObject(std::move(paths), "allimages");
}

void VELM_Job::parsePackage(const XMLNodeRef& element, base::Array& references, OrderReport* report) {
    base::Dictionary reference;
    bool isInline = false;
    for (const XMLNodeRef& attribute : element->attributes()) {
        const std::string name = base::lowercase(attribute->name());
        const std::string text = attribute->stringValue();
        if (name == "name" || name == "id" || name == "key") {
            if (const auto before = base::textForKey(reference, "name"))
                jobs::note(report, *attribute, "attribute %@=\"%@\" replaces the name \"%@\"", attribute->name(),
                           jobs::quotable(text), jobs::quotable(*before));
            reference["name"] = text;
        } else if (name == "plucode") {
            reference["plucode"] = text;
        } else if (name == "type") {
            isInline = equalIgnoringCase(text, "inline");
            if (!isInline)
                jobs::note(report, *attribute, "the type \"%@\" of a package is not \"inline\" and has no effect",
                           jobs::quotable(text));
        } else {
            base::log("Found unexpected XML attribute \"%@=%@\" while parsing package", attribute->name(), text);
            jobs::note(report, *attribute, "attribute %@ of <%@> is not known and is not read", attribute->name(),
                       element->name());
        }
    }
    const TicketReading reading{report, references.size()};
    if (isInline) {
        const VELM_Package::Ref package = VELM_Package::initWithNode(element, shared_from_this(), report);
        package->setValue("name", base::textForKey(reference, "name").value_or("inline"));
        reference["package"] = package;
    }
    for (const XMLNodeRef& child : element->children()) {
        // What an inline package reads goes through the form of slots too, where it means nothing.
        const bool isOfPackage = isInline && isPackageElement(child->name());
        if (jobs::isElementToRead(*child, report))
            buildDictionary(reference, *child, isOfPackage ? TicketReading{} : reading);
    }
    if (reference.empty()) {
        jobs::note(report, *element, "<%@> is empty and is dropped", element->name());
        return;
    }
    if (urlJobContainer_) reference["job"] = *urlJobContainer_;
    if (report) report->setPlace(references.size(), jobs::placeOf(*element, *report));
    references.emplace_back(std::move(reference));
}

void VELM_Job::buildDictionary(base::Dictionary& target, const XMLNode& element, const TicketReading& reading) {
    const std::string& slot = element.name();
    const auto& children = element.children();
    tableIn(target, "key"); // there after any slot, if only empty
    reading.noteElement(element, slot);
    if (children.empty()) {
        base::log("unrecognized element %@ : %@", slot, element.stringValue());
        jobs::note(reading.report, element, "<%@> is empty and is not read", slot);
    } else if (children.size() == 1) {
        buildShortSlot(target, element, reading);
    } else {
        reading.noteAttributes(element);
        for (const XMLNodeRef& child : children)
            if (jobs::isElementToRead(*child, reading.report)) buildSlotValue(target, slot, *child, reading);
    }
}

void VELM_Job::buildShortSlot(base::Dictionary& target, const XMLNode& element, const TicketReading& reading) {
    const std::string& slot = element.name();
    for (const XMLNodeRef& attribute : element.attributes()) {
        if (attribute->nameIs("croprect"))
            tableIn(target, "croprect")[slot] = attribute->stringValue();
        else
            jobs::note(reading.report, *attribute, "attribute %@ of <%@> is not read", attribute->name(), slot);
    }
    tableIn(target, "key")[slot] = element.stringValue();

    const XMLNode& child = *element.children().front();
    if (child.isElement() && !child.nameIs("filepath"))
        jobs::note(reading.report, child, "<%@> is all that <%@> holds, so its text is read as the <filepath>",
                   child.name(), slot);
    else if (!child.isElement() && child.kind() != platform::data::XMLNodeKind::text)
        jobs::note(reading.report, element, "<%@> holds no text, so its value is empty", slot);
}

void VELM_Job::buildSlotValue(base::Dictionary& target, const std::string& slot, const XMLNode& child,
                              const TicketReading& reading) {
    const auto* entry = std::find_if(std::begin(slotChildren), std::end(slotChildren),
                                     [&child](const auto& known) { return child.nameIs(known.child); });
    if (entry == std::end(slotChildren)) {
        jobs::note(reading.report, child, "<%@> in <%@> is not known and is not read", child.name(), slot);
        return;
    }
    reading.noteAttributes(child);
    tableIn(target, entry->table)[slot] = child.stringValue();
}
