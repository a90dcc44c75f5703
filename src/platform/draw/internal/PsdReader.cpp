// The merged picture of Photoshop files (PSD and PSB), a row at a time out of its planes. Layers are not looked at. The
// merged colours of a file with transparency are blended with white; here they are taken off it again, as Photoshop
// does.
#include "DeepTransform.h"
#include "ExifProperties.h"
#include "PsdPlanes.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <array>

namespace platform::draw {

namespace {

constexpr std::size_t maximumBlocks = 10000;
constexpr std::uint64_t maximumResource = 64u << 20;

base::Result<void> readHeader(const ByteSource& bytes, PsdCursor& cursor, PsdPicture& psd) {
    cursor.moveTo(4);
    psd.version = static_cast<int>(cursor.number(2));
    cursor.moveTo(12);
    psd.channels = static_cast<int>(cursor.number(2));
    const std::uint64_t height = cursor.number(4);
    const std::uint64_t width = cursor.number(4);
    psd.bits = static_cast<int>(cursor.number(2));
    psd.mode = static_cast<PsdMode>(cursor.number(2));
    if (cursor.failed()) return pictureFailure(bytes, "the file is cut off");
    if (auto size = checkPictureSize(bytes, width, height); !size) return size;
    psd.width = static_cast<int>(width);
    psd.height = static_cast<int>(height);
    if (psd.version != 1 && psd.version != 2) return pictureFailure(bytes, "its version is unknown");
    if (psd.bits == 32) return pictureFailure(bytes, "32 bits a channel can't be read");
    bool known = psd.bits == 8 || psd.bits == 16;
    switch (psd.mode) {
    case PsdMode::bitmap:
        known = psd.bits == 1;
        break;
    case PsdMode::indexed:
        known = psd.bits == 8;
        break;
    case PsdMode::duotone: // told as grey; which inks print it is the printer's matter
        psd.mode = PsdMode::gray;
        break;
    case PsdMode::gray:
    case PsdMode::rgb:
    case PsdMode::cmyk:
    case PsdMode::lab:
        break;
    default:
        return pictureFailure(bytes, psd.mode == PsdMode::multichannel ? "its colour mode is multichannel"
                                                                       : "its colour mode is unknown");
    }
    if (!known || psd.channels < psd.colors()) return pictureFailure(bytes, "its header is broken");
    return {};
}

struct Resources {
    std::vector<std::uint8_t> profile;
    std::vector<std::uint8_t> exif;
    std::vector<std::uint8_t> iptc;
    std::optional<double> dpiWidth;
    std::optional<double> dpiHeight;
};

void readResource(PsdCursor& cursor, unsigned identifier, std::uint64_t size, Resources& resources, PsdPicture& psd) {
    if (size > maximumResource) return;
    if (identifier == 1039) {
        resources.profile = cursor.bytes(size);
    } else if (identifier == 1058) {
        resources.exif = cursor.bytes(size);
    } else if (identifier == 1028) {
        resources.iptc = cursor.bytes(size);
    } else if (identifier == 1047 && size >= 2) {
        psd.clearIndex = cursor.number(2);
    } else if (identifier == 1005 && size >= 16) {
        // In pixels an inch whatever unit is shown; 16.16 fixed.
        const auto horizontal = static_cast<double>(cursor.number(4)) / 65536;
        cursor.number(4);
        const auto vertical = static_cast<double>(cursor.number(4)) / 65536;
        if (horizontal >= 1 && vertical >= 1) resources.dpiWidth = horizontal, resources.dpiHeight = vertical;
    }
}

void readResources(PsdCursor& cursor, std::uint64_t end, Resources& resources, PsdPicture& psd) {
    for (std::size_t i = 0; i < maximumBlocks && cursor.position() + 12 <= end && !cursor.failed(); ++i) {
        cursor.number(4); // a signature, of several
        const auto identifier = static_cast<unsigned>(cursor.number(2));
        const std::uint64_t name = cursor.number(1);
        cursor.moveTo(cursor.position() + (name | 1)); // with its length an even number of bytes
        const std::uint64_t size = cursor.number(4);
        const std::uint64_t start = cursor.position();
        if (size > end - std::min(start, end)) return;
        readResource(cursor, identifier, size, resources, psd);
        cursor.moveTo(start + size + (size & 1));
    }
}

bool isNegative(std::uint64_t count) {
    return (count & 0x8000) != 0;
}

/// Whether the first channel behind the colours is the merged picture's transparency: told by a negative number of
/// layers, or by a block of its own.
bool layersTellTransparency(PsdCursor& cursor, std::uint64_t end, int version) {
    const std::size_t lengthBytes = version == 2 ? 8 : 4;
    const std::uint64_t layers = cursor.number(lengthBytes);
    const std::uint64_t start = cursor.position();
    if (start > end || layers > end - start) return false;
    if (layers >= 2 && isNegative(cursor.number(2))) return true;
    cursor.moveTo(start + layers);
    const std::uint64_t mask = cursor.number(4);
    if (mask > end - std::min(end, cursor.position())) return false;
    cursor.moveTo(cursor.position() + mask);
    for (std::size_t i = 0; i < maximumBlocks && cursor.position() + 12 <= end && !cursor.failed(); ++i) {
        const std::uint64_t block = cursor.position();
        std::array<char, 8> text{};
        cursor.read(text.data(), text.size());
        const std::string_view signature(text.data(), 4);
        const std::string_view key(text.data() + 4, 4);
        if (signature != "8BIM" && signature != "8B64") {
            cursor.moveTo(block + 1); // blocks are filled up to 2 or to 4 bytes
            continue;
        }
        if (key == "Mtrn" || key == "Mt16" || key == "Mt32") return true;
        constexpr std::array longKeys{"LMsk", "Lr16", "Lr32", "Layr", "Alph", "FMsk", "lnk2", "FEid", "FXid", "PxSD"};
        const bool isLong = version == 2 && std::find(longKeys.begin(), longKeys.end(), key) != longKeys.end();
        const std::uint64_t length = cursor.number(isLong ? 8 : 4);
        const std::uint64_t content = cursor.position();
        if (length > end - std::min(end, content)) return false;
        if (key == "Lr16" && length >= 2 && isNegative(cursor.number(2))) return true;
        cursor.moveTo(content + length);
    }
    return false;
}

/// Rows with 16 bits a sample: what is stored, with CMYK as ink, Lab and grey with alpha as sRGB.
class PsdDeepReader final : public DeepReader {
public:
    PsdDeepReader(PsdPlanes planes, const PsdPicture& psd) : planes_(std::move(planes)), psd_(psd) {
        format_ = {psd.needsDeepRows() ? 3 : psd.colors(), psd.hasAlpha, psd.hasAlpha};
    }
    base::Result<void> start(const ColorSpaceRef& graySpace) {
        plane_.resize(static_cast<std::size_t>(psd_.width));
        if (auto started = planes_.start(); !started || !psd_.needsDeepRows()) return started;
        auto transform = psd_.mode == PsdMode::lab ? DeepTransform::labToSRGB() : DeepTransform::toSRGB(graySpace);
        if (!transform) return base::failure(transform.error());
        transform_ = std::move(*transform);
        colors_.resize(plane_.size() * static_cast<std::size_t>(psd_.colors()));
        rgb_.resize(plane_.size() * 3);
        return {};
    }
    void passOver(int rows) { next_ += rows; }

