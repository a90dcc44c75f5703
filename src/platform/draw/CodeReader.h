// Finding machine-readable codes in a picture: QR, Aztec, Code 128, PDF417 and the other usual kinds. A
// pure function, any thread; it decodes the picture at full size.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Value.h"
#include "platform/draw/CodeSymbol.h"
#include "platform/draw/Image.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace platform::draw {

struct FoundCode {
    std::string kind;    ///< "QRCode", "Aztec", "Code128", "PDF417", "EAN-13"...
    std::string message; ///< UTF-8; the character set is guessed where the code does not state one.
    base::Data bytes;    ///< The message as it was encoded.
    /// In pixels of the image, y down: the code's own top left, top right, bottom right and bottom left.
    std::array<base::Point, 4> corners;

    /// The kind, the message and where it stands, for log lines.
    std::string description() const;
};

/// All codes, or those of one kind, from the top of the picture to its bottom. An empty list when there is none; fails
/// when the picture can't be decoded. Transparent pixels count as white. An Aztec code is found only where it
/// covers the middle of the picture, and bars only where they stand along rows or columns.
base::Result<std::vector<FoundCode>> readCodes(const ImageRef& image, std::optional<CodeKind> kind = std::nullopt);

} // namespace platform::draw
