#include "platform/draw/ColorSpace.h"
#include "platform/draw/DeepPixels.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

using namespace platform::draw;

// Files of 16 bits come back as they were written, those that were not asked for with 8 bits.
TEST(DeepFiles, KeepTheirBits) {
    constexpr int width = 37, height = 5;
    for (const bool opaque : {true, false}) {
        std::vector<std::uint16_t> pixels;
        for (int i = 0; i < width * height; ++i) {
            const int alpha = opaque ? 65535 : i * 65535 / (width * height - 1);
            for (const int part : {1009, 257, 31})
                pixels.push_back(static_cast<std::uint16_t>(std::int64_t{i} * part % 65536 * alpha / 65535));
            pixels.push_back(static_cast<std::uint16_t>(alpha));
        }
        const ImageRef image = imageOfDeepPixels(pixels, width, height, ColorSpace::sRGB(), opaque).value();
        for (const char* type : {"public.png", "public.tiff"})
            for (const int depth : {16, 8}) {
                SCOPED_TRACE(testing::Message() << type << " " << depth << (opaque ? " opaque" : ""));
                const auto file = ImageDestination::createWithData(type).value();
                file->addImage(image, {{std::string(kCGImagePropertyDepth), depth}});
                ASSERT_TRUE(file->finalize());
                const auto source = ImageSource::createWithData(file->takeData());
                ASSERT_TRUE(source);
                const ImageRef read = (*source)->imageAtIndex(0);
                EXPECT_EQ(read->isOpaque(), opaque);
                EXPECT_EQ(base::valueForKey((*source)->propertiesAtIndex(0), kCGImagePropertyDepth).integerValue(),
                          depth);
                std::vector<std::uint16_t> back(pixels.size());
                ASSERT_TRUE(readDeepPixels(*read, 0, reinterpret_cast<std::uint8_t*>(back.data())));
                int furthest = 0;
                for (std::size_t i = 0; i < back.size(); ++i)
                    furthest = std::max(furthest, std::abs(back[i] - pixels[i]));
                // PNG keeps colours undivided by their alpha, to the nearest step.
                EXPECT_LE(furthest, depth == 8 ? 257 : opaque || type == std::string("public.tiff") ? 0 : 1);
            }
    }
}