    base::Result<void> readRow(std::uint16_t* row) override {
        const auto colors = static_cast<std::size_t>(psd_.colors());
        const std::size_t step = format_.samplesPerPixel();
        const std::uint16_t flip = psd_.mode == PsdMode::cmyk ? 0xFFFF : 0;
        for (std::size_t k = 0; k < colors; ++k) {
            if (auto read = planes_.read16(static_cast<int>(k), next_, plane_.data()); !read) return read;
            for (std::size_t i = 0; i < plane_.size(); ++i)
                (transform_ ? colors_[colors * i + k] : row[step * i + k]) = plane_[i] ^ flip;
        }
        if (transform_) {
            transform_->convert(colors_.data(), rgb_.data(), plane_.size());
            for (std::size_t i = 0; i < plane_.size(); ++i)
                std::copy_n(rgb_.data() + 3 * i, 3, row + step * i);
        }
        if (psd_.hasAlpha) {
            if (auto read = planes_.read16(psd_.colors(), next_, plane_.data()); !read) return read;
            for (std::size_t i = 0; i < plane_.size(); ++i, row += step) {
                for (std::size_t k = 0; k + 1 < step; ++k)
                    row[k] = static_cast<std::uint16_t>(std::clamp(row[k] + plane_[i] - 65535, 0, int{plane_[i]}));
                row[step - 1] = plane_[i];
            }
        }
        ++next_;
        return {};
    }

private:
    PsdPlanes planes_;
    PsdPicture psd_;
    int next_ = 0;
    std::shared_ptr<const DeepTransform> transform_;
    std::vector<std::uint16_t> plane_;
    std::vector<std::uint16_t> colors_; // before the conversion
    std::vector<std::uint16_t> rgb_;    // and after
};

/// Rows of 8 bits whose planes are what is wanted, or blue, green, red and alpha.
class PsdBandReader final : public BandReader {
public:
    PsdBandReader(PsdPlanes planes, const PsdPicture& psd, const PixelRect& region)
        : planes_(std::move(planes)), psd_(psd), next_(region.y), plane_(static_cast<std::size_t>(psd.width)) {
        const bool together = psd.mode == PsdMode::indexed || psd.hasAlpha;
        const SampleKind kind = together ? (psd.hasAlpha || psd.clearIndex ? SampleKind::bgra : SampleKind::bgrx)
                                : psd.mode == PsdMode::rgb  ? SampleKind::rgb
                                : psd.mode == PsdMode::cmyk ? SampleKind::cmykInverted
                                                            : SampleKind::gray;
        format_ = ReadingFormat::ofWholeRows(kind, psd.width, psd.height, region);
    }
    base::Result<void> start() { return planes_.start(); }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (next_ >= psd_.height) return {};
        if (psd_.mode == PsdMode::indexed) {
            if (auto read = planes_.read8(0, next_, plane_.data()); !read) return read;
            lookUp(rows[0][0]);
        } else if (psd_.hasAlpha) {
            if (auto read = readTogether(rows[0][0]); !read) return read;
        } else {
            for (std::size_t k = 0; k < format_.planes.size(); ++k)
                if (auto read = planes_.read8(static_cast<int>(k), next_, rows[k][0]); !read) return read;
        }
        ++next_;
        return {};
    }

private:
    void lookUp(std::uint8_t* row) const {
        for (const std::uint8_t index : plane_) {
            const bool clear = psd_.clearIndex == index;
            for (std::size_t k = 0; k < 3; ++k)
                *row++ = clear ? 0 : psd_.palette[256 * (2 - k) + index];
            *row++ = clear ? 0 : 255;
        }
    }
    base::Result<void> readTogether(std::uint8_t* row) {
        for (const int plane : {2, 1, 0, 3}) {
            if (auto read = planes_.read8(plane, next_, plane_.data()); !read) return read;
            const std::size_t place = plane == 3 ? 3 : static_cast<std::size_t>(2 - plane);
            for (std::size_t i = 0; i < plane_.size(); ++i)
                row[4 * i + place] = plane_[i];
        }
        for (std::size_t i = 0; i < 4 * plane_.size(); i += 4)
            for (std::size_t k = 0; k < 3; ++k)
                row[i + k] = static_cast<std::uint8_t>(std::clamp(row[i + k] + row[i + 3] - 255, 0, int{row[i + 3]}));
        return {};
    }

