// The session as the protocol sees it: what start-up read (situation, scenery, message of the day)
// and the simulated time of day. The server owns it and writes it; the protocol only reads it.
#pragma once

#include <cstdint>
#include <string>

#include "config/SngSituation.h"
#include "terrain/GgTerrainGroup.h"
#include "toolkit/BtkObject.h"

struct SngSession {
  SngSituation situation;
  std::string scenery_dir;  // the scenery's short name, as SERVER_INFO and the scan reply give it
  std::string motd;
  uint16_t default_comm_channel = 218;  // 123.450 MHz
  BtkRef<GgTerrainGroup> terrain;
  float sim_time = 0.0f;   // s since midnight, advanced by every pass
  int32_t pass_count = 0;  // passes so far; stamps terrain tiles for the cache
};
