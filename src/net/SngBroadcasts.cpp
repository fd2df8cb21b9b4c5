// The join snapshot and the server's broadcasts. Each message is built once and handed to the
// transport once for all its recipients.
#include <cmath>

#include "net/SngMessages.h"
#include "net/SngNet.h"
#include "net/SngServerState.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkLogger.h"

void SngServerState::relayToOthers(uint32_t sender, const std::vector<uint8_t>& bytes) {
  sendToPlayers(static_cast<int>(sender), bytes.data(), bytes.size(), false, [](const SngSrvPlayer&) { return true; });
}

void SngServerState::bcastChatMessage(uint32_t sender, const std::string& text) {
  if (!playerAt(sender)) return;
  SngChatMsg chat;
  chat.player = static_cast<uint8_t>(sender);
  chat.text = text;
  sendToPlayers(static_cast<int>(sender), sngMessage(SngNet::CHAT_MSG, chat), true);
}

void SngServerState::bcastVoice(uint32_t sender, const std::vector<uint8_t>& bytes, uint16_t channel) {
  sendToPlayers(static_cast<int>(sender), bytes.data(), bytes.size(), true,
                [channel](const SngSrvPlayer& player) { return player.comm_channel == channel; });
}

void SngServerState::bcastPlayerLeft(uint32_t id) {
  SngPlayerMsg left;
  left.player = static_cast<uint8_t>(id);
  sendToPlayers(static_cast<int>(id), sngMessage(SngNet::PLAYER_LEFT, left), true);
}

SngPacket SngServerState::buildServerInfo(uint32_t id, bool& stillSeated) {
  const SngSrvPlayer* receiver = playerAt(id);
  SngServerInfoMsg info;
  info.player = static_cast<uint8_t>(id);
  info.server_flags = static_cast<uint8_t>(situation.mp_server_flags);
  info.month = static_cast<uint8_t>(situation.month);
  info.day = static_cast<uint8_t>(situation.day);
  info.sim_time = sim_time;  // the time when the message is started, before the nested pass below
  info.scenery_name = scenery_dir;
  info.airport_name = situation.airport_name;
  info.runway = situation.runway;
  info.thermal_strength = situation.thermal_strength;
  info.thermal_radius = situation.thermal_radius;
  info.thermal_ceiling = situation.thermal_ceiling;
  info.cumulus_base = situation.cumulus_base;
  info.max_num_thermals = static_cast<uint16_t>(situation.max_num_thermals);
  info.wind_str = static_cast<uint16_t>(situation.wind_str);
  info.wind_dir = static_cast<uint16_t>(situation.wind_dir);
  for (const SngWindLayer& layer : situation.wind_layers) {
    info.wind_layers.push_back({layer.altitude, layer.direction, layer.strength});
  }
  info.start_gate_open_time = static_cast<uint32_t>(situation.start_gate_open_time);
  info.regatta_start = situation.regatta_start;
  double altitude = std::trunc(situation.start_gate_altitude);
  if (situation.start_gate_altitude_ref == 1 && !situation.turnpoints.empty()) {
    const SngTurnpoint& first = situation.turnpoints.front();
    GgTriangle ground(10.0f);
    // Runs one nested server pass; the receiver may log out or lose its slot to a new LOGIN meanwhile.
    if (findTerrainTriangle(first.lat, first.lon, ground)) altitude = std::trunc(altitude + ground.height);
  }
  info.start_gate_altitude = sngTruncI32(altitude);
  btkLogger.log(BTK_DEBUG, "sendServerInfo, build task packet\n");
  info.task = situation.turnpoints;
  btkLogger.log(BTK_DEBUG, "- ok\n");
  info.motd = motd;
  stillSeated = receiver && playerAt(id) == receiver;
  return sngMessage(SngNet::SERVER_INFO, info);
}

