// The way up from modules that store a user default to the application, which mirrors settings elsewhere. The
// application sets the callback once at its start; without one nothing is mirrored. Any thread.
#pragma once

#include "base/Value.h"

#include <functional>
#include <string_view>

namespace folders {

using DefaultsMirror = std::function<void(const base::Value& object, std::string_view key)>;

void setDefaultsMirror(DefaultsMirror mirror);
/// Hands the pair to the application.
void setDefaultObject(const base::Value& object, std::string_view key);

} // namespace folders
