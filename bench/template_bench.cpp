// velm_bench_template PHOTOGRAPHS VELMCTL GOLDEN [ROUNDS]: what templates cost, from the file to the picture: reading,
// filling and copying against the bare XML library, each kind of layer against the pixels that it touches, pages on one
// thread and on two, and the golden cases. Processor time, medians by turns in one run.
#include "template_sections.h"

#include "base/Places.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

int main(int count, char** arguments) {
    if (count != 4 && count != 5) {
        std::fprintf(stderr, "usage: velm_bench_template PHOTOGRAPHS VELMCTL GOLDEN [ROUNDS]\n");
        return 2;
    }
    const int rounds = count == 5 ? std::max(1, std::atoi(arguments[4])) : 7;
    char pattern[] = "/tmp/velm-bench-XXXXXX";
    if (!mkdtemp(pattern)) return 1;
    const std::string folder = pattern;
    base::setPlaces(base::Places::below(folder + "/home"));
    const std::string pictures = std::filesystem::absolute(arguments[1]);
    const bench::Photographs photographs = bench::photographsIn(pictures);
    const std::string photograph = bench::photographOf(4242, 2828, pictures);
    if (photographs[0].empty() || photograph.empty()) return 1;

    std::printf("Processor time, medians of up to %d rounds by turns.\n\n", rounds);
    bench::printDocuments(folder, rounds);
    bench::printLayers(photograph, folder, rounds);
    bench::printCanvases(folder, rounds);
    bench::printViews(photographs[0], folder, rounds);
    bench::printThreads(photographs, folder, rounds);
    bench::printGoldenSet(std::filesystem::absolute(arguments[2]), std::filesystem::absolute(arguments[3]), folder,
                          rounds);
    std::filesystem::remove_all(folder);
    return 0;
}
