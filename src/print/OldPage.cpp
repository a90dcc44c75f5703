#include "OldPage.h"

#include "platform/data/AtomicFile.h"
#include "platform/data/PropertyList.h"

#include <string>
#include <string_view>
#include <utility>

namespace {

std::int64_t integerForKey(const base::Dictionary& dictionary, std::string_view key) {
    return base::valueForKey(dictionary, key).integerValue();
}

const base::Dictionary& dictionaryForKey(const base::Dictionary& dictionary, std::string_view key) {
    static const base::Dictionary none;
    const auto* inner = base::valueForKey(dictionary, key).as<base::Dictionary>();
    return inner ? *inner : none;
}

} // namespace

base::Result<base::Dictionary> readOldPage(const base::Value& urlOrDictionary) {
    if (const auto* dictionary = urlOrDictionary.as<base::Dictionary>()) return *dictionary;
    const auto* url = urlOrDictionary.as<base::URL>();
    if (!url) return base::failure(base::cocoaErrorDomain, 0, "A page is neither a dictionary nor a file");
    if (!url->isFileURL()) return base::failure(base::cocoaErrorDomain, 0, url->absoluteString() + " is no file");
    auto bytes = platform::data::readFile(url->path());
    if (!bytes) return base::failure(std::move(bytes.error()));
    auto value = platform::data::parsePropertyList(*bytes);
    if (!value) {
        base::Error error = std::move(value.error());
        error.localizedDescription = url->path() + ": " + error.localizedDescription;
        return base::failure(std::move(error));
    }
    if (auto* dictionary = value->as<base::Dictionary>()) return std::move(*dictionary);
    return base::failure(base::cocoaErrorDomain, 0, url->path() + ": The property list holds no dictionary");
}

std::optional<OldPageSettings> oldPageSettings(const base::Value& urlOrDictionary) {
    const auto page = readOldPage(urlOrDictionary);
    if (!page) return std::nullopt;
    const base::Dictionary& media = dictionaryForKey(*page, "mediaSettings");
    const base::Dictionary& printing = dictionaryForKey(*page, "mitsubishiSettings"); // of all makes
    return OldPageSettings{.printer = integerForKey(*page, "printer"),
                           .mediaType = integerForKey(media, "mediaType"),
                           .cutInHalf = integerForKey(media, "cutInHalf"),
                           .printingMode = integerForKey(printing, "printingMode"),
                           .lamination = integerForKey(printing, "lamination")};
}
