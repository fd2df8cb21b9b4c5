#include "net/SngSessionMessages.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"
#include "wire/SngMessages.h"
#include "wire/SngNet.h"

namespace {

// What the track, the scoring and the thermal grid can use: finite, and on the globe.
bool isRecordable(const SngAircraftState& state) {
  return std::isfinite(state.time) && std::isfinite(state.lat) && std::isfinite(state.lon) &&
         std::isfinite(state.alt) && std::fabs(state.lat) <= 90.0 && std::fabs(state.lon) <= 180.0;
}

// The standard-error text for a CONNECT that ends early, and whether the message length follows it.
// The texts are the ones operators know, odd ones included (a missing winch ID is reported with the
// towplane's text). A missing winch position is an error line of the log instead.
struct ConnectFailure {
  const char* text;
  bool withLength;
  bool toLog;
};

ConnectFailure connectFailure(SngConnectMsg::Field field, SngLaunchField launchField, uint8_t method) {
  switch (field) {
    case SngConnectMsg::HW_ID: return {"SngNet::CONNECT: missing HW ID, length = ", true, false};
    case SngConnectMsg::PLAYER: return {"SngNet::CONNECT: missing player ID\n", false, false};
    case SngConnectMsg::AIRCRAFT_ID: return {"SngNet::CONNECT: missing aircraft ID, length = ", true, false};
    case SngConnectMsg::REGISTRATION: return {"SngNet::CONNECT: missing registration, length = ", true, false};
    case SngConnectMsg::COMP_ID: return {"SngNet::CONNECT: missing comp. id, length = ", true, false};
    case SngConnectMsg::TASK: return {"SngNet::CONNECT: parse task failed, length = ", true, false};
    case SngConnectMsg::LAUNCH: break;
  }
  switch (launchField) {
    case SngLaunchField::METHOD: return {"SngNet::CONNECT: start method\n", false, false};
    case SngLaunchField::ROPE_LENGTH:
      return {method == SngLaunch::AEROTOW ? "SngNet::CONNECT: missing aerotow rope length\n"
                                           : "SngNet::CONNECT: missing winch cable length\n",
              false, false};
    case SngLaunchField::TOWPLANE_ID:
    case SngLaunchField::WINCH_ID: return {"SngNet::CONNECT: missing towplane ID, length = ", true, false};
    case SngLaunchField::WINCH_LAT: return {"CONNECT: Missing winch latitude!", false, true};
    case SngLaunchField::WINCH_LON: return {"CONNECT: Missing winch longitude!", false, true};
    case SngLaunchField::WINCH_ALT: return {"CONNECT: Missing winch altitude!", false, true};
    case SngLaunchField::WINCH_DIR: return {"CONNECT: Missing winch direction!", false, true};
  }
  return {"", false, false};
}

// The trace of a CONNECT: every field read before the one that was missing (all of them when none was).
void traceConnect(const SngConnectMsg& m, bool complete, SngConnectMsg::Field missing, SngLaunchField launchMissing) {
  auto read = [&](SngConnectMsg::Field field) { return complete || missing > field; };
  if (read(SngConnectMsg::HW_ID)) fprintf(stderr, "  HW = 0x%X\n", m.hw_id);
  if (read(SngConnectMsg::PLAYER)) fprintf(stderr, "  Player = %d\n", m.player);
  if (read(SngConnectMsg::AIRCRAFT_ID)) fprintf(stderr, "  Aircraft = %s\n", m.aircraft_id.c_str());
  if (read(SngConnectMsg::REGISTRATION)) fprintf(stderr, "  Registration = %s\n", m.registration.c_str());
  if (read(SngConnectMsg::COMP_ID)) fprintf(stderr, "  Comp. ID = %s\n", m.comp_id.c_str());
  const bool towplaneRead = read(SngConnectMsg::LAUNCH) ||
                            (missing == SngConnectMsg::LAUNCH && launchMissing > SngLaunchField::TOWPLANE_ID);
  if (towplaneRead && m.launch.method == SngLaunch::AEROTOW) {
    fprintf(stderr, "  Towplane = %s\n", m.launch.towplane_id.c_str());
  }
}

}  // namespace

SngTaskProgress SngSessionMessages::playerTask(const std::vector<SngTurnpoint>& turnpoints) const {
  const SngSituation& situation = session_.situation;
  SngTaskProgress task;
  task.turnpoints = turnpoints;
  if (situation.competition_mode && !task.turnpoints.empty()) {
    SngTurnpoint& first = task.turnpoints.front();
    first.max_alt = situation.start_gate_altitude;
    if (situation.start_gate_altitude_ref == 1 && session_.terrain) {
      session_.terrain->loadTilesAround(first.lat, first.lon, 0);
      const double ground = session_.terrain->getElevation(first.lat, first.lon, 0.0);
      if (ground != std::numeric_limits<double>::max()) first.max_alt += ground;
    }
  }
  if (situation.regatta_start) task.regatta_start = true;
  return task;
}

