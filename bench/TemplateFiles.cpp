#include "TemplateFiles.h"

#include "Tasks.h"

#include <array>
#include <fstream>

namespace bench {

namespace {

class PlainJob final : public JobValues {
public:
    std::optional<std::string> valueForKey(std::string_view key, const std::optional<std::string>&,
                                           std::string_view metaKey) const override {
        const bool isPicture = key.starts_with("image");
        if (metaKey == "key") return isPicture ? "photo.jpg" : "Words that a customer typed";
        if (metaKey == "croprect" && isPicture) return "{{0.1, 0.1}, {0.8, 0.8}}";
        return std::nullopt;
    }
    base::Value valueInDict(std::string_view) const override { return {}; }
    std::optional<std::string> graphicPath() const override { return "photo.jpg"; }
    std::optional<base::URL> urlJobContainer() const override { return std::nullopt; }
};

class PlainPackage final : public PackageValues {
public:
    std::optional<std::string> name() const override { return "Plain"; }
    std::optional<std::string> pluCode() const override { return std::nullopt; }
    std::optional<base::URL> urlJobContainer() const override { return std::nullopt; }
    std::shared_ptr<const JobValues> job() const override { return job_; }

private:
    std::shared_ptr<const JobValues> job_ = std::make_shared<PlainJob>();
};

std::string mixedLayer(int number, int layer, const std::string& nested) {
    const std::string id = std::to_string(number) + "-" + std::to_string(layer);
    const base::Rect frame{10.0 * layer, 7.0 * layer, 200.0 + layer, 120.0 + number % 50};
    if (layer % 25 == 24) return layerText("node", frame, "<filepath>" + nested + "</filepath>");
    switch (layer % 5) {
    case 0:
        return layerText("image", frame,
                         "<key>image" + std::to_string(layer % 4 + 1) +
                             "</key><gravity>resizeAspectFill</gravity><croprect normal=\"yes\">{{0, 0}, {0.5, "
                             "0.5}}</croprect><rotation>0.1</rotation>");
    case 1:
        return layerText("graphic", frame,
                         "<filepath>graphics/frame-" + id +
                             ".png</filepath><gravity>resizeAspect</gravity><shadow blur=\"8\" color=\"#00000080\" "
                             "offset=\"{4, 4}\">yes</shadow>");
    case 2:
        return layerText("textbox", frame,
                         "<key>text" + std::to_string(layer) + "</key><string>Text " + id +
                             "</string><font size=\"24\">DejaVu Sans</font><color>#102030</color>");
    case 3:
        return layerText("textbox", frame,
                         "<string>All of the style of " + id +
                             "</string><font size=\"18\">DejaVu Sans</font><textAlignment>center</textAlignment>"
                             "<color>#FFFFFF</color><background color=\"#336699\">yes</background><shadow blur=\"3\" "
                             "color=\"#00000080\" offset=\"{1, 1}\">yes</shadow><border clipsContent=\"yes\" "
                             "color=\"#FFFFFF\" width=\"4\">yes</border><rotation>0.05</rotation>");
    default:
        return layerText("stamp", frame,
                         "<key>filename</key><string>stamp " + id + "</string><font size=\"12\">DejaVu Sans</font>");
    }
}

bool write(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    return file.flush().good();
}

} // namespace

std::string layerText(const std::string& type, const base::Rect& frame, const std::string& children) {
    return "<layer type=\"" + type + "\" frame=\"" + base::stringFromRect(frame) + "\" zindex=\"1\">" + children +
           "</layer>\n";
}

std::string nestedTemplateIn(const std::string& folder) {
    return folder + "/nested.xml";
}

std::vector<std::string> makeMixedTemplates(int count, const std::string& folder) {
    const std::string nested = nestedTemplateIn(folder);
    if (!write(nested, templateText(300, 200,
                                    layerText("textbox", {10, 10, 200, 50},
                                              "<string>nested</string><font size=\"24\">DejaVu Sans</font>"))))
        return {};
    std::vector<std::string> paths;
    for (int number = 0; number < count; ++number) {
        std::string layers;
        for (int layer = 0; layer < layersOfMixedTemplate; ++layer)
            layers += mixedLayer(number, layer, nested);
        paths.push_back(folder + "/" + std::to_string(number) + ".xml");
        if (!write(paths.back(), templateText(1844, 1240, layers))) return {};
    }
    return paths;
}

std::shared_ptr<const PackageValues> plainPackage() {
    return std::make_shared<PlainPackage>();
}

} // namespace bench
