// The lossless road: copies of picture files in which all is as it was, byte for byte, but for their metadata. One
// function for each container; each refuses a file that is not of its kind, or cut off. `properties` are those to set
// or to remove (ExifBlock.h). Pure functions; any thread.
#pragma once

#include "ExifBlock.h"
#include "base/Error.h"
#include "base/Value.h"

#include <optional>
#include <span>
#include <string_view>

namespace platform::draw {

using View = std::span<const std::uint8_t>;
using PictureCopier = base::Result<base::Data> (*)(View file, const base::Dictionary& properties);

base::Result<base::Data> copyJpeg(View file, const base::Dictionary& properties);
base::Result<base::Data> copyPng(View file, const base::Dictionary& properties);
/// New values stand behind the end; the pixels of no page move.
base::Result<base::Data> copyTiff(View file, const base::Dictionary& properties);
base::Result<base::Data> copyWebp(View file, const base::Dictionary& properties);
base::Result<base::Data> copyPsd(View file, const base::Dictionary& properties);

/// The block with the properties set; an unreadable one is replaced, with a log line.
base::Result<Bytes> mergedExif(View formerBlock, const base::Dictionary& properties);

/// Pixels an inch, when the properties set them; a missing one of the two is like the other.
struct Density {
    double width = 0;
    double height = 0;
};
std::optional<Density> densityIn(const base::Dictionary& properties);

/// "the source can't be copied as KIND: why".
tl::unexpected<base::Error> copyFailure(std::string_view kind, std::string_view why);

/// Whether the bytes stand at the position.
bool hasTextAt(View bytes, std::size_t position, std::string_view text);
void append(Bytes& target, View bytes);

} // namespace platform::draw
