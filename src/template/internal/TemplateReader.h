// Reads templates: finds a file, builds the tree out of its elements and puts nested files in the place of the layers
// that name them. One reader serves one document with all that is nested in it; used by one thread, not kept.
#pragma once

#include "TemplateGrammar.h"
#include "base/MessageTemplate.h"
#include "template/TemplateReport.h"
#include "template/VELM_Template.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class TemplateReader {
public:
    explicit TemplateReader(std::optional<base::URL> jobContainer, TemplateReport* report = nullptr)
        : jobContainer_(std::move(jobContainer)), report_(report) {}

    /// Null, after a log line, when no file is found; an error when it may not be nested where the reader stands.
    base::Result<VELM_Template::Ref> documentAt(const base::Value& path, bool isNode);
    /// Null for a layer beyond VELM_Template::maximumLayers.
    VELM_Template::Ref nodeOf(const platform::data::XMLNode& node);

private:
    struct OpenFile {
        std::string identity; // the same by whatever path
        std::string path;
    };

    std::vector<base::Value> placesOf(const base::Value& path, bool isNode) const;
    VELM_Template::Ref readableFile(const base::Value& path, bool isNode) const;
    base::Result<void> enter(const VELM_Template& readingObject);
    VELM_Template::Ref documentOf(VELM_Template::Ref readingObject);
    void readBody(VELM_Template& body, const platform::data::XMLNode& element, std::string_view containerKey);
    void readBodyChild(VELM_Template& body, const platform::data::XMLNode& child);
    void readCanvas(VELM_Template& canvas, const platform::data::XMLNode& element);
    void readLayer(VELM_Template& layer, const platform::data::XMLNode& element);
    void readLayerAttributes(VELM_Template& layer, const platform::data::XMLNode& element);
    void readLayerChild(VELM_Template& layer, const platform::data::XMLNode& child);
    void takeAttribute(VELM_Template& layer, const platform::data::XMLNode& child,
                       const platform::data::XMLNode& attribute, const grammar::AttributeRule& rule);
    VELM_Template::Ref substituted(VELM_Template::Ref layer, const platform::data::XMLNode& element);
    /// Stores an attribute or child (`source`) of `element` as the rule says.
    void take(VELM_Template& layer, const platform::data::XMLNode& element, const platform::data::XMLNode& source,
              const grammar::Rule& rule);
    /// True for an element; logs what is neither that nor a comment.
    bool isElementToRead(const platform::data::XMLNode& node) const;

    // --- For the report (TemplateReporting.cpp); without one these do nothing

    const std::string& file() const;
    TemplateReport::Place placeOf(const platform::data::XMLNode& node) const;
    /// Where the layer of the element names its file.
    TemplateReport::Place placeOfPath(const VELM_Template& layer, const platform::data::XMLNode& element) const;
    /// A finding at a node, from a message template.
    template <class... Arguments>
    void note(const platform::data::XMLNode& node, std::string_view messageTemplate,
              const Arguments&... arguments) const {
        if (report_) report_->add(placeOf(node), base::message(messageTemplate, quotable(arguments)...));
    }
    void noteFault(const platform::data::XMLNode& source, grammar::Form form, const std::string& text) const;
    void noteRoot(const platform::data::XMLNode& root) const;
    /// What the recovering parse had to recover, or that it found nothing.
    void noteUnsound(VELM_Template& readingObject) const;
    void noteMissing(const base::Value& path, bool isNode, TemplateReport::Place place) const;
    /// A value that is kept under a name of the file's own, unless that is one of the keys.
    void noteKept(const platform::data::XMLNode& source, std::string_view key) const;
    void noteUnknownChild(const VELM_Template& layer, const platform::data::XMLNode& child) const;
    /// The values that the document has from the layer in whose place it stands, and those that are dropped with it.
    void noteSubstituted(const VELM_Template& document, const VELM_Template& layer) const;
    void setOrigins(const VELM_Template& layer, const platform::data::XMLNode& element,
                    const platform::data::XMLNode& source, const std::vector<grammar::Target::Stored>& stored) const;
    static std::string quotable(std::string_view text);
    static std::string quotable(const base::Error& error) { return error.localizedDescription; }
    static unsigned long quotable(unsigned long number) { return number; }

    std::optional<base::URL> jobContainer_;
    TemplateReport* report_;
    std::vector<OpenFile> openFiles_; // from the outermost document inward
    int nestedFiles_ = 0;
    std::size_t nestedBytes_ = 0;
    int layers_ = 0;
};
