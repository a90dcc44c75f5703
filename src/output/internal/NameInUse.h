// Keeps the writes of one process to one name apart, so that each knows under which number its file ended. Any thread.
#pragma once

#include "base/Path.h"

#include <string>

namespace output {

/// While it lives, no other write of an output is wanted at the same path: those wait for each other.
class NameInUse {
public:
    explicit NameInUse(std::string path);
    ~NameInUse();
    NameInUse(const NameInUse&) = delete;
    NameInUse& operator=(const NameInUse&) = delete;

private:
    std::string path_;
};

} // namespace output
