#include "base/Log.h"
#include "imaging/KLARON_Image.h"
#include "platform/draw/CodeReader.h"

using platform::draw::CodeKind;
using platform::draw::FoundCode;
using platform::draw::ImageSource;

namespace {

using FoundCodes = std::vector<FoundCode>;

base::Result<FoundCodes> codesInFile(const std::optional<base::URL>& url, std::optional<CodeKind> kind) {
    if (!url) return base::failure(base::cocoaErrorDomain, 0, "no file to look for codes in");
    const auto source = ImageSource::createWithURL(*url);
    if (!source) return base::failure(source.error());
    return platform::draw::readCodes((*source)->imageAtIndex(0), kind);
}

} // namespace

std::optional<std::string> KLARON_Image::decodedBarcodeImage(const ImageObject& object) {
    const auto url = object.fileURL();
    const base::Result<FoundCodes> codes = codesInFile(url, CodeKind::qr);
    if (!codes) {
        base::log("%@", codes.error());
        return std::nullopt;
    }
    std::optional<std::string> message;
    for (const FoundCode& code : *codes) {
        base::log("found a feature %@", code.description());
        if (!message)
            message = code.message;
        else
            base::log("WARNING: found extra QRCode (value = \"%@\") in image at %@", code.message, *url);
    }
    return message;
}

void KLARON_Image::detectBarcodesInImage(const ImageObject& object, const BarcodesReply& result) {
    const auto url = object.fileURL();
    const base::Result<FoundCodes> codes = codesInFile(url, std::nullopt);
    if (!codes) {
        if (result) result({}, codes.error());
        return;
    }
    base::log("%@", base::message("barcodes in %@: %lu", *url, codes->size()));
    if (result) result(*codes, std::nullopt);
}
