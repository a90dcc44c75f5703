#include "template/TemplateCheck.h"

#include "base/MessageTemplate.h"
#include "base/Path.h"
#include "base/Text.h"
#include "imaging/KLARON_color.h"
#include "imaging/PictureProbe.h"
#include "platform/draw/BitmapContext.h"
#include "template/TemplateKeys.h"
#include "template/TemplateLayout.h"
#include "template/VELM_Template.h"
#include "template/ValueForm.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <utility>

using base::Rect;

namespace {

using Finding = TemplateReport::Finding;

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words, bool ignoringCase) {
    return std::any_of(words.begin(), words.end(), [&](std::string_view known) {
        return ignoringCase ? base::equalIgnoringCase(word, known) : word == known;
    });
}

bool isStampKey(const std::string& key) {
    return isOneOf(key, {"filename", "date", "time", "edittextbox", "packagename"}, true) ||
           isOneOf(key,
                   {"customfilenameparta", "customfilenamepartb", "customfilenamepartc", "customfilenamepartd",
                    "customfilenameparte"},
                   false);
}

std::string_view pathKeyOf(const VELM_Template& layer) {
    return layer.value(VELM_XML_Key_filepath) ? VELM_XML_Key_filepath : VELM_XML_Key_filename;
}

// How many lines the text would take with all the room that it needs.
std::size_t lineCount(const TextLayout& text) {
    constexpr double roomForAll = 1'000'000;
    platform::draw::AttributedText whole;
    whole.string = text.text;
    if (text.isFontAvailable) whole.attributes.fontName = text.fontName;
    whole.attributes.fontSize = text.fontSize;
    return platform::draw::TextFrame(whole, {text.rect.width, roomForAll}).lines().size();
}

// What may not be cut: of a text without a border its lines alone, for a box is often made wide enough for any canvas.
Rect essenceOf(const LayerLayout& layout) {
    if (!layout.text || layout.text->lines.empty() || layout.layer->hasBorder()) return layout.frame;
    const std::vector<TextLayout::Line>& lines = layout.text->lines;
    Rect essence{lines.front().x, layout.text->rect.y, 0, lines.back().baseline - layout.text->rect.y};
    for (const TextLayout::Line& line : lines) {
        const double right = std::max(essence.maxX(), line.x + line.width);
        essence.x = std::min(essence.x, line.x);
        essence.width = right - essence.x;
    }
    return essence;
}

class Checker {
public:
    Checker(VELM_Template& document, const TemplateReport& report)
        : document_(document), report_(report), findings_(report.findings()) {
        for (const Finding& finding : report.findings())
            told_.emplace(finding.place, finding.message);
    }

    std::vector<Finding> findings();

private:
    void checkLayers(const VELM_Template& container, const std::vector<LayerLayout>& layers);
    void checkLayer(const LayerLayout& layout);
    void checkFrame(const LayerLayout& layout, base::Size canvas);
    void checkContainer(const LayerLayout& layout);
    void checkPicture(const LayerLayout& layout);
    void checkText(const LayerLayout& layout);
    void checkStamp(const LayerLayout& layout);
    void checkWords(const VELM_Template& layer);
    /// Whether the report names the word at the place of the key's value.
    bool isTold(const VELM_Template& layer, std::string_view key, std::string_view word) const;

    /// The line that gave the key's value, or else the layer's.
    TemplateReport::Place placeOf(const VELM_Template& layer, std::string_view key) const;
    template <class... Arguments>
    void add(const VELM_Template& layer, std::string_view key, std::string_view sentence,
             const Arguments&... arguments);

    VELM_Template& document_;
    const TemplateReport& report_;
    std::vector<Finding> findings_;
    std::multimap<TemplateReport::Place, std::string_view> told_; // what the report names, by its place
    PictureProbe pictures_;
};

TemplateReport::Place Checker::placeOf(const VELM_Template& layer, std::string_view key) const {
    if (const auto place = report_.placeOf(layer, key)) return *place;
    return {.file = document_.documentURL().value_or(base::URL()).path()};
}

template <class... Arguments>
void Checker::add(const VELM_Template& layer, std::string_view key, std::string_view sentence,
                  const Arguments&... arguments) {
    findings_.push_back({placeOf(layer, key), base::message(sentence, arguments...)});
}

bool Checker::isTold(const VELM_Template& layer, std::string_view key, std::string_view word) const {
    const auto [first, last] = told_.equal_range(placeOf(layer, key));
    return std::any_of(first, last, [&](const auto& told) { return told.second.find(word) != std::string_view::npos; });
}

