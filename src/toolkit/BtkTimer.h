// Elapsed-time measurement on the monotonic clock of BtkClock.h.
#pragma once

#include <cstdint>

class BtkTimer {
 public:
  void start();
  double elapsedMs() const;
  // The elapsed time, and the timer restarts from now.
  double lapMs();

 private:
  int64_t stampNs_ = 0;
};
