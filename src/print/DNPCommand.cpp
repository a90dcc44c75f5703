#include "print/DNPCommand.h"

#include "base/Log.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

/// How many bytes of payload a command takes.
enum class Payload { none, four, eight, any };

struct Command {
    int code;
    std::string_view group;
    std::string_view item;
    Payload payload = Payload::none;
};

constexpr Command commands[] = {
    {0, "STATUS", ""},
    {1, "INFO  ", "FVER"},
    {2, "INFO  ", "SERIAL_NUMBER"},
    {3, "INFO  ", "SENSOR"},
    {4, "INFO  ", "MEDIA"},
    {5, "INFO  ", "MEDIA_CLASS_RFID"},
    {8, "INFO  ", "FREE_PBUFFER"},
    {9, "INFO  ", "MQTY"},
    {10, "INFO  ", "RQTY"},
    {13, "INFO  ", "MQTY_DEFAULT"},
    {14, "INFO  ", "MEDIA_OFFSET"},
    {15, "INFO  ", "UNIT_FVER"},
    {16, "INFO  ", "UNIT_STATUS"},
    {17, "INFO  ", "UNIT_CUT_PAPER"},
    {18, "MNT_RD", "COUNTER_DUPLEX"},
    {19, "CNTRL ", "DUPLEX_CANCEL"},
    {20, "INFO  ", "PANORAMA_PRINT"},
    {21, "CNTRL ", "CONT_PANORAMA", Payload::eight},
    {22, "CNTRL ", "QTY", Payload::eight},
    {23, "IMAGE ", "MULTICUT", Payload::eight},
    {24, "CNTRL ", "OVERCOAT", Payload::eight},
    {25, "IMAGE ", "YPLANE", Payload::any},
    {26, "IMAGE ", "MPLANE", Payload::any},
    {27, "IMAGE ", "CPLANE", Payload::any},
    {28, "CNTRL ", "CUTTER", Payload::eight},
    {29, "CNTRL ", "FULL_CUTTER_SET", Payload::any},
    {30, "CNTRL ", "PRINTSPEED", Payload::eight},
    {31, "CNTRL ", "START"},
    {32, "CNTRL ", "BUFFCNTRL", Payload::eight},
    {33, "TBL_CL", ""},
    {34, "TBL_WT", "CTRLD_UPDATE_CW", Payload::any},
    {35, "TBL_RD", "Version"},
    {36, "TBL_WT", "Version", Payload::any},
    {37, "MNT_RD", "CTRLD_CHKSUM"},
    {38, "TBL_RD", "CWD300_Version", Payload::any},
    {39, "TBL_RD", "CWD600_Version", Payload::any},
    {40, "TBL_RD", "CWD610_Version", Payload::any},
    {41, "TBL_RD", "CWD620_Version", Payload::any},
    {42, "TBL_RD", "CWD300_Checksum", Payload::any},
    {43, "TBL_RD", "CWD600_Checksum", Payload::any},
    {44, "TBL_RD", "CWD610_Checksum", Payload::any},
    {45, "TBL_RD", "CWD620_Checksum", Payload::any},
    {46, "MNT_RD", "COUNTER_LIFE"},
    {47, "MNT_RD", "COUNTER_A"},
    {48, "MNT_RD", "COUNTER_B"},
    {49, "MNT_WT", "COUNTER_CLEAR", Payload::four},
    {50, "MNT_RD", "COUNTER_P"},
    {51, "MNT_WT", "COUNTERP_SET", Payload::eight},
    {52, "MNT_RD", "COUNTER_MATTE"},
    {53, "MNT_RD", "COUNTER_M"},
    {54, "FW_UPD", "FLASH_REWRITE"},
    {55, "FW_UPD", "FLASH_PROGRAM", Payload::any},
    {56, "MNT_WT", "USB_ISERI_SET", Payload::four},
    {57, "MNT_RD", "USB_ISERI_SET"},
};

