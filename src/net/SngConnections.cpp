#include "net/SngConnections.h"

#include <cstdio>
#include <vector>

#include "toolkit/BtkClock.h"
#include "toolkit/BtkLogger.h"
#include "wire/SngMessages.h"
#include "wire/SngNet.h"

namespace {

constexpr double kForeignLogIntervalMs = 60000.0;

}  // namespace

SngConnections::Connection* SngConnections::find(const SngPeer& peer) {
  auto it = connections_.find(peer.serial);
  return it != connections_.end() && it->second.peer == peer ? &it->second : nullptr;
}

int SngConnections::recordsOf(const SngPeer& peer) const {
  int count = 0;
  for (size_t slot = 0; slot < players_.size(); ++slot) {
    const SngSrvPlayer* player = players_.at(static_cast<uint32_t>(slot));
    count += player && player->peer == peer;
  }
  return count;
}

void SngConnections::onConnect(const SngPeer& peer, const SngPeerInfo& info) {
  Connection conn;
  conn.peer = peer;
  conn.orphan_since_ms = btkWallClockMs();
  conn.diag_window_start_ms = conn.orphan_since_ms;
  connections_[peer.serial] = conn;
  const std::string address = peer.hostText();
  btkLogger.log(BTK_INFO, "New connection from %s (peer = %d/%d)", address.c_str(), info.outgoing_peer_id,
                info.incoming_peer_id);
  fprintf(stderr, "New connection from %s\n", address.c_str());
}

void SngConnections::onDisconnect(const SngPeer& peer, const SngPeerInfo& info) {
  btkLogger.log(BTK_INFO, "Peer disconnected (peer = %d/%d)", info.outgoing_peer_id, info.incoming_peer_id);
  if (find(peer)) connections_.erase(peer.serial);
  // One connection can own several records (several LOGINs with different hardware IDs): all go idle.
  for (size_t slot = 0; slot < players_.size(); ++slot) {
    SngSrvPlayer* player = players_.at(static_cast<uint32_t>(slot));
    if (!player || !(player->peer == peer)) continue;
    fprintf(stderr, "player_id = %zu idle\n", slot);
    player->idle = true;
    player->setPeer(SngPeer());
    if (player->idle_time_left < kDisconnectIdleSeconds) player->idle_time_left = kDisconnectIdleSeconds;
    btkLogger.log(BTK_INFO, "Player %zu (%s) is idle (%f seconds left)", slot, player->nick.c_str(),
                  player->idle_time_left);
  }
}

void SngConnections::handleLogin(SngPacket& packet, const SngPeer& peer) {
  const bool trace = traceAllowed(peer);
  const int length = static_cast<int>(packet.bytes.size());
  if (trace) fputs("LOGIN: \n", stdout);
  SngLoginMsg login;
  SngLoginMsg::Field missing = SngLoginMsg::VERSION;
  const bool complete = login.read(packet, &missing);
  if (trace) {
    if (complete || missing > SngLoginMsg::HW_ID) fprintf(stdout, "  HW = 0x%X\n", login.hw_id);
    if (complete || missing > SngLoginMsg::PILOT_NAME) fprintf(stdout, "  Player name = %s\n", login.pilot_name.c_str());
    if (complete) {
      fprintf(stdout, "  Nick = %s\n", login.nick.c_str());
      SngNetwork* network = out_.network();
      fprintf(stdout, "  avg. RTT = %ums\n", network ? network->info(peer).round_trip_ms : 0u);
    }
    fflush(stdout);
  }
  if (!complete) {
    if (!trace) return;
    switch (missing) {
      case SngLoginMsg::VERSION: fputs("SngNet::LOGIN: missing version\n", stderr); break;
      case SngLoginMsg::HW_ID: btkLogger.log(BTK_ERROR, "LOGIN: Missing HW ID, length = %d", length); break;
      case SngLoginMsg::PILOT_NAME:
        btkLogger.log(BTK_ERROR, "LOGIN: Missing player name, length = %d", length);
        fprintf(stderr, "SngNet::LOGIN: missing player name, length = %d\n", length);
        break;
      case SngLoginMsg::NICK: btkLogger.log(BTK_ERROR, "LOGIN: Missing nick, length = %d", length); break;
    }
    return;
  }
  const bool versionOk = login.version_major > SngNet::PROTOCOL_VERSION_MAJOR ||
                         (login.version_major == SngNet::PROTOCOL_VERSION_MAJOR &&
                          login.version_minor >= SngNet::PROTOCOL_VERSION_MINOR);
  uint32_t playerId = 0;
  const uint8_t result = versionOk ? loginPlayer(peer, login, playerId) : SngNet::RESULT_VERSION_TOO_OLD;
  if (trace) btkLogger.log(BTK_DEBUG, "LOGIN(%s): result = %d", login.nick.c_str(), result);
  if (result == SngNet::RESULT_OK) return broadcasts_.sendServerInfo(playerId, trace);
  SngPacket answer;
  answer.putU8(result);
  out_.sendToPeer(peer, answer, true);
}

