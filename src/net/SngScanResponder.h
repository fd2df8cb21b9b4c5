// Answers LAN scans on a plain UDP socket beside the ENet host: a one-byte datagram gets the server's
// name, address, scenery, game port, players, slots and task length. Polled once at the end of every
// pass with "-lan"; never blocks, answers at most one request per poll.
#pragma once

#include <enet/enet.h>

#include <cstdint>

#include "net/SngPlayerTable.h"
#include "net/SngScanLimiter.h"
#include "net/SngSession.h"
#include "wire/SngMessages.h"

class SngScanResponder {
 public:
  // Each string of the reply is cut to this many bytes, so that a reply stays under 300 bytes whatever
  // the situation says.
  static constexpr size_t kMaxReplyString = 63;
  static constexpr double kRefusedLogIntervalMs = 60000.0;

  SngScanResponder(const SngSession& session, const SngPlayerTable& players) : session_(session), players_(players) {}
  ~SngScanResponder();
  SngScanResponder(const SngScanResponder&) = delete;
  SngScanResponder& operator=(const SngScanResponder&) = delete;

  // Start-up: a failure is logged and the server runs on without answering scans.
  void open(uint16_t port);
  void poll();
  SngScanReply reply() const;
  uint16_t port() const { return port_; }  // as bound; 0 until open succeeded

  uint64_t numAnswered = 0;

 private:
  const SngSession& session_;
  const SngPlayerTable& players_;
  ENetSocket socket_ = ENET_SOCKET_NULL;
  uint16_t port_ = 0;
  SngScanLimiter limiter_;
  uint64_t refused_not_local_ = 0;  // since the last summary line
  uint64_t refused_rate_ = 0;
  double refused_log_ms_ = -1e300;
};
