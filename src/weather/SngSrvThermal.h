// One thermal as the server knows it. The thermal area that creates it holds one counted reference,
// every player queue that still has to send it holds another; the last holder destroys it.
#pragma once

#include "toolkit/BtkObject.h"

class SngSrvThermal : public BtkObject {
 public:
  SngSrvThermal(float lat, float lon, float base_alt, float height, float radius, float strength, float variation,
                float life_time, float birth_time)
      : lat(lat),
        lon(lon),
        base_alt(base_alt),
        radius(radius),
        strength(strength),
        variation(variation),
        height(height),
        birth_time(birth_time),
        life_time(life_time) {}

  // Over from this simulation time on (seconds of the day).
  float endTime() const { return birth_time + life_time; }
  bool isOver(float simTime) const { return simTime >= endTime(); }

  float lat, lon;     // degrees
  float base_alt;     // m above sea level
  float radius;       // m
  float strength;     // m/s
  float variation;    // uniform in [0, thermal_strength)
  float height;       // m above the base
  float birth_time;   // s of the simulated day
  float life_time;    // s
};
