// A named place of an output: the template of that name is drawn into each of its frames. Frames are rectangles in
// pixels of the output's canvas, counted from its top left with y going down; a frame of empty size has the size of the
// template. Belongs to its output; not changed while that runs.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::data {
class Findings;
class XMLNode;
using XMLNodeRef = std::shared_ptr<XMLNode>;
} // namespace platform::data

class VELM_Output_node : public base::Object {
public:
    VELM_Output_node() = default;
    /// Reads an element with `type="node"`; the element's name becomes the node's. Reading never fails.
    static std::shared_ptr<VELM_Output_node> initWithNode(const platform::data::XMLNode& element,
                                                          platform::data::Findings* report = nullptr);
    /// From the archived form.
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& values);

    const std::string& name() const { return name_; }
    void setName(std::string name) { name_ = std::move(name); }

    /// The frames as texts, in the canonical form of a rectangle.
    const std::vector<std::string>& frames() const { return frames_; }
    void addOutputFrame(const base::Rect& frame);
    /// A text that can't be read is stored as the zero rectangle.
    void addOutputFrameString(std::string_view frame);

    /// The part of the template's image to use, in its pixels from the top left.
    const std::optional<std::string>& cropRectString() const { return cropRectString_; }
    /// The shadow's offset as a size, y down.
    const std::optional<std::string>& offsetPointString() const { return offsetPointString_; }
    const std::optional<std::string>& gravity() const { return gravity_; }
    static std::string_view gravityDefault() { return "resizeAspectFill"; }
    /// Its presence turns the shadow on.
    const std::optional<std::string>& shadowColor() const { return shadowColor_; }
    const std::optional<std::string>& shadowBlur() const { return shadowBlur_; }
    const std::optional<std::string>& backgroundColor() const { return backgroundColor_; }
    /// The EXIF orientation given to the template's image before it is drawn.
    const std::optional<std::int64_t>& tiffOrientation() const { return tiffOrientation_; }

    /// Whether the node fills an output of that size just by its image: no frame, or one frame equal to the whole.
    bool matchesOutputSize(base::Size size) const;

    /// Calls back for each frame, in order, with its index, a place to set for stopping, and the rectangle in the
    /// canvas's drawing coordinates (pixels, y up from the bottom left). Frames outside the canvas are not left out.
    using FrameCallback = std::function<void(std::size_t index, bool& stop, const base::Rect& frame)>;
    void canvasSize(base::Size canvasSize, base::Size nodeSize, const FrameCallback& enumerateOutputFrames) const;

    /// The element of a ticket: the name and the frames alone.
    const std::string& xmlElementName() const { return name_; }
    std::vector<std::pair<std::string, std::string>> xmlElementAttributes() const;
    std::vector<platform::data::XMLNodeRef> xmlElementChildren() const;
    platform::data::XMLNodeRef asXMLElement() const;

    std::string className() const override { return "VELM_Output_node"; }
    std::string description() const override;
    std::optional<base::Dictionary> encoded() override;

private:
    bool readChild(const platform::data::XMLNode& child, platform::data::Findings* report);

    std::string name_;
    std::vector<std::string> frames_;
    std::optional<std::string> cropRectString_;
    std::optional<std::string> offsetPointString_;
    std::optional<std::string> gravity_;
    std::optional<std::string> shadowColor_;
    std::optional<std::string> shadowBlur_;
    std::optional<std::string> backgroundColor_;
    std::optional<std::int64_t> tiffOrientation_;
};
