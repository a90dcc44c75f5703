// What machine this is and how its memory stands, as figures and as texts for people: the report at the head of each
// run's log. A figure that the system does not give is 0, a text is empty; nothing here fails. Any thread; the figures
// of an object are read at the first question for one of them, by one thread at a time.
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

class KLARON_SystemInfo {
public:
    /// Bytes (all but the first in whole pages) under "pageSize", "physical", "free", "wired", "active", "inactive",
    /// "decompressed", "compressed", "swapins" and "swapouts"; nothing when the system tells nothing.
    static std::optional<base::Dictionary> memoryStats();
    /// Values by name, as texts: those of the names below, and of any parameter of the kernel ("kernel.pid_max").
    /// Without names all that hardwareInfo knows. Unknown names have none.
    static base::Dictionary sysctlValuesForKeys(std::span<const std::string_view> keys);
    static base::Dictionary hardwareInfo();
    /// Lines "name=value" as a dictionary. A value may hold "="; a line without one is passed over.
    static base::Dictionary valuesOfLines(std::string_view lines);

    /// Read once for each object.
    const std::optional<base::Dictionary>& stats();
    const base::Dictionary& statsHW();

    static std::string byteOrder();
    static unsigned compiledBits();
    /// How long the machine runs and how loaded it is, as the command of that name says it.
    static std::string uptime();
    /// That command's output without the time of day and the word "up"; as it stands when it has fewer than three
    /// words.
    static std::string uptimeOfOutput(std::string_view output);

    std::string hardwareModel();
    std::string hardwareArch();
    std::string hardwareCPU();
    std::int64_t cpuCountPhysical();
    /// How many the process may use: what pools of threads are sized by.
    std::int64_t cpuCountLogical();
    std::int64_t cpuCountActive();
    std::int64_t pageSize();

    /// The figure of that name in gigabytes: "16.8 GB".
    std::string fmvfs(std::string_view name);
    std::string physical() { return fmvfs("physical"); }
    std::string free() { return fmvfs("free"); }
    std::string wired() { return fmvfs("wired"); }
    std::string active() { return fmvfs("active"); }
    std::string inactive() { return fmvfs("inactive"); }
    std::string compressed() { return fmvfs("compressed"); }
    std::string decompressed() { return fmvfs("decompressed"); }
    std::string swapins() { return fmvfs("swapins"); }
    std::string swapouts() { return fmvfs("swapouts"); }

    /// The whole report, several lines, the first of them empty.
    std::string report();

private:
    bool hasStats_ = false;
    std::optional<base::Dictionary> statsMem_;
    std::optional<base::Dictionary> statsHW_;
};

/// Of the running process.
namespace app::processInfo {

KLARON_SystemInfo systemInfo();
/// Writes the report to the log, whatever the log's level.
void logCurrentSystemInfo();

} // namespace app::processInfo

namespace app {

/// Units of bytes, each 1024 of the one before; all ones when there are too many.
std::uint64_t bytesFromKB(std::uint64_t count);
std::uint64_t bytesFromMB(std::uint64_t count);
std::uint64_t bytesFromGB(std::uint64_t count);
std::uint64_t bytesFromTB(std::uint64_t count);

/// Gigabytes of 1000^3 bytes with at least three significant digits.
std::string gigabytesText(std::int64_t bytes);

/// What the command writes to standard output; nothing for an empty command or one that can't be started. The command
/// is trusted.
std::optional<std::string> outputWhenRunAsShellCommand(const std::string& command);

} // namespace app
