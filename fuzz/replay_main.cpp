// Runs a fuzz target over files, or over all files of folders, one after the other: the regression test of its corpus.
#include "Fuzzing.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

std::string present; // the file that is being replayed

void nameFile(const char* how) {
    for (const char* part : {"fuzz replay: ", how, " in ", present.c_str(), "\n"})
        if (write(STDERR_FILENO, part, std::strlen(part)) < 0) return;
}

// A sanitizer's own end names the stack, but not the input.
extern "C" void __sanitizer_set_death_callback(void (*)()) __attribute__((weak));

} // namespace

int main(int count, char** arguments) {
    if (__sanitizer_set_death_callback) __sanitizer_set_death_callback([] { nameFile("a fault was found"); });
    for (const int number : {SIGABRT, SIGALRM})
        std::signal(number, [](int signalled) {
            nameFile(signalled == SIGALRM ? "no end within a minute" : "the target ended the process");
            std::signal(SIGABRT, SIG_DFL);
            std::abort();
        });
    std::vector<fs::path> files;
    for (int i = 1; i < count; ++i) {
        if (!fs::is_directory(arguments[i])) {
            files.emplace_back(arguments[i]);
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(arguments[i]))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "there is nothing to replay\n");
        return 1;
    }
    for (const fs::path& file : files) {
        present = file.string();
        std::ifstream stream(file, std::ios::binary);
        const std::string content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        if (!stream) {
            std::fprintf(stderr, "cannot read %s\n", present.c_str());
            return 1;
        }
        alarm(60);
        // Of exactly its size and without an end mark, so that the sanitizers see each step beyond it.
        const std::vector<std::uint8_t> bytes(content.begin(), content.end());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    alarm(0);
    present = "(the end)";
    std::printf("%zu files replayed\n", files.size());
    return 0;
}
