#include "net/SngScanResponder.h"

#include <string>

#include "toolkit/BtkClock.h"
#include "toolkit/BtkLogger.h"

namespace {

std::string cut(const std::string& text) { return text.substr(0, SngScanResponder::kMaxReplyString); }

}  // namespace

SngScanResponder::~SngScanResponder() {
  if (socket_ != ENET_SOCKET_NULL) enet_socket_destroy(socket_);
}

void SngScanResponder::open(uint16_t port) {
  socket_ = enet_socket_create(ENET_SOCKET_TYPE_DATAGRAM);
  if (socket_ == ENET_SOCKET_NULL) return btkLogger.log(BTK_ERROR, "Failed to create socket\n");
  if (enet_socket_set_option(socket_, ENET_SOCKOPT_REUSEADDR, 1) != 0) {
    return btkLogger.log(BTK_ERROR, "Failed to enable reuse address\n");
  }
  ENetAddress address{};
  address.host = ENET_HOST_ANY;
  address.port = port;
  if (enet_socket_bind(socket_, &address) != 0) return btkLogger.log(BTK_ERROR, "Failed to bind listen socket\n");
  if (enet_socket_get_address(socket_, &address) != 0) {
    return btkLogger.log(BTK_ERROR, "Cannot get listen socket address\n");
  }
  port_ = address.port;
  btkLogger.log(BTK_INFO, "Listening for scans on port %d\n", address.port);
}

SngScanReply SngScanResponder::reply() const {
  const SngSituation& situation = session_.situation;
  SngScanReply reply;
  reply.server_name = cut(situation.mp_server_name);
  reply.server_address = cut(situation.mp_server_address);
  reply.scenery_name = cut(session_.scenery_dir);
  reply.port = static_cast<uint16_t>(situation.mp_server_port);
  for (size_t slot = 0; slot < players_.size(); ++slot) {
    const SngSrvPlayer* player = players_.at(static_cast<uint32_t>(slot));
    reply.num_players += player && !player->idle;
  }
  reply.max_players = static_cast<uint16_t>(situation.mp_max_players);
  if (situation.turnpoints.size() > 1) {
    SngTaskProgress task;
    task.turnpoints = situation.turnpoints;
    task.computeLength();
    reply.task_km = static_cast<uint16_t>(static_cast<int64_t>(task.length / 1000.0));
  }
  return reply;
}

void SngScanResponder::poll() {
  if (socket_ == ENET_SOCKET_NULL) return;
  enet_uint32 condition = ENET_SOCKET_WAIT_RECEIVE;
  if (enet_socket_wait(socket_, &condition, 0) != 0 || !(condition & ENET_SOCKET_WAIT_RECEIVE)) return;
  uint8_t request = 0;
  ENetBuffer buffer{&request, 1};
  ENetAddress from{};
  // A datagram longer than one byte does not fit and is reported as an error: it is dropped.
  if (enet_socket_receive(socket_, &from, &buffer, 1) <= 0) return;

  const double now = btkWallClockMs();
  const SngScanLimiter::Verdict verdict = limiter_.check(ENET_NET_TO_HOST_32(from.host), now);
  if (verdict != SngScanLimiter::ANSWER) {
    ++(verdict == SngScanLimiter::NOT_LOCAL ? refused_not_local_ : refused_rate_);
    if (now - refused_log_ms_ >= kRefusedLogIntervalMs) {
      btkLogger.log(BTK_WARNING, "Scan requests refused: %llu from outside the local network, %llu over the rate",
                    static_cast<unsigned long long>(refused_not_local_), static_cast<unsigned long long>(refused_rate_));
      refused_log_ms_ = now;
      refused_not_local_ = refused_rate_ = 0;
    }
    return;
  }
  char host[64] = "";
  enet_address_get_host_ip(&from, host, sizeof host);
  btkLogger.log(BTK_DEBUG, "Scan port: received (%d) from %s:%d\n", static_cast<int8_t>(request), host, from.port);
  SngPacket packet;
  reply().write(packet);
  ENetBuffer out{packet.bytes.data(), packet.bytes.size()};
  if (enet_socket_send(socket_, &from, &out, 1) < static_cast<int>(packet.bytes.size())) {
    btkLogger.log(BTK_ERROR, "Failed to reply to scanner\n");
    return;
  }
  ++numAnswered;
}
