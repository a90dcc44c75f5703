#include "RasterForms.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t componentsPerPixel = 4;
constexpr std::size_t componentsKept = 3;

template <class Sample>
Sample complement(Sample sample) {
    return static_cast<Sample>(~sample);
}

/// The pixels of a buffer, whatever its alignment.
template <class Sample>
Sample sampleAt(const std::uint8_t* samples, std::size_t index) {
    Sample sample;
    std::memcpy(&sample, samples + index * sizeof sample, sizeof sample);
    return sample;
}

std::uint64_t wordAt(const std::uint8_t* bytes, std::size_t index) {
    return sampleAt<std::uint64_t>(bytes, index);
}

// --- Compaction -----------------------------------------------------------------------------------------------------
// A word of 64 bits holds two pixels of 8 bits or one of 16. Its 48 bits that are kept are brought to its low end, and
// four such words are written as three: the samples never go one by one, and no vector unit is needed to be as fast as
// the memory.

constexpr std::uint64_t low16 = 0xFFFF;
constexpr std::uint64_t low24 = 0xFFFFFF;
constexpr std::uint64_t low48 = 0xFFFFFFFFFFFF;

std::uint64_t keptOf8(std::uint64_t twoPixels) {
    return (twoPixels & low24) | ((twoPixels >> 8) & (low24 << 24));
}
std::uint64_t complementedOf8(std::uint64_t twoPixels) {
    const std::uint64_t reversed = std::rotl(__builtin_bswap64(~twoPixels), 32); // each pixel: alpha, blue, green, red
    return ((reversed >> 8) & low24) | ((reversed >> 16) & (low24 << 24));
}
std::uint64_t keptOf16(std::uint64_t pixel) {
    return pixel & low48;
}
std::uint64_t complementedOf16(std::uint64_t pixel) {
    const std::uint64_t complemented = ~pixel;
    return ((complemented >> 32) & low16) | (complemented & (low16 << 16)) | ((complemented & low16) << 32);
}

/// Answers how many words it read: all but at most three.
template <std::uint64_t (*kept)(std::uint64_t)>
std::size_t compactWords(std::uint8_t* bytes, std::size_t wordCount) {
    // The shifts below put what stands first in memory at the low end.
    if constexpr (std::endian::native != std::endian::little) return 0;
    const std::size_t whole = wordCount / 4 * 4;
    std::uint8_t* target = bytes;
    for (std::size_t word = 0; word < whole; word += 4) {
        const std::uint64_t first = kept(wordAt(bytes, word));
        const std::uint64_t second = kept(wordAt(bytes, word + 1));
        const std::uint64_t third = kept(wordAt(bytes, word + 2));
        const std::uint64_t fourth = kept(wordAt(bytes, word + 3));
        const std::uint64_t packed[] = {first | second << 48, second >> 16 | third << 32, third >> 32 | fourth << 16};
        std::memcpy(target, packed, sizeof packed);
        target += sizeof packed;
    }
    return whole;
}

/// The pixels from `first` on, one by one.
template <class Sample>
void compactRest(std::uint8_t* bytes, std::size_t first, std::size_t count, bool cmy) {
    for (std::size_t pixel = first; pixel < count; ++pixel) {
        const Sample red = sampleAt<Sample>(bytes, componentsPerPixel * pixel);
        const Sample green = sampleAt<Sample>(bytes, componentsPerPixel * pixel + 1);
        const Sample blue = sampleAt<Sample>(bytes, componentsPerPixel * pixel + 2);
        const Sample plain[componentsKept] = {red, green, blue};
        const Sample complemented[componentsKept] = {complement(blue), complement(green), complement(red)};
        std::memcpy(bytes + sizeof plain * pixel, cmy ? complemented : plain, sizeof plain);
    }
}

// --- Planes ---------------------------------------------------------------------------------------------------------

/// A plane of the samples that `sampleOf(pixel)` gives. They are collected in a small block first: a vector that is
/// resized would be written twice.
template <class Sample, class SampleOf>
base::Data plane(std::size_t count, SampleOf sampleOf) {
    constexpr std::size_t blockSize = 4096;
    std::array<Sample, blockSize> block;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(block.data());
    base::Data result;
    result.bytes.reserve(count * sizeof(Sample));
    for (std::size_t first = 0; first < count; first += blockSize) {
        const std::size_t filled = std::min(blockSize, count - first);
        for (std::size_t i = 0; i < filled; ++i)
            block[i] = sampleOf(first + i);
        result.bytes.insert(result.bytes.end(), bytes, bytes + filled * sizeof(Sample));
    }
    return result;
}

