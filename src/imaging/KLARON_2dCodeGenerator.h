// Makes machine-readable codes as images, sixteen pixels a module, and draws lists of them. One class for each kind of
// code, which fixes its type and checks its one option; what can't be made is logged and yields no image. An instance
// belongs to one thread at a time; class operations may be called on any thread.
#pragma once

#include "base/Geometry.h"
#include "base/Value.h"
#include "imaging/KLARON_2dCodeKeys.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/Image.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class KLARON_2dCodeGenerator : public base::Object {
public:
    using ImageRef = platform::draw::ImageRef;
    using Message = std::optional<std::string>;
    using Reply = std::function<void(const ImageRef& image, double outputScale)>;

    /// One of the classes of this family, as a value: its name and how an instance is made.
    struct Class {
        std::string_view name;
        std::unique_ptr<KLARON_2dCodeGenerator> (*init)();

        /// Null when there is nothing to encode or no code can hold it.
        ImageRef createImageWithMessage(const Message& message) const;
        /// Calls the reply once, with a null image on failure.
        void inputMessage(const Message& message, const Reply& reply) const;
    };
    /// 1 QR, 2 Code 128, 3 PDF417, any other Aztec.
    static const Class& classForType(std::int64_t type);
    static const Class& classForNumber(const base::Value& number);

    KLARON_2dCodeGenerator() = default;
    virtual void setDefaults() {}

    const Message& message() const { return message_; }
    void setMessage(Message message) { message_ = std::move(message); }
    /// 0 Aztec, 1 QR, 2 Code 128, 3 PDF417.
    std::int64_t type() const { return type_; }
    virtual void setType(std::int64_t type) { type_ = type; }
    /// At most one entry: "inputCorrectionLevel" or "inputQuietSpace".
    const base::Dictionary& options() const { return options_; }
    void setOptions(base::Dictionary options) { options_ = std::move(options); }
    /// Pixels for each module.
    static constexpr double outputScale = 16.0;

    /// The code, or null, with a log line, when the message is none, empty, not ASCII or too long, and for a type that
    /// is none of the four.
    ImageRef createOutputImageCore() const;
    virtual ImageRef createOutputImage();
    /// Each pixel becomes a block of so many pixels; the size is rounded up. Null for a null image, for factors that
    /// are not positive and for a result beyond a bitmap's limits.
    static ImageRef image(const ImageRef& image, double scaledByX, double byY);

    // As in KLARON_Image.
    static base::Rect normalizedRect(const base::Rect& rect, base::Size size);
    static base::Rect denormalizedRect(const base::Rect& rect, base::Size size);
    static base::Point normalizedPoint(base::Point point, base::Size size);
    static base::Point denormalizedPoint(base::Point point, base::Size size);

    /// Where a code of `size` with a normalized origin stands in the rectangle, counted from the rectangle's own
    /// corner; the options' flips turn the origin about.
    static base::Point processedPoint(base::Point point, base::Size size, const base::Rect& rect,
                                      const base::Dictionary& options);
    /// Draws one code (a dictionary under the klaron_2dCodeKey_... keys) or an array of them, in order. Only the size
    /// of the rectangle counts: positions are from the origin of the context's coordinates.
    static void draw(const base::Value& codes, const platform::draw::BitmapContextRef& inContext,
                     const base::Rect& insideRect);

    std::string className() const override { return "KLARON_2dCodeGenerator"; }

protected:
    explicit KLARON_2dCodeGenerator(std::int64_t type) : type_(type) {}
    /// The value of this type's option; nothing without one.
    const base::Value& option() const;
    /// Keeps a number within the type's range; anything else clears the options.
    void setOption(const base::Value& number);

private:
    Message message_;
    std::int64_t type_ = 0;
    base::Dictionary options_;
};

class KLARON_AztecCodeGenerator final : public KLARON_2dCodeGenerator {
public:
    KLARON_AztecCodeGenerator() : KLARON_2dCodeGenerator(0) {}
    void setType(std::int64_t) override { KLARON_2dCodeGenerator::setType(0); }
    /// Percent of the symbol, 5 to 95; 23 when not set.
    base::Value correctionLevel() const { return option(); }
    void setCorrectionLevel(const base::Value& number) { setOption(number); }
    std::string className() const override { return "KLARON_AztecCodeGenerator"; }
};

class KLARON_QRCodeGenerator final : public KLARON_2dCodeGenerator {
public:
    KLARON_QRCodeGenerator() : KLARON_2dCodeGenerator(1) {}
    void setType(std::int64_t) override { KLARON_2dCodeGenerator::setType(1); }
    /// 0 "L", 1 "M", 2 "H", 3 "Q". "M" is never stored: it is what stands without an option.
    std::int64_t correctionLevel() const;
    void setCorrectionLevel(std::int64_t level);
    /// Drops a stored level that is none of those above first.
    ImageRef createOutputImage() override;
    std::string className() const override { return "KLARON_QRCodeGenerator"; }
};

class KLARON_Code128Generator final : public KLARON_2dCodeGenerator {
public:
    KLARON_Code128Generator() : KLARON_2dCodeGenerator(2) {}
    void setType(std::int64_t) override { KLARON_2dCodeGenerator::setType(2); }
    /// White modules at both ends, 0 to 20; 7 when not set.
    base::Value quietSpace() const { return option(); }
    void setQuietSpace(const base::Value& number) { setOption(number); }
    std::string className() const override { return "KLARON_Code128Generator"; }
};

class KLARON_PDF417CodeGenerator final : public KLARON_2dCodeGenerator {
public:
    KLARON_PDF417CodeGenerator() : KLARON_2dCodeGenerator(3) {}
    void setType(std::int64_t) override { KLARON_2dCodeGenerator::setType(3); }
    /// 0 to 8; by the length of the message when not set.
    base::Value correctionLevel() const { return option(); }
    void setCorrectionLevel(const base::Value& number) { setOption(number); }
    std::string className() const override { return "KLARON_PDF417CodeGenerator"; }
};

/// A code as a picture of its own; null on failure.
platform::draw::ImageRef klaron_2dCodeWithMessage(const KLARON_2dCodeGenerator::Message& message,
                                                  const KLARON_2dCodeGenerator::Class& codeClass);
platform::draw::ImageRef AztecCodeWithMessage(const KLARON_2dCodeGenerator::Message& message);
platform::draw::ImageRef QRCodeWithMessage(const KLARON_2dCodeGenerator::Message& message);
platform::draw::ImageRef barcode128WithMessage(const KLARON_2dCodeGenerator::Message& message);
