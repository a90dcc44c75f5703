// A layered document, and each of its layers: one class for both. Every attribute lives in `valuesDict` under the keys
// below and those of its base; the accessors are views on it that carry the defaults, and two templates are equal when
// those dictionaries are. Frames are in pixels, origin at the top left, y downward; rotations in radians.
//
// What a key defaults to, what its setter makes of an argument and which properties change with it stands in one table
// (template/TemplateKeys.h). Setters tell the observers of these properties, before and after, and raise the parent's
// change count; a setter that refuses or finds nothing to change does neither. `setValue` of the base stores as it is.
//
// A document owns its layers and they refer to it weakly. A tree is built and changed by one thread; all its renders
// run on its own serial queue, and `image` and `imageUncached` may be called from any thread.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "platform/run/Observation.h"
#include "template/RenderingContext.h"
#include "template/TemplateKeys.h"
#include "template/VELM_XML_object.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::data {
class XMLNode;
using XMLNodeRef = std::shared_ptr<XMLNode>;
} // namespace platform::data
namespace platform::draw {
class Image;
struct TextAttributes;
using ImageRef = std::shared_ptr<const Image>;
} // namespace platform::draw
namespace platform::run {
class Queue;
}
class TemplateReport;

class VELM_Template final : public VELM_XML_object, public std::enable_shared_from_this<VELM_Template> {
public:
    using Ref = std::shared_ptr<VELM_Template>;
    using Layers = std::vector<Ref>;

    enum LayerType : unsigned {
        LayerTypeUnknown = 0, ///< Never drawn.
        LayerTypeCanvas = 1,
        LayerTypeContainer = 2, ///< A nested layer tree; also the text "node".
        LayerTypeImage = 4,     ///< A hole that the job fills with a photograph.
        LayerTypeGraphic = 8,   ///< A fixed picture.
        LayerTypeTextbox = 16,
        LayerTypeStamp = 32, ///< Text that is worked out when it is drawn.
    };

    static constexpr std::string_view xmlVersionString = "1.0";
    /// How deep template files may be nested in each other, and how many nested files and how many layers one document
    /// may hold with all that is nested in it. What goes beyond, or holds itself, is not loaded, and the document
    /// answers it as its `renderError`. Nested files together are limited as one file is
    /// (platform::data::maximumXMLSize).
    static constexpr int maximumNesting = 16;
    static constexpr int maximumNestedFiles = 1000;
    static constexpr int maximumLayers = 20'000;

