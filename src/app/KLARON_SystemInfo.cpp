#include "app/KLARON_SystemInfo.h"

#include "app/Logger.h"
#include "app/MainBundle.h"
#include "base/Log.h"
#include "base/Processors.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <set>
#include <sys/utsname.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// A file of the system's, which tells no size beforehand; empty when there is none.
std::string contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string firstLine(const std::string& path) {
    const std::string text = contents(path);
    return text.substr(0, text.find_first_of(std::string_view("\n\0", 2)));
}

/// The number behind a name at a line's start ("MemTotal:  12 kB", "pswpin 7"); 0 without that line.
std::int64_t figure(std::string_view lines, std::string_view name) {
    for (const std::string& line : base::split(lines, "\n"))
        if (line.starts_with(name)) return base::integerValue(std::string_view(line).substr(name.size()));
    return 0;
}

std::vector<std::string> processorValues(std::string_view name) {
    std::vector<std::string> values;
    for (const std::string& line : base::split(contents("/proc/cpuinfo"), "\n")) {
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos && base::trimmed(std::string_view(line).substr(0, colon)) == name)
            values.emplace_back(base::trimmed(std::string_view(line).substr(colon + 1)));
    }
    return values;
}

std::string kernelText(const char (utsname::*field)[65]) {
    utsname names{};
    return uname(&names) == 0 ? std::string(names.*field) : std::string();
}

std::string model() {
    std::string name = firstLine("/sys/devices/virtual/dmi/id/product_name");
    return name.empty() ? firstLine("/proc/device-tree/model") : name;
}

std::string brand() {
    const std::vector<std::string> names = processorValues("model name");
    return names.empty() ? std::string() : names.front();
}

/// Cores, each counted once however many threads it runs.
std::string physicalCount() {
    const std::vector<std::string> packages = processorValues("physical id");
    const std::vector<std::string> cores = processorValues("core id");
    if (cores.empty() || packages.size() != cores.size()) return std::to_string(base::logicalProcessors());
    std::set<std::pair<std::string, std::string>> distinct;
    for (std::size_t index = 0; index < cores.size(); ++index)
        distinct.emplace(packages[index], cores[index]);
    return std::to_string(distinct.size());
}

struct SystemValue {
    std::string_view name;
    std::string (*value)();
};

constexpr std::array<SystemValue, 10> systemValues = {{
    {"hw.model", model},
    {"hw.machine", [] { return kernelText(&utsname::machine); }},
    {"machdep.cpu.brand_string", brand},
    {"hw.physicalcpu", physicalCount},
    {"hw.logicalcpu", [] { return std::to_string(base::logicalProcessors()); }},
    {"hw.activecpu", [] { return std::to_string(sysconf(_SC_NPROCESSORS_ONLN)); }},
    {"kern.osrevision", [] { return kernelText(&utsname::release); }},
    {"kern.version", [] { return firstLine("/proc/version"); }},
    {"kern.boottime", [] { return std::to_string(figure(contents("/proc/stat"), "btime")); }},
    {"kern.clockrate", [] { return std::to_string(sysconf(_SC_CLK_TCK)); }},
}};

/// "name=value" for a name that has a value; the kernel keeps its parameters as files whose folders are the name's
/// parts.
std::string lineOf(std::string_view name) {
    const auto* known =
        std::find_if(systemValues.begin(), systemValues.end(), [&](const auto& row) { return row.name == name; });
    const bool isSafe = name.find('/') == std::string_view::npos && name.find("..") == std::string_view::npos;
    const std::string value = known != systemValues.end() ? known->value()
                              : isSafe                    ? firstLine("/proc/sys/" + base::replacingAll(name, ".", "/"))
                                                          : std::string();
    return value.empty() ? std::string() : std::string(name) + "=" + value + "\n";
}

std::string operatingSystemVersion() {
    for (const std::string& line : base::split(contents("/etc/os-release"), "\n"))
        if (line.starts_with("PRETTY_NAME="))
            return base::replacingAll(std::string_view(line).substr(line.find('=') + 1), "\"", "") + " (" +
                   kernelText(&utsname::sysname) + " " + kernelText(&utsname::release) + ")";
    return kernelText(&utsname::sysname) + " " + kernelText(&utsname::release);
}

