#include "platform/draw/NamedImages.h"

#include <map>
#include <mutex>
#include <string>

namespace platform::draw {
namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, ImageRef, std::less<>> images;
};
Registry& registry() {
    static auto* shared = new Registry; // outlives every user at exit
    return *shared;
}

} // namespace

ImageRef imageNamed(std::string_view name) {
    const std::lock_guard lock(registry().mutex);
    const auto found = registry().images.find(name);
    return found == registry().images.end() ? nullptr : found->second;
}

void setImageNamed(std::string_view name, ImageRef image) {
    const std::lock_guard lock(registry().mutex);
    if (image)
        registry().images.insert_or_assign(std::string(name), std::move(image));
    else
        registry().images.erase(std::string(name));
}

} // namespace platform::draw
