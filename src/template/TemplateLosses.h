// What a document loses when it is saved: a template file holds less than the reading of one takes in. Found by writing
// the document, reading that back, and comparing the values key by key.
#pragma once

#include "template/TemplateReport.h"

#include <vector>

class VELM_Template;

/// One finding for each value that would not come back, and for each comment of the document's file, in the order of
/// lines. `report` must be that with which the document was read. On the caller's thread.
std::vector<TemplateReport::Finding> lossesOfSaving(VELM_Template& document, const TemplateReport& report);
