// What the fuzz targets share. A target is one function, called with outside bytes: by libFuzzer in the fuzz build, by
// replay_main.cpp with the files of its corpus in all others. It must take any bytes, and ends the process when what
// must always hold does not.
#pragma once

#include "base/Log.h"
#include "base/Value.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace fuzzing {

inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

/// Broken input is the rule here: what the log says of it would only drown the findings.
inline void silenceLog() {
    static const bool silenced = [] {
        base::setLogSink([](std::string_view) {});
        return true;
    }();
    (void)silenced;
}

inline base::Data dataOf(const std::uint8_t* bytes, std::size_t size) {
    return base::Data(std::vector<std::uint8_t>(bytes, bytes + size));
}

/// A file that stands nowhere and leaves nothing behind.
class NamelessFile {
public:
    NamelessFile() : descriptor_(memfd_create("fuzzing", 0)) { require(descriptor_ >= 0, "there is a file to write"); }

    /// Takes the place of what the file held before.
    void write(std::string_view content) const {
        require(ftruncate(descriptor_, 0) == 0 &&
                    pwrite(descriptor_, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()),
                "the file is written");
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

} // namespace fuzzing
