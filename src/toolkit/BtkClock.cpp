#include "toolkit/BtkClock.h"

#include <atomic>
#include <ctime>

namespace {

int64_t systemMonotonicNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

double systemWallClockMs() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<double>(ts.tv_sec) * 1000.0 + static_cast<double>(ts.tv_nsec) / 1e6;
}

std::atomic<BtkClockSource*> installedSource{nullptr};

}  // namespace

int64_t BtkManualClock::monotonicNs() {
  std::lock_guard<std::mutex> guard(mutex_);
  return monoNs_;
}

double BtkManualClock::wallClockMs() {
  std::lock_guard<std::mutex> guard(mutex_);
  return wallMs_;
}

void BtkManualClock::advanceMs(double ms) {
  std::lock_guard<std::mutex> guard(mutex_);
  monoNs_ += static_cast<int64_t>(ms * 1e6);
  wallMs_ += ms;
}

void btkSetClockSource(BtkClockSource* source) { installedSource.store(source); }

int64_t btkMonotonicNs() {
  BtkClockSource* source = installedSource.load();
  return source ? source->monotonicNs() : systemMonotonicNs();
}

double btkWallClockMs() {
  BtkClockSource* source = installedSource.load();
  return source ? source->wallClockMs() : systemWallClockMs();
}

time_t btkCalendarSeconds() { return static_cast<time_t>(btkWallClockMs() / 1000.0); }
