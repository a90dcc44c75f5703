// The fonts of this machine by their PostScript, full and family names. Read once, on first use; immutable after that.
#pragma once

#include "TextFrameStorage.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform::draw {

struct FreeFontDescription {
    void operator()(PangoFontDescription* description) const { pango_font_description_free(description); }
};
using FontDescription = std::unique_ptr<PangoFontDescription, FreeFontDescription>;

class FontCatalog {
public:
    static const FontCatalog& shared();

    const std::vector<std::string>& postScriptNames() const { return postScriptNames_; }
    bool contains(std::string_view name) const { return find(name) != nullptr; }
    /// The face that a name stands for, without a size. A name that no font answers to is left to fontconfig's
    /// substitution.
    FontDescription descriptionFor(std::string_view name) const;
    /// The face of the named family or of the named face's family that comes nearest to it, bold or italic if asked:
    /// its PostScript name, or `name` itself when no font answers to it.
    std::string postScriptNameFor(std::string_view name, bool isBold, bool isItalic) const;

private:
    struct Face {
        std::string postScriptName;
        FontDescription description;
    };
    FontCatalog();
    const PangoFontDescription* find(std::string_view name) const;

    using Names = std::map<std::string, FontDescription, std::less<>>; // by folded name
    Names byPostScriptName_;
    Names byFullName_;
    Names byFamily_;
    std::multimap<std::string, Face, std::less<>> faces_; // by folded family
    std::vector<std::string> postScriptNames_;
};

} // namespace platform::draw
