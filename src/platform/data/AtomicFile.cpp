#include "platform/data/AtomicFile.h"

#include "base/AsideFile.h"
#include "base/Path.h"
#include "internal/FileDescriptor.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::data {
namespace {

/// Where the bytes must land so that a symbolic link at `path` stays one.
std::string targetBehindLinks(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return path;
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

base::Result<base::AsideFile> createBeside(const std::string& target) {
    return base::AsideFile::create(base::deletingLastPathComponent(target), "cannot write " + target);
}

base::Result<void> writeAll(int descriptor, std::string_view bytes, const std::string& target) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return base::failure(base::systemError(errno, "cannot write " + target));
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
}

base::Result<void> bringToDisk(base::AsideFile& file, const std::string& target) {
    // Without the fsync a crash could leave the new name on a file without its contents.
    if (fsync(file.descriptor()) != 0 || !file.close())
        return base::failure(base::systemError(errno, "cannot write " + target));
    return {};
}

base::Result<FileDescriptor> openRegular(const std::string& path, const std::string& deed, struct stat& status) {
    // Without O_NONBLOCK a named pipe would make the caller wait for a writer.
    FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) return base::failure(base::systemError(errno, deed));
    if (fstat(file.get(), &status) != 0) return base::failure(base::systemError(errno, deed));
    if (S_ISDIR(status.st_mode)) return base::failure(base::systemError(EISDIR, deed));
    if (!S_ISREG(status.st_mode)) {
        return base::failure(base::posixErrorDomain, EINVAL, deed + ": it is not a regular file");
    }
    return file;
}

template <class Container>
base::Result<Container> readWhole(std::string_view pathView, std::size_t maximumSize) {
    const std::string deed = "cannot read " + std::string(pathView);
    struct stat status;
    auto opened = openRegular(std::string(pathView), deed, status);
    if (!opened) return base::failure(std::move(opened.error()));
    FileDescriptor file = std::move(*opened);
    const auto tooLarge = [&] {
        return base::failure(base::posixErrorDomain, EFBIG,
                             deed + ": it is larger than " + std::to_string(maximumSize) + " bytes");
    };
    if (static_cast<std::uint64_t>(status.st_size) > maximumSize) return tooLarge();

    // One byte more than the size tells a file that grows meanwhile (and files of /proc, whose size is 0).
    Container content;
    std::size_t length = 0;
    std::size_t room = static_cast<std::size_t>(status.st_size) + 1;
    for (;;) {
        content.resize(length + room);
        const ssize_t count = read(file.get(), content.data() + length, room);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return base::failure(base::systemError(errno, deed));
        length += static_cast<std::size_t>(count);
        if (length > maximumSize) return tooLarge();
        if (count == 0) break;
        room -= static_cast<std::size_t>(count);
        if (room == 0) room = 64 * 1024;
    }
    content.resize(length);
    return content;
}

} // namespace

base::Result<void> writeFileAtomically(std::string_view path, std::string_view bytes) {
    const std::string target = targetBehindLinks(std::string(path));
    struct stat present;
    const bool replaces = stat(target.c_str(), &present) == 0;
    if (replaces && S_ISDIR(present.st_mode)) return base::failure(base::systemError(EISDIR, "cannot write " + target));
    if (replaces && !S_ISREG(present.st_mode)) // a file in the place of a device would take that away
        return base::failure(base::posixErrorDomain, EINVAL, "cannot write " + target + ": it is not a regular file");

    auto made = createBeside(target);
    if (!made) return base::failure(std::move(made.error()));
    base::AsideFile file = std::move(*made);
    if (auto written = writeAll(file.descriptor(), bytes, target); !written) return written;
    if (replaces && fchmod(file.descriptor(), present.st_mode & 07777) != 0) {
        return base::failure(base::systemError(errno, "cannot write " + target));
    }
    if (auto saved = bringToDisk(file, target); !saved) return saved;
    if (rename(file.path().c_str(), target.c_str()) != 0) {
        return base::failure(base::systemError(errno, "cannot replace " + target));
    }
    file.keep();
    return {};
}

base::Result<void> renameWithoutReplacing(std::string_view from, std::string_view to) {
    const std::string source(from);
    const std::string target(to);
    const auto failed = [&](int number) {
        return base::failure(base::systemError(number, "cannot move " + source + " to " + target));
    };
    if (renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return {};
    if (errno != EINVAL && errno != ENOSYS) return failed(errno);
    // Some network volumes don't know the flag: there the target is looked at first.
    struct stat status;
    if (lstat(target.c_str(), &status) == 0) return failed(EEXIST);
    if (rename(source.c_str(), target.c_str()) != 0) return failed(errno);
    return {};
}

base::Result<void> writeNewFileAtomically(std::string_view path, std::string_view bytes) {
    const std::string target(path);
    struct stat present;
    if (lstat(target.c_str(), &present) == 0)
        return base::failure(base::systemError(EEXIST, "cannot write " + target)); // before all the bytes are written
    auto made = createBeside(target);
    if (!made) return base::failure(std::move(made.error()));
    base::AsideFile file = std::move(*made);
    if (auto written = writeAll(file.descriptor(), bytes, target); !written) return written;
    if (auto saved = bringToDisk(file, target); !saved) return saved;
    if (auto moved = renameWithoutReplacing(file.path(), target); !moved) return moved;
    file.keep();
    return {};
}

base::Result<base::Data> readFile(std::string_view path, std::size_t maximumSize) {
    auto bytes = readWhole<std::vector<std::uint8_t>>(path, maximumSize);
    if (!bytes) return base::failure(std::move(bytes.error()));
    return base::Data(std::move(*bytes));
}

base::Result<std::string> readFileBytes(std::string_view path, std::size_t maximumSize) {
    return readWhole<std::string>(path, maximumSize);
}

base::Result<base::Data> readFilePart(std::string_view path, std::uint64_t position, std::size_t count) {
    const std::string deed = "cannot read " + std::string(path);
    struct stat status;
    const auto file = openRegular(std::string(path), deed, status);
    if (!file) return base::failure(file.error());
    base::Data part;
    part.bytes.resize(count);
    std::size_t length = 0;
    while (length < count) {
        const ssize_t got =
            pread(file->get(), part.bytes.data() + length, count - length, static_cast<off_t>(position + length));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return base::failure(base::systemError(errno, deed));
        if (got == 0) break;
        length += static_cast<std::size_t>(got);
    }
    part.bytes.resize(length);
    return part;
}

} // namespace platform::data
