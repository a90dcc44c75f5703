// ImageSource: a file or bytes that hold one or more pictures: JPEG, PNG, TIFF (its pages), HEIC (its top-level
// pictures, the primary one first), WebP and GIF (their frames, as they are shown), BMP, Photoshop's merged picture and
// PDF pages. Opening reads headers and metadata only. Immutable and shared: any thread may use one. A file is opened
// anew when pixels are needed; one that was changed in between fails to draw rather than mix two pictures.
#pragma once

#include "base/Error.h"
#include "base/Path.h"
#include "base/Value.h"
#include "platform/draw/Image.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace platform::draw {

class ByteSource;
class ImageSource;
class PixelSource;
using ImageSourceRef = std::shared_ptr<const ImageSource>;

class ImageSource {
public:
    /// Fails when the file can't be read, is no picture of a known kind, has a broken header, or announces more than
    /// maximumBitmapPixels (before any memory is taken for it).
    static base::Result<ImageSourceRef> createWithURL(const base::URL& url);
    static base::Result<ImageSourceRef> createWithData(base::Data data);

    /// The types of the contents that can be opened.
    static std::vector<std::string_view> typeIdentifiers();

    /// The type of the contents by their first bytes: "public.jpeg", "public.png", "public.tiff"...
    std::string_view typeIdentifier() const { return typeIdentifier_; }
    /// The number of pictures inside; at least 1.
    std::size_t count() const { return entries_.size(); }

    /// Null when there is no such picture. Decodes nothing.
    ImageRef imageAtIndex(std::size_t index) const;

    /// What is known of a picture without decoding it; empty when there is no such picture. "PixelWidth",
    /// "PixelHeight", "Depth" (bits a component), "HasAlpha", "ColorModel" ("RGB", "Gray", "CMYK"), "ProfileName" (of
    /// the space that it is taken for when it has no profile; none for CMYK), "Orientation" (1 to 8) when it states
    /// one, "DPIWidth", "DPIHeight" when it states them, and the dictionaries "{Exif}", "{TIFF}", "{GPS}" and "{IPTC}"
    /// of a file that has such metadata, keyed by the tags' names ("UserComment", "DateTimeOriginal", "Latitude").
    const base::Dictionary& propertiesAtIndex(std::size_t index) const;

    /// A picture in memory, at most `maxPixelSize` on its longer side (never enlarged), upright by its Orientation when
    /// `withTransform`. In the picture's own RGB space or else sRGB.
    base::Result<ImageRef> thumbnailAtIndex(std::size_t index, int maxPixelSize, bool withTransform,
                                            Quality quality = Quality::preview) const;

private:
    struct Entry {
        std::shared_ptr<const PixelSource> pixels;
        base::Dictionary properties;
    };
    ImageSource(std::string_view typeIdentifier, std::vector<Entry> entries);
    static base::Result<ImageSourceRef> create(std::shared_ptr<const ByteSource> bytes);

    std::string_view typeIdentifier_;
    std::vector<Entry> entries_;
};

} // namespace platform::draw
