#include "ProfileFiles.h"

#include "platform/data/AtomicFile.h"

#include <algorithm>
#include <array>
#include <mutex>

using platform::draw::ColorSpace;
using platform::draw::ColorSpaceRef;

namespace print {

ColorSpaceRef colorSpaceOfFile(const base::URL& url) {
    const auto bytes = platform::data::readFile(url.path());
    if (!bytes) return nullptr;
    const auto space = ColorSpace::fromICC(bytes->bytes);
    if (!space) return nullptr;
    static std::mutex mutex;
    static std::array<ColorSpaceRef, 2> latest; // a DNP and a Mitsubishi printer side by side
    const std::lock_guard lock(mutex);
    if (latest[0] != *space) {
        std::swap(latest[0], latest[1]);
        latest[0] = *space;
    }
    return *space;
}

} // namespace print
