#include "soak/support/Figures.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace soak {

namespace fs = std::filesystem;

void Figures::add(std::string_view name, double value, std::string_view unit) {
    char text[64];
    std::snprintf(text, sizeof text, "%.4g ", value);
    add(name, text + std::string(unit));
}

void Figures::promise(std::string_view name, bool isKept, std::string_view whatBrokeIt) {
    if (!isKept) ++faults_;
    add(name, isKept ? "kept" : "BROKEN: " + std::string(whatBrokeIt));
}

void Figures::promise(std::string_view name, const std::vector<std::string>& whatBrokeIt) {
    constexpr std::size_t toldAtMost = 5;
    std::string told = std::to_string(whatBrokeIt.size()) + " times";
    for (std::size_t i = 0; i < std::min(whatBrokeIt.size(), toldAtMost); ++i)
        told += (i == 0 ? ": " : "; ") + whatBrokeIt[i];
    promise(name, whatBrokeIt.empty(), told);
}

int Figures::conclude(std::string_view title) const {
    std::size_t width = title.size();
    for (const Row& row : rows_)
        width = std::max(width, row.name.size());
    const int column = static_cast<int>(width);
    std::printf("\n%-*s  %s\n", column, std::string(title).c_str(), faults_ == 0 ? "all kept" : "BROKEN");
    for (const Row& row : rows_)
        std::printf("%-*s  %s\n", column, row.name.c_str(), row.value.c_str());
    std::fflush(stdout);
    return faults_ == 0 ? 0 : 1;
}

Knobs::Knobs(int count, char** arguments) : words_(arguments + 1, arguments + count) {}

bool Knobs::has(std::string_view name) const {
    return std::find(words_.begin(), words_.end(), "--" + std::string(name)) != words_.end();
}

std::string Knobs::text(std::string_view name, std::string_view otherwise) const {
    const auto found = std::find(words_.begin(), words_.end(), "--" + std::string(name));
    return found != words_.end() && found + 1 != words_.end() ? *(found + 1) : std::string(otherwise);
}

std::int64_t Knobs::number(std::string_view name, std::int64_t shortForm, std::int64_t longForm) const {
    const std::string given = text(name);
    if (!given.empty()) return std::atoll(given.c_str());
    return isShort() ? shortForm : longForm;
}

Footprint Footprint::ofProcess(std::int64_t pid) {
    Footprint footprint;
    const fs::path folder = fs::path("/proc") / std::to_string(pid);
    const struct {
        std::string_view name;
        std::int64_t& value;
    } lines[] = {{"VmRSS:", footprint.residentKilobytes},
                 {"RssAnon:", footprint.anonymousKilobytes},
                 {"VmHWM:", footprint.peakKilobytes},
                 {"Threads:", footprint.threads}};
    std::ifstream status(folder / "status");
    for (std::string word; status >> word;)
        for (const auto& line : lines)
            if (word == line.name) status >> line.value;
    std::error_code error;
    for (fs::directory_iterator entry(folder / "fdinfo", error), end; !error && entry != end; entry.increment(error)) {
        ++footprint.descriptors;
        std::ifstream info(entry->path());
        for (std::string line; std::getline(info, line);)
            footprint.watches += line.starts_with("inotify wd:");
    }
    return footprint;
}

Footprint Footprint::ofThisProcess() {
    return ofProcess(getpid());
}

} // namespace soak
