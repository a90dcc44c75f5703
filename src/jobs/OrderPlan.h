// What an order would do, without doing it: which package each of its references finds and why, which picture or text
// fills which hole of the templates, and which files would be written. Nothing is rendered and nothing is written; of
// pictures only the headers are read.
//
// It goes the run's own roads and stops before the drawing: the search is that of the run (searchPackage), holes are
// filled by VELM_Template::replaceKeyValues and placed by layoutOf, names are made by VELM_Output::fileSettings. Only
// the time that stands in a name is left open.
//
// Made on the caller's thread, which may be any; the result owns all that it names.
#pragma once

#include "base/Geometry.h"
#include "jobs/PackageSearch.h"
#include "jobs/VELM_Job.h"
#include "output/VELM_Output.h"
#include "template/TemplateLayout.h"
#include "template/VELM_Template.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct PlannedTemplate;

/// A layer that takes a value from the order; of a template that fills a hole, one that takes the outer hole's picture.
struct PlannedHole {
    std::string key;
    VELM_Template::LayerType type = VELM_Template::LayerTypeUnknown;
    /// What the order gives under the key: none leaves the layer as the template has it.
    std::optional<std::string> value;
    /// As the order gives them; rotations count in templates of holes only.
    std::optional<std::string> crop;
    std::optional<std::string> rotation;
    /// The template that the order puts into the hole, and what it comes to; the latter null when it is nowhere.
    std::optional<std::string> templatePath;
    std::shared_ptr<PlannedTemplate> filling;
    /// What is drawn there.
    LayerOmission omission = LayerOmission::none;
    std::string file; ///< Of the picture; empty for none and for a whole template.
    base::Size size;  ///< Of the picture as it is drawn, upright or turned to the hole's shape, in pixels.
    base::Rect shown; ///< The part of it that shows; empty when the crop misses it.
    std::string text;
    bool isTextComplete = true; ///< Whether the whole text fits its frame.
};

struct PlannedTemplate {
    std::string node; ///< The name under which the package has it; empty for the template of a hole.
    std::string path; ///< Of its file; empty for one that stands in the package.
    std::vector<PlannedHole> holes;
    /// Why the product fails by it, whatever the order holds.
    std::optional<base::Error> error;
};

/// What a destination of an output receives.
struct PlannedFile {
    std::shared_ptr<const VELM_Destination> destination;
    VELM_Output::FileSettings settings; ///< Of a file destination.
    std::string path;                   ///< With `timeInNames` where the time would stand; empty for other kinds.
    std::string original;               ///< The picture that is copied; empty unless the settings ask for it.
};

/// One run of an output: one product.
struct PlannedOutput {
    std::shared_ptr<const VELM_Output> output; ///< Of the package, before any filling.
    std::size_t index = 0;                     ///< Among the outputs of the package.
    std::optional<std::string> picture;        ///< For an output that runs once for each picture: this one.
    std::vector<PlannedTemplate> templates;    ///< In the order of the nodes; none when only the original is copied.
    std::vector<std::string> missingTemplates; ///< The nodes for which the package has no template.
    std::vector<PlannedFile> files;
};

struct PlannedPackage {
    PackageSearch search;
    std::vector<PlannedOutput> outputs; ///< None without a package, or when there are no pictures to run for.
};

struct OrderPlan {
    static constexpr const char* timeInNames = "{date}";

    VELM_Job::Ref job;
    std::vector<PlannedPackage> packages; ///< One for each package reference, in their order.
};

/// A report takes down what the reading of the found packages dropped.
OrderPlan planOfOrder(const VELM_Job::Ref& job, OrderReport* report = nullptr);
