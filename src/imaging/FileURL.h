// What the imaging module asks of file URLs: types, extensions, dates, properties of the image at a URL. Free
// operations; any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/draw/Image.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// The type identifier of the file; nothing for a missing one.
std::optional<std::string> UTI(const base::URL& url);
/// False for a missing file.
bool conformsToUTType(const base::URL& url, std::string_view type);
/// The preferred extension of a type; nothing when it has none.
std::optional<std::string> pathExtensionForUTType(std::string_view type);
std::optional<std::string> UTTypeForPathExtension(std::string_view extension);
/// Unchanged when the type has no extension.
base::URL URLByAppendingPathExtensionForUTType(const base::URL& url, std::string_view type);

/// True when the last two bytes of the file are 0xFF 0xD9.
bool isValidJPEGFile(const base::URL& url);
/// An upright thumbnail whose longer side is at most the greater of the two lengths; null when the URL can't be opened.
platform::draw::ImageRef thumbnailImageWithMaxSize(const base::URL& url, base::Size size);

/// Passes the properties of the JPEG file through `change` and writes a copy with the result, its picture data as it
/// was, to `destination` or over the file itself. File dates survive.
bool changeImageProperties(const base::URL& url, const std::function<base::Dictionary(base::Dictionary)>& change,
                           const std::optional<base::URL>& destination);
/// An orientation outside 1 to 8 does nothing.
bool setImageOrientation(const base::URL& url, int orientation, const std::optional<base::URL>& destination);
