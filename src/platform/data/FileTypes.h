// Uniform type identifiers: what a file is by its extension and shape (nothing is read from it), and which type
// conforms to which. Identifiers and extensions compare ignoring case. Symbolic links are followed. Any thread.
#pragma once

#include "base/Path.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::data {

inline constexpr std::string_view kUTTypeItem = "public.item";
inline constexpr std::string_view kUTTypeData = "public.data";
inline constexpr std::string_view kUTTypeDirectory = "public.directory";
inline constexpr std::string_view kUTTypeFolder = "public.folder";
inline constexpr std::string_view kUTTypePackage = "com.apple.package";
inline constexpr std::string_view kUTTypeText = "public.text";
inline constexpr std::string_view kUTTypePlainText = "public.plain-text";
inline constexpr std::string_view kUTTypeUTF8PlainText = "public.utf8-plain-text";
inline constexpr std::string_view kUTTypeUTF16PlainText = "public.utf16-plain-text";
inline constexpr std::string_view kUTTypeUTF16ExternalPlainText = "public.utf16-external-plain-text";
inline constexpr std::string_view kUTTypeRTF = "public.rtf";
inline constexpr std::string_view kUTTypeHTML = "public.html";
inline constexpr std::string_view kUTTypeXML = "public.xml";
inline constexpr std::string_view kUTTypeImage = "public.image";
inline constexpr std::string_view kUTTypeJPEG = "public.jpeg";
inline constexpr std::string_view kUTTypeTIFF = "public.tiff";
inline constexpr std::string_view kUTTypePNG = "public.png";
inline constexpr std::string_view kUTTypeGIF = "com.compuserve.gif";
inline constexpr std::string_view kUTTypeBMP = "com.microsoft.bmp";
inline constexpr std::string_view kUTTypeWebP = "org.webmproject.webp";
inline constexpr std::string_view kUTTypeHEIC = "public.heic";
inline constexpr std::string_view kUTTypeHEIF = "public.heif";
inline constexpr std::string_view kUTTypePhotoshop = "com.adobe.photoshop-image";
inline constexpr std::string_view kUTTypePDF = "com.adobe.pdf";
inline constexpr std::string_view kUTTypePropertyList = "com.apple.property-list";
inline constexpr std::string_view kUTTypeColorSyncProfile = "com.apple.colorsync-profile";
/// A job bundle: a directory that counts as one document, so no folder.
inline constexpr std::string_view kUTType_VELM_Job = "com.kestrune.velm.job";

/// The type of what stands at the URL; nothing when nothing stands there. A regular file of an unknown extension is
/// plain public.data, a directory of one public.folder.
std::optional<std::string> typeIdentifierOfFile(const base::URL& url);
/// False for a missing file, whatever the type.
bool conformsToType(const base::URL& url, std::string_view type);

/// True when `type` is `other` or descends from it.
bool typeConforms(std::string_view type, std::string_view other);
/// "jpeg" for public.jpeg; the empty text for a type that is unknown or has none.
std::string preferredExtensionForType(std::string_view type);
/// All extensions of which files of the type carry one, the preferred one first; none for an unknown type.
std::vector<std::string> extensionsForType(std::string_view type);
/// The type of which files carry this extension (without its point); nothing when it is unknown.
std::optional<std::string> typeForExtension(std::string_view extension);
/// The URL with the type's preferred extension added; unchanged for a type without one.
base::URL appendingPathExtensionForType(const base::URL& url, std::string_view type);

} // namespace platform::data
