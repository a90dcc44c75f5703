// The one wrapper of a raster image, or of a styled text that is drawn like one. Its class operations are a toolbox on
// any image object; an instance is a little drawing job: a source with crop, forced orientation, gravity, rotation,
// shadow, border and background, drawn by draw() into a bitmap context at a destination rectangle (y up).
//
// Orientation is the EXIF number 1 to 8. An instance is mutable and used by one thread at a time; a context may be
// handed from one instance to the next. Class operations may be called on any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "imaging/ImageObject.h"
#include "imaging/KLARON_color.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/CodeReader.h"
#include "platform/draw/Image.h"
#include "platform/draw/ImageMetadata.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PDFDocument.h"
#include "platform/draw/TextFrame.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::string_view kCAGravityResize = "resize";
inline constexpr std::string_view kCAGravityResizeAspect = "resizeAspect";
inline constexpr std::string_view kCAGravityResizeAspectFill = "resizeAspectFill";

// Options of KLARON_Image::writeImage.
inline constexpr std::string_view klaronImageKey_exifComment = "klaronImage_exifComment";
inline constexpr std::string_view klaronImageKey_exifNote = "klaronImage_exifNote";
inline constexpr std::string_view klaronImageKey_downsample = "klaronImage_downsample";
inline constexpr std::string_view klaronImageKey_maxPixelLength = "klaronImage_maxPixelLength";
inline constexpr std::string_view klaronImageKey_utType = "klaronImage_utType";
inline constexpr std::string_view klaronImageKey_lossyCompressionQuality = "klaronImage_lossyCompressionQuality";
inline constexpr std::string_view klaronImageKey_overwriteExistingFile = "klaronImage_overwriteExistingFile";

/// Where an operation puts its error; null when the caller has no place, and the error goes to the log. Cleared at the
/// start of each operation that takes one.
using ErrorPlace = std::optional<base::Error>*;
/// Where an operation adds the files that it wrote, under the names that they got; null when nobody asks.
using WrittenFiles = std::vector<base::URL>*;

class KLARON_Image : public base::Object {
public:
    using ImageRef = platform::draw::ImageRef;
    using ImageSourceRef = platform::draw::ImageSourceRef;
    using ColorSpaceRef = platform::draw::ColorSpaceRef;
    using BitmapContextRef = platform::draw::BitmapContextRef;
    using Metadata = std::optional<base::Dictionary>;

    // -- Opening and metadata ------------------------------------------------------------------------------------

    /// From a path, a URL or data; null for anything else and for what is no image. No option is known.
    static ImageSourceRef CGImageSourceCreateWithObject(const ImageObject& object, const base::Dictionary& withOptions);
    static ImageSourceRef createCGImageSourceFromObject(const ImageObject& object);
    /// The image of index 0, and its properties when a place for them is given (cleared first).
    static ImageRef createCGImageFromObject(const ImageObject& object, Metadata* properties = nullptr);
    /// Each image of the source in order, with its index and properties.
    static void imageFromObject(const ImageObject& object,
                                const std::function<void(const ImageRef&, std::size_t, const Metadata&)>& reply);
    /// Properties of index 0; nothing without a source.
    static Metadata metaDataForImageSource(const ImageSourceRef& source);
    /// Properties of index 0 of an image object; nothing when it can't be opened.
    static Metadata metaDataForImage(const ImageObject& object);
    static std::optional<int> tiffOrientationForMetadata(const platform::draw::ImageMetadata& metadata);
    static std::optional<int> orientationForImage(const ImageObject& object);
    /// Radians: pi for orientation 3, pi/2 for 6, -pi/2 for 8, nothing for all others.
    static std::optional<double> rotationForImage(const ImageObject& object);
    static std::optional<double> rotationForImageMetaData(const Metadata& metaData);
    /// Always the identity.
    static base::AffineTransform drawingTransformForImage(const ImageObject& object);
    /// Upright size in pixels with `oriented`; without it always the zero size.
    static base::Size sizeForImageMetaData(const Metadata& metaData, bool oriented);
    static base::Size sizeForImageMetaData(const Metadata& metaData) { return sizeForImageMetaData(metaData, false); }
    static base::Size orientedSizeForImageMetaData(const Metadata& metaData) {
        return sizeForImageMetaData(metaData, true);
    }
    /// The zero size for everything but a KLARON_Image: ask orientedSizeForImage for real sizes.
    static base::Size sizeForImage(const ImageObject& object);
    static base::Size orientedSizeForImage(const ImageObject& object);

