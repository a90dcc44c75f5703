// Writes the sample photographs into a folder: velm_generate_photographs FOLDER [NAME...]. Without names all of them.
// Files that are there already are left alone: the same program always makes the same files.
#include "SamplePhotographs.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

namespace {

namespace fs = std::filesystem;

bool writeAside(const fs::path& target, const std::vector<std::uint8_t>& bytes) {
    const fs::path aside = target.string() + ".part";
    {
        std::ofstream stream(aside, std::ios::binary);
        stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!stream.flush()) return false;
    }
    std::error_code error;
    fs::rename(aside, target, error);
    return !error;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::fprintf(stderr, "usage: %s FOLDER [NAME...]\n", arguments[0]);
        return 2;
    }
    const fs::path folder = arguments[1];
    std::error_code failed;
    fs::create_directories(folder, failed);
    std::vector<samples::Photograph> wanted;
    for (const samples::Photograph& photograph : samples::catalogue()) {
        const bool named = count == 2 || std::any_of(arguments + 2, arguments + count,
                                                     [&](const char* name) { return photograph.name == name; });
        if (named && !fs::exists(folder / photograph.name)) wanted.push_back(photograph);
    }

    std::atomic<std::size_t> next = 0;
    std::atomic<bool> good = true;
    std::mutex reporting;
    const auto work = [&] {
        for (std::size_t i = next++; i < wanted.size(); i = next++) {
            std::string error;
            const std::vector<std::uint8_t> bytes = samples::jpegOf(wanted[i], error);
            const fs::path target = folder / wanted[i].name;
            const bool written = !bytes.empty() && writeAside(target, bytes);
            const std::lock_guard lock(reporting);
            if (written) {
                std::printf("%s\n", target.c_str());
            } else {
                std::fprintf(stderr, "cannot write %s%s%s\n", target.c_str(), error.empty() ? "" : ": ", error.c_str());
                good = false;
            }
        }
    };
    std::vector<std::thread> workers;
    for (unsigned i = 1; i < std::min(2u, std::thread::hardware_concurrency()); ++i)
        workers.emplace_back(work);
    work();
    for (std::thread& worker : workers)
        worker.join();
    return good ? 0 : 1;
}
