// From the tree to one picture: what each layer is drawn from, where, and in which style.
#include "base/Log.h"
#include "folders/QueueHelpers.h"
#include "internal/PlaceholderPicture.h"
#include "internal/TemplateRenderer.h"
#include "platform/draw/PictureCache.h"

#include <array>
#include <filesystem>
#include <map>

using base::Rect;
using base::URL;
using base::Value;
using platform::draw::BitmapContext;
using platform::draw::BitmapContextRef;
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

BitmapContextRef canvasOf(const VELM_Template& drawn) {
    return BitmapContext::create(drawn.width(), drawn.height(), KLARON_color::colorSpace());
}

base::Error noCanvasError(const VELM_Template& container) {
    return {
        std::string(base::posixErrorDomain), -3,
        base::message("no canvas of %@ pixels for %@", base::stringFromSize(container.canvasSize()), container.name())};
}

bool isLandscape(base::Size size) {
    return size.width > size.height;
}

// Holes without a path show the photograph of the run.
bool showPictureInSeveralSizes(const VELM_Template::Layers& layers) {
    std::map<std::string, base::Size> sizes;
    for (const auto& layer : layers) {
        const auto type = layer->layerType();
        if (type != VELM_Template::LayerTypeImage && type != VELM_Template::LayerTypeGraphic) continue;
        const Value& path = layer->graphicPath();
        if (path && !path.isText()) continue;
        const base::Size size = layer->frameUnscaled().size();
        if (!(sizes.emplace(path.textOr(""), size).first->second == size)) return true;
    }
    return false;
}

} // namespace

ImageRef TemplateRenderer::render() {
    const BitmapContextRef canvas = canvasOf(drawn_);
    if (!canvas) return nullptr;
    canvas->setQuality(drawn_.isRenderingPreview() ? Quality::preview : Quality::final);
    if (drawn_.hasBackground()) {
        // Always white, and at the frame's own place.
        canvas->saveState();
        canvas->setFillColor(*KLARON_color::colorForHexcode("FFFFFF"));
        canvas->fillRect(drawn_.frame());
        canvas->restoreState();
    }
    const VELM_Template::Layers layers = drawingList();
    std::optional<platform::draw::PictureSharing> sharing; // one decoding then serves all sizes
    if (showPictureInSeveralSizes(layers)) sharing.emplace();
    for (const auto& layer : layers) {
        const PlacedLayer placed = place(*layer, Purpose::drawing);
        if (!placed.image) continue;
        placed.image->setDrawingContext(canvas);
        placed.image->draw();
    }
    if (canvas->drawError()) fail(*canvas->drawError());
    return canvas->makeImage();
}

VELM_Template::Layers TemplateRenderer::drawingList() const {
    auto layers = drawn_.storedLayers();
    if (layers.empty()) layers.push_back(drawn_.shared_from_this());
    return layers;
}

TemplateRenderer::PlacedLayer TemplateRenderer::place(VELM_Template& layer, Purpose purpose) {
    PlacedLayer placed;
    layer.setScale(drawn_.scale());
    placed.frame = layer.frame();
    if (&layer == &drawn_) placed.frame.x = placed.frame.y = 0;
    makeImage(layer, purpose, placed);
    if (!placed.image) return placed;

    KLARON_Image& image = *placed.image;
    Rect destination = placed.frame;
    if (VELM_Template::isFlipped()) destination.y = flipped(destination.y, destination.height);
    image.setDestinationRect(destination);
    image.setContentsGravity(std::string(layer.gravity()));
    if (layer.hasBackground()) image.setBackgroundColorCode(layer.backgroundColorCode());
    const Value& rotation = layer.rotation();
    if (rotation && !drawn_.isRenderingUnrotated()) image.setRotation(rotation.doubleValue());
    image.setHasBorder(layer.hasBorder());
    if (layer.hasBorder()) {
        image.setBorderColorCode(layer.borderColorCode());
        image.setBorderWidth(layer.borderWidth());
        image.setBorderClipsContent(layer.borderClipsContent());
    }
    image.setHasShadow(layer.hasShadow());
    if (layer.hasShadow()) {
        image.setShadowOffset(layer.shadowOffset());
        image.setShadowBlur(layer.shadowBlur());
        image.setShadowColorCode(layer.shadowColorCode());
    }
    return placed;
}

