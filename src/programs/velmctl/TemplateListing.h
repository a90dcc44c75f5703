// A template document as text: for people with the values in force and where each came from, for programs as a value
// that jsonText prints. Pure functions.
#pragma once

#include "base/Value.h"
#include "template/TemplateReport.h"
#include "template/VELM_Template.h"

#include <string>
#include <vector>

namespace velmctl {

/// The document and its layers, those of nested files indented below the layer in whose place they stand: one line a
/// value, with "file:line" and the attribute or element that gave it, or "default".
std::vector<std::string> templateLines(VELM_Template& document, const TemplateReport& report);

/// `name`, `type`, `size` as [width, height], `layers` with all that their `valuesDict` holds under its own keys,
/// frames as [x, y, width, height]; and what else the document's own holds.
base::Value templateValue(VELM_Template& document);

} // namespace velmctl
