#include "folders/DefaultsMirror.h"

#include <mutex>
#include <utility>

namespace folders {

namespace {

struct Held {
    std::mutex mutex;
    DefaultsMirror mirror;
};

Held& held() {
    static auto& held = *new Held;
    return held;
}

} // namespace

void setDefaultsMirror(DefaultsMirror mirror) {
    std::lock_guard lock(held().mutex);
    held().mirror = std::move(mirror);
}

void setDefaultObject(const base::Value& object, std::string_view key) {
    DefaultsMirror mirror;
    {
        std::lock_guard lock(held().mutex);
        mirror = held().mirror;
    }
    if (mirror) mirror(object, key);
}

} // namespace folders
