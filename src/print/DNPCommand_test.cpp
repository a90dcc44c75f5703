#include "print/DNPCommand.h"

#include "support/LogCapture.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace {

constexpr int lastCode = 57;

std::optional<base::Data> packetOf(int code, const std::string& payload) {
    const base::Data data(payload);
    return dnp_printerCommandData(code, &data);
}

/// A packet of the command as it takes them.
base::Data anyPacketOf(int code) {
    for (const char* payload : {"", "1234", "12345678"})
        if (const auto packet = packetOf(code, payload)) return *packet;
    ADD_FAILURE() << "no packet for " << code;
    return {};
}

std::string stream() {
    std::string bytes;
    for (const int code : {22, 25, 31})
        bytes += packetOf(code, code == 31 ? "" : "0000001\r")->asText();
    return bytes;
}

DNPPackets packetsOf(std::string_view bytes) {
    return readPackets({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

} // namespace

TEST(DNPCommand, PacketIsAsPrintersTakeIt) {
    EXPECT_EQ(packetOf(22, "0000001\r")->asText(), "\x1bPCNTRL QTY             000000080000001\r");
    EXPECT_EQ(dnp_printerCommandData(1, nullptr)->asText(), "\x1bPINFO  FVER                    ");
    EXPECT_EQ(packetOf(25, "")->asText(), "\x1bPIMAGE YPLANE          00000000");
}

TEST(DNPCommand, EveryPacketIsReadBackToItself) {
    const support::LogCapture log;
    std::set<std::int64_t> without;
    for (int code = 0; code <= lastCode; ++code) {
        const auto text = dnp_stringForCommandCode(code);
        if (!text) {
            without.insert(code);
            continue;
        }
        EXPECT_EQ(dnp_commandCodeForString(*text), code) << *text;
        const base::Data bytes = anyPacketOf(code);
        const DNPPackets read = packetsOf(bytes.asText());
        ASSERT_FALSE(read.fault) << read.fault->reason;
        ASSERT_EQ(read.packets.size(), 1u);
        EXPECT_EQ(read.packets[0].code, code);
        EXPECT_EQ(packetOf(read.packets[0].code, std::string(read.packets[0].payload.asText())), bytes);
    }
    EXPECT_EQ(without, (std::set<std::int64_t>{6, 7, 11, 12}));
    EXPECT_FALSE(dnp_stringForCommandCode(lastCode + 1) || dnp_stringForCommandCode(-1));
    EXPECT_EQ(dnp_commandCodeForString("info fver"), 1);
    EXPECT_FALSE(dnp_commandCodeForString(""));
}

TEST(DNPCommand, PayloadsOfTheWrongSizeAreRefusedOrTold) {
    using Codes = std::set<int>;
    const Codes eight{21, 22, 23, 24, 28, 30, 32, 51}, four{49, 56};
    const Codes any{25, 26, 27, 29, 34, 36, 38, 39, 40, 41, 42, 43, 44, 45, 55};
    for (int code = -1; code < 60; ++code)
        for (const std::size_t size : {0u, 4u, 8u, 9u}) {
            const support::LogCapture log;
            const bool refused = !packetOf(code, std::string(size, '0'));
            const bool told = log.has("ERROR: unrecognized payload size for command code:" + std::to_string(code) +
                                      " (dnp_printerCommandData:L");
            EXPECT_EQ(refused, (eight.contains(code) && size != 8) || (four.contains(code) && size != 4)) << code;
            EXPECT_EQ(refused,
                      log.has("ERROR: incorrect payload size for command code:" + std::to_string(code) + " ("));
            EXPECT_EQ(told, size != 0 && !eight.contains(code) && !four.contains(code) && !any.contains(code)) << code;
            EXPECT_EQ(log.has("Internal error 3 L"), !dnp_stringForCommandCode(code)) << code;
        }

    const support::LogCapture log;
    EXPECT_EQ(packetOf(6, "ab")->asText(), "\x1bP" + std::string(30, ' ') + "ab");
    char buffer[] = "abcdef";
    safeCopyCStringToBufferAtOffset("xyz", buffer, 6, 3);
    EXPECT_STREQ(buffer, "abcxyz");
    for (const std::size_t offset : {4u, 7u})
        safeCopyCStringToBufferAtOffset("123", buffer, 6, offset);
    safeCopyCStringToBufferAtOffset(nullptr, buffer, 6, 0);
    safeCopyCStringToBufferAtOffset("123", nullptr, 6, 0);
    EXPECT_STREQ(buffer, "abcxyz");
    EXPECT_EQ(log.count("Internal error 1 L"), 2u);
    EXPECT_EQ(log.count("Internal error 2 L"), 2u);
}

TEST(DNPCommand, StreamIsReadUpToItsFirstFault) {
    const std::string whole = stream();
    const DNPPackets read = packetsOf(whole);
    ASSERT_FALSE(read.fault);
    ASSERT_EQ(read.packets.size(), 3u);
    EXPECT_EQ(read.packets[1].offset, 40u);
    EXPECT_EQ(read.packets[2].payloadLength, 0u);

    for (std::size_t size = 0; size < whole.size(); ++size) {
        const DNPPackets cut = packetsOf(whole.substr(0, size));
        EXPECT_EQ(cut.packets.size(), size / 40);
        ASSERT_EQ(cut.fault.has_value(), size % 40 != 0) << size;
        if (cut.fault) {
            EXPECT_EQ(cut.fault->offset, size);
        }
    }
    // Each byte of the second packet's header, changed.
    for (std::size_t at = 40; at < 72; ++at)
        for (const char byte : {'\0', ' ', '0', 'A', '\xff'}) {
            std::string changed = whole;
            if (std::exchange(changed[at], byte) == byte) continue;
            const DNPPackets other = packetsOf(changed);
            ASSERT_TRUE(other.fault) << at;
            const bool isShorter = at == 71 && byte == '0'; // what was its payload is no packet then
            EXPECT_EQ(other.fault->offset, at < 42 ? at : at < 64 ? 42 : isShorter ? 72 : 64) << other.fault->reason;
        }
    for (const auto& [packet, reason] :
         {std::pair("\x1bPCNTRL START           00000008", "CNTRL START takes no payload, but tells one of 8 bytes"),
          {"\x1bPCNTRL QTY                     ", "CNTRL QTY takes 8 bytes of payload, not 0"},
          {"\x1bPIMAGE YPLANE          99999999abc", "the payload of IMAGE YPLANE ends after 3 of its 99999999 bytes"}})
        EXPECT_EQ(packetsOf(packet).fault.value_or(DNPPacketFault{}).reason, reason);
}

TEST(DNPCommand, ReaderKeepsWhatItIsTold) {
    std::string left(packetOf(26, std::string(100000, 'x'))->asText());
    left += stream();
    DNPPacketReader reader(
        [&](std::span<std::uint8_t> buffer) -> base::Result<std::size_t> {
            if (left.empty()) return base::failure(base::posixErrorDomain, 5, "the cable is out");
            const std::size_t count = std::min<std::size_t>({buffer.size(), left.size(), 7});
            std::memcpy(buffer.data(), left.data(), count);
            left.erase(0, count);
            return count;
        },
        10);
    const auto plane = reader.next();
    ASSERT_TRUE(plane);
    EXPECT_EQ(plane->payloadLength, 100000u);
    EXPECT_EQ(plane->payload, base::Data(std::string(10, 'x')));
    while (reader.next()) {
    }
    EXPECT_EQ(reader.fault().value_or(DNPPacketFault{}).reason, "the cable is out");
}
