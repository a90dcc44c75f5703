#include "ByteSource.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::draw {

namespace {

ContentIdentity identityOf(const struct stat& status) {
    return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
            static_cast<std::uint64_t>(status.st_size),
            static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec};
}

// Reading rather than mapping: a mapped file that another process cuts short ends the process that reads it.
class FileReader final : public ByteReader {
public:
    FileReader(int file, std::uint64_t size) : file_(file), size_(size) {}
    ~FileReader() override { close(file_); }
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    std::size_t read(std::uint64_t position, void* target, std::size_t count) override {
        std::size_t done = 0;
        while (done < count) {
            const ssize_t got =
                pread(file_, static_cast<char*>(target) + done, count - done, static_cast<off_t>(position + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        return done;
    }
    std::uint64_t size() const override { return size_; }

private:
    int file_;
    std::uint64_t size_;
};

class FileBytes final : public ByteSource {
public:
    FileBytes(ContentIdentity identity, std::string path) : ByteSource(identity, path), path_(std::move(path)) {}

    base::Result<std::unique_ptr<ByteReader>> open() const override {
        // Not to wait on a pipe or a device that bears a picture's name.
        const int file = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (file < 0) return base::failure(base::systemError(errno, "cannot open " + path_));
        struct stat status {};
        auto reader = std::make_unique<FileReader>(file, identity().size);
        if (fstat(file, &status) != 0) return base::failure(base::systemError(errno, "cannot read " + path_));
        if (identityOf(status) != identity()) return pictureFailure(*this, "the file was changed while it was in use");
        return reader;
    }

private:
    std::string path_;
};

class MemoryBytes final : public ByteSource {
public:
    explicit MemoryBytes(base::Data data)
        : ByteSource(newMemoryIdentity(), "the data"), data_(std::make_shared<base::Data>(std::move(data))) {}

    base::Result<std::unique_ptr<ByteReader>> open() const override { return std::make_unique<Reader>(data_); }

private:
    class Reader final : public ByteReader {
    public:
        explicit Reader(std::shared_ptr<const base::Data> data) : data_(std::move(data)) {}
        std::size_t read(std::uint64_t position, void* target, std::size_t count) override {
            if (count == 0 || position >= data_->size()) return 0;
            count = std::min<std::size_t>(count, data_->size() - position);
            std::memcpy(target, data_->bytes.data() + position, count);
            return count;
        }
        std::uint64_t size() const override { return data_->size(); }

    private:
        std::shared_ptr<const base::Data> data_;
    };
    std::shared_ptr<const base::Data> data_;
};

} // namespace

ContentIdentity newMemoryIdentity() {
    static std::atomic<std::uint64_t> last{0};
    return {0, ++last, 0, 0};
}

base::Result<std::shared_ptr<const ByteSource>> ByteSource::ofFile(const base::URL& url) {
    if (!url.isFileURL())
        return base::failure(base::cocoaErrorDomain, 0, "cannot open " + url.absoluteString() + ": not a file");
    struct stat status {};
    if (stat(url.path().c_str(), &status) != 0)
        return base::failure(base::systemError(errno, "cannot open " + url.path()));
    if (!S_ISREG(status.st_mode))
        return base::failure(base::cocoaErrorDomain, 0, "cannot open " + url.path() + ": not a file");
    return std::make_shared<FileBytes>(identityOf(status), url.path());
}

std::shared_ptr<const ByteSource> ByteSource::ofData(base::Data data) {
    return std::make_shared<MemoryBytes>(std::move(data));
}

base::Result<base::Data> allBytes(const ByteSource& source) {
    constexpr std::uint64_t most = std::uint64_t{1} << 30;
    const auto reader = source.open();
    if (!reader) return base::failure(reader.error());
    if ((*reader)->size() > most) return pictureFailure(source, "the file is larger than a gigabyte");
    base::Data data;
    data.bytes.resize(static_cast<std::size_t>((*reader)->size()));
    if ((*reader)->read(0, data.bytes.data(), data.size()) != data.size())
        return pictureFailure(source, "the file is cut off");
    return data;
}

tl::unexpected<base::Error> pictureFailure(const ByteSource& bytes, std::string_view why) {
    return base::failure(base::cocoaErrorDomain, 0, "cannot read " + bytes.name() + ": " + std::string(why));
}

} // namespace platform::draw