std::array<base::Data, 3> planesOf8(const std::uint8_t* pixels, std::size_t count, bool cmy) {
    const auto component = [&](std::size_t index) {
        return plane<std::uint8_t>(count, [=](std::size_t i) { return pixels[componentsPerPixel * i + index]; });
    };
    const auto complemented = [&](std::size_t index) {
        return plane<std::uint8_t>(count,
                                   [=](std::size_t i) { return complement(pixels[componentsPerPixel * i + index]); });
    };
    if (cmy) return {complemented(2), complemented(1), complemented(0)};
    return {component(0), component(1), component(2)};
}

/// What those who print from planes of 16 bits have always been given, and rely on: of each component nothing but the
/// low byte of its sample.
std::array<base::Data, 3> lowBytesOf16(const std::uint8_t* pixels, std::size_t count) {
    const auto lowByte = [&](std::size_t component) {
        return plane<std::uint16_t>(count, [=](std::size_t i) -> std::uint16_t {
            return sampleAt<std::uint16_t>(pixels, componentsPerPixel * i + component) & 0xFF;
        });
    };
    return {lowByte(0), lowByte(1), lowByte(2)};
}

/// What they have always been given as complemented planes. It is told by a compaction that goes through the buffer:
/// for pixel i it takes the eight bytes at its read position (sample 4 i), complements them, and puts them down at its
/// write position, which moves by the three samples that are kept (sample 3 i). There stand then the complements of
/// red, green, blue and the skipped component, and behind these eight bytes whatever the buffer held before:
///
///     write position + 0 bytes   complement of red     third plane
///     write position + 4 bytes   complement of blue    second plane
///     write position + 8 bytes   sample 3 i + 4        first plane
///
/// No earlier pixel was put down as far as that (the one before ended at sample 3 i), so the first plane takes the
/// source's own sample, not complemented: of pixel (3 i + 4) / 4, whatever component it happens to be. In a buffer of
/// a single pixel it would lie behind the end; the plane then holds 0.
std::array<base::Data, 3> complementedPlanesOf16(const std::uint8_t* pixels, std::size_t count) {
    const auto complementOf = [&](std::size_t component) {
        return plane<std::uint16_t>(count, [=](std::size_t i) {
            return complement(sampleAt<std::uint16_t>(pixels, componentsPerPixel * i + component));
        });
    };
    constexpr std::size_t samplesBehind = 8 / sizeof(std::uint16_t);
    base::Data first = count == 1 ? base::Data(std::vector<std::uint8_t>(sizeof(std::uint16_t)))
                                  : plane<std::uint16_t>(count, [=](std::size_t i) {
                                        const std::size_t writePosition = componentsKept * i;
                                        return sampleAt<std::uint16_t>(pixels, writePosition + samplesBehind);
                                    });
    return {std::move(first), complementOf(2), complementOf(0)};
}

} // namespace

void compactPixels(base::Data& buffer, int bitsPerComponent, bool cmy) {
    const bool is16 = bitsPerComponent == 16;
    const std::size_t bytesPerSample = is16 ? 2 : 1;
    const std::size_t count = buffer.size() / (componentsPerPixel * bytesPerSample);
    const std::size_t wordCount = buffer.size() / sizeof(std::uint64_t);
    std::uint8_t* bytes = buffer.bytes.data();
    if (is16) {
        const std::size_t words =
            cmy ? compactWords<complementedOf16>(bytes, wordCount) : compactWords<keptOf16>(bytes, wordCount);
        compactRest<std::uint16_t>(bytes, words, count, cmy);
    } else {
        const std::size_t words =
            cmy ? compactWords<complementedOf8>(bytes, wordCount) : compactWords<keptOf8>(bytes, wordCount);
        compactRest<std::uint8_t>(bytes, 2 * words, count, cmy);
    }
    buffer.bytes.resize(count * componentsKept * bytesPerSample);
}

std::array<base::Data, 3> planesOfPixels(const base::Data& buffer, int bitsPerComponent, bool cmy) {
    const std::uint8_t* pixels = buffer.bytes.data();
    if (bitsPerComponent != 16) return planesOf8(pixels, buffer.size() / componentsPerPixel, cmy);
    const std::size_t count = buffer.size() / (componentsPerPixel * sizeof(std::uint16_t));
    return cmy ? complementedPlanesOf16(pixels, count) : lowBytesOf16(pixels, count);
}
