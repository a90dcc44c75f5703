#include "InstanceLock.h"

#include "app/VELM.h"
#include "base/Path.h"
#include "base/Places.h"

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace velmctl {

base::Result<InstanceLock> InstanceLock::take(std::string_view name) {
    const std::string folder = base::places().settings;
    std::optional<base::Error> unmade;
    if (!VELM::makeDirectory(base::URL::fileURLWithPath(folder), [&](const base::Error& error) { unmade = error; }))
        return base::failure(*unmade);
    const std::string path = base::appendingPathComponent(folder, base::appendingPathExtension(name, "lock"));
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0) return base::failure(base::systemError(errno, "cannot open " + path));
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) return InstanceLock(descriptor);
    const int reason = errno;
    close(descriptor);
    if (reason == EWOULDBLOCK)
        return base::failure(base::posixErrorDomain, EWOULDBLOCK,
                             "another velmctl " + std::string(name) + " runs with the settings in " + folder);
    return base::failure(base::systemError(reason, "cannot lock " + path));
}

InstanceLock::~InstanceLock() {
    if (descriptor_ >= 0) close(descriptor_);
}

} // namespace velmctl