    // -- Making instances ----------------------------------------------------------------------------------------

    KLARON_Image() = default;
    static KLARON_ImageRef initWithCGImageSource(ImageSourceRef source);
    static KLARON_ImageRef initWithCGImage(ImageRef image, Metadata metaData = std::nullopt);
    /// The border of a text does not lie over it: borderClipsContent is off.
    static KLARON_ImageRef initWithAttributedString(platform::draw::AttributedText text);
    /// From an image, or from what createCGImageSourceFromObject opens, or a text that names an image
    /// (platform/draw/NamedImages.h); null for anything else.
    static KLARON_ImageRef imageWithObject(const ImageObject& object);
    static KLARON_ImageRef imageWithDrawingString(std::string_view text,
                                                  const std::optional<platform::draw::TextAttributes>& attributes);
    static KLARON_ImageRef
    imageWithDrawingString(platform::draw::AttributedText text,
                           const std::optional<platform::draw::TextAttributes>& attributes = std::nullopt);
    /// An upright thumbnail of at most 1000 pixels, kept for the life of the process; null for an image that is not a
    /// file or data.
    static KLARON_ImageRef previewImageWithObject(const ImageObject& object);
    /// The first page of the PDF document at a path or URL, fitted into a new sRGB picture of `size`, rounded to whole
    /// pixels: centred, and a small page enlarged to its height; what sticks out is cut off. Alpha (0 to 1, opaque
    /// when absent) is that of the page and of the background, which fills the picture. Null with an error, which is
    /// not logged unless the object is of the wrong kind, when there is no such picture. (KLARON_Image_pdf.cpp)
    static KLARON_ImageRef imageWithPDFObject(const ImageObject& object, base::Size size, ErrorPlace error);
    static KLARON_ImageRef imageWithPDFObject(const ImageObject& object, base::Size size, std::optional<double> alpha,
                                              ErrorPlace error);
    static KLARON_ImageRef imageWithPDFObject(const ImageObject& object, base::Size size, std::optional<double> alpha,
                                              const std::optional<std::string>& backgroundColorCode, ErrorPlace error);
    /// The same of a page at hand; it must not be null.
    static KLARON_ImageRef imageWithPDFPage(const platform::draw::PDFPageRef& page, base::Size size,
                                            std::optional<double> alpha,
                                            const std::optional<std::string>& backgroundColorCode, ErrorPlace error);

    // -- Geometry ------------------------------------------------------------------------------------------------

    const ImageRef& cgImage();
    const Metadata& metaData();
    int orientationNatural();
    int orientation();
    /// Pixels as they lie in the file.
    base::Size actualSize();
    /// actualSize without metadata; the zero size with it.
    base::Size size();
    /// Width and height exchanged for orientation 6 and 8; unchanged for all others, 5 and 7 among them.
    static base::Size orientedSizeForOrientation(int orientation, base::Size size);
    base::Size orientedSizeForSize(base::Size size);
    base::Size orientedSize();
    base::Size naturalOrientedSize();
    /// The image's, or a new sRGB space without an image.
    ColorSpaceRef colorSpace();
    platform::draw::AlphaInfo alphaInfo();

    // -- Drawing -------------------------------------------------------------------------------------------------

