// Test flights for task scoring: straight legs at a constant speed and altitude, sampled every 2 s as
// the player record samples states, and scoring fed one point at a time as the server feeds it.
#pragma once

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "session/SngTaskProgress.h"

// One degree of great circle on the flight model's sphere is 60 nautical miles of 1852 m, so along
// the equator and along a meridian a distance is exactly degrees x 111120 m.
constexpr double kMetresPerDegree = 60.0 * 1852.0;
constexpr int32_t kGateOpen = 43200;  // 12:00:00

inline double degreesFor(double metres) {
  return metres / kMetresPerDegree;
}

inline SngTurnpoint makeTurnpoint(std::string name, double lat, double lon, double radius,
                                  int32_t oz = SNG_OZ_CYLINDER, double angle1 = 0.0, double angle2 = 180.0) {
  SngTurnpoint tp;
  tp.name = std::move(name);
  tp.lat = lat;
  tp.lon = lon;
  tp.radius = radius;
  tp.oz = oz;
  tp.angle1 = angle1;
  tp.angle2 = angle2;
  return tp;
}

inline SngTaskProgress makeTask(std::vector<SngTurnpoint> turnpoints) {
  SngTaskProgress task;
  task.turnpoints = std::move(turnpoints);
  return task;
}

// Flat-earth distance between two positions near the equator; good to well under a metre over the
// few tens of kilometres these tests fly.
inline double flatMetres(double lat1, double lon1, double lat2, double lon2) {
  const double north = (lat2 - lat1) * kMetresPerDegree;
  const double east = (lon2 - lon1) * kMetresPerDegree * std::cos((lat1 + lat2) * M_PI / 360.0);
  return std::hypot(north, east);
}

class TestFlight {
 public:
  // Starts at whole second t0; the first point is recorded there.
  TestFlight(double t0, double lat, double lon, double alt)
      : time_(t0), nextSample_(t0), lat_(lat), lon_(lon), alt_(alt) {}

  // Flies a straight line (in degrees, which near the equator is the great circle) at speed m/s.
  TestFlight& flyTo(double lat, double lon, double speedMps, double alt) {
    const double seconds = flatMetres(lat_, lon_, lat, lon) / speedMps;
    const double legStart = time_;
    // Legs of a whole number of seconds end on a sample, not a rounding error short of it.
    const double legEnd = std::round((time_ + seconds) * 1e6) / 1e6;
    const double lat0 = lat_, lon0 = lon_;
    for (; nextSample_ <= legEnd; nextSample_ += 2.0) {
      const double f = seconds > 0.0 ? (nextSample_ - legStart) / seconds : 1.0;
      record(lat0 + f * (lat - lat0), lon0 + f * (lon - lon0), alt, 0);
    }
    time_ = legEnd;
    lat_ = lat;
    lon_ = lon;
    alt_ = alt;
    return *this;
  }
  // Metres east (negative: west) and north of the current position.
  TestFlight& flyBy(double eastMetres, double northMetres, double speedMps) {
    return flyTo(lat_ + degreesFor(northMetres), lon_ + degreesFor(eastMetres), speedMps, alt_);
  }
  // Stands on the ground where the last leg ended.
  TestFlight& land(double seconds) {
    time_ += seconds;
    for (; nextSample_ <= time_; nextSample_ += 2.0) record(lat_, lon_, alt_, SNG_TRACK_ON_GROUND);
    return *this;
  }

  const std::vector<SngTrackPoint>& track() const { return track_; }
  std::vector<SngTrackPoint>& track() { return track_; }

 private:
  void record(double lat, double lon, double alt, uint16_t flags) {
    SngTrackPoint p;
    p.time = static_cast<float>(nextSample_);
    p.lat = lat;
    p.lon = lon;
    p.alt = alt;
    p.flags = flags;
    track_.push_back(p);
  }

  double time_, nextSample_;  // s
  double lat_, lon_, alt_;
  std::vector<SngTrackPoint> track_;
};

// The server's way: the track grows by one point and the task is evaluated after each.
struct LiveScorer {
  SngTaskProgress task;
  int32_t gate;
  std::vector<SngTrackPoint> seen;

  LiveScorer(SngTaskProgress t, int32_t gateOpen = kGateOpen) : task(std::move(t)), gate(gateOpen) {}

  LiveScorer& feedUntil(const std::vector<SngTrackPoint>& track, double untilTime) {
    while (seen.size() < track.size() && track[seen.size()].time <= untilTime) {
      seen.push_back(track[seen.size()]);
      task.evaluate(seen.back().time, seen, gate);
    }
    return *this;
  }
  LiveScorer& feedAll(const std::vector<SngTrackPoint>& track) { return feedUntil(track, 1e30); }
};

inline SngTaskProgress scoreLive(SngTaskProgress task, const std::vector<SngTrackPoint>& track,
                                 int32_t gate = kGateOpen) {
  return LiveScorer(std::move(task), gate).feedAll(track).task;
}
