// A folder for one test: made on construction, removed with all its contents on destruction. Owned by the test that
// makes it, on any thread.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace support {

class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// The absolute path of `relative` inside the folder, as text; nothing is made.
    std::string operator/(std::string_view relative) const;
    /// Writes `contents` to a file inside, making the folders on its way; answers the absolute path.
    std::string write(std::string_view relative, std::string_view contents) const;

private:
    std::filesystem::path path_;
};

/// The whole contents of a file; the empty text when it can't be read.
std::string readFile(const std::filesystem::path& path);

} // namespace support
