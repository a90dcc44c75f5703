// What a text frame holds: the Pango layout and where each of its visible lines stands. Coordinates are the frame's,
// y down from its top left.
#pragma once

#include "platform/draw/TextFrame.h"

#include <memory>
#include <pango/pangocairo.h>
#include <vector>

namespace platform::draw {

struct UnrefObject {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class T>
using ObjectPointer = std::unique_ptr<T, UnrefObject>;

struct TextFrame::Storage {
    struct PlacedLine {
        PangoLayoutLine* line; // owned by the layout
        Line placed;
        base::Rect ink;
    };
    ObjectPointer<PangoLayout> layout;
    std::vector<PlacedLine> lines;
    bool isComplete = true;

    /// Fills the glyphs with the context's present source.
    void drawGlyphs(cairo_t* cairo) const;
};

} // namespace platform::draw
