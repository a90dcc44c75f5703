// The keys of a template's values as one table: what each holds, what the accessors answer without it, what a setter
// makes of its argument, in which setting the value last used is kept, and which properties change with it. Accessors,
// readers and listings ask this table; a default or a rule stands nowhere else. Constant data, any thread.
#pragma once

#include "template/VELM_XML_object.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <variant>

inline constexpr std::string_view VELM_XML_Key_frame = "frame";
inline constexpr std::string_view VELM_XML_Key_zindex = "zindex";
inline constexpr std::string_view VELM_XML_Key_key = "key";
inline constexpr std::string_view VELM_XML_Key_gravity = "gravity";
inline constexpr std::string_view VELM_XML_Key_filepath = "filepath";
inline constexpr std::string_view VELM_XML_Key_filename = "filename";
inline constexpr std::string_view VELM_XML_Key_allimages = "allimages";
inline constexpr std::string_view VELM_XML_Key_croprect = "croprect";
inline constexpr std::string_view VELM_XML_Key_normal = "normal";
inline constexpr std::string_view VELM_XML_Key_rotation = "rotation";
inline constexpr std::string_view VELM_XML_Key_autorotate = "autorotate";
inline constexpr std::string_view VELM_XML_Key_string = "string";
inline constexpr std::string_view VELM_XML_Key_stampFormat = "stampFormat";
inline constexpr std::string_view VELM_XML_Key_stamp = "stamp";
inline constexpr std::string_view VELM_XML_Key_hideExtension = "hideExtension";
inline constexpr std::string_view VELM_XML_Key_font = "font";
inline constexpr std::string_view VELM_XML_Key_size = "size";
inline constexpr std::string_view VELM_XML_Key_textAlignment = "textAlignment";
inline constexpr std::string_view VELM_XML_Key_color = "color";
inline constexpr std::string_view VELM_XML_Key_shadowcolor = "shadowcolor";
inline constexpr std::string_view VELM_XML_Key_textshadow = "textshadow";
inline constexpr std::string_view VELM_XML_Key_shadowEnabled = "shadowEnabled";
inline constexpr std::string_view VELM_XML_Key_blur = "blur";
inline constexpr std::string_view VELM_XML_Key_offset = "offset";
inline constexpr std::string_view VELM_XML_Key_bordercolor = "bordercolor";
inline constexpr std::string_view VELM_XML_Key_borderWidth = "borderWidth";
inline constexpr std::string_view VELM_XML_Key_borderEnabled = "borderEnabled";
inline constexpr std::string_view VELM_XML_Key_clipsContent = "clipsContent";
inline constexpr std::string_view VELM_XML_Key_borderShadowColor = "borderShadowColor";
inline constexpr std::string_view VELM_XML_Key_borderShadowBlur = "borderShadowBlur";
inline constexpr std::string_view VELM_XML_Key_backgroundcolor = "backgroundcolor";
inline constexpr std::string_view VELM_XML_Key_backgroundEnabled = "backgroundEnabled";
inline constexpr std::string_view VELM_XML_Key_textcolorOptional = "textcolorOptional";
inline constexpr std::string_view VELM_XML_Key_textshadowOptional = "textshadowOptional";
inline constexpr std::string_view VELM_XML_Key_overflowx = "overflowx";
inline constexpr std::string_view VELM_XML_Key_overflowy = "overflowy";
inline constexpr std::string_view VELM_XML_Key_layers = "layers";
inline constexpr std::string_view VELM_XML_Key_preprocess = "preprocess";

struct TemplateKey {
    enum class Kind {
        text,
        yesNo,     ///< The text "yes" or "no".
        colorCode, ///< A text, as imaging/KLARON_color.h reads it.
        points,    ///< A text in the form of a point or rectangle.
        picture,   ///< A path text; an image object once a whole template was drawn into the hole.
        number,    ///< A number, or a text that a number leads.
        boolean,
        rectangle,
        templates, ///< An array of VELM_Template.
        dictionary,
    };
    /// What the setter does with its argument. Setters raise the parent's change count, save where it says otherwise.
    enum class Rule {
        noSetter,
        asGiven,
        whenDifferent,
        nothingIsEmptyText, ///< Nothing becomes the empty text; stored when different.
        nothingIsIgnored,   ///< Nothing changes nothing; stored when different.
        textOrCleared,      ///< What is no text clears the key. Raises no count.
        uncounted,          ///< As given. Raises no count.
        own,                ///< The setter works out or refuses what it stores.
    };
    /// What the accessors answer in the absence of a value.
    enum class Otherwise {
        nothing,
        fixed,         ///< `fixedDefault`.
        secondKey,     ///< What stands under `secondKey`, or else `fixedDefault`.
        lastUsed,      ///< What the setting `lastUsed` holds, or else `fixedDefault`.
        parents,       ///< What the parent answers.
        derived,       ///< What the accessor derives from other keys.
        emptyAndStored ///< An empty one, which is stored by the reading of it.
    };

    std::string_view name;
    Kind kind = Kind::text;
    Rule rule = Rule::noSetter;
    Otherwise otherwise = Otherwise::nothing;
    std::variant<std::monostate, std::string_view, double, bool> fixedDefault = {};
    std::string_view secondKey = {};
    /// The settings in which the code and the opacity are kept that were set last; empty: nowhere.
    std::string_view lastUsed = {};
    std::string_view lastUsedOpacity = {};
    /// Properties of VELM_Template that change with this key; the rest is empty.
    std::array<std::string_view, 7> propertyNames = {};

    base::Value defaultValue() const;
    constexpr std::span<const std::string_view> properties() const {
        const auto end = std::find(propertyNames.begin(), propertyNames.end(), std::string_view());
        return {propertyNames.data(), static_cast<std::size_t>(end - propertyNames.begin())};
    }
};

std::span<const TemplateKey> templateKeys();
/// Null for a name that is no key of the table; such entries come out of files and are kept.
const TemplateKey* templateKey(std::string_view name);
