// A file that is written beside its target under a hidden name, to be renamed when it is whole. While it is written its
// writer holds a lock on it, so that what a killed writer left can be told from what a living one, of this or another
// process, still writes; leftovers are removed at a process's first write into a folder. One owner, any thread.
#pragma once

#include "base/Error.h"

#include <string>

namespace base {

class AsideFile {
public:
    /// Makes an empty file ".velm-<process>-<number>.tmp" in `folder`, mode 0644 less the process's mask, open for
    /// reading and writing. `deed` begins the text of an error ("cannot write /a/b").
    static Result<AsideFile> create(const std::string& folder, const std::string& deed);
    AsideFile() = default;
    AsideFile(AsideFile&& other) noexcept;
    AsideFile& operator=(AsideFile&& other) noexcept;
    /// Closes the file, and removes it unless keep() was called.
    ~AsideFile();

    const std::string& path() const { return path_; }
    int descriptor() const { return descriptor_; }
    /// The descriptor becomes the caller's, who closes it.
    int takeDescriptor();
    /// Closes the descriptor; false, with errno's value, when the system reports that something was not written.
    bool close();
    /// It has another name now: nothing is removed.
    void keep() { path_.clear(); }

private:
    std::string path_; // empty: nothing to remove
    int descriptor_ = -1;
};

} // namespace base
