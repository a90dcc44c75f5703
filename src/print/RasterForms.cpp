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

void putWord(std::uint8_t* target, std::uint64_t word) {
    std::memcpy(target, &word, sizeof word);
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
std::uint64_t reversedOf8(std::uint64_t twoPixels) {
    const std::uint64_t reversed =
        __builtin_bswap64(twoPixels); // the second pixel's alpha, blue, green, red, then the first
    return reversed >> 40 | (reversed << 16 & (low24 << 24));
}
std::uint64_t keptOf16(std::uint64_t pixel) {
    return pixel & low48;
}
std::uint64_t reversedOf16(std::uint64_t pixel) {
    const std::uint64_t swapped = std::rotl(pixel, 32); // blue, alpha, red, green
    return (swapped & (low16 | low16 << 32)) | (pixel & low16 << 16);
}

/// The samples that `kept` brings together, with the bits of `flipped` turned over. Answers how many words it read: all
/// but at most three.
template <std::uint64_t (*kept)(std::uint64_t), std::uint64_t flipped>
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
        putWord(target, (first | second << 48) ^ flipped);
        putWord(target + 8, (second >> 16 | third << 32) ^ flipped);
        putWord(target + 16, (third >> 32 | fourth << 16) ^ flipped);
        target += 24;
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

/// Three planes, of the samples that each of the functions gives for a pixel. The buffer is gone through once, and the
/// samples are collected in small blocks first: a vector that is resized would be written twice.
template <class Sample, class First, class Second, class Third>
std::array<base::Data, 3> planes(std::size_t count, First first, Second second, Third third) {
    constexpr std::size_t blockSize = 4096;
    std::array<Sample, blockSize> block;
    std::array<base::Data, 3> result;
    for (base::Data& plane : result)
        plane.bytes.reserve(count * sizeof(Sample));
    for (std::size_t begin = 0; begin < count; begin += blockSize) {
        const std::size_t filled = std::min(blockSize, count - begin);
        const auto append = [&](base::Data& plane, auto& sampleOf) {
            for (std::size_t i = 0; i < filled; ++i)
                block[i] = sampleOf(begin + i);
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(block.data());
            plane.bytes.insert(plane.bytes.end(), bytes, bytes + filled * sizeof(Sample));
        };
        append(result[0], first);
        append(result[1], second);
        append(result[2], third);
    }
    return result;
}

template <class Sample>
auto component(const std::uint8_t* pixels, std::size_t index) {
    return [=](std::size_t pixel) { return sampleAt<Sample>(pixels, componentsPerPixel * pixel + index); };
}

template <class Sample>
auto complementOf(const std::uint8_t* pixels, std::size_t index) {
    return [=](std::size_t pixel) { return complement(sampleAt<Sample>(pixels, componentsPerPixel * pixel + index)); };
}

std::array<base::Data, 3> planesOf8(const std::uint8_t* pixels, std::size_t count, bool cmy) {
    using Sample = std::uint8_t;
    if (cmy)
        return planes<Sample>(count, complementOf<Sample>(pixels, 2), complementOf<Sample>(pixels, 1),
                              complementOf<Sample>(pixels, 0));
    return planes<Sample>(count, component<Sample>(pixels, 0), component<Sample>(pixels, 1),
                          component<Sample>(pixels, 2));
}

/// What those who print from planes of 16 bits have always been given, and rely on: of each component nothing but the
/// low byte of its sample.
std::array<base::Data, 3> lowBytesOf16(const std::uint8_t* pixels, std::size_t count) {
    using Sample = std::uint16_t;
    const auto lowByte = [=](std::size_t index) {
        return
            [sample = component<Sample>(pixels, index)](std::size_t pixel) -> Sample { return sample(pixel) & 0xFF; };
    };
    return planes<Sample>(count, lowByte(0), lowByte(1), lowByte(2));
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
    using Sample = std::uint16_t;
    constexpr std::size_t samplesBehind = 8 / sizeof(Sample);
    const auto behindWritePosition = [=](std::size_t pixel) -> Sample {
        const std::size_t writePosition = componentsKept * pixel;
        return sampleAt<Sample>(pixels, writePosition + samplesBehind);
    };
    const auto nothing = [](std::size_t) -> Sample { return 0; };
    const auto second = complementOf<Sample>(pixels, 2);
    const auto third = complementOf<Sample>(pixels, 0);
    return count == 1 ? planes<Sample>(count, nothing, second, third)
                      : planes<Sample>(count, behindWritePosition, second, third);
}

} // namespace

void compactPixels(base::Data& buffer, int bitsPerComponent, bool cmy) {
    const bool is16 = bitsPerComponent == 16;
    const std::size_t bytesPerSample = is16 ? 2 : 1;
    const std::size_t count = buffer.size() / (componentsPerPixel * bytesPerSample);
    const std::size_t wordCount = buffer.size() / sizeof(std::uint64_t);
    std::uint8_t* bytes = buffer.bytes.data();
    if (is16) {
        const std::size_t words = cmy ? compactWords<reversedOf16, ~std::uint64_t{}>(bytes, wordCount)
                                      : compactWords<keptOf16, 0>(bytes, wordCount);
        compactRest<std::uint16_t>(bytes, words, count, cmy);
    } else {
        const std::size_t words = cmy ? compactWords<reversedOf8, ~std::uint64_t{}>(bytes, wordCount)
                                      : compactWords<keptOf8, 0>(bytes, wordCount);
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
