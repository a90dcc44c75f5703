// Points, sizes, rectangles, affine transforms and their text forms. Plain values in double precision; the sense of y
// is the caller's. The text forms are those in which geometry is stored in files: {x, y}, {w, h}, {{x, y}, {w, h}}.
#pragma once

#include <string>
#include <string_view>

namespace base {

struct Point {
    double x = 0;
    double y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0;
    double height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    static Rect null(); ///< The rectangle of no points, distinct from a rectangle of zero size.
    bool isNull() const;
    bool isEmpty() const { return isNull() || width == 0 || height == 0; }
    Point origin() const { return {x, y}; }
    Size size() const { return {width, height}; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    Point center() const { return {x + width / 2, y + height / 2}; }
    /// Moves each edge inward by dx and dy (outward when negative); the null rectangle when it passes the middle.
    Rect inset(double dx, double dy) const;
    /// The smallest rectangle of whole numbers that holds this one.
    Rect integral() const;
    /// The common part; the null rectangle when there is none.
    Rect intersection(const Rect& other) const;
    friend bool operator==(const Rect&, const Rect&) = default;
};

/// x' = a x + c y + tx, y' = b x + d y + ty.
struct AffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

    static AffineTransform translation(double x, double y) { return {1, 0, 0, 1, x, y}; }
    static AffineTransform scaling(double x, double y) { return {x, 0, 0, y, 0, 0}; }
    /// Counter-clockwise where y points up; radians.
    static AffineTransform rotation(double radians);
    /// A turn of `radians` about `center`.
    static AffineTransform rotationAbout(Point center, double radians);

    /// The transform that does `first` and then this one.
    AffineTransform after(const AffineTransform& first) const;
    /// The inverse; the identity for a transform that has none.
    AffineTransform inverted() const;
    Point apply(Point point) const { return {a * point.x + c * point.y + tx, b * point.x + d * point.y + ty}; }
    /// The bounding box of the transformed rectangle.
    Rect apply(const Rect& rect) const;
    friend bool operator==(const AffineTransform&, const AffineTransform&) = default;
};

/// Reading takes the numbers of the text in order, whatever stands between them; a missing one is 0.
Point pointFromString(std::string_view text);
Size sizeFromString(std::string_view text);
Rect rectFromString(std::string_view text);

/// Writing gives whole numbers without a point and others with as many digits as bring the same double back.
std::string stringFromPoint(Point point);
std::string stringFromSize(Size size);
std::string stringFromRect(const Rect& rect);

} // namespace base
