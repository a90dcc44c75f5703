// Renders as a whole: documents side by side on threads, the views of one document, and the golden cases.
#include "Measure.h"
#include "TemplateFiles.h"
#include "template_sections.h"

#include "platform/draw/PictureCache.h"
#include "platform/run/Queue.h"
#include "template/TemplateLayout.h"
#include "template/VELM_Template.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

namespace bench {

namespace {

/// A page with the photograph in a hole, the photograph once more, turned and with a border, and two texts.
VELM_Template::Ref pageWith(const std::string& photograph, const std::string& folder) {
    const std::string picture = "<filepath>" + photograph + "</filepath><gravity>resizeAspectFill</gravity>";
    const std::string font = "<font size=\"44\">DejaVu Sans</font><color>#2E4A62</color>";
    const std::string path = folder + "/page.xml";
    std::ofstream(path) << templateText(
        1844, 1240,
        layerText("image", {0, 0, 1844, 1240}, picture) +
            layerText("graphic", {1100, 650, 600, 450},
                      picture + "<rotation>0.1</rotation><border color=\"#FFFFFF\" width=\"20\">yes</border>") +
            layerText("textbox", {80, 80, 1684, 70}, "<string>A day at the sea, summer 2026</string>" + font) +
            layerText("stamp", {80, 1130, 900, 70}, "<key>date</key><string>longDate</string>" + font));
    auto document = VELM_Template::templateWithPath(path, std::nullopt);
    if (!document) std::exit(1);
    return document;
}

double wallSecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The documents of one thread, each once.
void render(const std::vector<VELM_Template::Ref>& documents) {
    for (const auto& document : documents)
        if (!document->imageUncached() || document->renderError()) std::exit(1);
}

struct GoldenCase {
    std::string name;
    std::vector<std::string> command;
};

/// The case in a folder of its own, laid out as its test does it.
GoldenCase layOut(const fs::path& original, const fs::path& photographs, const fs::path& folder,
                  const std::string& velmctl) {
    fs::create_directories(folder.parent_path());
    fs::copy(original, folder, fs::copy_options::recursive);
    fs::create_directories(folder / "out");
    fs::create_directories(folder / "order.velm_job");
    fs::copy(photographs, folder / "order.velm_job/Images", fs::copy_options::recursive);
    GoldenCase result{original.filename(), {"env", "-C", folder, velmctl, "--home", folder / "home"}};
    std::ifstream arguments(folder / "arguments.txt");
    if (!arguments) result.command.insert(result.command.end(), {"process", "order.velm_job"});
    for (std::string line; std::getline(arguments, line);)
        result.command.push_back(line);
    return result;
}

} // namespace

void printViews(const std::string& photograph, const std::string& folder, int rounds) {
    const auto document = pageWith(photograph, folder);
    const auto draw = [&](bool isPreview) {
        platform::draw::clearPictureCache();
        document->setIsRenderingPreview(isPreview);
        if (!document->createProductImage() || document->renderError()) std::exit(1);
    };
    const auto drawThumbnail = [&] {
        platform::draw::clearPictureCache();
        platform::draw::ImageRef thumbnail;
        document->getThumbnailImage([&](const platform::draw::ImageRef& image) { thumbnail = image; });
        document->renderingQueue()->sync([] {}); // the reply runs on that queue
        if (!thumbnail) std::exit(1);
    };
    struct View {
        const char* name;
        std::function<void()> run;
    };
    const std::vector<View> views{
        {"final", [&] { draw(false); }},
        {"preview", [&] { draw(true); }},
        {"thumbnail", drawThumbnail},
        {"layout only, as text", [&] { layoutText(*document, layoutOf(*document)); }},
    };
    std::vector<Work> works;
    for (const View& view : views) {
        view.run();
        works.push_back({view.run});
    }
    const auto seconds = secondsByTurns(works, rounds, 3);
    const double final = median(seconds[0]);
    std::printf("\nA page of 1844 x 1240 with a photograph of 24 megapixels twice and two texts.\n\n"
                "| view | ms | / final |\n|---|---|---|\n");
    for (std::size_t i = 0; i < seconds.size(); ++i)
        std::printf("| %s | %.1f | %.3f |\n", views[i].name, median(seconds[i]) * 1e3, median(seconds[i]) / final);
    std::fflush(stdout);
}

void printThreads(const Photographs& photographs, const std::string& folder, int rounds) {
    std::vector<VELM_Template::Ref> all;
    for (const std::string& photograph : photographs)
        all.push_back(pageWith(photograph, folder));
    const auto half = static_cast<std::ptrdiff_t>(all.size() / 2);
    const std::vector<VELM_Template::Ref> first(all.begin(), all.begin() + half), second(all.begin() + half, all.end());

    struct Way {
        const char* name;
        std::function<void()> run;
        std::vector<double> wall, processor;
    };
    Way ways[] = {{"1", [&] { render(all); }, {}, {}},
                  {"2",
                   [&] {
                       std::thread other([&] { render(second); });
                       render(first);
                       other.join();
                   },
                   {},
                   {}}};
    for (int round = -1; round < rounds; ++round) {
        for (Way& way : ways) {
            platform::draw::clearPictureCache();
            const double start = processorTime();
            const double wall = wallSecondsOf(way.run);
            if (round < 0) continue;
            way.wall.push_back(wall);
            way.processor.push_back(processorTime() - start);
        }
    }
    std::printf("\n%zu such pages, each with a photograph of its own. The speed is by the clock on the wall, and "
                "meaningful on an idle\nmachine only; processor time shows what the threads lose by each other.\n\n"
                "| threads | pages a second | / one thread | processor ms a page | / one thread |\n"
                "|---|---|---|---|---|\n",
                all.size());
    for (const Way& way : ways) {
        const auto pages = static_cast<double>(all.size());
        std::printf("| %s | %.1f | %.2f | %.1f | %.2f |\n", way.name, pages / median(way.wall),
                    median(ways[0].wall) / median(way.wall), median(way.processor) / pages * 1e3,
                    median(way.processor) / median(ways[0].processor));
    }
    std::fflush(stdout);
}

void printGoldenSet(const std::string& velmctl, const std::string& golden, const std::string& folder, int rounds) {
    std::vector<GoldenCase> cases;
    for (const auto& entry : fs::directory_iterator(fs::path(golden) / "cases"))
        if (entry.is_directory())
            cases.push_back(layOut(entry.path(), fs::path(golden) / "photos",
                                   fs::path(folder) / "golden" / entry.path().filename(), velmctl));
    std::vector<double> starts, alls;
    for (int round = 0; round < std::min(rounds, 3); ++round) {
        double start = 0;
        double all = 0;
        for (const GoldenCase& goldenCase : cases) {
            start += run({"env", "-C", folder, velmctl, "--version"}).seconds;
            const ProcessRun drawn = run(goldenCase.command);
            if (!drawn.succeeded) std::fprintf(stderr, "the golden case %s failed\n", goldenCase.name.c_str());
            all += drawn.seconds;
        }
        starts.push_back(start);
        alls.push_back(all);
    }
    const auto count = static_cast<double>(cases.size());
    std::printf("\nThe golden cases, each by a velmctl of its own.\n\n"
                "| cases | ms for all | of these the starts of the program | ms for each beyond its start |\n"
                "|---|---|---|---|\n| %zu | %.0f | %.0f | %.1f |\n",
                cases.size(), median(alls) * 1e3, median(starts) * 1e3, medianDifference(alls, starts) / count * 1e3);
    std::fflush(stdout);
}

} // namespace bench
