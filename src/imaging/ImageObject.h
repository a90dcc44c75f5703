// What the imaging operations take for an image: a path text, a URL, the data of a file, an image, a KLARON_Image, or
// nothing. A value; converts from each of these and from an attribute that holds one.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/draw/Image.h"

#include <memory>
#include <string>
#include <string_view>
#include <variant>

class KLARON_Image;
using KLARON_ImageRef = std::shared_ptr<KLARON_Image>;

/// An image as a member of an attribute dictionary.
class ImageValue : public base::Object {
public:
    explicit ImageValue(platform::draw::ImageRef image) : image_(std::move(image)) {}
    const platform::draw::ImageRef& image() const { return image_; }
    std::string className() const override { return "CGImage"; }
    bool isEqual(const base::Object& other) const override;
    std::size_t hash() const override { return std::hash<platform::draw::ImageRef>()(image_); }

private:
    platform::draw::ImageRef image_;
};

class ImageObject {
public:
    /// Something that is no image object (a number, say): opens as none.
    struct Other {
        friend bool operator==(const Other&, const Other&) = default;
    };
    using Storage = std::variant<std::monostate, std::string, base::URL, base::Data, platform::draw::ImageRef,
                                 KLARON_ImageRef, Other>;

    ImageObject() = default;
    ImageObject(std::nullptr_t) {}
    ImageObject(const char* path) : storage_(std::string(path)) {}
    ImageObject(std::string_view path) : storage_(std::string(path)) {}
    ImageObject(std::string path) : storage_(std::move(path)) {}
    ImageObject(base::URL url) : storage_(std::move(url)) {}
    ImageObject(base::Data data) : storage_(std::move(data)) {}
    ImageObject(platform::draw::ImageRef image);
    ImageObject(KLARON_ImageRef image);
    /// A text, URL, data, ImageValue or KLARON_Image; nothing for nothing, Other for everything else.
    ImageObject(const base::Value& value);
    template <class T>
    ImageObject(const std::optional<T>& object) {
        if (object) *this = ImageObject(*object);
    }

    explicit operator bool() const { return !std::holds_alternative<std::monostate>(storage_); }
    const Storage& storage() const { return storage_; }
    template <class T>
    const T* as() const {
        return std::get_if<T>(&storage_);
    }
    /// The file that a path or URL names; nothing for the rest.
    std::optional<base::URL> fileURL() const;
    /// The data, or all of the file, of at most 2 GiB.
    base::Result<base::Data> fileBytes() const;
    /// For log lines.
    std::string description() const;

    friend bool operator==(const ImageObject&, const ImageObject&) = default;

private:
    Storage storage_;
};
