// WebP by libwebp. Opening reads the chunks; pixels are decoded once for each reading, those of a still picture only
// around the wanted region.
#include "Animation.h"
#include "BitmapSource.h"
#include "ExifBlock.h"
#include "PictureFormat.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <string_view>
#include <webp/decode.h>
#include <webp/demux.h>

namespace platform::draw {

namespace {

constexpr std::uint32_t maximumFrames = 10000;

class Container {
public:
    explicit Container(base::Data contents) : contents_(std::move(contents)) {
        const WebPData data{contents_.bytes.data(), contents_.size()};
        demuxer_ = WebPDemux(&data);
    }
    ~Container() { WebPDemuxDelete(demuxer_); }
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

    bool isWhole() const { return demuxer_ != nullptr; }
    std::uint32_t feature(WebPFormatFeature which) const { return WebPDemuxGetI(demuxer_, which); }

    std::vector<std::uint8_t> chunk(const char* name) const {
        WebPChunkIterator chunk{};
        std::vector<std::uint8_t> content;
        if (WebPDemuxGetChunk(demuxer_, name, 1, &chunk))
            content.assign(chunk.chunk.bytes, chunk.chunk.bytes + chunk.chunk.size);
        WebPDemuxReleaseChunkIterator(&chunk);
        return content;
    }

    /// Calls `use` with each frame in order.
    template <class Use>
    void forEachFrame(Use use) const {
        WebPIterator frame{};
        for (int more = WebPDemuxGetFrame(demuxer_, 1, &frame); more; more = WebPDemuxNextFrame(&frame))
            use(frame);
        WebPDemuxReleaseIterator(&frame);
    }

    WebPData frameBytes(std::size_t index) const {
        WebPIterator frame{};
        WebPData bytes{};
        if (WebPDemuxGetFrame(demuxer_, static_cast<int>(index) + 1, &frame)) bytes = frame.fragment;
        WebPDemuxReleaseIterator(&frame);
        return bytes;
    }

private:
    base::Data contents_;
    WebPDemuxer* demuxer_ = nullptr;
};

base::Result<std::unique_ptr<Container>> openContainer(const ByteSource& bytes) {
    auto contents = allBytes(bytes);
    if (!contents) return base::failure(contents.error());
    auto container = std::make_unique<Container>(std::move(*contents));
    if (!container->isWhole()) return pictureFailure(bytes, "the file is cut off or broken");
    return container;
}

/// The part of a coded picture; `part` begins at even places.
base::Result<Bitmap> decoded(const ByteSource& bytes, const WebPData& coded, const PixelRect& part, bool isWhole,
                             bool opaque, const ColorSpaceRef& colorSpace) {
    auto bitmap = Bitmap::createUninitialized(part.width, part.height, colorSpace, opaque);
    if (!bitmap) return bitmap;
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return pictureFailure(bytes, "the library is of another version");
    if (!isWhole) {
        config.options.use_cropping = 1;
        config.options.crop_left = part.x;
        config.options.crop_top = part.y;
        config.options.crop_width = part.width;
        config.options.crop_height = part.height;
    }
    config.output.colorspace = MODE_BGRA;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = bitmap->mutablePixels();
    config.output.u.RGBA.stride = static_cast<int>(bitmap->stride());
    config.output.u.RGBA.size = bitmap->byteCount();
    const VP8StatusCode status = WebPDecode(coded.bytes, coded.size, &config);
    if (status != VP8_STATUS_OK) {
        constexpr std::string_view reasons[] = {"",
                                                "no memory",
                                                "a parameter is wrong",
                                                "the picture is broken",
                                                "a feature is not supported",
                                                "the picture is suspended",
                                                "the reading was ended",
                                                "the file is cut off"};
        return pictureFailure(bytes, reasons[std::clamp<std::size_t>(status, 1, std::size(reasons) - 1)]);
    }
    if (!opaque)
        for (int y = 0; y < bitmap->height(); ++y)
            premultiply(bitmap->mutableRow(y), static_cast<std::size_t>(bitmap->width()));
    return bitmap;
}

class WebpSource final : public PixelSource {
public:
    WebpSource(std::shared_ptr<const ByteSource> bytes, std::shared_ptr<const Animation> animation, int width,
               int height, std::size_t index, ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)), animation_(std::move(animation)) {
        width_ = width;
        height_ = height;
        opaque_ = animation_->isOpaque(index);
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
        index_ = index;
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        const auto container = openContainer(*bytes_);
        if (!container) return base::failure(container.error());
        PixelRect part{0, 0, width_, height_};
        if (animation_->count() == 1 && animation_->frame(0).rectangle == part) {
            // Smooth enlargement of colour looks at the pixels around.
            constexpr int margin = 2;
            const int left = (region.x & ~1) - margin;
            const int top = (region.y & ~1) - margin;
            part = part.intersection({left, top, region.maxX() + margin - left, region.maxY() + margin - top});
            return readerOf(decoded(*bytes_, (*container)->frameBytes(0), part,
                                    part.width == width_ && part.height == height_, opaque_, colorSpace_),
                            part, region);
        }
        const auto decodeFrame = [&](std::size_t index) {
            const AnimationFrame& frame = animation_->frame(index);
            return decoded(*bytes_, (*container)->frameBytes(index), frame.rectangle, true, !frame.hasAlpha,
                           colorSpace_);
        };
        return readerOf(animation_->canvasShowing(index_, colorSpace_, decodeFrame, *bytes_), part, region);
    }

private:
    static base::Result<std::unique_ptr<BandReader>> readerOf(base::Result<Bitmap> bitmap, const PixelRect& part,
                                                              const PixelRect& region) {
        if (!bitmap) return base::failure(bitmap.error());
        return BitmapSource(std::move(*bitmap))
            .open({region.x - part.x, region.y - part.y, region.width, region.height}, 1);
    }

