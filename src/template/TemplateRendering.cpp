// From the tree to one picture: what each layer is drawn from, where, and in which style.
#include "template/VELM_Template.h"

#include "base/Log.h"
#include "folders/QueueHelpers.h"
#include "imaging/KLARON_Image.h"
#include "internal/PlaceholderPicture.h"
#include "platform/draw/BitmapContext.h"
#include "platform/run/Queue.h"

#include <array>
#include <filesystem>
#include <initializer_list>

using base::Rect;
using base::URL;
using base::Value;
using platform::draw::BitmapContext;
using platform::draw::ImageRef;
using platform::draw::Quality;

namespace {

constexpr std::string_view substituteFont = "Helvetica";
// Where a picture is looked for that is not at its path.
constexpr std::array<std::string_view, 3> pictureFolders{"Images", "Graphics", "Templates"};

// What turns a picture by a quarter when its shape and its hole's differ; mirrored pictures stay as they are.
std::optional<int> quarterTurned(int orientation) {
    switch (orientation) {
    case 1:
    case 3:
        return 6;
    case 6:
    case 8:
        return 1;
    default:
        return std::nullopt;
    }
}

base::Error noCanvasError(const VELM_Template& container) {
    return {
        std::string(base::posixErrorDomain), -3,
        base::message("no canvas of %@ pixels for %@", base::stringFromSize(container.canvasSize()), container.name())};
}

bool isLandscape(base::Size size) {
    return size.width > size.height;
}

} // namespace

// One render of one template.
class TemplateRenderer {
public:
    explicit TemplateRenderer(VELM_Template& drawn) : drawn_(drawn) {}

    ImageRef render();
    const std::optional<base::Error>& error() const { return error_; }

private:
    void drawLayer(VELM_Template& layer);
    KLARON_ImageRef imageOf(VELM_Template& layer);
    KLARON_ImageRef imageOfText(const VELM_Template& layer);
    KLARON_ImageRef imageOfContainer(VELM_Template& layer);
    KLARON_ImageRef pictureOf(VELM_Template& layer);
    KLARON_ImageRef search(VELM_Template& layer);
    KLARON_ImageRef open(const ImageObject& object);
    void fail(const base::Error& error) {
        if (!error_) error_ = error;
    }

    VELM_Template& drawn_;
    platform::draw::BitmapContextRef canvas_;
    std::optional<base::Error> error_;
    std::optional<base::Error> unreadable_; // the first picture of a layer that is there and can't be opened
};

ImageRef TemplateRenderer::render() {
    canvas_ = BitmapContext::create(drawn_.width(), drawn_.height(), KLARON_color::colorSpace());
    if (!canvas_) return nullptr;
    canvas_->setQuality(drawn_.isRenderingPreview() ? Quality::preview : Quality::final);
    if (drawn_.hasBackground()) {
        // Always white, and at the frame's own place.
        canvas_->saveState();
        canvas_->setFillColor(*KLARON_color::colorForHexcode("FFFFFF"));
        canvas_->fillRect(drawn_.frame());
        canvas_->restoreState();
    }
    auto layers = drawn_.layers();
    if (layers.empty()) layers.push_back(drawn_.shared_from_this());
    for (const auto& layer : layers)
        drawLayer(*layer);
    if (canvas_->drawError()) fail(*canvas_->drawError());
    return canvas_->makeImage();
}