    /// Makes the context to draw on, in the image's space and with its alpha; null, with a log line, for a size that
    /// is not positive.
    BitmapContextRef drawingContextWithCanvasSize(base::Size size);
    /// Logs an error and answers null when there is none.
    BitmapContextRef drawingContext();
    void setDrawingContext(BitmapContextRef context);
    base::Size drawingContextSize() const;
    /// Draws with the style below at destinationRect. Problems are logged; a picture that can't be decoded sets the
    /// context's draw error.
    void draw();
    /// What draw() would draw where, before the rotation: the rectangle that the content fills (y up; the null
    /// rectangle when a border leaves nothing of it), and the part of the upright picture (in whole pixels from its top
    /// left, as it stands with `orientation`) that shows in it. That is empty for a text and when the crop misses the
    /// picture. A zero destinationRect stands for the drawing context, if there is one.
    struct Placement {
        base::Rect content;
        base::Rect shown;
    };
    Placement drawingPlacement();
    /// Strokes inside the frame.
    void drawBorderforFrame(const base::Rect& frame, double width, const platform::draw::Color& color, double corner);
    /// Scaled so that the longer side is `maximum`; null when the context can't be made or the picture not decoded.
    ImageRef copyWithMaxDimension(double maximum);
    /// `rect` is in the coordinates of the upright picture, from its top left. Null when it misses the image.
    ImageRef croppedImage(const ImageRef& image, const base::Rect& rect, int orientation);
    ImageRef croppedImage(const ImageRef& image, const base::Rect& rect);
    ImageRef croppedImageWithRect(const base::Rect& rect);
    void renderStringInDrawingRect(const platform::draw::AttributedText& text, const base::Rect& rect);
    static void renderStringToContextInRect(const platform::draw::AttributedText& text, const BitmapContextRef& context,
                                            const base::Rect& rect);

    /// Style; each setter is a plain store.
    base::Rect destinationRect() const { return destinationRect_; }
    void setDestinationRect(const base::Rect& rect) { destinationRect_ = rect; }
    bool hasShadow() const { return hasShadow_; }
    void setHasShadow(bool hasShadow) { hasShadow_ = hasShadow; }
    base::Size shadowOffset() const { return shadowOffset_; }
    void setShadowOffset(base::Size offset) { shadowOffset_ = offset; }
    double shadowBlur() const { return shadowBlur_; }
    void setShadowBlur(double blur) { shadowBlur_ = blur; }
    const std::optional<std::string>& shadowColorCode() const { return shadowColorCode_; }
    void setShadowColorCode(std::optional<std::string> code) { shadowColorCode_ = std::move(code); }
    bool hasBorder() const { return hasBorder_; }
    void setHasBorder(bool hasBorder) { hasBorder_ = hasBorder; }
    /// On: the border lies over the content's edge. Off: around a content made smaller.
    bool borderClipsContent() const { return borderClipsContent_; }
    void setBorderClipsContent(bool clips) { borderClipsContent_ = clips; }
    base::Size borderOffset() const { return borderOffset_; }
    void setBorderOffset(base::Size offset) { borderOffset_ = offset; }
    double borderWidth() const { return borderWidth_; }
    void setBorderWidth(double width) { borderWidth_ = width; }
    const std::optional<std::string>& borderColorCode() const { return borderColorCode_; }
    void setBorderColorCode(std::optional<std::string> code) { borderColorCode_ = std::move(code); }
    const std::optional<std::string>& backgroundColorCode() const { return backgroundColorCode_; }
    void setBackgroundColorCode(std::optional<std::string> code) { backgroundColorCode_ = std::move(code); }
    double aspectRatioAlpha() const { return aspectRatioAlpha_; }
    void setAspectRatioAlpha(double value) { aspectRatioAlpha_ = value; }
    double growFactorAlpha() const { return growFactorAlpha_; }
    void setGrowFactorAlpha(double value) { growFactorAlpha_ = value; }
    std::optional<int> orientationForced() const { return orientationForced_; }
    void setOrientationForced(std::optional<int> orientation) { orientationForced_ = orientation; }
    /// kCAGravityResizeAspect, kCAGravityResizeAspectFill; anything else or nothing stretches.
    const std::optional<std::string>& contentsGravity() const { return contentsGravity_; }
    void setContentsGravity(std::optional<std::string> gravity) { contentsGravity_ = std::move(gravity); }
    /// Radians about the destination's centre; positive turns clockwise.
    std::optional<double> rotation() const { return rotation_; }
    void setRotation(std::optional<double> radians) { rotation_ = radians; }
    /// In pixels of the upright picture from its top left, or in 0..1 of them; empty for no crop.
    base::Rect cropRect() const { return cropRect_; }
    void setCropRect(const base::Rect& rect) { cropRect_ = rect; }
    bool isNormalizedCropRect() const { return isNormalizedCropRect_; }
    void setIsNormalizedCropRect(bool normalized) { isNormalizedCropRect_ = normalized; }

