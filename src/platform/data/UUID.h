// Universally unique identifiers. Any thread.
#pragma once

#include <string>

namespace platform::data {

/// A fresh random identifier in capitals: "1B4E28BA-2FA1-41D2-883F-0016D3CCA427".
std::string makeUUIDString();

} // namespace platform::data
