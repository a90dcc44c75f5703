// The older form of a ticket: one XML document that holds a product, its templates and its outputs, and is run by
// itself, without job and package. Orders do not come this way: VELM_Package took over its format.
//
// Made and parsed on one thread; after that its runs may be started from any, and their replies come on the queues that
// each operation names. Whoever makes it owns it; a run keeps it alive. Images and values are read and stored on one
// thread at a time.
#pragma once

#include "base/Error.h"
#include "base/Path.h"
#include "base/Value.h"
#include "output/VELM_Output.h"
#include "platform/data/XMLDocument.h"
#include "platform/run/Observation.h"
#include "platform/run/Queue.h"

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class ImageObject;
class VELM_Template;
namespace platform::draw {
class Image;
using ImageRef = std::shared_ptr<const Image>;
} // namespace platform::draw

class VELM_Asset final : public base::Object, public std::enable_shared_from_this<VELM_Asset> {
public:
    using Ref = std::shared_ptr<VELM_Asset>;
    using ImageRef = platform::draw::ImageRef;
    using TemplateRef = std::shared_ptr<VELM_Template>;
    using Templates = VELM_Output::Templates;

    /// From a path text, a URL or data (UTF-8). Null, logged, when it can't be read or parsed.
    static Ref assetWithXMLObject(const base::Value& object);
    /// From the text of a ticket. Null, logged, when it is no XML.
    static Ref initWithXML(std::string_view xml);
    /// Serial, "com.kestrune.velm.queue.sharedRenderingQueue": makes the kept images of all assets, one at a time.
    static const platform::run::QueueRef& sharedRenderingQueue();

    const platform::data::XMLDocumentRef& xmlDoc() const { return xmlJobTicket_; }
    /// The asset observes this itself: a new document is parsed at once.
    void setXmlDoc(platform::data::XMLDocumentRef document);
    const std::optional<base::URL>& documentURL() const { return documentURL_; }
    base::Dictionary& valuesDict() { return templateValuesDict_; }
    const base::Value& value(std::string_view key) const { return base::valueForKey(templateValuesDict_, key); }
    std::optional<std::string> name() const { return base::textForKey(templateValuesDict_, "name"); }
    std::optional<std::string> pluCode() const { return base::textForKey(templateValuesDict_, "plucode"); }
    std::optional<std::string> productID() const { return base::textForKey(templateValuesDict_, "productid"); }
    std::vector<std::shared_ptr<VELM_Output>> outputs() const;
    Templates velmNodes() const;

    /// Fills the values from the document: the root's children, not its attributes.
    void parseXML();
    /// The names of the root's children that hold elements of their own.
    static std::span<const std::string_view> knownParents();
    static void logNode(const platform::data::XMLNode& node);
    std::string className() const override { return "VELM_Asset"; }
    std::string description() const override;

    // Outlets: the templates under the keys "layout", "canvas", "portrait", "landscape" and "square".

    static std::span<const std::string_view> allOutletKeys();
    /// Those that hold a template, in the order of allOutletKeys.
    std::vector<std::string_view> availableOutletKeys() const;
    std::vector<TemplateRef> availableOutlets() const;
    /// Null when there is none.
    TemplateRef firstOutlet() const;
    /// The outlet with the image layer whose shape is nearest to the picture's; of equals the first. Null without such
    /// a layer, and for what is no picture.
    TemplateRef outletForImage(const ImageObject& image) const;
    /// Calls back for each outlet in order, on the queue, and returns when that is done.
    using OutletCallback = std::function<void(std::string_view key, const TemplateRef& outlet)>;
    void processingQueue(const platform::run::QueueRef& queue, const OutletCallback& forAllOutlets) const;

    // Pictures

    /// Null when there can be no canvas, as without a template.
    static ImageRef createProductImageForTemplate(const TemplateRef& from);
    /// Of the first outlet.
    ImageRef createProductImage() const { return createProductImageForTemplate(firstOutlet()); }
    /// Made once for each name and kept; the caller waits for it.
    ImageRef imageForTemplate(const TemplateRef& from);
    /// Replies with "colorSpace" (a ColorSpaceValue) and the picture (an ImageValue) of each outlet under its key, on a
    /// queue of its own.
    using CanvasCompletion = std::function<void(const base::Dictionary& values)>;
    void createComposedCanvas(const CanvasCompletion& completion);
    /// Writes a JPEG of quality 0.85 in the place of what stands there, whole or not at all. The error is logged too;
    /// its place may be null.
    static bool writeImage(const ImageRef& image, std::string_view toDestination,
                           std::optional<base::Error>* returningError);

    // Running

    /// Runs all outputs at the same time and replies when all have ended, both on the global queue of the class
    /// "user initiated". As of a package, the last of several errors wins.
    using Completion = std::function<void(bool success, const std::optional<base::Error>& error)>;
    void processToCompletion(const Completion& completion);
    /// Writes the product image to the path and replies with the path, or with nothing when there is no image, on a
    /// queue of its own.
    using DestinationCompletion =
        std::function<void(const std::optional<std::string>& path, const std::optional<base::Error>& error)>;
    void processTemplateToDestination(const std::string& path, const DestinationCompletion& completionBlock);

private:
    void storeTemplate(const std::string& name, const TemplateRef& made);

    platform::data::XMLDocumentRef xmlJobTicket_;
    base::Dictionary templateValuesDict_;
    std::optional<base::URL> documentURL_;
    platform::run::Observable observable_; // "xmlDoc"
    platform::run::Observation xmlDocObservation_;
};
