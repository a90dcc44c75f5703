#include "imaging/KLARON_2dCodeGenerator.h"

#include "base/Log.h"
#include "imaging/KLARON_Image.h"
#include "platform/draw/CodeSymbol.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

using platform::draw::Bitmap;
using platform::draw::BitmapContextRef;
using platform::draw::CodeKind;
using platform::draw::Image;

namespace {

constexpr std::string_view correctionLevelKey = "inputCorrectionLevel";
constexpr double margin = 10.0;

struct TypeRow {
    std::string_view filterName;
    std::string_view optionKey;
    std::int64_t least; // of the option, where that is a number
    std::int64_t greatest;
};
// By type.
constexpr std::array<TypeRow, 4> typeRows = {{{"CIAztecCodeGenerator", correctionLevelKey, 5, 95},
                                              {"CIQRCodeGenerator", correctionLevelKey, 0, 0},
                                              {"CICode128BarcodeGenerator", "inputQuietSpace", 0, 20},
                                              {"CIPDF417BarcodeGenerator", correctionLevelKey, 0, 8}}};

const TypeRow* rowForType(std::int64_t type) {
    return type >= 0 && type < std::ssize(typeRows) ? &typeRows[static_cast<std::size_t>(type)] : nullptr;
}

struct QRLevel {
    std::int64_t number;
    std::string_view text;
};
constexpr std::array<QRLevel, 3> qrLevels = {{{0, "L"}, {2, "H"}, {3, "Q"}}};

template <class Generator>
std::unique_ptr<KLARON_2dCodeGenerator> make() {
    return std::make_unique<Generator>();
}

// The default class stands first.
constexpr std::array<KLARON_2dCodeGenerator::Class, 4> classes = {
    {{"KLARON_AztecCodeGenerator", make<KLARON_AztecCodeGenerator>},
     {"KLARON_QRCodeGenerator", make<KLARON_QRCodeGenerator>},
     {"KLARON_Code128Generator", make<KLARON_Code128Generator>},
     {"KLARON_PDF417CodeGenerator", make<KLARON_PDF417CodeGenerator>}}};

bool isASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char character) { return static_cast<unsigned char>(character) < 0x80; });
}

// An option that the symbol can't take is passed over, so that its default holds.
platform::draw::CodeSymbolOptions symbolOptions(CodeKind kind, const TypeRow& row, const base::Value& option) {
    platform::draw::CodeSymbolOptions options;
    if (kind == CodeKind::qr) {
        if (const std::string level = option.textOr(""); !level.empty()) options.qrCorrectionLevel = level;
        return options;
    }
    std::int64_t number = option.integerValue();
    if (kind == CodeKind::code128) number = std::max(number, row.least); // only the upper end is a limit here
    if (option.isNothing() || number < row.least || number > row.greatest) return options;
    if (kind == CodeKind::aztec) options.aztecCorrectionPercent = static_cast<int>(number);
    if (kind == CodeKind::code128) options.code128QuietSpace = static_cast<int>(number);
    if (kind == CodeKind::pdf417) options.pdf417CorrectionLevel = static_cast<int>(number);
    return options;
}

std::optional<base::Point> originOf(const base::Dictionary& item) {
    const base::Value& origin = base::valueForKey(item, klaron_2dCodeKey_origin);
    if (const auto* point = origin.as<base::Point>()) return *point;
    if (const auto text = origin.text()) return base::pointFromString(*text);
    return std::nullopt;
}

base::Point cornerPoint(std::int64_t position, base::Size size, const base::Rect& rect) {
    const double right = rect.width - (margin + size.width);
    const double top = rect.height - (margin + size.height);
    return {position == 1 || position == 3 ? right : margin, position == 2 || position == 3 ? top : margin};
}

