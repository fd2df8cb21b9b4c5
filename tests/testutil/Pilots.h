// Real ENet clients of a real server on loopback, shared by the end-to-end tests and the network
// benchmark: connected, and joined the way the simulator joins.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "QvClient.h"

// A client connected to the server at 127.0.0.1:port from the local address; check connected().
inline std::unique_ptr<QvClient> connectPilot(uint16_t port, const std::string& localAddress = "127.0.0.1") {
  auto client = std::make_unique<QvClient>();
  if (client->setLocalAddress(localAddress)) client->connect("127.0.0.1", port, std::chrono::seconds(5));
  return client;
}

// A glider's CONNECT; an aerotow comes with a 60 m rope behind a "pawnee".
inline SngConnectMsg joinMessage(uint32_t hw, uint8_t id, uint8_t launch = 0) {
  const bool towed = launch == SngNet::LAUNCH_AEROTOW;
  SngConnectMsg msg;
  std::tie(msg.hw_id, msg.player, msg.aircraft_id, msg.launch.method) = std::tuple(hw, id, "ASK21", launch);
  std::tie(msg.registration, msg.comp_id) = std::pair("D-" + std::to_string(hw), "C" + std::to_string(id));
  std::tie(msg.launch.rope_length, msg.launch.towplane_id) = std::pair(towed ? 60 : 0, towed ? "pawnee" : "");
  return msg;
}

// Logs in (as version 1.08 unless told) and joins; the slot, or 255 when either was refused.
inline uint8_t loginAndJoin(QvClient& client, uint32_t hwId, const std::string& nick,
                            uint8_t launchMethod = 0, std::pair<uint8_t, uint8_t> version = {1, 8}) {
  const std::chrono::seconds timeout(5);
  const auto info =
      client.loginAndWait(version.first, version.second, hwId, "Pilot " + nick, nick, timeout).info;
  const bool joined =
      info && client.joinAndWait(joinMessage(hwId, info->player, launchMethod), timeout).accepted();
  return joined ? info->player : 255;
}

// A state over the flat test scenery (46-46.06 N, 7-7.06 E).
inline SngAircraftState stateAt(double time, double lat = 46.03, double lon = 7.03, double alt = 1200.0) {
  return {.time = time, .lat = lat, .lon = lon, .alt = alt};
}
