// Layers of rows over each other on a transparent ground: source over, premultiplied. A layer is there only within its
// rectangle; its reader is let go after its last row.
#pragma once

#include "FilterRows.h"
#include "platform/draw/RowReader.h"

#include <array>
#include <vector>

namespace platform::filter {

struct Layer {
    PixelRect rect;               ///< On the grid of the layers, within it.
    draw::RowReaderRef reader;    ///< Of the rectangle's size; null for a layer of one colour.
    std::array<float, 4> color{}; ///< Of such a layer: premultiplied, coded in the layers' space.
    /// What the edges of a crop leave of the outermost columns and rows.
    double firstColumn = 1;
    double lastColumn = 1;
    double firstRow = 1;
    double lastRow = 1;

    bool isWhole() const { return firstColumn == 1 && lastColumn == 1 && firstRow == 1 && lastRow == 1; }
    bool isOpaque() const { return isWhole() && (reader ? reader->format().opaque : color[3] == 1); }
};

/// From the lowest layer to the topmost, all in `depth` and `colorSpace`.
draw::RowReaderRef layerRows(std::vector<Layer> layers, int width, int height, draw::RowDepth depth,
                             const draw::ColorSpaceRef& colorSpace);

} // namespace platform::filter
