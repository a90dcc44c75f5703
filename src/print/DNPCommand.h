// The packets that DNP printers take: a header of 32 bytes (escape, "P", 22 bytes of command text, 8 of the payload's
// length in decimal, or blanks without one) and the payload. They are made here, and read back strictly. Command codes
// are this system's own numbers for the command texts. Functions without state, any thread; a reader belongs to one
// thread at a time.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t dnp_headerSize = 32;
/// What the eight digits of the length can tell.
inline constexpr std::uint64_t dnp_maximumPayloadSize = 99999999;

/// Group and item joined: "CNTRL QTY", "INFO  FVER". Nothing for a code that has none.
std::optional<std::string> dnp_stringForCommandCode(std::int64_t code);
/// The code whose text this is; blanks and the case of letters don't count. Nothing when there is none.
std::optional<int> dnp_commandCodeForString(std::string_view text);
/// The bytes of payload that a command insists on; nothing for one that doesn't.
std::optional<std::size_t> dnp_payloadSizeForCommandCode(std::int64_t code);

/// The packet, or nothing when the command's payload must have another size; a null payload is none. Each irregularity
/// is logged.
std::optional<base::Data> dnp_printerCommandData(std::int64_t code, const base::Data* payload);

/// Puts the text without a terminator into the buffer. A text that does not fit behind `offset`, and a null argument,
/// are logged and change nothing.
void safeCopyCStringToBufferAtOffset(const char* text, char* buffer, std::size_t bufferSize, std::size_t offset);

struct DNPPacket {
    std::uint64_t offset = 0; ///< Of its first byte in the stream.
    int code = 0;
    std::string command;                        ///< As dnp_stringForCommandCode writes it.
    std::optional<std::uint64_t> payloadLength; ///< Nothing when the length is blank.
    base::Data payload;                         ///< Its first bytes, as many as the reader keeps.
};

/// Where a stream stops being packets, and why ("the command \"CNTRL QTZ\" is not known").
struct DNPPacketFault {
    std::uint64_t offset = 0;
    std::string reason;
};

/// Reads a stream of packets. Strict: every byte of the header must be as dnp_printerCommandData writes it, a payload
/// must be whole and of the size that its command asks for, and a command that takes no payload has none. Memory grows
/// with what is kept of one payload and with what has truly arrived, whatever a header claims.
class DNPPacketReader {
public:
    /// Puts bytes into the buffer and answers how many; 0 at the end of the stream.
    using Source = std::function<base::Result<std::size_t>(std::span<std::uint8_t> buffer)>;

    explicit DNPPacketReader(Source source, std::size_t keptPayload = dnp_maximumPayloadSize)
        : source_(std::move(source)), keptPayload_(keptPayload) {}

    /// The next packet; nothing at the end of the stream, and from the first fault on.
    std::optional<DNPPacket> next();
    const std::optional<DNPPacketFault>& fault() const { return fault_; }

private:
    std::size_t read(std::span<std::uint8_t> buffer);
    std::nullopt_t fail(std::uint64_t offset, std::string reason);
    bool readPayload(DNPPacket& packet, std::uint64_t size);

    Source source_;
    std::size_t keptPayload_;
    std::uint64_t offset_ = 0;
    std::optional<DNPPacketFault> fault_;
};

struct DNPPackets {
    std::vector<DNPPacket> packets; ///< Those before the fault.
    std::optional<DNPPacketFault> fault;
};
/// All packets of a stream in memory, with their whole payloads.
DNPPackets readPackets(std::span<const std::uint8_t> bytes);
