#include "print/DNPPlanes.h"

#include "support/LogCapture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t head = 1920;
constexpr std::size_t lines = 6;

TEST(DNPPlanes, ThePictureThatTheyPrintIsTheRasterButForOneRow) {
    struct Case {
        std::size_t width, height;
        std::uint32_t alphaInfo = 5;
        std::size_t bytesPerPixel = 4;
    };
    for (const Case& c :
         std::vector<Case>{{1843, 6}, {1844, 6},  {1919, 6},  {1920, 6},  {1921, 6},  {1922, 6},    {1923, 6},
                           {2531, 6}, {0, 6},     {1, 6},     {1844, 0},  {1844, 1},  {1844, 2},    {1844, 4},
                           {1844, 9}, {33, 6, 1}, {33, 6, 2}, {33, 6, 4}, {33, 6, 6}, {33, 6, 0, 3}}) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height << " alpha " << c.alphaInfo);
        // Noise, also in the bytes behind each row that are no pixels.
        const std::size_t bytesPerRow = c.width * c.bytesPerPixel + 5;
        std::vector<std::uint8_t> bytes(bytesPerRow * c.height + 1);
        std::mt19937 random(4711);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random() % 251); });
        base::Data yellow = dnpBlankPlane(head, lines, {300, 300}), magenta = yellow, cyan = yellow;
        const support::LogCapture log;
        ASSERT_TRUE(dnpCopyRaster({c.width, c.height, bytesPerRow, 8, c.bytesPerPixel, c.alphaInfo, 0, bytes.data()},
                                  1844, yellow, magenta, cyan));
        EXPECT_EQ(log.has("Premultiplied Alpha may produce unexpected output"), c.alphaInfo == 1 || c.alphaInfo == 2);
        const std::string excess = std::to_string(c.width - 1844) + " pixels (this should be a crasher).";
        EXPECT_EQ(log.has("ERROR: Bad input image width; too wide by " + excess), c.width > 1921);

        const auto plane = [](const base::Data& file) { return dnpReadPlane(file.asText()).value(); };
        const auto picture = dnpPictureOfPlanes(plane(yellow), plane(magenta), plane(cyan)).value();
        const std::size_t first = c.alphaInfo == 2 || c.alphaInfo >= 6 || c.alphaInfo == 4 ? 1 : 0;
        const std::size_t above = lines - std::min(c.height, lines);
        // The odd one of the columns that are missing or too many is the last.
        const std::size_t margin = c.width < head ? (head - c.width) / 2 : 0;
        const std::size_t cut = c.width > head ? (c.width - head) / 2 : 0;
        std::size_t different = 0;
        for (std::size_t y = 0; y < lines; ++y)
            for (std::size_t x = 0; x < head; ++x) {
                const bool isPaper = y < above || y == lines - 1 || x < margin || x - margin + cut >= c.width;
                const std::size_t pixel = (y - above) * bytesPerRow + (x - margin + cut) * c.bytesPerPixel + first;
                for (std::size_t component = 0; component < 3; ++component)
                    different += picture.row(static_cast<int>(y))[4 * x + 2 - component] !=
                                 (isPaper ? 255 : bytes[pixel + component]);
            }
        EXPECT_EQ(different, 0u);
    }
}

TEST(DNPPlanes, ReadingRefusesWhateverIsNoPlane) {
    const std::string plane(dnpBlankPlane(2560, 3, {300, 600}).asText());
    const auto fault = [](const std::string& bytes) {
        const auto read = dnpReadPlane(bytes);
        return read ? std::string() : read.error().localizedDescription;
    };
    EXPECT_EQ(fault(plane), "");
    for (std::size_t offset = 0; offset < dnpPlaneHeaderSize; ++offset) {
        std::string damaged = plane;
        damaged[offset] = static_cast<char>(damaged[offset] ^ 0x80);
        EXPECT_NE(fault(damaged), "") << offset;
    }
    for (const std::size_t size : {std::size_t{0}, std::size_t{1087}, dnpPlaneHeaderSize, plane.size() - 1})
        EXPECT_NE(fault(plane.substr(0, size)), "") << size;
    EXPECT_EQ(fault(std::string(plane).replace(28, 1, "\x18")),
              "its number of bits per pixel is 24, where a plane has 8");
    // So many rows that their bytes, counted in 32 bits, are none at all.
    EXPECT_NE(fault(std::string(dnpBlankPlane(2560, 0, {300, 600}).asText()).replace(24, 1, "\x80")), "");
}

} // namespace
