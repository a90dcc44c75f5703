#include "RasterForms.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace {

/// Pixels whose samples all differ from their neighbours.
base::Data bufferOf(std::size_t pixels, int bits) {
    std::mt19937 random(static_cast<unsigned>(pixels));
    base::Data buffer(std::vector<std::uint8_t>(pixels * 4 * static_cast<std::size_t>(bits) / 8));
    for (std::uint8_t& byte : buffer.bytes)
        byte = static_cast<std::uint8_t>(random());
    return buffer;
}

std::vector<std::uint32_t> samplesOf(const base::Data& data, int bits) {
    std::vector<std::uint32_t> samples;
    if (bits == 8) return {data.bytes.begin(), data.bytes.end()};
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        std::uint16_t sample;
        std::memcpy(&sample, &data.bytes[i], 2);
        samples.push_back(sample);
    }
    return samples;
}

// Some leave a rest behind the blocks of the compaction; the last is more than one block of a plane.
constexpr std::size_t counts[] = {0, 1, 2, 3, 4, 7, 8, 9, 31, 4097};

TEST(RasterForms, interleavedSamplesKeepTheirValuesAndComplementedOnesReverse) {
    for (const int bits : {8, 16})
        for (const bool cmy : {false, true})
            for (const std::size_t count : counts) {
                const auto source = samplesOf(bufferOf(count, bits), bits);
                std::vector<std::uint32_t> expected;
                const std::uint32_t full = bits == 8 ? 0xFF : 0xFFFF;
                for (std::size_t pixel = 0; pixel < count; ++pixel)
                    for (std::size_t component = 0; component < 3; ++component)
                        expected.push_back(cmy ? full - source[4 * pixel + 2 - component]
                                               : source[4 * pixel + component]);
                base::Data buffer = bufferOf(count, bits);
                compactPixels(buffer, bits, cmy);
                EXPECT_EQ(samplesOf(buffer, bits), expected) << bits << " bits, " << count << " pixels, cmy " << cmy;
            }
}

// The compaction as it goes through the buffer, byte by byte: a pixel is read, complemented and put down at the write
// position, and the first plane takes the word behind it.
TEST(RasterForms, complementedPlanesOf16BitsAreThoseOfTheMovingCompaction) {
    for (const std::size_t count : counts) {
        base::Data buffer = bufferOf(count, 16);
        const auto planes = planesOfPixels(buffer, 16, true);
        std::vector<std::uint8_t>& bytes = buffer.bytes;
        bytes.resize(bytes.size() + 2); // what lies behind a single pixel
        std::array<std::vector<std::uint8_t>, 3> expected;
        std::size_t read = 0;
        std::size_t write = 0;
        for (std::size_t pixel = 0; pixel < count; ++pixel, read += 8, write += 6) {
            std::array<std::uint8_t, 8> taken;
            std::copy_n(&bytes[read], taken.size(), taken.begin());
            for (std::size_t i = 0; i < taken.size(); ++i)
                bytes[write + i] = static_cast<std::uint8_t>(255 - taken[i]);
            const std::size_t positions[] = {write + 8, write + 4, write};
            for (std::size_t plane = 0; plane < 3; ++plane)
                expected[plane].insert(expected[plane].end(), &bytes[positions[plane]], &bytes[positions[plane]] + 2);
        }
        for (std::size_t plane = 0; plane < 3; ++plane)
            EXPECT_EQ(planes[plane].bytes, expected[plane]) << count << " pixels, plane " << plane;
    }
}

} // namespace
