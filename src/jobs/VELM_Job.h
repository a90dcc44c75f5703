// One order: a parsed job ticket with its values (which picture fills which slot, crops, rotations), its package
// references and its run. Made by a scan of a watched folder or from a path, on that thread; parsed once and only read
// after that, so any thread may ask it for values while it runs. It owns its values and makes its packages for the
// time of its run.
//
// Names of elements and attributes compare without regard to case; the keys of valuesDict are lower case.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/data/XMLDocument.h"
#include "platform/run/Observation.h"
#include "platform/run/Progress.h"
#include "template/KLARON_Audited.h"
#include "template/RenderingContext.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class KLARON_Image;
class OrderReport;
class VELM_Package;
class VELM_Template;

namespace jobs {
struct BundleContents;
struct TicketReading;
} // namespace jobs

class VELM_Job final : public base::Object,
                       public JobValues,
                       public KLARON_Audited,
                       public platform::run::Observable,
                       public std::enable_shared_from_this<VELM_Job> {
public:
    using Ref = std::shared_ptr<VELM_Job>;
    using Completion = std::function<void(bool success, const std::optional<base::Error>& error)>;

    static constexpr double versionMaximum = 1.99;
    static constexpr double versionMinimum = 1.0;
    static constexpr std::string_view xmlVersionString = "1.0";
    static constexpr std::string_view xmlElementName = "job";
    static constexpr std::int64_t totalProgressUnits = 100;

    /// A job built in code: "type" and "version" only.
    static Ref init();
    ~VELM_Job() override;
    VELM_Job(const VELM_Job&) = delete;
    VELM_Job& operator=(const VELM_Job&) = delete;
    /// Reads a ticket: a job bundle, a native or a foreign ticket. Null for what is no ticket or can't be parsed; what
    /// is wrong with it is logged, save that a file that can't be read and a receipt pass in silence.
    static Ref instanceWithXMLObject(std::string_view path);
    static Ref instanceWithXMLObject(const base::URL& url);
    static Ref instanceWithXMLObject(const base::Data& data);
    /// The same reading, with the reason where there is no job. A report takes what is dropped or passed over.
    static base::Result<Ref> jobWithContentsOfURL(const base::URL& url, OrderReport* report = nullptr);
    /// From the text of a ticket; parseXML must follow. Null, logged, when the text is no XML.
    static Ref initWithXML(std::string_view xml);
    /// Chooses the parser by the root's attributes. The completion gets the error that leaves no job, or none.
    using ParseCompletion = std::function<void(const std::optional<base::Error>& error)>;
    void parseXML(const ParseCompletion& completion, OrderReport* report = nullptr);

    // Values -----------------------------------------------------------------------------------------------------

    /// The XML file itself (of a bundle its "job.xml"); equality rests on it. Empty for a job built in code.
    const base::URL& documentURL() const { return documentURL_; }
    std::optional<base::URL> urlJobContainer() const override { return urlJobContainer_; }
    const base::Dictionary& valuesDict() const { return valuesDict_; }
    /// The ticket as it was read; null for a job built in code. A job keeps its text alone, since the document takes
    /// some fifty times as much: it is parsed anew at each call.
    platform::data::XMLDocumentRef xmlDoc() const;
    const std::shared_ptr<platform::run::Progress>& progress() const { return progress_; }

    const base::Value& objectForKeyedSubscript(std::string_view key) const { return valueForKeyInDict(key); }
    /// Notifies observers of the key; does nothing when the value is equal. Nothing removes the entry.
    void setObject(base::Value value, std::string_view key);

    double version() const;
    std::optional<std::string> jobType() const;
    /// Last component of the bundle, or else of the ticket, without its extension; "" when there is neither.
    std::string name() const;
    base::Array jobPackages() const;
    std::optional<std::string> packageName() const;
    std::optional<std::string> packageLabel() const;
    std::optional<std::string> pluCode() const;
    std::optional<std::string> destinationLabel() const;
    base::Dictionary replacements() const;
    /// The outputs that were added in code.
    base::Array outputs() const;
    std::optional<std::string> graphicPath() const override;
    /// When the ticket was last modified, or now when that can't be told. Asks the file system at each call.
    base::Date dateStarted() const;
    std::vector<std::string> auditedProductKeys() const override { return {"thumbnail"}; }

    using JobValues::valueForKey;
    std::optional<std::string> valueForKey(std::string_view key, const std::optional<std::string>& packageName,
                                           std::string_view metaKey) const override;
    base::Value valueInDict(std::string_view key) const override { return valueForKeyInDict(key); }

    std::string className() const override { return "VELM_Job"; }
    bool isEqual(const base::Object& other) const override;
    /// Of the path of documentURL; never 0.
    std::size_t hash() const override;
    std::string description() const override;

    // Running ----------------------------------------------------------------------------------------------------

    /// Runs all packages at the same time and waits for them on the calling thread; `completion` is called on it. Its
    /// flag is always false: the absence of an error alone tells success. The last of several errors wins.
    void processJob(const Completion& completion);
    /// Runs it now under the rule of one job at a time, whatever the run flag says.
    void processToCompletion();
    /// The files that the runs of this job have written so far, in the order in which they were finished. Any thread.
    std::vector<std::string> writtenFiles() const;
    /// Called from the threads of the outputs.
    void recordWrittenFile(const std::string& path) const;

    /// The job has ended and its file was moved away: what stands at its place now is another order. Any thread.
    bool isDisposedOf() const { return isDisposedOf_; }
    void setIsDisposedOf() { isDisposedOf_ = true; }

    // Writing ----------------------------------------------------------------------------------------------------

    using WriteResult = std::function<void(bool success, const std::optional<base::Error>& error)>;
    /// Writes the job as a bundle, whole or not at all, in the place of what stands at the URL. Fails when a picture
    /// can't be read, when two files would need one name in it, and when the ticket would not read back; a template
    /// that can't be read is left out, logged.
    /// Pictures go into "images", while reading looks into "Images": a file system that tells them apart needs a
    /// rename.
    void writeToURL(const base::URL& url, const WriteResult& result);
    std::vector<std::pair<std::string, std::string>> xmlElementAttributes() const;
    std::vector<platform::data::XMLNodeRef> xmlElementChildren() const;
    platform::data::XMLNodeRef asXMLElement() const;
    platform::data::XMLDocumentRef asXMLDocument() const;
    /// How keys are named in a ticket: as in a template (VELM_Template).
    static std::string_view translatedChildName(std::string_view key);
    static std::string_view translatedAttributeName(std::string_view key);
    static std::string_view translatedAttributeValue(std::string_view value);
    static platform::data::XMLNodeRef xmlAttributeTranslatedName(std::string_view key, std::string_view value);
    static std::span<const std::string_view> attributesForChild(std::string_view key);
    /// Saving a ticket back is not offered: reports that no URL is there when there is none, and else does nothing.
    void filePath(const std::optional<base::URL>& url, const WriteResult& saveChanges);

    // Building in code ---------------------------------------------------------------------------------------------

    void addReplacements(const base::Dictionary& replacements);
    void addTemplates(const std::vector<std::shared_ptr<VELM_Template>>& templates);
    /// The job's run and its ticket take them; each gets a package reference.
    void addPackages(const std::vector<std::shared_ptr<VELM_Package>>& packages);
    /// Those that were added in code.
    const std::vector<std::shared_ptr<VELM_Package>>& packages() const { return packages_; }
    /// Keeps the outputs among the objects.
    void addOutputs(const base::Array& outputs);
    struct JobImage {
        base::URL URL;
        std::shared_ptr<VELM_Template> imageTemplate; ///< Null for a picture without a template of its own.
    };
    void addImages(const std::vector<JobImage>& images);
    const std::vector<std::shared_ptr<VELM_Template>>& templates() const { return templates_; }
    const std::vector<base::URL>& images() const { return images_; }

    // Preview ----------------------------------------------------------------------------------------------------

    /// What a preview shows; nothing stands for a picture without a place.
    const std::vector<std::optional<base::URL>>& previewItems() const { return previewItems_; }
    std::size_t previewItemsCount() const { return previewItems_.size(); }
    /// -1 while no item is chosen.
    std::int64_t previewItemIndex();
    void setPreviewItemIndex(std::int64_t index);
    /// The picture at graphicPath; null when there is none. Opens the file.
    std::shared_ptr<KLARON_Image> previewImage() const;
    const std::optional<base::URL>& previewItemURL() const { return previewItemURL_; }

private:
    struct Source;

    VELM_Job();
    static base::Result<Ref> make(std::string xml, const std::string& file);
    static base::Result<Ref> jobWithSource(base::Result<Source> source, const base::Value& given,
                                           OrderReport* report = nullptr);
    static base::Result<Source> sourceAtURL(const base::URL& url);

    void parseXML_velmVersion1(const platform::data::XMLNodeRef& root, const ParseCompletion& completion,
                               OrderReport* report);
    void parseXML_sorrelVersion1(const platform::data::XMLNodeRef& root, const ParseCompletion& completion,
                                 OrderReport* report);
    std::optional<base::Error> translateForeignValues();
    void parseElement(const platform::data::XMLNode& element, OrderReport* report);
    void parseAllImages(const platform::data::XMLNode& element, const jobs::TicketReading& reading);
    void parsePackage(const platform::data::XMLNodeRef& element, base::Array& references, OrderReport* report);
    static void buildDictionary(base::Dictionary& target, const platform::data::XMLNode& element,
                                const jobs::TicketReading& reading);
    static void buildShortSlot(base::Dictionary& target, const platform::data::XMLNode& element,
                               const jobs::TicketReading& reading);
    static void buildSlotValue(base::Dictionary& target, const std::string& slot, const platform::data::XMLNode& child,
                               const jobs::TicketReading& reading);
    void makePreviewItems();

    const base::Value& valueForKeyInDict(std::string_view key) const { return base::valueForKey(valuesDict_, key); }
    void indexPackageReferences();
    const base::Dictionary* packageReference(const std::optional<std::string>& packageName) const;

    std::int64_t previewItemIndex_ = -1;
    std::shared_ptr<platform::run::Progress> progress_;
    base::URL documentURL_;
    std::optional<base::URL> urlJobContainer_;
    std::string xmlString_;
    platform::data::XMLDocumentRef xmlDoc_; // until it is read
    std::optional<base::URL> previewItemURL_;
    std::vector<std::shared_ptr<VELM_Package>> packages_;
    base::Dictionary valuesDict_;
    std::map<std::string, std::size_t> referencesByName_; // by product code and name, folded
    std::vector<std::optional<base::URL>> previewItems_;
    std::vector<std::shared_ptr<VELM_Template>> templates_;
    std::vector<base::URL> images_;

    std::atomic<bool> isDisposedOf_ = false;
    mutable std::mutex writtenFilesMutex_;
    mutable std::vector<std::string> writtenFiles_;
};
