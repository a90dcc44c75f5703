// Operations on path texts and on file URLs. Purely textual: nothing here asks the file system. Trailing slashes are
// ignored by the component operations.
#pragma once

#include <string>
#include <string_view>

namespace base {

std::string lastPathComponent(std::string_view path);
/// What follows the last point of the last component when something stands before that point; else the empty text.
std::string pathExtension(std::string_view path);
std::string deletingLastPathComponent(std::string_view path);
std::string deletingPathExtension(std::string_view path);
/// Joins with exactly one slash. An empty side yields the other one.
std::string appendingPathComponent(std::string_view path, std::string_view component);
/// Adds a point and the extension; unchanged when the extension is empty.
std::string appendingPathExtension(std::string_view path, std::string_view extension);
/// Expands a leading tilde, removes empty and "." components and, in absolute paths, resolves "..".
std::string standardizingPath(std::string_view path);

/// A place named by a URL. Nearly always a file; `text` of any other is kept as it stands. A value.
class URL {
public:
    URL() = default;
    /// A relative path is taken against the current folder.
    static URL fileURLWithPath(std::string_view path);
    /// From the text form: "file:///a%20b" or any other scheme; a text without a scheme is a path.
    static URL fromString(std::string_view text);

    bool isFileURL() const { return isFile_; }
    /// The decoded path without a trailing slash; empty for a URL that names no file.
    const std::string& path() const { return path_; }
    std::string absoluteString() const;

    std::string lastPathComponent() const { return base::lastPathComponent(path_); }
    std::string pathExtension() const { return base::pathExtension(path_); }
    URL deletingLastPathComponent() const { return fileURLWithPath(base::deletingLastPathComponent(path_)); }
    URL deletingPathExtension() const { return fileURLWithPath(base::deletingPathExtension(path_)); }
    URL appendingPathComponent(std::string_view component) const;
    URL appendingPathExtension(std::string_view extension) const;
    URL standardized() const { return fileURLWithPath(standardizingPath(path_)); }

    friend bool operator==(const URL&, const URL&) = default;

private:
    bool isFile_ = false;
    std::string path_;
    std::string text_; // of a URL that names no file
};

} // namespace base