    /// Without values and frame; what building a layer starts from.
    VELM_Template();
    ~VELM_Template() override;
    VELM_Template(const VELM_Template&) = delete;
    VELM_Template& operator=(const VELM_Template&) = delete;
    /// A new document of 1000 by 1000.
    static Ref init();
    static Ref initForCopy();
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& archived);

    // --- Finding and reading (TemplateFinding.cpp, TemplateReading.cpp)

    /// The document in a file: at the path (a text or a URL) as given, with its tilde expanded, in the job container's
    /// "Templates" or "Nodes" folder or in the container itself, in the configured folder. Null after a log line when
    /// it is in none of them.
    /// A report takes down what was dropped and where each value stands (template/TemplateReport.h).
    static Ref templateWithPath(const base::Value& path, bool isNode, const std::optional<base::URL>& jobContainer,
                                TemplateReport* report = nullptr);
    static Ref templateWithPath(const base::Value& path, const std::optional<base::URL>& jobContainer);
    static Ref nodeWithPath(const base::Value& path, const std::optional<base::URL>& jobContainer);
    static Ref instanceWithXMLObject(const base::Value& path);
    /// A document out of a body element, a layer out of a layer element (or the document that a layer of type "node"
    /// names, in that layer's place).
    static Ref initWithNode(const platform::data::XMLNode& node, const std::optional<base::URL>& jobContainer);
    /// Stores the folder, and the "Nodes" folder that lies beside it or beside one of the folders above it.
    static void setCurrentTemplatesFolder(const base::URL& folder);
    static std::optional<base::URL> currentTemplatesFolder();
    /// The names of a document's body elements.
    static const std::vector<std::string_view>& allContainerKeys();
    /// The one of them that the element is named by, ignoring case.
    static std::optional<std::string_view> containerKeyForNode(const platform::data::XMLNode& node);
    /// The element it was read from, as long as the parsed tree lives.
    std::shared_ptr<const platform::data::XMLNode> xmlNode() const { return xmlNode_.lock(); }
    /// A token that changes when the document's file changes; none without a file.
    std::optional<std::string> generationID() const;

    // --- The document, its layers and its place (TemplateLayers.cpp)

    /// The template's coordinates count from the top: always true.
    static bool isFlipped() { return true; }
    static bool geometryFlipped() { return isFlipped(); }

    /// The layers from back to front. Made empty on first read.
    Layers layers();
    /// The same without making an empty list, which would count as a change: for whoever only looks.
    Layers storedLayers() const;
    void setLayers(const Layers& layers);
    /// Sorts by the integer of `zindex`, equals staying in order, and numbers the levels 100, 200, 300... Fewer than
    /// two layers stay as they are.
    void sortLayers();
    std::vector<std::optional<std::string>> zLevelStrings();
    /// Adds layers in front of all others and selects them alone.
    void addLayers(const Layers& layers);
    void addLayer(const Ref& layer) { addLayers({layer}); }
    /// A new layer of half the width and a fifth of the height of this template, which holds the type's word as text.
    Ref addLayerOfType(LayerType type);
    /// Deletes each layer that equals one of these, its twins too, and selects nothing.
    void deleteLayers(const Layers& layers);
    void deleteLayer(const Ref& layer);

    /// The selection holds places in `layers`. A layer is looked for by equality: of twins the first is meant, and one
    /// that is not found is passed over. Each change is announced under "layersSelected", before and after.
    void selectLayers(const Layers& layers, bool byExtendingSelection);
    void selectLayer(const Ref& layer, bool byExtendingSelection);
    void deselectLayer(const Ref& layer);
    /// In the order of `layers`.
    Layers layersSelected();
    const std::set<std::size_t>& indexSetLayersSelected() const { return indexSetLayersSelected_; }

    Ref parent() const { return parent_.lock(); }
    void setParent(const Ref& parent) { parent_ = parent; }
    /// The package that runs, or else the parent's.
    std::shared_ptr<const PackageValues> package() const;
    void setPackage(std::weak_ptr<const PackageValues> package) { package_ = std::move(package); }
    /// How often the setters of the layers were called.
    std::int64_t changeCount() const { return changeCount_; }
    /// Announces each property by the name of its getter ("frame", "x", "hasShadow", "layersSelected"), before and
    /// after; besides, "changeCount", and "hasUnsavedChanges" with everything that it depends on.
    platform::run::Observable& observable();
    /// A property by the name of its getter; nothing for a name that is none.
    base::Value valueForKey(std::string_view property) const;
    /// Through the property's setter. False when there is none, or when it takes no value of that kind.
    bool setValueForKey(std::string_view property, const base::Value& value);
    /// As it was loaded or last saved.
    const Ref& lastSaved() const { return lastSaved_; }
    bool hasUnsavedChanges() const;

    bool isEqualToTemplate(const VELM_Template& other) const { return valuesDict() == other.valuesDict(); }
    bool isEqual(const base::Object& other) const override;
    std::size_t hash() const override { return base::Value::hashOf(valuesDict()); }
    /// A deep copy: values with all nested layers, document URL, text and the package. Parents, scale, caches and what
    /// can't be archived are left behind; the latter is dropped here too.
    Ref copyWithZone();
    std::string className() const override { return "VELM_Template"; }
    void setDocumentURL(std::optional<base::URL> url) override;

    // --- Text for the log (TemplateDescription.cpp)

    std::string description() const override;
    /// What is special to the type: path and gravity, or text, font and shadow.
    std::string typeString() const;
    /// A dictionary or a list, a line for each member; anything else as "%@" prints it.
    static std::string descriptionForObject(const base::Value& object);

    // --- Saving (TemplateSaving.cpp)

    /// One of the two is none.
    using SaveReply = std::function<void(const std::optional<base::URL>& url, const std::optional<base::Error>& error)>;
    /// Writes the document to the URL, or else to its own, and calls the reply (which may be empty) before it returns:
    /// with the URL that was written, or with the error, which is logged when there is no reply. Without changes
    /// nothing is written wherever it should go, and the reply gets the document's own URL. What was saved becomes
    /// `lastSaved`; after a failure the file's old contents stay.
    void filePathSaveChanges(const std::optional<base::URL>& url, const SaveReply& saveChanges);
    void saveChanges(const SaveReply& reply) { filePathSaveChanges(documentURL(), reply); }
    void saveChangesToURL(const std::optional<base::URL>& url, const SaveReply& reply) {
        filePathSaveChanges(url, reply);
    }
    /// Writes the document whether it has changes or not, and leaves `lastSaved` as it is. Documents of a version
    /// below 1.0 or of none don't replace a file unless told: it is moved aside, photo.xml to photo.oldVELM.xml. Where
    /// that name is taken, the file is replaced all the same.
    base::Result<void> writeToURL(const base::URL& url, bool movesOldFileAside = true);
    /// The document as its file holds it (to be written pretty printed): its size and one flat list of layers, of
    /// nested documents their file name only.
    std::shared_ptr<platform::data::XMLDocument> xmlForSaving();

    // --- Writing (TemplateWriting.cpp)

    static constexpr std::string_view xmlElementName = "template";
    /// The element by which a job ticket refers to this template: its name, and the file name of its document.
    platform::data::XMLNodeRef asXMLElement() const;
    std::vector<std::pair<std::string, std::string>> xmlElementAttributes() const;
    std::vector<platform::data::XMLNodeRef> xmlElementChildren() const;
    /// How keys are named in a file; what is not in the tables is itself.
    static std::string_view translatedChildName(std::string_view key);
    static std::string_view translatedAttributeName(std::string_view key);
    static std::string_view translatedAttributeValue(std::string_view value);
    /// An attribute node of both translations.
    static platform::data::XMLNodeRef xmlAttributeTranslatedName(std::string_view key, std::string_view value);
    /// The keys that stand as attributes of a child, in order; empty for most.
    static std::span<const std::string_view> attributesForChild(std::string_view key);
    /// The keys that a layer of this type writes as children, in order.
    std::span<const std::string_view> availableChildren() const;

    // --- Pasting (TemplatePasteboard.cpp)

    /// The types that each item of a pasteboard offers.
    using PasteboardItems = std::vector<std::vector<std::string>>;
    static std::span<const std::string_view> pasteboardReadableTypes();
    /// The types of styled text, of pictures, and those of the items' types that `pasteboardReadableTypes` holds.
    static std::vector<std::string> readableTypesForPasteboard(const PasteboardItems& items);
    /// 0 for all types: the items are read as data, RTF too.
    static unsigned readingOptionsForType(std::string_view type, const PasteboardItems& pasteboard);
    /// A layer without a parent, at the origin. A picture is written to the graphics folder without replacing a file,
    /// and becomes a graphic of its own size, of 0 by 0 when the data is no picture in truth. A text becomes a textbox
    /// of the text's size in the style of its first character, Helvetica 12 and black where the source tells none; its
    /// colour becomes the last-used one. The layer is empty for any other type and when the picture can't be written,
    /// a textbox without text when the text is empty or (after a log line) can't be read.
    static Ref initWithPasteboardPropertyList(const base::Value& propertyList, std::string_view ofType);

    // --- Type

    LayerType layerType() const;
    void setLayerType(LayerType type);
    static std::optional<std::string_view> stringForLayerType(LayerType type);
    bool isTypeContainer() const { return typeIs("container"); }
    bool isImageType() const { return typeIs("image"); }
    bool isGraphicType() const { return typeIs("graphic"); }
    bool isTextboxType() const { return typeIs("textbox"); }
    bool isTypeStamp() const { return typeIs("stamp"); }
    bool isTypeNode() const { return typeIs("node"); }

    // --- Geometry

    /// Factor on frame, font size and border width; not stored.
    std::optional<double> scale() const {
        const double scale = scale_;
        return std::isnan(scale) ? std::nullopt : std::optional(scale);
    }
    void setScale(std::optional<double> scale) { scale_ = scale.value_or(noScale); }
    base::Rect frameUnscaled() const;
    base::Rect frame() const;
    /// A frame with a negative side is refused with a log line.
    void setFrame(const base::Rect& frame);
    double x() const { return frame().x; }
    double y() const { return frame().y; }
    double width() const { return frame().width; }
    double height() const { return frame().height; }
    void setX(double x);
    void setY(double y);
    /// Sides of 0 or less are refused with a log line.
    void setWidth(double width);
    void setHeight(double height);
    base::Size canvasSize() const { return frame().size(); }
    /// The factor that fits the unscaled frame into a size; none when a side of either is not above 0.
    std::optional<double> scaleForSize(base::Size size) const;
    base::Size sizeScaledToSize(base::Size size) const;
    std::optional<std::string> zLevelString() const { return textOf(VELM_XML_Key_zindex); }
    void setZLevelString(const base::Value& level) { store(VELM_XML_Key_zindex, level); }
    /// Radians; a number or a text.
    const base::Value& rotation() const { return value(VELM_XML_Key_rotation); }
    void setRotation(const base::Value& rotation) { store(VELM_XML_Key_rotation, rotation); }

    // --- Content

    /// Pictures answer their path, texts their text.
    std::optional<std::string> name() const override;
    std::optional<std::string> key() const { return textOf(VELM_XML_Key_key); }
    std::optional<std::string> keyPlaceholder() const { return key(); }
    void setKey(const base::Value& key) { store(VELM_XML_Key_key, key); }
    /// A path text, or an image object once a whole template was drawn into the hole.
    const base::Value& graphicPath() const;
    void setGraphicPath(const base::Value& path) { store(VELM_XML_Key_filepath, path); }
    /// The job's own picture for this run, or else the parent's.
    std::optional<std::string> filepathCustomImage() const;
    void setFilepathCustomImage(const base::Value& path) { store(VELM_XML_Key_allimages, path); }
    std::string_view gravity() const { return normalizedGravity(textOf(VELM_XML_Key_gravity)); }
    void setGravity(const base::Value& gravity) { store(VELM_XML_Key_gravity, gravity); }
    static std::string_view normalizedGravity(const std::optional<std::string>& gravity);
    bool hasCropRect() const { return static_cast<bool>(value(VELM_XML_Key_croprect)); }
    base::Rect unflippedCropRect() const;
    bool isNormalizedCropRect() const { return static_cast<bool>(value(VELM_XML_Key_normal)); }
    bool autorotate() const { return boolFor(VELM_XML_Key_autorotate); }
    void setAutorotate(bool autorotate) { store(VELM_XML_Key_autorotate, autorotate); }

    std::optional<std::string> stringValue() const { return textOf(VELM_XML_Key_string); }
    void setStringValue(const std::optional<std::string>& text) { store(VELM_XML_Key_string, text); }
    std::vector<std::string_view> stampFormats() const;
    std::optional<std::string> stampFormat() const;
    void setStampFormat(const base::Value& format) { store(VELM_XML_Key_stampFormat, format); }
    bool hideExtension() const { return boolFor(VELM_XML_Key_hideExtension); }
    std::string fontName() const { return textFor(VELM_XML_Key_font); }
    void setFontName(const std::optional<std::string>& font) { store(VELM_XML_Key_font, font); }
    std::string fontSize() const { return textFor(VELM_XML_Key_size); }
    void setFontSize(const std::optional<std::string>& size) { store(VELM_XML_Key_size, size); }
    std::optional<std::string> textAlignmentString() const { return textOf(VELM_XML_Key_textAlignment); }
    void setTextAlignmentString(const std::optional<std::string>& alignment) {
        store(VELM_XML_Key_textAlignment, alignment);
    }
    /// 0 left, 1 right, 2 center, 3 justified.
    int textAlignment() const;
    /// 4 and above change nothing.
    void setTextAlignment(int alignment);

    // --- Colours, shadow, border, background

    std::string textColorCode() const { return textFor(VELM_XML_Key_color); }
    void setTextColorCode(const base::Value& code) { store(VELM_XML_Key_color, code); }
    double textOpacity() const { return opacityOf(textColorCode()); }
    void setTextOpacity(double opacity) { storeOpacity(VELM_XML_Key_color, textColorCode(), opacity); }

    bool hasShadow() const;
    void setHasShadow(bool hasShadow);
    /// Always with alpha.
    std::string shadowColorCode() const;
    void setShadowColorCode(const base::Value& code) { store(VELM_XML_Key_shadowcolor, code); }
    double shadowOpacity() const { return opacityOf(shadowColorCode()); }
    void setShadowOpacity(double opacity) { storeOpacity(VELM_XML_Key_shadowcolor, shadowColorCode(), opacity); }
    double shadowBlur() const;
    /// A value below 0 changes nothing.
    void setShadowBlur(double blur);
    double shadowOffsetX() const { return storedOffset().x; }
    double shadowOffsetY() const { return storedOffset().y; }
    void setShadowOffsetX(double x);
    void setShadowOffsetY(double y);
    /// The stored offset as the drawing wants it, y up.
    base::Size shadowOffset() const;
    /// Stored aside; `shadowOffset` does not read it.
    void setShadowOffset(base::Size offset) { shadowOffset_ = offset; }

    bool hasBorder() const;
    void setHasBorder(bool hasBorder);
    std::string borderColorCode() const { return textFor(VELM_XML_Key_bordercolor); }
    void setBorderColorCode(const base::Value& code) { store(VELM_XML_Key_bordercolor, code); }
    double borderOpacity() const { return opacityOf(borderColorCode()); }
    void setBorderOpacity(double opacity) { storeOpacity(VELM_XML_Key_bordercolor, borderColorCode(), opacity); }
    /// Scaled; the setter stores its argument as it is.
    double borderWidth() const;
    void setBorderWidth(const base::Value& width) { store(VELM_XML_Key_borderWidth, width); }
    bool borderClipsContent() const { return boolFor(VELM_XML_Key_clipsContent); }
    void setBorderClipsContent(bool clips) { store(VELM_XML_Key_clipsContent, clips); }

    bool hasBackground() const;
    void setHasBackground(bool hasBackground);
    std::string backgroundColorCode() const { return textFor(VELM_XML_Key_backgroundcolor); }
    void setBackgroundColorCode(const base::Value& code) { store(VELM_XML_Key_backgroundcolor, code); }
    double backgroundOpacity() const { return opacityOf(backgroundColorCode()); }
    void setBackgroundOpacity(double opacity) {
        storeOpacity(VELM_XML_Key_backgroundcolor, backgroundColorCode(), opacity);
    }

    // --- Filling in the job's values (TemplateReplacement.cpp, TemplateStamps.cpp)

    /// Puts the values of the package's job into the layers that have a key, in place and for good.
    void replaceKeyValues() { replaceKeyValues({}); }
    /// The same without drawing: a hole that a whole template is drawn into stays as it is, and is handed over with
    /// that template's path and the template itself, filled; null when it is nowhere.
    using HoleTemplate = std::function<void(const Ref& hole, const std::string& path, const Ref& filled)>;
    void replaceKeyValues(const HoleTemplate& handOver);
    /// Puts the first picture (a list of URLs) and the first crop (a list of texts) into all image layers, then
    /// replaces the key values.
    void replaceImages(const base::Array& urls, const base::Array& cropRects);
    /// The text of a stamp now; none draws nothing.
    std::optional<std::string> stampValue() const;

    // --- Rendering (TemplateImages.cpp, TemplateRendering.cpp)

    /// Draws the template on the caller's thread and changes no flag. Null when there can be no canvas.
    platform::draw::ImageRef createProductImage();
    /// The template's picture, drawn once and kept as long as this object lives. Runs on `renderingQueue`; clears
    /// `isRenderingUnrotated`, and draws a preview while `isRenderingPreview` stands.
    platform::draw::ImageRef image();
    /// A fresh picture. Runs on `renderingQueue`; clears both flags.
    platform::draw::ImageRef imageUncached();
    /// Why the last picture must not become a product: a template file that holds itself or is nested too deep, a
    /// picture that is there and can't be read. To be asked after the render, on the same thread or queue.
    std::optional<base::Error> renderError() const;

    /// Takes a picture, null when there can be no canvas. The getters below return at once and draw on
    /// `renderingQueue`, where the template stays alive until it is drawn; without a reply they do nothing. The values
    /// must not change meanwhile: who changes a template that may be drawn does so on its `renderingQueue`.
    using ImageReply = std::function<void(const platform::draw::ImageRef&)>;
    /// For the screen; the reply runs on the main queue.
    void getPreviewImage(ImageReply reply);
    /// The same without the rotation of the layers.
    void getPreviewImageUnrotated(ImageReply reply);
    void getUnrotated(bool unrotated, ImageReply previewImage);
    /// As imageUncached; the reply runs on `renderingQueue` and must not wait for a template around this one.
    void getComposedImage(ImageReply reply);
    /// A preview of a deep copy on white, fitted into `sizeThumbnail`; the reply runs on `renderingQueue`.
    void getThumbnailImage(ImageReply reply);
    /// The last thumbnail that was finished. Without one it answers null and has one made, one at a time, which is
    /// announced under "thumbnail" on the main queue, before and after. Any thread; it waits for no queue.
    platform::draw::ImageRef thumbnail();
    static base::Size sizeThumbnail() { return {192, 192}; }

    /// "com.kestrune.velm.queue.rendering.%@": all renders of this template; made on first use.
    const std::shared_ptr<platform::run::Queue>& renderingQueue();
    /// The class's own: the next of a pool "com.kestrune.velm.template.rendering.%d", one for each processor.
    static std::shared_ptr<platform::run::Queue> classRenderingQueue();
    /// "com.kestrune.velm.queue.shared.atomic.template": guards the making of the others.
    static const std::shared_ptr<platform::run::Queue>& atomicQueue();

    bool isRenderingPreview() const { return isRenderingPreview_; }
    void setIsRenderingPreview(bool preview) { isRenderingPreview_ = preview; }
    bool isRenderingUnrotated() const { return isRenderingUnrotated_; }
    void setIsRenderingUnrotated(bool unrotated) { isRenderingUnrotated_ = unrotated; }
    bool isRenderingThumbnail() const { return isRenderingThumbnail_; }
    /// How the layer's text is drawn; none without a text and for layers that are no text. A font that is not there is
    /// replaced with a log line.
    std::optional<platform::draw::TextAttributes> attributes() const;
    std::optional<platform::draw::TextAttributes> stringAttributes() const;

