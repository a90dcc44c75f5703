// Writes one image to a file or to memory, with its ICC profile and metadata, and copies of picture files with changed
// metadata. A file is written aside, row by row, and appears whole under its name when it is finalized, or not at all.
// An object of one thread; the functions belong to any.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/draw/Image.h"
#include "platform/draw/ImageMetadata.h"

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace platform::draw {

/// The name to try when a file stands at this one; it never answers a name that it was asked for.
using NextName = std::function<base::URL(const base::URL& taken)>;

class ImageDestination {
public:
    /// Type identifiers that can be written: "public.jpeg", "public.png", "public.tiff", "public.heic",
    /// "com.adobe.photoshop-image", "com.adobe.pdf".
    static bool canWriteType(std::string_view typeIdentifier);
    static std::vector<std::string_view> writableTypeIdentifiers();

    /// Opens the file to write beside `url`. An error for a type that can't be written and for a place that can't be
    /// written to; nothing is left behind. A file that stands there is replaced; with `nextName` none is, also not one
    /// that appears meanwhile: the picture gets the first name that is free when it is finalized.
    static base::Result<std::unique_ptr<ImageDestination>>
    createWithURL(const base::URL& url, std::string_view typeIdentifier, NextName nextName = {});
    /// Collects the bytes in memory.
    static base::Result<std::unique_ptr<ImageDestination>> createWithData(std::string_view typeIdentifier);
    /// Without finalize() the file that was begun is removed.
    virtual ~ImageDestination() = default;

    /// The image to write, in its own colour space, and its properties: those for which canWriteProperty answers yes,
    /// and kCGImageDestinationLossyCompressionQuality (0 to 1, 0.8 when absent). JPEG subsamples colour below quality
    /// 0.9 and lays transparent pixels on white. With kCGImagePropertyDepth 16, an image that holds 16 bits keeps them
    /// in PNG and TIFF files; all others are written with 8. A later call replaces an earlier one.
    virtual void addImage(ImageRef image, base::Dictionary properties) = 0;
    /// Encodes and writes. A picture that can't be decoded whole fails here and leaves no file.
    virtual base::Result<void> finalize() = 0;
    /// The written file, after finalize(); no URL of a file for a destination in memory.
    virtual base::URL url() const = 0;
    /// The written bytes, after finalize() of a destination in memory.
    virtual base::Data takeData() = 0;
};

/// A copy of a picture file of this type in which these properties are set and nothing else changes: its coded pixels
/// stay byte for byte, and so do all tags that the properties don't name or that have the same value already.
/// Properties as ImageSource tells them ({ "Orientation": 1, "{Exif}": { "UserComment": "..." } }); nothing or an empty
/// text removes one. One that can't be written is logged and left out. JPEG, PNG, TIFF (its first page), WebP and PSD
/// can be copied; an error for all other types, and for a file that is not of the type or cut off.
base::Result<base::Data> copyOfImageFile(const base::Data& file, std::string_view typeIdentifier,
                                         const base::Dictionary& properties);

/// Writes the bytes of a picture file under the first free name, whole or not at all, and answers that name.
base::Result<base::URL> writeWithoutReplacing(const base::Data& bytes, const base::URL& url, NextName nextName);

} // namespace platform::draw
