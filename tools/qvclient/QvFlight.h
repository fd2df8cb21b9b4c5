// Straight-line flights for test clients: successive aircraft states along a great circle on the
// sphere the server measures with, with the client's clock optionally running faster than real time.
#pragma once

#include <cstdint>

#include "session/SngAircraftState.h"

struct QvPosition {
  double lat = 0.0;  // degrees
  double lon = 0.0;  // degrees, -180..180
};

// The point `distanceM` metres from (latDeg, lonDeg) along the great circle that leaves it on the true
// course `courseDeg` (clockwise from north).
QvPosition qvDestination(double latDeg, double lonDeg, double courseDeg, double distanceM);

struct QvFlightPlan {
  double lat = 0.0;             // degrees, position of the first state
  double lon = 0.0;             // degrees
  double alt = 1000.0;          // m, kept for the whole flight
  double course = 0.0;          // degrees true, clockwise from north
  double speed_kmh = 100.0;     // ground speed
  double start_time = 43200.0;  // s of the client's day at the first state
  double step = 1.0;            // real seconds between successive states
  double time_scale = 1.0;      // client seconds per real second
};

// States of one flight: state n lies n × step × time_scale client seconds after the first, at the
// distance the aircraft flies at its speed in that client time. So a server that divides distance by
// the state times sees the plan's speed whatever the time scale, while a test gets there sooner.
class QvStraightFlight {
 public:
  explicit QvStraightFlight(const QvFlightPlan& plan) : plan_(plan) {}

  // The next state: the first call gives the start.
  SngAircraftState next();
  // The state `realElapsedS` real seconds after the start.
  SngAircraftState stateAt(double realElapsedS) const;
  uint64_t statesMade() const { return states_made_; }
  const QvFlightPlan& plan() const { return plan_; }

 private:
  QvFlightPlan plan_;
  uint64_t states_made_ = 0;
};
