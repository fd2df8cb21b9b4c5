// The per-player record: created by LOGIN into its slot of the player table, destroyed only when the
// slot is freed (LOGOUT or the idle time-out).
#pragma once

#include <string>

class SngSrvPlayer {
 public:
  std::string nick;
  bool idle = false;
  float idle_time_left = 0.0f;  // s
};