uint8_t SngConnections::loginPlayer(const SngPeer& peer, const SngLoginMsg& login, uint32_t& playerId) {
  const std::string address = peer.hostText();
  for (size_t slot = 0; slot < players_.size(); ++slot) {
    SngSrvPlayer* player = players_.at(static_cast<uint32_t>(slot));
    if (!player || player->hw_id != login.hw_id || player->host != address) continue;
    if (traceAllowed(peer)) btkLogger.log(BTK_INFO, "Reconnect player: ID = %zu. HW = 0x%X, host = %s, name = %s, nick = %s", slot,
                  login.hw_id, address.c_str(), login.pilot_name.c_str(), login.nick.c_str());
    player->client_version_major = login.version_major;
    player->client_version_minor = login.version_minor;
    player->name = login.pilot_name;
    player->setPeer(peer);
    player->nick = login.nick;
    player->idle = true;
    player->idle_time_left = SngSrvPlayer::kLoginIdleSeconds;
    playerId = static_cast<uint32_t>(slot);
    return SngNet::RESULT_OK;
  }
  if (recordsOf(peer) >= kMaxRecordsPerConnection) {
    if (traceAllowed(peer)) {
      btkLogger.log(BTK_WARNING, "LOGIN refused: connection from %s already has %d players (HW = 0x%X)",
                    address.c_str(), kMaxRecordsPerConnection, login.hw_id);
    }
    return SngNet::RESULT_SERVER_FULL;
  }
  const int slot = players_.freeSlot();
  if (slot < 0) return SngNet::RESULT_SERVER_FULL;
  if (traceAllowed(peer)) btkLogger.log(BTK_INFO, "New player: ID = %d. HW = 0x%X, host = %s, name = %s, nick = %s", slot, login.hw_id,
                address.c_str(), login.pilot_name.c_str(), login.nick.c_str());
  auto player = std::make_unique<SngSrvPlayer>(&host_, peer, static_cast<uint32_t>(slot), login.hw_id);
  player->client_version_major = login.version_major;
  player->client_version_minor = login.version_minor;
  player->name = login.pilot_name;
  player->nick = login.nick;
  player->idle_time_left = SngSrvPlayer::kLoginIdleSeconds;
  player->comm_channel = session_.default_comm_channel;
  players_.seat(std::move(player));
  playerId = static_cast<uint32_t>(slot);
  return SngNet::RESULT_OK;
}

void SngConnections::leaveIdle(SngSrvPlayer& player, const SngPeer& sender, uint8_t opcode) {
  if (!player.idle) return;
  if (traceAllowed(sender)) {
    btkLogger.log(BTK_INFO, "Player %u (%s) is no longer idle (%f seconds left) opcode = 0x%X", player.player_id,
                  player.nick.c_str(), player.idle_time_left, opcode);
  }
  player.setPeer(sender);
  player.idle = false;
  player.idle_time_left = 0.0f;
}

void SngConnections::disconnectPlayer(uint32_t id, bool trace) {
  if (trace) {
    fprintf(stderr, "Player %u disconnected\n", id);
    btkLogger.log(BTK_INFO, "Disconnect player: ID = %u", id);
  }
  broadcasts_.bcastPlayerLeft(id);
  if (!players_.at(id)) return;
  if (trace) btkLogger.log(BTK_DEBUG, "Delete player: ID = %u", id);
  players_.remove(id);
}

SngSrvPlayer* SngConnections::senderPlayer(uint8_t id, const SngPeer& sender, uint8_t opcode) {
  SngSrvPlayer* player = players_.at(id);
  if (!player) return nullptr;
  if (player->peer == sender) return player;
  if (!player->peer && player->host == sender.hostText()) return player;
  // Another connection names this player: a client must never log out, move or speak for another.
  ++numForeignMessages;
  if (Connection* conn = find(sender)) {
    ++conn->foreign_messages;
    const double now = btkWallClockMs();
    if (now - conn->foreign_log_ms >= kForeignLogIntervalMs) {
      conn->foreign_log_ms = now;
      btkLogger.log(BTK_WARNING, "Dropped opcode 0x%X from %s naming player %d of another connection (%llu so far)",
                    opcode, sender.hostText().c_str(), id, static_cast<unsigned long long>(conn->foreign_messages));
    }
  }
  return nullptr;
}

bool SngConnections::traceAllowed(const SngPeer& peer) {
  Connection* conn = find(peer);
  if (!conn) return true;
  const double now = btkWallClockMs();
  if (now - conn->diag_window_start_ms >= kDiagnosticWindowMs) {
    if (conn->diag_suppressed > 0) {
      btkLogger.log(BTK_WARNING, "Connection from %s: %d diagnostic lines suppressed in the last minute",
                    peer.hostText().c_str(), conn->diag_suppressed);
    }
    conn->diag_window_start_ms = now;
    conn->diag_lines = 0;
    conn->diag_suppressed = 0;
  }
  if (conn->diag_lines < kDiagnosticLinesPerMinute) {
    ++conn->diag_lines;
    return true;
  }
  ++conn->diag_suppressed;
  return false;
}

void SngConnections::maintain() {
  const double now = btkWallClockMs();
  std::vector<SngPeer> toClose;
  for (auto& [serial, conn] : connections_) {
    // A window that ran out with lines held back still gets its summary, even if the flood stopped.
    if (conn.diag_suppressed > 0 && now - conn.diag_window_start_ms >= kDiagnosticWindowMs) {
      btkLogger.log(BTK_WARNING, "Connection from %s: %d diagnostic lines suppressed in the last minute",
                    conn.peer.hostText().c_str(), conn.diag_suppressed);
      conn.diag_suppressed = 0;
      conn.diag_lines = 0;
      conn.diag_window_start_ms = now;
    }
    if (recordsOf(conn.peer) > 0) {
      conn.orphan_since_ms = -1.0;
    } else if (conn.orphan_since_ms < 0.0) {
      conn.orphan_since_ms = now;
    } else if (now - conn.orphan_since_ms > kOrphanConnectionMs) {
      toClose.push_back(conn.peer);
    }
  }
  for (const SngPeer& peer : toClose) {
    btkLogger.log(BTK_INFO, "Closing connection from %s: no player for %.0f s", peer.hostText().c_str(),
                  kOrphanConnectionMs / 1000.0);
    connections_.erase(peer.serial);
    if (SngNetwork* network = out_.network()) network->disconnect(peer);
  }
}
