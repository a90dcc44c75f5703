// GIF by giflib. Opening finds the frames and passes over their data; a reading decodes the frames that show.
#include "Animation.h"
#include "BitmapSource.h"
#include "PictureFormat.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <array>
#include <gif_lib.h>

namespace platform::draw {

namespace {

constexpr std::size_t maximumFrames = 10000;

class Decoder {
public:
    Decoder(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader)
        : bytes_(std::move(bytes)), reader_(std::move(reader)) {
        int error = 0;
        gif_ = DGifOpen(this, read, &error);
    }
    ~Decoder() {
        if (gif_) DGifCloseFile(gif_, nullptr);
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    bool isOpen() const { return gif_ != nullptr; }
    const GifFileType& gif() const { return *gif_; }
    const GraphicsControlBlock& control() const { return control_; }

    tl::unexpected<base::Error> failure() const {
        const char* text = gif_ ? GifErrorString(gif_->Error) : nullptr;
        return pictureFailure(*bytes_, ended_ ? "the file is cut off" : text ? text : "it is broken");
    }

    /// Goes on to the next frame, whose place then stands in gif().Image. False at the end.
    base::Result<bool> nextFrame() {
        control_ = {DISPOSAL_UNSPECIFIED, false, 0, NO_TRANSPARENT_COLOR};
        for (;;) {
            GifRecordType type = UNDEFINED_RECORD_TYPE;
            if (DGifGetRecordType(gif_, &type) == GIF_ERROR) {
                // The end mark alone may be missing.
                if (ended_ && found_ > 0) return false;
                return failure();
            }
            if (type == TERMINATE_RECORD_TYPE) return false;
            if (type == EXTENSION_RECORD_TYPE) {
                if (auto read = readExtension(); !read) return base::failure(read.error());
            } else if (type == IMAGE_DESC_RECORD_TYPE) {
                if (DGifGetImageDesc(gif_) == GIF_ERROR) return failure();
                ++found_;
                return true;
            }
        }
    }

    /// Passes over the data of the frame.
    base::Result<void> skipPixels() {
        int codeSize = 0;
        GifByteType* block = nullptr;
        if (DGifGetCode(gif_, &codeSize, &block) == GIF_ERROR) return failure();
        while (block)
            if (DGifGetCodeNext(gif_, &block) == GIF_ERROR) return failure();
        return {};
    }

    /// The part of the frame that is on the canvas: `visible`.
    base::Result<Bitmap> readPixels(const PixelRect& visible, bool opaque) {
        const GifImageDesc& place = gif_->Image;
        const ColorMapObject* map = place.ColorMap ? place.ColorMap : gif_->SColorMap;
        if (!map) return pictureFailure(*bytes_, "it has no palette");
        const auto palette = paletteOf(*map);
        auto bitmap = Bitmap::createUninitialized(visible.width, visible.height, ColorSpace::sRGB(), opaque);
        if (!bitmap) return bitmap;
        std::uint8_t* pixels = bitmap->mutablePixels();
        std::vector<GifPixelType> line(static_cast<std::size_t>(place.Width));
        const auto readLine = [&](int y) -> base::Result<void> {
            if (DGifGetLine(gif_, line.data(), place.Width) == GIF_ERROR) return failure();
            const int row = place.Top + y - visible.y;
            if (row < 0 || row >= visible.height) return {};
            const GifPixelType* from = line.data() + (visible.x - place.Left);
            std::uint8_t* to = pixels + static_cast<std::size_t>(row) * bitmap->stride();
            for (int x = 0; x < visible.width; ++x, to += 4)
                std::copy_n(palette[from[x]].data(), 4, to);
            return {};
        };
        struct Pass {
            int first;
            int step;
        };
        constexpr std::array<Pass, 4> interlaced{{{0, 8}, {4, 8}, {2, 4}, {1, 2}}};
        constexpr std::array<Pass, 1> straight{{{0, 1}}};
        const auto readPasses = [&](const auto& passes) -> base::Result<void> {
            for (const Pass& pass : passes)
                for (int y = pass.first; y < place.Height; y += pass.step)
                    if (auto read = readLine(y); !read) return read;
            return {};
        };
        const auto read = place.Interlace ? readPasses(interlaced) : readPasses(straight);
        if (!read) return base::failure(read.error());
        return bitmap;
    }

private:
    static int read(GifFileType* gif, GifByteType* target, int count) {
        Decoder& decoder = *static_cast<Decoder*>(gif->UserData);
        // Through a buffer: the library asks for a few bytes at a time.
        int done = 0;
        while (done < count) {
            if (decoder.used_ == decoder.filled_) {
                decoder.filled_ =
                    decoder.reader_->read(decoder.position_, decoder.buffer_.data(), decoder.buffer_.size());
                decoder.position_ += decoder.filled_;
                decoder.used_ = 0;
                if (decoder.filled_ == 0) {
                    decoder.ended_ = true;
                    break;
                }
            }
            const std::size_t part = std::min(static_cast<std::size_t>(count - done), decoder.filled_ - decoder.used_);
            std::copy_n(decoder.buffer_.data() + decoder.used_, part, target + done);
            decoder.used_ += part;
            done += static_cast<int>(part);
        }
        return done;
    }

    base::Result<void> readExtension() {
        int code = 0;
        GifByteType* block = nullptr; // its first byte counts the others
        if (DGifGetExtension(gif_, &code, &block) == GIF_ERROR) return failure();
        while (block) {
            if (code == GRAPHICS_EXT_FUNC_CODE) DGifExtensionToGCB(block[0], block + 1, &control_);
            if (DGifGetExtensionNext(gif_, &block) == GIF_ERROR) return failure();
        }
        return {};
    }

    std::array<std::array<std::uint8_t, 4>, 256> paletteOf(const ColorMapObject& map) const {
        std::array<std::array<std::uint8_t, 4>, 256> palette;
        palette.fill({0, 0, 0, 255});
        for (int i = 0; i < std::min(map.ColorCount, 256); ++i) {
            const GifColorType& color = map.Colors[i];
            palette[static_cast<std::size_t>(i)] = {color.Blue, color.Green, color.Red, 255};
        }
        if (control_.TransparentColor >= 0 && control_.TransparentColor < 256)
            palette[static_cast<std::size_t>(control_.TransparentColor)] = {};
        return palette;
    }

    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    GifFileType* gif_ = nullptr;
    GraphicsControlBlock control_{};
    std::size_t found_ = 0;
    bool ended_ = false;
    std::uint64_t position_ = 0;
    std::size_t used_ = 0;
    std::size_t filled_ = 0;
    std::array<std::uint8_t, 16384> buffer_;
};

base::Result<std::unique_ptr<Decoder>> openDecoder(const std::shared_ptr<const ByteSource>& bytes) {
    auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    auto decoder = std::make_unique<Decoder>(bytes, std::move(*reader));
    if (!decoder->isOpen()) return decoder->failure();
    return decoder;
}

class GifSource final : public PixelSource {
public:
    GifSource(std::shared_ptr<const ByteSource> bytes, std::shared_ptr<const Animation> animation, int width,
              int height, std::size_t index)
        : bytes_(std::move(bytes)), animation_(std::move(animation)) {
        width_ = width;
        height_ = height;
        opaque_ = animation_->isOpaque(index);
        colorSpace_ = ColorSpace::sRGB();
        identity_ = bytes_->identity();
        index_ = index;
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        auto opened = openDecoder(bytes_);
        if (!opened) return base::failure(opened.error());
        Decoder& decoder = **opened;
        std::size_t next = 0;
        const auto decodeFrame = [&](std::size_t index) -> base::Result<Bitmap> {
            for (;; ++next) {
                const auto found = decoder.nextFrame();
                if (!found) return base::failure(found.error());
                if (!*found) return decoder.failure();
                if (next == index) break;
                if (auto skipped = decoder.skipPixels(); !skipped) return base::failure(skipped.error());
            }
            ++next;
            const AnimationFrame& frame = animation_->frame(index);
            return decoder.readPixels(frame.rectangle, !frame.hasAlpha);
        };
        auto canvas = animation_->canvasShowing(index_, colorSpace_, decodeFrame, *bytes_);
        if (!canvas) return base::failure(canvas.error());
        return BitmapSource(std::move(*canvas)).open(region, 1);
    }

private:
    std::shared_ptr<const ByteSource> bytes_;
    std::shared_ptr<const Animation> animation_;
};

Disposal disposalOf(int mode) {
    return mode == DISPOSE_BACKGROUND ? Disposal::clear : mode == DISPOSE_PREVIOUS ? Disposal::restore : Disposal::keep;
}

} // namespace

base::Result<std::vector<Picture>> openGif(std::shared_ptr<const ByteSource> bytes) {
    auto opened = openDecoder(bytes);
    if (!opened) return base::failure(opened.error());
    Decoder& decoder = **opened;
    PixelRect canvas;
    std::shared_ptr<Animation> animation;
    for (;;) {
        const auto found = decoder.nextFrame();
        if (!found) return base::failure(found.error());
        if (!*found) break;
        const GifImageDesc& place = decoder.gif().Image;
        const auto width = static_cast<std::uint64_t>(place.Width);
        const auto height = static_cast<std::uint64_t>(place.Height);
        if (auto checked = checkPictureSize(*bytes, width, height); !checked) return base::failure(checked.error());
        if (!animation) {
            // Some files announce a canvas that is smaller than their picture, or none.
            canvas.width = std::max(decoder.gif().SWidth, place.Left + place.Width);
            canvas.height = std::max(decoder.gif().SHeight, place.Top + place.Height);
            if (auto checked = checkPictureSize(*bytes, static_cast<std::uint64_t>(canvas.width),
                                                static_cast<std::uint64_t>(canvas.height));
                !checked)
                return base::failure(checked.error());
            animation = std::make_shared<Animation>(canvas.width, canvas.height);
        }
        if (animation->count() == maximumFrames) return pictureFailure(*bytes, "it has too many frames");
        AnimationFrame frame;
        frame.rectangle = canvas.intersection({place.Left, place.Top, place.Width, place.Height});
        frame.hasAlpha = decoder.control().TransparentColor != NO_TRANSPARENT_COLOR;
        frame.disposal = disposalOf(decoder.control().DisposalMode);
        animation->add(frame, width * height);
        if (auto skipped = decoder.skipPixels(); !skipped) return base::failure(skipped.error());
    }
    if (!animation) return pictureFailure(*bytes, "it has no picture");
    std::vector<Picture> pictures(animation->count());
    for (std::size_t i = 0; i < pictures.size(); ++i)
        pictures[i].pixels = std::make_shared<GifSource>(bytes, animation, canvas.width, canvas.height, i);
    return pictures;
}

} // namespace platform::draw
