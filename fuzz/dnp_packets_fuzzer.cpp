// A stream of packets for DNP's printers.
#include "Fuzzing.h"
#include "print/DNPCommand.h"
#include "print/dnp_photo.h"
#include "print/dnp_status.h"

#include <algorithm>

using fuzzing::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    const DNPPackets read = readPackets({bytes, size});
    std::size_t end = 0;
    for (const DNPPacket& packet : read.packets) {
        require(packet.offset == end, "packets follow each other");
        require(packet.payload.size() == packet.payloadLength.value_or(0), "a payload is whole");
        const auto made = dnp_printerCommandData(packet.code, packet.payloadLength ? &packet.payload : nullptr);
        require(made.has_value() && end + made->size() <= size &&
                    std::equal(made->bytes.begin(), made->bytes.end(), bytes + end),
                "a packet is made as it was read");
        end += made->size();
    }
    require(read.fault ? read.fault->offset >= end && read.fault->offset <= size : end == size,
            "a fault lies behind the good packets");

    // What a printer replies is text.
    const std::string_view reply(reinterpret_cast<const char*>(bytes), size);
    require(!dnp_stringForStatus(reply).empty(), "every status has words");
    dnp_mediaRemainingForMQTY(reply);
    const std::int32_t multicut = dnp_defaultMulticutForMedia(reply);
    require(multicut == 0 || dnp_mediaTypeSupportsMulticut(reply, multicut), "a medium supports its default");
    return 0;
}
