// The keys of one code in a list of codes to draw, as they are stored with outputs and given to
// KLARON_2dCodeGenerator::draw.
#pragma once

#include <string_view>

inline constexpr std::string_view klaron_2dCodeKey_message = "klaron_2dCodeKey_message"; ///< text
/// Number: units for each module. Without it nothing shows.
inline constexpr std::string_view klaron_2dCodeKey_scale = "klaron_2dCodeKey_scale";
/// Number: 0 Aztec, 1 QR, 2 Code 128, 3 PDF417.
inline constexpr std::string_view klaron_2dCodeKey_type = "klaron_2dCodeKey_type";
/// A point or its text, 0 to 1 of the rectangle: the code's corner of least x and y.
inline constexpr std::string_view klaron_2dCodeKey_origin = "klaron_2dCodeKey_origin";
/// Number: the corner, for a code without an origin. 1 greatest x, 2 greatest y, 3 both, any other neither.
inline constexpr std::string_view klaron_2dCodeKey_position = "klaron_2dCodeKey_position";
/// Booleans: the origin counts from the opposite edge.
inline constexpr std::string_view klaron_2dCodeKey_isFlippedX = "klaron_2dCodeKey_isFlippedX";
inline constexpr std::string_view klaron_2dCodeKey_isFlippedY = "klaron_2dCodeKey_isFlippedY";

// Names that stored lists may hold; drawing pays no heed to them.
inline constexpr std::string_view klaron_2dCodeKey_object = "klaron_2dCodeKey_object";
inline constexpr std::string_view klaron_2dCode_correctionLevel = "klaron_2dCode_correctionLevel";
inline constexpr std::string_view klaron_2dCode_quietSpace = "klaron_2dCode_quietSpace";
