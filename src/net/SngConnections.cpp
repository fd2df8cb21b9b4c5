// Connections, LOGIN and the player registry: how transport events become players.
#include <cinttypes>
#include <cstdio>

#include "net/SngNet.h"
#include "net/SngServerState.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkLogger.h"

void SngServerState::handleNetworkEvents(int timeoutMs) {
  if (!host) return;
  DeferScope defer(*this);
  SngNetEvent event;
  if (!host->service(timeoutMs, event)) return;
  ++numEvents;
  switch (event.type) {
    case SngNetEvent::CONNECT: onConnect(event.peer, event.info); break;
    case SngNetEvent::DISCONNECT: onDisconnect(event.peer, event.info); break;
    case SngNetEvent::RECEIVE: dispatchMessage(event); break;
    case SngNetEvent::NONE: break;
  }
}

void SngServerState::onConnect(const SngPeer& peer, const SngPeerInfo& info) {
  SngConnection conn;
  conn.peer = peer;
  conn.orphan_since_ms = btkWallClockMs();
  conn.diag_window_start_ms = conn.orphan_since_ms;
  connections[peer.connect_id] = conn;
  const std::string address = peer.hostText();
  btkLogger.log(BTK_INFO, "New connection from %s (peer = %d/%d)", address.c_str(), info.outgoing_peer_id,
                info.incoming_peer_id);
  fprintf(stderr, "New connection from %s\n", address.c_str());
}

void SngServerState::onDisconnect(const SngPeer& peer, const SngPeerInfo& info) {
  btkLogger.log(BTK_INFO, "Peer disconnected (peer = %d/%d)", info.outgoing_peer_id, info.incoming_peer_id);
  connections.erase(peer.connect_id);
  // One connection can own several records (several LOGINs with different hardware IDs): all go idle.
  for (size_t slot = 0; slot < players.size(); ++slot) {
    SngSrvPlayer* player = players[slot].get();
    if (!player || !(player->peer == peer)) continue;
    fprintf(stderr, "player_id = %zu idle\n", slot);
    player->idle = true;
    player->setPeer(SngPeer());
    if (player->idle_time_left < kDisconnectIdleSeconds) player->idle_time_left = kDisconnectIdleSeconds;
    btkLogger.log(BTK_INFO, "Player %zu (%s) is idle (%f seconds left)", slot, player->nick.c_str(),
                  player->idle_time_left);
  }
}

void SngServerState::dispatchMessage(const SngNetEvent& event) {
  if (event.data.empty()) return;
  SngPacket packet(event.data.data(), event.data.size());
  uint8_t opcode = 0;
  packet.getU8(opcode);
  switch (opcode) {
    case SngNet::LOGIN: return handleLogin(packet, event.peer);
    case SngNet::CONNECT: return handleConnect(packet, event.peer);
    case SngNet::LOGOUT: return handleLogout(packet, event.peer);
    case SngNet::AIRCRAFT_STATE: return handleAircraftState(packet, event.peer, opcode);
    case SngNet::EXTRA_AIRCRAFT_STATE: return handleAircraftState(packet, event.peer, opcode);
    case SngNet::CHAT_MSG: return handleChat(packet, event.peer);
    case SngNet::AIRCRAFT_CRASH: return handleCrashOrInactive(packet, event.peer, opcode);
    case SngNet::AIRCRAFT_INACTIVE: return handleCrashOrInactive(packet, event.peer, opcode);
    case SngNet::VOICE_CHAT: return handleVoice(packet, event.peer);
    case SngNet::COMM_FRQ: return handleCommFrq(packet, event.peer);
    case SngNet::SERVER_SCAN: return handleServerScan(event.peer);
    default: return handleUnknownOpcode(event.peer, opcode);
  }
}

void SngServerState::handleUnknownOpcode(const SngPeer& peer, uint8_t opcode) {
  if (diagnosticAllowed(peer)) btkLogger.log(BTK_WARNING, "Unknown opcode: 0x%X received", opcode);
}

void SngServerState::handleLogin(SngPacket& packet, const SngPeer& peer) {
  const bool trace = diagnosticAllowed(peer);
  const int length = static_cast<int>(packet.bytes.size());
  if (trace) fputs("LOGIN: \n", stdout);
  uint8_t major = 0, minor = 0;
  if (!packet.getU8(major) || !packet.getU8(minor)) {
    if (trace) fputs("SngNet::LOGIN: missing version\n", stderr);
    return;
  }
  uint32_t hwId = 0;
  if (!packet.getU32(hwId)) {
    if (trace) btkLogger.log(BTK_ERROR, "LOGIN: Missing HW ID, length = %d", length);
    return;
  }
  if (trace) fprintf(stdout, "  HW = 0x%X\n", hwId);
  std::string pilotName, nick;
  if (!packet.getString(pilotName)) {
    if (trace) {
      btkLogger.log(BTK_ERROR, "LOGIN: Missing player name, length = %d", length);
      fprintf(stderr, "SngNet::LOGIN: missing player name, length = %d\n", length);
    }
    return;
  }
  if (trace) fprintf(stdout, "  Player name = %s\n", pilotName.c_str());
  if (!packet.getString(nick)) {
    if (trace) btkLogger.log(BTK_ERROR, "LOGIN: Missing nick, length = %d", length);
    return;
  }
  if (trace) {
    fprintf(stdout, "  Nick = %s\n", nick.c_str());
    fprintf(stdout, "  avg. RTT = %ums\n", host->info(peer).round_trip_ms);
    fflush(stdout);
  }
  const bool versionOk = major > SngNet::PROTOCOL_VERSION_MAJOR ||
                         (major == SngNet::PROTOCOL_VERSION_MAJOR && minor >= SngNet::PROTOCOL_VERSION_MINOR);
  uint32_t playerId = 0;
  const uint8_t result = versionOk ? loginPlayer(peer, hwId, major, minor, pilotName, nick, playerId)
                                   : SngNet::RESULT_VERSION_TOO_OLD;
  if (trace) btkLogger.log(BTK_DEBUG, "LOGIN(%s): result = %d", nick.c_str(), result);
  if (result == SngNet::RESULT_OK) return sendServerInfo(playerId);
  SngPacket answer;
  answer.putU8(result);
  sendToPeer(peer, answer, true);
}

