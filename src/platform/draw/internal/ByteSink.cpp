#include "ByteSink.h"

#include "base/AsideFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::draw {
namespace {

// Errno's value when it fails, EEXIST when something stands at `to`.
int renameWithoutReplacing(const char* from, const char* to) {
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return errno;
    // A file system that can't (NFS, some FUSE ones) may know hard links.
    if (::link(from, to) == 0) {
        ::unlink(from);
        return 0;
    }
    if (errno != EPERM && errno != ENOSYS && errno != EOPNOTSUPP) return errno;
    struct stat status = {};
    if (::lstat(to, &status) == 0) return EEXIST;
    return ::rename(from, to) == 0 ? 0 : errno;
}

// The file to replace so that a symbolic link to it stays one.
std::string behindLinks(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? resolved.get() : path;
}

class FileSink : public ByteSink {
public:
    FileSink(std::FILE* file, base::AsideFile aside, std::string target, base::URL url, NextName nextName)
        : file_(file), aside_(std::move(aside)), target_(std::move(target)), url_(std::move(url)),
          nextName_(std::move(nextName)) {
        constexpr std::size_t bufferSize = 1 << 18;
        std::setvbuf(file_, nullptr, _IOFBF, bufferSize);
    }
    ~FileSink() override {
        if (file_) std::fclose(file_);
    }

    void write(const void* bytes, std::size_t count) override {
        if (failure_ || count == 0) return;
        if (std::fwrite(bytes, 1, count, file_) != count) return fail();
        position_ += count;
        size_ = std::max(size_, position_);
    }
    std::size_t read(void* bytes, std::size_t count) override {
        if (failure_) return 0;
        seek(position_); // between writing and reading the stream wants to be told
        const std::size_t got = std::fread(bytes, 1, count, file_);
        seek(position_ + got);
        return got;
    }
    void seek(std::uint64_t position) override {
        if (failure_) return;
        if (std::fseek(file_, static_cast<long>(position), SEEK_SET) != 0) return fail();
        position_ = position;
    }
    std::uint64_t position() const override { return position_; }
    std::uint64_t size() const override { return size_; }

    base::Result<void> commit() override {
        if (!failure_ && (std::fflush(file_) != 0 || ::fdatasync(::fileno(file_)) != 0)) fail();
        std::FILE* file = std::exchange(file_, nullptr);
        if (std::fclose(file) != 0 && !failure_) fail();
        if (failure_) return base::failure(*failure_);
        if (const int number = moveIntoPlace(); number != 0) {
            errno = number;
            fail();
            return base::failure(*failure_);
        }
        aside_.keep();
        return {};
    }
    std::optional<base::Error> failure() const override { return failure_; }
    base::URL url() const override { return url_; }
    base::Data takeData() override { return {}; }

private:
    void fail() { failure_ = base::systemError(errno, "cannot write " + url_.path()); }
    int moveIntoPlace() {
        const char* from = aside_.path().c_str();
        if (!nextName_) return ::rename(from, target_.c_str()) == 0 ? 0 : errno;
        while (true) {
            const int number = renameWithoutReplacing(from, url_.path().c_str());
            if (number != EEXIST) return number;
            url_ = nextName_(url_);
        }
    }

    std::FILE* file_;
    base::AsideFile aside_;
    std::string target_; // what a symbolic link at the URL's path leads to
    base::URL url_;
    NextName nextName_;
    std::uint64_t position_ = 0;
    std::uint64_t size_ = 0;
    std::optional<base::Error> failure_;
};

class MemorySink : public ByteSink {
public:
    void write(const void* bytes, std::size_t count) override {
        const auto* first = static_cast<const std::uint8_t*>(bytes);
        if (position_ + count > bytes_.size()) bytes_.resize(position_ + count);
        std::copy(first, first + count, bytes_.begin() + static_cast<std::ptrdiff_t>(position_));
        position_ += count;
    }
    std::size_t read(void* bytes, std::size_t count) override {
        const std::size_t got = position_ < bytes_.size() ? std::min(count, bytes_.size() - position_) : 0;
        std::memcpy(bytes, bytes_.data() + position_, got);
        position_ += got;
        return got;
    }
    void seek(std::uint64_t position) override { position_ = static_cast<std::size_t>(position); }
    std::uint64_t position() const override { return position_; }
    std::uint64_t size() const override { return bytes_.size(); }
    base::Result<void> commit() override { return {}; }
    base::URL url() const override { return {}; }
    base::Data takeData() override { return base::Data(std::move(bytes_)); }

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

} // namespace

base::Result<std::unique_ptr<ByteSink>> makeFileSink(const base::URL& url, NextName nextName) {
    const std::string& path = url.path();
    struct stat status = {};
    if (path.empty()) return base::failure(base::posixErrorDomain, EINVAL, "cannot write: no path of a file");
    const bool replaces = !nextName && ::stat(path.c_str(), &status) == 0;
    if (replaces && S_ISDIR(status.st_mode)) return base::failure(base::systemError(EISDIR, "cannot write " + path));
    if (replaces && !S_ISREG(status.st_mode)) // a picture in the place of a device would take that away
        return base::failure(base::posixErrorDomain, EINVAL, "cannot write " + path + ": it is not a regular file");
    const std::string target = replaces ? behindLinks(path) : path;
    auto made = base::AsideFile::create(base::deletingLastPathComponent(target), "cannot write " + path);
    if (!made) return base::failure(std::move(made.error()));
    base::AsideFile aside = std::move(*made);
    const bool keepsMode = !replaces || ::fchmod(aside.descriptor(), status.st_mode & 07777) == 0;
    std::FILE* file = keepsMode ? ::fdopen(aside.descriptor(), "w+b") : nullptr;
    if (!file) return base::failure(base::systemError(errno, "cannot write " + path));
    aside.takeDescriptor(); // the stream's
    return std::make_unique<FileSink>(file, std::move(aside), target, url, std::move(nextName));
}

std::unique_ptr<ByteSink> makeMemorySink() {
    return std::make_unique<MemorySink>();
}

} // namespace platform::draw
