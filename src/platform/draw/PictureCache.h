// The process-wide cache of reduced pictures. Several drawings of one picture at one size decode it once, also when
// they ask at the same moment on different threads: one decodes, the others wait for it. Bounded in bytes; what was
// used longest ago goes first. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform::draw {

inline constexpr std::size_t defaultPictureCacheCapacity = 256u << 20;

struct PictureCacheStatistics {
    std::uint64_t hits = 0;   ///< Answered from the cache, or by waiting for another thread's decoding.
    std::uint64_t misses = 0; ///< Decoded.
    std::size_t bytes = 0;    ///< Held now.
};

/// Sets the bound in bytes, letting go what exceeds it. 0 keeps nothing.
void setPictureCacheCapacity(std::size_t bytes);
std::size_t pictureCacheCapacity();
void clearPictureCache();
PictureCacheStatistics pictureCacheStatistics();

} // namespace platform::draw
