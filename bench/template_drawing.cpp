#include "LibraryCalls.h"
#include "Measure.h"
#include "TemplateFiles.h"
#include "template_sections.h"

#include "platform/draw/PictureCache.h"
#include "template/VELM_Template.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace bench {

namespace {

constexpr int canvasWidth = 1400;
constexpr int canvasHeight = 1000;
constexpr base::Rect box{175, 150, 1050, 700};

/// What the drawing of a layer can't do without.
enum class Floor {
    pixels,  ///< Its box laid over the canvas once.
    decoded, ///< The photograph decoded at the smallest power of two that covers the box.
    cropped, ///< The same for a box of twice the size, half of which shows.
};

struct Layer {
    const char* name;
    const char* type;
    std::string children;
    Floor floor;
};

const std::string font = "<font size=\"48\">DejaVu Sans</font><color>#102030</color>";
const std::string words = "<string>A day at the sea</string>" + font;
const std::string shadow = "<shadow blur=\"24\" color=\"#00000099\" offset=\"{16, 16}\">yes</shadow>";
const std::string border = "<border color=\"#FFFFFF\" width=\"30\">yes</border>";
const std::string background = "<background color=\"#336699\">yes</background>";

std::string manyWords() {
    std::string text;
    for (int i = 0; i < 30; ++i)
        text += "The quick brown fox jumps over the lazy dog. ";
    return "<string>" + text + "</string>" + font;
}

std::vector<Layer> layersWith(const std::string& photograph, const std::string& nested) {
    const std::string picture = "<filepath>" + photograph + "</filepath>";
    const std::string filling = picture + "<gravity>resizeAspectFill</gravity>";
    return {
        {"graphic, resizeAspectFill", "graphic", filling, Floor::decoded},
        {"graphic, resizeAspect", "graphic", picture + "<gravity>resizeAspect</gravity>", Floor::decoded},
        {"graphic, resize", "graphic", picture + "<gravity>resize</gravity>", Floor::decoded},
        {"image hole, resizeAspectFill", "image", filling, Floor::decoded},
        {"image hole, cropped to a quarter", "image",
         filling + "<croprect normal=\"yes\">{{0.25, 0.25}, {0.5, 0.5}}</croprect>", Floor::cropped},
        {"image hole, border", "image", filling + border, Floor::decoded},
        {"image hole, shadow", "image", filling + shadow, Floor::decoded},
        {"image hole, rotated", "image", filling + "<rotation>0.2</rotation>", Floor::decoded},
        {"image hole, rotated, border, shadow", "image", filling + border + shadow + "<rotation>0.2</rotation>",
         Floor::decoded},
        {"image hole without a picture", "image", "", Floor::pixels},
        {"text of a line", "textbox", words, Floor::pixels},
        {"text that fills the box", "textbox", manyWords(), Floor::pixels},
        {"text, background", "textbox", words + background, Floor::pixels},
        {"text, border", "textbox", words + border, Floor::pixels},
        {"text, shadow", "textbox", words + shadow, Floor::pixels},
        {"text, rotated", "textbox", words + "<rotation>0.2</rotation>", Floor::pixels},
        {"stamp of the date", "stamp", "<key>date</key><string>longDate</string>" + font, Floor::pixels},
        {"nested file with a text", "node", "<filepath>" + nested + "</filepath>", Floor::pixels},
    };
}

VELM_Template::Ref documentWith(const std::string& layers, const std::string& folder, int width = canvasWidth,
                                int height = canvasHeight) {
    const std::string path = folder + "/drawn.xml";
    std::ofstream(path) << templateText(width, height, layers);
    auto document = VELM_Template::templateWithPath(path, std::nullopt);
    if (!document) std::exit(1);
    return document;
}

/// Drawn from a copy, as nested templates keep their picture, with no photograph decoded yet.
void draw(VELM_Template& document, bool isPreview) {
    platform::draw::clearPictureCache();
    const auto copy = document.copyWithZone();
    copy->setIsRenderingPreview(isPreview);
    if (copy->createProductImage() && !copy->renderError()) return;
    std::fprintf(stderr, "%s\n", copy->renderError() ? copy->renderError()->localizedDescription.c_str() : "not drawn");
    std::exit(1);
}

/// Half transparent grey over the layer's box, as eight bits allow it.
void blendBox(std::vector<std::uint8_t>& pixels) {
    constexpr unsigned grey = 64;
    constexpr unsigned shows = 128;
    for (int y = 0; y < static_cast<int>(box.height); ++y) {
        const int left = static_cast<int>(box.x) + canvasWidth * (static_cast<int>(box.y) + y);
        std::uint8_t* row = pixels.data() + 4 * static_cast<std::size_t>(left);
        for (std::size_t i = 0; i < 4 * static_cast<std::size_t>(box.width); ++i)
            row[i] = static_cast<std::uint8_t>(grey + (row[i] * shows >> 8));
    }
}

bool doFloor(Floor floor, const std::string& photograph, std::vector<std::uint8_t>& pixels) {
    const int width = static_cast<int>(box.width);
    const int height = static_cast<int>(box.height);
    switch (floor) {
    case Floor::pixels:
        blendBox(pixels);
        return true;
    case Floor::decoded:
        return decodeJpeg(photograph, width, height);
    case Floor::cropped:
        return decodeJpeg(photograph, 2 * width, 2 * height);
    }
    return false;
}

} // namespace

