// Layers out of what was copied in another program: a picture becomes a graphic whose file lies in the graphics folder,
// a text a textbox in the style of its first character. No pasteboard is asked here: the caller brings data and type.
#include "template/VELM_Template.h"

#include "base/Log.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "imaging/KLARON_Image.h"
#include "imaging/KLARON_color.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/Dates.h"
#include "platform/data/FileTypes.h"
#include "platform/data/UserDefaults.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/StyledText.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace {

bool holds(const auto& types, std::string_view type) {
    return std::any_of(types.begin(), types.end(),
                       [&](std::string_view known) { return base::equalIgnoringCase(known, type); });
}

// Where the picture was written: under a name with the moment, and with a counter behind its extension when that is
// taken. Nothing when it could not be written.
std::optional<std::string> writeToGraphicsFolder(const base::Data& picture, std::string_view type) {
    constexpr int mostFailures = 999;
    const auto folder = platform::data::UserDefaults::standard().stringForKey(key_velmFolderGraphics);
    if (!folder) return std::nullopt;
    const std::string date = platform::data::stringWithUTSFormat(platform::data::now(), "yyyy-MM-dd_HH.mm.ss");
    const std::string name =
        base::appendingPathExtension("pastedGraphic_" + date, platform::data::preferredExtensionForType(type));
    std::string path = base::appendingPathComponent(*folder, name);
    for (int failures = 0; failures < mostFailures;) {
        const auto written = platform::data::writeNewFileAtomically(path, picture.asText());
        if (written) return path;
        if (written.error().code != EEXIST) return std::nullopt; // no other name would help
        path = base::appendingPathComponent(*folder, name + "-" + std::to_string(++failures));
    }
    return std::nullopt;
}

void becomeGraphic(VELM_Template& layer, const base::Data& picture, std::string_view type) {
    const auto path = writeToGraphicsFolder(picture, type);
    if (!path) return;
    layer.setGraphicPath(*path);
    layer.setLayerType(VELM_Template::LayerTypeGraphic);
    const base::Size size = KLARON_Image::orientedSizeForImage(*path);
    layer.setFrame({0, 0, size.width, size.height});
}

void becomeText(VELM_Template& layer, const base::Data& data, std::string_view type) {
    const auto styled = platform::draw::readStyledText(data, type);
    layer.setLayerType(VELM_Template::LayerTypeTextbox);
    if (!styled) return base::log("%@", styled.error().localizedDescription);
    if (styled->string.empty()) return;
    const platform::draw::AttributedText text = styled->attributedText();
    layer.setStringValue(text.string);
    layer.setTextColorCode(KLARON_color::hexcodeForColor(text.attributes.color));
    layer.setFontName(text.attributes.fontName);
    layer.setFontSize(base::shortestDecimal(text.attributes.fontSize));
    layer.setTextAlignment(static_cast<int>(text.attributes.alignment));
    // Measured as the layer draws it, should its font be missing.
    const base::Size size = platform::draw::sizeOfText({text.string, *layer.attributes()}, 0);
    layer.setFrame({0, 0, size.width, size.height});
}

} // namespace

std::span<const std::string_view> VELM_Template::pasteboardReadableTypes() {
    static constexpr std::array types{platform::data::kUTTypeText, platform::data::kUTTypeImage};
    return types;
}

std::vector<std::string> VELM_Template::readableTypesForPasteboard(const PasteboardItems& items) {
    std::vector<std::string> types;
    for (const std::string_view type : platform::draw::styledTextTypes())
        types.emplace_back(type);
    for (const std::string_view type : platform::draw::ImageSource::typeIdentifiers())
        types.emplace_back(type);
    for (const std::vector<std::string>& itemTypes : items)
        for (const std::string& type : itemTypes)
            if (holds(pasteboardReadableTypes(), type) && !holds(types, type)) types.push_back(type);
    return types;
}

unsigned VELM_Template::readingOptionsForType(std::string_view, const PasteboardItems&) {
    return 0;
}

VELM_Template::Ref VELM_Template::initWithPasteboardPropertyList(const base::Value& propertyList,
                                                                 std::string_view ofType) {
    const Ref layer = initForCopy();
    const auto* data = propertyList.as<base::Data>();
    if (data && holds(platform::draw::ImageSource::typeIdentifiers(), ofType))
        becomeGraphic(*layer, *data, ofType);
    else if (data && holds(platform::draw::styledTextTypes(), ofType))
        becomeText(*layer, *data, ofType);
    return layer;
}
