// Sees to it that one process at a time does a thing with the same settings: two engines on one folder would run each
// order twice. Held until the object, or the process, ends.
#pragma once

#include "base/Error.h"

#include <string_view>
#include <utility>

namespace velmctl {

class InstanceLock {
public:
    /// An error when another process holds the lock of that name, or when there can be none.
    static base::Result<InstanceLock> take(std::string_view name);
    InstanceLock(InstanceLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    InstanceLock& operator=(InstanceLock&&) = delete;
    ~InstanceLock();

private:
    explicit InstanceLock(int descriptor) : descriptor_(descriptor) {}
    int descriptor_;
};

} // namespace velmctl
