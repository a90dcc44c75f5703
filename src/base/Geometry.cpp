#include "base/Geometry.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace base {

namespace {

/// The first `count` numbers of the text, whatever stands between them; the missing ones are 0.
template <std::size_t count>
std::array<double, count> numbersOf(std::string_view text) {
    std::array<double, count> numbers{};
    std::size_t found = 0;
    std::size_t at = 0;
    const auto isDigit = [&](std::size_t i) { return i < text.size() && text[i] >= '0' && text[i] <= '9'; };
    while (found < count && at < text.size()) {
        std::size_t digits = at;
        if (text[digits] == '-' || text[digits] == '+') ++digits;
        const bool starts = isDigit(digits) || (digits < text.size() && text[digits] == '.' && isDigit(digits + 1));
        if (!starts) {
            ++at;
            continue;
        }
        std::size_t end = digits;
        while (isDigit(end) || (end < text.size() && text[end] == '.'))
            ++end;
        if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
            std::size_t exponent = end + 1;
            if (exponent < text.size() && (text[exponent] == '-' || text[exponent] == '+')) ++exponent;
            if (isDigit(exponent)) {
                end = exponent;
                while (isDigit(end))
                    ++end;
            }
        }
        numbers[found++] = doubleValue(text.substr(at, end - at));
        at = end;
    }
    return numbers;
}

} // namespace

Rect Rect::null() {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return {infinity, infinity, 0, 0};
}

bool Rect::isNull() const {
    return std::isinf(x) || std::isinf(y);
}

Rect Rect::inset(double dx, double dy) const {
    if (isNull()) return *this;
    const Rect result{x + dx, y + dy, width - 2 * dx, height - 2 * dy};
    return result.width < 0 || result.height < 0 ? null() : result;
}

Rect Rect::integral() const {
    if (isNull()) return *this;
    const double left = std::floor(x);
    const double low = std::floor(y);
    return {left, low, std::ceil(maxX()) - left, std::ceil(maxY()) - low};
}

Rect Rect::intersection(const Rect& other) const {
    if (isNull() || other.isNull()) return null();
    const double left = std::max(x, other.x);
    const double low = std::max(y, other.y);
    const double right = std::min(maxX(), other.maxX());
    const double high = std::min(maxY(), other.maxY());
    if (right < left || high < low) return null();
    return {left, low, right - left, high - low};
}

AffineTransform AffineTransform::rotation(double radians) {
    const double cosine = std::cos(radians);
    const double sine = std::sin(radians);
    return {cosine, sine, -sine, cosine, 0, 0};
}

AffineTransform AffineTransform::rotationAbout(Point center, double radians) {
    return translation(center.x, center.y).after(rotation(radians)).after(translation(-center.x, -center.y));
}

AffineTransform AffineTransform::after(const AffineTransform& first) const {
    return {a * first.a + c * first.b, b * first.a + d * first.b,        a * first.c + c * first.d,
            b * first.c + d * first.d, a * first.tx + c * first.ty + tx, b * first.tx + d * first.ty + ty};
}

AffineTransform AffineTransform::inverted() const {
    const double determinant = a * d - b * c;
    if (determinant == 0) return {};
    const double ia = d / determinant;
    const double ib = -b / determinant;
    const double ic = -c / determinant;
    const double id = a / determinant;
    return {ia, ib, ic, id, -(ia * tx + ic * ty), -(ib * tx + id * ty)};
}

Rect AffineTransform::apply(const Rect& rect) const {
    if (rect.isNull()) return rect;
    const std::array<Point, 4> corners = {apply(Point{rect.x, rect.y}), apply(Point{rect.maxX(), rect.y}),
                                          apply(Point{rect.x, rect.maxY()}), apply(Point{rect.maxX(), rect.maxY()})};
    const auto [left, right] = std::minmax({corners[0].x, corners[1].x, corners[2].x, corners[3].x});
    const auto [low, high] = std::minmax({corners[0].y, corners[1].y, corners[2].y, corners[3].y});
    return {left, low, right - left, high - low};
}

Point pointFromString(std::string_view text) {
    const auto [x, y] = numbersOf<2>(text);
    return {x, y};
}

Size sizeFromString(std::string_view text) {
    const auto [width, height] = numbersOf<2>(text);
    return {width, height};
}

Rect rectFromString(std::string_view text) {
    const auto [x, y, width, height] = numbersOf<4>(text);
    return {x, y, width, height};
}

std::string stringFromPoint(Point point) {
    return "{" + shortestDecimal(point.x) + ", " + shortestDecimal(point.y) + "}";
}

std::string stringFromSize(Size size) {
    return "{" + shortestDecimal(size.width) + ", " + shortestDecimal(size.height) + "}";
}

std::string stringFromRect(const Rect& rect) {
    return "{" + stringFromPoint(rect.origin()) + ", " + stringFromSize(rect.size()) + "}";
}

} // namespace base