void TemplateRenderer::makeImage(VELM_Template& layer, Purpose purpose, PlacedLayer& placed) {
    switch (layer.layerType()) {
    case VELM_Template::LayerTypeTextbox:
    case VELM_Template::LayerTypeStamp:
        return makeText(layer, purpose, placed);
    case VELM_Template::LayerTypeContainer:
        return makeContainer(layer, purpose, placed);
    case VELM_Template::LayerTypeImage:
    case VELM_Template::LayerTypeGraphic:
        return makePicture(layer, placed);
    default:
        placed.omission = LayerOmission::typeIsNotDrawn;
    }
}

void TemplateRenderer::makeText(const VELM_Template& layer, Purpose purpose, PlacedLayer& placed) {
    std::optional<std::string> text;
    if (layer.layerType() == VELM_Template::LayerTypeTextbox) text = layer.stringValue();
    if (!text) text = layer.stampValue();
    if (!text) {
        placed.omission = LayerOmission::noText;
        return;
    }
    // A stamp without a text of its own has no attributes either.
    const auto attributes = attributesOf(layer, purpose == Purpose::drawing);
    placed.text = {*std::move(text), attributes.value_or(platform::draw::TextAttributes{})};
    placed.image = KLARON_Image::imageWithDrawingString(*placed.text);
}

void TemplateRenderer::makeContainer(VELM_Template& layer, Purpose purpose, PlacedLayer& placed) {
    placed.omission = LayerOmission::noCanvas;
    if (&layer == &drawn_) {
        layer.setIsRenderingPreview(drawn_.isRenderingPreview());
        return;
    }
    ImageRef picture;
    // As one step, so that the picture and its error are those of this state when others draw the container too.
    folders::performSyncOnQueue(layer.renderingQueue(), [&] {
        layer.setIsRenderingPreview(drawn_.isRenderingPreview());
        if (purpose == Purpose::layout) {
            // The canvas alone: its memory is not touched.
            picture = layer.cachedImage();
            if (const auto canvas = picture ? nullptr : canvasOf(layer)) picture = canvas->makeImage();
            return;
        }
        picture = layer.image();
        if (const auto error = layer.renderError()) fail(*error);
        // A frame that holds no pixel shows nothing; one that is too large for a canvas must not pass for that.
        else if (!picture && layer.width() >= 1 && layer.height() >= 1)
            fail(noCanvasError(layer));
    });
    if (!picture) return;
    placed.omission = LayerOmission::none;
    placed.image = KLARON_Image::initWithCGImage(picture);
}

