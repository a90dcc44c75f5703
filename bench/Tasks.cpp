#include "Tasks.h"

#include "SamplePhotographs.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace bench {

namespace {

std::string photographLayer(const Placed& placed, int level, const std::string& style = {}) {
    std::ostringstream text;
    text << "<layer type=\"graphic\" zindex=\"" << level << "\" frame=\"{{" << placed.x << ", " << placed.y << "}, {"
         << placed.width << ", " << placed.height << "}}\"><filepath>" << placed.path
         << "</filepath><gravity>resizeAspectFill</gravity>" << style << "</layer>\n";
    return text.str();
}

std::string textLayer(const std::string& frame, const std::string& text, int size, const std::string& color) {
    return "<layer type=\"textbox\" zindex=\"90\" frame=\"" + frame + "\"><string>" + text + "</string><font size=\"" +
           std::to_string(size) + "\">DejaVu Sans</font><color>" + color + "</color></layer>\n";
}

bool make(const samples::Photograph& photograph, const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::exists(path, ignored)) return true;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::string error;
    const auto bytes = samples::jpegOf(photograph, error);
    if (bytes.empty()) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    // Made aside: half a photograph must not be taken for one at the next run.
    const std::string aside = path + ".tmp";
    std::ofstream(aside, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    std::filesystem::rename(aside, path, ignored);
    return !ignored;
}

} // namespace

std::string templateText(int width, int height, const std::string& layers) {
    std::ostringstream text;
    text << "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
         << "<data type=\"VELM_Template\" version=\"1.0\">\n<layout name=\"bench\" size=\"{" << width << ", " << height
         << "}\"><backgroundEnabled>yes</backgroundEnabled>\n"
         << layers << "</layout>\n</data>\n";
    return text.str();
}

Photographs photographsIn(const std::string& folder) {
    constexpr std::array scenes{samples::Scene::house, samples::Scene::lighthouse, samples::Scene::harbour,
                                samples::Scene::house};
    Photographs paths;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        samples::Photograph photograph;
        photograph.scene = scenes[i];
        photograph.width = 6000;
        photograph.height = 4000;
        photograph.seed = static_cast<unsigned>(i + 21);
        paths[i] = folder + "/" + std::to_string(i + 1) + ".jpg";
        if (!make(photograph, paths[i])) return {};
    }
    return paths;
}

std::string photographOf(int width, int height, const std::string& folder) {
    samples::Photograph photograph;
    photograph.scene = samples::Scene::lighthouse;
    photograph.width = width;
    photograph.height = height;
    const std::string path = folder + "/" + std::to_string(width) + "x" + std::to_string(height) + ".jpg";
    return make(photograph, path) ? path : std::string();
}

std::array<Task, 3> tasksWith(const Photographs& photographs) {
    const FloorTask single{1844, 1240, {{photographs[0], 0, 0, 1844, 1240}}};
    const FloorTask four{2448,
                         3036,
                         {{photographs[0], 56, 56, 1140, 1380},
                          {photographs[1], 1252, 56, 1140, 1380},
                          {photographs[2], 56, 1492, 1140, 1380},
                          {photographs[3], 1352, 1612, 940, 1140}}};
    const FloorTask twice{1844, 2498, {{photographs[0], 0, 0, 1844, 1249}, {photographs[0], 0, 1249, 1844, 1249}}};
    return {
        Task{"T1", "one photograph aspect-filled into 1844 x 1240, border, a line of text",
             templateText(1844, 1240,
                          photographLayer(single.photographs[0], 1,
                                          "<border color=\"#FFFFFF\" width=\"40\" clipsContent=\"yes\">yes</border>") +
                              textLayer("{{80, 1110}, {1684, 70}}", "A day at the sea, summer 2026", 44, "#FFFFFF")),
             single},
        Task{"T2", "2448 x 3036 with four photographs, one turned 7 degrees with a soft shadow, text",
             templateText(2448, 3036,
                          photographLayer(four.photographs[0], 1) + photographLayer(four.photographs[1], 2) +
                              photographLayer(four.photographs[2], 3) +
                              photographLayer(four.photographs[3], 4,
                                              "<rotation>0.122173</rotation><shadow blur=\"24\" color=\"#00000099\" "
                                              "offset=\"{16, 16}\">yes</shadow>") +
                              textLayer("{{56, 2900}, {2336, 100}}", "Four pictures of one day", 72, "#2E4A62")),
             four},
        Task{"T3", "one photograph placed twice on 1844 x 2498",
             templateText(1844, 2498,
                          photographLayer(twice.photographs[0], 1) + photographLayer(twice.photographs[1], 2)),
             twice}};
}

} // namespace bench
