// One render of one template, or the layout of one: both place each layer by the same steps, and the render then draws
// what was placed. Used on the template's queue.
#pragma once

#include "imaging/KLARON_Image.h"
#include "platform/draw/BitmapContext.h"
#include "template/TemplateLayout.h"
#include "template/VELM_Template.h"

#include <optional>
#include <string>
#include <vector>

class TemplateRenderer {
public:
    explicit TemplateRenderer(VELM_Template& drawn) : drawn_(drawn) {}

    /// Null when there can be no canvas.
    platform::draw::ImageRef render();
    /// Draws nothing and logs nothing.
    std::vector<LayerLayout> layout();
    /// Why the picture must not become a product.
    const std::optional<base::Error>& error() const { return error_; }

    /// How the layer's text is drawn; none without a text and for layers that are no text.
    static std::optional<platform::draw::TextAttributes> attributesOf(const VELM_Template& layer,
                                                                      bool logsSubstitution);

private:
    enum class Purpose { drawing, layout };

    /// What a layer is drawn from: an image that is ready but for its canvas, or why there is none.
    struct PlacedLayer {
        base::Rect frame; // y down
        KLARON_ImageRef image;
        LayerOmission omission = LayerOmission::none;
        std::string file;
        bool isPlaceholder = false;
        std::optional<platform::draw::AttributedText> text;
    };

    VELM_Template::Layers drawingList() const;
    PlacedLayer place(VELM_Template& layer, Purpose purpose);
    void makeImage(VELM_Template& layer, Purpose purpose, PlacedLayer& placed);
    void makeText(const VELM_Template& layer, Purpose purpose, PlacedLayer& placed);
    void makeContainer(VELM_Template& layer, Purpose purpose, PlacedLayer& placed);
    void makePicture(VELM_Template& layer, PlacedLayer& placed);
    void search(const std::string& path, PlacedLayer& placed);
    bool open(const ImageObject& object, PlacedLayer& placed);
    LayerLayout layoutOf(VELM_Template& layer);
    double flipped(double y, double height) const { return drawn_.frame().height - height - y; }
    void fail(const base::Error& error) {
        if (!error_) error_ = error;
    }

    VELM_Template& drawn_;
    std::optional<base::Error> error_;
    std::optional<base::Error> unreadable_; // the first picture of a layer that is there and can't be opened
};