std::vector<Finding> Checker::findings() {
    if (document_.value(VELM_XML_Key_layers)) { // it has a body
        if (document_.width() < 1 || document_.height() < 1)
            add(document_, VELM_XML_Key_frame, "the document has no size, so nothing is drawn");
        else if (!platform::draw::BitmapContext::create(document_.width(), document_.height(),
                                                        KLARON_color::colorSpace()))
            add(document_, VELM_XML_Key_frame, "the document's size of %@ is too large to be drawn",
                base::stringFromSize(document_.canvasSize()));
        if (document_.layers().empty()) add(document_, VELM_XML_Key_layers, "the document has no layers");
        checkLayers(document_, layoutOf(document_));
    }
    // Limits that reading met belong to no line.
    const auto error = document_.renderError();
    if (error && std::none_of(findings_.begin(), findings_.end(), [&](const Finding& told) {
            return told.message.find(error->localizedDescription) != std::string::npos;
        }))
        add(document_, VELM_XML_Key_layers, "%@", *error);
    std::sort(findings_.begin(), findings_.end());
    // A file that is nested twice is read twice.
    findings_.erase(std::unique(findings_.begin(), findings_.end()), findings_.end());
    return std::move(findings_);
}

void Checker::checkLayers(const VELM_Template& container, const std::vector<LayerLayout>& layers) {
    for (const LayerLayout& layout : layers) {
        if (layout.layer.get() == &container) continue; // a document without layers stands for itself
        checkFrame(layout, container.canvasSize());
        checkLayer(layout);
        if (layout.type == VELM_Template::LayerTypeContainer) checkLayers(*layout.layer, layout.layers);
    }
}

void Checker::checkFrame(const LayerLayout& layout, base::Size canvas) {
    const VELM_Template& layer = *layout.layer;
    const Rect frame = layout.frame;
    if (frame.isEmpty()) {
        if (!isTold(layer, VELM_XML_Key_frame, VELM_XML_Key_frame))
            add(layer, VELM_XML_Key_frame,
                layout.text || layout.picture ? "the frame %@ is empty, so the layer takes the whole canvas"
                                              : "the frame %@ is empty, so the layer is not drawn",
                base::stringFromRect(frame));
        return;
    }
    if (canvas.width < 1 || canvas.height < 1) return;
    constexpr double tolerance = 0.5; // less is no pixel's worth
    const auto turn = base::AffineTransform::rotationAbout(frame.center(), layer.rotation().doubleValue());
    const Rect box = turn.apply(essenceOf(layout));
    const double beyond =
        std::max(std::max(-box.x, -box.y), std::max(box.maxX() - canvas.width, box.maxY() - canvas.height));
    if (turn.apply(frame).intersection({0, 0, canvas.width, canvas.height}).isEmpty())
        add(layer, VELM_XML_Key_frame, "the layer lies outside the canvas of %@ and does not show",
            base::stringFromSize(canvas));
    else if (beyond > tolerance)
        add(layer, VELM_XML_Key_frame, "the layer reaches beyond the canvas of %@ by up to %@ pixels",
            base::stringFromSize(canvas), base::shortestDecimal(std::round(beyond * 100) / 100));
}

void Checker::checkLayer(const LayerLayout& layout) {
    const VELM_Template& layer = *layout.layer;
    switch (layout.type) {
    case VELM_Template::LayerTypeContainer:
        checkContainer(layout);
        break;
    case VELM_Template::LayerTypeImage:
    case VELM_Template::LayerTypeGraphic:
        checkPicture(layout);
        break;
    case VELM_Template::LayerTypeTextbox:
    case VELM_Template::LayerTypeStamp:
        checkText(layout);
        break;
    case VELM_Template::LayerTypeCanvas:
    case VELM_Template::LayerTypeUnknown:
        if (const auto type = layer.type())
            add(layer, VELM_XML_Key_type, "a layer of the type \"%@\" is not drawn", *type);
        else
            add(layer, VELM_XML_Key_type, "the layer has no type and is not drawn");
        return;
    }
    checkWords(layer);
}

void Checker::checkContainer(const LayerLayout& layout) {
    const VELM_Template& layer = *layout.layer;
    if (layer.isTypeContainer()) {
        if (layout.omission == LayerOmission::noCanvas && !layout.frame.isEmpty())
            add(layer, VELM_XML_Key_frame, "the frame %@ makes no canvas for the node",
                base::stringFromRect(layout.frame));
    } else if (const base::Value& path = layer.graphicPath()) {
        // Reading tells why; this is for a document that was read without its files.
        const auto error = layer.renderError();
        const std::string_view key = pathKeyOf(layer);
        if (error && !isTold(layer, key, error->localizedDescription))
            add(layer, key, "%@", *error);
        else if (!error && !isTold(layer, key, path.textOr("")))
            add(layer, key, "the node \"%@\" is missing", path);
    } else {
        add(layer, VELM_XML_Key_type, "the node names no file");
    }
}

