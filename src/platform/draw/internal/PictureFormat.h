// The kinds of picture files that can be read: what their headers tell, and the sources of their pixels. One file for
// each format implements its `open...` function. Pure functions; any thread.
#pragma once

#include "ByteSource.h"
#include "PixelSource.h"
#include "base/Error.h"
#include "base/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace platform::draw {

/// One picture of a file.
struct Picture {
    std::shared_ptr<const PixelSource> pixels;
    int bitsPerComponent = 8;
    std::vector<std::uint8_t> exif; ///< A TIFF structure, without the "Exif" mark in front; empty for none.
    std::optional<double> dpiWidth;
    std::optional<double> dpiHeight;
    std::optional<int> orientation; ///< Stated outside of `exif`.
    base::Dictionary properties;    ///< What else is known: whole dictionaries, in place of those of `exif`.
};

struct PictureFormat {
    std::string_view typeIdentifier;
    /// Whether a file that begins with these bytes (up to 16) is of this format.
    bool (*recognizes)(std::string_view beginning);
    base::Result<std::vector<Picture>> (*open)(std::shared_ptr<const ByteSource> bytes);
};

base::Result<std::vector<Picture>> openJpeg(std::shared_ptr<const ByteSource> bytes);
base::Result<std::vector<Picture>> openPng(std::shared_ptr<const ByteSource> bytes);
base::Result<std::vector<Picture>> openTiff(std::shared_ptr<const ByteSource> bytes);
base::Result<std::vector<Picture>> openPsd(std::shared_ptr<const ByteSource> bytes);
/// The pages, at 72 pixels an inch.
base::Result<std::vector<Picture>> openPdf(std::shared_ptr<const ByteSource> bytes);
base::Result<std::vector<Picture>> openWebp(std::shared_ptr<const ByteSource> bytes);
base::Result<std::vector<Picture>> openGif(std::shared_ptr<const ByteSource> bytes);
base::Result<std::vector<Picture>> openBmp(std::shared_ptr<const ByteSource> bytes);
/// HEIC and other HEIF files that the library can decode.
base::Result<std::vector<Picture>> openHeic(std::shared_ptr<const ByteSource> bytes);

/// An error for sizes beyond what a bitmap may have: a few bytes of header must not take all memory.
base::Result<void> checkPictureSize(const ByteSource& bytes, std::uint64_t width, std::uint64_t height);

/// The space of a profile that has `components` components; `otherwise` when there is none, or it is broken or does
/// not fit.
ColorSpaceRef colorSpaceOfProfile(const std::uint8_t* profile, std::size_t size, int components,
                                  const ColorSpaceRef& otherwise);

/// Multiplies the colours of `pixels` four-sample pixels by their alpha.
void premultiply(std::uint8_t* row, std::size_t pixels);
void unpremultiply(std::uint8_t* row, std::size_t pixels);

} // namespace platform::draw
