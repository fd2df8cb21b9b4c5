#include <cmath>

#include "net/SngBroadcasts.h"

#include "wire/SngMessages.h"
#include "wire/SngNet.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkLogger.h"

void SngBroadcasts::relayToOthers(uint32_t sender, const uint8_t* data, size_t size) {
  out_.sendToPlayers(static_cast<int>(sender), data, size, false, [](const SngSrvPlayer&) { return true; });
}

void SngBroadcasts::bcastChatMessage(uint32_t sender, const std::string& text) {
  if (!players_.at(sender)) return;
  SngChatMsg chat;
  chat.player = static_cast<uint8_t>(sender);
  chat.text = text;
  out_.sendToPlayers(static_cast<int>(sender), sngMessage(SngNet::CHAT_MSG, chat), true);
}

void SngBroadcasts::bcastVoice(uint32_t sender, const uint8_t* data, size_t size, uint16_t channel) {
  out_.sendToPlayers(static_cast<int>(sender), data, size, true,
                [channel](const SngSrvPlayer& player) { return player.comm_channel == channel; });
}

void SngBroadcasts::bcastPlayerLeft(uint32_t id) {
  SngPlayerMsg left;
  left.player = static_cast<uint8_t>(id);
  out_.sendToPlayers(static_cast<int>(id), sngMessage(SngNet::PLAYER_LEFT, left), true);
}

SngPacket SngBroadcasts::buildServerInfo(uint32_t id, bool trace, bool& stillSeated) {
  const SngSrvPlayer* receiver = players_.at(id);
  SngServerInfoMsg info;
  info.player = static_cast<uint8_t>(id);
  info.server_flags = static_cast<uint8_t>(session_.situation.mp_server_flags);
  info.month = static_cast<uint8_t>(session_.situation.month);
  info.day = static_cast<uint8_t>(session_.situation.day);
  info.sim_time = session_.sim_time;  // the time when the message is started, before the nested pass below
  info.scenery_name = session_.scenery_dir;
  info.airport_name = session_.situation.airport_name;
  info.runway = session_.situation.runway;
  info.thermal_strength = session_.situation.thermal_strength;
  info.thermal_radius = session_.situation.thermal_radius;
  info.thermal_ceiling = session_.situation.thermal_ceiling;
  info.cumulus_base = session_.situation.cumulus_base;
  info.max_num_thermals = static_cast<uint16_t>(session_.situation.max_num_thermals);
  info.wind_str = static_cast<uint16_t>(session_.situation.wind_str);
  info.wind_dir = static_cast<uint16_t>(session_.situation.wind_dir);
  for (const SngWindLayer& layer : session_.situation.wind_layers) {
    info.wind_layers.push_back({layer.altitude, layer.direction, layer.strength});
  }
  info.start_gate_open_time = static_cast<uint32_t>(session_.situation.start_gate_open_time);
  info.regatta_start = session_.situation.regatta_start;
  double altitude = std::trunc(session_.situation.start_gate_altitude);
  if (session_.situation.start_gate_altitude_ref == 1 && !session_.situation.turnpoints.empty()) {
    const SngTurnpoint& first = session_.situation.turnpoints.front();
    GgTriangle ground(10.0f);
    // Runs one nested server pass; the receiver may log out or lose its slot to a new LOGIN meanwhile.
    if (host_.findTerrainTriangle(first.lat, first.lon, ground)) altitude = std::trunc(altitude + ground.height);
  }
  info.start_gate_altitude = sngTruncI32(altitude);
  if (trace) btkLogger.log(BTK_DEBUG, "sendServerInfo, build task packet\n");
  info.task = session_.situation.turnpoints;
  if (trace) btkLogger.log(BTK_DEBUG, "- ok\n");
  info.motd = session_.motd;
  stillSeated = receiver && players_.at(id) == receiver;
  return sngMessage(SngNet::SERVER_INFO, info);
}

void SngBroadcasts::sendServerInfo(uint32_t id, bool trace) {
  bool stillSeated = false;
  const SngPacket packet = buildServerInfo(id, trace, stillSeated);
  const SngSrvPlayer* player = players_.at(id);
  if (!stillSeated || !player || !player->peer) return;
  if (trace) btkLogger.log(BTK_INFO, "Send server info to player %u", id);
  out_.sendToPeer(player->peer, packet, true);
}

SngPacket SngBroadcasts::buildAircraftMessage(uint8_t opcode, const SngSrvPlayer& player) const {
  SngAircraftMsg msg;
  msg.player = static_cast<uint8_t>(player.player_id);
  msg.aircraft_id = player.aircraft_id;
  msg.pilot_name = player.name;
  msg.nick = player.nick;
  msg.registration = player.registration;
  msg.comp_id = player.comp_id;
  msg.launch = player.launch;
  // A joiner sees a finished aerotow or winch launch as no launch at all.
  if (opcode == SngNet::EXISTING_AIRCRAFT && player.launch.isAssisted() && !player.launching) {
    msg.launch.method = SngLaunch::NONE;
  }
  msg.task = player.task.turnpoints;
  return sngMessage(opcode, msg);
}

void SngBroadcasts::sendExistingAircraft(uint32_t id) {
  const SngSrvPlayer* joiner = players_.at(id);
  if (!joiner) {
    btkLogger.log(BTK_WARNING, "sendExistingAircraft (%u): Missing player!\n", id);
    return;
  }
  btkLogger.log(BTK_DEBUG, "Sending %zu existing aircraft: %u (%s)\n", players_.size(), id, joiner->nick.c_str());
  for (size_t slot = 0; slot < players_.size(); ++slot) {
    const SngSrvPlayer* other = players_.at(static_cast<uint32_t>(slot));
    if (!other || other->idle || slot == id) continue;
    out_.sendToPlayer(*joiner, buildAircraftMessage(SngNet::EXISTING_AIRCRAFT, *other), true);
  }
}

void SngBroadcasts::bcastNewAircraft(uint32_t id) {
  const SngSrvPlayer* player = players_.at(id);
  if (!player) {
    btkLogger.log(BTK_WARNING, "bcastNewAircraft (%u): Missing player!\n", id);
    return;
  }
  out_.sendToPlayers(static_cast<int>(id), buildAircraftMessage(SngNet::NEW_AIRCRAFT, *player), true);
}

void SngBroadcasts::bcastTaskUpdate(uint32_t id) {
  const SngSrvPlayer* player = players_.at(id);
  if (!player) return;
  SngTaskUpdateMsg update;
  update.player = static_cast<uint8_t>(id);
  update.status = player->task.statusCode();
  update.curr_tp = static_cast<uint8_t>(player->task.curr_tp);
  update.task_time = static_cast<float>(player->task.task_time);
  update.distance = static_cast<float>(player->task.distance);
  btkLogger.log(BTK_DEBUG, "Send task update: %s: %.4f sec, %.4f km", player->nick.c_str(), player->task.task_time,
                player->task.distance / 1000.0);
  out_.sendToPlayers(static_cast<int>(id), sngMessage(SngNet::TASK_UPDATE, update), false);
}

void SngBroadcasts::bcastShutdownMessage(const std::string& text) {
  SngShutdownMsg msg;
  msg.text = text;
  // The two version numbers are compared each by itself, unlike LOGIN's check: 2.0 gets nothing.
  out_.sendToPlayers(-1, sngMessage(SngNet::SHUTDOWN_MSG, msg), true, [](const SngSrvPlayer& player) {
    return player.client_version_major >= 1 && player.client_version_minor >= 8;
  });
}
