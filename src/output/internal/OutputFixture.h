// What the tests of this module share: a package and a job made of plain fields, templates out of text, small pictures.
#pragma once

#include "base/Value.h"
#include "imaging/KLARON_Image.h"
#include "output/VELM_Output.h"
#include "platform/data/XMLDocument.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageDestination.h"
#include "support/Pixel.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPackage.h"
#include "template/VELM_Template.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace output_testing {

using support::blue, support::green, support::red, support::white;
using support::Pixel;
using support::TestPackage;

inline platform::data::XMLNodeRef elementFrom(std::string_view xml) {
    const auto document = platform::data::XMLDocument::parse(xml);
    if (!document) throw std::runtime_error(document.error().localizedDescription);
    const auto root = (*document)->rootElement();
    root->detach();
    return root;
}

inline std::shared_ptr<VELM_Output> outputFrom(std::string_view xml) {
    return VELM_Output::initWithNode(*elementFrom(xml));
}

inline std::shared_ptr<VELM_Template> templateFrom(std::string_view xml) {
    return VELM_Template::initWithNode(*elementFrom(xml), std::nullopt);
}

/// A template that is one photograph, with the key "image1", over its whole canvas.
inline std::shared_ptr<VELM_Template> photographTemplate(int width, int height) {
    const std::string size = std::to_string(width) + ", " + std::to_string(height);
    return templateFrom("<layout size='{" + size + "}'><layer type='image' key='image1' frame='{{0, 0}, {" + size +
                        "}}'><gravity>resize</gravity></layer></layout>");
}

/// A JPEG file whose upper half is of one colour and whose lower half is of another.
inline std::string writePicture(const std::string& path, int width, int height, Pixel upper, Pixel lower) {
    auto bitmap = platform::draw::Bitmap::create(width, height, platform::draw::ColorSpace::sRGB(), true).value();
    for (int y = 0; y < height; ++y) {
        const Pixel& color = y < height / 2 ? upper : lower;
        for (int x = 0; x < width; ++x) {
            std::uint8_t* pixel = bitmap.mutableRow(y) + 4 * x;
            pixel[0] = static_cast<std::uint8_t>(color.blue);
            pixel[1] = static_cast<std::uint8_t>(color.green);
            pixel[2] = static_cast<std::uint8_t>(color.red);
        }
    }
    auto file =
        platform::draw::ImageDestination::createWithURL(base::URL::fileURLWithPath(path), "public.jpeg").value();
    file->addImage(platform::draw::Image::fromBitmap(std::move(bitmap)),
                   {{std::string(platform::draw::kCGImageDestinationLossyCompressionQuality), 1.0}});
    EXPECT_TRUE(file->finalize());
    return path;
}

/// The pixels of a picture in a file, from its top left.
class Picture {
public:
    explicit Picture(const std::string& path) {
        const auto image = KLARON_Image::createCGImageFromObject(path);
        if (!image) throw std::runtime_error("no picture at " + path);
        bitmap_ = image->bitmap().value();
    }
    std::array<int, 2> size() const { return {bitmap_->width(), bitmap_->height()}; }
    Pixel at(int x, int y) const {
        const std::uint8_t* pixel = bitmap_->row(y) + 4 * x;
        return {pixel[2], pixel[1], pixel[0]};
    }

private:
    std::optional<platform::draw::Bitmap> bitmap_;
};

inline std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> files;
    if (std::filesystem::is_directory(folder)) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.is_regular_file()) files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace output_testing
