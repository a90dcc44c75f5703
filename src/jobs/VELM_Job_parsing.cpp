// The reading of native tickets.
#include "jobs/VELM_Job.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/XMLReading.h"
#include "jobs/VELM_Package.h"

using base::equalIgnoringCase;
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

} // namespace

void VELM_Job::parseXML(const ParseCompletion& completion, OrderReport*) {
    const auto parsing = platform::run::Progress::child(1, progress_, 10);
    const XMLNodeRef root = xmlDoc_ ? xmlDoc_->rootElement() : nullptr;
    if (root) {
        for (const XMLNodeRef& attribute : root->attributes()) {
            if (equalIgnoringCase(attribute->name(), "type"))
                setObject(attribute->stringValue(), "type");
            else if (equalIgnoringCase(attribute->name(), "version"))
                setObject(attribute->stringValue(), "version");
            else
                jobs::logUnexpectedAttribute(*attribute);
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
        parseXML_velmVersion1(completion);
    } else {
        parseXML_sorrelVersion1(completion);
    }
    makePreviewItems();
    parsing->setCompletedUnitCount(1);
}

void VELM_Job::parseXML_velmVersion1(const ParseCompletion& completion) {
    base::Array references;
    for (const XMLNodeRef& child : xmlDoc_->rootElement()->children()) {
        if (!jobs::isElementToRead(*child)) continue;
        if (equalIgnoringCase(child->name(), "package"))
            parsePackage(child, references);
        else if (equalIgnoringCase(child->name(), "allimages"))
            parseAllImages(*child);
        else
            buildDictionary(valuesDict_, *child);
    }
    if (!references.empty()) setObject(std::move(references), "package");
    if (completion) completion(std::nullopt);
}

void VELM_Job::parseAllImages(const XMLNode& element) {
    base::Array paths;
    for (const XMLNodeRef& child : element.children())
        if (jobs::isElementToRead(*child)) paths.emplace_back(child->stringValue());
    setObject(std::move(paths), "allimages");
}

void VELM_Job::parsePackage(const XMLNodeRef& element, base::Array& references) {
    base::Dictionary reference;
    bool isInline = false;
    for (const XMLNodeRef& attribute : element->attributes()) {
        const std::string name = base::lowercase(attribute->name());
        if (name == "name" || name == "id" || name == "key")
            reference["name"] = attribute->stringValue();
        else if (name == "plucode")
            reference["plucode"] = attribute->stringValue();
        else if (name == "type")
            isInline = equalIgnoringCase(attribute->stringValue(), "inline");
        else
            base::log("Found unexpected XML attribute \"%@=%@\" while parsing package", attribute->name(),
                      attribute->stringValue());
    }
    if (isInline) {
        const VELM_Package::Ref package = VELM_Package::initWithNode(element, shared_from_this());
        package->setValue("name", base::textForKey(reference, "name").value_or("inline"));
        reference["package"] = package;
    }
    for (const XMLNodeRef& child : element->children())
        if (jobs::isElementToRead(*child)) buildDictionary(reference, *child);
    if (reference.empty()) return;
    if (urlJobContainer_) reference["job"] = *urlJobContainer_;
    references.emplace_back(std::move(reference));
}

void VELM_Job::buildDictionary(base::Dictionary& target, const XMLNode& element) {
    const std::string& slot = element.name();
    const auto& children = element.children();
    tableIn(target, "key"); // there after any slot, if only empty
    if (children.empty()) {
        base::log("unrecognized element %@ : %@", slot, element.stringValue());
    } else if (children.size() == 1) {
        for (const XMLNodeRef& attribute : element.attributes())
            if (equalIgnoringCase(attribute->name(), "croprect"))
                tableIn(target, "croprect")[slot] = attribute->stringValue();
        tableIn(target, "key")[slot] = element.stringValue();
    } else {
        for (const XMLNodeRef& child : children) {
            if (!jobs::isElementToRead(*child)) continue;
            for (const auto& entry : slotChildren)
                if (equalIgnoringCase(child->name(), entry.child))
                    tableIn(target, entry.table)[slot] = child->stringValue();
        }
    }
}
