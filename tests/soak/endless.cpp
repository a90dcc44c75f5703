// velm_soak_endless [--short] [--orders N] [--home DIR]: very many orders through one engine in one process. Orders are
// added as fast as they are run; memory, threads, descriptors and watches are sampled on the way and must stay flat
// once the first orders have warmed everything up.
#include "platform/draw/PictureCache.h"
#include "soak/support/Engine.h"
#include "soak/support/Figures.h"
#include "soak/support/SoakHome.h"

#include <algorithm>
#include <cstdio>
#include <malloc.h>
#include <vector>

namespace {

using soak::Footprint;
using soak::OrderKind;
using soak::SoakHome;

constexpr int ordersAtOnce = 40;
constexpr OrderKind kinds[] = {OrderKind::bundle, OrderKind::ticket,    OrderKind::bundle,
                               OrderKind::ticket, OrderKind::noPackage, OrderKind::brokenPicture};

struct Sample {
    std::int64_t orders;
    double seconds;
    Footprint footprint;
    std::size_t heap; ///< Bytes that the program holds of the allocator.
};

// The sanitizers keep memory of their own, and what was let go of for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif

std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void print(const std::vector<Sample>& curve) {
    std::printf("%8s %8s %10s %10s %10s %8s %12s %8s\n", "orders", "seconds", "RSS kB", "anon kB", "heap kB", "threads",
                "descriptors", "watches");
    for (const Sample& sample : curve)
        std::printf("%8lld %8.1f %10lld %10lld %10zu %8lld %12lld %8lld\n", static_cast<long long>(sample.orders),
                    sample.seconds, static_cast<long long>(sample.footprint.residentKilobytes),
                    static_cast<long long>(sample.footprint.anonymousKilobytes), sample.heap / 1024,
                    static_cast<long long>(sample.footprint.threads),
                    static_cast<long long>(sample.footprint.descriptors),
                    static_cast<long long>(sample.footprint.watches));
}

/// What grew from the end of the warm-up to the end by more than it may.
std::int64_t growth(const std::vector<Sample>& curve, std::int64_t (*value)(const Sample&)) {
    const std::size_t warm = std::max<std::size_t>(1, curve.size() / 10);
    // The best of each half after it: what grows for good is higher at every moment.
    const auto middle = curve.begin() + static_cast<std::ptrdiff_t>((curve.size() + warm) / 2);
    const auto least = [value](auto from, auto to) {
        std::int64_t lowest = value(*from);
        for (; from != to; ++from)
            lowest = std::min(lowest, value(*from));
        return lowest;
    };
    return least(middle, curve.end()) - least(curve.begin() + static_cast<std::ptrdiff_t>(warm), middle);
}

} // namespace

int main(int count, char** arguments) {
    const soak::Knobs knobs(count, arguments);
    const std::int64_t orders = knobs.number("orders", 300, 20'000);
    auto& home = *new SoakHome(knobs.text("home")); // outlives the engine
    soak::EngineOptions options;
    options.home = home.path();
    options.logFile = home.path() / "engine.log";
    constexpr std::size_t smallCache = 4 << 20; // full after a few orders, so that what grows is something else
    platform::draw::setPictureCacheCapacity(smallCache);
    auto& engine = *new soak::Engine(options);

    const auto start = std::chrono::steady_clock::now();
    const auto seconds = [start] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    std::vector<Sample> curve;
    const auto sample = [&](std::int64_t done) {
        curve.push_back({done, seconds(), Footprint::ofThisProcess(), heapInUse()});
    };
    const auto done = [&engine] { return engine.completedCount() + engine.failedCount(); };
    constexpr std::int64_t samples = 20;
    int added = 0;
    int expectedFailures = 0;
    bool isFinished = true;
    while (isFinished && done() < orders) {
        for (; added < orders && added - done() < ordersAtOnce; ++added) {
            const OrderKind kind = kinds[static_cast<std::size_t>(added) % std::size(kinds)];
            expectedFailures += SoakHome::isToFail(kind);
            home.addOrder(added, kind);
        }
        const std::int64_t next = std::min<std::int64_t>(orders, done() + ordersAtOnce / 2);
        isFinished = engine.runUntil([&] { return done() >= next; }, std::chrono::minutes(2));
        const auto due = static_cast<std::int64_t>(curve.size()) * orders / samples;
        if (done() >= due) sample(done());
    }
    isFinished = isFinished && engine.runUntil([&engine] { return engine.isIdle(); }, std::chrono::minutes(2));
    sample(done());
    const double took = seconds();
    print(curve);

    soak::Figures figures;
    figures.add("orders", orders);
    figures.add("orders a minute", 60 * static_cast<double>(orders) / took, "");
    figures.promise("each is run", isFinished && done() == orders, std::to_string(done()) + " were");
    figures.promise("each as it must", engine.failedCount() == expectedFailures,
                    std::to_string(engine.failedCount()) + " failed, " + std::to_string(expectedFailures) + " had to");
    const auto heapGrowth = growth(curve, [](const Sample& at) { return static_cast<std::int64_t>(at.heap / 1024); });
    const auto anonymousGrowth = growth(curve, [](const Sample& at) { return at.footprint.anonymousKilobytes; });
    const std::int64_t later = std::max<std::int64_t>(1, orders * 45 / 100); // orders between the two halves
    figures.add("the heap grew by, bytes an order",
                1024.0 * static_cast<double>(heapGrowth) / static_cast<double>(later), "");
    figures.add("memory grew by, bytes an order",
                1024.0 * static_cast<double>(anonymousGrowth) / static_cast<double>(later), "");
    // Fragments and caches find their size in the first thousands; a leak of one ticket an order would be 4 kB each.
    constexpr std::int64_t allowedKilobytes = 8 * 1024;
    if (!isSanitized)
        figures.promise("memory stays flat (within 8 MB)", anonymousGrowth <= allowedKilobytes,
                        std::to_string(anonymousGrowth) + " kB more");
    const struct {
        const char* name;
        std::int64_t (*value)(const Sample&);
        std::int64_t allowed;
    } counts[] = {{"threads stay flat", [](const Sample& at) { return at.footprint.threads; }, 16},
                  {"descriptors stay flat", [](const Sample& at) { return at.footprint.descriptors; }, 0},
                  {"watches stay flat", [](const Sample& at) { return at.footprint.watches; }, 0}};
    // Watches come and go with the bundles that wait, up to as many as wait at once.
    for (const auto& row : counts) {
        const std::int64_t grown = growth(curve, row.value);
        figures.promise(row.name, grown <= row.allowed, std::to_string(grown) + " more");
    }
    const int status = figures.conclude("Very many orders in one process");
    home.removeUnlessKept();
    soak::Engine::endProcess(status);
}
