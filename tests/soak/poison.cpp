// velm_soak_poison [--short] [--only WORDS] [--home DIR]: orders that are meant to break the engine, each followed by a
// good one. The good one must be completed in bounded time and memory, whatever becomes of the other; what the operator
// is told of that is printed.
#include "soak/support/Engine.h"
#include "soak/support/Figures.h"
#include "soak/support/SoakHome.h"

#include "base/Log.h"

#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using soak::OrderKind;
using soak::SoakHome;

enum class Fate { fails, completes, staysUnlisted };

struct Poison {
    const char* name;
    Fate fate;
    /// Puts what is special into a bundle that is otherwise good and not yet in its watched folder.
    std::function<void(const fs::path& bundle, const std::string& picture, int number)> spoil;
    bool isLong = false; ///< Not in the short form.
};

std::string littleEndian(std::uint32_t value) {
    return {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
            static_cast<char>(value >> 24)};
}

/// A bitmap that is as large as it says, without a byte of it on the disk.
void sparseBitmap(const fs::path& file, std::uint32_t width, std::uint32_t height) {
    const std::uint64_t size = 54 + std::uint64_t{width} * height * 3;
    SoakHome::write(file, "BM" + littleEndian(static_cast<std::uint32_t>(size)) + littleEndian(0) + littleEndian(54) +
                              littleEndian(40) + littleEndian(width) + littleEndian(height) +
                              std::string("\1\0\x18\0", 4) + std::string(24, '\0'));
    fs::resize_file(file, size);
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    all.reserve(text.size() * static_cast<std::size_t>(times));
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

void addTicketText(const fs::path& bundle, const std::string& picture, int number, const std::string& elements) {
    SoakHome::write(bundle / "job.xml",
                    SoakHome::ticketText(number, picture, "<image1>" + picture + "</image1>\n" + elements));
}

void makePipe(const fs::path& file) {
    if (mkfifo(file.c_str(), 0644) != 0) std::perror("cannot make a pipe");
}

void linkToEndlessDevice(const fs::path& file) {
    fs::create_symlink("/dev/zero", file);
}

std::string inlinePackage(const std::string& templateFile, const std::string& place) {
    return "<package type=\"inline\" name=\"made here\"><template name=\"print\"><filepath>" + templateFile +
           "</filepath></template><output name=\"print\"><print type=\"node\"/><destination "
           "type=\"filepath\"><filepath>" +
           place + "</filepath></destination></output></package>\n";
}

std::vector<Poison> poisons(const SoakHome& home) {
    const std::string place = home.products() / "Inline";
    const auto with = [](std::string elements) {
        return [elements = std::move(elements)](const fs::path& bundle, const std::string& picture, int number) {
            addTicketText(bundle, picture, number, elements);
        };
    };
    // Another thing in the place of the picture, or of the ticket.
    using Replace = void (*)(const fs::path& file);
    const auto picture = [](Replace replace) {
        return [replace](const fs::path& bundle, const std::string& name, int) {
            fs::remove(bundle / "Images" / name);
            replace(bundle / "Images" / name);
        };
    };
    const auto ticket = [](Replace replace) {
        return [replace](const fs::path& bundle, const std::string&, int) {
            fs::remove(bundle / "job.xml");
            replace(bundle / "job.xml");
        };
    };
    return {
        {"a picture of random bytes", Fate::fails,
         picture([](const fs::path& file) { SoakHome::write(file, std::string(5000, 'x')); })},
        {"an empty picture", Fate::fails, picture([](const fs::path& file) { SoakHome::write(file, ""); })},
        {"a picture that is a named pipe", Fate::fails, picture(makePipe)},
        {"a picture that is a device without an end", Fate::fails, picture(linkToEndlessDevice)},
        {"a picture that is a folder (as a missing one)", Fate::completes,
         picture([](const fs::path& file) { fs::create_directory(file); })},
        {"a picture of 30000 x 30000 (BMP, sparse, 2.7 GB)", Fate::fails,
         picture([](const fs::path& file) { sparseBitmap(file, 30'000, 30'000); })},
        {"a ticket that is a named pipe", Fate::staysUnlisted, ticket(makePipe)},
        {"a ticket without an end (/dev/zero)", Fate::staysUnlisted, ticket(linkToEndlessDevice)},
        {"a ticket of 200000 slots", Fate::staysUnlisted,
         with(repeated("<caption>more and more words of no use</caption>\n", 200'000)), true},
        {"a ticket of 200 MB", Fate::staysUnlisted,
         [](const fs::path& bundle, const std::string& photograph, int number) {
             constexpr std::uintmax_t size = 200'000'000;
             addTicketText(bundle, photograph, number, "");
             fs::resize_file(bundle / "job.xml", size);
         }},
        {"a ticket of 100000 nested elements", Fate::staysUnlisted,
         with(repeated("<a>", 100'000) + repeated("</a>", 100'000))},
        {"a ticket with an endless comment", Fate::staysUnlisted, with("<!--" + std::string(2'000'000, '-'))},
        {"no packages", Fate::fails,
         ticket([](const fs::path& file) { SoakHome::write(file, "<data type=\"VELM_Job\" version=\"1.0\"/>"); })},
        {"10000 packages that there are not", Fate::fails, with(repeated("<package name=\"None\"/>\n", 10'000)), true},
        {"10000 good packages", Fate::completes, with(repeated("<package name=\"Proofs\"/>\n", 10'000)), true},
        {"300 good packages", Fate::completes, with(repeated("<package name=\"Proofs\"/>\n", 300))},
        {"a package whose template is missing", Fate::fails, with(inlinePackage("None.xml", place))},
        {"a template of 1000000 x 1000000", Fate::fails,
         with("<package type=\"inline\" name=\"made here\"><template name=\"print\"><layout name=\"x\" "
              "size=\"{1000000, 1000000}\"><layer type=\"image\" zindex=\"1\" frame=\"{{0, 0}, {1000000, "
              "1000000}}\"><key>image1</key></layer></layout></template><output name=\"print\"><print "
              "type=\"node\"/><destination type=\"filepath\"><filepath>" +
              place + "</filepath></destination></output></package>\n")},
        {"an output folder below a device", Fate::fails, with(inlinePackage("Proof.xml", "/dev/null/prints"))},
        {"an output folder below a file", Fate::fails, with(inlinePackage("Proof.xml", "/etc/passwd/prints"))},
        {"an output folder that nobody can write", Fate::fails, with(inlinePackage("Proof.xml", "/proc/prints"))},
    };
}

/// What the log told last that an operator would look for.
class Telling {
public:
    void receive(std::string_view message) {
        const std::lock_guard lock(mutex_);
        if (message.find('\n') != message.npos) return; // lists of events and the like
        constexpr std::size_t tail = 5000;
        lines_.push_back(std::string(message.substr(0, 300)));
        if (lines_.size() > tail) lines_.erase(lines_.begin());
    }
    /// The last line since the last call that names the order, of the searches for its pictures and templates apart.
    std::string lastAbout(const std::string& order) {
        const std::lock_guard lock(mutex_);
        std::string last;
        for (const std::string& line : lines_)
            if (line.find(order) != std::string::npos && line.find("No such file") == std::string::npos) last = line;
        lines_.clear();
        return last;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

} // namespace

int main(int count, char** arguments) {
    const soak::Knobs knobs(count, arguments);
    auto& home = *new SoakHome(knobs.text("home")); // outlives the engine
    soak::EngineOptions options;
    options.home = home.path();
    auto& engine = *new soak::Engine(options);
    auto& telling = *new Telling;
    base::setLogSink([&telling](std::string_view message) { telling.receive(message); });
    std::string reason;
    std::mutex reasonMutex;
    auto observed = VELM_JobFolders::observeFinishedJobs([&](const VELM_JobFolders::FinishedJob& finished) {
        const std::lock_guard lock(reasonMutex);
        if (finished.error) reason = finished.error->localizedDescription;
    });

    soak::Figures figures;
    int number = 0;
    constexpr std::chrono::seconds limit(90);
    for (const Poison& poison : poisons(home)) {
        if (poison.isLong && knobs.isShort()) continue;
        if (std::string_view(poison.name).find(knobs.text("only")) == std::string_view::npos) continue;
        reason.clear();
        const std::int64_t completed = engine.completedCount();
        const std::int64_t failed = engine.failedCount();
        const auto start = std::chrono::steady_clock::now();

        const int poisoned = ++number;
        const fs::path made = home.makeOrder(poisoned, OrderKind::bundle);
        poison.spoil(made, SoakHome::pictureName(poisoned) + ".jpg", poisoned);
        const fs::path order = home.bundles() / made.filename();
        fs::rename(made, order);
        const bool ends = poison.fate != Fate::staysUnlisted;
        const auto isOver = [&] {
            return engine.completedCount() + engine.failedCount() >= completed + failed + (ends ? 1 : 0);
        };
        const bool isInTime = engine.runUntil(isOver, limit);
        const int good = ++number;
        home.addOrder(good, OrderKind::bundle);
        const bool nextRuns = engine.runUntil(
            [&] { return SoakHome::ordersIn(home.completed()).contains(good) && engine.isIdle(); }, limit);

        const bool hasFailed = engine.failedCount() > failed;
        const bool isListed = !fs::exists(order);
        const bool asMeant = poison.fate == Fate::fails       ? hasFailed
                             : poison.fate == Fate::completes ? !hasFailed && isListed
                                                              : !isListed;
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const auto footprint = soak::Footprint::ofThisProcess();
        std::string told;
        {
            const std::lock_guard lock(reasonMutex);
            const std::string logged = telling.lastAbout(SoakHome::pictureName(poisoned));
            told = !reason.empty()                             ? "failed: " + reason
                   : poison.fate == Fate::completes && asMeant ? "completed"
                   : logged.empty()                            ? "waits, and nothing is told"
                                                               : "waits; log: " + logged;
        }
        std::printf("%-50s %6.2f s %6lld MB peak  %s\n", poison.name, seconds,
                    static_cast<long long>(footprint.peakKilobytes / 1024), told.c_str());
        std::fflush(stdout);
        figures.promise(poison.name, isInTime && nextRuns && asMeant,
                        !isInTime   ? "it did not end"
                        : !nextRuns ? "the next order did not run"
                                    : "it was to have another fate");
        std::error_code ignored;
        fs::remove_all(order, ignored);
        if (!nextRuns) break;
    }
    constexpr std::int64_t allowedMegabytes = 2500;
    const std::int64_t peak = soak::Footprint::ofThisProcess().peakKilobytes / 1024;
    figures.promise("memory stays below 2.5 GB", peak < allowedMegabytes, std::to_string(peak) + " MB");
    const int status = figures.conclude("Orders that poison the engine");
    home.removeUnlessKept();
    soak::Engine::endProcess(status);
}
