// Reads templates: finds a file, builds the tree out of its elements and puts nested files in the place of the layers
// that name them. One reader serves one document with all that is nested in it; used by one thread, not kept.
#pragma once

#include "base/Error.h"
#include "template/VELM_Template.h"

#include <functional>
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
    VELM_Template::Ref nodeOf(const platform::data::XMLNode& node);

private:
    using Attribute = std::function<void(const platform::data::XMLNode& attribute)>;

    VELM_Template::Ref readableFile(const base::Value& path, bool isNode) const;
    base::Result<void> enter(const std::string& file);
    VELM_Template::Ref documentOf(VELM_Template::Ref readingObject);
    void readBody(VELM_Template& body, const platform::data::XMLNode& element, std::string_view containerKey);
    static void readCanvas(VELM_Template& canvas, const platform::data::XMLNode& element);
    static void readLayer(VELM_Template& layer, const platform::data::XMLNode& element);
    static void readLayerAttributes(VELM_Template& layer, const platform::data::XMLNode& element);
    static void readLayerChild(VELM_Template& layer, const platform::data::XMLNode& child);
    VELM_Template::Ref substituted(VELM_Template::Ref layer);

    std::optional<base::URL> jobContainer_;
    TemplateReport* report_;
    std::vector<std::string> openFiles_; // from the outermost document inward
    int nestedFiles_ = 0;
};
