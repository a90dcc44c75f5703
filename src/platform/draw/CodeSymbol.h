// Making machine-readable codes: Aztec, QR, Code 128 and PDF417, as images of one pixel a module, black on white. Pure
// functions, any thread. The message is a run of bytes, any bytes; nothing in it is taken for a command.
#pragma once

#include "base/Error.h"
#include "platform/draw/Image.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::draw {

/// The numbers are those under which the kinds are stored.
enum class CodeKind { aztec = 0, qr = 1, code128 = 2, pdf417 = 3 };

struct CodeSymbolOptions {
    /// Aztec: the least part of the symbol that corrects errors, in percent, 5 to 95.
    int aztecCorrectionPercent = 23;
    /// QR: "L", "M", "Q" or "H", from the weakest to the strongest correction.
    std::string qrCorrectionLevel = "M";
    /// Code 128: white modules before and after the bars, 0 to 20.
    int code128QuietSpace = 7;
    /// PDF417: 0 to 8; by the length of the message when absent.
    std::optional<int> pdf417CorrectionLevel;
};

/// The smallest symbol that holds the message, opaque, in sRGB. A QR symbol has a border of one module, PDF417 one of
/// two, Aztec none; the bars of Code 128 are 32 high, the rows of PDF417 3. Fails for an empty message, one that no
/// symbol of the kind can hold at that correction level, and options out of range.
base::Result<ImageRef> makeCodeSymbol(CodeKind kind, std::string_view message, const CodeSymbolOptions& options = {});

} // namespace platform::draw
