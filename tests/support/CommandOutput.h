// Other programs as judges: what they print. Any thread.
#pragma once

#include <array>
#include <cstdio>
#include <optional>
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

/// What exiftool prints for each of the tags, "-" for one that is missing; nothing when exiftool is not installed.
inline std::optional<std::vector<std::string>> exiftool(const std::string& path, const std::vector<std::string>& tags) {
    std::string command = "exiftool -s3 -f";
    for (const std::string& tag : tags)
        command += " -" + tag;
    const auto text = commandOutput(command + " '" + path + "'");
    if (!text) return std::nullopt;
    std::vector<std::string> lines(1);
    for (const char character : *text)
        if (character == '\n')
            lines.emplace_back();
        else
            lines.back() += character;
    if (lines.back().empty()) lines.pop_back();
    return lines;
}

} // namespace support