void drawItem(const base::Dictionary& item, const BitmapContextRef& context, const base::Rect& rect) {
    const double scale = base::valueForKey(item, klaron_2dCodeKey_scale).doubleValue();
    const auto& codeClass = KLARON_2dCodeGenerator::classForNumber(base::valueForKey(item, klaron_2dCodeKey_type));
    const auto message = base::valueForKey(item, klaron_2dCodeKey_message).stringValue();
    codeClass.inputMessage(message, [&](const platform::draw::ImageRef& image, double outputScale) {
        if (!image) return;
        const base::Size size{image->width() * scale / outputScale, image->height() * scale / outputScale};
        const auto origin = originOf(item);
        const base::Point point =
            origin ? KLARON_2dCodeGenerator::processedPoint(*origin, size, rect, item)
                   : cornerPoint(base::valueForKey(item, klaron_2dCodeKey_position).integerValue(), size, rect);
        context->drawImage(image, {point.x, point.y, size.width, size.height});
    });
}

} // namespace

// -- Classes ---------------------------------------------------------------------------------------------------------

const KLARON_2dCodeGenerator::Class& KLARON_2dCodeGenerator::classForType(std::int64_t type) {
    return rowForType(type) ? classes[static_cast<std::size_t>(type)] : classes[0];
}

const KLARON_2dCodeGenerator::Class& KLARON_2dCodeGenerator::classForNumber(const base::Value& number) {
    return classForType(number.integerValue());
}

KLARON_2dCodeGenerator::ImageRef KLARON_2dCodeGenerator::Class::createImageWithMessage(const Message& message) const {
    const auto generator = init();
    generator->setDefaults();
    generator->setMessage(message);
    return generator->createOutputImage();
}

void KLARON_2dCodeGenerator::Class::inputMessage(const Message& message, const Reply& reply) const {
    const ImageRef image = createImageWithMessage(message);
    if (reply) reply(image, outputScale);
}

// -- Making ----------------------------------------------------------------------------------------------------------

KLARON_2dCodeGenerator::ImageRef KLARON_2dCodeGenerator::createOutputImageCore() const {
    const TypeRow* row = rowForType(type_);
    if (!row) {
        base::log("ERROR: Filter %@ seems to be unavailable on this platform.", nullptr);
        return nullptr;
    }
    const auto kind = static_cast<CodeKind>(type_);
    const std::string message = message_ && isASCII(*message_) ? *message_ : "";
    const auto symbol = platform::draw::makeCodeSymbol(kind, message, symbolOptions(kind, *row, option()));
    if (!symbol) {
        base::log("%@ made no image: %@", row->filterName, symbol.error());
        if (message_ && !isASCII(*message_)) base::log("The message of a code may hold ASCII characters only.");
        return nullptr;
    }
    return image(*symbol, outputScale, outputScale);
}

KLARON_2dCodeGenerator::ImageRef KLARON_2dCodeGenerator::createOutputImage() {
    return createOutputImageCore();
}

KLARON_2dCodeGenerator::ImageRef KLARON_2dCodeGenerator::image(const ImageRef& image, double scaledByX, double byY) {
    if (!image) return nullptr;
    const double width = std::ceil(image->width() * scaledByX);
    const double height = std::ceil(image->height() * byY);
    // Comparisons that also refuse what is not a number.
    const auto isSide = [](double side) { return side >= 1 && side <= platform::draw::maximumBitmapSide; };
    if (!isSide(width) || !isSide(height)) return nullptr;

    const base::Result<Bitmap> source = image->bitmap();
    if (!source) {
        base::log("%@", source.error());
        return nullptr;
    }
    auto scaled = Bitmap::createUninitialized(static_cast<std::int64_t>(width), static_cast<std::int64_t>(height),
                                              source->colorSpace(), source->isOpaque());
    if (!scaled) {
        base::log("%@", scaled.error());
        return nullptr;
    }
    const auto sourceIndex = [](int index, double scale, int count) {
        return std::min(static_cast<int>(index / scale), count - 1);
    };
    std::vector<std::size_t> columns;
    for (int x = 0; x < scaled->width(); ++x)
        columns.push_back(4 * static_cast<std::size_t>(sourceIndex(x, scaledByX, source->width())));
    int rowBefore = -1;
    for (int y = 0; y < scaled->height(); ++y) {
        const int row = sourceIndex(y, byY, source->height());
        std::uint8_t* to = scaled->mutableRow(y);
        if (row == rowBefore) {
            std::memcpy(to, scaled->row(y - 1), 4 * columns.size());
            continue;
        }
        for (const std::size_t column : columns) {
            std::memcpy(to, source->row(row) + column, 4);
            to += 4;
        }
        rowBefore = row;
    }
    return Image::fromBitmap(std::move(*scaled));
}

