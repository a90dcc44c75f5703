#include "folders/VELM_FolderSet.h"

#include "base/Log.h"
#include "base/Text.h"
#include "platform/data/UUID.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr std::string_view key_properties = "self.properties";
constexpr std::string_view key_name = "self.name";
constexpr std::string_view key_URL = "self.URL";
constexpr std::string_view key_bookmark = "self.bookmark";

// The volume that holds the path, or would hold it.
dev_t volumeOf(std::string path) {
    struct stat status {};
    while (stat(path.c_str(), &status) != 0 && path != "/" && !path.empty())
        path = base::deletingLastPathComponent(path);
    return status.st_dev;
}

bool isOnRootVolume(const base::URL& url) {
    return !url.isFileURL() || volumeOf(url.path()) == volumeOf("/");
}

std::optional<base::Error> errorOfReaching(const base::URL& url) {
    struct stat status {};
    if (stat(url.path().c_str(), &status) == 0) return std::nullopt;
    return base::systemError(errno, "cannot find the folder " + url.path());
}

} // namespace

VELM_FolderSet::Ref VELM_FolderSet::initWithName(std::string name, base::URL url) {
    return std::make_shared<VELM_FolderSet>(std::move(name), std::move(url));
}

VELM_FolderSet::Ref VELM_FolderSet::initWithName(std::string name) {
    return std::make_shared<VELM_FolderSet>(std::move(name));
}

VELM_FolderSet::VELM_FolderSet(std::string name, base::URL url) : url_(std::move(url)), name_(std::move(name)) {
    if (!isOnRootVolume(url_) && !errorOfReaching(url_)) bookmark_ = base::Data(url_.absoluteString());
}

VELM_FolderSet::VELM_FolderSet(std::string name)
    : VELM_FolderSet(std::move(name), base::URL::fileURLWithPath(base::standardizingPath("~"))) {}

VELM_FolderSet::VELM_FolderSet(const base::Dictionary& archived)
    : name_(base::textForKey(archived, key_name).value_or("")) {
    if (const auto* url = base::valueForKey(archived, key_URL).as<base::URL>()) url_ = *url;
    if (const auto* properties = base::valueForKey(archived, key_properties).as<base::Dictionary>())
        properties_ = *properties;
    if (const auto* bookmark = base::valueForKey(archived, key_bookmark).as<base::Data>()) bookmark_ = *bookmark;
}

FolderSetClass& VELM_FolderSet::classObject() {
    static auto& object = *new FolderSetClass(
        "VELM_FolderSet", [](const base::Dictionary& archived) { return std::make_shared<VELM_FolderSet>(archived); });
    return object;
}

std::string VELM_FolderSet::name() const {
    std::lock_guard lock(mutex_);
    return name_;
}

void VELM_FolderSet::setName(const std::string& name) {
    const std::string validName = folderSetClass().validateName(name).value_or(name);
    const auto store = [&] {
        std::lock_guard lock(mutex_);
        name_ = validName;
    };
    if (validName != name)
        observable_.change("name", store);
    else
        store();
    folderSetClass().saveFolderSets();
}

base::URL VELM_FolderSet::URL() const {
    if (bookmark()) resolveBookmark();
    std::lock_guard lock(mutex_);
    return url_;
}

void VELM_FolderSet::setURL(const base::URL& url) {
    {
        std::lock_guard lock(mutex_);
        url_ = url;
    }
    std::optional<base::Data> bookmark;
    if (!isOnRootVolume(url)) bookmark = bookmarkData();
    {
        std::lock_guard lock(mutex_);
        bookmark_ = std::move(bookmark);
    }
    folderSetClass().saveFolderSets();
}

base::Dictionary VELM_FolderSet::properties() const {
    std::lock_guard lock(mutex_);
    return properties_;
}

base::Value VELM_FolderSet::property(std::string_view key) const {
    std::lock_guard lock(mutex_);
    return base::valueForKey(properties_, key);
}

void VELM_FolderSet::setProperty(std::string_view key, base::Value value) {
    std::lock_guard lock(mutex_);
    properties_.insert_or_assign(std::string(key), std::move(value));
}

std::optional<base::Data> VELM_FolderSet::bookmark() const {
    std::lock_guard lock(mutex_);
    return bookmark_;
}

std::optional<base::Data> VELM_FolderSet::bookmarkData() const {
    base::URL url;
    {
        std::lock_guard lock(mutex_);
        url = url_;
    }
    if (const auto error = errorOfReaching(url)) {
        base::log("%@", *error);
        return std::nullopt;
    }
    return base::Data(url.absoluteString());
}

void VELM_FolderSet::resolveBookmark() const {
    base::URL resolved;
    base::URL expected;
    {
        std::lock_guard lock(mutex_);
        if (!bookmark_) return;
        resolved = base::URL::fromString(bookmark_->asText());
        expected = url_;
    }
    if (const auto error = errorOfReaching(resolved))
        base::log("%@", *error);
    else if (resolved != expected)
        base::log("resolved a different URL %@ than expected %@", resolved, expected);
}

std::string VELM_FolderSet::uuid() const {
    std::lock_guard lock(mutex_);
    if (uuid_.empty()) uuid_ = platform::data::makeUUIDString();
    return uuid_;
}

VELM_FolderSet::Ref VELM_FolderSet::copy() const {
    base::Dictionary values;
    {
        std::lock_guard lock(mutex_);
        values = {
            {std::string(key_properties), properties_}, {std::string(key_name), name_}, {std::string(key_URL), url_}};
    }
    return folderSetClass().folderSetFromArchive(values);
}

bool VELM_FolderSet::isEqual(const base::Object& other) const {
    if (this == &other) return true;
    const auto* set = dynamic_cast<const VELM_FolderSet*>(&other);
    if (!set) return false;
    const FolderSetClass& own = folderSetClass();
    const bool isKindOfOwnClass = &own == &classObject() || &own == &set->folderSetClass();
    return isKindOfOwnClass && base::equalIgnoringCase(name(), set->name());
}

std::size_t VELM_FolderSet::hash() const {
    return std::hash<std::string>()(base::lowercase(name()));
}

std::string VELM_FolderSet::description() const {
    std::lock_guard lock(mutex_);
    return base::message("%@{name='%@';path='%@'}", base::Object::description(), name_, url_.path());
}

std::optional<base::Dictionary> VELM_FolderSet::encoded() {
    std::lock_guard lock(mutex_);
    base::Dictionary values{
        {std::string(key_properties), properties_}, {std::string(key_name), name_}, {std::string(key_URL), url_}};
    if (bookmark_) values.emplace(key_bookmark, *bookmark_);
    return values;
}
