// HEIC and HEIF by libheif. Opening reads the boxes only; the coded picture is decoded once for each reading. Turns,
// mirrorings and crops that the file asks for are made by the library, so the pixels are upright.
#include "ByteOrder.h"
#include "CodedColorSpace.h"
#include "ExifProperties.h"
#include "HeifLibrary.h"
#include "PictureFormat.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <exception>
#include <string>
#include <string_view>

namespace platform::draw {

namespace {

constexpr std::size_t maximumPictures = 1000;
constexpr std::size_t maximumMetadata = 64u << 20;

/// An open file. It must outlive the handles that it gives.
class Container {
public:
    Container(std::shared_ptr<const ByteSource> bytes, std::unique_ptr<ByteReader> reader)
        : bytes_(std::move(bytes)), reader_(std::move(reader)), context_(newHeifContext()) {}
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

    /// Runs a call of the library, which may also throw.
    template <class Call>
    base::Result<void> guarded(Call call) const {
        try {
            const heif_error error = call();
            if (error.code == heif_error_Ok) return {};
            // Some of its messages go on for lines.
            const std::string_view message = error.message ? error.message : "it is broken";
            return pictureFailure(*bytes_, message.substr(0, message.find('\n')));
        } catch (const std::exception& exception) {
            return pictureFailure(*bytes_, exception.what());
        }
    }

    base::Result<void> readBoxes() {
        if (!context_) return pictureFailure(*bytes_, "no memory");
        // Drawings are spread over threads already.
        heif_context_set_max_decoding_threads(context_.get(), 0);
        return guarded([this] { return heif_context_read_from_reader(context_.get(), &callbacks, this, nullptr); });
    }

    base::Result<std::vector<heif_item_id>> pictureIdentifiers() const {
        heif_item_id primary = 0;
        if (auto found = guarded([&] { return heif_context_get_primary_image_ID(context_.get(), &primary); }); !found)
            return base::failure(found.error());
        std::vector<heif_item_id> identifiers(
            static_cast<std::size_t>(std::max(0, heif_context_get_number_of_top_level_images(context_.get()))));
        identifiers.resize(static_cast<std::size_t>(heif_context_get_list_of_top_level_image_IDs(
            context_.get(), identifiers.data(), static_cast<int>(identifiers.size()))));
        std::erase(identifiers, primary);
        identifiers.insert(identifiers.begin(), primary);
        if (identifiers.size() > maximumPictures) identifiers.resize(maximumPictures);
        return identifiers;
    }

    base::Result<Heif<heif_image_handle>> picture(heif_item_id identifier) const {
        heif_image_handle* handle = nullptr;
        if (auto got = guarded([&] { return heif_context_get_image_handle(context_.get(), identifier, &handle); });
            !got)
            return base::failure(got.error());
        return Heif<heif_image_handle>(handle);
    }

    const ByteSource& bytes() const { return *bytes_; }

private:
    static Container& of(void* self) { return *static_cast<Container*>(self); }
    static const heif_reader callbacks;

    std::shared_ptr<const ByteSource> bytes_;
    std::unique_ptr<ByteReader> reader_;
    std::int64_t position_ = 0;
    Heif<heif_context> context_; // it reads through the members above to its end
};

const heif_reader Container::callbacks{
    1,
    [](void* self) { return of(self).position_; },
    [](void* target, std::size_t count, void* self) {
        Container& container = of(self);
        const std::size_t got = container.reader_->read(static_cast<std::uint64_t>(container.position_), target, count);
        container.position_ += static_cast<std::int64_t>(got);
        return got == count ? 0 : 1;
    },
    [](std::int64_t position, void* self) {
        if (position < 0) return 1;
        of(self).position_ = position;
        return 0;
    },
    [](std::int64_t size, void* self) {
        return size >= 0 && static_cast<std::uint64_t>(size) <= of(self).reader_->size()
                   ? heif_reader_grow_status_size_reached
                   : heif_reader_grow_status_size_beyond_eof;
    },
};

base::Result<std::unique_ptr<Container>> openContainer(const std::shared_ptr<const ByteSource>& bytes) {
    auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    auto container = std::make_unique<Container>(bytes, std::move(*reader));
    if (auto read = container->readBoxes(); !read) return base::failure(read.error());
    return container;
}

/// Hands out the rows of a decoded picture, in the order of bytes and premultiplied as drawing wants them.
class HeicBandReader final : public BandReader {
public:
    HeicBandReader(Heif<heif_image> image, const PixelRect& region, bool alpha, bool premultiplied)
        : image_(std::move(image)), alpha_(alpha), premultiplied_(premultiplied) {
        int stride = 0;
        const std::uint8_t* pixels = heif_image_get_plane_readonly(image_.get(), heif_channel_interleaved, &stride);
        stride_ = static_cast<std::size_t>(stride);
        next_ = pixels + stride_ * static_cast<std::size_t>(region.y) +
                static_cast<std::size_t>(region.x) * samplesPerPixel();
        rowsLeft_ = region.height;
        format_ = ReadingFormat::ofRows(alpha ? SampleKind::bgra : SampleKind::bgrx, region.width, region.height);
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (rowsLeft_-- <= 0) return {};
        std::uint8_t* row = rows[0][0];
        const std::uint8_t* from = next_;
        const auto width = static_cast<std::size_t>(format_.gridWidth);
        for (std::size_t i = 0; i < width; ++i, row += 4, from += samplesPerPixel()) {
            row[0] = from[2];
            row[1] = from[1];
            row[2] = from[0];
            row[3] = alpha_ ? from[3] : 0xFF;
        }
        if (alpha_ && !premultiplied_) premultiply(rows[0][0], width);
        next_ += stride_;
        return {};
    }

private:
    std::size_t samplesPerPixel() const { return alpha_ ? 4 : 3; }

