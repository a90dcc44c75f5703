#include "jobs/OrderPlan.h"

#include "jobs/VELM_Package.h"

#include <map>
#include <tuple>
#include <utility>

namespace {

using Fillings = std::map<const VELM_Template*, std::pair<std::string, std::shared_ptr<PlannedTemplate>>>;

bool isPictureOrText(VELM_Template::LayerType type) {
    return type == VELM_Template::LayerTypeImage || type == VELM_Template::LayerTypeGraphic ||
           type == VELM_Template::LayerTypeTextbox;
}

/// Reads off what filling and placing made of the holes of one template.
class HoleReader {
public:
    /// `package` is none for the template of a hole, which asks the order for nothing.
    HoleReader(std::shared_ptr<const PackageValues> package, const Fillings& fillings)
        : package_(std::move(package)), job_(package_ ? package_->job() : nullptr), fillings_(fillings) {}

    std::vector<PlannedHole> holesOf(const std::vector<LayerLayout>& layers) const {
        std::vector<PlannedHole> holes;
        append(holes, layers);
        return holes;
    }

private:
    void append(std::vector<PlannedHole>& holes, const std::vector<LayerLayout>& layers) const {
        for (const LayerLayout& layout : layers) {
            if (isPictureOrText(layout.type) && layout.layer->keyPlaceholder()) holes.push_back(holeOf(layout));
            append(holes, layout.layers);
        }
    }

    PlannedHole holeOf(const LayerLayout& layout) const {
        PlannedHole hole{.key = *layout.layer->keyPlaceholder(), .type = layout.type, .omission = layout.omission};
        const bool isPicture = layout.type != VELM_Template::LayerTypeTextbox;
        if (job_) {
            // The names by which the filling asks: the product code for the value alone.
            const auto name = package_->name();
            const auto pluCode = package_->pluCode();
            hole.value = job_->valueForKey(hole.key, pluCode ? pluCode : name);
            if (isPicture) {
                hole.crop = job_->cropRectForKey(hole.key, name);
                hole.rotation = job_->rotationForKey(hole.key, name);
            }
        }
        if (layout.picture) {
            hole.file = layout.picture->file;
            hole.size = layout.picture->size;
            hole.shown = layout.picture->shown;
        }
        if (layout.text) {
            hole.text = layout.text->text;
            hole.isTextComplete = layout.text->isComplete;
        }
        if (const auto filling = fillings_.find(layout.layer.get()); filling != fillings_.end()) {
            std::tie(hole.templatePath, hole.filling) = filling->second;
            // What the layer itself names stays where the template is nowhere, and gives way to it elsewhere.
            if (hole.filling) {
                hole.omission = LayerOmission::none;
                hole.file.clear();
            }
        }
        return hole;
    }

    std::shared_ptr<const PackageValues> package_;
    std::shared_ptr<const JobValues> job_;
    const Fillings& fillings_;
};

std::string pathOf(const VELM_Template& document) {
    return document.documentURL().value_or(base::URL()).path();
}

PlannedTemplate planOfTemplate(VELM_Template& document, const std::string& node, const VELM_Output& output) {
    Fillings fillings;
    document.setPackage(output.package());
    document.setFilepathCustomImage(output.allImagesPath());
    document.replaceKeyValues(
        [&](const VELM_Template::Ref& hole, const std::string& path, const VELM_Template::Ref& filled) {
            std::shared_ptr<PlannedTemplate> filling;
            if (filled)
                filling = std::make_shared<PlannedTemplate>(
                    PlannedTemplate{.path = pathOf(*filled),
                                    .holes = HoleReader(nullptr, {}).holesOf(layoutOf(*filled)),
                                    .error = filled->renderError()});
            fillings.emplace(hole.get(), std::pair(path, std::move(filling)));
        });
    const auto layers = layoutOf(document);
    return {.node = node,
            .path = pathOf(document),
            .holes = HoleReader(output.package(), fillings).holesOf(layers),
            .error = document.renderError()};
}

PlannedFile planOfFile(const VELM_Output& output, const std::shared_ptr<VELM_Destination>& destination) {
    PlannedFile file{.destination = destination};
    if (destination->kind() != VELM_Destination::Kind::file) return file;
    file.settings = output.fileSettings(*destination, [] { return std::string(OrderPlan::timeInNames); });
    file.path = base::URL::fileURLWithPath(file.settings.writtenPath().value_or("")).path();
    if (file.settings.isCopy) file.original = output.urlOriginalImage().value_or(base::URL()).path();
    return file;
}

/// `run` is the run's own copy, whose templates are filled for good.
PlannedOutput planOfOutput(const VELM_Output& run) {
    PlannedOutput planned{.picture = run.allImagesPath()};
    if (!run.ignoresTemplates()) {
        const auto& templates = run.templates();
        if (run.drawsOnlyTemplate())
            planned.templates.push_back(planOfTemplate(*templates.begin()->second, templates.begin()->first, run));
        for (const auto& node : run.outputNodes()) {
            const auto found = templates.find(node->name());
            if (found == templates.end() || !found->second)
                planned.missingTemplates.push_back(node->name());
            else
                planned.templates.push_back(planOfTemplate(*found->second, node->name(), run));
        }
    }
    for (const auto& destination : run.destinations())
        planned.files.push_back(planOfFile(run, destination));
    return planned;
}

std::vector<PlannedOutput> planOfOutputs(const VELM_Package& package, const VELM_Job& job) {
    std::vector<PlannedOutput> planned;
    const auto nodes = package.velmNodes();
    std::size_t index = 0;
    for (const auto& output : package.outputs()) {
        output->setTemplates(nodes);
        std::vector<std::optional<std::string>> pictures{std::nullopt};
        if (output->allImages()) {
            pictures.clear();
            const base::Value listed = job.valueInDict("allimages");
            if (const auto* paths = listed.as<base::Array>())
                for (const base::Value& path : *paths)
                    pictures.push_back(path.text());
        }
        for (const auto& picture : pictures) {
            // A copy, as filling changes the templates for good and the package's own stay as its files have them.
            const auto run = output->copyWithZone();
            if (!run) continue;
            run->setAllImagesPath(picture);
            PlannedOutput& added = planned.emplace_back(planOfOutput(*run));
            added.output = output;
            added.index = index;
            // What keeps a file from being loaded whole is not copied along.
            for (PlannedTemplate& planOf : added.templates)
                if (const auto original = nodes.find(planOf.node); !planOf.error && original != nodes.end())
                    planOf.error = original->second->renderError();
        }
        ++index;
    }
    return planned;
}

} // namespace

OrderPlan planOfOrder(const VELM_Job::Ref& job, OrderReport* report) {
    OrderPlan plan{.job = job};
    for (const base::Value& value : job->jobPackages()) {
        const auto* reference = value.as<base::Dictionary>();
        PlannedPackage& planned = plan.packages.emplace_back();
        planned.search = searchPackage(reference ? *reference : base::Dictionary(), report);
        if (!planned.search.package) continue;
        planned.search.package->setJob(job);
        planned.outputs = planOfOutputs(*planned.search.package, *job);
    }
    return plan;
}
