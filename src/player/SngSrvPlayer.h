// The per-player record. LOGIN creates it in the first free slot of the player table; it is removed
// from its slot by LOGOUT or the idle time-out, and destroyed once the outermost server pass ends, so
// that code running inside a nested pass never holds a dangling record.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "player/SngPeer.h"
#include "player/SngPlayerHost.h"
#include "session/SngAircraftState.h"
#include "session/SngLaunch.h"
#include "session/SngTaskProgress.h"
#include "session/SngTrackPoint.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkObject.h"
#include "weather/SngSrvThermal.h"

class SngSrvPlayer {
 public:
  static constexpr float kLoginIdleSeconds = 300.0f;  // a returning client's time to send its next message
  static constexpr double kThermalReachMps = 300.0 / 3.6;  // thermals farther than 300 km/h of life are dropped
  static constexpr float kTrackIntervalSeconds = 2.0f;
  // The track grows with the client's own clock, which a client may run as fast as it likes: beyond
  // this (14 hours at one point per 2 s) nothing more is recorded or scored for the player.
  static constexpr size_t kMaxTrackPoints = 14 * 3600 / 2;
  static constexpr double kGroundSpeedKmh = 3.0;  // below this and ...
  static constexpr double kGroundHeightM = 2.0;   // ... this close to the terrain: on the ground

  SngSrvPlayer(SngPlayerHost* server, const SngPeer& peer, uint32_t player_id, uint32_t hw_id);
  SngSrvPlayer(const SngSrvPlayer&) = delete;
  SngSrvPlayer& operator=(const SngSrvPlayer&) = delete;

  void setPeer(const SngPeer& newPeer);
  // Records a decoded state. False when a nested pass inside the terrain lookup removed this record
  // from its slot: the update then stopped half-way and the caller must not touch the record again.
  bool updateState(const SngAircraftState& newState);
  // Per-pass service: the idle countdown, or at most one queued thermal.
  void update(float dt);
  void addThermal(const BtkRef<SngSrvThermal>& thermal);
  void addThermals(const std::vector<BtkRef<SngSrvThermal>>& thermals);

  SngPlayerHost* server;
  SngPeer peer;
  uint32_t player_id;
  uint32_t hw_id;
  uint16_t comm_channel = 218;
  GgTriangle ground;
  std::string aircraft_id = "Unknown Aircraft";
  std::string registration = "XX-XXX";
  std::string name = "Unknown Pilot";
  std::string comp_id = "XX";
  std::string nick;
  std::string host;  // "%d.%d.%d.%d"
  SngAircraftState state = initialState();
  SngAircraftState prev_state = initialState();
  double ground_speed = 0.0;  // m/s
  double course = 0.0;        // degrees
  SngTaskProgress task;
  std::vector<SngTrackPoint> track;
  int32_t grid_cell = -1;
  std::list<BtkRef<SngSrvThermal>> pending_thermals;  // nearest first
  float idle_time_left = 0.0f;  // s
  bool idle = false;
  bool crashed = false;
  bool on_ground = false;
  bool launching = false;   // an aerotow or winch launch is not over yet
  bool finish_reported = false;
  bool track_full = false;  // kMaxTrackPoints reached
  SngLaunch launch;
  uint32_t client_version_major = 0;
  uint32_t client_version_minor = 0;

 private:
  static SngAircraftState initialState();
  void updateGroundSpeedAndCourse();
  void updateOnGround();
  bool recordTrackPoint();
  void evaluateTask();
  double thermalKey(const SngSrvThermal& thermal) const;
};
