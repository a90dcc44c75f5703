#include "PlaceholderPicture.h"

#include "imaging/KLARON_color.h"
#include "platform/draw/BitmapContext.h"

#include <algorithm>
#include <cmath>

using platform::draw::BitmapContext;

platform::draw::ImageRef placeholderPicture(base::Size size) {
    const double width = std::round(size.width);
    const double height = std::round(size.height);
    const auto context = BitmapContext::create(width, height, KLARON_color::colorSpace());
    if (!context) return nullptr;
    context->setAlpha(0.75);
    const auto fill = [&](std::string_view code) { context->setFillColor(*KLARON_color::colorForHexcode(code)); };
    fill("DDDDDD99");
    context->fillRect({0, 0, width, height});

    // A sun over two hills, in the middle and as large as the shorter side allows.
    const double side = std::min(width, height);
    const base::Point corner{(width - side) / 2, (height - side) / 2};
    const auto ellipse = [&](double x, double y, double w, double h) {
        context->beginPath();
        context->addRoundedRect({corner.x + x * side, corner.y + y * side, w * side, h * side}, w * side / 2,
                                h * side / 2);
        context->fillPath();
    };
    context->clipToRect({corner.x, corner.y + side * 0.2, side, side * 0.6});
    fill("F2C14E");
    ellipse(0.62, 0.56, 0.16, 0.16);
    fill("8FB996");
    ellipse(0.35, -0.1, 0.7, 0.6);
    fill("5C946E");
    ellipse(-0.1, -0.15, 0.75, 0.6);
    return context->makeImage();
}
