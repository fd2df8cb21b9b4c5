// How a glider gets airborne: CONNECT gives it, the player record keeps it and the aircraft
// announcements repeat it to the other pilots.
#pragma once

#include <cstdint>
#include <string>

struct SngLaunch {
  static constexpr uint8_t NONE = 0;
  static constexpr uint8_t AEROTOW = 1;
  static constexpr uint8_t WINCH = 2;

  uint8_t method = NONE;  // any value but AEROTOW and WINCH carries nothing more
  uint16_t rope_length = 0;  // m, tow rope or winch cable
  std::string towplane_id;   // aerotow
  std::string winch_id;      // winch, and its position and direction:
  double winch_lat = 9999.0;  // degrees; 9999 when no winch was sent
  double winch_lon = 9999.0;
  double winch_alt = 0.0;     // m
  uint16_t winch_dir = 0;     // degrees

  // Aerotow and winch launches take time; the aircraft state says when they are over.
  bool isAssisted() const { return method == AEROTOW || method == WINCH; }
};
