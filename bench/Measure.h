// Processor time of this process and of others, and what the benchmark table is made of.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// User and system time that all threads of this process have used, in seconds.
double processorTime();

/// The most memory that this process has held since its program began. (What the system tells of a child that has ended
/// counts its life before, as a copy of its parent.)
long peakKilobytes();

struct ProcessRun {
    bool succeeded = false;
    double seconds = 0; ///< Processor time, with that of the processes that it started and waited for.
    std::string output; ///< Standard output.
};
/// Runs a program with its arguments and waits for it; its standard error is ours.
ProcessRun run(const std::vector<std::string>& arguments);

double median(std::vector<double> values);

} // namespace bench
