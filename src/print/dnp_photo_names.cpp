#include "internal/CodeNames.h"
#include "print/dnp_photo.h"

namespace {

using print::CodeName;
using print::nameForCode;

constexpr CodeName<std::int32_t> qualities[] = {
    {0, "High Speed"},
    {10, "High Quality"},
    {20, "Low Speed"},
    {30, "High Density"},
};

constexpr CodeName<std::int32_t> overcoats[] = {
    {0, "Glossy"},           {1, "Matte"},           {21, "Fine Matte"},
    {22, "Luster"},          {101, "Partial Matte"}, {121, "Partial Fine Matte"},
    {122, "Partial Luster"},
};

constexpr CodeName<std::int32_t> printersByProductID[] = {
    {3, "DS-40"}, {4, "DS-80"}, {5, "DS-RX1"}, {8, "DS-80DX"}, {35585, "DS620"}, {36865, "DS820"},
};

constexpr CodeName<std::int64_t> modelsByOldIndex[] = {
    {45, "DNP DS40"},     {46, "DNP DS80"},     {48, "DNP DS-RX1"},
    {54, "DNP DP-DS620"}, {55, "DNP DP-DS820"}, {56, "DNP DP-DS80D"},
};

} // namespace

std::string dnp_nameForQuality(std::int32_t quality) {
    return nameForCode(qualities, quality).value_or("Unknown");
}

std::string dnp_nameForOvercoat(std::int32_t overcoat) {
    return nameForCode(overcoats, overcoat).value_or("unknown");
}

std::string dnp_printerNameForProductID(std::int32_t productID) {
    return nameForCode(printersByProductID, productID).value_or("unknown model");
}

std::optional<std::string> modelNameForOldVelmPrinterIndex(std::int64_t index) {
    return nameForCode(modelsByOldIndex, index);
}
