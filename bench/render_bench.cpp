// velm_bench_render: whole renders of the tasks against the floor and against other programs, all measured by turns in
// one run, so that what else the machine does falls on all alike. Figures are processor time, medians over the rounds.
#include "Measure.h"
#include "Tasks.h"

#include "base/Log.h"
#include "base/Places.h"
#include "imaging/KLARON_Image.h"
#include "platform/draw/Image.h"
#include "platform/draw/PictureCache.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

struct Settings {
    std::string photographs; // folder; they are made there when they are missing
    std::string peers;       // folder of the peers' scripts; none without it
    std::string once;        // the task to render once in this process, for its peak of memory
    int rounds = 7;
};

/// A render as an output does it: the document read, drawn and written as a product of quality 0.9.
bool renderTask(const bench::Task& task, const std::string& folder, bool isPreview = false) {
    platform::draw::clearPictureCache();
    const auto document = VELM_Template::templateWithPath(folder + "/" + task.name + ".xml", std::nullopt);
    if (!document) return false;
    document->setIsRenderingPreview(isPreview);
    const auto image = isPreview ? document->createProductImage() : document->imageUncached();
    if (!image || document->renderError()) return false;
    base::Dictionary options;
    options.emplace(klaronImageKey_lossyCompressionQuality, 0.9);
    std::optional<base::Error> error;
    if (KLARON_Image::writeImage(image, folder + "/" + task.name + "-velm", options, &error)) return true;
    std::fprintf(stderr, "%s\n", error ? error->localizedDescription.c_str() : "not written");
    return false;
}

/// The peers' scripts print how many processes they started; the bare start of each is taken off, as a program that
/// uses the library in one process would not pay it.
double peerSeconds(const Settings& settings, const bench::Task& task, const std::string& folder,
                   const std::string& script, const std::string& mode, double startSeconds) {
    const bench::ProcessRun run =
        bench::run({"sh", settings.peers + "/" + script, task.name, mode, settings.photographs,
                    folder + "/" + task.name + "-" + script + mode + ".jpg", folder});
    if (!run.succeeded) {
        std::fprintf(stderr, "%s %s %s failed\n", script.c_str(), task.name.c_str(), mode.c_str());
        return 0;
    }
    return std::max(0.0, run.seconds - std::atoi(run.output.c_str()) * startSeconds);
}

double startOf(const std::vector<std::string>& command) {
    std::vector<double> values;
    for (int i = 0; i < 5; ++i)
        values.push_back(bench::run(command).seconds);
    return bench::median(values);
}

void printTable(const Settings& settings, const std::array<bench::Task, 3>& tasks, const std::string& folder) {
    const double vipsStart = settings.peers.empty() ? 0 : startOf({"vips", "--version"});
    const double magickStart = settings.peers.empty() ? 0 : startOf({"convert", "-version"});
    std::printf(
        "Processor time of a whole render (read, decode, draw, encode), median of %d rounds by turns.\n"
        "The floor decodes at the smallest scale that is large enough and encodes; velm is a warm process with\n"
        "an empty picture cache, at final quality unless it says preview; vips and ImageMagick are their command "
        "lines, without the\n"
        "bare start of their processes.\n\n",
        settings.rounds);
    std::printf("| task | floor ms | velm ms | velm / floor | velm preview / floor | vips / floor | vips reduced on "
                "load / floor | "
                "ImageMagick / floor | velm / vips | velm peak MB |\n|---|---|---|---|---|---|---|---|---|---|\n");
    for (const bench::Task& task : tasks) {
        std::vector<double> floors, ours, previews, vips, vipsReduced, magick;
        for (int round = -1; round < settings.rounds; ++round) {
            double start = bench::processorTime();
            if (!bench::renderFloor(task.floor, folder + "/" + task.name + "-floor.jpg")) std::exit(1);
            const double floorSeconds = bench::processorTime() - start;
            start = bench::processorTime();
            if (!renderTask(task, folder)) std::exit(1);
            const double ourSeconds = bench::processorTime() - start;
            start = bench::processorTime();
            if (!renderTask(task, folder, true)) std::exit(1);
            const double previewSeconds = bench::processorTime() - start;
            if (round < 0) continue; // to warm up
            floors.push_back(floorSeconds);
            ours.push_back(ourSeconds);
            previews.push_back(previewSeconds);
            if (settings.peers.empty()) continue;
            vips.push_back(peerSeconds(settings, task, folder, "vips.sh", "full", vipsStart));
            vipsReduced.push_back(peerSeconds(settings, task, folder, "vips.sh", "reduced", vipsStart));
            magick.push_back(peerSeconds(settings, task, folder, "imagemagick.sh", "full", magickStart));
        }
        const bench::ProcessRun alone =
            bench::run({"/proc/self/exe", "--photographs", settings.photographs, "--once", task.name});
        const double floor = bench::median(floors);
        const double velm = bench::median(ours);
        std::printf("| %s | %.1f | %.1f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %ld |\n", task.name.c_str(),
                    floor * 1e3, velm * 1e3, velm / floor, bench::median(previews) / floor, bench::median(vips) / floor,
                    bench::median(vipsReduced) / floor, bench::median(magick) / floor,
                    vips.empty() ? 0 : velm / bench::median(vips), std::atol(alone.output.c_str()) / 1024);
        std::fflush(stdout);
    }
    std::printf("\n");
    for (const bench::Task& task : tasks)
        std::printf("%s: %s\n", task.name.c_str(), task.description.c_str());
}

Settings settingsFrom(int count, char** arguments) {
    Settings settings;
    for (int i = 1; i + 1 < count; i += 2) {
        const std::string name = arguments[i];
        const std::string value = arguments[i + 1];
        if (name == "--photographs")
            settings.photographs = value;
        else if (name == "--peers")
            settings.peers = value;
        else if (name == "--once")
            settings.once = value;
        else if (name == "--rounds")
            settings.rounds = std::max(1, std::atoi(value.c_str()));
    }
    return settings;
}

} // namespace

int main(int count, char** arguments) {
    const Settings settings = settingsFrom(count, arguments);
    if (settings.photographs.empty()) {
        std::fprintf(stderr, "usage: velm_bench_render --photographs FOLDER [--peers FOLDER] [--rounds N]\n");
        return 2;
    }
    char pattern[] = "/tmp/velm-bench-XXXXXX";
    if (!mkdtemp(pattern)) return 1;
    const std::string folder = pattern;
    base::setPlaces(base::Places::below(folder + "/home"));
    const bench::Photographs photographs = bench::photographsIn(std::filesystem::absolute(settings.photographs));
    if (photographs[0].empty()) return 1;
    const auto tasks = bench::tasksWith(photographs);
    for (const bench::Task& task : tasks)
        std::ofstream(folder + "/" + task.name + ".xml") << task.document;

    int status = 0;
    if (settings.once.empty()) {
        printTable(settings, tasks, folder);
        if (const char* keep = std::getenv("VELM_BENCH_KEEP")) {
            std::filesystem::create_directories(keep);
            for (const auto& entry : std::filesystem::directory_iterator(folder))
                if (entry.path().extension() == ".jpg" || entry.path().extension() == ".jpeg")
                    std::filesystem::copy_file(entry.path(), keep / entry.path().filename(),
                                               std::filesystem::copy_options::overwrite_existing);
        }
    } else {
        for (const bench::Task& task : tasks)
            if (task.name == settings.once && !renderTask(task, folder)) status = 1;
        std::printf("%ld\n", bench::peakKilobytes());
    }
    std::filesystem::remove_all(folder);
    return status;
}
