// A named folder with output settings, which a file destination may name in place of a path. There are exactly eight,
// "Path 1" to "Path 8", saved in the user defaults. The settings live in the set's properties: each setter stores and
// has the list saved. Shared objects that live as long as the process; any thread may read.
#pragma once

#include "folders/VELM_FolderSet.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

class VELM_PrintToFileSet : public VELM_FolderSet {
public:
    using VELM_FolderSet::VELM_FolderSet;

    static FolderSetClass& classObject();
    FolderSetClass& folderSetClass() const override { return classObject(); }
    /// The set of that name, ignoring case, or else the one that a digit from "1" to "9" counts out; null for any other
    /// text and past the end of the list.
    static std::shared_ptr<VELM_PrintToFileSet> folderSetWithName(std::string_view name);

    /// The choices, the default first.
    static std::span<const std::string_view> fileFormats();
    static std::span<const std::string_view> nameFormats();
    static std::span<const std::string_view> uploadFolders();
    static std::string_view toolTipNormalizeOrientation();

    /// A type identifier.
    std::string fileFormat() const;
    void setFileFormat(const std::optional<std::string>& type) { store("fileFormat", type); }
    /// One of nameFormats().
    std::string nameFormat() const;
    void setNameFormat(const std::optional<std::string>& format) { store("nameFormat", format); }
    /// None when nothing is to be uploaded.
    std::optional<std::string> uploadFolder() const;
    void setUploadFolder(const std::optional<std::string>& folder) { store("uploadFolder", folder); }
    bool webUpload() const { return boolean("webUpload"); }
    void setWebUpload(bool upload) { store("webUpload", upload); }
    bool webUploadHasMaxPixels() const { return boolean("webUploadHasMaxPixels"); }
    void setWebUploadHasMaxPixels(bool has) { store("webUploadHasMaxPixels", has); }
    /// Pixels of the longer side.
    std::optional<double> webUploadMaxPixels() const { return number("webUploadMaxPixels"); }
    void setWebUploadMaxPixels(std::optional<double> pixels) { store("webUploadMaxPixels", pixels); }
    bool webUploadHasMaxBytes() const { return boolean("webUploadHasMaxBytes"); }
    void setWebUploadHasMaxBytes(bool has) { store("webUploadHasMaxBytes", has); }
    std::optional<double> webUploadMaxBytes() const { return number("webUploadMaxBytes"); }
    void setWebUploadMaxBytes(std::optional<double> bytes) { store("webUploadMaxBytes", bytes); }
    bool normalizeOrientation() const { return boolean("normalizeOrientation"); }
    void setNormalizeOrientation(bool normalize) { store("normalizeOrientation", normalize); }
    bool overwriteExisting() const { return boolean("overwriteExisting"); }
    void setOverwriteExisting(bool overwrite) { store("overwriteExisting", overwrite); }

private:
    bool boolean(std::string_view key) const { return property(key).boolValue(); }
    std::optional<double> number(std::string_view key) const;
    void store(std::string_view key, base::Value value);
};
