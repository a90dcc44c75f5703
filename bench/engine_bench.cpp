// velm_bench_engine VELMCTL [COUNT]: the engine around the pixels. By the clock on the wall: orders a minute, the
// finding of a package among ten thousand, and the time from the start until COUNT tickets, ten thousand unless told,
// are listed. By processor time and memory: what each of them costs, and what one more ticket and the end of one order
// cost while all the others are pending.
#include "Measure.h"

#include "SamplePhotographs.h"
#include "app/AppDelegate.h"
#include "base/Log.h"
#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "jobs/VELM_JobFolders.h"
#include "jobs/VELM_Package.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/MainQueue.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int orderCount = 50;
constexpr int fileCount = 10'000;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

constexpr std::string_view prologue = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";

std::string packageText(const std::string& name, const fs::path& output) {
    return std::string(prologue) + "<data type=\"VELM_Package\" version=\"1.0\" name=\"" + name +
           "\">\n<template name=\"print\"><filepath>Print.xml</filepath></template>\n"
           "<output name=\"print\"><print type=\"node\"/><destination type=\"filepath\"><filepath>" +
           output.string() + "</filepath></destination></output>\n</data>\n";
}

/// A folder tree with a template of 6 x 4 inches at 150 dpi and a package "SmallLS" for it. Answers the folder that is
/// watched for job bundles.
fs::path layOut(const fs::path& home, const std::string& velmctl) {
    constexpr std::string_view mark = "watched (velm_job)";
    const std::string places = bench::run({velmctl, "--home", home, "init"}).output;
    const std::size_t line = places.find(mark);
    const std::size_t path = line == std::string::npos ? line : places.find('/', line);
    if (path == std::string::npos) {
        std::fprintf(stderr, "velmctl init named no watched folder\n");
        std::exit(1);
    }
    write(home / "VELM/Templates/Print.xml",
          std::string(prologue) +
              "<data type=\"VELM_Template\" version=\"1.0\"><layout name=\"Print\" size=\"{900, 600}\">"
              "<layer type=\"image\" zindex=\"1\" frame=\"{{0, 0}, {900, 600}}\"><key>image1</key>"
              "<gravity>resizeAspectFill</gravity></layer></layout></data>\n");
    write(home / "VELM/Packages/SmallLS.xml", packageText("SmallLS", home / "Pictures"));
    return places.substr(path, places.find('\n', path) - path);
}

void makeOrders(const fs::path& folder, const std::vector<std::uint8_t>& photograph) {
    for (int i = 0; i < orderCount; ++i) {
        const fs::path bundle = folder / ("order" + std::to_string(i) + ".velm_job");
        write(bundle / "Images/photo.jpg", std::string(photograph.begin(), photograph.end()));
        write(bundle / "job.xml", std::string(prologue) +
                                      "<data type=\"VELM_Job\" version=\"1.0\"><package name=\"Small\">"
                                      "<image1>photo.jpg</image1></package></data>\n");
    }
}

/// Seconds until `velmctl process` has written the products of all orders; none when one failed.
double processAll(const fs::path& home, const std::string& velmctl, const std::vector<std::uint8_t>& photograph) {
    makeOrders(home / "Orders", photograph);
    std::vector<std::string> command{velmctl, "--home", home, "process"};
    for (int i = 0; i < orderCount; ++i)
        command.push_back(home / "Orders" / ("order" + std::to_string(i) + ".velm_job"));
    const auto start = Clock::now();
    const bench::ProcessRun run = bench::run(command);
    return run.succeeded ? secondsSince(start) : 0;
}

/// Seconds from the start of `velmctl watch` over a folder of orders to the last line that reports one.
double watchAll(const fs::path& home, const std::string& velmctl, const std::vector<std::uint8_t>& photograph) {
    makeOrders(layOut(home, velmctl), photograph);
    int channel[2];
    if (pipe(channel) != 0) return 0;
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        dup2(channel[1], STDOUT_FILENO);
        close(channel[0]);
        close(channel[1]);
        alarm(300); // if orders don't come to an end
        execl(velmctl.c_str(), velmctl.c_str(), "--home", home.c_str(), "watch", nullptr);
        _exit(127);
    }
    close(channel[1]);
    std::FILE* lines = fdopen(channel[0], "r");
    char line[4096];
    int completed = 0;
    bool failed = false;
    while (completed < orderCount && !failed && std::fgets(line, sizeof line, lines)) {
        completed += std::string_view(line).starts_with("completed ");
        failed = std::string_view(line).starts_with("failed ");
    }
    const double seconds = secondsSince(start);
    kill(child, SIGTERM);
    std::fclose(lines);
    waitpid(child, nullptr, 0);
    return completed == orderCount ? seconds : 0;
}

/// Seconds to find the one package that is asked for; every file has to be looked at.
double findPackage(const fs::path& packages) {
    for (int i = 0; i < fileCount; ++i)
        write(packages / (std::to_string(i) + ".xml"), packageText("Product" + std::to_string(i) + "LS", "/nowhere"));
    static_cast<void>(platform::data::UserDefaults::standard().setObject(packages.string(), key_velmFolderPackages));
    const base::Dictionary reference{{"name", "Product" + std::to_string(fileCount / 2)}};
    const auto start = Clock::now();
    const VELM_Package::Ref found = VELM_Package::packageWithDictionary(reference);
    return found ? secondsSince(start) : 0;
}

