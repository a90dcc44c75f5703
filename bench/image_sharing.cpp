#include "image_sharing.h"

#include "Measure.h"

#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PictureCache.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace platform::draw;

namespace bench {

namespace {

struct Size {
    int width;
    int height;
};

/// A product with the photograph filling it, drawn as an output does it.
ImageRef render(const std::string& path, Size size) {
    const auto source = ImageSource::createWithURL(base::URL::fileURLWithPath(path));
    const BitmapContextRef context = BitmapContext::create(size.width, size.height, ColorSpace::sRGB());
    if (!source || !context) std::exit(1);
    const ImageRef image = (*source)->imageAtIndex(0);
    const double scale =
        std::max(static_cast<double>(size.width) / image->width(), static_cast<double>(size.height) / image->height());
    const double width = image->width() * scale;
    const double height = image->height() * scale;
    context->drawImage(image, {(size.width - width) / 2, (size.height - height) / 2, width, height});
    if (context->drawError()) std::exit(1);
    return context->makeImage();
}

void encode(const ImageRef& product) {
    auto destination = ImageDestination::createWithData("public.jpeg");
    (*destination)->addImage(product, {{std::string(kCGImageDestinationLossyCompressionQuality), 0.9}});
    if (!(*destination)->finalize()) std::exit(1);
}

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Renders of one thread: its own photographs, so that no thread gains by another's work.
void renderSome(const Photographs& photographs, std::size_t thread) {
    constexpr int count = 6;
    for (int i = 0; i < count; ++i)
        encode(render(photographs[2 * thread + static_cast<std::size_t>(i) % 2], {1844, 1240}));
}

struct Order {
    const char* name;
    std::vector<Size> sizes;
};

} // namespace

void printScaling(const Photographs& photographs, int rounds) {
    // Every render decodes: nothing of the last one is left.
    const std::size_t capacity = pictureCacheCapacity();
    setPictureCacheCapacity(0);
    std::vector<double> alone, together;
    for (int round = -1; round < rounds; ++round) {
        const double one = secondsOf([&] { renderSome(photographs, 0); });
        const double two = secondsOf([&] {
            std::thread other([&] { renderSome(photographs, 1); });
            renderSome(photographs, 0);
            other.join();
        });
        if (round < 0) continue;
        alone.push_back(one);
        together.push_back(two);
    }
    setPictureCacheCapacity(capacity);
    std::printf(
        "\nRenders of a photograph of 24 megapixels to 1844 x 1240 with encoding, by the clock on the wall; every "
        "thread has its own\nphotographs, and every render decodes. Meaningful on an idle machine only.\n\n"
        "| threads | renders a second | ratio |\n|---|---|---|\n");
    const double one = 6 / median(alone);
    const double two = 12 / median(together);
    std::printf("| 1 | %.1f | 1.00 |\n| 2 | %.1f | %.2f |\n", one, two, two / one);
    std::fflush(stdout);
}

void printOrders(const Photographs& photographs, int rounds) {
    const std::vector<Order> orders{
        {"one, 6 x 4 inches", {{1844, 1240}}},
        {"six of one size", {{1844, 1240}, {1844, 1240}, {1844, 1240}, {1844, 1240}, {1844, 1240}, {1844, 1240}}},
        {"six sizes: 6x4, 7x5, 10x8, wallet, square, 12x8",
         {{1844, 1240}, {2138, 1537}, {3036, 2448}, {1087, 787}, {1500, 1500}, {3600, 2400}}},
        {"six sizes of prints and screens: 6x4, 7x5, wallet, 600x400, 300x200, 150x100",
         {{1844, 1240}, {2138, 1537}, {1087, 787}, {600, 400}, {300, 200}, {150, 100}}},
    };
    std::printf("\nOrders that use four photographs of 24 megapixels in each of their outputs: processor time of the "
                "drawing, without\nencoding. What goes beyond the decodings is resampling to each size.\n\n"
                "| outputs | ms | decodings of a photograph | decoding ms | decoding / of one output | all / of one "
                "output |\n|---|---|---|---|---|---|\n");
    double decodingOfOne = 0;
    double allOfOne = 0;
    for (const Order& order : orders) {
        std::vector<double> all, decoding;
        std::uint64_t decodings = 0;
        for (int round = -1; round < rounds; ++round) {
            clearPictureCache();
            const std::uint64_t before = pictureCacheStatistics().decodings;
            const PictureSharing sharing;
            double sum = 0;
            double first = 0;
            for (const std::string& photograph : photographs) {
                // The first drawing of a photograph at a scale decodes; a drawing that does not costs its resampling.
                for (const Size& size : order.sizes) {
                    const std::uint64_t read = pictureCacheStatistics().decodings;
                    const double start = processorTime();
                    render(photograph, size);
                    const double seconds = processorTime() - start;
                    sum += seconds;
                    if (pictureCacheStatistics().decodings > read) first += seconds;
                }
            }
            decodings = pictureCacheStatistics().decodings - before;
            if (round < 0) continue;
            all.push_back(sum);
            decoding.push_back(first);
        }
        if (order.sizes.size() == 1) decodingOfOne = median(decoding), allOfOne = median(all);
        std::printf("| %s | %.0f | %.1f | %.0f | %.2f | %.2f |\n", order.name, median(all) * 1e3,
                    static_cast<double>(decodings) / 4, median(decoding) * 1e3, median(decoding) / decodingOfOne,
                    median(all) / allOfOne);
        std::fflush(stdout);
    }
}

} // namespace bench