void printLayers(const std::string& photograph, const std::string& folder, int rounds) {
    const std::string nested = folder + "/inner.xml";
    std::ofstream(nested) << templateText(static_cast<int>(box.width), static_cast<int>(box.height),
                                          layerText("textbox", {0, 0, box.width, box.height}, words));
    const auto bare = documentWith("", folder);
    std::printf(
        "\nOne layer of %.0f x %.0f on a canvas of %d x %d: processor time beyond the bare canvas. The floor of "
        "a picture (12\nmegapixels) is its decoding at the smallest power of two that is large enough; of all "
        "else, the blending of the box once.\nThe preview of a graphic is kept for the life of the process.\n\n"
        "| layer | floor ms | final ms | final / floor | preview ms | preview / floor |\n"
        "|---|---|---|---|---|---|\n",
        box.width, box.height, canvasWidth, canvasHeight);
    std::vector<std::uint8_t> pixels(4 * static_cast<std::size_t>(canvasWidth * canvasHeight), 200);
    for (const Layer& layer : layersWith(photograph, nested)) {
        const auto document = documentWith(layerText(layer.type, box, layer.children), folder);
        draw(*document, true); // makes what is kept, and warms up
        const int batch = layer.floor == Floor::pixels ? 5 : 1;
        const auto seconds = secondsByTurns({{[&] { draw(*bare, false); }, batch},
                                             {[&] {
                                                  if (!doFloor(layer.floor, photograph, pixels)) std::exit(1);
                                              },
                                              batch},
                                             {[&] { draw(*document, false); }, batch},
                                             {[&] { draw(*document, true); }, batch}},
                                            rounds, 2);
        const double floor = median(seconds[1]);
        const double final = medianDifference(seconds[2], seconds[0]);
        const double preview = medianDifference(seconds[3], seconds[0]);
        std::printf("| %s | %.2f | %.2f | %.2f | %.2f | %.2f |\n", layer.name, floor * 1e3, final * 1e3, final / floor,
                    preview * 1e3, preview / floor);
        std::fflush(stdout);
    }
}

void printCanvases(const std::string& folder, int rounds) {
    const std::string layer = layerText("textbox", {20, 20, 500, 300}, words);
    std::printf("\nA line of text in a box of 500 x 300, by the canvas that it stands on.\n\n"
                "| canvas | bare canvas ms | text beyond it ms |\n|---|---|---|\n");
    for (const auto& [width, height] : {std::pair{600, 400}, {3000, 2000}, {6000, 4000}}) {
        const auto bare = documentWith("", folder, width, height);
        const auto document = documentWith(layer, folder, width, height);
        const auto seconds =
            secondsByTurns({{[&] { draw(*bare, false); }}, {[&] { draw(*document, false); }}}, 10 * rounds, 4);
        std::printf("| %d x %d | %.2f | %.2f |\n", width, height, median(seconds[0]) * 1e3,
                    medianDifference(seconds[1], seconds[0]) * 1e3);
        std::fflush(stdout);
    }
}

} // namespace bench
