// velm_bench_print FOLDER PROFILE [ROUNDS]: pages of 8 x 12 inches from a photograph of 24 megapixels, for a printer
// with this ICC profile, against the passes of the libraries that can't be done without; their peak memory; and the
// forms of a finished raster against a copy of its bytes. Processor time, medians, by turns.
#include "LibraryCalls.h"
#include "Measure.h"
#include "Tasks.h"

#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PictureCache.h"
#include "print/DNPPlanes.h"
#include "print/KLARON_PrintPage.h"
#include "print/RasterForms.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <lcms2.h>
#include <string>
#include <vector>

using namespace platform::draw;

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

struct PageCase {
    const char* name;
    const char* description;
    base::Size resolution;
    bool lies; ///< The photograph lies across the page and is turned.
    bool filters;
    bool profile;
    bool deep = false; ///< In half floats, to 16 bits a component.
};
constexpr PageCase pageCases[] = {
    {"full", "300 x 600, filters, profile", {300, 600}, true, true, true},
    {"upright", "the same, the photograph upright", {300, 600}, false, true, true},
    {"small", "300 x 300, filters, profile", {300, 300}, true, true, true},
    {"profile", "300 x 600, profile", {300, 600}, true, false, true},
    {"filters", "300 x 600, filters", {300, 600}, true, true, false},
    {"plain", "300 x 600", {300, 600}, true, false, false},
    {"deep", "300 x 300, filters, profile, 16 bits by half floats", {300, 300}, true, true, true, true},
};

base::Size pixelsOf(const PageCase& page) {
    return {8 * page.resolution.width, 12 * page.resolution.height};
}

class BenchPage : public KLARON_PrintPage {
public:
    explicit BenchPage(bool deep) : deep_(deep) {}
    platform::filter::WorkingFormat rasterContextFormatWorking() const override {
        return deep_ ? platform::filter::WorkingFormat::rgbaHalf : platform::filter::WorkingFormat::rgba8;
    }
    RasterFormat rasterContextFormatOutput() const override {
        return deep_ ? RasterFormat::rgba16 : RasterFormat::rgba8;
    }

private:
    bool deep_;
};

std::shared_ptr<KLARON_PrintPage> pageOf(const PageCase& row, const std::string& photograph,
                                         const std::string& profile) {
    auto page = std::make_shared<BenchPage>(row.deep);
    page->setInputImages({base::URL::fileURLWithPath(photograph)});
    page->setOutputSize(pixelsOf(row));
    page->setOutputResolution(row.resolution);
    if (row.profile) page->setPrinterProfileICC(base::URL::fileURLWithPath(profile));
    if (row.filters)
        page->setImageFilters(KLARON_PrintPage::filtersForOLDVELMColorAdjustments(
            {{"Brightness", 0.05}, {"Contrast", 1.1}, {"Saturation", 1.1}, {"Exposure", 0.1}, {"Red", 1.02}}));
    return page;
}

Raster rasterOf(const PageCase& row, const std::string& photograph, const std::string& profile) {
    clearPictureCache();
    auto raster = pageOf(row, photograph, profile)->imageRaster();
    if (!raster) fail("the page has no raster");
    return std::move(*raster);
}

// --- What can't be done without -------------------------------------------------------------------------------------

std::vector<std::uint8_t> bytesOfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// One pass of the colour library from sRGB to the profile, rows of the page's width.
class ProfilePass {
public:
    explicit ProfilePass(const std::string& profile) {
        const auto bytes = bytesOfFile(profile);
        cmsHPROFILE target = cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size()));
        cmsHPROFILE source = cmsCreate_sRGBProfile();
        if (target)
            transform_ = cmsCreateTransform(source, TYPE_BGRA_8, target, TYPE_RGBA_8, INTENT_RELATIVE_COLORIMETRIC,
                                            cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOCACHE);
        if (!transform_) fail("the profile can't be used");
        cmsCloseProfile(target);
        cmsCloseProfile(source);
    }
    ~ProfilePass() { cmsDeleteTransform(transform_); }
    ProfilePass(const ProfilePass&) = delete;
    ProfilePass& operator=(const ProfilePass&) = delete;

    void run(const Bitmap& picture) const {
        std::vector<std::uint8_t> row(4 * static_cast<std::size_t>(picture.width()));
        for (int y = 0; y < picture.height(); ++y)
            cmsDoTransform(transform_, picture.row(y), row.data(), static_cast<cmsUInt32Number>(picture.width()));
    }

private:
    cmsHTRANSFORM transform_ = nullptr;
};

