#include "platform/draw/ImageDestination.h"

#include "internal/PictureEncoder.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/DeepPixels.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {
namespace {

struct WritableType {
    std::string_view typeIdentifier;
    PictureEncoder encode;
    DeepPictureEncoder encodeDeep = nullptr; // of types that are written with 16 bits
};
constexpr WritableType writableTypes[] = {
    {"public.jpeg", encodeJPEG},
    {"public.png", encodePNG, encodeDeepPNG},
    {"public.tiff", encodeTIFF, encodeDeepTIFF},
    {"com.adobe.photoshop-image", encodePSD},
    {"com.adobe.pdf", encodePDF},
    {"public.heic", encodeHEIC},
};

const WritableType* writableType(std::string_view typeIdentifier) {
    const auto* row = std::find_if(std::begin(writableTypes), std::end(writableTypes),
                                   [&](const WritableType& type) { return type.typeIdentifier == typeIdentifier; });
    return row == std::end(writableTypes) ? nullptr : row;
}

class EncodingDestination : public ImageDestination {
public:
    EncodingDestination(const WritableType& type, std::unique_ptr<ByteSink> sink)
        : type_(type), sink_(std::move(sink)) {}

    void addImage(ImageRef image, base::Dictionary properties) override {
        image_ = std::move(image);
        properties_ = std::move(properties);
    }

    base::Result<void> finalize() override {
        if (!image_ || isDone_) return base::failure(base::cocoaErrorDomain, 0, "there is no image to write");
        isDone_ = true;
        auto encoded = encode();
        if (const auto why = sink_->failure()) return base::failure(*why); // of which an encoder may only see traces
        if (!encoded) return encoded;
        return sink_->commit();
    }

    base::URL url() const override { return sink_->url(); }
    base::Data takeData() override { return sink_->takeData(); }

private:
    base::Result<EncodingOptions> options(const ColorSpace& colorSpace) const {
        EncodingOptions options;
        if (const base::Value& quality = base::valueForKey(properties_, kCGImageDestinationLossyCompressionQuality))
            options.quality = std::fmin(std::fmax(quality.doubleValue(), 0), 1); // 0 for what is no number
        auto exif = exifBlock({properties_, image_->width(), image_->height(), colorSpace.isSRGB()});
        if (!exif) return base::failure(exif.error());
        options.exif = std::move(*exif);
        options.properties = properties_;
        return options;
    }

    base::Result<void> encode() {
        if (type_.encodeDeep && base::valueForKey(properties_, kCGImagePropertyDepth).integerValue() == 16) {
            const auto reader = DeepPixelReader::open(*image_);
            if (!reader) return base::failure(reader.error());
            if (*reader) {
                const auto asked = options(*deepColorSpace(*image_));
                if (!asked) return base::failure(asked.error());
                return type_.encodeDeep(*image_, **reader, *asked, *sink_);
            }
        }
        const auto bitmap = image_->bitmap();
        if (!bitmap) return base::failure(bitmap.error());
        const auto asked = options(*bitmap->colorSpace());
        if (!asked) return base::failure(asked.error());
        return type_.encode(*bitmap, *asked, *sink_);
    }

    const WritableType& type_;
    std::unique_ptr<ByteSink> sink_;
    ImageRef image_;
    base::Dictionary properties_;
    bool isDone_ = false;
};

base::Result<const WritableType*> findType(std::string_view typeIdentifier) {
    if (const WritableType* type = writableType(typeIdentifier)) return type;
    return base::failure(base::cocoaErrorDomain, 0,
                         "images of type \"" + std::string(typeIdentifier) + "\" can't be written");
}

} // namespace

bool ImageDestination::canWriteType(std::string_view typeIdentifier) {
    return writableType(typeIdentifier) != nullptr;
}

std::vector<std::string_view> ImageDestination::writableTypeIdentifiers() {
    std::vector<std::string_view> identifiers;
    for (const WritableType& type : writableTypes)
        identifiers.push_back(type.typeIdentifier);
    return identifiers;
}

base::Result<std::unique_ptr<ImageDestination>>
ImageDestination::createWithURL(const base::URL& url, std::string_view typeIdentifier, NextName nextName) {
    const auto type = findType(typeIdentifier);
    if (!type) return base::failure(type.error());
    auto sink = makeFileSink(url, std::move(nextName));
    if (!sink) return base::failure(sink.error());
    return std::make_unique<EncodingDestination>(**type, std::move(*sink));
}

base::Result<std::unique_ptr<ImageDestination>> ImageDestination::createWithData(std::string_view typeIdentifier) {
    const auto type = findType(typeIdentifier);
    if (!type) return base::failure(type.error());
    return std::make_unique<EncodingDestination>(**type, makeMemorySink());
}

base::Result<base::URL> writeWithoutReplacing(const base::Data& bytes, const base::URL& url, NextName nextName) {
    auto sink = makeFileSink(url, std::move(nextName));
    if (!sink) return base::failure(sink.error());
    (*sink)->write(bytes.bytes.data(), bytes.size());
    if (auto written = (*sink)->commit(); !written) return base::failure(written.error());
    return (*sink)->url();
}

} // namespace platform::draw
