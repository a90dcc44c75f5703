// Where the layers of a template come to lie when it is drawn: which file fills a picture's frame and what of it shows,
// which font draws a text and where its lines stand, and why a layer is left out. It is worked out by the steps of the
// render itself, up to the drawing; no pixel of a picture is decoded.
//
// Frames are in pixels of the canvas that the layer stands on, origin at the top left, y downward. The canvas of a
// container is its own: the frames of its layers count from its top left.
#pragma once

#include "base/Geometry.h"
#include "platform/draw/TextFrame.h"
#include "template/VELM_Template.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Why a layer is not drawn.
enum class LayerOmission {
    none,              ///< It is drawn.
    typeIsNotDrawn,    ///< Neither picture nor text nor container.
    noText,            ///< A text layer without a text; a stamp that has nothing to tell.
    noPath,            ///< A picture layer that names no picture, and none was given for the run.
    missingPicture,    ///< The picture that it names is nowhere.
    unreadablePicture, ///< The picture is there and can't be opened: the render fails.
    noCanvas,          ///< A container whose frame makes no canvas: too small for a pixel, or too large.
    emptyFrame,        ///< A side of the frame is 0.
};

/// "no text", "the picture is missing"...; empty for none.
std::string_view descriptionOf(LayerOmission omission);

/// The picture of an image or graphic layer, or that of a container, which is its own canvas.
struct PictureLayout {
    std::string file;           ///< The path of the file that is drawn; empty for a picture in memory.
    bool isPlaceholder = false; ///< Stands for a photograph that is not there yet; previews only.
    int orientation = 1;        ///< As which it is drawn, autorotation included: 1 to 8.
    base::Size size;            ///< Upright, in its own pixels.
    base::Rect shown;           ///< The part of the upright picture that shows; empty when the crop misses it.
    base::Rect rect;            ///< What that part fills, before the layer's rotation.
};

struct TextLayout {
    std::string text;
    std::string fontName; ///< As asked for.
    bool isFontAvailable = true;
    std::string fontFamily; ///< Of the font that draws, as installed.
    double fontSize = 0;    ///< Pixels, scaled.
    platform::draw::TextAlignment alignment = platform::draw::TextAlignment::natural;
    base::Rect rect; ///< What it is laid out in, before the layer's rotation.
    struct Line {
        std::string text;
        double x = 0; ///< Where it begins.
        double baseline = 0;
        double width = 0;
    };
    std::vector<Line> lines; ///< Those that fit, in pixels of the canvas.
    bool isComplete = true;  ///< Whether the whole text fitted.
};

struct LayerLayout {
    VELM_Template::Ref layer;
    VELM_Template::LayerType type = VELM_Template::LayerTypeUnknown;
    base::Rect frame;    ///< Before the layer's rotation.
    double rotation = 0; ///< Radians, clockwise about the frame's centre.
    LayerOmission omission = LayerOmission::none;
    std::optional<PictureLayout> picture; ///< Of a picture or container that is drawn.
    std::optional<TextLayout> text;       ///< Of a text that is drawn.
    std::vector<LayerLayout> layers;      ///< Of a container, its canvas's own; also when it is not drawn.

    bool isDrawn() const { return omission == LayerOmission::none; }
};

/// The layers of a document from back to front, as its next render would place them; a template without layers that is
/// a picture or a text itself is its own only layer. Runs on the caller's thread, in turn with the document's renders,
/// and gives the layers the document's scale, as they do. Nothing is logged.
std::vector<LayerLayout> layoutOf(VELM_Template& document);

/// A text of one indented block for each layer, the same on every machine: numbers with two decimals, files without
/// their folders. Ends with a line break.
std::string layoutText(const VELM_Template& document, const std::vector<LayerLayout>& layers);
