// What a file loses when its document is saved: reading passes over some of it, and a saved file holds less than
// reading takes in. Found by writing the document, reading that back, and comparing the values key by key.
#pragma once

#include "base/Path.h"
#include "template/TemplateReport.h"

#include <optional>
#include <vector>

class VELM_Template;

/// One finding for each thing that reading dropped, each value that would not come back, and each comment of the
/// document's own file, in the order of lines. `report` and `jobContainer` must be those with which the document was
/// read. On the caller's thread.
std::vector<TemplateReport::Finding> lossesOfSaving(VELM_Template& document, const TemplateReport& report,
                                                    const std::optional<base::URL>& jobContainer);
