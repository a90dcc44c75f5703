#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() {
    std::string name = (fs::temp_directory_path() / "velm-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("cannot make a temporary folder");
    path_ = fs::canonical(name);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TemporaryDirectory::operator/(std::string_view relative) const {
    return (path_ / fs::path(relative)).string();
}

std::string TemporaryDirectory::write(std::string_view relative, std::string_view contents) const {
    const fs::path target = path_ / fs::path(relative);
    fs::create_directories(target.parent_path());
    std::ofstream(target, std::ios::binary) << contents;
    return target.string();
}

std::string readFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::stringstream contents;
    contents << stream.rdbuf();
    return contents.str();
}

} // namespace support
