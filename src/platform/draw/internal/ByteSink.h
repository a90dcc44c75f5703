// Where encoders write: a file that appears under its name only when it is committed, or memory. Objects of one
// thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/draw/ImageDestination.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace platform::draw {

class ByteSink {
public:
    virtual ~ByteSink() = default;
    /// Writes at the present position and moves it. A failure is kept: later writes do nothing, and commit() reports
    /// it.
    virtual void write(const void* bytes, std::size_t count) = 0;
    /// Bytes that could be read.
    virtual std::size_t read(void* bytes, std::size_t count) = 0;
    virtual void seek(std::uint64_t position) = 0;
    virtual std::uint64_t position() const = 0;
    virtual std::uint64_t size() const = 0;
    virtual base::Result<void> commit() = 0;
    /// The first failure so far.
    virtual std::optional<base::Error> failure() const { return std::nullopt; }
    /// Where the bytes stand after commit(); no URL of a file for those in memory.
    virtual base::URL url() const = 0;
    /// The bytes of a sink in memory.
    virtual base::Data takeData() = 0;
};

/// A file beside `url` under a name of its own; commit() brings it to the disk and renames it, destruction without it
/// removes it. A file that it replaces keeps its mode, a symbolic link stays one. With `nextName` commit() replaces no
/// file, whichever process made it, but takes the next free name.
base::Result<std::unique_ptr<ByteSink>> makeFileSink(const base::URL& url, NextName nextName = {});
std::unique_ptr<ByteSink> makeMemorySink();

} // namespace platform::draw
