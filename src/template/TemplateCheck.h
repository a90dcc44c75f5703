// What a person who made a template should hear before an order meets it: what reading dropped, and what drawing will
// miss or do otherwise than the file asks. Looks at the document as it stands, without an order: a hole that an order
// fills is no finding. Opens the pictures and fonts that it names, and decodes each picture once, small.
#pragma once

#include "template/TemplateReport.h"

#include <vector>

class VELM_Template;

/// One finding for each such thing, the report's own among them, in the order of files and lines. `report` must be
/// that with which the document was read. Nothing in the document changes but its scale, which layers take over as in
/// a render. On the caller's thread.
std::vector<TemplateReport::Finding> findingsOfTemplate(VELM_Template& document, const TemplateReport& report);
