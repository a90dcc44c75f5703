// The views on a layer's attributes that carry a default, a derivation or a rule for storing: content, text, colours,
// shadow, border, background.
#include "template/VELM_Template.h"

#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "imaging/KLARON_color.h"
#include "platform/data/UserDefaults.h"

#include <array>

using base::Value;
using platform::data::UserDefaults;

namespace {

constexpr std::string_view systemFontName = "Helvetica";
constexpr std::string_view defaultColorCode = "#FFFFFF";
// Text and number of each alignment; the number is the place.
constexpr std::array<std::string_view, 4> alignmentNames{"left", "right", "center", "justified"};

bool beginsWithNumber(std::string_view text) {
    text = base::trimmed(text);
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
    if (!text.empty() && text.front() == '.') text.remove_prefix(1);
    return !text.empty() && text.front() >= '0' && text.front() <= '9';
}

std::optional<double> numberOf(const Value& value) {
    if (value.isNumber() || (value.isText() && beginsWithNumber(*value.as<std::string>()))) return value.doubleValue();
    return std::nullopt;
}

std::string lastUsedColor(std::string_view defaultKey) {
    return UserDefaults::standard().stringForKey(defaultKey).value_or(std::string(defaultColorCode));
}

// Colour codes of 6 or 3 digits get the alpha that a shadow has when none is given.
std::string completedWithShadowAlpha(std::string code) {
    const std::size_t digits = code.size() - (code.starts_with('#') ? 1 : 0);
    if (code.size() == 6 || (digits == 6 && code.size() == 7)) return code + "55";
    if (code.size() == 3 || (digits == 3 && code.size() == 4)) return code + "5";
    return code;
}

} // namespace

// --- Content

std::optional<std::string> VELM_Template::name() const {
    switch (layerType()) {
    case LayerTypeImage:
    case LayerTypeGraphic: {
        const auto path = graphicPath().text();
        return path ? path : "Internal Preprocessed Template Image";
    }
    case LayerTypeTextbox:
    case LayerTypeStamp:
        return stringValue();
    default:
        return VELM_XML_object::name();
    }
}

const Value& VELM_Template::graphicPath() const {
    const Value& path = value(VELM_XML_Key_filepath);
    return path ? path : value(VELM_XML_Key_filename);
}

void VELM_Template::setGraphicPath(const Value& path) {
    storeWhenDifferent(VELM_XML_Key_filepath, path);
}

std::optional<std::string> VELM_Template::filepathCustomImage() const {
    if (auto own = value(VELM_XML_Key_allimages).text()) return own;
    const Ref enclosing = parent();
    return enclosing ? enclosing->filepathCustomImage() : std::nullopt;
}

void VELM_Template::setFilepathCustomImage(const Value& path) {
    setValue(VELM_XML_Key_allimages, path.text());
}

std::string_view VELM_Template::normalizedGravity(const std::optional<std::string>& gravity) {
    for (const std::string_view known : {"resize", "resizeAspect"}) {
        if (gravity == known) return known;
    }
    return "resizeAspectFill";
}

base::Rect VELM_Template::unflippedCropRect() const {
    return base::rectFromString(value(VELM_XML_Key_croprect).textOr(""));
}

bool VELM_Template::autorotate() const {
    const Value& stored = value(VELM_XML_Key_autorotate);
    return !stored || stored.boolValue();
}

// --- Text

void VELM_Template::setStringValue(const std::optional<std::string>& text) {
    storeWhenDifferent(VELM_XML_Key_string, text.value_or(""));
}

std::string VELM_Template::fontName() const {
    return textOf(VELM_XML_Key_font).value_or(std::string(systemFontName));
}

void VELM_Template::setFontName(const std::optional<std::string>& font) {
    if (font) storeWhenDifferent(VELM_XML_Key_font, *font);
}

std::string VELM_Template::fontSize() const {
    return textOf(VELM_XML_Key_size).value_or("48");
}

void VELM_Template::setFontSize(const std::optional<std::string>& size) {
    if (size) storeWhenDifferent(VELM_XML_Key_size, *size);
}

