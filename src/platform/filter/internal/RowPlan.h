// From a graph of nodes to the readers that deliver its rows. Geometry is carried down to the pictures, where all of it
// becomes one resampling; crops narrow what is asked; composites become one list of layers. Only colour filters stop
// it: they are computed on the pixels of their own image, which is then resampled as rows.
#pragma once

#include "FilterRows.h"
#include "Node.h"
#include "platform/draw/RowReader.h"
#include "platform/filter/FilterContext.h"

namespace platform::filter {

/// How the rows of the graph's largest picture lie on the device's grid: mirrored and turned by quarters, without scale
/// and translation. The identity when there is no picture.
base::AffineTransform turnOfRows(const Node& node, const base::AffineTransform& toDevice);

class RowPlan {
public:
    RowPlan(draw::RowDepth depth, RenderStatistics& statistics) : depth_(depth), statistics_(statistics) {}

    /// The rows of `visible`, whole numbers on a device's grid, y down, to which `toDevice` leads from the node's
    /// plane. In `colorSpace`, an RGB space, which is sRGB where there are filters; when it is null, in the own space
    /// of a single picture, or else in sRGB.
    base::Result<draw::RowReaderRef> rows(const Node& node, const base::AffineTransform& toDevice,
                                          const base::Rect& visible, const draw::ColorSpaceRef& colorSpace);

private:
    /// A picture, a colour or a filtered image, with what is seen of it.
    struct Leaf {
        const Node* node;
        base::AffineTransform toDevice;
        base::Rect clip;
    };

    static void collect(const Node& node, const base::AffineTransform& toDevice, const base::Rect& clip,
                        std::vector<Leaf>& leaves);
    base::Result<draw::RowReaderRef> leafRows(const Leaf& leaf, const base::Rect& box,
                                              const draw::ColorSpaceRef& colorSpace);
    base::Result<draw::RowReaderRef> pictureRows(const PictureNode& picture, const base::AffineTransform& toDevice,
                                                 const base::Rect& box, const draw::ColorSpaceRef& colorSpace);
    base::Result<draw::RowReaderRef> filterRows(const Node& node, const base::AffineTransform& toDevice,
                                                const base::Rect& box);
    base::Result<draw::RowReaderRef> resampledFilterRows(const Node& node, const base::AffineTransform& toDevice,
                                                         const base::Rect& box);

    draw::RowDepth depth_;
    RenderStatistics& statistics_;
};

} // namespace platform::filter
