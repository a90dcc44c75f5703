// Tells whoever asked of each file that an output writes. Any thread.
#pragma once

#include "base/Path.h"

class VELM_Output;

namespace output {

void announceWrittenFile(const VELM_Output& output, const base::URL& file);

} // namespace output
