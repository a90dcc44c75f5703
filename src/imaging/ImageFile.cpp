#include "imaging/ImageFile.h"

#include "base/Log.h"
#include "imaging/KLARON_Image.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/FileTypes.h"
#include "platform/draw/ImageDestination.h"

#include <algorithm>

namespace data = platform::data;
using namespace platform::draw;

namespace ImageFile {
namespace {

// Nothing stands for what `wanted` lacks of the writable properties among `former`.
void markRemoved(const base::Dictionary& former, base::Dictionary& wanted) {
    for (const auto& [name, content] : former) {
        const auto* entries = content.as<base::Dictionary>();
        const bool isRemoved = !wanted.contains(name);
        if (!entries) {
            if (isRemoved && canWriteProperty({}, name)) wanted.emplace(name, base::Value());
            continue;
        }
        base::Value& part = wanted[name];
        if (!part.as<base::Dictionary>()) part = base::Dictionary();
        for (const auto& [property, value] : *entries)
            if (canWriteProperty(name, property)) part.as<base::Dictionary>()->emplace(property, base::Value());
    }
}

bool endsLikeJPEG(std::string_view bytes) {
    return bytes.ends_with("\xFF\xD9");
}

} // namespace

bool changeImageProperties(const base::URL& url, const ChangeProperties& change,
                           const std::optional<base::URL>& savingToDestination) {
    if (!change || !data::conformsToType(url, data::kUTTypeImage)) return false;
    const auto failed = [](const base::Error& error) {
        base::log("%@", error);
        return false;
    };
    const auto bytes = ImageObject(url).fileBytes();
    if (!bytes) return failed(bytes.error());
    const auto source = ImageSource::createWithData(*bytes);
    if (!source) return failed(source.error());
    const base::Dictionary& former = (*source)->propertiesAtIndex(0);
    base::Dictionary wanted = change(former);
    if (wanted.contains(kCGImagePropertyPixelWidth)) markRemoved(former, wanted);
    const auto copy = copyOfImageFile(*bytes, data::typeIdentifierOfFile(url).value_or(""), wanted);
    if (!copy) return failed(copy.error());

    const auto modified = data::dateModified(url), created = data::dateCreated(url);
    const base::URL& target = savingToDestination.value_or(url);
    if (const auto written = data::writeFileAtomically(target.path(), *copy); !written) return failed(written.error());
    // A file system that can't keep them is no reason to fail.
    if (created) (void)data::setDateCreated(target, *created);
    if (modified) (void)data::setDateModified(target, *modified);
    return true;
}

bool setImageOrientation(const base::URL& url, const std::optional<int>& orientation,
                         const std::optional<base::URL>& savingToDestination) {
    if (!orientation || *orientation < 1 || *orientation > 8) return false;
    return changeImageProperties(
        url,
        [&](base::Dictionary properties) {
            properties.insert_or_assign(std::string(kCGImagePropertyOrientation), *orientation);
            return properties;
        },
        savingToDestination);
}

bool isValidJPEGFile(const base::URL& url) {
    const auto bytes = ImageObject(url).fileBytes();
    return bytes && endsLikeJPEG(bytes->asText());
}

bool isValidJPEGFileFaster(const base::URL& url) {
    constexpr std::uint64_t endSize = 2;
    const std::uint64_t size = data::fileSize(url).value_or(0);
    if (size < endSize) return false;
    const auto end = data::readFilePart(url.path(), size - endSize, endSize);
    if (!end) base::log("a file was closed or an error occured (%d)", end.error().code);
    return end && endsLikeJPEG(end->asText());
}

ImageRef thumbnailImageWithMaxSize(const base::URL& url, base::Size size) {
    const auto source = KLARON_Image::createCGImageSourceFromObject(url);
    const double side = std::clamp(std::max(size.width, size.height), 0.0, 1e9);
    if (!source || !(side >= 1)) return nullptr;
    return source->thumbnailAtIndex(0, static_cast<int>(side), true).value_or(nullptr);
}

} // namespace ImageFile