    // -- Writing (KLARON_Image_writing.cpp) -----------------------------------------------------------------------

    /// Encodes the image to each destination: a path text, a URL, or an array of these. Options stand under the keys
    /// above. The extension of each is replaced by that of the type. Answers the result of the last destination that
    /// came to be encoded. Without overwriting, a file of any process that stands or appears at the name stays, and the
    /// next number is taken.
    static bool writeImage(const ImageRef& image, const base::Value& destination, const base::Dictionary& options,
                           ErrorPlace returningError, WrittenFiles writtenFiles = nullptr);
    static bool writeImage(const ImageRef& image, const base::Value& destination, ErrorPlace returningError);
    /// Copies a JPEG file without touching its picture data and merges the comment into its metadata. `source` is a
    /// path, URL or data; `destination` a path or URL.
    static bool writeImageFile(const ImageObject& source, const base::Value& destination,
                               const std::optional<std::string>& addingEXIFUserComment, bool overwriteExisting,
                               ErrorPlace returningError, WrittenFiles writtenFiles = nullptr);
    /// In place.
    static bool setEXIFUserComment(const std::optional<std::string>& comment, const base::Value& image,
                                   ErrorPlace returningError);
    static std::optional<std::string> getEXIFUserCommentForImage(const ImageObject& object);
    static bool makeEnclosingDirectoryForFileURL(const base::URL& url, ErrorPlace returningError);
    /// The URL itself when no file exists there, else the first free one of "a 1.jpg", "a 2.jpg"...
    static base::URL URLWithoutOverwriting(const base::URL& url);

    // -- Reading codes (KLARON_Image_codes.cpp) -------------------------------------------------------------------

    /// The message of the first QR code in a picture, from its top, that a path or URL names; nothing, with a log line,
    /// when that can't be read. Further ones are logged.
    static std::optional<std::string> decodedBarcodeImage(const ImageObject& object);
    using BarcodesReply =
        std::function<void(const std::vector<platform::draw::FoundCode>& results, const std::optional<base::Error>&)>;
    /// Calls the reply once, before it returns, with the codes of all kinds; an empty list and the error when the
    /// picture that the path or URL names can't be read.
    static void detectBarcodesInImage(const ImageObject& object, const BarcodesReply& result);

    // -- Plain pixels (KLARON_Image_deep.cpp) ----------------------------------------------------------------------

    /// The first picture of a path, URL or data as pixels of 16 bits a component: red, green, blue and premultiplied
    /// alpha, in the machine's order of bytes, 8 bytes a pixel, rows from the top without gaps. Nothing for anything
    /// else and for what is no picture; zeros for a picture that is broken or cut off.
    ///
    /// Orientation 3 is turned by half a turn, 5 and 6 by a quarter turn counter-clockwise, 7 and 8 by one clockwise,
    /// 1, 2 and 4 not at all; nothing is mirrored. So 1 and 3 come upright, 6 and 8 upside down.
    ///
    /// `properties` receives "width" and "height" of the result, "bitsPerComponent" 16, "alphaInfo" 1 and
    /// "colorSpace", a ColorSpaceValue: the picture's own space when it is RGB, else sRGB.
    static std::optional<base::Data> rgbaBitmapDataWithObject(const ImageObject& object,
                                                              Metadata* properties = nullptr);
    /// The reverse: an image in memory of pixels that such a dictionary describes; "bitsPerComponent" may be 16 or 8
    /// (16 when absent), "alphaInfo" 1 (when absent) or 5, for 8 bits also 2 or 6. A row has the data's length divided
    /// by the height. Null for other layouts and for data that are too short.
    static ImageRef imageFromBitmapData(const base::Data& data, const base::Dictionary& properties);

