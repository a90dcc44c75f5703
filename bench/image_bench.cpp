// velm_bench_image FOLDER: opening, reducing, drawing and writing photographs of 1 to 100 megapixels, each against the
// bare library call that does the unavoidable work, by turns in one run; the memory that a page takes; several drawings
// of one photograph. Processor time, medians.
#include "LibraryCalls.h"
#include "Measure.h"
#include "Tasks.h"
#include "image_sharing.h"

#include "platform/draw/BitmapContext.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PictureCache.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <unistd.h>

using namespace platform::draw;

namespace {

constexpr int pageWidth = 1844;
constexpr int pageHeight = 1240;

struct Subject {
    const char* name;
    int width;
    int height;
};
constexpr Subject subjects[] = {{"1", 1224, 816}, {"12", 4242, 2828}, {"24", 6000, 4000}, {"100", 12240, 8160}};

ImageRef imageAt(const std::string& path) {
    const auto source = ImageSource::createWithURL(base::URL::fileURLWithPath(path));
    if (!source) {
        std::fprintf(stderr, "%s\n", source.error().localizedDescription.c_str());
        std::exit(1);
    }
    return (*source)->imageAtIndex(0);
}

/// Decoded and drawn into a page; a part of it when there is a crop.
void drawPage(const std::string& path, int width, int height, Quality quality, const base::Rect& crop = {}) {
    clearPictureCache();
    const BitmapContextRef context = BitmapContext::create(width, height, ColorSpace::sRGB());
    context->setQuality(quality);
    const ImageRef image = imageAt(path);
    context->drawImage(crop.isEmpty() ? image : image->cropped(crop),
                       {0, 0, static_cast<double>(width), static_cast<double>(height)});
    if (context->drawError()) std::exit(1);
}

void write(const ImageRef& image, const std::string& path, const char* type) {
    auto destination = ImageDestination::createWithURL(base::URL::fileURLWithPath(path), type);
    (*destination)->addImage(image, {{std::string(kCGImageDestinationLossyCompressionQuality), 0.9}});
    if (const auto written = (*destination)->finalize(); !written) {
        std::fprintf(stderr, "%s\n", written.error().localizedDescription.c_str());
        std::exit(1);
    }
}

/// As often as a second and a half allows: once for what takes seconds, at most `rounds` times.
void measure(const char* megapixels, const char* what, int rounds, int batch, const std::function<void()>& ours,
             const std::function<bool()>& bare) {
    const auto library = [&bare] {
        if (!bare()) std::exit(1);
    };
    const auto seconds = bench::secondsByTurns({{library, batch}, {ours, batch}}, rounds, 1.5);
    const double floor = bench::median(seconds[0]);
    const double median = bench::median(seconds[1]);
    std::printf("| %s | %s | %.2f | %.2f | %.2f |\n", megapixels, what, floor * 1e3, median * 1e3, median / floor);
    std::fflush(stdout);
}

void printPhotograph(const Subject& subject, const std::string& path, const std::string& folder, int rounds) {
    const char* name = subject.name;
    const int width = subject.width;
    const int height = subject.height;
    measure(
        name, "open", rounds, 50, [&] { imageAt(path); }, [&] { return bench::readJpegHeader(path); });
    const int drawnWidth = std::min(pageWidth, width);
    const int drawnHeight = std::min(pageHeight, height);
    const auto scaled = [&] { return bench::decodeJpeg(path, drawnWidth, drawnHeight); };
    if (width > pageWidth) {
        measure(
            name, "draw 1844 x 1240, final", rounds, 1,
            [&] { drawPage(path, drawnWidth, drawnHeight, Quality::final); }, scaled);
        measure(
            name, "draw 1844 x 1240, preview", rounds, 1,
            [&] { drawPage(path, drawnWidth, drawnHeight, Quality::preview); }, scaled);
        const base::Rect ninth{static_cast<double>(width / 3), static_cast<double>(height / 3),
                               static_cast<double>(width / 3), static_cast<double>(height / 3)};
        measure(
            name, "draw 600 x 400 of the middle ninth", rounds, 1,
            [&] { drawPage(path, 600, 400, Quality::final, ninth); },
            [&] { return bench::decodeJpegPart(path, width / 3, height / 3, width / 3, height / 3); });
    }
    measure(
        name, "draw at its own size", rounds, 1, [&] { drawPage(path, width, height, Quality::final); },
        [&] { return bench::decodeJpeg(path, width, height); });

    const auto bitmap = imageAt(path)->bitmap();
    if (!bitmap) std::exit(1);
    clearPictureCache();
    const ImageRef image = Image::fromBitmap(*bitmap);
    const bench::Pixels pixels{width, height, bitmap->stride(), bitmap->pixels()};
    const std::string output = folder + "/written";
    struct Type {
        const char* identifier;
        const char* name;
        bool (*encode)(const bench::Pixels&, const std::string&);
    };
    for (const Type& type : {Type{"public.jpeg", "write JPEG", bench::encodeJpeg},
                             {"public.png", "write PNG", bench::encodePng},
                             {"public.tiff", "write TIFF", bench::encodeTiff}})
        measure(
            name, type.name, rounds, 1, [&] { write(image, output, type.identifier); },
            [&] { return type.encode(pixels, output + "-floor"); });
}

/// The page drawn in a process of its own.
long peakOf(const std::string& path) {
    return std::atol(bench::run({"/proc/self/exe", "--draw", path}).output.c_str());
}

void printMemory(const std::vector<std::string>& paths, const std::string& folder) {
    std::printf(
        "\nPeak memory of drawing a page of 1844 x 1240 at final quality (the page takes 9 MB, and so does the "
        "drawn picture in\nthe cache). A progressive file's coefficients are held whole by the library, whoever "
        "decodes it.\n\n| photograph | peak MB | above the bare process MB |\n|---|---|---|\n");
    const long bare = peakOf("");
    const auto print = [bare](const std::string& name, const std::string& path) {
        const long peak = peakOf(path);
        std::printf("| %s | %ld | %ld |\n", name.c_str(), peak / 1024, (peak - bare) / 1024);
        std::fflush(stdout);
    };
    for (std::size_t i = 1; i < paths.size(); ++i)
        print(std::string(subjects[i].name) + " megapixels", paths[i]);
    for (std::size_t i = 1; i < paths.size(); ++i) {
        const std::string progressive = folder + "/progressive.jpg";
        if (!bench::makeProgressive(paths[i], progressive)) std::exit(1);
        print(std::string(subjects[i].name) + " megapixels, progressive", progressive);
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count == 3 && std::string_view(arguments[1]) == "--draw") {
        if (*arguments[2]) drawPage(arguments[2], pageWidth, pageHeight, Quality::final);
        std::printf("%ld\n", bench::peakKilobytes());
        return 0;
    }
    if (count != 2 && count != 3) {
        std::fprintf(stderr, "usage: velm_bench_image FOLDER [ROUNDS]\n");
        return 2;
    }
    const int rounds = count == 3 ? std::max(1, std::atoi(arguments[2])) : 7;
    char pattern[] = "/tmp/velm-bench-XXXXXX";
    if (!mkdtemp(pattern)) return 1;
    const std::string folder = pattern;
    std::vector<std::string> paths;
    for (const Subject& subject : subjects) {
        paths.push_back(bench::photographOf(subject.width, subject.height, arguments[1]));
        if (paths.back().empty()) return 1;
    }
    const bench::Photographs photographs = bench::photographsIn(arguments[1]);
    if (photographs[0].empty()) return 1;

    std::printf("Processor time of one step, median of up to %d rounds by turns. The floor is the library's bare call: "
                "reading the\nheader; decoding at the smallest power of two that is large enough, or only the part; "
                "decoding all; encoding.\n\n| megapixels | step | floor ms | velm ms | velm / floor |\n"
                "|---|---|---|---|---|\n",
                rounds);
    for (std::size_t i = 0; i < paths.size(); ++i)
        printPhotograph(subjects[i], paths[i], folder, rounds);
    printMemory(paths, folder);
    bench::printOrders(photographs, std::min(rounds, 3));
    bench::printScaling(photographs, std::min(rounds, 5));
    std::filesystem::remove_all(folder);
    return 0;
}
