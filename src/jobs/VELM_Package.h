// The product definition that a job names: templates, and the outputs that use them. Found at run time by name and
// orientation of the picture among the package files, or standing inline in the ticket. A found package belongs to one
// run of one job: it is parsed anew for each reference, on the thread of that reference, and nothing keeps it after.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "output/VELM_Output.h"
#include "platform/data/Finding.h"
#include "platform/data/XMLDocument.h"
#include "platform/run/Observation.h"
#include "platform/run/Queue.h"
#include "template/KLARON_Audited.h"
#include "template/RenderingContext.h"
#include "template/VELM_XML_object.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class VELM_Job;
class VELM_Template;

class VELM_Package final : public VELM_XML_object,
                           public PackageValues,
                           public KLARON_Audited,
                           public std::enable_shared_from_this<VELM_Package> {
public:
    using Ref = std::shared_ptr<VELM_Package>;
    using Templates = VELM_Output::Templates;
    using Completion = std::function<void(bool success, const std::optional<base::Error>& error)>;
    /// Looks at the package as far as it is read; setting `stop` ends the reading. `error` is present when the
    /// reading itself ends there.
    using Look = std::function<void(VELM_Package& package, const std::optional<base::Error>& error, bool& stop)>;

    ~VELM_Package() override;
    /// The package of a job's package reference: the inline one, or the one found in the job's Packages folder or else
    /// in the configured folder. Null when there is none.
    static Ref packageWithDictionary(const base::Dictionary& reference);
    /// An empty inline package.
    static Ref init();
    /// From an element inside a ticket; its children are read, its attributes are not.
    /// A report takes down what is dropped or passed over, as in all reading below; what is logged stays the same.
    static Ref initWithNode(const platform::data::XMLNodeRef& element, const std::shared_ptr<VELM_Job>& job,
                            platform::data::Findings* report = nullptr);
    /// From the archived form: values and text, without job.
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& archived);
    /// A package file, not parsed yet. Null when it can't be read.
    static Ref instanceWithXMLObject(const base::URL& url);

    /// Guards the round robin of the output queues: "com.kestrune.velm.queue.sharedSynchronized.package".
    static const platform::run::QueueRef& atomicQueue();
    /// The next queue of the pool on which the outputs of all packages run: strict round robin over serial queues,
    /// two for each logical processor.
    static platform::run::QueueRef outputQueue();

    /// Reads the file: first its root attributes, then `look` (the cheap look, which can end it), then the children,
    /// then `look` again. Without a look errors are logged or dropped.
    void parseXML(const Look& look, platform::data::Findings* report = nullptr);
    /// Fills the entries from an element's children.
    void parseXMLNode(const platform::data::XMLNode& element, platform::data::Findings* report = nullptr);

    /// Runs all outputs on the pool and waits for them; `completion` is called on the calling thread. A failing output
    /// does not stop the others; the last of several errors wins.
    void processToCompletion(const Completion& completion);

    std::optional<std::string> name() const override;
    std::optional<std::string> pluCode() const override;
    std::optional<base::URL> urlJobContainer() const override;
    std::shared_ptr<const JobValues> job() const override;
    void setJob(std::weak_ptr<VELM_Job> job) { job_ = std::move(job); }

    std::vector<std::shared_ptr<VELM_Output>> outputs() const;
    Templates velmNodes() const;
    /// Keeps the outputs among the objects; notifies on "outputs".
    void addOutputs(const base::Array& outputs);
    platform::run::Observable& observable() { return observable_; }
    /// Each under its name; one without a name under a name that the next nameless one takes over.
    void addTemplates(const std::vector<std::shared_ptr<VELM_Template>>& templates);

    // Writing

    static constexpr std::string_view xmlElementName = "package";
    /// The element of a ticket, always inline: the templates that have files by their file names, and the outputs.
    /// Reads the package's file first when it has not been read.
    platform::data::XMLNodeRef asXMLElement();
    std::vector<std::pair<std::string, std::string>> xmlElementAttributes() const;
    std::vector<platform::data::XMLNodeRef> xmlElementChildren() const;

    std::vector<std::string> auditedProductKeys() const override { return {"thumbnail"}; }
    std::string className() const override { return "VELM_Package"; }

private:
    void addTemplate(const std::string& name, const std::shared_ptr<VELM_Template>& newTemplate);
    /// Where the element stands that is read.
    enum class Surroundings { packageFile, ticket };
    void parseChildren(const platform::data::XMLNode& element, Surroundings surroundings,
                       platform::data::Findings* report);
    void noteReplaced(const std::string& slot, const platform::data::XMLNode& element,
                      platform::data::Findings* report) const;
    /// The root with at least its attributes: the cheap look reads no further.
    platform::data::XMLNodeRef rootForFirstLook();
    bool parseRootAttributes(const Look& look, platform::data::Findings* report);

    std::weak_ptr<VELM_Job> job_;
    platform::run::Observable observable_; // "outputs"
};
