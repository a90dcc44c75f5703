// Where template files are looked for, and how deep they may be nested in each other.
#include "internal/TemplateReader.h"

#include "base/Log.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/FileTypes.h"
#include "platform/data/UserDefaults.h"

#include <algorithm>
#include <filesystem>

using base::URL;
using base::Value;
using platform::data::UserDefaults;

namespace {

std::optional<URL> folderUnderKey(std::string_view key) {
    const Value stored = UserDefaults::standard().objectForKey(key);
    if (const auto path = stored.text()) return URL::fileURLWithPath(*path);
    if (const auto* url = stored.as<URL>()) return *url;
    return std::nullopt;
}

// The same file by whatever path, so that a file that holds itself is known again.
std::string identityOf(const URL& url) {
    std::error_code failed;
    const auto canonical = std::filesystem::canonical(url.path(), failed);
    return failed ? url.path() : canonical.string();
}

} // namespace

VELM_Template::Ref TemplateReader::readableFile(const Value& path, bool isNode) const {
    const auto text = path.text();
    const auto* url = path.as<URL>();
    const auto read = [](const Value& candidate) {
        return VELM_XML_object::instanceWithXMLObject<VELM_Template>(candidate);
    };

    if (auto document = read(path)) return document;
    if (text) {
        if (auto document = read(base::standardizingPath(*text))) return document;
    }
    if (jobContainer_ && (text || url)) {
        const std::string component = text ? *text : url->path();
        if (auto document = read(jobContainer_->appendingPathComponent(isNode ? "Nodes" : "Templates")
                                     .appendingPathComponent(component)))
            return document;
        if (auto document = read(jobContainer_->appendingPathComponent(component))) return document;
    }
    if (const auto folder = folderUnderKey(isNode ? key_velmFolderNodes : key_velmFolderTemplates)) {
        std::string component;
        if (text)
            component = base::standardizingPath(*text);
        else if (url)
            component = base::standardizingPath(folder->path()); // a URL is not found here, deliberately
        if (auto document = read(folder->appendingPathComponent(component))) return document;
    }
    base::log("failed to read %s at path %@", isNode ? "node" : "template", path);
    return nullptr;
}

base::Result<VELM_Template::Ref> TemplateReader::documentAt(const Value& path, bool isNode) {
    auto readingObject = readableFile(path, isNode);
    if (!readingObject) return nullptr;
    if (auto entered = enter(identityOf(readingObject->documentURL().value_or(URL()))); !entered)
        return base::failure(entered.error());
    auto document = documentOf(std::move(readingObject));
    openFiles_.pop_back();
    return document;
}

base::Result<void> TemplateReader::enter(const std::string& file) {
    const auto refuse = [](std::string description) {
        return base::failure(base::posixErrorDomain, -3, std::move(description));
    };
    if (std::find(openFiles_.begin(), openFiles_.end(), file) != openFiles_.end())
        return refuse(base::message("template file %@ includes itself", file));
    if (openFiles_.size() > static_cast<std::size_t>(VELM_Template::maximumNesting))
        return refuse(base::message("template files are nested more than %d levels deep at %@",
                                    VELM_Template::maximumNesting, file));
    if (!openFiles_.empty() && ++nestedFiles_ > VELM_Template::maximumNestedFiles)
        return refuse(base::message("template %@ holds more than %d nested files", openFiles_.front(),
                                    VELM_Template::maximumNestedFiles));
    openFiles_.push_back(file);
    return {};
}

// --- The class's own operations

VELM_Template::Ref VELM_Template::templateWithPath(const Value& path, bool isNode,
                                                   const std::optional<URL>& jobContainer, TemplateReport* report) {
    return TemplateReader(jobContainer, report).documentAt(path, isNode).value_or(nullptr);
}

VELM_Template::Ref VELM_Template::templateWithPath(const Value& path, const std::optional<URL>& jobContainer) {
    return templateWithPath(path, false, jobContainer);
}

VELM_Template::Ref VELM_Template::nodeWithPath(const Value& path, const std::optional<URL>& jobContainer) {
    return templateWithPath(path, true, jobContainer);
}

VELM_Template::Ref VELM_Template::instanceWithXMLObject(const Value& path) {
    return templateWithPath(path, std::nullopt);
}

VELM_Template::Ref VELM_Template::initWithNode(const platform::data::XMLNode& node,
                                               const std::optional<URL>& jobContainer) {
    return TemplateReader(jobContainer).nodeOf(node);
}

void VELM_Template::setCurrentTemplatesFolder(const URL& folder) {
    UserDefaults& defaults = UserDefaults::standard();
    (void)defaults.setObject(folder.path(), key_velmFolderTemplates);
    URL enclosing = folder.deletingLastPathComponent();
    while (enclosing.path().size() >= 2) {
        const URL nodes = enclosing.appendingPathComponent("Nodes");
        if (platform::data::conformsToType(nodes, platform::data::kUTTypeFolder)) {
            (void)defaults.setObject(nodes.path(), key_velmFolderNodes);
            return;
        }
        enclosing = enclosing.deletingLastPathComponent();
    }
}

std::optional<URL> VELM_Template::currentTemplatesFolder() {
    return folderUnderKey(key_velmFolderTemplates);
}

std::optional<std::string> VELM_Template::generationID() const {
    return documentURL() ? platform::data::generationIdentifier(*documentURL()) : std::nullopt;
}