    PsdPlanes planes_;
    PsdPicture psd_;
    int next_;
    std::vector<std::uint8_t> plane_;
};

/// The deep rows with 8 bits.
class ReducedBandReader final : public BandReader {
public:
    ReducedBandReader(std::unique_ptr<PsdDeepReader> reader, const PsdPicture& psd, const PixelRect& region)
        : reader_(std::move(reader)), left_(psd.height - region.y),
          row_(static_cast<std::size_t>(psd.width) * reader_->format().samplesPerPixel()) {
        reader_->passOver(region.y);
        format_ = ReadingFormat::ofWholeRows(psd.hasAlpha ? SampleKind::bgra : SampleKind::bgrx, psd.width, psd.height,
                                             region);
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (left_-- <= 0) return {};
        if (auto read = reader_->readRow(row_.data()); !read) return read;
        std::uint8_t* row = rows[0][0];
        const std::size_t step = reader_->format().samplesPerPixel();
        for (std::size_t i = 0; i < row_.size(); i += step, row += 4) {
            for (std::size_t k = 0; k < 3; ++k)
                row[2 - k] = reducedTo8Bits(row_[i + k]);
            row[3] = step == 4 ? reducedTo8Bits(row_[i + 3]) : 255;
        }
        return {};
    }

private:
    std::unique_ptr<PsdDeepReader> reader_;
    int left_;
    std::vector<std::uint16_t> row_;
};

class PsdSource final : public PixelSource {
public:
    PsdSource(std::shared_ptr<const ByteSource> bytes, PsdPicture psd, const std::vector<std::uint8_t>& profile)
        : bytes_(std::move(bytes)), psd_(std::move(psd)) {
        width_ = psd_.width;
        height_ = psd_.height;
        opaque_ = !psd_.hasAlpha && !psd_.clearIndex;
        identity_ = bytes_->identity();
        const bool isGray = psd_.mode == PsdMode::gray || psd_.mode == PsdMode::bitmap;
        const int components = isGray ? 1 : psd_.mode == PsdMode::cmyk ? 4 : 3;
        const ColorSpaceRef& otherwise = isGray            ? ColorSpace::gray()
                                         : components == 4 ? ColorSpace::deviceCMYK()
                                                           : ColorSpace::sRGB();
        colorSpace_ = colorSpaceOfProfile(profile.data(), profile.size(), components, otherwise);
        if (!psd_.needsDeepRows()) return;
        graySpace_ = colorSpace_;
        colorSpace_ = ColorSpace::sRGB();
    }

    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        if (psd_.needsDeepRows()) {
            auto deep = openRows();
            if (!deep) return base::failure(deep.error());
            return std::make_unique<ReducedBandReader>(std::move(*deep), psd_, region);
        }
        auto bytes = bytes_->open();
        if (!bytes) return base::failure(bytes.error());
        auto reader = std::make_unique<PsdBandReader>(PsdPlanes(bytes_, std::move(*bytes), psd_), psd_, region);
        if (auto started = reader->start(); !started) return base::failure(started.error());
        return reader;
    }