    std::shared_ptr<const ByteSource> bytes_;
    std::shared_ptr<const Animation> animation_;
};

} // namespace

base::Result<std::vector<Picture>> openWebp(std::shared_ptr<const ByteSource> bytes) {
    const auto opened = openContainer(*bytes);
    if (!opened) return base::failure(opened.error());
    const Container& container = **opened;
    const std::uint32_t width = container.feature(WEBP_FF_CANVAS_WIDTH);
    const std::uint32_t height = container.feature(WEBP_FF_CANVAS_HEIGHT);
    if (auto checked = checkPictureSize(*bytes, width, height); !checked) return base::failure(checked.error());
    const std::uint32_t count = container.feature(WEBP_FF_FRAME_COUNT);
    if (count == 0) return pictureFailure(*bytes, "it has no picture");
    if (count > maximumFrames) return pictureFailure(*bytes, "it has too many frames");

    auto animation = std::make_shared<Animation>(static_cast<int>(width), static_cast<int>(height));
    container.forEachFrame([&](const WebPIterator& from) {
        AnimationFrame frame;
        frame.rectangle = {from.x_offset, from.y_offset, from.width, from.height};
        frame.hasAlpha = from.has_alpha != 0;
        frame.replaces = from.blend_method == WEBP_MUX_NO_BLEND;
        frame.disposal = from.dispose_method == WEBP_MUX_DISPOSE_BACKGROUND ? Disposal::clear : Disposal::keep;
        animation->add(frame, static_cast<std::uint64_t>(from.width) * static_cast<std::uint64_t>(from.height));
    });

    const std::vector<std::uint8_t> profile = container.chunk("ICCP");
    const ColorSpaceRef space = colorSpaceOfProfile(profile.data(), profile.size(), 3, ColorSpace::sRGB());
    std::vector<std::uint8_t> exif = container.chunk("EXIF");
    // Some programs put JPEG's mark in front.
    if (exif.size() > exifMark.size() && std::equal(exifMark.begin(), exifMark.end(), exif.begin()))
        exif.erase(exif.begin(), exif.begin() + static_cast<std::ptrdiff_t>(exifMark.size()));

    std::vector<Picture> pictures;
    for (std::size_t i = 0; i < animation->count(); ++i) {
        Picture picture;
        if (i == 0) picture.exif = exif;
        picture.pixels =
            std::make_shared<WebpSource>(bytes, animation, static_cast<int>(width), static_cast<int>(height), i, space);
        pictures.push_back(std::move(picture));
    }
    if (pictures.empty()) return pictureFailure(*bytes, "it has no picture");
    return pictures;
}

} // namespace platform::draw