constexpr std::uint8_t escape = 0x1B;
constexpr std::size_t textOffset = 2;
constexpr std::size_t lengthOffset = 24;
constexpr std::size_t lengthSize = dnp_headerSize - lengthOffset;

std::string textOf(const Command& command) {
    return std::string(command.group).append(command.item);
}

const Command* commandForCode(std::int64_t code) {
    const auto* row = std::ranges::find(commands, code, &Command::code);
    return row == std::end(commands) ? nullptr : row;
}

/// The number of bytes that the command insists on.
std::optional<std::size_t> requiredSize(Payload payload) {
    if (payload == Payload::four) return 4;
    if (payload == Payload::eight) return 8;
    return std::nullopt;
}

} // namespace

std::optional<std::string> dnp_stringForCommandCode(std::int64_t code) {
    const Command* command = commandForCode(code);
    if (!command) return std::nullopt;
    return textOf(*command);
}

std::optional<int> dnp_commandCodeForString(std::string_view text) {
    const auto plain = [](std::string_view spaced) { return base::replacingAll(spaced, " ", ""); };
    const std::string wanted = plain(text);
    const auto* row = std::ranges::find_if(
        commands, [&](const Command& command) { return base::equalIgnoringCase(plain(textOf(command)), wanted); });
    if (row == std::end(commands)) return std::nullopt;
    return row->code;
}

std::optional<std::size_t> dnp_payloadSizeForCommandCode(std::int64_t code) {
    const Command* command = commandForCode(code);
    return command ? requiredSize(command->payload) : std::nullopt;
}

std::optional<base::Data> dnp_printerCommandData(std::int64_t code, const base::Data* payload) {
    const std::size_t size = payload ? payload->size() : 0;
    const Command* command = commandForCode(code);
    const Payload rule = command ? command->payload : Payload::none;
    if (const auto required = dnp_payloadSizeForCommandCode(code); required && size != *required) {
        base::log("ERROR: incorrect payload size for command code:%ld (%s:L%d)", code, __func__, __LINE__);
        return std::nullopt;
    }
    if (rule == Payload::none && size != 0)
        base::log("ERROR: unrecognized payload size for command code:%ld (%s:L%d)", code, __func__, __LINE__);

    base::Data packet;
    packet.bytes.reserve(dnp_headerSize + size);
    packet.bytes.assign(dnp_headerSize, ' ');
    packet.bytes[0] = escape;
    packet.bytes[1] = 'P';
    char* header = reinterpret_cast<char*>(packet.bytes.data());
    if (command) {
        safeCopyCStringToBufferAtOffset(textOf(*command).c_str(), header, dnp_headerSize, textOffset);
        std::array<char, 24> length{};
        std::snprintf(length.data(), length.size(), "%08zd", size);
        if (payload) safeCopyCStringToBufferAtOffset(length.data(), header, dnp_headerSize, lengthOffset);
    } else {
        base::log("Internal error 3 L%d", __LINE__);
    }
    if (payload) packet.bytes.insert(packet.bytes.end(), payload->bytes.begin(), payload->bytes.end());
    return packet;
}

void safeCopyCStringToBufferAtOffset(const char* text, char* buffer, std::size_t bufferSize, std::size_t offset) {
    if (!text || !buffer) {
        base::log("Internal error 2 L%d", __LINE__);
        return;
    }
    const std::size_t size = std::strlen(text);
    if (offset > bufferSize || size > bufferSize - offset) {
        base::log("Internal error 1 L%d", __LINE__);
        return;
    }
    std::memcpy(buffer + offset, text, size);
}

// Reading -----------------------------------------------------------------------------------------------------------

std::nullopt_t DNPPacketReader::fail(std::uint64_t offset, std::string reason) {
    if (!fault_) fault_ = DNPPacketFault{offset, std::move(reason)};
    return std::nullopt;
}

