// The encoders of image files: a bitmap, row by row, into a sink. Any thread; a sink belongs to one.
#pragma once

#include "ByteSink.h"
#include "DeepRows.h"
#include "ExifBlock.h"
#include "platform/draw/Bitmap.h"

namespace platform::draw {

struct EncodingOptions {
    double quality = 0.8; ///< 0 to 1, for formats that lose
    Bytes exif;           ///< a TIFF structure; empty for none
    base::Dictionary properties;
};

using PictureEncoder = base::Result<void> (*)(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink);

/// Colour is subsampled (4:2:0) below quality 0.9. Transparent pixels lie on white.
base::Result<void> encodeJPEG(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink);
base::Result<void> encodePNG(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink);
/// Uncompressed; alpha stays premultiplied, and is said to be.
base::Result<void> encodeTIFF(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink);
/// One picture, with a layer that holds it too when it is not opaque.
base::Result<void> encodePSD(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink);
/// One page of a point a pixel, with the picture in JPEG compression. EXIF tags go into its XMP packet and its
/// information dictionary.
base::Result<void> encodePDF(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink);

/// Colour is subsampled (4:2:0); alpha is kept.
base::Result<void> encodeHEIC(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink);

/// The same of a picture of 16 bits, whose rows come from a reader.
using DeepPictureEncoder = base::Result<void> (*)(const Image& image, DeepPixelReader& rows,
                                                  const EncodingOptions& options, ByteSink& sink);
base::Result<void> encodeDeepPNG(const Image& image, DeepPixelReader& rows, const EncodingOptions& options,
                                 ByteSink& sink);
base::Result<void> encodeDeepTIFF(const Image& image, DeepPixelReader& rows, const EncodingOptions& options,
                                  ByteSink& sink);

/// `count` pixels of a bitmap's row as red, green, blue bytes, laid on white.
void opaqueRGBRow(const std::uint8_t* row, std::size_t count, std::uint8_t* target);

} // namespace platform::draw