void Checker::checkPicture(const LayerLayout& layout) {
    const VELM_Template& layer = *layout.layer;
    const bool isHole = layout.type == VELM_Template::LayerTypeImage;
    const bool isFilled = layer.key().has_value(); // by an order
    const base::Value& path = layer.graphicPath();
    if (isHole && !isFilled) add(layer, VELM_XML_Key_key, "the image hole has no key, so no slot of an order fills it");
    if (layer.hasCropRect() && layer.unflippedCropRect().isEmpty() &&
        !isTold(layer, VELM_XML_Key_croprect, VELM_XML_Key_croprect))
        add(layer, VELM_XML_Key_croprect, "the crop \"%@\" is empty, so the whole picture shows",
            layer.value(VELM_XML_Key_croprect));
    switch (layout.omission) {
    case LayerOmission::noPath:
        if (!isHole && !isFilled) add(layer, VELM_XML_Key_type, "the graphic names no picture and has no key");
        break;
    case LayerOmission::missingPicture:
        // A word that stands for the order's photograph.
        if (!(isHole && base::equalIgnoringCase(path.textOr(""), "ImageFile")))
            add(layer, pathKeyOf(layer), "the picture \"%@\" is missing", path);
        break;
    case LayerOmission::unreadablePicture:
        add(layer, pathKeyOf(layer), "the picture \"%@\" can't be read", path);
        break;
    default:
        break;
    }
    if (!layout.picture || layout.picture->file.empty()) return;
    if (const std::string& reason = pictures_.whyUndecodable(layout.picture->file); !reason.empty())
        add(layer, pathKeyOf(layer), "the picture \"%@\" can't be read: %@", path, reason);
    else if (layout.picture->rect.isEmpty())
        add(layer, VELM_XML_Key_borderWidth, "the border of %@ leaves nothing of the picture",
            base::shortestDecimal(layer.borderWidth()));
    else if (layout.picture->shown.isEmpty())
        add(layer, VELM_XML_Key_croprect, "the crop \"%@\" misses the picture of %@ pixels",
            layer.value(VELM_XML_Key_croprect), base::stringFromSize(layout.picture->size));
}

void Checker::checkText(const LayerLayout& layout) {
    const VELM_Template& layer = *layout.layer;
    if (layout.type == VELM_Template::LayerTypeStamp)
        checkStamp(layout);
    else if (layout.omission == LayerOmission::noText && !layer.key())
        add(layer, VELM_XML_Key_type, "the textbox has neither a string nor a key");
    if (!layout.text) return;
    const TextLayout& text = *layout.text;
    if (!text.isFontAvailable)
        add(layer, VELM_XML_Key_font, "the font \"%@\" is not available: Helvetica is taken, drawn by %@",
            text.fontName, text.fontFamily);
    if (!(text.fontSize > 0))
        add(layer, VELM_XML_Key_size, "the font size \"%@\" draws nothing", layer.fontSize());
    else if (!text.isComplete && !layout.frame.isEmpty())
        add(layer, VELM_XML_Key_frame, "the text does not fit its frame: %lu of %lu lines show", text.lines.size(),
            std::max(lineCount(text), text.lines.size()));
}

void Checker::checkStamp(const LayerLayout& layout) {
    const VELM_Template& layer = *layout.layer;
    const auto key = layer.key();
    const bool hasString = layer.stringValue().has_value();
    if (key && !isStampKey(*key))
        add(layer, VELM_XML_Key_key, "the stamp's key \"%@\" is unknown: it shows %@", *key,
            base::lowercase(*key).starts_with("customfilenamepart") ? "nothing"
            : hasString                                             ? "its string"
                                                                    : "the key");
    else if (key && base::equalIgnoringCase(*key, "edittextbox") && !layer.value(VELM_XML_Key_stamp))
        add(layer, VELM_XML_Key_key, "the stamp names no stored text (stringnumber), so it is not drawn");
    else if (key && base::equalIgnoringCase(*key, "edittextbox") && layout.omission == LayerOmission::noText)
        add(layer, VELM_XML_Key_stamp, "there is no stored text \"%@\", so the stamp is not drawn",
            layer.value(VELM_XML_Key_stamp));
    else if (key && base::equalIgnoringCase(*key, "date") && !hasString)
        add(layer, VELM_XML_Key_key, "the date has no format (string), so it is not drawn");
    else if (!key && !hasString)
        add(layer, VELM_XML_Key_type, "the stamp has neither a string nor a key");
    else if (!hasString)
        add(layer, VELM_XML_Key_type, "the stamp has no string, so it is drawn without its font and colour");
}

void Checker::checkWords(const VELM_Template& layer) {
    if (const auto gravity = layer.value(VELM_XML_Key_gravity).stringValue())
        if (const auto fault = grammar::faultOf(grammar::Form::gravity, *gravity))
            add(layer, VELM_XML_Key_gravity, "the gravity \"%@\" %@", *gravity, *fault);
    if (const auto alignment = layer.textAlignmentString();
        alignment && !isOneOf(*alignment, {"", "left", "right", "center", "justified"}, true))
        add(layer, VELM_XML_Key_textAlignment, "the alignment \"%@\" is unknown: left is taken", *alignment);
    for (const TemplateKey& key : templateKeys()) {
        if (key.kind != TemplateKey::Kind::colorCode) continue;
        if (const auto code = layer.value(key.name).stringValue())
            if (const auto fault = grammar::faultOf(grammar::Form::color, *code))
                add(layer, key.name, "the colour \"%@\" %@", *code, *fault);
    }
}

} // namespace

std::vector<Finding> findingsOfTemplate(VELM_Template& document, const TemplateReport& report) {
    return Checker(document, report).findings();
}
