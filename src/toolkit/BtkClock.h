// The one clock source behind BtkTimer, btkWallClockMs and the calendar seconds that stamp terrain
// tiles. The program reads the system clocks; tests install a manual clock and advance it, so that
// countdowns of minutes are checked in-process without waiting.
#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>

class BtkClockSource {
 public:
  virtual ~BtkClockSource() = default;
  virtual int64_t monotonicNs() = 0;  // arbitrary origin, never goes back
  virtual double wallClockMs() = 0;   // milliseconds since 1970-01-01 UTC
};

class BtkManualClock : public BtkClockSource {
 public:
  explicit BtkManualClock(double wallStartMs = 1.7e12) : wallMs_(wallStartMs) {}
  int64_t monotonicNs() override;
  double wallClockMs() override;
  void advanceMs(double ms);
  void advanceSeconds(double s) { advanceMs(s * 1000.0); }

 private:
  std::mutex mutex_;
  int64_t monoNs_ = 1'000'000'000;
  double wallMs_;
};

// nullptr restores the system clocks. The caller keeps the source alive while it is installed.
void btkSetClockSource(BtkClockSource* source);

int64_t btkMonotonicNs();
double btkWallClockMs();
// Calendar time in whole seconds, from the same source as btkWallClockMs.
time_t btkCalendarSeconds();
