#include "Measure.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

double secondsOf(const rusage& usage) {
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

} // namespace

double processorTime() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return secondsOf(usage);
}

long peakKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:")) return std::atol(line.c_str() + 6);
    return 0;
}

ProcessRun run(const std::vector<std::string>& arguments) {
    ProcessRun result;
    int channel[2];
    if (pipe(channel) != 0) return result;
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(channel[1], STDOUT_FILENO);
        close(channel[0]);
        close(channel[1]);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(channel[1]);
    char buffer[4096];
    for (ssize_t got; child > 0 && (got = read(channel[0], buffer, sizeof buffer)) > 0;)
        result.output.append(buffer, static_cast<std::size_t>(got));
    close(channel[0]);
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) return result;
    result.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    result.seconds = secondsOf(usage);
    return result;
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
}

double medianDifference(const std::vector<double>& values, const std::vector<double>& others) {
    std::vector<double> differences;
    for (std::size_t turn = 0; turn < std::min(values.size(), others.size()); ++turn)
        differences.push_back(values[turn] - others[turn]);
    return median(std::move(differences));
}

std::vector<std::vector<double>> secondsByTurns(const std::vector<Work>& works, int turns, double limit) {
    std::vector<std::vector<double>> seconds(works.size());
    double spent = 0;
    for (int turn = 0; turn < turns && (turn == 0 || spent < limit); ++turn) {
        for (std::size_t i = 0; i < works.size(); ++i) {
            const double start = processorTime();
            for (int repeated = 0; repeated < works[i].batch; ++repeated)
                works[i].run();
            const double all = processorTime() - start;
            spent += all;
            seconds[i].push_back(all / works[i].batch);
        }
    }
    return seconds;
}

} // namespace bench