// -- Options ---------------------------------------------------------------------------------------------------------

const base::Value& KLARON_2dCodeGenerator::option() const {
    const TypeRow* row = rowForType(type_);
    return base::valueForKey(options_, row ? row->optionKey : "");
}

void KLARON_2dCodeGenerator::setOption(const base::Value& number) {
    options_.clear();
    const TypeRow* row = rowForType(type_);
    const std::int64_t value = number.integerValue();
    if (row && number.isNumber() && value >= row->least && value <= row->greatest)
        options_.emplace(row->optionKey, number);
}

std::int64_t KLARON_QRCodeGenerator::correctionLevel() const {
    const std::string text = option().textOr("");
    for (const QRLevel& level : qrLevels)
        if (level.text == text) return level.number;
    return 1;
}

void KLARON_QRCodeGenerator::setCorrectionLevel(std::int64_t number) {
    base::Dictionary options;
    for (const QRLevel& level : qrLevels)
        if (level.number == number) options.emplace(correctionLevelKey, level.text);
    setOptions(std::move(options));
}

KLARON_2dCodeGenerator::ImageRef KLARON_QRCodeGenerator::createOutputImage() {
    setCorrectionLevel(correctionLevel());
    return KLARON_2dCodeGenerator::createOutputImage();
}

// -- Drawing ---------------------------------------------------------------------------------------------------------

base::Rect KLARON_2dCodeGenerator::normalizedRect(const base::Rect& rect, base::Size size) {
    return KLARON_Image::normalizedRect(rect, size);
}
base::Rect KLARON_2dCodeGenerator::denormalizedRect(const base::Rect& rect, base::Size size) {
    return KLARON_Image::denormalizedRect(rect, size);
}
base::Point KLARON_2dCodeGenerator::normalizedPoint(base::Point point, base::Size size) {
    return KLARON_Image::normalizedPoint(point, size);
}
base::Point KLARON_2dCodeGenerator::denormalizedPoint(base::Point point, base::Size size) {
    return KLARON_Image::denormalizedPoint(point, size);
}

base::Point KLARON_2dCodeGenerator::processedPoint(base::Point point, base::Size size, const base::Rect& rect,
                                                   const base::Dictionary& options) {
    if (base::valueForKey(options, klaron_2dCodeKey_isFlippedY).boolValue())
        point.y = 1.0 - point.y - size.height / rect.height;
    if (base::valueForKey(options, klaron_2dCodeKey_isFlippedX).boolValue())
        point.x = 1.0 - point.x - size.width / rect.width;
    return denormalizedPoint(point, rect.size());
}

void KLARON_2dCodeGenerator::draw(const base::Value& codes, const BitmapContextRef& inContext,
                                  const base::Rect& insideRect) {
    const auto drawOrComplain = [&](const base::Value& item) {
        if (const auto* options = item.as<base::Dictionary>()) {
            if (inContext) drawItem(*options, inContext, insideRect);
        } else {
            base::log("bad arguments");
        }
    };
    if (const auto* items = codes.as<base::Array>())
        std::ranges::for_each(*items, drawOrComplain);
    else
        drawOrComplain(codes);
}

// -- Codes as pictures -----------------------------------------------------------------------------------------------

platform::draw::ImageRef klaron_2dCodeWithMessage(const KLARON_2dCodeGenerator::Message& message,
                                                  const KLARON_2dCodeGenerator::Class& codeClass) {
    return codeClass.createImageWithMessage(message);
}
platform::draw::ImageRef AztecCodeWithMessage(const KLARON_2dCodeGenerator::Message& message) {
    return klaron_2dCodeWithMessage(message, KLARON_2dCodeGenerator::classForType(0));
}
platform::draw::ImageRef QRCodeWithMessage(const KLARON_2dCodeGenerator::Message& message) {
    return klaron_2dCodeWithMessage(message, KLARON_2dCodeGenerator::classForType(1));
}
platform::draw::ImageRef barcode128WithMessage(const KLARON_2dCodeGenerator::Message& message) {
    return klaron_2dCodeWithMessage(message, KLARON_2dCodeGenerator::classForType(2));
}