void TemplateRenderer::drawLayer(VELM_Template& layer) {
    layer.setScale(drawn_.scale());
    Rect place = layer.frame();
    if (&layer == &drawn_) place.x = place.y = 0;
    if (VELM_Template::isFlipped()) place.y = drawn_.frame().height - place.height - place.y;

    const KLARON_ImageRef image = imageOf(layer);
    if (!image) return;
    image->setDrawingContext(canvas_);
    image->setDestinationRect(place);
    image->setContentsGravity(std::string(layer.gravity()));
    if (layer.hasBackground()) image->setBackgroundColorCode(layer.backgroundColorCode());
    const Value& rotation = layer.rotation();
    if (rotation && !drawn_.isRenderingUnrotated()) image->setRotation(rotation.doubleValue());
    image->setHasBorder(layer.hasBorder());
    if (layer.hasBorder()) {
        image->setBorderColorCode(layer.borderColorCode());
        image->setBorderWidth(layer.borderWidth());
        image->setBorderClipsContent(layer.borderClipsContent());
    }
    image->setHasShadow(layer.hasShadow());
    if (layer.hasShadow()) {
        image->setShadowOffset(layer.shadowOffset());
        image->setShadowBlur(layer.shadowBlur());
        image->setShadowColorCode(layer.shadowColorCode());
    }
    image->draw();
}

KLARON_ImageRef TemplateRenderer::imageOf(VELM_Template& layer) {
    switch (layer.layerType()) {
    case VELM_Template::LayerTypeTextbox:
    case VELM_Template::LayerTypeStamp:
        return imageOfText(layer);
    case VELM_Template::LayerTypeContainer:
        return imageOfContainer(layer);
    case VELM_Template::LayerTypeImage:
    case VELM_Template::LayerTypeGraphic:
        return pictureOf(layer);
    default:
        return nullptr;
    }
}

KLARON_ImageRef TemplateRenderer::imageOfText(const VELM_Template& layer) {
    std::optional<std::string> text;
    if (layer.layerType() == VELM_Template::LayerTypeTextbox) text = layer.stringValue();
    if (!text) text = layer.stampValue();
    return text ? KLARON_Image::imageWithDrawingString(*text, layer.attributes()) : nullptr;
}

KLARON_ImageRef TemplateRenderer::imageOfContainer(VELM_Template& layer) {
    layer.setIsRenderingPreview(drawn_.isRenderingPreview());
    if (&layer == &drawn_) return nullptr;
    const ImageRef drawn = layer.image();
    if (const auto error = layer.renderError()) fail(*error);
    // A frame that holds no pixel shows nothing; one that is too large for a canvas must not pass for that.
    else if (!drawn && layer.width() >= 1 && layer.height() >= 1)
        fail(noCanvasError(layer));
    return drawn ? KLARON_Image::initWithCGImage(drawn) : nullptr;
}

KLARON_ImageRef TemplateRenderer::pictureOf(VELM_Template& layer) {
    const bool isHole = layer.layerType() == VELM_Template::LayerTypeImage;
    const bool isPreview = drawn_.isRenderingPreview();
    const Value path = layer.graphicPath();
    if (!isHole && !path) return nullptr;

    unreadable_.reset();
    KLARON_ImageRef image;
    if (!isHole && isPreview) image = KLARON_Image::previewImageWithObject(path);
    if (!image && path) image = open(path);
    if (!image) image = search(layer);
    if (!image && isHole && !isPreview) image = open(drawn_.filepathCustomImage());
    if (!image && unreadable_) fail(*unreadable_);
    if (!image && isHole && isPreview) {
        if (const auto placeholder = placeholderPicture(layer.frame().size()))
            image = KLARON_Image::initWithCGImage(placeholder);
    }
    if (!image) return nullptr;

    if (isHole && layer.autorotate() && isLandscape(image->orientedSize()) != isLandscape(layer.frame().size())) {
        if (const auto turned = quarterTurned(image->orientation())) image->setOrientationForced(*turned);
    }
    if (layer.hasCropRect() && !layer.unflippedCropRect().isEmpty()) {
        image->setCropRect(layer.unflippedCropRect());
        image->setIsNormalizedCropRect(layer.isNormalizedCropRect());
    }
    return image;
}

