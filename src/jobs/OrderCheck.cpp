#include "jobs/OrderCheck.h"

#include "base/MessageTemplate.h"
#include "base/Text.h"
#include "imaging/PictureProbe.h"
#include "internal/OutputCheck.h"
#include "internal/XMLReading.h"
#include "jobs/VELM_Package.h"
#include "template/TemplateCheck.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <utility>

using base::Dictionary;
using jobs::quotable;
using platform::data::XMLNodeRef;

namespace {

using Place = OrderReport::Place;
using Finding = OrderReport::Finding;
using Index = std::optional<std::size_t>; // of a package reference; none is the order itself

// The tables of a reference and of the order, the values first.
constexpr std::array<std::string_view, 4> slotTables = {"key", "croprect", "rotation", "template"};
// The first picture of a package, which no hole need show: it chooses the package and gives files their name.
constexpr std::string_view firstPicture = "image1";
// What an inline package's element holds besides slots, in the eyes of the ticket's reader slots too.
constexpr std::array<std::string_view, 11> packageElements = {
    "plucode", "productid", "name", "icon", "price", "template", "output", "layout", "portrait", "landscape", "square"};

const Dictionary* tableOf(const Dictionary& values, std::string_view table) {
    return base::valueForKey(values, table).as<Dictionary>();
}

/// Whether a text begins with a number, as the reading of a rotation wants it.
bool isNumber(std::string_view text) {
    const std::string trimmed(base::trimmed(text));
    const std::size_t digits = trimmed.find_first_not_of("+-.");
    return digits != std::string::npos && digits <= 2 && trimmed[digits] >= '0' && trimmed[digits] <= '9';
}

class Checker {
public:
    Checker(const OrderPlan& plan, const OrderReport& report)
        : plan_(plan), report_(report), job_(*plan.job), findings_(report.findings()) {
        const bool holdsPackages = std::any_of(plan.packages.begin(), plan.packages.end(),
                                               [](const PlannedPackage& package) { return package.search.isInline; });
        const auto document = holdsPackages ? job_.xmlDoc() : nullptr; // parsed for this
        if (!document || !document->rootElement()) return;
        for (const XMLNodeRef& child : document->rootElement()->children())
            if (child->isElement() && child->nameIs("package"))
                packageElements_.emplace(static_cast<int>(child->line()), child);
    }

    std::vector<Finding> findings();

private:
    void checkTicket();
    void checkReference(std::size_t index);
    void checkSlots(Index index, const Dictionary& values, const std::set<std::string>& holes);
    /// Whether the run takes what the reference says under a slot, and not what another one says.
    void checkIsRead(std::size_t index, const std::string& slot, const Dictionary& reference);
    void checkHoles(std::size_t index, const PlannedOutput& output, const PlannedTemplate& planned);
    void checkHole(std::size_t index, const PlannedOutput& output, const PlannedTemplate& planned,
                   const PlannedHole& hole);
    /// The picture of a hole that a slot fills, or of the template in that hole.
    void checkPicture(const Place& place, const std::string& slot, const std::string& picture, const PlannedHole& hole,
                      const std::optional<std::string>& crop);
    void checkCopies(std::size_t index, const PlannedOutput& output);
    void checkTemplateFile(const std::string& path, const std::shared_ptr<VELM_Package>& package);
    void checkInlineTemplates(std::size_t index);
    /// Empty for a picture that is whole.

    Place ticketPlace() const { return {.file = job_.documentURL().path()}; }
    Place referencePlace(std::size_t index) const;
    Place slotPlace(Index index, std::string_view slot) const;
    std::string packageName(std::size_t index) const;
    XMLNodeRef packageElement(std::size_t index) const;
    template <class... Arguments>
    void add(Place place, std::string_view sentence, const Arguments&... arguments) {
        findings_.push_back({std::move(place), base::message(sentence, arguments...)});
    }

