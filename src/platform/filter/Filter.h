// One named colour filter with its inputs, as pages store and archive them. The archive writes it under its own name
// ("CIColorControls"), whose ancestors are "CIFilter" and "NSObject". A filter belongs to whoever holds it and is
// changed on one thread at a time; applying it reads the inputs at once, so that later changes don't reach images made
// before.
#pragma once

#include "base/Value.h"
#include "platform/filter/FilterImage.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform::filter {

class Filter;
using FilterRef = std::shared_ptr<Filter>;
using Filters = std::vector<FilterRef>;

class Filter : public base::Object {
public:
    /// The filter of that name with its inputs at their defaults; null for a name that is not known.
    static FilterRef filterWithName(std::string_view name);
    /// All names that are known, in alphabetical order.
    static std::vector<std::string_view> names();

    const std::string& name() const { return name_; }
    /// "inputBrightness"... with a number, or a base::Array of four numbers for a vector.
    const base::Dictionary& inputs() const { return inputs_; }
    /// Keys that the filter doesn't have and values of another kind are kept, and passed over when it is applied.
    void setInput(std::string_view key, base::Value value);

    /// The filtered image; the image itself when nothing would change. Computes nothing yet.
    FilterImageRef outputImage(const FilterImageRef& inputImage) const;

    std::string className() const override { return name_; }
    bool isEqual(const base::Object& other) const override;
    std::size_t hash() const override;
    std::string description() const override;
    /// The archived form: the inputs with "CI_" before their keys, vectors as "CIVector" objects, and "CIName".
    std::optional<base::Dictionary> encoded() override;

private:
    explicit Filter(std::string name) : name_(std::move(name)) {}
    std::string name_;
    base::Dictionary inputs_;
};

} // namespace platform::filter
