#include "platform/data/UUID.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <random>
#include <sys/random.h>

namespace platform::data {

std::string makeUUIDString() {
    std::array<std::uint8_t, 16> bytes;
    ssize_t filled;
    do {
        filled = getrandom(bytes.data(), bytes.size(), 0);
    } while (filled < 0 && errno == EINTR);
    if (filled != static_cast<ssize_t>(bytes.size())) {
        std::random_device source;
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(source());
        }
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4: random
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // the variant of RFC 4122

    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) text += '-';
        text += "0123456789ABCDEF"[bytes[index] >> 4];
        text += "0123456789ABCDEF"[bytes[index] & 15];
    }
    return text;
}

} // namespace platform::data
