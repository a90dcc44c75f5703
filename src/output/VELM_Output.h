// One product of a package: its canvas, the nodes that place templates on it, and the destinations that receive it.
// Owned by its package. A run (processToCompletion) is synchronous on the caller's thread; outputs of one package run
// at the same time and share the package's templates, so a run prepares and renders each template as one step on that
// template's own queue, and everything that a run keeps of a template it takes in that step. Attributes of an output,
// its nodes and destinations are set before the run and only read during it.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Path.h"
#include "base/Value.h"
#include "output/VELM_Destination.h"
#include "output/VELM_Output_node.h"
#include "platform/run/Observation.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class PackageValues;
class VELM_PrintToFileSet;
class VELM_Template;

namespace platform::data {
class Findings;
class XMLNode;
using XMLNodeRef = std::shared_ptr<XMLNode>;
} // namespace platform::data

class VELM_Output : public base::Object {
public:
    /// Node name to template: the package's list.
    using Templates = std::map<std::string, std::shared_ptr<VELM_Template>, std::less<>>;
    /// Told of each event of a run: success, or failure with its error. One run calls it once for each destination and
    /// for each thing that goes wrong on the way, on the run's thread.
    using Reply = std::function<void(bool success, const std::optional<base::Error>& error)>;

    VELM_Output() = default;
    /// Reads an `output` element. What isn't understood is logged or skipped, and told to the report when there is one;
    /// reading never fails.
    static std::shared_ptr<VELM_Output> initWithNode(const platform::data::XMLNode& element,
                                                     platform::data::Findings* report = nullptr);
    /// From the archived form.
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& values);
    /// A deep copy, as the archived form gives it back: nodes, destinations, barcodes and templates are the copy's own.
    /// Refers to the same package. May be called while other outputs that share the templates run: it waits for a
    /// render that is under way.
    std::shared_ptr<VELM_Output> copyWithZone() const;

    double width() const { return width_; }
    double height() const { return height_; }
    /// In pixels; zero when not given.
    base::Size size() const { return {width_, height_}; }
    void setSize(base::Size size);
    /// "name" and "allimages".
    const base::Dictionary& valuesDict() const { return valuesDict_; }
    /// Whether the output runs once for each picture of the order.
    bool allImages() const;

    const std::vector<std::shared_ptr<VELM_Output_node>>& outputNodes() const { return outputNodes_m_; }
    void addOutputNode(std::shared_ptr<VELM_Output_node> node) { outputNodes_m_.push_back(std::move(node)); }
    std::vector<std::string> nodeNames() const;

    const std::vector<std::shared_ptr<VELM_Destination>>& destinations() const { return destinations_m_; }
    /// Appends the destinations among the members, in order, as a change of the key "destinations".
    void addDestinations(const base::Array& destinations);
    platform::run::Observable& observable() { return observable_; }
    /// Each barcode's options, in order. Kept, not drawn.
    const base::Array& barcodes() const { return barcodes_m_; }

    std::shared_ptr<const PackageValues> package() const { return package_.lock(); }
    void setPackage(std::weak_ptr<const PackageValues> package) { package_ = std::move(package); }
    /// The owner in the older form of a ticket, a VELM_Asset.
    std::shared_ptr<const base::Object> asset() const { return asset_.lock(); }
    void setAsset(std::weak_ptr<const base::Object> asset) { asset_ = std::move(asset); }
    const Templates& templates() const { return templates_; }
    void setTemplates(Templates templates) { templates_ = std::move(templates); }
    /// The picture of this run, when the output runs once for each picture.
    const std::optional<std::string>& allImagesPath() const { return allImagesPath_; }
    void setAllImagesPath(std::optional<std::string> path) { allImagesPath_ = std::move(path); }

    /// Whether the product is the image of its one template as it stands.
    bool isSimpleOutlet() const;
    /// Whether no destination wants a rendered product.
    bool ignoresTemplates() const;
    /// Whether the product is the picture of the package's only template, which no node names.
    bool drawsOnlyTemplate() const;
    /// The picture of this run, or else the job's first picture in this package.
    std::optional<std::string> originalFilePath() const;
    /// The file of that picture: at its path, or in the job container's Images folder (then not tested to exist).
    std::optional<base::URL> urlOriginalImage() const;
    /// The scaling of image views for a gravity: 2 "resize", 1 "resizeAspect", 0 any other and none.
    static int imageScalingForGravity(const std::optional<std::string>& gravity);

    /// Makes the product and delivers it to each destination in turn. The reply is optional. A picture that can't be
    /// rendered ends the run with a failing reply, and no product is written.
    void processToCompletion(const Reply& reply) const;
    /// Copies the original picture to a file destination that asks for it; does nothing for any other destination.
    void processSaveOriginalDestination(const VELM_Destination& destination, const Reply& reply) const;

    /// The text that stands for the time in a name.
    using TimeStamp = std::function<std::string()>;
    /// The present time, unlike that of any other name that this process gave in the same millisecond.
    static std::string uniqueTimeStamp();
    /// The name, without extension, that a product gets at this destination.
    std::string outputFilenameForDestination(const VELM_Destination& destination,
                                             const TimeStamp& time = uniqueTimeStamp) const;
    /// The path at a destination that names no print-to-file set. The writer still puts the file type's own extension
    /// in place.
    std::string outputPathForDestination(const VELM_Destination& destination,
                                         const TimeStamp& time = uniqueTimeStamp) const;
    /// The path in a print-to-file set; none without a set.
    std::optional<std::string> outputPathForPTFS(const VELM_PrintToFileSet* set,
                                                 const TimeStamp& time = uniqueTimeStamp) const;
    /// How a file destination is written: by the set that it names, or else by its own settings.
    struct FileSettings {
        std::optional<std::string> path; ///< As named; see `writtenPath`.
        std::optional<std::string> site; ///< Goes into the EXIF comment.
        std::string type;                ///< A type identifier.
        bool isCopy = false;             ///< Of the original picture, in place of the product.
        bool downsample = false;
        std::optional<double> maximum; ///< Pixels of the longer side.
        bool overwrite = false;        ///< Else a name that is taken is numbered.
        std::shared_ptr<VELM_PrintToFileSet> set;

        /// The path with the extension that its file gets.
        std::optional<std::string> writtenPath() const;
    };
    FileSettings fileSettings(const VELM_Destination& destination, const TimeStamp& time = uniqueTimeStamp) const;
    /// The text that travels as EXIF comment: a property list of "OriginalPath" and "f"; none without "f".
    static std::optional<std::string> exifCommentForDictionary(const base::Dictionary& dictionary);

    /// Called with each file that any output writes, on the run's thread, before the reply. Ends when the token goes.
    using FileCallback = std::function<void(const VELM_Output& output, const base::URL& file)>;
    [[nodiscard]] static platform::run::Observation observeWrittenFiles(FileCallback callback);

    /// The element of a ticket: thinner than what is read. Its name and barcodes are left out, and it always runs for
    /// all pictures.
    static constexpr std::string_view xmlElementName = "output";
    std::vector<std::pair<std::string, std::string>> xmlElementAttributes() const;
    std::vector<platform::data::XMLNodeRef> xmlElementChildren() const;
    platform::data::XMLNodeRef asXMLElement() const;

    std::string className() const override { return "VELM_Output"; }
    std::string description() const override;
    std::optional<base::Dictionary> encoded() override;

private:
    void readAttributes(const platform::data::XMLNode& element, platform::data::Findings* report);
    bool readChild(const platform::data::XMLNode& child, platform::data::Findings* report);

    base::Dictionary valuesDict_;
    std::vector<std::shared_ptr<VELM_Output_node>> outputNodes_m_;
    std::vector<std::shared_ptr<VELM_Destination>> destinations_m_;
    base::Array barcodes_m_;
    double width_ = 0;
    double height_ = 0;
    std::optional<std::string> allImagesPath_;
    Templates templates_;
    std::weak_ptr<const PackageValues> package_;
    std::weak_ptr<const base::Object> asset_;
    platform::run::Observable observable_;
};