    const OrderPlan& plan_;
    const OrderReport& report_;
    const VELM_Job& job_;
    std::vector<Finding> findings_;
    std::map<int, XMLNodeRef> packageElements_; // of the ticket, by their lines
    PictureProbe pictures_;
    std::set<std::string> checkedTemplates_;
    std::set<std::string> checkedPackages_;
};

std::vector<Finding> Checker::findings() {
    checkTicket();
    std::set<std::string> holesOfAll;
    bool allAreKnown = true;
    jobs::OutputCheck outputs;
    const base::Array references = job_.jobPackages();
    for (std::size_t index = 0; index < plan_.packages.size(); ++index) {
        const PlannedPackage& package = plan_.packages[index];
        checkReference(index);
        if (!package.search.package) {
            allAreKnown = false;
            continue;
        }
        // References that find one file take the same values: its holes are looked at once.
        const bool isFirst = package.search.isInline || checkedPackages_.insert(package.search.path).second;
        const Place packagePlace =
            package.search.isInline ? referencePlace(index) : Place{.file = package.search.path, .line = 1};
        outputs.check(package, packageElement(index), packagePlace);

        std::set<std::string> holes;
        bool areHolesKnown = true;
        for (const PlannedOutput& output : package.outputs) {
            checkCopies(index, output);
            // A template that can't be read might have holes for the slots.
            areHolesKnown = areHolesKnown && output.missingTemplates.empty();
            for (const PlannedTemplate& planned : output.templates) {
                areHolesKnown = areHolesKnown && !planned.error;
                if (isFirst) checkHoles(index, output, planned);
                for (const PlannedHole& hole : planned.holes)
                    holes.insert(hole.key);
            }
        }
        checkInlineTemplates(index);
        if (const auto* reference = references[index].as<Dictionary>(); reference && areHolesKnown)
            checkSlots(index, *reference, holes);
        allAreKnown = allAreKnown && areHolesKnown;
        holesOfAll.merge(holes);
    }
    // A hole of a package that is not there might take them.
    if (allAreKnown && !plan_.packages.empty()) checkSlots({}, job_.valuesDict(), holesOfAll);
    for (Finding& finding : outputs.takeFindings())
        findings_.push_back(std::move(finding));

    std::sort(findings_.begin(), findings_.end());
    // One file may serve several references, and one picture several holes.
    findings_.erase(std::unique(findings_.begin(), findings_.end()), findings_.end());
    return std::move(findings_);
}

// -- Places ----------------------------------------------------------------------------------------------------------

Place Checker::referencePlace(std::size_t index) const {
    if (const auto place = report_.placeOf(index)) return *place;
    // A foreign ticket's reference is made of its product code.
    return report_.placeOf({}, "plucode").value_or(ticketPlace());
}

Place Checker::slotPlace(Index index, std::string_view slot) const {
    if (const auto place = index ? report_.placeOf(*index, slot) : std::nullopt) return *place;
    if (const auto place = report_.placeOf({}, slot)) return *place;
    if (const auto place = slot == firstPicture ? report_.placeOf({}, "imagepath") : std::nullopt) return *place;
    // Another reference of the package's name gives it.
    for (std::size_t other = 0; other < plan_.packages.size(); ++other)
        if (const auto place = report_.placeOf(other, slot)) return *place;
    return index ? referencePlace(*index) : ticketPlace();
}

std::string Checker::packageName(std::size_t index) const {
    const PackageSearch& search = plan_.packages[index].search;
    if (search.package)
        if (const auto name = search.package->name()) return *name;
    return search.baseName.value_or("");
}

XMLNodeRef Checker::packageElement(std::size_t index) const {
    const PackageSearch& search = plan_.packages[index].search;
    if (!search.isInline) {
        const auto document = search.package->xmlDoc();
        return document ? document->rootElement() : nullptr;
    }
    const auto place = report_.placeOf(index);
    const auto element = place ? packageElements_.find(place->line) : packageElements_.end();
    return element == packageElements_.end() ? nullptr : element->second;
}

// -- The ticket ------------------------------------------------------------------------------------------------------

void Checker::checkTicket() {
    if (plan_.packages.empty())
        add(ticketPlace(), "the order has no package, so there is nothing to make and it fails");
    const auto picture = base::textForKey(job_.valuesDict(), "imagepath");
    if (picture && !picture->starts_with('/'))
        add(report_.placeOf({}, "imagepath").value_or(ticketPlace()),
            "the path \"%@\" is relative, and no search folder is set for such orders", quotable(*picture));
}

void Checker::checkReference(std::size_t index) {
    const PackageSearch& search = plan_.packages[index].search;
    if (search.package) return;
    add(referencePlace(index), "could not find package with name %@: %@", quotable(search.baseName.value_or("")),
        search.reason);
    for (const auto& each : search.passedOver) // it may be one of these
        if (search.isWorthTelling(each)) add({.file = each.path}, "is passed over: %@", each.reason);
}

void Checker::checkSlots(Index index, const Dictionary& values, const std::set<std::string>& holes) {
    std::set<std::string> slots;
    for (const std::string_view table : slotTables)
        if (const Dictionary* entries = tableOf(values, table))
            for (const auto& [slot, value] : *entries)
                slots.insert(slot);
    const bool isInline = index && plan_.packages[*index].search.isInline;
    for (const std::string& slot : slots) {
        if (isInline &&
            std::find(packageElements.begin(), packageElements.end(), base::lowercase(slot)) != packageElements.end())
            continue;
        if (holes.contains(slot) || slot == firstPicture) {
            if (index) checkIsRead(*index, slot, values);
            continue;
        }
        const auto other = std::find_if(holes.begin(), holes.end(),
                                        [&](const std::string& hole) { return base::equalIgnoringCase(hole, slot); });
        add(slotPlace(index, slot), "no hole of %@ has the key \"%@\", so the slot has no effect%@",
            index ? "package \"" + quotable(packageName(*index)) + "\"" : std::string("the order's packages"),
            quotable(slot), other == holes.end() ? "" : "; there is a hole \"" + *other + "\"");
    }
}

void Checker::checkIsRead(std::size_t index, const std::string& slot, const Dictionary& reference) {
    const VELM_Package& package = *plan_.packages[index].search.package;
    const auto name = package.name();
    const auto pluCode = package.pluCode();
    for (const std::string_view table : slotTables) {
        const Dictionary* entries = tableOf(reference, table);
        const auto own = entries ? base::valueForKey(*entries, slot).stringValue() : std::nullopt;
        // As the filling of holes asks: by the product code for values, by the name for the rest.
        const auto taken = job_.valueForKey(slot, table == "key" && pluCode ? pluCode : name, table);
        if (!own || own == taken) continue;
        add(slotPlace(index, slot),
            "the %@ of slot \"%@\" is not used: the package \"%@\" takes its slots from another reference",
            table == "key" ? std::string("value") : std::string(table), quotable(slot), quotable(packageName(index)));
        return;
    }
}

// -- Holes -----------------------------------------------------------------------------------------------------------

void Checker::checkHoles(std::size_t index, const PlannedOutput& output, const PlannedTemplate& planned) {
    const auto& package = plan_.packages[index].search.package;
    if (!planned.path.empty()) checkTemplateFile(planned.path, package);
    for (const PlannedHole& hole : planned.holes) {
        checkHole(index, output, planned, hole);
        if (hole.filling && !hole.filling->path.empty()) checkTemplateFile(hole.filling->path, package);
    }
}

void Checker::checkHole(std::size_t index, const PlannedOutput& output, const PlannedTemplate& planned,
                        const PlannedHole& hole) {
    const std::string where = planned.path.empty() ? planned.node : base::lastPathComponent(planned.path);
    const bool isPicture = hole.type != VELM_Template::LayerTypeTextbox;
    // An output that runs for each picture shows that one also in a hole that no slot fills.
    const bool showsPictureOfRun = hole.type == VELM_Template::LayerTypeImage && output.picture;
    if (!hole.value && !showsPictureOfRun) {
        const bool isEmpty = hole.omission == LayerOmission::noPath || hole.omission == LayerOmission::noText;
        // A text layer without a string shows its key.
        const bool showsKey = !isPicture && hole.text == hole.key;
        if (isEmpty || showsKey)
            add(referencePlace(index), "no slot fills the hole \"%@\" of %@, so it %s", quotable(hole.key), where,
                showsKey ? "shows that key" : "stays empty");
        return;
    }
    const Place place = slotPlace(index, hole.key);
    if (!isPicture) {
        if (!hole.isTextComplete)
            add(place, "the text of slot \"%@\" does not fit its frame in %@", quotable(hole.key), where);
        return;
    }
    if (hole.rotation && !hole.templatePath)
        add(place, "the rotation of slot \"%@\" has no effect without a template", quotable(hole.key));
    else if (hole.rotation && !isNumber(*hole.rotation))
        add(place, "the rotation \"%@\" of slot \"%@\" is no number", quotable(*hole.rotation), quotable(hole.key));
    if (hole.crop && base::rectFromString(*hole.crop).isEmpty())
        add(place, "the crop \"%@\" of slot \"%@\" is no rectangle that holds anything, so the whole picture shows",
            quotable(*hole.crop), quotable(hole.key));

    const Place picturePlace = output.picture ? slotPlace({}, "allimages") : place;
    const std::string picture = output.picture ? *output.picture : hole.value.value_or("");
    if (!hole.templatePath) {
        // Only a template that has a file is a place from where to look into the order's folders.
        const bool isByNameAlone = planned.path.empty() && job_.urlJobContainer() && !picture.starts_with('/');
        if (hole.omission == LayerOmission::missingPicture && isByNameAlone)
            add(picturePlace,
                "the picture \"%@\" of slot \"%@\" is missing: a template without a file of its own finds pictures by "
                "their full paths only",
                quotable(picture), quotable(hole.key));
        else
            checkPicture(picturePlace, hole.key, picture, hole, hole.crop);
    } else if (!hole.filling) {
        add(place, "the template \"%@\" of slot \"%@\" is missing, so the hole stays as its template has it",
            quotable(*hole.templatePath), quotable(hole.key));
    } else {
        for (const PlannedHole& inner : hole.filling->holes)
            if (inner.type != VELM_Template::LayerTypeTextbox)
                checkPicture(picturePlace, hole.key, picture, inner, hole.crop);
    }
}

void Checker::checkPicture(const Place& place, const std::string& slot, const std::string& picture,
                           const PlannedHole& hole, const std::optional<std::string>& crop) {
    if (hole.omission == LayerOmission::missingPicture || hole.omission == LayerOmission::noPath)
        return add(place, "the picture \"%@\" of slot \"%@\" is missing, so its hole stays empty", quotable(picture),
                   quotable(slot));
    if (hole.omission == LayerOmission::unreadablePicture)
        return add(place, "the picture \"%@\" of slot \"%@\" can't be read, so the order fails", quotable(picture),
                   quotable(slot));
    if (hole.file.empty()) return;
    if (const std::string& reason = pictures_.whyUndecodable(hole.file); !reason.empty())
        add(place, "the picture \"%@\" of slot \"%@\" can't be read, so the order fails: %@", quotable(picture),
            quotable(slot), reason);
    else if (crop && !base::rectFromString(*crop).isEmpty() && hole.shown.isEmpty())
        add(place, "the crop \"%@\" of slot \"%@\" misses the picture of %@ pixels", quotable(*crop), quotable(slot),
            base::stringFromSize(hole.size));
}

void Checker::checkCopies(std::size_t index, const PlannedOutput& output) {
    const Place place = output.picture ? slotPlace({}, "allimages") : slotPlace(index, firstPicture);
    for (const PlannedFile& file : output.files) {
        if (!file.settings.isCopy) continue;
        if (file.original.empty()) {
            const auto picture = output.picture
                                     ? output.picture
                                     : job_.valueForKey(firstPicture, plan_.packages[index].search.package->name());
            add(place, "an output of package \"%@\" copies the picture \"%@\", which is missing: it fails",
                quotable(packageName(index)), quotable(picture.value_or("")));
        } else if (const std::string& reason = pictures_.whyUndecodable(file.original); !reason.empty()) {
            add(place, "the picture \"%@\" can't be copied: %@", base::lastPathComponent(file.original), reason);
        }
    }
}

// -- Templates -------------------------------------------------------------------------------------------------------

void Checker::checkTemplateFile(const std::string& path, const std::shared_ptr<VELM_Package>& package) {
    if (!checkedTemplates_.insert(path).second) return;
    TemplateReport reading;
    const auto document = VELM_Template::templateWithPath(path, false, job_.urlJobContainer(), &reading);
    if (!document) return; // it was there when the plan was made
    document->setPackage(package);
    for (Finding& finding : findingsOfTemplate(*document, reading))
        findings_.push_back(std::move(finding));
}

void Checker::checkInlineTemplates(std::size_t index) {
    const PackageSearch& search = plan_.packages[index].search;
    for (const auto& [name, document] : search.package->velmNodes()) {
        if (document->documentURL()) continue;
        document->setPackage(search.package);
        Place place = search.isInline ? referencePlace(index) : Place{.file = search.path, .line = 1};
        if (const XMLNodeRef element = packageElement(index))
            for (const XMLNodeRef& child : element->children())
                if (child->isElement() && VELM_Template::containerKeyForNode(*child) &&
                    child->attributeValue("name").value_or(child->name()) == name)
                    place.line = static_cast<int>(child->line());
        for (const Finding& finding : findingsOfTemplate(*document, {}))
            add(place, "template \"%@\": %@", quotable(name), finding.message);
    }
}

} // namespace

std::vector<Finding> findingsOfOrder(const OrderPlan& plan, const OrderReport& report) {
    return Checker(plan, report).findings();
}
