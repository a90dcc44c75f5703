// Where template files are looked for, and how deep they may be nested in each other.
#include "internal/TemplateReader.h"

#include "base/Log.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/FileTypes.h"
#include "platform/data/UserDefaults.h"
#include "platform/data/XMLDocument.h"

#include <algorithm>
#include <filesystem>

using base::URL;
using base::Value;
using platform::data::UserDefaults;

namespace {

constexpr std::size_t maximumPathLength = 4096;

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

std::vector<Value> TemplateReader::placesOf(const Value& path, bool isNode) const {
    const auto text = path.text();
    const auto* url = path.as<URL>();
    std::vector<Value> places{path};
    if (text) places.emplace_back(base::standardizingPath(*text));
    if (jobContainer_ && (text || url)) {
        const std::string component = text ? *text : url->path();
        places.emplace_back(
            jobContainer_->appendingPathComponent(isNode ? "Nodes" : "Templates").appendingPathComponent(component));
        places.emplace_back(jobContainer_->appendingPathComponent(component));
    }
    if (const auto folder = folderUnderKey(isNode ? key_velmFolderNodes : key_velmFolderTemplates)) {
        std::string component;
        if (text)
            component = base::standardizingPath(*text);
        else if (url)
            component = base::standardizingPath(folder->path()); // a URL is not found here, deliberately
        places.emplace_back(folder->appendingPathComponent(component));
    }
    return places;
}

VELM_Template::Ref TemplateReader::readableFile(const Value& path, bool isNode) const {
    const auto text = path.text();
    if (text && text->size() > maximumPathLength) {
        // No file has such a name, and each place that was tried would log all of it.
        base::log("failed to read %s at path %@", isNode ? "node" : "template",
                  base::message("of %lu bytes", static_cast<unsigned long>(text->size())));
        return nullptr;
    }
    for (const Value& place : placesOf(path, isNode)) {
        if (auto document = VELM_XML_object::instanceWithXMLObject<VELM_Template>(place)) return document;
    }
    base::log("failed to read %s at path %@", isNode ? "node" : "template", path);
    return nullptr;
}

base::Result<VELM_Template::Ref> TemplateReader::documentAt(const Value& path, bool isNode) {
    auto readingObject = readableFile(path, isNode);
    if (!readingObject) {
        if (openFiles_.empty()) noteMissing(path, isNode, {path.textOr(""), 0});
        return nullptr;
    }
    if (auto entered = enter(*readingObject); !entered) return base::failure(entered.error());
    auto document = documentOf(std::move(readingObject));
    openFiles_.pop_back();
    return document;
}

base::Result<void> TemplateReader::enter(const VELM_Template& readingObject) {
    const URL url = readingObject.documentURL().value_or(URL());
    const std::string file = identityOf(url);
    const auto refuse = [](std::string description) {
        return base::failure(base::posixErrorDomain, -3, std::move(description));
    };
    if (std::any_of(openFiles_.begin(), openFiles_.end(), [&](const OpenFile& open) { return open.identity == file; }))
        return refuse(base::message("template file %@ includes itself", file));
    if (openFiles_.size() > static_cast<std::size_t>(VELM_Template::maximumNesting))
        return refuse(base::message("template files are nested more than %d levels deep at %@",
                                    VELM_Template::maximumNesting, file));
    if (!openFiles_.empty()) {
        const std::string& outermost = openFiles_.front().identity;
        nestedBytes_ += readingObject.xmlString().value_or("").size();
        if (++nestedFiles_ > VELM_Template::maximumNestedFiles)
            return refuse(base::message("template %@ holds more than %d nested files", outermost,
                                        VELM_Template::maximumNestedFiles));
        if (nestedBytes_ > platform::data::maximumXMLSize)
            return refuse(base::message("the files nested in template %@ are larger than %lu bytes together", outermost,
                                        static_cast<unsigned long>(platform::data::maximumXMLSize)));
    }
    openFiles_.push_back({file, url.path()});
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
