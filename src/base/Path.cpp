#include "base/Path.h"

#include "base/Places.h"
#include "base/Text.h"

#include <filesystem>
#include <vector>

namespace base {

namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

/// Where the extension's point stands in a last component, or npos when it has no extension.
std::size_t extensionPoint(std::string_view component) {
    const std::size_t point = component.rfind('.');
    const bool something = point != std::string_view::npos && point > 0 && point + 1 < component.size();
    // A name of nothing but points (as in "...a") has nothing before its extension.
    if (!something || component.substr(0, point).find_first_not_of('.') == std::string_view::npos)
        return std::string_view::npos;
    return point;
}

} // namespace

std::string lastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    if (path == "/") return "/";
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string pathExtension(std::string_view path) {
    const std::string component = lastPathComponent(path);
    const std::size_t point = extensionPoint(component);
    return point == std::string::npos ? std::string() : component.substr(point + 1);
}

std::string deletingLastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return {};
    return std::string(slash == 0 ? path.substr(0, 1) : withoutTrailingSlashes(path.substr(0, slash)));
}

std::string deletingPathExtension(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const std::size_t point = extensionPoint(lastPathComponent(path));
    if (point == std::string::npos) return std::string(path);
    const std::size_t componentStart = path.rfind('/') + 1;
    return std::string(path.substr(0, componentStart + point));
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
    path = withoutTrailingSlashes(path);
    component = withoutTrailingSlashes(component);
    while (!component.empty() && component.front() == '/')
        component.remove_prefix(1);
    if (component.empty()) return std::string(path);
    if (path.empty()) return std::string(component);
    std::string result(path);
    if (result.back() != '/') result += '/';
    return result.append(component);
}

std::string appendingPathExtension(std::string_view path, std::string_view extension) {
    std::string result(withoutTrailingSlashes(path));
    if (!extension.empty()) result.append(".").append(extension);
    return result;
}

std::string standardizingPath(std::string_view path) {
    std::string expanded(path);
    if (expanded == "~" || expanded.starts_with("~/")) expanded = places().home + expanded.substr(1);
    if (expanded.empty()) return {};
    const bool absolute = expanded.front() == '/';
    std::vector<std::string> kept;
    for (std::string& component : split(expanded, "/")) {
        if (component.empty() || component == ".") continue;
        if (component == ".." && absolute) {
            if (!kept.empty()) kept.pop_back();
            continue;
        }
        kept.push_back(std::move(component));
    }
    std::string result;
    for (const std::string& component : kept) {
        if (absolute || !result.empty()) result += '/';
        result += component;
    }
    return result.empty() ? (absolute ? "/" : ".") : result;
}

URL URL::fileURLWithPath(std::string_view path) {
    URL url;
    url.isFile_ = true;
    const std::string_view bare = withoutTrailingSlashes(path);
    if (bare.empty() || bare.front() == '/') {
        url.path_ = bare;
    } else {
        std::error_code ignored;
        url.path_ = base::appendingPathComponent(std::filesystem::current_path(ignored).string(), bare);
    }
    return url;
}

URL URL::fromString(std::string_view text) {
    static constexpr std::string_view scheme = "file://";
    if (text.substr(0, scheme.size()) == scheme) {
        std::string_view rest = text.substr(scheme.size());
        // A host ("file://localhost/a") names this machine.
        const std::size_t slash = rest.find('/');
        rest = slash == std::string_view::npos ? std::string_view("/") : rest.substr(slash);
        return fileURLWithPath(percentDecoded(rest));
    }
    if (text.find("://") == std::string_view::npos) return fileURLWithPath(text);
    URL url;
    url.text_ = text;
    return url;
}

std::string URL::absoluteString() const {
    return isFile_ ? "file://" + percentEncodedPath(path_) : text_;
}

URL URL::appendingPathComponent(std::string_view component) const {
    return fileURLWithPath(base::appendingPathComponent(path_, component));
}

URL URL::appendingPathExtension(std::string_view extension) const {
    return fileURLWithPath(base::appendingPathExtension(path_, extension));
}

} // namespace base
