#include "platform/data/Collation.h"

#include "base/Text.h"

#include <algorithm>
#include <string>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace platform::data {
namespace {

/// The form in which texts compare by their characters: letter case folded, then decomposed.
icu::UnicodeString comparableForm(std::string_view text) {
    icu::UnicodeString folded =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    folded.foldCase();
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* decomposer = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status)) return folded;
    icu::UnicodeString decomposed = decomposer->normalize(folded, status);
    return U_SUCCESS(status) ? decomposed : folded;
}

bool isDigit(UChar32 character) {
    return u_charType(character) == U_DECIMAL_DIGIT_NUMBER;
}

/// Reads the run of digits at `position` and moves behind it. The digits' values without leading zeros.
std::string digitRun(const icu::UnicodeString& text, std::int32_t& position) {
    std::string digits;
    while (position < text.length() && isDigit(text.char32At(position))) {
        const UChar32 character = text.char32At(position);
        const int value = u_charDigitValue(character);
        if (value != 0 || !digits.empty()) digits += static_cast<char>('0' + value);
        position += U16_LENGTH(character);
    }
    return digits;
}

template <class Ordered>
int order(const Ordered& left, const Ordered& right) {
    return left < right ? -1 : right < left ? 1 : 0;
}

} // namespace

int compareIgnoringCaseNumeric(std::string_view leftText, std::string_view rightText) {
    const icu::UnicodeString left = comparableForm(leftText);
    const icu::UnicodeString right = comparableForm(rightText);
    std::int32_t leftPosition = 0;
    std::int32_t rightPosition = 0;
    while (leftPosition < left.length() && rightPosition < right.length()) {
        const UChar32 leftCharacter = left.char32At(leftPosition);
        const UChar32 rightCharacter = right.char32At(rightPosition);
        if (isDigit(leftCharacter) && isDigit(rightCharacter)) {
            const std::string leftDigits = digitRun(left, leftPosition);
            const std::string rightDigits = digitRun(right, rightPosition);
            if (const int byLength = order(leftDigits.size(), rightDigits.size())) return byLength;
            if (const int byValue = order(leftDigits, rightDigits)) return byValue;
            continue;
        }
        if (leftCharacter != rightCharacter) return order(leftCharacter, rightCharacter);
        leftPosition += U16_LENGTH(leftCharacter);
        rightPosition += U16_LENGTH(rightCharacter);
    }
    return order(left.length() - leftPosition, right.length() - rightPosition);
}

std::string foldedForm(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; }))
        return base::lowercase(text);
    std::string folded;
    comparableForm(text).toUTF8String(folded);
    return folded;
}

} // namespace platform::data