    base::Result<std::unique_ptr<DeepReader>> openDeep() const override {
        if (psd_.bits != 16) return nullptr;
        auto reader = openRows();
        if (!reader) return base::failure(reader.error());
        return std::move(*reader);
    }

private:
    base::Result<std::unique_ptr<PsdDeepReader>> openRows() const {
        auto bytes = bytes_->open();
        if (!bytes) return base::failure(bytes.error());
        auto reader = std::make_unique<PsdDeepReader>(PsdPlanes(bytes_, std::move(*bytes), psd_), psd_);
        if (auto started = reader->start(graySpace_); !started) return base::failure(started.error());
        return reader;
    }

    std::shared_ptr<const ByteSource> bytes_;
    PsdPicture psd_;
    ColorSpaceRef graySpace_; // of a picture that is delivered as sRGB
};

} // namespace

base::Result<std::vector<Picture>> openPsd(std::shared_ptr<const ByteSource> bytes) {
    auto reader = bytes->open();
    if (!reader) return base::failure(reader.error());
    PsdCursor cursor(**reader, 0);
    PsdPicture psd;
    if (auto header = readHeader(*bytes, cursor, psd); !header) return base::failure(header.error());

    const std::uint64_t fileSize = (*reader)->size();
    /// The end of the section whose length comes next, or nothing when that is behind the file's.
    const auto sectionEnd = [&](std::size_t lengthBytes) -> std::optional<std::uint64_t> {
        const std::uint64_t length = cursor.number(lengthBytes);
        if (cursor.failed() || length > fileSize - cursor.position()) return std::nullopt;
        return cursor.position() + length;
    };
    const auto cutOff = [&] { return pictureFailure(*bytes, "the file is cut off"); };

    const auto modeEnd = sectionEnd(4);
    if (!modeEnd) return cutOff();
    if (psd.mode == PsdMode::indexed) {
        if (*modeEnd - cursor.position() < 768) return pictureFailure(*bytes, "it has no palette");
        psd.palette = cursor.bytes(768);
    }
    cursor.moveTo(*modeEnd);
    Resources resources;
    const auto resourcesEnd = sectionEnd(4);
    if (!resourcesEnd) return cutOff();
    readResources(cursor, *resourcesEnd, resources, psd);
    if (psd.mode != PsdMode::indexed) psd.clearIndex.reset();
    cursor.moveTo(*resourcesEnd);
    const auto layersEnd = sectionEnd(psd.version == 2 ? 8 : 4);
    if (!layersEnd) return cutOff();
    // Ink with transparency lies on white paper, as it is.
    const bool mayHaveAlpha = psd.mode == PsdMode::gray || psd.mode == PsdMode::rgb || psd.mode == PsdMode::lab;
    if (mayHaveAlpha && psd.channels > psd.colors() && *layersEnd > cursor.position())
        psd.hasAlpha = layersTellTransparency(cursor, *layersEnd, psd.version);
    psd.data = *layersEnd;

    Picture picture;
    picture.bitsPerComponent = psd.bits;
    picture.dpiWidth = resources.dpiWidth;
    picture.dpiHeight = resources.dpiHeight;
    picture.exif = std::move(resources.exif);
    if (const auto iptc = iptcProperties(resources.iptc); !iptc.empty())
        picture.properties.emplace(kCGImagePropertyIPTCDictionary, iptc);
    picture.pixels = std::make_shared<PsdSource>(bytes, std::move(psd), resources.profile);
    return std::vector<Picture>{std::move(picture)};
}

} // namespace platform::draw
