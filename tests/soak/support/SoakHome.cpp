#include "soak/support/SoakHome.h"

#include "SamplePhotographs.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace soak {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view prologue = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
constexpr std::string_view bundleExtension = ".velm_job";

std::string templateText(std::string_view name, std::string_view size) {
    const std::string extent(size);
    return std::string(prologue) + "<data type=\"VELM_Template\" version=\"1.0\"><layout name=\"" + std::string(name) +
           "\" size=\"" + extent + "\"><layer type=\"image\" zindex=\"1\" frame=\"{{0, 0}, " + extent +
           "}\"><key>image1</key><gravity>resizeAspectFill</gravity></layer></layout></data>\n";
}

std::string outputText(const fs::path& folder) {
    return "<output name=\"print\"><print type=\"node\"/><destination type=\"filepath\"><filepath>" + folder.string() +
           "</filepath><filename>originalimagename</filename></destination></output>\n";
}

std::string packageText(std::string_view name, std::string_view templateFile, const std::string& outputs) {
    return std::string(prologue) + "<data type=\"VELM_Package\" version=\"1.0\" name=\"" + std::string(name) +
           "\">\n<template name=\"print\"><filepath>" + std::string(templateFile) + "</filepath></template>\n" +
           outputs + "</data>\n";
}

std::string smallPhotograph() {
    samples::Photograph scene;
    scene.name = "soak";
    scene.width = 360;
    scene.height = 240;
    std::string error;
    const auto bytes = samples::jpegOf(scene, error);
    return {bytes.begin(), bytes.end()};
}

} // namespace

std::string contentsOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void SoakHome::write(const fs::path& file, std::string_view bytes) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
}

SoakHome::SoakHome(const fs::path& folder) : isKept_(!folder.empty()), photograph_(smallPhotograph()) {
    if (isKept_) {
        path_ = fs::absolute(folder);
    } else {
        std::string pattern = (fs::temp_directory_path() / "velm-soak-XXXXXX").string();
        if (!mkdtemp(pattern.data())) {
            std::perror("cannot make a folder for the soak run");
            std::exit(2);
        }
        path_ = pattern;
    }
    for (const fs::path& made : {bundles(), tickets(), completed(), failed(), products(), path_ / "Arriving"})
        fs::create_directories(made);
    write(path_ / "VELM/Templates/Print.xml", templateText("Print", "{240, 160}"));
    write(path_ / "VELM/Templates/Proof.xml", templateText("Proof", "{120, 80}"));
    write(path_ / "VELM/Packages/Prints.xml",
          packageText("Prints", "Print.xml", outputText(products() / "Large") + outputText(products() / "Again")));
    write(path_ / "VELM/Packages/Proofs.xml", packageText("Proofs", "Proof.xml", outputText(products() / "Proof")));
}

void SoakHome::removeUnlessKept() const {
    std::error_code ignored;
    if (!isKept_) fs::remove_all(path_, ignored);
}

fs::path SoakHome::bundles() const {
    return path_ / "Applications/VELM OS X Share Folder/Velm-Processor Folder ƒ/Jobs/Pending";
}

fs::path SoakHome::tickets() const {
    return path_ / "Sorrel/Prints";
}

const std::vector<std::string>& SoakHome::productFolders() {
    static const std::vector<std::string> folders{"Large", "Again", "Proof"};
    return folders;
}

std::string SoakHome::pictureName(int number) {
    char name[32];
    std::snprintf(name, sizeof name, "order%07d", number);
    return name;
}

std::string SoakHome::ticketText(int number, std::string_view image, std::string_view elements) {
    const std::string slot = "<image1>" + std::string(image) + "</image1>";
    return std::string(prologue) + "<data type=\"VELM_Job\" version=\"1.0\">\n<number>" + std::to_string(number) +
           "</number>\n" + std::string(elements) + "<package name=\"Prints\">" + slot +
           "</package>\n<package name=\"Proofs\">" + slot + "</package>\n</data>\n";
}

void SoakHome::addIdlePackage() const {
    write(path_ / "VELM/Packages/Nothing.xml", "<data type=\"VELM_Package\" version=\"1.0\" name=\"Nothing\"/>");
}

fs::path SoakHome::makeOrder(int number, OrderKind kind) const {
    const std::string name = pictureName(number);
    const std::string picture = name + ".jpg";
    if (kind == OrderKind::ticket) {
        const fs::path photo = path_ / "Photographs" / picture;
        write(photo, photograph_);
        const fs::path made = path_ / "Arriving" / (name + ".xml");
        write(made, ticketText(number, photo.string()));
        return made;
    }
    const fs::path made = path_ / "Arriving" / (name + std::string(bundleExtension));
    const std::size_t length = kind == OrderKind::brokenPicture ? photograph_.size() / 3 : photograph_.size();
    write(made / "Images" / picture, std::string_view(photograph_).substr(0, length));
    write(made / "job.xml",
          ticketText(number, picture,
                     kind == OrderKind::noPackage
                         ? "<package name=\"There is no such package\"><image1>" + picture + "</image1></package>\n"
                         : ""));
    return made;
}

fs::path SoakHome::addOrder(int number, OrderKind kind) const {
    const fs::path made = makeOrder(number, kind);
    const fs::path added = (kind == OrderKind::ticket ? tickets() : bundles()) / made.filename();
    fs::rename(made, added);
    return added;
}

std::optional<int> SoakHome::numberOfOrder(const fs::path& item) {
    constexpr std::string_view mark = "<number>";
    const std::string text = contentsOf(item.extension() == bundleExtension ? item / "job.xml" : item);
    const std::size_t begin = text.find(mark);
    if (begin == std::string::npos) return std::nullopt;
    return std::atoi(text.c_str() + begin + mark.size());
}

std::multimap<int, fs::path> SoakHome::ordersIn(const fs::path& folder) {
    std::multimap<int, fs::path> orders;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (entry->path().filename().string().starts_with(".")) continue;
        if (const auto number = numberOfOrder(entry->path())) orders.emplace(*number, entry->path());
    }
    return orders;
}

} // namespace soak