std::uint64_t shifted(std::uint64_t count, unsigned bits) {
    return count > (std::numeric_limits<std::uint64_t>::max() >> bits) ? std::numeric_limits<std::uint64_t>::max()
                                                                       : count << bits;
}

} // namespace

std::optional<base::Dictionary> KLARON_SystemInfo::memoryStats() {
    const std::string memory = contents("/proc/meminfo");
    if (memory.empty()) return std::nullopt;
    const std::string pages = contents("/proc/vmstat");
    const std::int64_t sizeOfPage = sysconf(_SC_PAGESIZE);
    const std::int64_t pageBytes = sizeOfPage > 0 ? sizeOfPage : 4096;
    const auto kilobytes = [&](std::string_view name) { return figure(memory, name) * 1024; };
    return base::Dictionary{
        {"pageSize", pageBytes},
        {"physical", kilobytes("MemTotal:")},
        {"free", kilobytes("MemFree:")},
        // What never leaves memory: locked pages and the kernel's own.
        {"wired",
         kilobytes("Unevictable:") + kilobytes("SUnreclaim:") + kilobytes("KernelStack:") + kilobytes("PageTables:")},
        {"active", kilobytes("Active:")},
        {"inactive", kilobytes("Inactive:")},
        {"decompressed", kilobytes("Zswapped:")},
        {"compressed", kilobytes("Zswap:")},
        {"swapins", figure(pages, "pswpin ") * pageBytes},
        {"swapouts", figure(pages, "pswpout ") * pageBytes},
    };
}

base::Dictionary KLARON_SystemInfo::sysctlValuesForKeys(std::span<const std::string_view> keys) {
    std::string lines;
    if (keys.empty())
        for (const SystemValue& row : systemValues)
            lines += lineOf(row.name);
    for (const std::string_view key : keys)
        lines += lineOf(key);
    return valuesOfLines(lines);
}

base::Dictionary KLARON_SystemInfo::valuesOfLines(std::string_view lines) {
    base::Dictionary values;
    for (const std::string& line : base::split(lines, "\n"))
        if (const std::size_t equals = line.find('='); equals != std::string::npos)
            values[line.substr(0, equals)] = line.substr(equals + 1);
    return values;
}

base::Dictionary KLARON_SystemInfo::hardwareInfo() {
    std::vector<std::string_view> names;
    for (const SystemValue& row : systemValues)
        names.push_back(row.name);
    return sysctlValuesForKeys(names);
}

const std::optional<base::Dictionary>& KLARON_SystemInfo::stats() {
    if (!std::exchange(hasStats_, true)) statsMem_ = memoryStats();
    return statsMem_;
}

const base::Dictionary& KLARON_SystemInfo::statsHW() {
    if (!statsHW_) statsHW_ = hardwareInfo();
    return *statsHW_;
}

namespace {

std::string textOf(const base::Dictionary& values, std::string_view name) {
    const auto found = values.find(std::string(name));
    return found == values.end() ? std::string() : found->second.stringValue().value_or("");
}

} // namespace

std::string KLARON_SystemInfo::byteOrder() {
    return std::endian::native == std::endian::little ? "LittleEndian" : "BigEndian";
}

unsigned KLARON_SystemInfo::compiledBits() {
    return sizeof(void*) * CHAR_BIT;
}

std::string KLARON_SystemInfo::uptime() {
    return uptimeOfOutput(app::outputWhenRunAsShellCommand("/usr/bin/uptime 2>/dev/null").value_or(""));
}

std::string KLARON_SystemInfo::uptimeOfOutput(std::string_view output) {
    std::vector<std::string> items = base::split(output, " ");
    std::erase(items, "");
    if (items.size() < 3) return std::string(output);
    std::string joined = items[2];
    for (std::size_t index = 3; index < items.size(); ++index)
        joined += " " + items[index];
    return joined;
}

std::string KLARON_SystemInfo::hardwareModel() {
    return textOf(statsHW(), "hw.model");
}

std::string KLARON_SystemInfo::hardwareArch() {
    return textOf(statsHW(), "hw.machine") + base::message(" (%u-bit %@)", compiledBits(), byteOrder());
}

std::string KLARON_SystemInfo::hardwareCPU() {
    return base::replacingAll(base::replacingAll(textOf(statsHW(), "machdep.cpu.brand_string"), "(R)", ""), "(TM)", "");
}

