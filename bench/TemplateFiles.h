// The templates that velm_bench_template reads, fills and draws, and the job that fills them. All texts are in DejaVu
// Sans; all values are made from the number of the template, so that each run measures the same.
#pragma once

#include "base/Geometry.h"
#include "template/RenderingContext.h"

#include <memory>
#include <string>
#include <vector>

namespace bench {

constexpr int layersOfMixedTemplate = 50;

/// `count` files "<number>.xml" of 50 layers in turns: a hole with a key, a graphic, a text with a key and one with
/// full style, stamps, and two nested files, which stand in `folder` too. Answers the paths; none when a file can't be
/// written.
std::vector<std::string> makeMixedTemplates(int count, const std::string& folder);
/// The nested file that each of them holds twice.
std::string nestedTemplateIn(const std::string& folder);

/// The element of a layer.
std::string layerText(const std::string& type, const base::Rect& frame, const std::string& children);

/// A package whose job has a picture, a crop or a text for every key of the templates above.
std::shared_ptr<const PackageValues> plainPackage();

} // namespace bench