uint8_t SngServerState::loginPlayer(const SngPeer& peer, uint32_t hwId, uint8_t major, uint8_t minor,
                                    const std::string& pilotName, const std::string& nick, uint32_t& playerId) {
  const std::string address = peer.hostText();
  for (size_t slot = 0; slot < players.size(); ++slot) {
    SngSrvPlayer* player = players[slot].get();
    if (!player || player->hw_id != hwId || player->host != address) continue;
    btkLogger.log(BTK_INFO, "Reconnect player: ID = %zu. HW = 0x%X, host = %s, name = %s, nick = %s", slot, hwId,
                  address.c_str(), pilotName.c_str(), nick.c_str());
    player->client_version_major = major;
    player->client_version_minor = minor;
    player->name = pilotName;
    player->setPeer(peer);
    player->nick = nick;
    player->idle = true;
    player->idle_time_left = SngSrvPlayer::kLoginIdleSeconds;
    playerId = static_cast<uint32_t>(slot);
    return SngNet::RESULT_OK;
  }
  for (size_t slot = 0; slot < players.size(); ++slot) {
    if (players[slot]) continue;
    btkLogger.log(BTK_INFO, "New player: ID = %zu. HW = 0x%X, host = %s, name = %s, nick = %s", slot, hwId,
                  address.c_str(), pilotName.c_str(), nick.c_str());
    auto player = std::make_unique<SngSrvPlayer>(this, peer, static_cast<uint32_t>(slot), hwId);
    player->client_version_major = major;
    player->client_version_minor = minor;
    player->name = pilotName;
    player->nick = nick;
    player->idle_time_left = SngSrvPlayer::kLoginIdleSeconds;
    player->comm_channel = default_comm_channel;
    players[slot] = std::move(player);
    playerId = static_cast<uint32_t>(slot);
    return SngNet::RESULT_OK;
  }
  return SngNet::RESULT_SERVER_FULL;
}

void SngServerState::leaveIdle(SngSrvPlayer& player, const SngPeer& sender, uint8_t opcode) {
  if (!player.idle) return;
  btkLogger.log(BTK_INFO, "Player %u (%s) is no longer idle (%f seconds left) opcode = 0x%X", player.player_id,
                player.nick.c_str(), player.idle_time_left, opcode);
  player.setPeer(sender);
  player.idle = false;
  player.idle_time_left = 0.0f;
}

void SngServerState::disconnectPlayer(uint32_t id) {
  fprintf(stderr, "Player %u disconnected\n", id);
  btkLogger.log(BTK_INFO, "Disconnect player: ID = %u", id);
  bcastPlayerLeft(id);
  if (!playerAt(id)) return;
  btkLogger.log(BTK_DEBUG, "Delete player: ID = %u", id);
  removePlayer(id);
}

void SngServerState::sendPingAndTime() {
  SngPacket ping;
  ping.putU8(SngNet::PING);
  for (size_t slot = 0; slot < players.size(); ++slot) {
    const SngSrvPlayer* player = players[slot].get();
    if (!player || player->idle) continue;
    // Every service step may run any handler: look the slot up again after each one, and give up on
    // it when it emptied, went idle or now holds somebody else.
    bool gone = false;
    for (int round = 0; round < kPingsPerBurst && !gone; ++round) {
      sendToPlayer(*player, ping, true);
      handleNetworkEvents(0);
      gone = players[slot].get() != player || player->idle;
    }
    if (gone) continue;
    const SngPeerInfo info = host->info(player->peer);
    btkLogger.log(BTK_DEBUG, "Player %zu (%s): RTT = %u ms, Packet loss = %f%%, (%u, %u), bandwidth = %u in, %u out",
                  slot, player->nick.c_str(), info.round_trip_ms, info.packet_loss / 65536.0, info.packets_sent,
                  info.packets_lost, info.incoming_bandwidth, info.outgoing_bandwidth);
    SngPacket sync;
    sync.putU8(SngNet::TIME_SYNC);
    sync.putF32(sim_time + static_cast<float>(info.round_trip_ms * 0.5 / 1000.0));
    sendToPlayer(*player, sync, true);
    handleNetworkEvents(0);
  }
}
