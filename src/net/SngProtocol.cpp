#include "net/SngProtocol.h"

#include "terrain/GgScenery.h"
#include "toolkit/BtkLogger.h"
#include "wire/SngMessages.h"
#include "wire/SngNet.h"

SngProtocol::SngProtocol(SngSession& session, std::function<void(int)> runPass)
    : session_(session),
      runPass_(std::move(runPass)),
      out_(players_),
      broadcasts_(players_, out_, session_, *this),
      connections_(players_, out_, broadcasts_, session_, *this),
      messages_(players_, out_, connections_, broadcasts_, session_) {}

void SngProtocol::handleNetworkEvents(int timeoutMs) {
  SngNetwork* network = out_.network();
  if (!network) return;
  SngPlayerTable::DeferScope defer(players_);
  SngNetEvent event;
  if (!network->service(timeoutMs, event)) return;
  ++num_events_;
  switch (event.type) {
    case SngNetEvent::CONNECT: connections_.onConnect(event.peer, event.info); break;
    case SngNetEvent::DISCONNECT: connections_.onDisconnect(event.peer, event.info); break;
    case SngNetEvent::RECEIVE: dispatchMessage(event); break;
    case SngNetEvent::NONE: break;
  }
}

void SngProtocol::dispatchMessage(const SngNetEvent& event) {
  if (event.data.empty()) return;
  SngPacket packet(event.data.data(), event.data.size());
  uint8_t opcode = 0;
  packet.getU8(opcode);
  const SngPeer& peer = event.peer;
  switch (opcode) {
    case SngNet::LOGIN: return connections_.handleLogin(packet, peer);
    case SngNet::CONNECT: return messages_.handleConnect(packet, peer);
    case SngNet::LOGOUT: return messages_.handleLogout(packet, peer);
    case SngNet::AIRCRAFT_STATE:
    case SngNet::EXTRA_AIRCRAFT_STATE: return messages_.handleAircraftState(packet, peer, opcode);
    case SngNet::CHAT_MSG: return messages_.handleChat(packet, peer);
    case SngNet::AIRCRAFT_CRASH:
    case SngNet::AIRCRAFT_INACTIVE: return messages_.handleCrashOrInactive(packet, peer, opcode);
    case SngNet::VOICE_CHAT: return messages_.handleVoice(packet, peer);
    case SngNet::COMM_FRQ: return messages_.handleCommFrq(packet, peer);
    case SngNet::SERVER_SCAN: return messages_.handleServerScan(peer);
    default: return messages_.handleUnknownOpcode(peer, opcode);
  }
}

void SngProtocol::runNestedPass(int timeoutMs) {
  if (pass_depth_ >= kMaxPassDepth) {
    ++num_skipped_nested_passes_;
    return;
  }
  runPass_(timeoutMs);
}

bool SngProtocol::takePlayerJoined() {
  const bool joined = messages_.player_joined;
  messages_.player_joined = false;
  return joined;
}

void SngProtocol::sendPingAndTime() {
  SngPacket ping;
  ping.putU8(SngNet::PING);
  for (size_t slot = 0; slot < players_.size(); ++slot) {
    const SngSrvPlayer* player = players_.at(static_cast<uint32_t>(slot));
    if (!player || player->idle) continue;
    // Every service step may run any handler: look the slot up again after each one, and give up on
    // it when it emptied, went idle or now holds somebody else.
    bool gone = false;
    for (int round = 0; round < kPingsPerBurst && !gone; ++round) {
      out_.sendToPlayer(*player, ping, true);
      handleNetworkEvents(0);
      gone = players_.at(static_cast<uint32_t>(slot)) != player || player->idle;
    }
    if (gone) continue;
    const SngPeerInfo info = out_.network() ? out_.network()->info(player->peer) : SngPeerInfo();
    btkLogger.log(BTK_DEBUG, "Player %zu (%s): RTT = %u ms, Packet loss = %f%%, (%u, %u), bandwidth = %u in, %u out",
                  slot, player->nick.c_str(), info.round_trip_ms, info.packet_loss / 65536.0, info.packets_sent,
                  info.packets_lost, info.incoming_bandwidth, info.outgoing_bandwidth);
    SngTimeSyncMsg sync;
    sync.sim_time = session_.sim_time + static_cast<float>(info.round_trip_ms * 0.5 / 1000.0);
    out_.sendToPlayer(*player, sngMessage(SngNet::TIME_SYNC, sync), true);
    handleNetworkEvents(0);
  }
}

bool SngProtocol::findTerrainTriangle(double lat, double lon, GgTriangle& triangle) {
  if (!session_.terrain) {
    btkLogger.log(BTK_ERROR, "findTerrainTriangle: Missing tile for %lfN, %lfE", lat, lon);
    return false;
  }
  return ggFindTerrainTriangle(session_.terrain.get(), lat, lon, triangle, session_.pass_count,
                               [this] { runNestedPass(0); });
}

void SngProtocol::sendThermal(const SngPeer& peer, const SngSrvThermal& thermal) {
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
  out_.sendToPeer(peer, sngMessage(SngNet::THERMAL, msg), false);
}

SngProtocol::Counters SngProtocol::counters() const {
  Counters c;
  c.events = num_events_;
  c.skipped_nested_passes = num_skipped_nested_passes_;
  c.dropped_sends = out_.numDroppedSends;
  c.foreign_messages = connections_.numForeignMessages;
  c.unrecorded_states = messages_.numUnrecordedStates;
  return c;
}