/// Our own resampler on decoded pixels: a picture brought to a page's size.
BitmapContextRef resampled(const ImageRef& picture, base::Size size) {
    const BitmapContextRef context =
        BitmapContext::create(size.width, size.height, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    context->drawImage(picture, {0, 0, size.width, size.height});
    if (context->drawError()) fail("not resampled");
    return context;
}

ImageRef decodedImage(const std::string& path) {
    const auto source = ImageSource::createWithURL(base::URL::fileURLWithPath(path));
    if (!source) fail(source.error().localizedDescription.c_str());
    const auto bitmap = (*source)->imageAtIndex(0)->bitmap();
    if (!bitmap) fail(bitmap.error().localizedDescription.c_str());
    return Image::fromBitmap(*bitmap);
}

void printPages(const std::string& photograph, const std::string& upright, const std::string& profile, int rounds) {
    const ImageRef picture = decodedImage(upright);
    const ProfilePass pass(profile);
    std::printf("Processor time of a page's raster from a photograph of 24 megapixels, by turns with the passes of the "
                "libraries:\n"
                "the whole photograph out of the decoder (libjpeg-turbo), one Lanczos pass to the page's pixels (ours, "
                "on decoded\n"
                "pixels), and where the page has a profile, one pass of the colour library (lcms2). The floor is their "
                "sum: it\n"
                "turns nothing and has no colour filters.\n\n"
                "| 8 x 12 page | decode ms | Lanczos ms | profile ms | floor ms | page ms | page / floor | raster MB | "
                "peak MB |\n"
                "|---|---|---|---|---|---|---|---|---|\n");
    for (const PageCase& row : pageCases) {
        const std::string& path = row.lies ? photograph : upright;
        const base::Size size = pixelsOf(row);
        const auto page = resampled(picture, size)->makeImage()->bitmap();
        const auto seconds = bench::secondsByTurns({{[&] {
                                                        if (!bench::decodeJpeg(path, 6000, 4000)) fail("not decoded");
                                                    }},
                                                    {[&] { resampled(picture, size); }},
                                                    {[&] {
                                                        if (row.profile) pass.run(*page);
                                                    }},
                                                    {[&] { rasterOf(row, path, profile); }}},
                                                   rounds, 60);
        double parts[4];
        for (std::size_t i = 0; i < std::size(parts); ++i)
            parts[i] = bench::median(seconds[i]) * 1e3;
        const double floor = parts[0] + parts[1] + parts[2];
        const auto child = bench::run({"/proc/self/exe", "--once", row.name, path, profile});
        std::printf("| %s | %.0f | %.0f | %.0f | %.0f | %.0f | %.2f | %.0f | %ld |\n", row.description, parts[0],
                    parts[1], parts[2], floor, parts[3], parts[3] / floor,
                    size.width * size.height * (row.deep ? 8 : 4) / 1e6, std::atol(child.output.c_str()) / 1024);
        std::fflush(stdout);
    }
}

// --- Forms ----------------------------------------------------------------------------------------------------------

/// A form of a raster of 2400 x 7200, against the copy of the bytes that it is made from.
void printForms(int rounds) {
    std::printf("\nProcessor time of the forms of a finished raster of 2400 x 7200 pixels, against a copy of its bytes "
                "to memory in hand\nand to new memory (as the planes need).\n\n| form | copy ms | copy to new ms | "
                "form ms | form / copy | form / copy to new |\n|---|---|---|---|---|---|\n");
    constexpr std::size_t pixels = std::size_t{2400} * 7200;
    for (const int bits : {8, 16}) {
        base::Data source(std::vector<std::uint8_t>(pixels * 4 * static_cast<std::size_t>(bits) / 8));
        for (std::size_t i = 0; i < source.size(); ++i)
            source.bytes[i] = static_cast<std::uint8_t>(i * 2654435761U >> 16);
        std::vector<std::uint8_t> inHand(source.size());
        base::Data work;
        RasterData raster{2400, 7200, std::size_t{9600}, 8, 4, 5, 0, source.bytes.data()};
        const auto print = [&](const std::string& name, const std::function<double()>& form) {
            std::vector<double> copies, fresh, forms;
            for (int round = 0; round < rounds; ++round) {
                double start = bench::processorTime();
                std::memcpy(inHand.data(), source.bytes.data(), source.size());
                copies.push_back(bench::processorTime() - start);
                start = bench::processorTime();
                work = base::Data(std::vector<std::uint8_t>(source.bytes.begin(), source.bytes.end()));
                fresh.push_back(bench::processorTime() - start);
                forms.push_back(form());
                work = {};
            }
            const double copy = bench::median(copies) * 1e3;
            const double newCopy = bench::median(fresh) * 1e3;
            const double median = bench::median(forms) * 1e3;
            std::printf("| %s | %.1f | %.1f | %.1f | %.2f | %.2f |\n", name.c_str(), copy, newCopy, median,
                        median / copy, median / newCopy);
            std::fflush(stdout);
        };
        const auto timed = [](auto&& form) {
            const double start = bench::processorTime();
            form();
            return bench::processorTime() - start;
        };
        for (const bool cmy : {false, true}) {
            const std::string name = (cmy ? "cmy " : "rgb ") + std::to_string(bits);
            print(name + " chunky", [&] { return timed([&] { compactPixels(work, bits, cmy); }); });
            print(name + " planar", [&] { return timed([&] { planesOfPixels(source, bits, cmy); }); });
        }
        if (bits == 8)
            print("DNP planes", [&] {
                return timed([&] {
                    base::Data yellow = dnpBlankPlane(2560, 7200, {300, 600});
                    base::Data magenta = yellow;
                    base::Data cyan = yellow;
                    if (!dnpCopyRaster(raster, 2400, yellow, magenta, cyan)) fail("no planes");
                });
            });
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count == 5 && std::string(arguments[1]) == "--once") {
        for (const PageCase& row : pageCases)
            if (row.name == std::string(arguments[2])) rasterOf(row, arguments[3], arguments[4]);
        std::printf("%ld\n", bench::peakKilobytes());
        return 0;
    }
    if (count < 3) {
        std::fprintf(stderr, "usage: velm_bench_print FOLDER PROFILE [ROUNDS]\n");
        return 2;
    }
    const int rounds = count > 3 ? std::max(1, std::atoi(arguments[3])) : 7;
    const std::string folder = std::filesystem::absolute(arguments[1]);
    const std::string photograph = bench::photographsIn(folder)[0];
    const std::string upright = bench::photographOf(4000, 6000, folder);
    if (photograph.empty() || upright.empty()) return 1;
    printPages(photograph, upright, arguments[2], rounds);
    printForms(rounds);
    return 0;
}
