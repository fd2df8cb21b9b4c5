// One recorded position of a player's flown track; the player record keeps at most one per 2 s.
#pragma once

#include <cstdint>

// Flag bits of a track point.
enum SngTrackFlag : uint16_t {
  SNG_TRACK_ON_GROUND = 0x1,
  SNG_TRACK_IGNORED = 0x2,     // never set by the server; scoring passes such a point over
  SNG_TRACK_STATE_BIT2 = 0x4,  // the aircraft state's flag bit 2; scoring treats it like a landing
};

struct SngTrackPoint {
  float time = 0.0f;  // s of the simulated day, truncated to whole seconds
  double lat = 0.0;   // degrees
  double lon = 0.0;   // degrees
  double alt = 0.0;   // m
  uint16_t flags = 0;
};