void SngSessionMessages::handleConnect(SngPacket& packet, const SngPeer& peer) {
  const bool trace = connections_.traceAllowed(peer);
  const int length = static_cast<int>(packet.bytes.size());
  if (trace) fputs("CONNECT: \n", stderr);
  SngConnectMsg request;
  SngConnectMsg::Field missing = SngConnectMsg::HW_ID;
  SngLaunchField launchMissing = SngLaunchField::METHOD;
  const bool complete = request.read(packet, &missing, &launchMissing);
  if (trace) traceConnect(request, complete, missing, launchMissing);
  if (!complete) {
    if (!trace) return;
    const ConnectFailure failure = connectFailure(missing, launchMissing, request.launch.method);
    if (failure.toLog) {
      btkLogger.log(BTK_ERROR, "%s", failure.text);
    } else if (failure.withLength) {
      fprintf(stderr, "%s%d\n", failure.text, length);
    } else {
      fputs(failure.text, stderr);
    }
    return;
  }

  for (size_t i = 0; i < request.task.size(); ++i) {
    // One line per turnpoint, up to 255 a message: each counts against the sender's budget.
    if (connections_.traceAllowed(peer)) btkLogger.log(BTK_DEBUG, "Task: TP %zu: %s", i, request.task[i].name.c_str());
  }
  SngTaskProgress task = playerTask(request.task);
  if (trace) {
    SngNetwork* network = out_.network();
    fprintf(stderr, "  avg. RTT = %ums\n", network ? network->info(peer).round_trip_ms : 0u);
  }

  const uint32_t id = request.player;
  SngSrvPlayer* player = players_.at(id);
  if (!player || player->hw_id != request.hw_id || player->host != peer.hostText()) {
    if (connections_.traceAllowed(peer)) {
      btkLogger.log(BTK_INFO, "Connect player failed (unknown player): ID = %u, HW = 0x%X, AC = %s, Reg = %s, Comp = %s",
                    id, request.hw_id, request.aircraft_id.c_str(), request.registration.c_str(),
                    request.comp_id.c_str());
    }
    SngPacket answer;
    answer.putU8(SngNet::RESULT_UNKNOWN_PLAYER);
    out_.sendToPeer(peer, answer, true);
    return;
  }
  player->setPeer(peer);
  player->aircraft_id = request.aircraft_id;
  player->registration = request.registration;
  player->comp_id = request.comp_id;
  player->launch = request.launch;
  player->task = std::move(task);
  player->idle = false;
  player->idle_time_left = 0.0f;
  if (player->launch.isAssisted()) player->launching = true;
  if (trace) {
    btkLogger.log(BTK_INFO, "Connect player: ID = %u, HW = 0x%X, AC = %s, Reg = %s, Comp = %s", id, request.hw_id,
                  request.aircraft_id.c_str(), request.registration.c_str(), request.comp_id.c_str());
    fputs(" - Connect OK\n", stderr);
  }
  const SngSituation& situation = session_.situation;
  SngResultOkMsg ok;
  ok.server_flags = static_cast<uint8_t>(situation.mp_server_flags);
  ok.month = static_cast<uint8_t>(situation.month);
  ok.day = static_cast<uint8_t>(situation.day);
  ok.sim_time = session_.sim_time;
  ok.voice_codec = static_cast<uint8_t>(situation.mp_voice_codec);
  ok.comm_channel = session_.default_comm_channel;
  out_.sendToPeer(peer, sngMessage(SngNet::RESULT_OK, ok), true);
  broadcasts_.sendExistingAircraft(id);
  broadcasts_.bcastNewAircraft(id);
  player_joined = true;
}

void SngSessionMessages::handleAircraftState(SngPacket& packet, const SngPeer& peer, uint8_t opcode) {
  // A body cut short is dropped whole: its missing fields would be undefined, and relaying it would
  // hand the same broken message to everybody else.
  SngStateMsg msg;
  if (!msg.read(packet)) return;
  SngSrvPlayer* player = connections_.senderPlayer(msg.player, peer, opcode);
  if (!player) return;
  connections_.leaveIdle(*player, peer, opcode);
  if (opcode == SngNet::AIRCRAFT_STATE) {
    if (!isRecordable(msg.state)) {
      ++numUnrecordedStates;
    } else if (!player->updateState(msg.state)) {
      return;  // the nested pass inside the terrain lookup removed the player
    }
  }
  broadcasts_.relayToOthers(msg.player, packet.bytes.data(), packet.bytes.size());
}

void SngSessionMessages::handleCrashOrInactive(SngPacket& packet, const SngPeer& peer, uint8_t opcode) {
  SngPlayerMsg msg;
  if (!msg.read(packet)) {
    if (connections_.traceAllowed(peer)) fputs("SngNet::AIRCRAFT_INACTIVE: missing player ID\n", stderr);
    return;
  }
  SngSrvPlayer* player = connections_.senderPlayer(msg.player, peer, opcode);
  if (!player) return;
  if (opcode == SngNet::AIRCRAFT_CRASH && !player->crashed) {
    player->crashed = true;
    if (connections_.traceAllowed(peer)) btkLogger.log(BTK_INFO, "%s crashed!", player->nick.c_str());
  }
  broadcasts_.relayToOthers(msg.player, packet.bytes.data(), packet.bytes.size());
}

