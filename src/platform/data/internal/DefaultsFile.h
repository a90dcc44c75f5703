// The file of one suite of user defaults on the disk: reading, and changing it under a lock that all processes honour.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <functional>
#include <string>
#include <utility>

namespace platform::data {

class DefaultsFile {
public:
    explicit DefaultsFile(std::string path) : path_(std::move(path)) {}

    const std::string& path() const { return path_; }

    /// What stands in the file; nothing there is an empty dictionary. An error for a damaged or unreadable file.
    base::Result<base::Dictionary> read() const;

    struct State {
        base::Dictionary contents;
        std::string generation;
    };
    /// Reads the file, lets `change` edit what stands in it, and writes the outcome when it differs; all under the
    /// lock. A damaged file is kept under another name. Answers what now stands on the disk.
    base::Result<State> update(const std::function<void(base::Dictionary&)>& change) const;

    /// A text that differs after each change of the file; empty for a missing one.
    std::string generation() const;

private:
    base::Result<base::Dictionary> readForWriting() const;

    const std::string path_;
};

} // namespace platform::data
