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
/// The median of what each of the first went beyond the one of the second that was taken in the same turn.
double medianDifference(const std::vector<double>& values, const std::vector<double>& others);

/// A piece of work to measure; done `batch` times in a turn when once is too short for the clock.
struct Work {
    std::function<void()> run;
    int batch = 1;
};
/// Processor time of each work done once, in seconds: a list for each, an entry for each turn. They take turns, so that
/// what else the machine does falls on all alike; no turn begins after `limit` seconds of work, save the first.
std::vector<std::vector<double>> secondsByTurns(const std::vector<Work>& works, int turns, double limit);

} // namespace bench