/// Fewer bytes than the buffer takes mean the end of the stream, or a fault of the source.
std::size_t DNPPacketReader::read(std::span<std::uint8_t> buffer) {
    std::size_t count = 0;
    while (count < buffer.size()) {
        const auto more = source_(buffer.subspan(count));
        if (!more) fail(offset_, more.error().localizedDescription);
        if (!more || *more == 0) break;
        count += *more;
        offset_ += *more;
    }
    return count;
}

std::optional<DNPPacket> DNPPacketReader::next() {
    if (fault_) return std::nullopt;
    DNPPacket packet;
    packet.offset = offset_;
    std::array<std::uint8_t, dnp_headerSize> header{};
    const std::size_t count = read(header);
    if (fault_ || count == 0) return std::nullopt;
    if (header[0] != escape) return fail(packet.offset, "a packet begins with an escape");
    if (count > 1 && header[1] != 'P') return fail(packet.offset + 1, "a \"P\" follows the escape of a packet");
    if (count < header.size())
        return fail(offset_, "the stream ends within a header, after " + std::to_string(count) + " of its " +
                                 std::to_string(header.size()) + " bytes");

    const std::string_view text(reinterpret_cast<const char*>(header.data()), header.size());
    std::string_view name = text.substr(textOffset, lengthOffset - textOffset);
    name = name.substr(0, name.find_last_not_of(' ') + 1);
    const auto* command = std::ranges::find(commands, name, textOf);
    if (command == std::end(commands))
        return fail(packet.offset + textOffset, "the command \"" + std::string(name) + "\" is not known");
    packet.code = command->code;
    packet.command = name;

    const std::string_view length = text.substr(lengthOffset, lengthSize);
    if (length.find_first_not_of(' ') != length.npos) {
        std::uint64_t number = 0;
        const auto [end, failed] = std::from_chars(length.data(), length.data() + length.size(), number);
        if (failed != std::errc() || end != length.data() + length.size())
            return fail(packet.offset + lengthOffset, "the length of the payload of " + packet.command + " is \"" +
                                                          std::string(length) + "\", neither eight digits nor blank");
        packet.payloadLength = number;
    }
    const std::uint64_t size = packet.payloadLength.value_or(0);
    const auto required = requiredSize(command->payload);
    if ((required && size != *required) || (command->payload == Payload::none && size != 0))
        return fail(packet.offset + lengthOffset, required ? packet.command + " takes " + std::to_string(*required) +
                                                                 " bytes of payload, not " + std::to_string(size)
                                                           : packet.command + " takes no payload, but tells one of " +
                                                                 std::to_string(size) + " bytes");
    return readPayload(packet, size) ? std::optional(std::move(packet)) : std::nullopt;
}

bool DNPPacketReader::readPayload(DNPPacket& packet, std::uint64_t size) {
    std::array<std::uint8_t, 16384> buffer;
    for (std::uint64_t left = size; left > 0;) {
        const auto wanted =
            std::span(buffer).first(static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size())));
        const std::size_t count = read(wanted);
        auto& kept = packet.payload.bytes;
        const auto room = static_cast<std::ptrdiff_t>(std::min(count, keptPayload_ - kept.size()));
        kept.insert(kept.end(), buffer.begin(), buffer.begin() + room);
        left -= count;
        if (count == wanted.size()) continue;
        fail(offset_, "the payload of " + packet.command + " ends after " + std::to_string(size - left) + " of its " +
                          std::to_string(size) + " bytes");
        return false;
    }
    return true;
}

DNPPackets readPackets(std::span<const std::uint8_t> bytes) {
    DNPPacketReader reader([&](std::span<std::uint8_t> buffer) -> base::Result<std::size_t> {
        const std::size_t count = std::min(buffer.size(), bytes.size());
        std::ranges::copy(bytes.first(count), buffer.begin());
        bytes = bytes.subspan(count);
        return count;
    });
    DNPPackets result;
    while (auto packet = reader.next())
        result.packets.push_back(std::move(*packet));
    result.fault = reader.fault();
    return result;
}
