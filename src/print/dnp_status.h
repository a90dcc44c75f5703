// What a DNP printer answers to queries: status words, and the prints left. Pure functions, any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The words for a status reply ("00000" or "FU00001"); "Unknown Status: " and the reply for one that is not known.
/// A reply that is no number counts as 0.
std::string dnp_stringForStatus(std::string_view reply);

/// The words under which a page may be queued, and under which data may be sent.
std::vector<std::string> dnp_waitCodesAcceptableForQueueing();
std::vector<std::string> dnp_waitCodesAcceptableForReceiving();

/// The prints left, from the reply to the query MQTY: "MQTY0350" gives 350.
std::int64_t dnp_mediaRemainingForMQTY(std::string_view reply);
