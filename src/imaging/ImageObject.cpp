#include "imaging/ImageObject.h"

#include "base/MessageTemplate.h"
#include "imaging/KLARON_Image.h"
#include "platform/data/AtomicFile.h"

bool ImageValue::isEqual(const base::Object& other) const {
    const auto* value = dynamic_cast<const ImageValue*>(&other);
    return value && value->image_ == image_;
}

ImageObject::ImageObject(platform::draw::ImageRef image) {
    if (image) storage_ = std::move(image);
}

ImageObject::ImageObject(KLARON_ImageRef image) {
    if (image) storage_ = std::move(image);
}

ImageObject::ImageObject(const base::Value& value) {
    if (value.isNothing()) return;
    if (const auto* path = value.as<std::string>())
        storage_ = *path;
    else if (const auto* url = value.as<base::URL>())
        storage_ = *url;
    else if (const auto* data = value.as<base::Data>())
        storage_ = *data;
    else if (const auto held = value.object<ImageValue>())
        *this = ImageObject(held->image());
    else if (const auto image = value.object<KLARON_Image>())
        storage_ = image;
    else
        storage_ = Other{};
}

std::optional<base::URL> ImageObject::fileURL() const {
    if (const auto* path = as<std::string>(); path && !path->empty()) return base::URL::fileURLWithPath(*path);
    if (const auto* url = as<base::URL>(); url && url->isFileURL()) return *url;
    return std::nullopt;
}

base::Result<base::Data> ImageObject::fileBytes() const {
    constexpr std::size_t maximumSize = std::size_t{2}
                                        << 30; // an uncompressed picture of as many pixels as can be drawn
    if (const auto* data = as<base::Data>()) return *data;
    if (const auto url = fileURL()) return platform::data::readFile(url->path(), maximumSize);
    return base::failure(base::cocoaErrorDomain, 0, description() + " is no file");
}

std::string ImageObject::description() const {
    if (!*this) return "(null)";
    if (const auto* path = as<std::string>()) return *path;
    if (const auto* url = as<base::URL>()) return url->absoluteString();
    if (const auto* data = as<base::Data>()) return base::message("<%lu bytes>", data->size());
    if (const auto* image = as<platform::draw::ImageRef>())
        return base::message("<CGImage %d x %d>", (*image)->width(), (*image)->height());
    if (const auto* image = as<KLARON_ImageRef>()) return (*image)->description();
    return "<no image object>";
}