    Heif<heif_image> image_;
    bool alpha_;
    bool premultiplied_;
    std::size_t stride_ = 0;
    const std::uint8_t* next_ = nullptr;
    int rowsLeft_ = 0;
};

/// Ten or twelve bits, widened to 16.
class HeicDeepReader final : public DeepReader {
public:
    HeicDeepReader(Heif<heif_image> image, bool alpha, bool premultiplied) : image_(std::move(image)) {
        format_ = {3, alpha, alpha && premultiplied};
        int stride = 0;
        next_ = heif_image_get_plane_readonly(image_.get(), heif_channel_interleaved, &stride);
        stride_ = static_cast<std::size_t>(stride);
        samples_ = static_cast<std::size_t>(heif_image_get_width(image_.get(), heif_channel_interleaved)) *
                   format_.samplesPerPixel();
        rowsLeft_ = heif_image_get_height(image_.get(), heif_channel_interleaved);
        largest_ = (1u << heif_image_get_bits_per_pixel_range(image_.get(), heif_channel_interleaved)) - 1;
    }

    base::Result<void> readRow(std::uint16_t* row) override {
        if (rowsLeft_-- <= 0) return {};
        for (std::size_t i = 0; i < samples_; ++i) {
            const std::uint32_t value = next_[2 * i] | static_cast<std::uint32_t>(next_[2 * i + 1]) << 8;
            row[i] = static_cast<std::uint16_t>((std::min(value, largest_) * 65535u + largest_ / 2) / largest_);
        }
        next_ += stride_;
        return {};
    }

private:
    Heif<heif_image> image_;
    const std::uint8_t* next_ = nullptr;
    std::size_t stride_ = 0;
    std::size_t samples_ = 0;
    int rowsLeft_ = 0;
    std::uint32_t largest_ = 1;
};

class HeicSource final : public PixelSource {
public:
    HeicSource(std::shared_ptr<const ByteSource> bytes, heif_item_id identifier, std::size_t index,
               const heif_image_handle& handle, ColorSpaceRef colorSpace)
        : bytes_(std::move(bytes)), identifier_(identifier) {
        width_ = heif_image_handle_get_width(&handle);
        height_ = heif_image_handle_get_height(&handle);
        opaque_ = heif_image_handle_has_alpha_channel(&handle) == 0;
        colorSpace_ = std::move(colorSpace);
        identity_ = bytes_->identity();
        index_ = index;
        bits_ = heif_image_handle_get_luma_bits_per_pixel(&handle);
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        auto image = decoded(opaque_ ? heif_chroma_interleaved_RGB : heif_chroma_interleaved_RGBA);
        if (!image) return base::failure(image.error());
        const bool premultiplied = heif_image_is_premultiplied_alpha(image->get()) != 0;
        return std::make_unique<HeicBandReader>(std::move(*image), region, !opaque_, premultiplied);
    }

    base::Result<std::unique_ptr<DeepReader>> openDeep() const override {
        if (bits_ <= 8) return nullptr;
        auto image = decoded(opaque_ ? heif_chroma_interleaved_RRGGBB_LE : heif_chroma_interleaved_RRGGBBAA_LE);
        if (!image) return base::failure(image.error());
        const bool premultiplied = heif_image_is_premultiplied_alpha(image->get()) != 0;
        return std::make_unique<HeicDeepReader>(std::move(*image), !opaque_, premultiplied);
    }

private:
    base::Result<Heif<heif_image>> decoded(heif_chroma chroma) const {
        auto container = openContainer(bytes_);
        if (!container) return base::failure(container.error());
        auto handle = (*container)->picture(identifier_);
        if (!handle) return base::failure(handle.error());
        const Heif<heif_decoding_options> options(heif_decoding_options_alloc());
        if (!options) return pictureFailure(*bytes_, "no memory");
        options->strict_decoding = 1;
        options->convert_hdr_to_8bit = chroma == heif_chroma_interleaved_RGB || chroma == heif_chroma_interleaved_RGBA;
        heif_image* found = nullptr;
        const auto done = (*container)->guarded([&] {
            return heif_decode_image(handle->get(), &found, heif_colorspace_RGB, chroma, options.get());
        });
        Heif<heif_image> image(found);
        if (!done) return base::failure(done.error());
        // The coded picture has a size of its own, which need not be the one that was announced.
        if (heif_image_get_width(found, heif_channel_interleaved) != width_ ||
            heif_image_get_height(found, heif_channel_interleaved) != height_)
            return pictureFailure(*bytes_, "it is not of the size that it announces");
        return image;
    }

