// velm_bench_draw FOLDER [Google Benchmark's options]: the drawing of one photograph of 24 megapixels by size and
// manner, decoding included unless the name says "again".
#include "Tasks.h"

#include "platform/draw/BitmapContext.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PictureCache.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <string>

using namespace platform::draw;

namespace {

std::string photograph;

ImageRef image() {
    const auto source = ImageSource::createWithURL(base::URL::fileURLWithPath(photograph));
    return source ? (*source)->imageAtIndex(0) : nullptr;
}

struct Drawing {
    double width = 0;
    double height = 0;
    Quality quality = Quality::final;
    double turn = 0; ///< Radians.
    bool again = false;
    base::Rect crop; ///< None when empty.
};

void draw(benchmark::State& state, const Drawing& drawing) {
    const BitmapContextRef context = BitmapContext::create(drawing.width, drawing.height, ColorSpace::sRGB());
    context->setQuality(drawing.quality);
    const base::Rect all{0, 0, drawing.width, drawing.height};
    context->concatenate(base::AffineTransform::rotationAbout(all.center(), drawing.turn));
    for (auto _ : state) {
        if (!drawing.again) clearPictureCache();
        ImageRef picture = image();
        if (!drawing.crop.isEmpty()) picture = picture->cropped(drawing.crop);
        context->drawImage(picture, all);
    }
    if (context->drawError()) state.SkipWithError(context->drawError()->localizedDescription.c_str());
}

void openHeader(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(image());
}

void encode(benchmark::State& state, double quality) {
    const BitmapContextRef context = BitmapContext::create(1844, 1240, ColorSpace::sRGB(), AlphaInfo::noneSkipLast);
    context->drawImage(image(), {0, 0, 1844, 1240});
    const ImageRef product = context->makeImage();
    for (auto _ : state) {
        auto destination = ImageDestination::createWithData("public.jpeg");
        (*destination)->addImage(product, {{std::string(kCGImageDestinationLossyCompressionQuality), quality}});
        if (!(*destination)->finalize()) state.SkipWithError("not encoded");
    }
}

} // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (count != 2) {
        std::fprintf(stderr, "usage: velm_bench_draw FOLDER\n");
        return 2;
    }
    photograph = bench::photographsIn(arguments[1])[0];
    if (photograph.empty()) return 1;
    const auto add = [](const char* name, auto function) {
        benchmark::RegisterBenchmark(name, function)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
    };
    const auto addDrawing = [&](const char* name, const Drawing& drawing) {
        add(name, [drawing](benchmark::State& state) { draw(state, drawing); });
    };
    add("open", openHeader);
    addDrawing("final 1844x1240", {1844, 1240});
    addDrawing("final 1240x1240, a quarter turn", {1240, 1240, Quality::final, 1.5707963267948966});
    addDrawing("final 1844x1240, 7 degrees", {1844, 1240, Quality::final, 0.122173});
    addDrawing("final 600x400", {600, 400});
    addDrawing("final 600x400, the middle ninth", {600, 400, Quality::final, 0, false, {2000, 1333, 2000, 1333}});
    addDrawing("preview 1844x1240", {1844, 1240, Quality::preview});
    addDrawing("preview 600x400", {600, 400, Quality::preview});
    addDrawing("again 1844x1240", {1844, 1240, Quality::final, 0, true});
    addDrawing("again 1240x1240, a quarter turn", {1240, 1240, Quality::final, 1.5707963267948966, true});
    add("encode 1844x1240, quality 0.85", [](benchmark::State& state) { encode(state, 0.85); });
    add("encode 1844x1240, quality 0.9", [](benchmark::State& state) { encode(state, 0.9); });
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
