#include "soak/faults_scene.h"

#include <chrono>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace soak {

namespace fs = std::filesystem;

namespace {

constexpr int haste = 20;
constexpr std::chrono::seconds limit(30);

} // namespace

Scene::Scene(Figures& figures, std::string name) : figures_(figures), name_(std::move(name)) {
    // Outside the home: the log is no part of what is tried here.
    logFile_ = home_.path().string() + ".log";
}

Scene::~Scene() {
    engine_.reset();
    for (const fs::path& volume : volumes_)
        umount2(volume.c_str(), MNT_DETACH);
    std::error_code ignored;
    fs::remove(logFile_, ignored);
}

bool Scene::mountVolume(const fs::path& folder, int kilobytes) {
    fs::create_directories(folder);
    const std::string options = "size=" + std::to_string(kilobytes) + "k,mode=0777";
    if (mount("velm-soak", folder.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        figures_.add(name_, "not tried: no volume can be mounted here");
        return false;
    }
    volumes_.push_back(folder);
    return true;
}

void Scene::start() {
    engine_ = std::make_unique<EngineProcess>(
        EngineOptions{.home = home_.path().string(), .haste = haste, .logFile = logFile_.string()});
    awaitLine(home_.bundles().filename().string()); // the event of the stream's start
}

int Scene::add(OrderKind kind) {
    const int number = static_cast<int>(orders_.size()) + 1;
    orders_.insert(number);
    home_.addOrder(number, kind);
    return number;
}

fs::path Scene::placeOf(int number, OrderKind kind) const {
    const std::string name = SoakHome::pictureName(number);
    return kind == OrderKind::ticket ? home_.tickets() / (name + ".xml") : home_.bundles() / (name + ".velm_job");
}

void Scene::expect(std::string_view what, const std::function<bool()>& done) {
    figures_.promise(name_ + ": " + std::string(what), waitUntil(done, limit));
}

bool Scene::isIn(const fs::path& folder, int number) const {
    return SoakHome::ordersIn(folder).contains(number);
}

void Scene::expectCompleted(int number) {
    expect("order " + std::to_string(number) + " is completed", [&] { return isIn(home_.completed(), number); });
}

void Scene::expectFailed(int number) {
    expect("order " + std::to_string(number) + " fails", [&] { return isIn(home_.failed(), number); });
}

std::string Scene::awaitLine(std::string_view part) {
    std::string line;
    waitUntil(
        [&] {
            const std::string log = contentsOf(logFile_);
            const std::size_t found = log.find(part, logBegin_);
            const std::size_t end = log.find('\n', found);
            if (found == log.npos || end == log.npos) return false;
            const std::size_t begin = log.rfind('\n', found) + 1;
            line = log.substr(begin, end - begin);
            logBegin_ = end;
            return true;
        },
        limit);
    return line;
}

void Scene::expectMessage(std::string_view part) {
    std::string line = awaitLine(part);
    if (line.empty()) {
        figures_.promise(name_ + ": a message with \"" + std::string(part) + "\"", false, "none came");
        return;
    }
    // Without the date and the process, and the home's own long name.
    const std::string home = home_.path().string();
    line.erase(0, line.find("] ") + 2);
    for (std::size_t found; (found = line.find(home)) != line.npos;)
        line.replace(found, home.size(), "HOME");
    figures_.add(name_ + ": told", line);
}

void Scene::dropAgain(int number) {
    const fs::path place = placeOf(number);
    const fs::path aside = home_.path() / "Arriving" / place.filename();
    fs::rename(place, aside);
    awaitLine("change to jobs in");
    fs::rename(aside, place);
}

void Scene::expectNothingLost(const std::set<int>& elsewhere) {
    std::vector<std::string> faults;
    std::multiset<int> found;
    for (const fs::path& folder : {home_.bundles(), home_.tickets(), home_.completed(), home_.failed()})
        for (const auto& [number, path] : SoakHome::ordersIn(folder))
            found.insert(number);
    for (const int number : orders_)
        if (const std::size_t places = found.count(number); places != (elsewhere.contains(number) ? 0 : 1))
            faults.push_back("order " + std::to_string(number) + " stands in " + std::to_string(places) + " places");
    figures_.promise(name_ + ": nothing lost, nothing doubled", faults);
}

FullVolume::FullVolume(const fs::path& folder) : file_(folder / "filling") {
    const int descriptor = open(file_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const std::string bytes(4096, 'x');
    const auto fill = [descriptor, bytes] {
        while (write(descriptor, bytes.data(), bytes.size()) > 0) {
        }
    };
    fill();
    // What is being written now may make room when it is done.
    filler_ = std::jthread([descriptor, fill](const std::stop_token& stop) {
        for (; !stop.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            fill();
        close(descriptor);
    });
}

FullVolume::~FullVolume() {
    filler_.request_stop();
    filler_.join();
    std::error_code ignored;
    fs::remove(file_, ignored);
}

} // namespace soak
