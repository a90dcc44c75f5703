#include "base/Places.h"

#include "base/Path.h"
#include "base/Text.h"

#include <cstdlib>
#include <filesystem>
#include <unistd.h>
#include <utility>

namespace base {

namespace {

std::string environmentFolder(const char* name, const std::string& otherwise) {
    const char* value = std::getenv(name);
    // The base-directory convention has relative paths ignored.
    return value && value[0] == '/' ? std::string(value) : otherwise;
}

bool isWritableFolder(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::is_directory(path, ignored) && access(path.c_str(), W_OK) == 0;
}

std::vector<std::string> resourceFolders() {
    std::vector<std::string> folders;
    std::error_code failed;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe", failed).string();
    if (!failed)
        folders.push_back(
            appendingPathComponent(deletingLastPathComponent(deletingLastPathComponent(program)), "share"));
    const char* shared = std::getenv("XDG_DATA_DIRS");
    for (std::string& folder : split(shared && *shared ? shared : "/usr/local/share:/usr/share", ":"))
        if (folder.starts_with('/')) folders.push_back(std::move(folder));
    for (std::string& folder : folders)
        folder = appendingPathComponent(folder, "velm");
    return folders;
}

Places& current() {
    static Places instance = Places::standard();
    return instance;
}

} // namespace

Places Places::standard() {
    Places places;
    places.home = environmentFolder("HOME", "/");
    const std::string data = environmentFolder("XDG_DATA_HOME", appendingPathComponent(places.home, ".local/share"));
    const std::string config = environmentFolder("XDG_CONFIG_HOME", appendingPathComponent(places.home, ".config"));
    const std::string state = environmentFolder("XDG_STATE_HOME", appendingPathComponent(places.home, ".local/state"));
    const std::string shared = "/var/lib/Kestrune/VELM";
    places.velmDirectory = isWritableFolder(shared) ? shared : appendingPathComponent(data, "Kestrune/VELM");
    places.settings = appendingPathComponent(config, "Kestrune");
    places.logs = appendingPathComponent(state, "Velm");
    std::error_code ignored;
    places.applications = std::filesystem::is_directory("/Applications", ignored)
                              ? "/Applications"
                              : appendingPathComponent(data, "Kestrune/Applications");
    places.colorProfiles = {appendingPathComponent(data, "color/icc"), "/usr/local/share/color/icc",
                            "/usr/share/color/icc"};
    places.resources = resourceFolders();
    return places;
}

Places Places::below(const std::string& directory) {
    Places places = standard();
    places.home = directory;
    places.velmDirectory = appendingPathComponent(directory, "VELM");
    places.settings = appendingPathComponent(directory, "Settings");
    places.logs = appendingPathComponent(directory, "Logs");
    places.applications = appendingPathComponent(directory, "Applications");
    return places;
}

const Places& places() {
    return current();
}

void setPlaces(Places places) {
    current() = std::move(places);
}

std::optional<URL> resourceURL(std::string_view name, std::string_view extension) {
    for (const std::string& folder : places().resources) {
        const std::string path = appendingPathComponent(folder, appendingPathExtension(std::string(name), extension));
        std::error_code ignored;
        if (std::filesystem::is_regular_file(path, ignored)) return URL::fileURLWithPath(path);
    }
    return std::nullopt;
}

} // namespace base