void SngServerState::sendServerInfo(uint32_t id) {
  bool stillSeated = false;
  const SngPacket packet = buildServerInfo(id, stillSeated);
  const SngSrvPlayer* player = playerAt(id);
  if (!stillSeated || !player || !player->peer) return;
  btkLogger.log(BTK_INFO, "Send server info to player %u", id);
  sendToPeer(player->peer, packet, true);
}

SngPacket SngServerState::buildAircraftMessage(uint8_t opcode, const SngSrvPlayer& player) {
  SngAircraftMsg msg;
  msg.player = static_cast<uint8_t>(player.player_id);
  msg.aircraft_id = player.aircraft_id;
  msg.pilot_name = player.name;
  msg.nick = player.nick;
  msg.registration = player.registration;
  msg.comp_id = player.comp_id;
  msg.launch.launch_method = player.launch_method;
  msg.launch.rope_length = player.rope_length;
  msg.launch.towplane_id = player.towplane_id;
  msg.launch.winch_id = player.winch_id;
  msg.launch.winch_lat = player.winch_lat;
  msg.launch.winch_lon = player.winch_lon;
  msg.launch.winch_alt = player.winch_alt;
  msg.launch.winch_dir = player.winch_dir;
  // A joiner sees a finished aerotow or winch launch as no launch at all.
  const bool launchOver = player.launch_method == 1 || player.launch_method == 2 ? !player.launching : false;
  if (opcode == SngNet::EXISTING_AIRCRAFT && launchOver) msg.launch.launch_method = 0;
  msg.task = player.task.turnpoints;
  return sngMessage(opcode, msg);
}

void SngServerState::sendExistingAircraft(uint32_t id) {
  const SngSrvPlayer* joiner = playerAt(id);
  if (!joiner) {
    btkLogger.log(BTK_WARNING, "sendExistingAircraft (%u): Missing player!\n", id);
    return;
  }
  btkLogger.log(BTK_DEBUG, "Sending %zu existing aircraft: %u (%s)\n", players.size(), id, joiner->nick.c_str());
  for (size_t slot = 0; slot < players.size(); ++slot) {
    const SngSrvPlayer* other = players[slot].get();
    if (!other || other->idle || slot == id) continue;
    sendToPlayer(*joiner, buildAircraftMessage(SngNet::EXISTING_AIRCRAFT, *other), true);
  }
}

void SngServerState::bcastNewAircraft(uint32_t id) {
  const SngSrvPlayer* player = playerAt(id);
  if (!player) {
    btkLogger.log(BTK_WARNING, "bcastNewAircraft (%u): Missing player!\n", id);
    return;
  }
  sendToPlayers(static_cast<int>(id), buildAircraftMessage(SngNet::NEW_AIRCRAFT, *player), true);
}

void SngServerState::bcastTaskUpdate(uint32_t id) {
  const SngSrvPlayer* player = playerAt(id);
  if (!player) return;
  SngTaskUpdateMsg update;
  update.player = static_cast<uint8_t>(id);
  update.status = player->task.statusCode();
  update.curr_tp = static_cast<uint8_t>(player->task.curr_tp);
  update.task_time = static_cast<float>(player->task.task_time);
  update.distance = static_cast<float>(player->task.distance);
  btkLogger.log(BTK_DEBUG, "Send task update: %s: %.4f sec, %.4f km", player->nick.c_str(), player->task.task_time,
                player->task.distance / 1000.0);
  sendToPlayers(static_cast<int>(id), sngMessage(SngNet::TASK_UPDATE, update), false);
}

void SngServerState::bcastShutdownMessage(const std::string& text) {
  SngShutdownMsg msg;
  msg.text = text;
  // The two version numbers are compared each by itself, unlike LOGIN's check: 2.0 gets nothing.
  sendToPlayers(-1, sngMessage(SngNet::SHUTDOWN_MSG, msg), true, [](const SngSrvPlayer& player) {
    return player.client_version_major >= 1 && player.client_version_minor >= 8;
  });
}
