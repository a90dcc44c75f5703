#include "print/dnp_status.h"

#include "base/Text.h"
#include "internal/CodeNames.h"

namespace {

using print::CodeName;
using print::nameForCode;

constexpr CodeName<std::int64_t> statuses[] = {
    {0, "Idle"},
    {1, "Printing"},
    {500, "Head cool down cycle"},
    {510, "Motor cool down cycle"},
    {900, "Sleeping (standby mode)"},
    {1000, "Cover Open"},
    {1010, "Scrap Box Missing"},
    {1100, "Paper End"},
    {1200, "Ribbon End"},
    {1300, "Paper Jam"},
    {1400, "Ribbon Error"},
    {1500, "Wrong Paper"},
    {1600, "Bad Data"},
    {2000, "Head Voltage Error"},
    {2100, "Head Position Error"},
    {2200, "Power supply Error"},
    {2300, "Cutter Error"},
    {2400, "Pinch Roller Error"},
    {2500, "Head Temp High Error"},
    {2600, "Media Temp Error"},
    {2610, "Motor Temp Error"},
    {2700, "Ribbon Tension Error"},
    {2800, "RFID Module Error"},
    {3000, "System Fail Error"},
};

} // namespace

std::string dnp_stringForStatus(std::string_view reply) {
    if (reply == "FU00001") return "Firmware Update Mode";
    return nameForCode(statuses, base::integerValue(reply)).value_or("Unknown Status: " + std::string(reply));
}

std::vector<std::string> dnp_waitCodesAcceptableForQueueing() {
    return {dnp_stringForStatus("0"), dnp_stringForStatus("1"), dnp_stringForStatus("900")};
}

std::vector<std::string> dnp_waitCodesAcceptableForReceiving() {
    return {dnp_stringForStatus("0"), dnp_stringForStatus("1")};
}

std::int64_t dnp_mediaRemainingForMQTY(std::string_view reply) {
    return base::integerValue(reply.starts_with("MQTY") ? reply.substr(4) : reply);
}
