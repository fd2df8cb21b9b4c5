// The messages of a client that has logged in: CONNECT, states, crash and inactive notices, chat,
// voice, radio channel, LOGOUT and the scan request.
#include <cmath>
#include <cstdio>
#include <limits>

#include "net/SngAircraftStateCodec.h"
#include "net/SngMessages.h"
#include "net/SngNet.h"
#include "net/SngServerState.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr double kForeignLogIntervalMs = 60000.0;

// What the track, the scoring and the thermal grid can use: finite, and on the globe.
bool isRecordable(const SngAircraftState& state) {
  return std::isfinite(state.time) && std::isfinite(state.lat) && std::isfinite(state.lon) &&
         std::isfinite(state.alt) && std::fabs(state.lat) <= 90.0 && std::fabs(state.lon) <= 180.0;
}

}  // namespace

SngSrvPlayer* SngServerState::senderPlayer(uint8_t id, const SngPeer& sender, uint8_t opcode) {
  SngSrvPlayer* player = playerAt(id);
  if (!player) return nullptr;
  if (player->peer == sender) return player;
  if (!player->peer && player->host == sender.hostText()) return player;
  // Another connection names this player: a client must never log out, move or speak for another.
  ++numForeignMessages;
  if (SngConnection* conn = connection(sender)) {
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

void SngServerState::handleConnect(SngPacket& packet, const SngPeer& peer) {
  const bool trace = diagnosticAllowed(peer);
  const int length = static_cast<int>(packet.bytes.size());
  auto fail = [&](const char* text, bool withLength) {
    if (!trace) return;
    if (withLength) {
      fprintf(stderr, "%s%d\n", text, length);
    } else {
      fputs(text, stderr);
    }
  };
  if (trace) fputs("CONNECT: \n", stderr);
  SngConnectMsg request;
  if (!packet.getU32(request.hw_id)) return fail("SngNet::CONNECT: missing HW ID, length = ", true);
  if (trace) fprintf(stderr, "  HW = 0x%X\n", request.hw_id);
  if (!packet.getU8(request.player)) return fail("SngNet::CONNECT: missing player ID\n", false);
  if (trace) fprintf(stderr, "  Player = %d\n", request.player);
  if (!packet.getString(request.aircraft_id)) return fail("SngNet::CONNECT: missing aircraft ID, length = ", true);
  if (trace) fprintf(stderr, "  Aircraft = %s\n", request.aircraft_id.c_str());
  if (!packet.getString(request.registration)) return fail("SngNet::CONNECT: missing registration, length = ", true);
  if (trace) fprintf(stderr, "  Registration = %s\n", request.registration.c_str());
  if (!packet.getString(request.comp_id)) return fail("SngNet::CONNECT: missing comp. id, length = ", true);
  if (trace) fprintf(stderr, "  Comp. ID = %s\n", request.comp_id.c_str());
  SngLaunchBlock& launch = request.launch;
  if (!packet.getU8(launch.launch_method)) return fail("SngNet::CONNECT: start method\n", false);
  if (launch.launch_method == 1) {
    if (!packet.getU16(launch.rope_length)) return fail("SngNet::CONNECT: missing aerotow rope length\n", false);
    if (!packet.getString(launch.towplane_id)) return fail("SngNet::CONNECT: missing towplane ID, length = ", true);
    if (trace) fprintf(stderr, "  Towplane = %s\n", launch.towplane_id.c_str());
  } else if (launch.launch_method == 2) {
    if (!packet.getU16(launch.rope_length)) return fail("SngNet::CONNECT: missing winch cable length\n", false);
    if (!packet.getString(launch.winch_id)) return fail("SngNet::CONNECT: missing towplane ID, length = ", true);
    float lat = 0, lon = 0, alt = 0;
    const char* missing = nullptr;
    if (!packet.getF32(lat)) {
      missing = "CONNECT: Missing winch latitude!";
    } else if (!packet.getF32(lon)) {
      missing = "CONNECT: Missing winch longitude!";
    } else if (!packet.getF32(alt)) {
      missing = "CONNECT: Missing winch altitude!";
    } else if (!packet.getU16(launch.winch_dir)) {
      missing = "CONNECT: Missing winch direction!";
    }
    if (missing) {
      if (trace) btkLogger.log(BTK_ERROR, "%s", missing);
      return;
    }
    launch.winch_lat = lat;
    launch.winch_lon = lon;
    launch.winch_alt = alt;
  }
  if (!packet.getTask(request.task)) return fail("SngNet::CONNECT: parse task failed, length = ", true);

  SngTaskProgress task;
  for (size_t i = 0; i < request.task.size(); ++i) {
    // One line per turnpoint, up to 255 a message: each counts against the sender's budget.
    if (diagnosticAllowed(peer)) btkLogger.log(BTK_DEBUG, "Task: TP %zu: %s", i, request.task[i].name.c_str());
  }
  task.turnpoints = request.task;
  task.length = -1.0;
  if (situation.competition_mode && !task.turnpoints.empty()) {
    SngTurnpoint& first = task.turnpoints.front();
    first.max_alt = situation.start_gate_altitude;
    if (situation.start_gate_altitude_ref == 1 && terrain) {
      terrain->loadTilesAround(first.lat, first.lon, 0);
      const double ground = terrain->getElevation(first.lat, first.lon, 0.0);
      if (ground != std::numeric_limits<double>::max()) first.max_alt += ground;
    }
  }
  if (situation.regatta_start) task.regatta_start = true;
  if (trace) fprintf(stderr, "  avg. RTT = %ums\n", host ? host->info(peer).round_trip_ms : 0u);

  const uint32_t id = request.player;
  const uint8_t result = connectPlayer(peer, request.hw_id, id, request, task);
  if (result != SngNet::RESULT_OK) {
    SngPacket answer;
    answer.putU8(result);
    sendToPeer(peer, answer, true);
    return;
  }
  if (trace) fputs(" - Connect OK\n", stderr);
  SngResultOkMsg ok;
  ok.server_flags = static_cast<uint8_t>(situation.mp_server_flags);
  ok.month = static_cast<uint8_t>(situation.month);
  ok.day = static_cast<uint8_t>(situation.day);
  ok.sim_time = sim_time;
  ok.voice_codec = static_cast<uint8_t>(situation.mp_voice_codec);
  ok.comm_channel = default_comm_channel;
  sendToPeer(peer, sngMessage(SngNet::RESULT_OK, ok), true);
  sendExistingAircraft(id);
  bcastNewAircraft(id);
  force_periodic = true;
}

uint8_t SngServerState::connectPlayer(const SngPeer& peer, uint32_t hwId, uint32_t id, const SngConnectMsg& request,
                                      SngTaskProgress& task) {
  SngSrvPlayer* player = playerAt(id);
  if (!player || player->hw_id != hwId || player->host != peer.hostText()) {
    if (diagnosticAllowed(peer)) {
      btkLogger.log(BTK_INFO, "Connect player failed (unknown player): ID = %u, HW = 0x%X, AC = %s, Reg = %s, Comp = %s",
                    id, hwId, request.aircraft_id.c_str(), request.registration.c_str(), request.comp_id.c_str());
    }
    return SngNet::RESULT_UNKNOWN_PLAYER;
  }
  player->setPeer(peer);
  player->aircraft_id = request.aircraft_id;
  player->registration = request.registration;
  player->comp_id = request.comp_id;
  player->launch_method = request.launch.launch_method;
  player->towplane_id = request.launch.towplane_id;
  player->winch_id = request.launch.winch_id;
  player->rope_length = request.launch.rope_length;
  player->winch_lat = static_cast<float>(request.launch.winch_lat);
  player->winch_lon = static_cast<float>(request.launch.winch_lon);
  player->winch_alt = static_cast<float>(request.launch.winch_alt);
  player->winch_dir = request.launch.winch_dir;
  player->task = std::move(task);
  player->idle = false;
  player->idle_time_left = 0.0f;
  if (player->launch_method == 1 || player->launch_method == 2) player->launching = true;
  btkLogger.log(BTK_INFO, "Connect player: ID = %u, HW = 0x%X, AC = %s, Reg = %s, Comp = %s", id, hwId,
                request.aircraft_id.c_str(), request.registration.c_str(), request.comp_id.c_str());
  return SngNet::RESULT_OK;
}

void SngServerState::handleAircraftState(SngPacket& packet, const SngPeer& peer, uint8_t opcode) {
  uint8_t id = 0;
  SngAircraftState decoded;
  // A body cut short is dropped whole: its missing fields would be undefined, and relaying it would
  // hand the same broken message to everybody else.
  if (!packet.getU8(id) || !decodeAircraftState(packet, decoded)) return;
  SngSrvPlayer* player = senderPlayer(id, peer, opcode);
  if (!player) return;
  leaveIdle(*player, peer, opcode);
  if (opcode == SngNet::AIRCRAFT_STATE) {
    if (!isRecordable(decoded)) {
      ++numUnrecordedStates;
    } else {
      const bool hadNoState = player->state.time < 0.0;
      // The terrain lookup inside runs a nested pass; if that removed the player, stop here.
      if (!player->updateState(decoded)) return;
      if (hadNoState) sendExistingThermals(id);
      // The player's thermal-grid cell is kept current here once the thermal grid exists.
    }
  }
  relayToOthers(id, packet.bytes);
}

void SngServerState::sendExistingThermals(uint32_t id) {
  // Queues every live thermal, nearest first, once the thermal grid exists.
  (void)id;
}

void SngServerState::handleCrashOrInactive(SngPacket& packet, const SngPeer& peer, uint8_t opcode) {
  uint8_t id = 0;
  if (!packet.getU8(id)) {
    if (diagnosticAllowed(peer)) fputs("SngNet::AIRCRAFT_INACTIVE: missing player ID\n", stderr);
    return;
  }
  SngSrvPlayer* player = senderPlayer(id, peer, opcode);
  if (!player) return;
  if (opcode == SngNet::AIRCRAFT_CRASH && !player->crashed) {
    player->crashed = true;
    btkLogger.log(BTK_INFO, "%s crashed!", player->nick.c_str());
  }
  relayToOthers(id, packet.bytes);
}

void SngServerState::handleChat(SngPacket& packet, const SngPeer& peer) {
  const bool trace = diagnosticAllowed(peer);
  if (trace) fputs("SngNet::CHAT_MSG\n", stderr);
  uint8_t id = 0;
  if (!packet.getU8(id)) {
    if (trace) fputs("SngNet::CHAT_MSG: missing player ID\n", stderr);
    return;
  }
  if (trace) fprintf(stderr, "  Player ID = %d\n", id);
  std::string text;
  if (!packet.getString(text)) return;
  SngSrvPlayer* player = senderPlayer(id, peer, SngNet::CHAT_MSG);
  if (!player) return;
  leaveIdle(*player, peer, SngNet::CHAT_MSG);
  bcastChatMessage(id, text);
}

void SngServerState::handleVoice(SngPacket& packet, const SngPeer& peer) {
  uint8_t id = 0;
  uint16_t channel = 0, numPackets = 0;
  if (!packet.getU8(id)) {
    if (diagnosticAllowed(peer)) fputs("SngNet::VOICE_CHAT: missing player ID\n", stderr);
    return;
  }
  if (!packet.getU16(channel)) {
    if (diagnosticAllowed(peer)) fputs("SngNet::VOICE_CHAT: missing channel ID\n", stderr);
    return;
  }
  if (!packet.getU16(numPackets)) {
    if (diagnosticAllowed(peer)) btkLogger.log(BTK_ERROR, "VOICE_CHAT: missing #packets");
    return;
  }
  SngSrvPlayer* player = senderPlayer(id, peer, SngNet::VOICE_CHAT);
  if (!player) return;
  leaveIdle(*player, peer, SngNet::VOICE_CHAT);
  player->comm_channel = channel;
  btkLogger.log(BTK_DEBUG, "Voice packet (%d packets) from Player %s on channel %d (%.3f)",
                static_cast<int16_t>(numPackets), player->nick.c_str(), channel, btkCommFrequencyMHz(channel));
  bcastVoice(id, packet.bytes, channel);
}

void SngServerState::handleCommFrq(SngPacket& packet, const SngPeer& peer) {
  uint8_t id = 0;
  uint16_t channel = 0;
  if (!packet.getU8(id)) {
    if (diagnosticAllowed(peer)) fputs("SngNet::COMM_FRQ: missing player ID\n", stderr);
    return;
  }
  if (!packet.getU16(channel)) {
    if (diagnosticAllowed(peer)) fputs("SngNet::COMM_FRQ: missing channel ID\n", stderr);
    return;
  }
  SngSrvPlayer* player = senderPlayer(id, peer, SngNet::COMM_FRQ);
  if (!player) return;
  leaveIdle(*player, peer, SngNet::COMM_FRQ);
  btkLogger.log(BTK_DEBUG, "Player %s changed to channel %d (%.3f)", player->nick.c_str(), channel,
                btkCommFrequencyMHz(channel));
  player->comm_channel = channel;
}

void SngServerState::handleLogout(SngPacket& packet, const SngPeer& peer) {
  const bool trace = diagnosticAllowed(peer);
  if (trace) fputs("SngNet::LOGOUT\n", stderr);
  uint8_t id = 0;
  if (!packet.getU8(id)) {
    if (trace) fputs("SngNet::LOGOUT: missing player ID\n", stderr);
    return;
  }
  if (trace) fprintf(stderr, "  Player ID = %d\n", id);
  SngSrvPlayer* player = senderPlayer(id, peer, SngNet::LOGOUT);
  if (!player) return;
  btkLogger.log(BTK_INFO, "Player %d (%s) logged out", id, player->nick.c_str());
  leaveIdle(*player, peer, SngNet::LOGOUT);
  disconnectPlayer(id);
}

void SngServerState::handleServerScan(const SngPeer& peer) {
  if (diagnosticAllowed(peer)) btkLogger.log(BTK_DEBUG, "SERVER_SCAN");
}