double residentBytes() {
    std::ifstream file("/proc/self/statm");
    double all = 0;
    double resident = 0;
    file >> all >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void writeTicket(const fs::path& folder, const std::string& name) {
    write(folder / (name + ".velm_job") / "job.xml",
          std::string(prologue) + "<data type=\"VELM_Job\" version=\"1.0\"><package name=\"Small\"/></data>\n");
}

/// In a process of its own: starts the engine over a home of `count` tickets and ends when it has measured; prints the
/// rows of the table.
int listTickets(const fs::path& home, const fs::path& pending, std::size_t count) {
    base::setPlaces(base::Places::below(home));
    constexpr int rounds = 10;
    AppDelegate application;
    application.applicationDidFinishLaunching();
    platform::run::RunLoop loop;
    const auto until = [&loop](const auto& condition) {
        if (!loop.runUntil(condition, std::chrono::minutes(10))) _exit(1);
    };
    const auto row = [](const std::string& what, double value, const char* unit) {
        std::printf("| %s | %.3g %s |\n", what.c_str(), value, unit);
        std::fflush(stdout);
    };
    const std::string among = " among " + std::to_string(count);
    auto& defaults = platform::data::UserDefaults::standard();
    static_cast<void>(defaults.setObject(false, key_velmProcessorIsRunning));

    const double memory = residentBytes();
    double processor = bench::processorTime();
    const auto start = Clock::now();
    std::atomic<std::size_t> pendingCount = 0;
    const auto changes = VELM_JobFolders::classObject().observable().observe(
        VELM_JobFolders::key_jobsPending, [&] { pendingCount = VELM_JobFolders::jobsPending().size(); });
    const auto listed = [&](std::size_t number) { return pendingCount == number; };
    until([&] { return listed(count); });
    row(std::to_string(count) + " tickets are listed after the start in", secondsSince(start), "s");
    row("processor time for each", (bench::processorTime() - processor) / static_cast<double>(count) * 1e6, "us");
    row("memory for each", (residentBytes() - memory) / static_cast<double>(count), "bytes");

    processor = bench::processorTime();
    for (int i = 0; i < rounds; ++i) {
        writeTicket(home / "Aside", "more" + std::to_string(i));
        const std::string name = "more" + std::to_string(i) + ".velm_job";
        fs::rename(home / "Aside" / name, pending / name);
        until([&] { return listed(count + static_cast<std::size_t>(i) + 1); });
    }
    row("one more ticket" + among + ", processor time", (bench::processorTime() - processor) / rounds * 1e3, "ms");

    std::atomic<int> finished = 0;
    const auto observation = VELM_JobFolders::observeFinishedJobs([&](const VELM_JobFolders::FinishedJob&) {
        if (++finished == rounds) VELM_JobFolders::stopStartingJobs();
    });
    processor = bench::processorTime();
    static_cast<void>(defaults.setObject(true, key_velmProcessorIsRunning));
    until([&] { return finished == rounds && !VELM_JobFolders::isProcessing() && listed(count); });
    row("one order that ends" + among + ", processor time", (bench::processorTime() - processor) / rounds * 1e3, "ms");
    _exit(0);
}

/// The rows of the table; empty when something failed.
std::string measureListing(const fs::path& home, const std::string& velmctl, std::size_t count) {
    const fs::path pending = layOut(home, velmctl);
    for (std::size_t i = 0; i < count; ++i)
        writeTicket(pending, "order" + std::to_string(i));
    const bench::ProcessRun run =
        bench::run({"/proc/self/exe", "--list", home.string(), pending.string(), std::to_string(count)});
    return run.succeeded ? run.output : "| the listing of many tickets | failed |\n";
}

} // namespace

int main(int count, char** arguments) {
    base::setLogSink([](std::string_view) {});
    if (count == 5 && std::string_view(arguments[1]) == "--list")
        return listTickets(arguments[2], arguments[3], std::stoul(arguments[4]));
    if (count != 2 && count != 3) {
        std::fprintf(stderr, "usage: velm_bench_engine VELMCTL [COUNT]\n");
        return 2;
    }
    const std::size_t ticketCount = count == 3 ? std::strtoul(arguments[2], nullptr, 10) : fileCount;
    const std::string velmctl = fs::absolute(arguments[1]);
    char pattern[] = "/tmp/velm-bench-XXXXXX";
    if (!mkdtemp(pattern)) return 1;
    const fs::path folder = pattern;

    samples::Photograph small;
    small.width = 1500;
    small.height = 1000;
    small.name = "small";
    std::string error;
    const std::vector<std::uint8_t> photograph = samples::jpegOf(small, error);
    layOut(folder / "process", velmctl);
    const auto report = [](const char* what, double value, const char* unit) {
        if (value > 0)
            std::printf("| %s | %.3g %s |\n", what, value, unit);
        else
            std::printf("| %s | failed |\n", what);
        std::fflush(stdout);
    };
    std::printf("| the engine | |\n|---|---|\n");
    const double processed = processAll(folder / "process", velmctl, photograph);
    report("50 small orders, velmctl process", processed > 0 ? 60 * orderCount / processed : 0, "orders a minute");
    const double watched = watchAll(folder / "watch", velmctl, photograph);
    report("50 small orders in a watched folder", watched > 0 ? 60 * orderCount / watched : 0, "orders a minute");
    base::setPlaces(base::Places::below(folder / "find"));
    report("a package among 10000 is found in", findPackage(folder / "find/packages"), "s");
    std::printf("%s", measureListing(folder / "list", velmctl, ticketCount).c_str());
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return 0;
}
