// A 2-D code that an output carries: what to encode, how large, and where. Kept with the output as a dictionary of
// code options. A value, on the thread that parses the output.
#pragma once

#include "base/Geometry.h"
#include "base/Value.h"
#include "imaging/KLARON_2dCodeKeys.h"

#include <memory>
#include <string_view>

namespace platform::data {
class Findings;
class XMLNode;
} // namespace platform::data

class VELM_OuputBarcode {
public:
    enum class Type : int { aztec = 0, qrcode = 1, code128 = 2, pdf417 = 3 };

    /// Reads a `barcode` element. Reading never fails.
    static VELM_OuputBarcode initWithNode(const platform::data::XMLNode& element,
                                          platform::data::Findings* report = nullptr);

    Type type() const { return type_; }
    /// Units for each module of the code.
    double scale() const { return scale_; }
    /// In pixels of the output as read; normalized to 0..1 of the output's size once that has taken it in.
    base::Point origin() const { return origin_; }
    /// Stores the position and, as text, its entry among the options.
    void setOrigin(base::Point origin);
    /// The options under the `klaron_2dCodeKey_...` keys.
    const base::Dictionary& valuesDict() const { return valuesDict_; }

private:
    void setValue(std::string_view key, base::Value value);
    void readOrigin(const platform::data::XMLNode& element, platform::data::Findings* report);

    Type type_ = Type::aztec;
    double scale_ = 0;
    base::Point origin_;
    base::Dictionary valuesDict_;
};
