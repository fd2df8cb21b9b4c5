#include "player/SngSrvPlayer.h"

#include <cmath>

#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"

SngSrvPlayer::SngSrvPlayer(SngPlayerHost* server, const SngPeer& peer, uint32_t player_id, uint32_t hw_id)
    : server(server), peer(peer), player_id(player_id), hw_id(hw_id) {
  if (peer) host = peer.hostText();
}

SngAircraftState SngSrvPlayer::initialState() {
  SngAircraftState s;
  s.time = -1.0;
  s.lat = 9999.0;
  s.lon = 9999.0;
  return s;
}

void SngSrvPlayer::setPeer(const SngPeer& newPeer) { peer = newPeer; }

bool SngSrvPlayer::updateState(const SngAircraftState& newState) {
  prev_state = state;
  state = newState;
  // The lookup runs a nested server pass when it finds a tile; on a miss `ground` keeps the last answer.
  server->findTerrainTriangle(state.lat, state.lon, ground);
  if (!server->isSeated(*this)) return false;
  // A repeated time gives no speed at all: the previous speed, course and ground test stand.
  if (prev_state.time >= 0.0 && state.time != prev_state.time) {
    updateGroundSpeedAndCourse();
    updateOnGround();
  }
  launching = state.launchInProgress();
  if (!recordTrackPoint()) return true;
  evaluateTask();
  return true;
}

void SngSrvPlayer::updateGroundSpeedAndCourse() {
  const BtkCourseDistance cd = calcCourseDistance(btkRadians(prev_state.lat), btkRadians(prev_state.lon),
                                                  btkRadians(state.lat), btkRadians(state.lon));
  course = 360.0 - btkDegrees(cd.course);
  ground_speed = cd.distance / (state.time - prev_state.time);
}

void SngSrvPlayer::updateOnGround() {
  const bool now = ground_speed * 3.6 < kGroundSpeedKmh && state.alt - ground.height < kGroundHeightM;
  if (now == on_ground) return;
  on_ground = now;
  if (server->traceAllowed(peer)) btkLogger.log(BTK_DEBUG, "%s: on_ground = %s", nick.c_str(), now ? "true" : "false");
}

bool SngSrvPlayer::recordTrackPoint() {
  const float t = static_cast<float>(state.time);
  if (!track.empty() && t - track.back().time < kTrackIntervalSeconds) return false;
  if (track.size() >= kMaxTrackPoints) {
    if (!track_full) {
      btkLogger.log(BTK_WARNING, "Player %u (%s): track full at %zu points, no longer recorded or scored", player_id,
                    nick.c_str(), track.size());
    }
    track_full = true;
    return false;
  }
  SngTrackPoint point;
  point.time = std::trunc(t);
  point.lat = state.lat;
  point.lon = state.lon;
  point.alt = state.alt;
  point.flags = static_cast<uint16_t>((state.trackFlagBit2() ? SNG_TRACK_STATE_BIT2 : 0) |
                                      (on_ground ? SNG_TRACK_ON_GROUND : 0));
  track.push_back(point);
  return true;
}

void SngSrvPlayer::evaluateTask() {
  if (task.turnpoints.empty()) return;
  // In competition mode nothing counts before the gate opens, not even arming the start.
  if (server->competitionMode() && !(server->simTime() > static_cast<float>(server->startGateOpenTime()))) return;
  task.evaluate(static_cast<double>(static_cast<float>(state.time)), track, server->startGateOpenTime());
  if (!server->traceAllowed(peer)) return;
  btkLogger.log(BTK_DEBUG, "Task update: %s: d = %.4f km, t = %.4f, start = %.4f, avg = %.4f km/h, next = %s",
                nick.c_str(), task.distance / 1000.0, task.task_time, task.start_time, task.avg_speed,
                task.currentTurnpointName().c_str());
}

void SngSrvPlayer::update(float dt) {
  if (idle) {
    idle_time_left -= dt;
    return;
  }
  const float now = server->simTime();
  while (!pending_thermals.empty()) {
    BtkRef<SngSrvThermal> thermal = pending_thermals.front();
    pending_thermals.pop_front();
    const double lifeLeft = static_cast<double>(thermal->endTime()) - static_cast<double>(now);
    if (lifeLeft > 0.0 && surfaceDistance(state.lat, state.lon, thermal->lat, thermal->lon) <= lifeLeft * kThermalReachMps) {
      server->sendThermal(peer, *thermal);
      return;  // one thermal per pass
    }
  }
}

double SngSrvPlayer::thermalKey(const SngSrvThermal& thermal) const {
  const double dLat = thermal.lat - state.lat, dLon = thermal.lon - state.lon;
  return dLat * dLat + dLon * dLon;
}

void SngSrvPlayer::addThermal(const BtkRef<SngSrvThermal>& thermal) {
  const double key = thermalKey(*thermal);
  auto it = pending_thermals.begin();
  while (it != pending_thermals.end() && !(thermalKey(**it) > key)) ++it;
  pending_thermals.insert(it, thermal);
}

void SngSrvPlayer::addThermals(const std::vector<BtkRef<SngSrvThermal>>& thermals) {
  pending_thermals.insert(pending_thermals.end(), thermals.begin(), thermals.end());
}
