// The names under which image properties stand in property dictionaries, and a set of metadata tags to merge into a
// file. Plain values; any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::draw {

// Top level of the properties of an image.
inline constexpr std::string_view kCGImagePropertyPixelWidth = "PixelWidth";   ///< integer
inline constexpr std::string_view kCGImagePropertyPixelHeight = "PixelHeight"; ///< integer
inline constexpr std::string_view kCGImagePropertyOrientation = "Orientation"; ///< integer, 1 to 8
inline constexpr std::string_view kCGImagePropertyColorModel = "ColorModel";   ///< "RGB", "Gray", "CMYK", "Lab"
inline constexpr std::string_view kCGImagePropertyProfileName = "ProfileName";
inline constexpr std::string_view kCGImagePropertyDepth = "Depth";       ///< bits per component
inline constexpr std::string_view kCGImagePropertyHasAlpha = "HasAlpha"; ///< boolean
inline constexpr std::string_view kCGImagePropertyDPIWidth = "DPIWidth";
inline constexpr std::string_view kCGImagePropertyDPIHeight = "DPIHeight";
inline constexpr std::string_view kCGImagePropertyExifDictionary = "{Exif}";
inline constexpr std::string_view kCGImagePropertyTIFFDictionary = "{TIFF}";
inline constexpr std::string_view kCGImagePropertyGPSDictionary = "{GPS}";
inline constexpr std::string_view kCGImagePropertyIPTCDictionary = "{IPTC}";

// In the EXIF dictionary.
inline constexpr std::string_view kCGImagePropertyExifUserComment = "UserComment";
inline constexpr std::string_view kCGImagePropertyExifMakerNote = "MakerNote";
inline constexpr std::string_view kCGImagePropertyExifDateTimeOriginal = "DateTimeOriginal";
inline constexpr std::string_view kCGImagePropertyExifDateTimeDigitized = "DateTimeDigitized";

// In the TIFF dictionary.
inline constexpr std::string_view kCGImagePropertyTIFFOrientation = "Orientation";
inline constexpr std::string_view kCGImagePropertyTIFFImageDescription = "ImageDescription";
inline constexpr std::string_view kCGImagePropertyTIFFMake = "Make";
inline constexpr std::string_view kCGImagePropertyTIFFModel = "Model";
inline constexpr std::string_view kCGImagePropertyTIFFSoftware = "Software";
inline constexpr std::string_view kCGImagePropertyTIFFDateTime = "DateTime";
inline constexpr std::string_view kCGImagePropertyTIFFArtist = "Artist";
inline constexpr std::string_view kCGImagePropertyTIFFCopyright = "Copyright";

// In the GPS dictionary.
inline constexpr std::string_view kCGImagePropertyGPSLatitude = "Latitude";       ///< degrees, never negative
inline constexpr std::string_view kCGImagePropertyGPSLatitudeRef = "LatitudeRef"; ///< "N" or "S"
inline constexpr std::string_view kCGImagePropertyGPSLongitude = "Longitude";
inline constexpr std::string_view kCGImagePropertyGPSLongitudeRef = "LongitudeRef"; ///< "E" or "W"

/// Destination option: 0 to 1.
inline constexpr std::string_view kCGImageDestinationLossyCompressionQuality =
    "kCGImageDestinationLossyCompressionQuality";

inline constexpr std::string_view imageMetadataErrorDomain = "kCFErrorDomainCGImageMetadata";

/// Whether this layer can write a property of a dictionary to a file; `dictionary` is empty for those of the top level.
bool canWriteProperty(std::string_view dictionary, std::string_view property);

/// A mutable set of tags, each named by the property dictionary and the property that it matches.
class ImageMetadata {
public:
    /// False for a property that can't be written.
    bool setValueMatchingImageProperty(std::string_view dictionary, std::string_view property, base::Value value);
    /// The value, or null.
    const base::Value* valueMatchingImageProperty(std::string_view dictionary, std::string_view property) const;
    /// { dictionary: { property: value } }.
    const base::Dictionary& dictionaries() const { return dictionaries_; }
    bool empty() const { return dictionaries_.empty(); }

private:
    base::Dictionary dictionaries_;
};

} // namespace platform::draw
