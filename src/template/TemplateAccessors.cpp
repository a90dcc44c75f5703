// The views on a layer's attributes that carry a default, a derivation or a rule for storing: by the table of keys
// where it says all, by a function of their own where it does not.
#include "internal/TemplateGrammar.h"
#include "template/VELM_Template.h"

#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "imaging/KLARON_color.h"
#include "platform/data/UserDefaults.h"

#include <array>

using base::Value;
using platform::data::UserDefaults;
using Rule = TemplateKey::Rule;
using Otherwise = TemplateKey::Otherwise;

namespace {

// Text and number of each alignment; the number is the place.
constexpr std::array<std::string_view, 4> alignmentNames{"left", "right", "center", "justified"};

std::optional<double> numberOf(const Value& value) {
    if (value.isNumber() || (value.isText() && grammar::isLedByNumber(*value.as<std::string>())))
        return value.doubleValue();
    return std::nullopt;
}

// Colour codes of 6 or 3 digits get the alpha that a shadow has when none is given.
std::string completedWithShadowAlpha(std::string code) {
    const std::size_t digits = code.size() - (code.starts_with('#') ? 1 : 0);
    if (code.size() == 6 || (digits == 6 && code.size() == 7)) return code + "55";
    if (code.size() == 3 || (digits == 3 && code.size() == 4)) return code + "5";
    return code;
}

} // namespace

// --- By the table

const Value& VELM_Template::storedFor(const TemplateKey& key) const {
    const Value& stored = value(key.name);
    return stored || key.secondKey.empty() ? stored : value(key.secondKey);
}

std::string VELM_Template::textFor(std::string_view key) const {
    const TemplateKey& row = *templateKey(key);
    if (auto stored = storedFor(row).stringValue()) return *stored;
    if (row.otherwise == Otherwise::lastUsed) {
        if (auto lastUsed = UserDefaults::standard().stringForKey(row.lastUsed)) return *lastUsed;
    }
    return row.defaultValue().textOr("");
}

bool VELM_Template::boolFor(std::string_view key) const {
    const TemplateKey& row = *templateKey(key);
    const Value& stored = storedFor(row);
    return (stored ? stored : row.defaultValue()).boolValue();
}

void VELM_Template::store(std::string_view key, Value newValue) {
    const TemplateKey& row = *templateKey(key);
    if (row.rule == Rule::nothingIsIgnored && !newValue) return;
    if (row.rule == Rule::nothingIsEmptyText && !newValue) newValue = "";
    if (row.rule == Rule::textOrCleared) newValue = newValue.text();
    const bool onlyWhenDifferent =
        row.rule == Rule::whenDifferent || row.rule == Rule::nothingIsEmptyText || row.rule == Rule::nothingIsIgnored;
    if (onlyWhenDifferent && value(key) == newValue) return;
    if (const bool* yes = newValue.as<bool>(); yes && row.kind == TemplateKey::Kind::yesNo)
        newValue = base::stringForBOOL(*yes);
    put(row, std::move(newValue), row.rule != Rule::textOrCleared && row.rule != Rule::uncounted, row.lastUsed);
}

void VELM_Template::storeOpacity(std::string_view key, const std::string& code, double opacity) {
    const TemplateKey& row = *templateKey(key);
    put(row, KLARON_color::hexcodeChangingAlpha(code, opacity));
    if (!row.lastUsedOpacity.empty()) (void)UserDefaults::standard().setObject(opacity, row.lastUsedOpacity);
}

double VELM_Template::opacityOf(std::string_view colorCode) {
    return KLARON_color::alphaForHexcode(colorCode);
}

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
    return storedFor(*templateKey(VELM_XML_Key_filepath));
}

std::optional<std::string> VELM_Template::filepathCustomImage() const {
    if (auto own = value(VELM_XML_Key_allimages).text()) return own;
    const Ref enclosing = parent();
    return enclosing ? enclosing->filepathCustomImage() : std::nullopt;
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

int VELM_Template::textAlignment() const {
    const auto text = textAlignmentString();
    for (std::size_t number = 1; text && number < alignmentNames.size(); ++number) {
        if (base::equalIgnoringCase(*text, alignmentNames[number])) return static_cast<int>(number);
    }
    return 0;
}

void VELM_Template::setTextAlignment(int alignment) {
    if (alignment >= 0 && static_cast<std::size_t>(alignment) < alignmentNames.size())
        put(VELM_XML_Key_textAlignment, alignmentNames[static_cast<std::size_t>(alignment)]);
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
    put(flag.key, isKept ? Value(base::stringForBOOL(enabled)) : Value());
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

std::string VELM_Template::shadowColorCode() const {
    return completedWithShadowAlpha(textFor(VELM_XML_Key_shadowcolor));
}

double VELM_Template::shadowBlur() const {
    const Value& stored = value(VELM_XML_Key_blur);
    return (stored ? stored : templateKey(VELM_XML_Key_blur)->defaultValue()).doubleValue();
}

void VELM_Template::setShadowBlur(double blur) {
    if (blur >= 0) put(VELM_XML_Key_blur, blur);
}

base::Point VELM_Template::storedOffset() const {
    return base::pointFromString(value(VELM_XML_Key_offset).textOr(""));
}

void VELM_Template::storeOffset(base::Point offset) {
    put(VELM_XML_Key_offset, offset == base::Point() ? Value() : Value(base::stringFromPoint(offset)));
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
    const TemplateKey& row = *templateKey(VELM_XML_Key_borderWidth);
    const auto stored = numberOf(value(row.name));
    return (stored ? *stored : row.defaultValue().doubleValue()) * scale().value_or(1);
}
