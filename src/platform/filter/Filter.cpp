#include "Filter.h"

#include "internal/Node.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace platform::filter {

namespace {

using Numbers = std::array<double, 4>;

/// One input: a number (in the first place) or a vector of four.
struct Input {
    std::string_view key;
    bool isVector = false;
    Numbers otherwise{};
};

constexpr std::size_t mostInputs = 5;
using InputValues = std::array<Numbers, mostInputs>;

struct Kind {
    std::string_view name;
    std::vector<Input> inputs;
    ColorStep (*step)(const InputValues& values);
};

/// Inputs beyond this have no sense, but would make numbers without end.
constexpr double largestInput = 1e6;

/// The same row for each colour, of the luminance's weights.
MatrixStep saturationMatrix(double saturation) {
    MatrixStep matrix;
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            matrix.rows[row][column] = (1 - saturation) * luminanceWeights[column] + (row == column ? saturation : 0);
    return matrix;
}

/// Each colour times `scale` plus `constant`.
MatrixStep scaleMatrix(double scale, double constant) {
    MatrixStep matrix;
    for (std::size_t row = 0; row < 3; ++row) {
        matrix.rows[row][row] = scale;
        matrix.rows[row][4] = constant;
    }
    return matrix;
}

ColorStep colorControls(const InputValues& values) {
    const double saturation = values[0][0];
    const double brightness = values[1][0];
    const double contrast = values[2][0];
    return scaleMatrix(contrast, 0.5 - 0.5 * contrast + brightness).after(saturationMatrix(saturation));
}

ColorStep colorMatrix(const InputValues& values) {
    MatrixStep matrix;
    for (std::size_t row = 0; row < 4; ++row) {
        std::ranges::copy(values[row], matrix.rows[row].begin());
        matrix.rows[row][4] = values[4][row];
    }
    return matrix;
}

ColorStep exposure(const InputValues& values) {
    return scaleMatrix(std::exp2(std::clamp(values[0][0], -60.0, 60.0)), 0);
}

ColorStep gamma(const InputValues& values) {
    return PowerStep{values[0][0]};
}

/// A turn of the cube of colours about its diagonal from black to white: red goes towards green.
ColorStep hue(const InputValues& values) {
    const double angle = values[0][0];
    if (angle == 0) return MatrixStep{};
    const double along = (1 - std::cos(angle)) / 3;
    const double across = std::sin(angle) / std::numbers::sqrt3;
    MatrixStep matrix;
    for (std::size_t row = 0; row < 3; ++row) {
        matrix.rows[row][row] = along + std::cos(angle);
        matrix.rows[row][(row + 1) % 3] = along - across;
        matrix.rows[row][(row + 2) % 3] = along + across;
    }
    return matrix;
}

ColorStep sharpen(const InputValues& values) {
    return SharpenStep{values[0][0], values[1][0]};
}

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all{
        {"CIColorControls",
         {{"inputSaturation", false, {1}}, {"inputBrightness", false, {0}}, {"inputContrast", false, {1}}},
         colorControls},
        {"CIColorMatrix",
         {{"inputRVector", true, {1, 0, 0, 0}},
          {"inputGVector", true, {0, 1, 0, 0}},
          {"inputBVector", true, {0, 0, 1, 0}},
          {"inputAVector", true, {0, 0, 0, 1}},
          {"inputBiasVector", true, {0, 0, 0, 0}}},
         colorMatrix},
        {"CIExposureAdjust", {{"inputEV", false, {0}}}, exposure},
        {"CIGammaAdjust", {{"inputPower", false, {1}}}, gamma},
        {"CIHueAdjust", {{"inputAngle", false, {0}}}, hue},
        {"CISharpenLuminance", {{"inputSharpness", false, {0.4}}, {"inputRadius", false, {1.69}}}, sharpen},
    };
    return all;
}

const Kind* kindNamed(std::string_view name) {
    const auto found = std::ranges::find(kinds(), name, &Kind::name);
    return found == kinds().end() ? nullptr : &*found;
}

std::optional<double> numberOf(const base::Value& value) {
    if (!value.isNumber() || !std::isfinite(value.doubleValue())) return std::nullopt;
    return std::clamp(value.doubleValue(), -largestInput, largestInput);
}

Numbers numbersOf(const base::Value& value, const Input& input) {
    Numbers numbers = input.otherwise;
    if (!input.isVector) {
        numbers[0] = numberOf(value).value_or(input.otherwise[0]);
        return numbers;
    }
    const auto* array = value.as<base::Array>();
    if (!array || array->size() != numbers.size()) return numbers;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const auto number = numberOf((*array)[i]);
        if (!number) return input.otherwise;
        numbers[i] = *number;
    }
    return numbers;
}

/// A vector on its way into an archive.
struct ArchivedVector : base::Object {
    explicit ArchivedVector(base::Array numbers) : components(std::move(numbers)) {}
    std::string className() const override { return "CIVector"; }
    std::optional<base::Dictionary> encoded() override {
        base::Dictionary values{{"CICount", components.size()}};
        for (std::size_t i = 0; i < components.size(); ++i)
            values.emplace("CI_" + std::to_string(i), components[i].doubleValue());
        return values;
    }
    base::Array components;
};

base::Value valueOf(const Input& input) {
    if (!input.isVector) return input.otherwise[0];
    return base::Array(input.otherwise.begin(), input.otherwise.end());
}

} // namespace

FilterRef Filter::filterWithName(std::string_view name) {
    const Kind* kind = kindNamed(name);
    if (!kind) return nullptr;
    FilterRef filter(new Filter(std::string(name)));
    for (const Input& input : kind->inputs)
        filter->setInput(input.key, valueOf(input));
    return filter;
}

std::vector<std::string_view> Filter::names() {
    std::vector<std::string_view> names;
    std::ranges::transform(kinds(), std::back_inserter(names), &Kind::name);
    return names;
}

void Filter::setInput(std::string_view key, base::Value value) {
    inputs_.insert_or_assign(std::string(key), std::move(value));
}

FilterImageRef Filter::outputImage(const FilterImageRef& inputImage) const {
    if (!inputImage) return nullptr;
    const Kind& kind = *kindNamed(name_);
    InputValues values{};
    for (std::size_t i = 0; i < kind.inputs.size(); ++i)
        values.at(i) = numbersOf(base::valueForKey(inputs_, kind.inputs[i].key), kind.inputs[i]);
    const NodeRef node = filteredNode(inputImage->node(), kind.step(values));
    return node == inputImage->node() ? inputImage : std::make_shared<const FilterImage>(node);
}

bool Filter::isEqual(const base::Object& other) const {
    const auto* filter = dynamic_cast<const Filter*>(&other);
    return filter && filter->name_ == name_ && base::Value(filter->inputs_) == base::Value(inputs_);
}

std::size_t Filter::hash() const {
    return std::hash<std::string>()(name_) ^ base::Value::hashOf(inputs_);
}

std::string Filter::description() const {
    return "<" + name_ + " " + base::Value(inputs_).description() + ">";
}

std::optional<base::Dictionary> Filter::encoded() {
    base::Dictionary values{{"CIName", name_}};
    for (const auto& [key, value] : inputs_) {
        const auto* components = value.as<base::Array>();
        values.emplace("CI_" + key, components ? base::Value(std::make_shared<ArchivedVector>(*components)) : value);
    }
    return values;
}

} // namespace platform::filter
