// Other programs as judges: what they print. Any thread.
#pragma once

#include <array>
#include <cstdio>
#include <optional>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace support {

/// What a shell command prints; nothing when it is not installed.
inline std::optional<std::string> commandOutput(const std::string& command) {
    std::FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
    if (!pipe) return std::nullopt;
    std::string text;
    std::array<char, 4096> buffer;
    while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe))
        text.append(buffer.data(), got);
    constexpr int commandNotFound = 127;
    const int status = ::pclose(pipe);
    if (WIFEXITED(status) && WEXITSTATUS(status) == commandNotFound) return std::nullopt;
    return text;
}

/// What exiftool prints for each of the tags of each file, "-" for one that is missing; nothing when exiftool is not
/// installed. One call for many files: it takes long to start.
inline std::optional<std::vector<std::vector<std::string>>> exiftool(const std::vector<std::string>& paths,
                                                                     const std::vector<std::string>& tags) {
    std::string command = "exiftool -q -s3 -f";
    for (const std::string& tag : tags)
        command += " -" + tag;
    for (const std::string& path : paths)
        command += " '" + path + "'";
    const auto text = commandOutput(command);
    if (!text) return std::nullopt;
    std::vector<std::vector<std::string>> files(paths.size());
    std::istringstream lines(*text);
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line) && count < paths.size() * tags.size(); ++count)
        files[count / tags.size()].push_back(line);
    return files;
}

} // namespace support
