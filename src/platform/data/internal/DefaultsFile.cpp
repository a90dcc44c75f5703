#include "DefaultsFile.h"

#include "FileDescriptor.h"
#include "base/Log.h"
#include "base/Path.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/Dates.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/PropertyList.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <thread>

namespace platform::data {
namespace {

constexpr std::size_t maximumDefaultsSize = std::size_t{64} << 20;
constexpr std::chrono::milliseconds lockPatience{10'000};
constexpr std::chrono::milliseconds lockInterval{5};

/// Waits for the lock, but not for ever: a stopped process may hold it.
base::Result<FileDescriptor> lockedFile(const std::string& path) {
    FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!file) return base::failure(base::systemError(errno, "cannot lock " + path));
    for (std::chrono::milliseconds waited{0}; waited < lockPatience; waited += lockInterval) {
        if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) return file;
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return base::failure(base::systemError(errno, "cannot lock " + path));
        }
        std::this_thread::sleep_for(lockInterval);
    }
    return base::failure(base::posixErrorDomain, ETIMEDOUT, "cannot lock " + path + ": another process holds it");
}

/// XML, which a person can read; binary where a text holds what XML can't.
base::Result<base::Data> serialized(const base::Dictionary& contents) {
    auto xml = propertyListData(contents, PropertyListFormat::xml);
    return xml ? xml : propertyListData(contents, PropertyListFormat::binary);
}

} // namespace

base::Result<base::Dictionary> DefaultsFile::read() const {
    const auto bytes = readFileBytes(path_, maximumDefaultsSize);
    if (!bytes) {
        if (bytes.error().domain == base::posixErrorDomain && bytes.error().code == ENOENT) return base::Dictionary();
        return base::failure(bytes.error());
    }
    auto value = parsePropertyList(*bytes);
    if (!value) {
        return base::failure(value.error().domain, value.error().code,
                             path_ + ": " + value.error().localizedDescription);
    }
    base::Dictionary* contents = value->as<base::Dictionary>();
    if (!contents) return base::failure(base::cocoaErrorDomain, 3840, path_ + " holds no dictionary");
    return std::move(*contents);
}

base::Result<base::Dictionary> DefaultsFile::readForWriting() const {
    auto contents = read();
    if (contents || contents.error().domain == base::posixErrorDomain) return contents;
    const std::string kept = path_ + ".damaged-" + stringWithUTSFormat(now(), "yyyyMMdd-HHmmss", "en_US_POSIX", "UTC");
    base::log("ERROR: %@; the file is kept as %@", contents.error(), kept);
    std::error_code error;
    std::filesystem::rename(path_, kept, error);
    if (error) return base::failure(base::systemError(error.value(), "cannot put aside " + path_));
    return base::Dictionary();
}

base::Result<DefaultsFile::State> DefaultsFile::update(const std::function<void(base::Dictionary&)>& change) const {
    std::error_code error;
    const std::string folder = base::deletingLastPathComponent(path_);
    std::filesystem::create_directories(folder, error);
    if (error) return base::failure(base::systemError(error.value(), "cannot make " + folder));
    const auto lock = lockedFile(base::appendingPathComponent(folder, "." + base::lastPathComponent(path_) + ".lock"));
    if (!lock) return base::failure(lock.error());

    auto contents = readForWriting();
    if (!contents) return base::failure(contents.error());
    base::Dictionary changed = *contents;
    change(changed);
    if (base::Value(changed) == base::Value(*contents)) return State{std::move(changed), generation()};
    const auto bytes = serialized(changed);
    if (!bytes) return base::failure(bytes.error());
    if (auto written = writeFileAtomically(path_, *bytes); !written) return base::failure(written.error());
    // Read under the lock, so that it belongs to these contents and no later ones.
    return State{std::move(changed), generation()};
}

std::string DefaultsFile::generation() const {
    return generationIdentifier(base::URL::fileURLWithPath(path_)).value_or("");
}

} // namespace platform::data
