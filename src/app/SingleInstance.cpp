#include "app/SingleInstance.h"

#include "app/VELM.h"
#include "base/Path.h"
#include "base/Places.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <sys/file.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>

namespace app {

namespace {

using namespace std::chrono_literals;

struct flock wholeFile() {
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    return range;
}

/// Which process holds the record lock: the system's own word, unlike a number in the file, which outlives its writer.
/// Nothing while nobody holds it, 0 for one that can't be seen from here (another machine or container).
std::optional<pid_t> recordHolder(int descriptor) {
    struct flock range = wholeFile();
    if (fcntl(descriptor, F_GETLK, &range) != 0 || range.l_type == F_UNLCK) return std::nullopt;
    return range.l_pid > 0 ? range.l_pid : 0;
}

std::string holderText(std::optional<pid_t> holder) {
    if (!holder || *holder == 0) return "another process";
    std::string program;
    std::getline(std::ifstream("/proc/" + std::to_string(*holder) + "/comm"), program);
    if (program == "velmctl") program = "velmctl watch";
    if (program.empty()) program = "process";
    return "another " + program + " (process " + std::to_string(*holder) + ")";
}

} // namespace

base::Result<SingleInstance> SingleInstance::take() {
    const std::string folder = base::places().settings;
    std::optional<base::Error> unmade;
    if (!VELM::makeDirectory(base::URL::fileURLWithPath(folder), [&](const base::Error& error) { unmade = error; }))
        return base::failure(*unmade);
    const std::string path = base::appendingPathComponent(folder, "engine.lock");
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0) return base::failure(base::systemError(errno, "cannot open " + path));
    SingleInstance instance(descriptor);

    // A holder takes the second lock, which tells its number, a moment after the first; one that is just ending lets go
    // of both. So a look that finds the first taken and nobody there is repeated.
    constexpr int looks = 20;
    std::optional<pid_t> holder;
    for (int look = 0; look < looks && !holder; ++look) {
        if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
            struct flock range = wholeFile();
            static_cast<void>(
                fcntl(descriptor, F_SETLK, &range)); // only tells who it is: without it, "another process"
            return instance;
        }
        if (errno != EWOULDBLOCK)
            return base::failure(base::systemError(
                errno, "cannot lock " + path + ", which keeps two engines apart (the file system must have locks)"));
        holder = recordHolder(descriptor);
        if (!holder) std::this_thread::sleep_for(5ms);
    }
    return base::failure(base::posixErrorDomain, EWOULDBLOCK,
                         holderText(holder) + " runs with the settings in " + folder);
}

SingleInstance::~SingleInstance() {
    if (descriptor_ >= 0) close(descriptor_);
}

} // namespace app
