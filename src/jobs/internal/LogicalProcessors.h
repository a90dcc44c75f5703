// The count of processors that sizes the pool of outputs.
#pragma once

#include "base/Processors.h"

namespace jobs {

inline unsigned cpuCountLogical() {
    return base::logicalProcessors();
}

} // namespace jobs
