// A colour of a picture, compared as nearly as lossy files and filters bring it back. Pure values.
#pragma once

#include <cstdlib>
#include <ostream>

namespace support {

struct Pixel {
    int red = 0, green = 0, blue = 0, alpha = 255;

    friend bool operator==(const Pixel& left, const Pixel& right) {
        const auto near = [](int a, int b) { return std::abs(a - b) <= 6; };
        return near(left.red, right.red) && near(left.green, right.green) && near(left.blue, right.blue) &&
               near(left.alpha, right.alpha);
    }
    friend std::ostream& operator<<(std::ostream& stream, const Pixel& pixel) {
        return stream << "(" << pixel.red << ", " << pixel.green << ", " << pixel.blue << ", " << pixel.alpha << ")";
    }
};
inline constexpr Pixel clear{0, 0, 0, 0}, white{255, 255, 255}, red{255, 0, 0}, green{0, 255, 0}, blue{0, 0, 255};

} // namespace support