std::int64_t KLARON_SystemInfo::cpuCountPhysical() {
    return base::integerValue(textOf(statsHW(), "hw.physicalcpu"));
}

std::int64_t KLARON_SystemInfo::cpuCountLogical() {
    return base::integerValue(textOf(statsHW(), "hw.logicalcpu"));
}

std::int64_t KLARON_SystemInfo::cpuCountActive() {
    return base::integerValue(textOf(statsHW(), "hw.activecpu"));
}

std::int64_t KLARON_SystemInfo::pageSize() {
    return stats() ? stats()->at("pageSize").integerValue() : 4096;
}

std::string KLARON_SystemInfo::fmvfs(std::string_view name) {
    const auto& figures = stats();
    const auto found = figures ? figures->find(std::string(name)) : base::Dictionary::const_iterator();
    return app::gigabytesText(figures && found != figures->end() ? found->second.integerValue() : 0);
}

std::string KLARON_SystemInfo::report() {
    constexpr std::string_view rule = "\n    ====================================================";
    std::string text = std::string(rule) + std::string(rule);
    const auto line = [&](std::string_view form, const auto&... values) { text += base::message(form, values...); };
    line("\n    | %@", app::longDescription());
    line("\n    | macOS %@", operatingSystemVersion());
    line("\n    | up %@", base::trimmed(uptime()));
    line("\n    | %@ %@", hardwareModel(), hardwareArch());
    line("\n    | %@", hardwareCPU());
    line("\n    |  CPU core count: %@ physical %@ logical (%@ active)", std::to_string(cpuCountPhysical()),
         std::to_string(cpuCountLogical()), std::to_string(cpuCountActive()));
    line("\n    | Physical memory: %@", physical());
    line("\n    |            free: %@", free());
    line("\n    |           wired: %@", wired());
    line("\n    |          active: %@", active());
    line("\n    |        inactive: %@", inactive());
    line("\n    |      compressed: %@", compressed());
    line("\n    |    decompressed: %@", decompressed());
    line("\n    |         swapins: %@", swapins());
    line("\n    |        swapouts: %@", swapouts());
    return text + std::string(rule) + std::string(rule);
}

KLARON_SystemInfo app::processInfo::systemInfo() {
    return {};
}

void app::processInfo::logCurrentSystemInfo() {
    Logger::setError(systemInfo().report());
}

std::uint64_t app::bytesFromKB(std::uint64_t count) {
    return shifted(count, 10);
}
std::uint64_t app::bytesFromMB(std::uint64_t count) {
    return shifted(count, 20);
}
std::uint64_t app::bytesFromGB(std::uint64_t count) {
    return shifted(count, 30);
}
std::uint64_t app::bytesFromTB(std::uint64_t count) {
    return shifted(count, 40);
}

std::string app::gigabytesText(std::int64_t bytes) {
    if (bytes == 0) return "Zero GB";
    constexpr int significantDigits = 3;
    const double gigabytes = static_cast<double>(bytes) / 1e9;
    const int wholeDigits = static_cast<int>(std::floor(std::log10(std::abs(gigabytes)))) + 1;
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f GB", std::max(0, significantDigits - wholeDigits), gigabytes);
    return text.data();
}

std::optional<std::string> app::outputWhenRunAsShellCommand(const std::string& command) {
    if (command.empty()) return std::nullopt;
    static std::mutex mutex; // of two at a time the second would keep what the first has set
    const std::lock_guard lock(mutex);
    // So that the command leaves nothing behind for somebody else's wait.
    struct sigaction ignoring {};
    struct sigaction before {};
    ignoring.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignoring, &before);
    const auto restore = [&] {
        if (sigaction(SIGCHLD, &before, nullptr) != 0) base::log("error reseting SIGCHLD");
    };
    std::FILE* pipe = popen(command.c_str(), "re");
    if (!pipe) {
        base::log("%s failed to run  \"%@\"", "-[NSString outputWhenRunAsShellCommand]", command);
        restore();
        return std::nullopt;
    }
    std::string output;
    std::array<char, 256> piece{};
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), pipe))
        output.append(piece.data(), count);
    pclose(pipe);
    restore();
    return output;
}
