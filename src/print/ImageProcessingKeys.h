// What stands in the dictionaries that the image processing of pages takes and gives, and how what is no plain value
// is held there. Any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/draw/ColorSpace.h"

#include <string>
#include <string_view>
#include <utility>

/// Options of KLARON_PrintPage::imagePreProcessWithOptions().
namespace PreProcessOption {
inline constexpr std::string_view isPreviewImage = "isPreviewImage"; ///< bool, else false: pixels are left square
inline constexpr std::string_view drawsCanvas = "DrawsCanvas";       ///< bool, else true: white behind what is missing
inline constexpr std::string_view urlImage = "urlImage";             ///< URL, else the first of the page's images
inline constexpr std::string_view imageFilters = "imageFilters";     ///< array of Filter, else the first of the page's
inline constexpr std::string_view imageGravity = "imageGravity";     ///< text, else the page's
inline constexpr std::string_view outputSize = "outputSize";         ///< text of a size, else the page's
inline constexpr std::string_view previewSize = "previewSize";       ///< text of a size, else none
} // namespace PreProcessOption

/// Properties of KLARON_PrintPage::imageRasterWithProperties(): in the first three, out all but "planar" and "cmy".
namespace RasterProperty {
inline constexpr std::string_view bitsPerComponent = "bitsPerComponent"; ///< 16 means 16, anything else 8
inline constexpr std::string_view planar = "planar";                     ///< bool
inline constexpr std::string_view cmy = "cmy";                           ///< bool
inline constexpr std::string_view width = "width";
inline constexpr std::string_view height = "height";
inline constexpr std::string_view numberOfComponents = "numberOfComponents"; ///< 3
inline constexpr std::string_view bytesPerRow = "bytesPerRow"; ///< of the buffer of four components that was worked in
inline constexpr std::string_view alphaInfo = "alphaInfo";     ///< 5: the fourth component was skipped
inline constexpr std::string_view colorSpace = "colorSpace";   ///< ColorSpaceObject
inline constexpr std::string_view error = "error";             ///< ErrorObject, alone: there is no raster
} // namespace RasterProperty

/// An error in a dictionary.
class ErrorObject : public base::Object {
public:
    explicit ErrorObject(base::Error error) : error_(std::move(error)) {}
    const base::Error& error() const { return error_; }
    std::string className() const override { return "NSError"; }
    std::string description() const override { return error_.localizedDescription; }

private:
    base::Error error_;
};

/// A colour space in a dictionary.
class ColorSpaceObject : public base::Object {
public:
    explicit ColorSpaceObject(platform::draw::ColorSpaceRef colorSpace) : colorSpace_(std::move(colorSpace)) {}
    const platform::draw::ColorSpaceRef& colorSpace() const { return colorSpace_; }
    std::string className() const override { return "CGColorSpace"; }
    std::string description() const override { return "<CGColorSpace " + colorSpace_->name() + ">"; }

private:
    platform::draw::ColorSpaceRef colorSpace_;
};
