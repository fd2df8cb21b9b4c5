#include "toolkit/BtkTimer.h"

#include "toolkit/BtkClock.h"

void BtkTimer::start() { stampNs_ = btkMonotonicNs(); }

double BtkTimer::elapsedMs() const { return static_cast<double>(btkMonotonicNs() - stampNs_) / 1e6; }

double BtkTimer::lapMs() {
  const int64_t now = btkMonotonicNs();
  const double elapsed = static_cast<double>(now - stampNs_) / 1e6;
  stampNs_ = now;
  return elapsed;
}
