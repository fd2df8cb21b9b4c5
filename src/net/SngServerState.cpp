#include "net/SngServerState.h"

#include "net/SngMessages.h"
#include "net/SngNet.h"
#include "terrain/GgScenery.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkLogger.h"

SngServerState::SngServerState() = default;

SngServerState::~SngServerState() {
  players.clear();
  removed_players_.clear();
}

SngSrvPlayer* SngServerState::playerAt(uint32_t id) const { return id < players.size() ? players[id].get() : nullptr; }

int SngServerState::playerCount() const {
  int count = 0;
  for (const auto& player : players) count += player != nullptr;
  return count;
}

bool SngServerState::isSeated(const SngSrvPlayer& player) const { return playerAt(player.player_id) == &player; }

void SngServerState::removePlayer(uint32_t id) {
  if (id >= players.size() || !players[id]) return;
  removed_players_.push_back(std::move(players[id]));
  players[id].reset();
  if (defer_depth_ == 0) releaseRemovedPlayers();
}

void SngServerState::releaseRemovedPlayers() { removed_players_.clear(); }

SngServerState::DeferScope::~DeferScope() {
  if (--server_.defer_depth_ == 0) server_.releaseRemovedPlayers();
}

void SngServerState::runNestedPass(int timeoutMs) {
  if (pass_depth_ >= kMaxPassDepth) {
    ++numSkippedNestedPasses;
    return;
  }
  update(timeoutMs);
}

void SngServerState::logEmptyPeer(const uint8_t* data, size_t size) {
  btkLogger.log(BTK_ERROR, "Trying to send data to empty peer");
  if (size == 0) {
    btkLogger.log(BTK_ERROR, "empty packet");
  } else {
    btkLogger.log(BTK_ERROR, "packet signature = 0x%X", data[0]);
  }
}

void SngServerState::sendToPeer(const SngPeer& peer, const SngPacket& packet, bool reliable) {
  if (!peer) return logEmptyPeer(packet.bytes.data(), packet.bytes.size());
  if (!host) return;
  if (host->send(&peer, 1, packet.bytes.data(), packet.bytes.size(), reliable) == 0) ++numDroppedSends;
}

void SngServerState::sendToPlayer(const SngSrvPlayer& player, const SngPacket& packet, bool reliable) {
  sendToPeer(player.peer, packet, reliable);
}

bool SngServerState::findTerrainTriangle(double lat, double lon, GgTriangle& triangle) {
  if (!terrain) {
    btkLogger.log(BTK_ERROR, "findTerrainTriangle: Missing tile for %lfN, %lfE", lat, lon);
    return false;
  }
  return ggFindTerrainTriangle(terrain.get(), lat, lon, triangle, pass_count, [this] { runNestedPass(0); });
}

void SngServerState::sendThermal(const SngPeer& peer, const SngSrvThermal& thermal) {
  SngThermalMsg msg;
  msg.lat = thermal.lat;
  msg.lon = thermal.lon;
  msg.base_alt = thermal.base_alt;
  msg.height = thermal.height;
  msg.radius = thermal.radius;
  msg.strength = thermal.strength;
  msg.variation = thermal.variation;
  msg.life_time = thermal.life_time;
  msg.birth_time = thermal.birth_time;
  sendToPeer(peer, sngMessage(SngNet::THERMAL, msg), false);
}

SngConnection* SngServerState::connection(const SngPeer& peer) {
  auto it = connections.find(peer.connect_id);
  return it != connections.end() && it->second.peer == peer ? &it->second : nullptr;
}

bool SngServerState::diagnosticAllowed(const SngPeer& peer) {
  SngConnection* conn = connection(peer);
  if (!conn) return true;  // not a client connection (in-process callers)
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

void SngServerState::maintainConnections() {
  const double now = btkWallClockMs();
  std::vector<SngPeer> toClose;
  for (auto& [id, conn] : connections) {
    // A window that ran out with lines held back still gets its summary, even if the flood stopped.
    if (conn.diag_suppressed > 0 && now - conn.diag_window_start_ms >= kDiagnosticWindowMs) {
      btkLogger.log(BTK_WARNING, "Connection from %s: %d diagnostic lines suppressed in the last minute",
                    conn.peer.hostText().c_str(), conn.diag_suppressed);
      conn.diag_suppressed = 0;
      conn.diag_lines = 0;
      conn.diag_window_start_ms = now;
    }
    bool used = false;
    for (const auto& player : players) used = used || (player && player->peer == conn.peer);
    if (used) {
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
    connections.erase(peer.connect_id);
    if (host) host->disconnect(peer);
  }
}