KLARON_ImageRef TemplateRenderer::search(VELM_Template& layer) {
    const auto path = layer.graphicPath().text();
    if (!drawn_.documentURL() || !path) return nullptr;
    const std::string document = drawn_.documentURL()->path();
    const URL prefix = URL::fileURLWithPath(document.substr(0, document.find("Templates/")));
    const auto package = drawn_.package();
    const auto job = package ? package->job() : nullptr;
    const auto container = job ? job->urlJobContainer() : std::nullopt;
    const URL base = container ? *container : drawn_.documentURL()->deletingLastPathComponent();
    for (const std::string_view folder : pictureFolders) {
        for (const URL& root : {base, prefix}) {
            if (auto image = open(root.appendingPathComponent(folder).appendingPathComponent(*path))) return image;
        }
    }
    // A template that fills a hole knows no job, yet the photograph in it is one of the outer job's.
    const auto& outer = drawn_.outerJobContainer_;
    return outer ? open(outer->appendingPathComponent(pictureFolders.front()).appendingPathComponent(*path)) : nullptr;
}

KLARON_ImageRef TemplateRenderer::open(const ImageObject& object) {
    auto image = KLARON_Image::imageWithObject(object);
    if (image && image->cgImage()) return image;
    // A picture that is missing leaves its layer out; one that is there and broken must not pass for that.
    const auto file = object.fileURL();
    std::error_code failed;
    if (!unreadable_ && file && std::filesystem::is_regular_file(file->path(), failed)) {
        unreadable_ = base::Error{std::string(base::posixErrorDomain), -3,
                                  base::message("could not read picture %@", file->path())};
    }
    return nullptr;
}

// --- The class's own operations

ImageRef VELM_Template::createProductImage() {
    TemplateRenderer renderer(*this);
    auto image = renderer.render();
    drawError_ = renderer.error();
    return image;
}

ImageRef VELM_Template::image() {
    ImageRef result;
    renderingQueue()->sync([&] {
        isRenderingUnrotated_ = false;
        const std::string key = base::message("com.kestrune.velm.template.image.%@", name());
        if (const auto cached = cacheDict_.find(key); cached != cacheDict_.end()) {
            result = cached->second;
            return;
        }
        result = createProductImage();
        if (result) cacheDict_.emplace(key, result);
    });
    return result;
}

ImageRef VELM_Template::imageUncached() {
    ImageRef result;
    renderingQueue()->sync([&] {
        isRenderingPreview_ = false;
        isRenderingUnrotated_ = false;
        result = createProductImage();
    });
    return result;
}

std::optional<base::Error> VELM_Template::renderError() const {
    if (loadError_) return loadError_;
    return fillError_ ? fillError_ : drawError_;
}

const platform::run::QueueRef& VELM_Template::atomicQueue() {
    static const auto queue =
        folders::dispatchQueueSerialWithDebugLabel("com.kestrune.velm.queue.shared.atomic.template");
    return queue;
}

const platform::run::QueueRef& VELM_Template::renderingQueue() {
    atomicQueue()->sync([this] {
        if (!renderingQueue_)
            renderingQueue_ = folders::dispatchQueueSerialWithDebugLabel(
                base::message("com.kestrune.velm.queue.rendering.%@", name()));
    });
    return renderingQueue_;
}

std::optional<platform::draw::TextAttributes> VELM_Template::attributes() const {
    const LayerType type = layerType();
    if ((type != LayerTypeTextbox && type != LayerTypeStamp) || !stringValue()) return std::nullopt;
    platform::draw::TextAttributes attributes;
    attributes.fontName = fontName();
    if (!platform::draw::isFontAvailable(attributes.fontName)) {
        base::log("Specified font (%@) unavailable! Substituting %@", attributes.fontName, substituteFont);
        attributes.fontName = substituteFont;
    }
    attributes.fontSize = base::Value(fontSize()).doubleValue() * scale_.value_or(1);
    attributes.color = KLARON_color::createColorWithHexcode(textColorCode());
    if (!textAlignmentString().value_or("").empty())
        attributes.alignment = static_cast<platform::draw::TextAlignment>(textAlignment());
    return attributes;
}
