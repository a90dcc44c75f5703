// Writes one image to a file or to memory: as JPEG, PNG or TIFF, with its ICC profile and metadata. A file is written
// aside, row by row, and appears whole under its name when it is finalized, or not at all. An object of one thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/draw/Image.h"
#include "platform/draw/ImageMetadata.h"

#include <memory>
#include <string_view>

namespace platform::draw {

class ImageDestination {
public:
    /// Type identifiers that can be written: "public.jpeg", "public.png", "public.tiff".
    static bool canWriteType(std::string_view typeIdentifier);

    /// Opens the file to write beside `url`. An error for a type that can't be written and for a place that can't be
    /// written to; nothing is left behind.
    static base::Result<std::unique_ptr<ImageDestination>> createWithURL(const base::URL& url,
                                                                         std::string_view typeIdentifier);
    /// Collects the bytes in memory.
    static base::Result<std::unique_ptr<ImageDestination>> createWithData(std::string_view typeIdentifier);
    /// Without finalize() the file that was begun is removed.
    virtual ~ImageDestination() = default;

    /// The image to write, in its own colour space, and its properties: kCGImagePropertyOrientation,
    /// kCGImagePropertyExifDictionary, kCGImageDestinationLossyCompressionQuality (0 to 1, 0.8 when absent). JPEG
    /// subsamples colour below quality 0.9 and lays transparent pixels on white. A later call replaces an earlier one.
    virtual void addImage(ImageRef image, base::Dictionary properties) = 0;
    /// Encodes and writes. A picture that can't be decoded whole fails here and leaves no file.
    virtual base::Result<void> finalize() = 0;
    /// The written bytes, after finalize() of a destination in memory.
    virtual base::Data takeData() = 0;
};

/// A copy of a JPEG file with its entropy-coded picture data byte for byte as it was and these tags merged into its
/// metadata; tags that are not named stay. An error for bytes that are no JPEG file. A zero-length value removes the
/// tag.
base::Result<base::Data> copyOfJPEGMergingMetadata(const base::Data& jpeg, const ImageMetadata& metadata);

} // namespace platform::draw