void TemplateRenderer::makePicture(VELM_Template& layer, PlacedLayer& placed) {
    const bool isHole = layer.layerType() == VELM_Template::LayerTypeImage;
    const bool isPreview = drawn_.isRenderingPreview();
    const ImageObject path = layer.graphicPath();
    placed.omission = LayerOmission::noPath;
    if (!isHole && !path) return;

    unreadable_.reset();
    if (path) {
        placed.omission = LayerOmission::missingPicture;
        if (!isHole && isPreview) placed.image = KLARON_Image::previewImageWithObject(path);
        if (const auto file = placed.image ? path.fileURL() : std::nullopt) placed.file = file->path();
        if (!placed.image && !open(path, placed) && path.as<std::string>()) search(*path.as<std::string>(), placed);
    }
    if (const auto own = drawn_.filepathCustomImage(); own && !placed.image && isHole && !isPreview) {
        placed.omission = LayerOmission::missingPicture;
        open(*own, placed);
    }
    if (!placed.image && unreadable_) {
        placed.omission = LayerOmission::unreadablePicture;
        fail(*unreadable_);
    }
    if (!placed.image && isHole && isPreview) {
        placed.image = placeholderPicture(placed.frame.size());
        placed.isPlaceholder = placed.image != nullptr;
    }
    if (!placed.image) return;
    placed.omission = LayerOmission::none;

    KLARON_Image& image = *placed.image;
    if (isHole && layer.autorotate() && isLandscape(image.orientedSize()) != isLandscape(placed.frame.size())) {
        if (const auto turned = quarterTurned(image.orientation())) image.setOrientationForced(*turned);
    }
    if (layer.hasCropRect() && !layer.unflippedCropRect().isEmpty()) {
        image.setCropRect(layer.unflippedCropRect());
        image.setIsNormalizedCropRect(layer.isNormalizedCropRect());
    }
}

void TemplateRenderer::search(const std::string& path, PlacedLayer& placed) {
    if (!drawn_.documentURL()) return;
    const std::string document = drawn_.documentURL()->path();
    const URL prefix = URL::fileURLWithPath(document.substr(0, document.find("Templates/")));
    const auto package = drawn_.package();
    const auto job = package ? package->job() : nullptr;
    const auto container = job ? job->urlJobContainer() : std::nullopt;
    const URL base = container ? *container : drawn_.documentURL()->deletingLastPathComponent();
    for (const std::string_view folder : pictureFolders) {
        for (const URL& root : {base, prefix}) {
            if (open(root.appendingPathComponent(folder).appendingPathComponent(path), placed)) return;
        }
    }
    // A template that fills a hole knows no job, yet the photograph in it is one of the outer job's.
    if (const auto& outer = drawn_.outerJobContainer_)
        open(outer->appendingPathComponent(pictureFolders.front()).appendingPathComponent(path), placed);
}

bool TemplateRenderer::open(const ImageObject& object, PlacedLayer& placed) {
    const auto file = object.fileURL();
    auto image = KLARON_Image::imageWithObject(object);
    if (image && image->cgImage()) {
        placed.image = std::move(image);
        placed.file = file ? file->path() : std::string();
        return true;
    }
    // A picture that is missing leaves its layer out; one that is there and broken must not pass for that, nor must a
    // pipe or a device. A folder is what the search finds for a picture without a name.
    std::error_code failed;
    const auto kind = file ? std::filesystem::status(file->path(), failed) : std::filesystem::file_status();
    if (!unreadable_ && std::filesystem::exists(kind) && !std::filesystem::is_directory(kind)) {
        unreadable_ = base::Error{std::string(base::posixErrorDomain), -3,
                                  base::message("could not read picture %@", file->path())};
    }
    return false;
}

std::optional<platform::draw::TextAttributes> TemplateRenderer::attributesOf(const VELM_Template& layer,
                                                                             bool logsSubstitution) {
    const auto type = layer.layerType();
    const bool isText = type == VELM_Template::LayerTypeTextbox || type == VELM_Template::LayerTypeStamp;
    if (!isText || !layer.stringValue()) return std::nullopt;
    platform::draw::TextAttributes attributes;
    attributes.fontName = layer.fontName();
    if (!platform::draw::isFontAvailable(attributes.fontName)) {
        if (logsSubstitution)
            base::log("Specified font (%@) unavailable! Substituting %@", attributes.fontName, substituteFont);
        attributes.fontName = substituteFont;
    }
    attributes.fontSize = base::Value(layer.fontSize()).doubleValue() * layer.scale().value_or(1);
    attributes.color = KLARON_color::createColorWithHexcode(layer.textColorCode());
    if (!layer.textAlignmentString().value_or("").empty())
        attributes.alignment = static_cast<platform::draw::TextAlignment>(layer.textAlignment());
    return attributes;
}