void SngSessionMessages::handleChat(SngPacket& packet, const SngPeer& peer) {
  const bool trace = connections_.traceAllowed(peer);
  if (trace) fputs("SngNet::CHAT_MSG\n", stderr);
  SngChatMsg msg;
  SngChatMsg::Field missing = SngChatMsg::PLAYER;
  const bool complete = msg.read(packet, &missing);
  if (!complete && missing == SngChatMsg::PLAYER) {
    if (trace) fputs("SngNet::CHAT_MSG: missing player ID\n", stderr);
    return;
  }
  if (trace) fprintf(stderr, "  Player ID = %d\n", msg.player);
  if (!complete) return;
  SngSrvPlayer* player = connections_.senderPlayer(msg.player, peer, SngNet::CHAT_MSG);
  if (!player) return;
  connections_.leaveIdle(*player, peer, SngNet::CHAT_MSG);
  broadcasts_.bcastChatMessage(msg.player, msg.text);
}

void SngSessionMessages::handleVoice(SngPacket& packet, const SngPeer& peer) {
  SngVoiceMsg msg;
  SngVoiceMsg::Field missing = SngVoiceMsg::PLAYER;
  if (!msg.read(packet, &missing)) {
    if (!connections_.traceAllowed(peer)) return;
    switch (missing) {
      case SngVoiceMsg::PLAYER: fputs("SngNet::VOICE_CHAT: missing player ID\n", stderr); break;
      case SngVoiceMsg::CHANNEL: fputs("SngNet::VOICE_CHAT: missing channel ID\n", stderr); break;
      case SngVoiceMsg::NUM_PACKETS: btkLogger.log(BTK_ERROR, "VOICE_CHAT: missing #packets"); break;
    }
    return;
  }
  SngSrvPlayer* player = connections_.senderPlayer(msg.player, peer, SngNet::VOICE_CHAT);
  if (!player) return;
  connections_.leaveIdle(*player, peer, SngNet::VOICE_CHAT);
  player->comm_channel = msg.channel;
  if (connections_.traceAllowed(peer)) {
    btkLogger.log(BTK_DEBUG, "Voice packet (%d packets) from Player %s on channel %d (%.3f)",
                  static_cast<int16_t>(msg.num_packets), player->nick.c_str(), msg.channel,
                  btkCommFrequencyMHz(msg.channel));
  }
  broadcasts_.bcastVoice(msg.player, packet.bytes.data(), packet.bytes.size(), msg.channel);
}

void SngSessionMessages::handleCommFrq(SngPacket& packet, const SngPeer& peer) {
  SngCommFrqMsg msg;
  SngCommFrqMsg::Field missing = SngCommFrqMsg::PLAYER;
  if (!msg.read(packet, &missing)) {
    if (connections_.traceAllowed(peer)) {
      fputs(missing == SngCommFrqMsg::PLAYER ? "SngNet::COMM_FRQ: missing player ID\n"
                                             : "SngNet::COMM_FRQ: missing channel ID\n",
            stderr);
    }
    return;
  }
  SngSrvPlayer* player = connections_.senderPlayer(msg.player, peer, SngNet::COMM_FRQ);
  if (!player) return;
  connections_.leaveIdle(*player, peer, SngNet::COMM_FRQ);
  if (connections_.traceAllowed(peer)) {
    btkLogger.log(BTK_DEBUG, "Player %s changed to channel %d (%.3f)", player->nick.c_str(), msg.channel,
                  btkCommFrequencyMHz(msg.channel));
  }
  player->comm_channel = msg.channel;
}

void SngSessionMessages::handleLogout(SngPacket& packet, const SngPeer& peer) {
  const bool trace = connections_.traceAllowed(peer);
  if (trace) fputs("SngNet::LOGOUT\n", stderr);
  SngPlayerMsg msg;
  if (!msg.read(packet)) {
    if (trace) fputs("SngNet::LOGOUT: missing player ID\n", stderr);
    return;
  }
  if (trace) fprintf(stderr, "  Player ID = %d\n", msg.player);
  SngSrvPlayer* player = connections_.senderPlayer(msg.player, peer, SngNet::LOGOUT);
  if (!player) return;
  if (trace) btkLogger.log(BTK_INFO, "Player %d (%s) logged out", msg.player, player->nick.c_str());
  connections_.leaveIdle(*player, peer, SngNet::LOGOUT);
  connections_.disconnectPlayer(msg.player, trace);
}

void SngSessionMessages::handleServerScan(const SngPeer& peer) {
  if (connections_.traceAllowed(peer)) btkLogger.log(BTK_DEBUG, "SERVER_SCAN");
}

void SngSessionMessages::handleUnknownOpcode(const SngPeer& peer, uint8_t opcode) {
  if (connections_.traceAllowed(peer)) btkLogger.log(BTK_WARNING, "Unknown opcode: 0x%X received", opcode);
}
