// One process at a time runs the engine with the same settings, whichever program it is: two engines on one folder
// would run each order twice. The rule holds for each home and user, since the lock stands in the settings folder. It
// is a lock on an open file, so it ends with its process, however that ends; the file itself stays and means nothing.
#pragma once

#include "base/Error.h"

#include <utility>

namespace app {

/// The right to run the engine, held until the object, or the process, ends. Any thread.
class SingleInstance {
public:
    /// An error with the code EWOULDBLOCK, naming the program and process that holds it, when another one does; any
    /// other error when there can be no lock, for example on a file system without locks.
    static base::Result<SingleInstance> take();

    SingleInstance(SingleInstance&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    SingleInstance& operator=(SingleInstance&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~SingleInstance();

private:
    explicit SingleInstance(int descriptor) : descriptor_(descriptor) {}
    int descriptor_ = -1;
};

} // namespace app
