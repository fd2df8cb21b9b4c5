// A LAN scan as a simulator makes it: one byte to a server's scan port, then every reply that comes.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "wire/SngMessages.h"

struct QvScanAnswer {
  std::string from;  // "address:port" of the server that answered
  SngScanReply reply;
};

// Sends the requests (one datagram each; a simulator sends a single byte) to host:port, an IPv4
// address, and collects the replies until `wait` passes without one. Replies that do not parse are
// skipped. Empty on a bad address or socket error.
std::vector<QvScanAnswer> qvScan(const std::string& host, uint16_t port, std::chrono::milliseconds wait,
                                 const std::vector<std::vector<uint8_t>>& requests = {{0}});