void VELM_Template::setTextAlignmentString(const std::optional<std::string>& alignment) {
    storeWhenDifferent(VELM_XML_Key_textAlignment, alignment.value_or(""));
}

int VELM_Template::textAlignment() const {
    const auto text = textAlignmentString();
    for (std::size_t number = 1; text && number < alignmentNames.size(); ++number) {
        if (base::equalIgnoringCase(*text, alignmentNames[number])) return static_cast<int>(number);
    }
    return 0;
}

void VELM_Template::setTextAlignment(int alignment) {
    if (alignment >= 0 && static_cast<std::size_t>(alignment) < alignmentNames.size())
        store(VELM_XML_Key_textAlignment, alignmentNames[static_cast<std::size_t>(alignment)]);
}

// --- Colours

void VELM_Template::storeAlsoAsDefault(std::string_view key, const Value& newValue, std::string_view defaultKey) {
    store(key, newValue);
    (void)UserDefaults::standard().setObject(newValue, defaultKey); // a failure is in the log; the layer has its colour
}

void VELM_Template::storeOpacity(std::string_view key, const std::string& code, double opacity,
                                 std::optional<std::string_view> defaultKey) {
    store(key, KLARON_color::hexcodeChangingAlpha(code, opacity));
    if (defaultKey) (void)UserDefaults::standard().setObject(opacity, *defaultKey);
}

std::string VELM_Template::textColorCode() const {
    return textOf(VELM_XML_Key_color).value_or("#000000");
}
void VELM_Template::setTextColorCode(const Value& code) {
    storeAlsoAsDefault(VELM_XML_Key_color, code, key_velmTemplateLastUsedColorText);
}
double VELM_Template::textOpacity() const {
    return KLARON_color::alphaForHexcode(textColorCode());
}
void VELM_Template::setTextOpacity(double opacity) {
    storeOpacity(VELM_XML_Key_color, textColorCode(), opacity, key_velmTemplateLastUsedOpacityText);
}

std::string VELM_Template::shadowColorCode() const {
    auto code = textOf(VELM_XML_Key_shadowcolor);
    if (!code) code = textOf(VELM_XML_Key_textshadow);
    return completedWithShadowAlpha(code.value_or("#00000055"));
}
double VELM_Template::shadowOpacity() const {
    return KLARON_color::alphaForHexcode(shadowColorCode());
}
void VELM_Template::setShadowOpacity(double opacity) {
    storeOpacity(VELM_XML_Key_shadowcolor, shadowColorCode(), opacity, std::nullopt);
}

std::string VELM_Template::borderColorCode() const {
    const auto code = textOf(VELM_XML_Key_bordercolor);
    return code ? *code : lastUsedColor(key_velmTemplateLastUsedColorBorder);
}
void VELM_Template::setBorderColorCode(const Value& code) {
    storeAlsoAsDefault(VELM_XML_Key_bordercolor, code, key_velmTemplateLastUsedColorBorder);
}
double VELM_Template::borderOpacity() const {
    return KLARON_color::alphaForHexcode(borderColorCode());
}
void VELM_Template::setBorderOpacity(double opacity) {
    storeOpacity(VELM_XML_Key_bordercolor, borderColorCode(), opacity, key_velmTemplateLastUsedOpacityBorder);
}

std::string VELM_Template::backgroundColorCode() const {
    const auto code = textOf(VELM_XML_Key_backgroundcolor);
    return code ? *code : lastUsedColor(key_velmTemplateLastUsedColorBackground);
}
void VELM_Template::setBackgroundColorCode(const Value& code) {
    storeAlsoAsDefault(VELM_XML_Key_backgroundcolor, code, key_velmTemplateLastUsedColorBackground);
}
double VELM_Template::backgroundOpacity() const {
    return KLARON_color::alphaForHexcode(backgroundColorCode());
}
void VELM_Template::setBackgroundOpacity(double opacity) {
    storeOpacity(VELM_XML_Key_backgroundcolor, backgroundColorCode(), opacity,
                 key_velmTemplateLastUsedOpacityBackground);
}

// --- Shadow, border and background: whether they are there