    std::shared_ptr<const ByteSource> bytes_;
    heif_item_id identifier_;
    int bits_; // a component
};

ColorSpaceRef colorSpaceOf(const Container& container, const heif_image_handle& handle) {
    const std::size_t size = heif_image_handle_get_raw_color_profile_size(&handle);
    if (size > 0 && size <= maximumMetadata) {
        std::vector<std::uint8_t> profile(size);
        if (container.guarded([&] { return heif_image_handle_get_raw_color_profile(&handle, profile.data()); }))
            return colorSpaceOfProfile(profile.data(), profile.size(), 3, ColorSpace::sRGB());
    }
    heif_color_profile_nclx* found = nullptr;
    const auto got = container.guarded([&] { return heif_image_handle_get_nclx_color_profile(&handle, &found); });
    const Heif<heif_color_profile_nclx> codes(found);
    if (!got || !codes) return ColorSpace::sRGB();
    return colorSpaceOfCodePoints(codes->color_primaries, codes->transfer_characteristics);
}

/// The TIFF structure of the EXIF item: its first four bytes count what stands between them and the structure.
std::vector<std::uint8_t> exifOf(const Container& container, const heif_image_handle& handle) {
    heif_item_id identifier = 0;
    if (heif_image_handle_get_list_of_metadata_block_IDs(&handle, "Exif", &identifier, 1) < 1) return {};
    const std::size_t size = heif_image_handle_get_metadata_size(&handle, identifier);
    if (size <= 4 || size > maximumMetadata) return {};
    std::vector<std::uint8_t> item(size);
    if (!container.guarded([&] { return heif_image_handle_get_metadata(&handle, identifier, item.data()); })) return {};
    const auto offset = static_cast<std::size_t>(integerAt(item.data(), 4, true));
    if (offset >= size - 4) return {};
    item.erase(item.begin(), item.begin() + static_cast<std::ptrdiff_t>(4 + offset));
    return item;
}

/// The library has turned the pixels: what the EXIF block says of it is done, or was meant for no one.
base::Dictionary uprightProperties(const std::vector<std::uint8_t>& exif) {
    base::Dictionary properties;
    const base::Dictionary stated = exifProperties(exif);
    if (base::valueForKey(stated, kCGImagePropertyOrientation)) properties.emplace(kCGImagePropertyOrientation, 1);
    const auto* tiff = base::valueForKey(stated, kCGImagePropertyTIFFDictionary).as<base::Dictionary>();
    if (tiff && base::valueForKey(*tiff, kCGImagePropertyTIFFOrientation)) {
        base::Dictionary upright = *tiff;
        upright.insert_or_assign(std::string(kCGImagePropertyTIFFOrientation), 1);
        properties.emplace(kCGImagePropertyTIFFDictionary, std::move(upright));
    }
    return properties;
}

} // namespace

base::Result<std::vector<Picture>> openHeic(std::shared_ptr<const ByteSource> bytes) {
    auto container = openContainer(bytes);
    if (!container) return base::failure(container.error());
    auto identifiers = (*container)->pictureIdentifiers();
    if (!identifiers) return base::failure(identifiers.error());
    std::vector<Picture> pictures;
    for (const heif_item_id identifier : *identifiers) {
        const auto handle = (*container)->picture(identifier);
        if (!handle) return base::failure(handle.error());
        const heif_image_handle& found = **handle;
        if (auto checked =
                checkPictureSize(*bytes, static_cast<std::uint64_t>(std::max(0, heif_image_handle_get_width(&found))),
                                 static_cast<std::uint64_t>(std::max(0, heif_image_handle_get_height(&found))));
            !checked)
            return base::failure(checked.error());
        Picture picture;
        picture.bitsPerComponent = std::max(1, heif_image_handle_get_luma_bits_per_pixel(&found));
        picture.exif = exifOf(**container, found);
        picture.properties = uprightProperties(picture.exif);
        picture.pixels =
            std::make_shared<HeicSource>(bytes, identifier, pictures.size(), found, colorSpaceOf(**container, found));
        pictures.push_back(std::move(picture));
    }
    return pictures;
}

} // namespace platform::draw
