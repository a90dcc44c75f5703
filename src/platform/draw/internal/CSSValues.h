// The few values of CSS and of HTML's attributes that styled text knows: declarations, colours, sizes, font lists.
#pragma once

#include "StyledTextReading.h"

#include <string_view>

namespace platform::draw {

/// Whether and how the characters of an element show.
struct ElementStyle {
    TextStyle text;
    bool isHidden = false;
    bool keepsWhiteSpace = false;
};

/// Takes in the declarations of a style attribute; those that are not known or not sound change nothing.
void applyDeclarations(std::string_view declarations, ElementStyle& style);
/// "#rgb", "#rrggbb", both with alpha, "rgb(...)", "rgba(...)" and the common names.
std::optional<Color> colorFromCSS(std::string_view text);
/// In points: a pixel is 3/4 of one; relative sizes are taken of `inherited`, 12 when there is none.
std::optional<double> fontSizeFromCSS(std::string_view text, std::optional<double> inherited);
/// The size of HTML's <font size>: 1 to 7, or with a sign counted from 3.
std::optional<double> fontSizeFromHTML(std::string_view text);
std::optional<TextAlignment> alignmentFromCSS(std::string_view text);
/// The first font of the list that is installed, else the first that has a name of its own; none for generic ones.
std::optional<std::string> fontFromList(std::string_view list);

} // namespace platform::draw