// An attribute that says yes or no by itself, and what says yes in its absence; a no is only kept beside an attribute
// that would otherwise mean yes, or that has to be written with it.
struct VELM_Template::EnableFlag {
    std::string_view key;
    std::array<std::string_view, 2> impliedBy;
    std::array<std::string_view, 2> keepsNo;

    static const EnableFlag shadow, border, background;
};
constinit const VELM_Template::EnableFlag VELM_Template::EnableFlag::shadow{
    VELM_XML_Key_shadowEnabled,
    {VELM_XML_Key_shadowcolor, VELM_XML_Key_textshadow},
    {VELM_XML_Key_shadowcolor, VELM_XML_Key_blur}};
constinit const VELM_Template::EnableFlag VELM_Template::EnableFlag::border{
    VELM_XML_Key_borderEnabled,
    {VELM_XML_Key_bordercolor, VELM_XML_Key_bordercolor},
    {VELM_XML_Key_bordercolor, VELM_XML_Key_clipsContent}};
constinit const VELM_Template::EnableFlag VELM_Template::EnableFlag::background{
    VELM_XML_Key_backgroundEnabled,
    {VELM_XML_Key_backgroundcolor, VELM_XML_Key_backgroundcolor},
    {VELM_XML_Key_backgroundcolor, VELM_XML_Key_backgroundcolor}};

bool VELM_Template::isEnabled(const EnableFlag& flag) const {
    const Value& stored = value(flag.key);
    return stored ? stored.boolValue() : value(flag.impliedBy[0]) || value(flag.impliedBy[1]);
}

void VELM_Template::setEnabled(const EnableFlag& flag, bool enabled) {
    const bool isKept = enabled || value(flag.keepsNo[0]) || value(flag.keepsNo[1]);
    store(flag.key, isKept ? Value(base::stringForBOOL(enabled)) : Value());
}

bool VELM_Template::hasShadow() const {
    return isEnabled(EnableFlag::shadow);
}
void VELM_Template::setHasShadow(bool hasShadow) {
    setEnabled(EnableFlag::shadow, hasShadow);
}
bool VELM_Template::hasBorder() const {
    return isEnabled(EnableFlag::border);
}
void VELM_Template::setHasBorder(bool hasBorder) {
    setEnabled(EnableFlag::border, hasBorder);
}
bool VELM_Template::hasBackground() const {
    return isEnabled(EnableFlag::background);
}
void VELM_Template::setHasBackground(bool hasBackground) {
    setEnabled(EnableFlag::background, hasBackground);
    if (!hasBackground || value(VELM_XML_Key_backgroundcolor)) return;
    // The colour that shows so far becomes the layer's own.
    const Value lastUsed = UserDefaults::standard().objectForKey(key_velmTemplateLastUsedOpacityBackground);
    setBackgroundOpacity(lastUsed ? lastUsed.doubleValue() : backgroundOpacity());
}

// --- Shadow and border: their measures

double VELM_Template::shadowBlur() const {
    const Value& stored = value(VELM_XML_Key_blur);
    return stored ? stored.doubleValue() : 9;
}

void VELM_Template::setShadowBlur(double blur) {
    if (blur >= 0) store(VELM_XML_Key_blur, blur);
}

base::Point VELM_Template::storedOffset() const {
    return base::pointFromString(value(VELM_XML_Key_offset).textOr(""));
}

void VELM_Template::storeOffset(base::Point offset) {
    store(VELM_XML_Key_offset, offset == base::Point() ? Value() : Value(base::stringFromPoint(offset)));
}

void VELM_Template::setShadowOffsetX(double x) {
    storeOffset({x, storedOffset().y});
}

void VELM_Template::setShadowOffsetY(double y) {
    storeOffset({storedOffset().x, y});
}

base::Size VELM_Template::shadowOffset() const {
    const base::Size stored = base::sizeFromString(value(VELM_XML_Key_offset).textOr(""));
    return {stored.width, isFlipped() ? 0 - stored.height : stored.height};
}

double VELM_Template::borderWidth() const {
    return numberOf(value(VELM_XML_Key_borderWidth)).value_or(5) * scale_.value_or(1);
}

void VELM_Template::setBorderClipsContent(bool clips) {
    store(VELM_XML_Key_clipsContent, base::stringForBOOL(clips));
}
