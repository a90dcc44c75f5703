// What the tests of this module share: a package and a job made of plain fields, templates out of text, caught log
// lines, and small pictures.
#pragma once

#include "base/Places.h"
#include "imaging/ImageObject.h"
#include "imaging/KLARON_color.h"
#include "platform/data/XMLDocument.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ImageDestination.h"
#include "support/LogCapture.h"
#include "support/Pixel.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPackage.h"
#include "template/VELM_Template.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace template_testing {

using support::blue, support::clear, support::green, support::red, support::white;
using support::LogCapture;
using support::Pixel;
using support::TestPackage;

inline VELM_Template::Ref templateFrom(std::string_view xml) {
    const auto document = platform::data::XMLDocument::parse(xml);
    if (!document) {
        ADD_FAILURE() << document.error().localizedDescription;
        return VELM_Template::initForCopy();
    }
    return VELM_Template::initWithNode(*(*document)->rootElement(), std::nullopt);
}

/// A template file around these layers.
inline std::string fileOf(std::string_view layers, std::string_view size = "{100, 100}") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><data type=\"VELM_Template\" version=\"1.0\"><layout size=\"" +
           std::string(size) + "\">" + std::string(layers) + "</layout></data>";
}

/// Premultiplied, x and y from the top left.
inline Pixel pixelAt(const platform::draw::ImageRef& image, int x, int y) {
    if (!image) {
        ADD_FAILURE() << "no image";
        return {};
    }
    const auto bitmap = image->bitmap();
    if (!bitmap) {
        ADD_FAILURE() << bitmap.error().localizedDescription;
        return {};
    }
    const std::uint8_t* pixel = bitmap->row(y) + 4 * x;
    return {pixel[2], pixel[1], pixel[0], pixel[3]};
}

/// A picture in two halves, the first at the left.
inline platform::draw::ImageRef halves(int width, int height, std::string_view left, std::string_view right) {
    const auto context = platform::draw::BitmapContext::create(width, height, KLARON_color::colorSpace(),
                                                               platform::draw::AlphaInfo::noneSkipLast);
    context->setFillColor(KLARON_color::createColorWithHexcode(left));
    context->fillRect({0, 0, width / 2.0, static_cast<double>(height)});
    context->setFillColor(KLARON_color::createColorWithHexcode(right));
    context->fillRect({width / 2.0, 0, width / 2.0, static_cast<double>(height)});
    return context->makeImage();
}

inline void writePicture(const std::string& path, const platform::draw::ImageRef& image,
                         std::string_view type = "public.png", base::Dictionary properties = {}) {
    auto destination = platform::draw::ImageDestination::createWithURL(base::URL::fileURLWithPath(path), type);
    ASSERT_TRUE(destination) << destination.error().localizedDescription;
    (*destination)->addImage(image, std::move(properties));
    const auto written = (*destination)->finalize();
    ASSERT_TRUE(written) << written.error().localizedDescription;
}

} // namespace template_testing
