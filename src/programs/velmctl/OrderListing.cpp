#include "OrderListing.h"

#include "TextForms.h"
#include "base/Path.h"
#include "base/Text.h"
#include "jobs/VELM_Package.h"
#include "output/VELM_PrintToFileSet.h"

#include <utility>

namespace velmctl {

namespace {

using base::Array;
using base::Dictionary;
using base::Value;

constexpr std::size_t step = 2;

template <class T>
Value orNull(const std::optional<T>& value) {
    return value ? Value(*value) : Value();
}

Value textOrNull(const std::string& text) {
    return text.empty() ? Value() : Value(text);
}

Value nameOf(const VELM_Package& package) {
    const auto name = package.name();
    return orNull(name ? name : package.pluCode());
}

bool isTextHole(const PlannedHole& hole) {
    return hole.type == VELM_Template::LayerTypeTextbox;
}

std::string wordFor(VELM_Destination::Kind kind) {
    return kind == VELM_Destination::Kind::file      ? "file"
           : kind == VELM_Destination::Kind::printer ? "printer"
                                                     : "unknown";
}

// -- JSON ------------------------------------------------------------------------------------------------------------

/// Objects have no form in JSON; the only one that a ticket holds is an inline package.
Value withoutObjects(const Value& value) {
    if (const auto* members = value.as<Array>()) {
        Array result;
        for (const Value& member : *members)
            result.push_back(withoutObjects(member));
        return result;
    }
    if (const auto* entries = value.as<Dictionary>()) {
        Dictionary result;
        for (const auto& [key, entry] : *entries)
            result.emplace(key, withoutObjects(entry));
        return result;
    }
    if (const auto package = value.object<VELM_Package>())
        return Dictionary{{"name", nameOf(*package)}, {"type", "inline"}};
    if (const auto* url = value.as<base::URL>(); url && url->isFileURL()) return url->path();
    return value;
}

Value templateValue(const PlannedTemplate& planned);

Value holeValue(const PlannedHole& hole) {
    Dictionary result{
        {"key", hole.key},
        {"type", isTextHole(hole) ? "text" : "picture"},
        {"value", orNull(hole.value)},
        {"isDrawn", hole.omission == LayerOmission::none},
    };
    if (hole.omission != LayerOmission::none) result.emplace("whyNotDrawn", std::string(descriptionOf(hole.omission)));
    if (isTextHole(hole)) {
        result.emplace("text", hole.text);
        result.emplace("isComplete", hole.isTextComplete);
        return result;
    }
    result.emplace("file", textOrNull(hole.file));
    if (!hole.file.empty()) {
        result.emplace("size", Array{hole.size.width, hole.size.height});
        result.emplace("shown", Array{hole.shown.x, hole.shown.y, hole.shown.width, hole.shown.height});
    }
    if (hole.crop) result.emplace("croprect", *hole.crop);
    if (hole.rotation) result.emplace("rotation", *hole.rotation);
    if (hole.templatePath) {
        result.emplace("template", *hole.templatePath);
        result.emplace("filling", hole.filling ? templateValue(*hole.filling) : Value());
    }
    return result;
}

Value templateValue(const PlannedTemplate& planned) {
    Array holes;
    for (const PlannedHole& hole : planned.holes)
        holes.push_back(holeValue(hole));
    Dictionary result{{"file", textOrNull(planned.path)}, {"holes", std::move(holes)}};
    if (!planned.node.empty()) result.emplace("name", planned.node);
    if (planned.error) result.emplace("error", planned.error->localizedDescription);
    return result;
}

Value fileValue(const PlannedFile& file) {
    const VELM_Destination& destination = *file.destination;
    Dictionary result{{"kind", wordFor(destination.kind())}, {"path", textOrNull(file.path)}};
    if (destination.kind() == VELM_Destination::Kind::printer) {
        result.emplace("queue", orNull(destination.printerQueue()));
        result.emplace("model", orNull(destination.printerModel()));
        result.emplace("copies", destination.copies());
    }
    if (file.settings.isCopy) result.emplace("original", textOrNull(file.original));
    if (file.settings.set) result.emplace("set", file.settings.set->name());
    if (file.settings.downsample && file.settings.maximum) result.emplace("longerSide", *file.settings.maximum);
    return result;
}

Value outputValue(const PlannedOutput& planned) {
    Array templates;
    for (const PlannedTemplate& each : planned.templates)
        templates.push_back(templateValue(each));
    Array files;
    for (const PlannedFile& each : planned.files)
        files.push_back(fileValue(each));
    const base::Size size = planned.output->size();
    return Dictionary{
        {"name", base::valueForKey(planned.output->valuesDict(), "name")},
        {"size", size.width > 0 && size.height > 0 ? Value(Array{size.width, size.height}) : Value()},
        {"picture", orNull(planned.picture)},
        {"templates", std::move(templates)},
        {"missingTemplates", Array(planned.missingTemplates.begin(), planned.missingTemplates.end())},
        {"files", std::move(files)},
    };
}

Value packageValue(const PlannedPackage& planned) {
    const PackageSearch& search = planned.search;
    Array outputs;
    for (const PlannedOutput& output : planned.outputs)
        outputs.push_back(outputValue(output));
    Array passedOver;
    for (const auto& each : search.passedOver)
        passedOver.push_back(Dictionary{{"path", each.path}, {"name", textOrNull(each.name)}, {"why", each.reason}});
    return Dictionary{
        {"reference", search.isInline && search.package ? nameOf(*search.package) : orNull(search.baseName)},
        {"orientedName", orNull(search.orientedName)},
        {"found", textOrNull(search.path)},
        {"inline", search.isInline},
        {"name", search.package ? nameOf(*search.package) : Value()},
        {"why", search.reason},
        {"image", textOrNull(search.image)},
        {"isPortrait", search.isPortrait},
        {"folders", Array(search.folders.begin(), search.folders.end())},
        {"passedOver", std::move(passedOver)},
        {"outputs", std::move(outputs)},
    };
}

// -- Lines -----------------------------------------------------------------------------------------------------------

class Lines {
public:
    void add(std::size_t depth, std::string_view text) {
        lines_.push_back(std::string(depth * step, ' ') + oneLine(text));
    }
    void add(std::size_t depth, const Entries& entries) {
        for (std::string& line : treeLines(entries, depth * step))
            lines_.push_back(std::move(line));
    }
    std::vector<std::string> take() { return std::move(lines_); }

private:
    std::vector<std::string> lines_;
};

std::string quoted(std::string_view text) {
    constexpr std::size_t longest = 200;
    const std::string part(base::truncated(text, longest));
    return '"' + part + (part.size() < text.size() ? "...\"" : "\"");
}

std::string textOfHole(const PlannedHole& hole) {
    const std::string ofTemplate = hole.value ? "" : " (the template's own)";
    if (hole.omission != LayerOmission::none) {
        std::string text = hole.value ? quoted(*hole.value) + ": " : "nothing in the order: ";
        return text + std::string(descriptionOf(hole.omission)) + ", so it stays empty";
    }
    if (isTextHole(hole))
        return quoted(hole.text) + ofTemplate + (hole.isTextComplete ? "" : ", which does not fit its frame");
    if (hole.filling) return quoted(hole.value.value_or("")) + " in the template " + quoted(*hole.templatePath);
    std::string text =
        (hole.file.empty() ? "a picture" : hole.file) + ofTemplate + ", " + base::stringFromSize(hole.size);
    if (!(hole.shown == base::Rect{0, 0, hole.size.width, hole.size.height}))
        text += " of which " + base::stringFromRect(hole.shown) + " shows";
    return text;
}

void addTemplate(Lines& lines, const PlannedTemplate& planned, std::size_t depth) {
    std::string heading = "template";
    if (!planned.node.empty()) heading += " " + planned.node;
    lines.add(depth, heading + ": " + (planned.path.empty() ? "stands in the package" : planned.path));
    if (planned.error) lines.add(depth + 1, "fails: " + planned.error->localizedDescription);
    for (const PlannedHole& hole : planned.holes) {
        lines.add(depth + 1, "hole " + hole.key + ": " + textOfHole(hole));
        if (hole.templatePath && !hole.filling)
            lines.add(depth + 2, "the template " + quoted(*hole.templatePath) + " is missing");
        if (hole.crop) lines.add(depth + 2, "crop " + quoted(*hole.crop));
        if (hole.rotation) lines.add(depth + 2, "rotation " + quoted(*hole.rotation));
        if (hole.filling) addTemplate(lines, *hole.filling, depth + 2);
    }
}

std::string textOfFile(const PlannedFile& file) {
    const VELM_Destination& destination = *file.destination;
    switch (destination.kind()) {
    case VELM_Destination::Kind::file:
        break;
    case VELM_Destination::Kind::printer:
        return "prints: " + destination.description();
    case VELM_Destination::Kind::unknown:
        return "a destination of no known type: nothing is delivered";
    }
    if (file.settings.isCopy)
        return "copies " + (file.original.empty() ? "nothing, as there is no picture," : file.original) + " to " +
               file.path;
    std::string text = "writes " + file.path;
    if (file.settings.downsample && file.settings.maximum)
        text += ", its longer side at most " + Value(*file.settings.maximum).description();
    return text;
}

void addPackage(Lines& lines, const PlannedPackage& planned, const Value& reference, std::size_t number) {
    const PackageSearch& search = planned.search;
    const Value title = search.isInline ? nameOf(*search.package) : orNull(search.baseName);
    lines.add(1, "package " + std::to_string(number) + ": " + title.textOr("without a name"));
    if (search.isInline)
        lines.add(2, "stands in the ticket");
    else
        lines.add(2, search.path.empty() ? "not found" : "found " + search.path);
    if (!search.reason.empty()) lines.add(2, "why: " + search.reason);
    if (search.orientedName) lines.add(2, "looked for " + *search.orientedName);
    if (!search.package)
        for (const std::string& folder : search.folders)
            lines.add(2, "looked in " + folder);
    for (const auto& each : search.passedOver)
        if (search.isWorthTelling(each)) lines.add(2, "passed over " + each.path + ": " + each.reason);

    Dictionary values = reference.as<Dictionary>() ? *reference.as<Dictionary>() : Dictionary();
    for (const char* other : {"job", "name", "plucode", "package"})
        values.erase(other);
    if (!search.isInline && !values.empty()) { // of an inline package its own elements stand among them
        lines.add(2, "slots");
        lines.add(3, Entries(values.begin(), values.end()));
    }
    for (const PlannedOutput& output : planned.outputs) {
        std::string heading = "output " + std::to_string(output.index + 1);
        if (const auto name = base::textForKey(output.output->valuesDict(), "name")) heading += " " + quoted(*name);
        if (output.picture) heading += " for " + *output.picture;
        lines.add(2, heading);
        for (const PlannedTemplate& each : output.templates)
            addTemplate(lines, each, 3);
        for (const std::string& node : output.missingTemplates)
            lines.add(3, "template " + node + ": missing in the package");
        for (const PlannedFile& file : output.files)
            lines.add(3, textOfFile(file));
    }
}

} // namespace

Value orderValue(const OrderPlan& plan) {
    Array packages;
    for (const PlannedPackage& planned : plan.packages)
        packages.push_back(packageValue(planned));
    return Dictionary{
        {"name", plan.job->name()},
        {"type", orNull(plan.job->jobType())},
        {"values", withoutObjects(plan.job->valuesDict())},
        {"packages", std::move(packages)},
    };
}

std::vector<std::string> orderLines(const OrderPlan& plan) {
    Lines lines;
    lines.add(0, plan.job->documentURL().path());
    Entries values;
    for (const auto& [key, value] : plan.job->valuesDict())
        if (key != "package") values.emplace_back(key, value);
    lines.add(1, values);
    const Array references = plan.job->jobPackages();
    for (std::size_t index = 0; index < plan.packages.size(); ++index)
        addPackage(lines, plan.packages[index], references[index], index + 1);
    if (plan.packages.empty()) lines.add(1, "no package: there is nothing to make");
    return lines.take();
}

} // namespace velmctl