private:
    friend class TemplateReader;
    friend class TemplateRenderer;

    class DeepCopy;

    bool typeIs(std::string_view text) const;
    std::optional<std::string> textOf(std::string_view key) const { return value(key).stringValue(); }
    /// What is stored under the key or its second one, or else the default, by the table.
    std::string textFor(std::string_view key) const;
    bool boolFor(std::string_view key) const;
    const base::Value& storedFor(const TemplateKey& key) const;
    static double opacityOf(std::string_view colorCode);
    /// Stores by the key's rule in the table.
    void store(std::string_view key, base::Value value);
    /// Puts another alpha into the code that is in force, and stores it under the key.
    void storeOpacity(std::string_view key, const std::string& code, double opacity);
    /// What all storing ends in: tells the observers and raises the parent's change count. The value is kept in a
    /// setting too when one is named.
    void put(const TemplateKey& key, base::Value value, bool isCounted = true, std::string_view setting = {});
    void put(std::string_view key, base::Value value) { put(*templateKey(key), std::move(value)); }
    void setLastSaved(Ref lastSaved);
    /// Tells the observers of properties, before the change by its making and after it by its end.
    class Announcement {
    public:
        Announcement(VELM_Template& changed, std::span<const std::string_view> properties);
        ~Announcement();
        Announcement(const Announcement&) = delete;
        Announcement& operator=(const Announcement&) = delete;

    private:
        Ref changed_; // null when nobody ever observed it
        std::span<const std::string_view> properties_;
    };
    void setIndexSetLayersSelected(std::set<std::size_t> indices);
    base::Point storedOffset() const;
    void storeOffset(base::Point offset);
    struct EnableFlag;
    bool isEnabled(const EnableFlag& flag) const;
    void setEnabled(const EnableFlag& flag, bool enabled);
    std::string cacheKey() const;
    platform::draw::ImageRef cachedImage() const;
    platform::draw::ImageRef composedImage();
    void replaceImageLayer(VELM_Template& layer, const std::string& key, const std::optional<std::string>& jobValue,
                           const HoleTemplate& handOver);

    std::weak_ptr<VELM_Template> parent_;
    std::weak_ptr<const PackageValues> package_;
    std::weak_ptr<const platform::data::XMLNode> xmlNode_;
    Ref lastSaved_;
    std::int64_t changeCount_ = 0;
    std::set<std::size_t> indexSetLayersSelected_;
    std::unique_ptr<platform::run::Observable> observable_; // made for the first observer
    static constexpr double noScale = std::numeric_limits<double>::quiet_NaN();
    std::atomic<double> scale_ = noScale; // a parent writes its child's
    base::Size shadowOffset_;
    std::optional<base::URL> outerJobContainer_; // of the job whose hole this template fills

    std::atomic<bool> isRenderingPreview_ = false; // a parent writes its child's
    std::atomic<bool> isRenderingUnrotated_ = false;
    std::atomic<bool> isRenderingThumbnail_ = false;
    platform::draw::ImageRef thumbnail_; // stored on the main queue
    struct CachedImage {
        platform::draw::ImageRef image;
        std::optional<base::Error> error;
    };
    std::map<std::string, CachedImage> cacheDict_;
    std::shared_ptr<platform::run::Queue> renderingQueue_;
    std::optional<base::Error> loadError_; // of the file, or of a layer's file
    std::optional<base::Error> fillError_; // of a template drawn into a hole
    std::optional<base::Error> drawError_; // of the last render, its containers' included
};