    // -- Helpers -------------------------------------------------------------------------------------------------

    /// Division and multiplication of each coordinate by the size; zero for a size with a side of 0.
    static base::Rect normalizedRect(const base::Rect& rect, base::Size size);
    static base::Point normalizedPoint(base::Point point, base::Size size);
    static base::Rect denormalizedRect(const base::Rect& rect, base::Size size);
    static base::Point denormalizedPoint(base::Point point, base::Size size);

    /// An image as a member of an attribute dictionary.
    static std::shared_ptr<ImageValue> imageFromCGImage(const ImageRef& image);

    // Ends without an effect: no picture has alpha frames, and the TIFF is made ready in memory only.
    std::optional<std::vector<base::Rect>> alphaFrames() const { return std::nullopt; }
    base::Rect largestAlphaFrame() const { return {}; }
    base::Rect alphaFrame() const { return {}; }
    static base::Rect alphaFrameForImage(const ImageObject&, [[maybe_unused]] bool normalized) { return {}; }
    static void saveJPEGImageAsTIFF(const ImageObject& object);

    // As in KLARON_color, but an absent code is logged.
    static KLARON_color::Components colorComponentsForHexCode(std::optional<std::string_view> code);
    static std::string hexcodeForColor(const platform::draw::Color& color);
    static std::string hexcodeForColorIgnoringAlpha(const platform::draw::Color& color);
    static std::string hexcodeForColor(const platform::draw::Color& color, bool includingAlpha);
    static platform::draw::Color createColorWithHexcode(std::optional<std::string_view> code,
                                                        const ColorSpaceRef& space = nullptr);
    // On the instance's own cache.
    void setColorWithHexcodeForKey(std::string_view code, std::string_view key);
    KLARON_color::ColorRef colorForKey(std::string_view key) const;
    KLARON_color::ColorRef colorForHexcode(std::optional<std::string_view> code);

    std::string className() const override { return "KLARON_Image"; }

private:
    /// One run of draw(): the context, what is left of the image and the rectangles, as the steps change them.
    struct DrawingState;
    void place(DrawingState& state);
    void applyCrop(DrawingState& state);
    void applyGravity(DrawingState& state);
    void drawContent(DrawingState& state);

    ImageSourceRef imageSource_;
    ImageRef cgImageInternal_;
    ColorSpaceRef colorSpace_;
    BitmapContextRef drawingContext_;
    std::map<std::string, KLARON_color::ColorRef, std::less<>> cgColorsDict_;
    Metadata metaData_;
    std::optional<platform::draw::AttributedText> stringInternal_;

    base::Rect destinationRect_;
    bool hasShadow_ = false;
    base::Size shadowOffset_;
    double shadowBlur_ = 0;
    std::optional<std::string> shadowColorCode_ = "#00000055";
    bool hasBorder_ = false;
    bool borderClipsContent_ = true;
    base::Size borderOffset_;
    double borderWidth_ = 10;
    std::optional<std::string> borderColorCode_ = "#FFFFFFFF";
    std::optional<std::string> backgroundColorCode_;
    double aspectRatioAlpha_ = 0;
    double growFactorAlpha_ = 0;
    bool isNormalizedCropRect_ = false;
    std::optional<int> orientationForced_;
    std::optional<std::string> contentsGravity_;
    std::optional<double> rotation_;
    base::Rect cropRect_;
};
