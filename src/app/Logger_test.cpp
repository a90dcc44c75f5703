// The log against many writers, files that can't be written, and ends of every kind.
#include "app/Logger.h"
#include "internal/LogPipe.h"

#include "app/SingleInstance.h"
#include "base/Log.h"
#include "base/Places.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using app::LogPipe;
using platform::run::Queue;
using testing::HasSubstr;

constexpr auto ample = 60s;

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        ASSERT_GT(count, 0);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

class LogPipes : public testing::Test {
protected:
    std::unique_ptr<LogPipe> start(const std::string& name, LogPipe::Limits limits = {}) {
        return LogPipe::start(folder / name, limits, Queue::serial("Logger-Reading"),
                              [this](const base::Error&, bool) { ++failures; });
    }
    support::TemporaryDirectory folder;
    std::atomic<int> failures = 0;
};

TEST_F(LogPipes, severalWritersOfOneFileLoseNoLineAndMixNoneWhenItIsTurnedOver) {
    // All that is written fits in two files, so the file is turned over once, in the sight of four writers.
    constexpr int writers = 4;
    constexpr std::size_t limit = 400'000;
    std::map<std::string, int> expected;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer) {
        std::vector<std::string> lines;
        for (std::size_t size = 0, length = 20; size < 150'000; size += length, length = length * 7 % 9001 + 20)
            lines.push_back(std::to_string(writer) + " " + std::to_string(lines.size()) + " " +
                            std::string(length, static_cast<char>('a' + writer)));
        for (const std::string& line : lines)
            ++expected[line];
        threads.emplace_back([this, lines] {
            const auto pipe = start("Deep/Name.log", {.file = limit});
            for (const std::string& line : lines)
                writeAll(pipe->input(), line + "\n");
            EXPECT_TRUE(pipe->drain(ample));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::string old = support::readFile(folder / "Deep/Name.old.log");
    std::map<std::string, int> found;
    for (const std::string& line : linesOf(old + support::readFile(folder / "Deep/Name.log")))
        ++found[line];
    EXPECT_TRUE(found == expected) << found.size() << " of " << expected.size() << " lines; old " << old.size()
                                   << " bytes";
    EXPECT_GE(old.size(), limit);
}

TEST_F(LogPipes, theFileIsTurnedOverAtTheLimitAndMadeAnewWhenItIsGone) {
    const auto pipe = start("Name.log", {.file = 100});
    const auto add = [&](const std::string& text) {
        writeAll(pipe->input(), text);
        EXPECT_TRUE(pipe->drain(ample));
        return support::readFile(folder / "Name.log");
    };
    const auto line = [](char letter, std::size_t size) { return std::string(size - 1, letter) + "\n"; };
    EXPECT_EQ(add(line('a', 99)), line('a', 99));
    EXPECT_EQ(add("\n"), "") << "exactly the limit";
    EXPECT_EQ(add(line('b', 250)), "");
    EXPECT_EQ(support::readFile(folder / "Name.old.log"), line('b', 250)) << "the older one is replaced";

    fs::remove(folder / "Name.log");
    EXPECT_EQ(add("removed\n"), "removed\n");
    fs::rename(folder / "Name.log", folder / "elsewhere");
    EXPECT_EQ(add("renamed\n"), "renamed\n");

    // What can't be put aside is begun anew where it stands, so the log keeps its limit.
    fs::remove(folder / "Name.old.log");
    fs::create_directories(folder / "Name.old.log/full");
    EXPECT_EQ(add(line('c', 100)), "");
    EXPECT_EQ(add("after\n"), "after\n");
    EXPECT_EQ(failures, 0);
}

TEST_F(LogPipes, aFileThatCannotBeWrittenIsToldOnceAndGoesOnWhenItCan) {
    const std::map<std::string, std::function<void(const std::string&)>> obstacles = {
        {"a full disk", [](const std::string& path) { fs::create_symlink("/dev/full", path); }},
        {"a folder", [](const std::string& path) { fs::create_directory(path); }},
    };
    for (const auto& [what, obstruct] : obstacles) {
        SCOPED_TRACE(what);
        failures = 0;
        obstruct(folder / "Name.log");
        const auto pipe = start("Name.log");
        writeAll(pipe->input(), "first\n");
        EXPECT_FALSE(pipe->drain(ample)) << "and does not wait for the limit";
        writeAll(pipe->input(), "second\n");
        EXPECT_FALSE(pipe->drain(ample));
        EXPECT_EQ(failures, 1);
        fs::remove(folder / "Name.log");
        EXPECT_TRUE(pipe->drain(ample) || pipe->drain(ample));
        EXPECT_EQ(support::readFile(folder / "Name.log"), "first\nsecond\n");
        fs::remove(folder / "Name.log");
    }
}

TEST_F(LogPipes, aReaderThatNeverComesBlocksNobodyAndWhatItCostIsCounted) {
    ASSERT_EQ(mkfifo((folder / "Name.log").c_str(), 0600), 0);
    constexpr std::size_t inMemory = 300'000;
    constexpr int count = 40'000;
    auto pipe = start("Name.log", {.inMemory = inMemory});
    for (int number = 0; number < count; ++number)
        writeAll(pipe->input(), "line " + std::to_string(number) + " of a good many that nobody reads for now\n");
    EXPECT_FALSE(pipe->drain(50ms));

    const int reader = open((folder / "Name.log").c_str(), O_RDONLY);
    pipe.reset();
    std::string text;
    std::array<char, 65536> bytes{};
    for (ssize_t size = 0; (size = read(reader, bytes.data(), bytes.size())) > 0;)
        text.append(bytes.data(), static_cast<std::size_t>(size));
    close(reader);
    // What stood in the pipe itself may come after a gap; each gap tells its size.
    int next = 0;
    int gaps = 0;
    for (const std::string& line : linesOf(text)) {
        int dropped = 0;
        const std::size_t told = line.find("] ");
        if (told != std::string::npos && std::sscanf(line.c_str() + told, "] %d lines (", &dropped) == 1)
            next += dropped, ++gaps;
        else
            ASSERT_EQ(line.find("line " + std::to_string(next++) + " of"), 0u) << line;
    }
    EXPECT_EQ(next, count);
    EXPECT_GE(gaps, 1);
}

/// Standard error is the log's for the rest of the process, so all that needs that happens in a process of its own:
/// the death tests start this program anew. The folder is that of the first one.
using LoggerDeathTest = testing::Test;

TEST(LoggerDeathTest, whateverEndsTheProcessAllLinesReachTheFile) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const support::TemporaryDirectory own;
    setenv("VELM_LOGGER_TEST", own.path().c_str(), 0);
    const std::string folder = std::getenv("VELM_LOGGER_TEST");

    struct End {
        const char* name;
        std::function<void()> end;
        std::function<bool(int)> status;
        const char* onStandardError;
    };
    const std::vector<End> ends = {
        {"exit", [] { std::exit(0); }, testing::ExitedWithCode(0), "setLogFile:. file://[^\n]*\n$"},
        {"drained", [] { Logger::drain(), _exit(3); }, testing::ExitedWithCode(3), "setLogFile:. file://[^\n]*\n$"},
        {"terminated", [] { raise(SIGTERM); }, testing::KilledBySignal(SIGTERM), "setLogFile:. file://[^\n]*\n$"},
        {"aborted", [] { std::abort(); }, testing::KilledBySignal(SIGABRT), "ends by a fault(.|\n)*the last line"},
        {"thrown", [] { std::thread([] { throw 5; }).join(); }, testing::KilledBySignal(SIGABRT),
         "terminate called after throwing"},
    };
    constexpr int threads = 4;
    constexpr int each = 200;
    const std::string longPart(6000, 'x'); // more than a pipe takes at once
    for (const End& end : ends) {
        SCOPED_TRACE(end.name);
        EXPECT_EXIT(
            {
                Logger::setLogFile(base::URL::fileURLWithPath(folder + "/" + end.name + ".log"));
                std::vector<std::thread> writers;
                for (int writer = 0; writer < threads; ++writer)
                    writers.emplace_back([&] {
                        for (int number = 0; number < each; ++number)
                            base::log("line %d %@", number, longPart);
                    });
                for (std::thread& writer : writers)
                    writer.join();
                Logger::setError("the last line");
                end.end();
            },
            end.status, end.onStandardError);
        int whole = 0;
        const std::vector<std::string> lines = linesOf(support::readFile(folder + "/" + end.name + ".log"));
        for (const std::string& line : lines)
            whole += line.find("] line ") != std::string::npos && line.ends_with(longPart);
        EXPECT_EQ(whole, threads * each);
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
            return line.ends_with("[Q com.kestrune.main-thread] the last line");
        }));
    }
}

TEST(LoggerDeathTest, levelsChooseTheLines) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            const support::TemporaryDirectory home;
            base::setPlaces(base::Places::below(home.path().string()));
            Logger::setLogFile(Logger::defaultLogFileVELM());
            for (const long level : {0, 1, 2}) {
                Logger::setLogLevel(level);
                Queue::serial("a queue")->sync([&] {
                    Logger::setError("error " + std::to_string(level));
                    Logger::setDebug("debug " + std::to_string(level));
                    Logger::setVerbose("verbose " + std::to_string(level));
                });
            }
            Logger::drain();
            std::string seen;
            for (const std::string& line : linesOf(support::readFile(Logger::logFile()->path())))
                if (const std::size_t found = line.find("[Q a queue] "); found == 23) seen += line.substr(35) + ",";
            dprintf(Logger::firstStandardError(), "%s\n%s",
                    Logger::logFile()->path().substr(home.path().string().size()).c_str(), seen.c_str());
            Logger::setLogFile(base::URL::fileURLWithPath("/dev/null"));
            _exit(0);
        },
        testing::ExitedWithCode(0), "\n/Logs/.*\\.log\nerror 0,error 1,debug 1,error 2,debug 2,verbose 2,$");
}

} // namespace
