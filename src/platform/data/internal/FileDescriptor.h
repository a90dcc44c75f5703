// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>
#include <utility>

namespace platform::data {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(std::exchange(other.number_, -1));
        return *this;
    }
    ~FileDescriptor() { close(); }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    void reset(int number) {
        close();
        number_ = number;
    }
    /// As close(2) answers; 0 when there is nothing to close.
    int close() { return number_ < 0 ? 0 : ::close(std::exchange(number_, -1)); }

private:
    int number_ = -1;
};

} // namespace platform::data
