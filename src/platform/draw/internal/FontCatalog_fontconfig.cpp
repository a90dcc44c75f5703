#include "FontCatalog.h"

#include "base/Text.h"

#include <algorithm>
#include <fontconfig/fontconfig.h>
#include <pango/pangofc-fontmap.h>

namespace platform::draw {
namespace {

struct DestroyFontSet {
    void operator()(FcFontSet* set) const { FcFontSetDestroy(set); }
};

// Faces that documents may always ask for. Where they are not installed, fontconfig puts metric-compatible ones in
// their place.
struct StandardFace {
    const char* postScriptName;
    const char* fullName;
    const char* description;
};
constexpr StandardFace standardFaces[] = {
    {"Helvetica", "Helvetica", "Helvetica"},
    {"Helvetica-Bold", "Helvetica Bold", "Helvetica Bold"},
    {"Helvetica-Oblique", "Helvetica Oblique", "Helvetica Oblique"},
    {"Helvetica-BoldOblique", "Helvetica Bold Oblique", "Helvetica Bold Oblique"},
};

std::vector<std::string> textsOf(FcPattern* pattern, const char* property) {
    std::vector<std::string> texts;
    FcChar8* text = nullptr;
    for (int index = 0; FcPatternGetString(pattern, property, index, &text) == FcResultMatch; ++index)
        texts.emplace_back(reinterpret_cast<const char*>(text));
    return texts;
}

// How far a face is from one of this weight, style and width.
int distance(const PangoFontDescription* face, int weight, PangoStyle style, int stretch) {
    const bool isSlanted = pango_font_description_get_style(face) != PANGO_STYLE_NORMAL;
    return std::abs(int(pango_font_description_get_weight(face)) - weight) +
           (isSlanted == (style != PANGO_STYLE_NORMAL) ? 0 : 2000) +
           1000 * std::abs(int(pango_font_description_get_stretch(face)) - stretch);
}

// How far a face is from the plain one of its family: the least answers to the family's name.
int distanceFromPlain(const PangoFontDescription* description) {
    return distance(description, PANGO_WEIGHT_NORMAL, PANGO_STYLE_NORMAL, PANGO_STRETCH_NORMAL);
}

FontDescription copyOf(const PangoFontDescription* description) {
    return FontDescription(pango_font_description_copy(description));
}

std::string foldedFamily(const PangoFontDescription* description) {
    const char* family = pango_font_description_get_family(description);
    return family ? base::lowercase(family) : std::string();
}

} // namespace

const FontCatalog& FontCatalog::shared() {
    static const auto* catalog = new FontCatalog; // outlives every user at exit
    return *catalog;
}

FontCatalog::FontCatalog() {
    FcPattern* anything = FcPatternCreate();
    FcObjectSet* wanted =
        FcObjectSetBuild(FC_POSTSCRIPT_NAME, FC_FULLNAME, FC_FAMILY, FC_STYLE, FC_WEIGHT, FC_SLANT, FC_WIDTH, nullptr);
    const std::unique_ptr<FcFontSet, DestroyFontSet> fonts(FcFontList(nullptr, anything, wanted));
    FcObjectSetDestroy(wanted);
    FcPatternDestroy(anything);

    for (int index = 0; fonts && index < fonts->nfont; ++index) {
        FcPattern* pattern = fonts->fonts[index];
        const FontDescription description(pango_fc_font_description_from_pattern(pattern, FALSE));
        for (std::string& name : textsOf(pattern, FC_POSTSCRIPT_NAME)) {
            byPostScriptName_.try_emplace(base::lowercase(name), copyOf(description.get()));
            faces_.emplace(foldedFamily(description.get()), Face{name, copyOf(description.get())});
            postScriptNames_.push_back(std::move(name));
        }
        for (const std::string& name : textsOf(pattern, FC_FULLNAME))
            byFullName_.try_emplace(base::lowercase(name), copyOf(description.get()));
        for (const std::string& name : textsOf(pattern, FC_FAMILY)) {
            FontDescription& face = byFamily_[base::lowercase(name)];
            if (!face || distanceFromPlain(description.get()) < distanceFromPlain(face.get()))
                face = copyOf(description.get());
        }
    }
    for (const StandardFace& standard : standardFaces) {
        const FontDescription description(pango_font_description_from_string(standard.description));
        if (byPostScriptName_.try_emplace(base::lowercase(standard.postScriptName), copyOf(description.get())).second) {
            postScriptNames_.emplace_back(standard.postScriptName);
            faces_.emplace(foldedFamily(description.get()), Face{standard.postScriptName, copyOf(description.get())});
        }
        byFullName_.try_emplace(base::lowercase(standard.fullName), copyOf(description.get()));
    }
    std::sort(postScriptNames_.begin(), postScriptNames_.end());
    postScriptNames_.erase(std::unique(postScriptNames_.begin(), postScriptNames_.end()), postScriptNames_.end());
}

const PangoFontDescription* FontCatalog::find(std::string_view name) const {
    const std::string folded = base::lowercase(name);
    for (const Names* names : {&byPostScriptName_, &byFullName_, &byFamily_})
        if (const auto found = names->find(folded); found != names->end()) return found->second.get();
    return nullptr;
}

FontDescription FontCatalog::descriptionFor(std::string_view name) const {
    if (const PangoFontDescription* known = find(name)) return copyOf(known);
    FontDescription substitute(pango_font_description_new());
    pango_font_description_set_family(substitute.get(), std::string(name).c_str());
    return substitute;
}

std::string FontCatalog::postScriptNameFor(std::string_view name, bool isBold, bool isItalic) const {
    const PangoFontDescription* named = find(name);
    if (!named) return std::string(name);
    if (!isBold && !isItalic && byPostScriptName_.contains(base::lowercase(name))) return std::string(name);
    const int weight = isBold ? std::max(int(PANGO_WEIGHT_BOLD), int(pango_font_description_get_weight(named)))
                              : int(pango_font_description_get_weight(named));
    const PangoStyle style = isItalic ? PANGO_STYLE_ITALIC : pango_font_description_get_style(named);
    const auto distanceOf = [&](const auto& entry) {
        return distance(entry.second.description.get(), weight, style, pango_font_description_get_stretch(named));
    };
    const auto [first, last] = faces_.equal_range(foldedFamily(named));
    const auto nearest = std::min_element(
        first, last, [&](const auto& one, const auto& other) { return distanceOf(one) < distanceOf(other); });
    return nearest == last ? std::string(name) : nearest->second.postScriptName;
}

} // namespace platform::draw
