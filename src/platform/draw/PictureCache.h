// The process-wide cache of reduced pictures, and of decoded ones of which further sizes are made. Several drawings of
// one picture decode it once, also when they ask at the same moment on different threads: one decodes, the others wait
// for it. Bounded in bytes; what was used longest ago goes first. What is in the cache never changes what is drawn. Any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform::draw {

inline constexpr std::size_t defaultPictureCacheCapacity = 256u << 20;

struct PictureCacheStatistics {
    std::uint64_t hits = 0;      ///< Drawings at a size that was there, or that another thread was making.
    std::uint64_t misses = 0;    ///< Drawings at a new size.
    std::uint64_t decodings = 0; ///< Readings of a picture file, whole or in part, that some of the misses took.
    std::size_t bytes = 0;       ///< Held now.
};

/// Sets the bound in bytes, letting go what exceeds it. 0 keeps nothing.
void setPictureCacheCapacity(std::size_t bytes);
std::size_t pictureCacheCapacity();
void clearPictureCache();
PictureCacheStatistics pictureCacheStatistics();

/// While one of these lives, several drawings of the same pictures at different sizes are expected: decoded pictures of
/// up to half of the capacity are kept, rather than small ones only. They are let go when the last one ends.
class PictureSharing {
public:
    PictureSharing();
    ~PictureSharing();
    PictureSharing(const PictureSharing&) = delete;
    PictureSharing& operator=(const PictureSharing&) = delete;
};

} // namespace platform::draw
