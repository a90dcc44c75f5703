// The bytes of a picture: a file or memory. A file is opened anew for each reading and must still be the one that was
// seen first. Immutable; any thread. A ByteReader belongs to one thread.
#pragma once

#include "base/Error.h"
#include "base/Path.h"
#include "base/Value.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace platform::draw {

/// What tells one picture file (or picture in memory) from every other and from its own later contents.
struct ContentIdentity {
    std::uint64_t device = 0; ///< 0 for a picture in memory, whose `inode` is a number of its own.
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0; ///< Nanoseconds.
    friend auto operator<=>(const ContentIdentity&, const ContentIdentity&) = default;
};

/// A fresh identity for a picture in memory.
ContentIdentity newMemoryIdentity();

class ByteReader {
public:
    virtual ~ByteReader() = default;
    /// Reads up to `count` bytes at `position`; fewer only at the end, 0 behind it. Nothing on a read error.
    virtual std::size_t read(std::uint64_t position, void* target, std::size_t count) = 0;
    virtual std::uint64_t size() const = 0;
};

class ByteSource {
public:
    static base::Result<std::shared_ptr<const ByteSource>> ofFile(const base::URL& url);
    static std::shared_ptr<const ByteSource> ofData(base::Data data);
    virtual ~ByteSource() = default;

    virtual base::Result<std::unique_ptr<ByteReader>> open() const = 0;
    const ContentIdentity& identity() const { return identity_; }
    /// For messages: the path, or "the data".
    const std::string& name() const { return name_; }

protected:
    ByteSource(ContentIdentity identity, std::string name) : identity_(identity), name_(std::move(name)) {}

private:
    ContentIdentity identity_;
    std::string name_;
};

/// All of them at once, for libraries that want a file so. Fails for more than a gigabyte.
base::Result<base::Data> allBytes(const ByteSource& source);

/// The error of a picture that can't be read: "cannot read NAME: why".
tl::unexpected<base::Error> pictureFailure(const ByteSource& bytes, std::string_view why);

} // namespace platform::draw
