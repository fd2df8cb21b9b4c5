// One aircraft state as a client reports it; the player record keeps the latest two.
#pragma once

#include <array>

struct SngAircraftState {
  double time = -1.0;  // s of the sender's simulated day; below 0: no state yet
  double lat = 0.0;    // degrees
  double lon = 0.0;    // degrees
  double alt = 0.0;    // m above sea level
  double roll = 0.0;   // radians, -pi..pi
  double pitch = 0.0;  // radians, -pi..pi
  double heading = 0.0;  // radians, 0..2pi
  std::array<double, 3> vel{};   // range set by its scale word / 200
  std::array<double, 3> vec2{};  // range set by its scale word / 500
  std::array<double, 3> vec3{};
  std::array<double, 3> vec4{};
  std::array<float, 7> controls{};  // four signed in -8/7..1, three in 0..1
  // The message's flag bits 0, 1, 3, 4, 5, 2 in this order: bit 4 (index 3) is a launch in progress,
  // bit 2 (index 5) is copied into the track.
  std::array<bool, 6> flags{};

  bool launchInProgress() const { return flags[3]; }
  bool trackFlagBit2() const { return flags[5]; }
};
