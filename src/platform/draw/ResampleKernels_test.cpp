#include "internal/ResampleKernels.h"

#include "internal/EveryTargetFixture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

using namespace platform::draw;
using fixtures::onEveryTarget;

namespace {

unsigned state = 1;
int randomBelow(int limit) {
    state = state * 1664525 + 1013904223;
    return static_cast<int>((state >> 8) % static_cast<unsigned>(limit));
}

} // namespace

TEST(AxisWeights, SumToOneAndStayInside) {
    struct Case {
        AxisMapping mapping;
        Subsampling subsampling;
        int samples;
    };
    for (const Case& test : {Case{{0, 100, 100, 0, 0, 100, 100}, {}, 100},
                             {{0, 6000, 1844, 0, 0, 1844, 6000}, {2, 1, true}, 3000},
                             {{10.5, 33.25, 700, 0.5, 100, 300, 50}, {}, 50},
                             {{0, 7, 0.25, 0.5, 0, 1, 7}, {2, 1, true}, 4},
                             {{0, 1, 50, 0, 0, 50, 1}, {}, 1},
                             {{0, 41, 10, 0, 0, 10, 41}, {4, 1, false}, 11}}) {
        const AxisWeights axis = axisWeights(test.mapping, test.subsampling, test.samples);
        ASSERT_EQ(axis.positions.size(), static_cast<std::size_t>(test.mapping.count));
        for (const auto& position : axis.positions) {
            EXPECT_GE(position.start, 0);
            EXPECT_LE(position.start + position.count, test.samples);
            int sum = 0;
            for (int i = 0; i < position.count; ++i)
                sum += axis.weights[static_cast<std::size_t>(position.offset + i)];
            EXPECT_EQ(sum, weightOne);
            for (int i = position.count; i % 8 != 0; ++i)
                EXPECT_EQ(axis.weights[static_cast<std::size_t>(position.offset + i)], 0);
        }
    }
    // At its own size a picture is passed through.
    const AxisWeights plain = axisWeights({5, 20, 20, 0, 0, 20, 30}, {}, 30);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(plain.positions[static_cast<std::size_t>(i)].start, 5 + i);
        EXPECT_EQ(plain.positions[static_cast<std::size_t>(i)].count, 1);
    }
}

TEST(ResampleKernels, AgreeWithPlainArithmeticOnEveryInstructionSet) {
    constexpr int samples = 203;
    std::vector<std::vector<std::uint8_t>> rows(9, std::vector<std::uint8_t>(samples + kernelSlack));
    for (auto& row : rows)
        for (auto& byte : row)
            byte = static_cast<std::uint8_t>(randomBelow(256));
    std::vector<const std::uint8_t*> pointers;
    for (const auto& row : rows)
        pointers.push_back(row.data());
    const AxisWeights axis = axisWeights({0, samples / 4, 37, 0, 0, 37, samples / 4}, {}, samples / 4);
    const AxisWeights wide = axisWeights({0, samples, 61, 0, 0, 61, samples}, {}, samples);

    onEveryTarget([&] {
        for (const int count : {1, 2, 5, 8, 9}) {
            std::vector<std::int16_t> weights(16, 0);
            int rest = weightOne;
            for (int t = 1; t < count; ++t)
                rest -= weights[static_cast<std::size_t>(t)] = static_cast<std::int16_t>(randomBelow(4000) - 900);
            weights[0] = static_cast<std::int16_t>(rest);
            std::vector<std::int16_t> out(samples + kernelSlack);
            filterColumns(pointers.data(), weights.data(), count, samples, out.data());
            for (int x = 0; x < samples; ++x) {
                int sum = 128;
                for (int t = 0; t < count; ++t)
                    sum += rows[static_cast<std::size_t>(t)][static_cast<std::size_t>(x)] *
                           weights[static_cast<std::size_t>(t)];
                ASSERT_EQ(out[static_cast<std::size_t>(x)], sum >> 8) << count << " " << x;
            }
        }
        std::vector<std::int16_t> in(4 * samples + kernelSlack);
        for (auto& sample : in)
            sample = static_cast<std::int16_t>(randomBelow(20000) - 2000);
        std::vector<std::int16_t> out(4 * samples + kernelSlack);
        const auto wanted = [&](const AxisWeights& weights, std::size_t i, int channels, int channel) {
            const auto& position = weights.positions[i];
            int sum = 1 << 13;
            for (int t = 0; t < position.count; ++t)
                sum += in[static_cast<std::size_t>((position.start + t) * channels + channel)] *
                       weights.weights[static_cast<std::size_t>(position.offset + t)];
            return sum >> 14;
        };
        filterRow(in.data(), wide, out.data());
        for (std::size_t i = 0; i < wide.positions.size(); ++i)
            ASSERT_EQ(out[i], wanted(wide, i, 1, 0)) << i;
        filterRow4(in.data(), axis, out.data());
        for (std::size_t i = 0; i < axis.positions.size(); ++i)
            for (int k = 0; k < 4; ++k)
                ASSERT_EQ(out[4 * i + static_cast<std::size_t>(k)], wanted(axis, i, 4, k)) << i;
    });
}

TEST(ResampleKernels, StoresRoundAndLimit) {
    constexpr std::size_t pixels = 77;
    std::vector<std::int16_t> a(pixels + kernelSlack), b(pixels + kernelSlack), c(pixels + kernelSlack);
    for (std::size_t i = 0; i < pixels; ++i) {
        a[i] = static_cast<std::int16_t>(randomBelow(22000) - 3000);
        b[i] = static_cast<std::int16_t>(randomBelow(16320));
        c[i] = static_cast<std::int16_t>(randomBelow(16320));
    }
    const auto limited = [](double value) { return std::clamp(value, 0.0, 255.0); };
    onEveryTarget([&] {
        std::vector<std::uint8_t> out(pixels * 4 + 1, 0xEE);
        storeRGB(a.data(), b.data(), c.data(), pixels, out.data());
        EXPECT_EQ(out.back(), 0xEE) << "nothing is written behind the last pixel";
        for (std::size_t i = 0; i < pixels; ++i) {
            ASSERT_NEAR(out[4 * i + 2], limited(a[i] / 64.0), 0.51);
            ASSERT_NEAR(out[4 * i + 1], limited(b[i] / 64.0), 0.51);
            ASSERT_NEAR(out[4 * i], limited(c[i] / 64.0), 0.51);
            ASSERT_EQ(out[4 * i + 3], 255);
        }
        storeYCbCr(a.data(), b.data(), c.data(), pixels, out.data());
        for (std::size_t i = 0; i < pixels; ++i) {
            const double y = a[i] / 64.0;
            const double u = b[i] / 64.0 - 128;
            const double v = c[i] / 64.0 - 128;
            ASSERT_NEAR(out[4 * i + 2], limited(y + 1.402 * v), 0.55) << i;
            ASSERT_NEAR(out[4 * i + 1], limited(y - 0.344136 * u - 0.714136 * v), 0.55) << i;
            ASSERT_NEAR(out[4 * i], limited(y + 1.772 * u), 0.55) << i;
        }
        storePlain(a.data(), pixels, out.data());
        for (std::size_t i = 0; i < pixels; ++i)
            ASSERT_NEAR(out[i], limited(a[i] / 64.0), 0.51);
    });
}
