// Test flights for task scoring (straight legs sampled every 2 s, as the player record samples), and
// a table runner that scores each flight both as the server does, one point at a time, and in one call.
#pragma once
// Records are built with designated initialisers, which name only the fields that matter.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "session/SngTaskProgress.h"

// One degree of great circle on the flight model's sphere is 60 nautical miles of 1852 m, so along
// the equator and along a meridian a distance is exactly degrees x 111120 m.
constexpr double kMetresPerDegree = 60.0 * 1852.0;
constexpr int32_t kGateOpen = 43200;  // 12:00:00
// From the start cylinder's centre at the gate opening, east at 30 m/s: the point at +100 s (3000 m) is
// inside, the one at +102 s (3060 m) outside. Twentieths of 3 m: 3009 m is the last inside.
constexpr double kStartedEast = kGateOpen + 100.3;
// Expected distances are worked out on a flat earth: good to well under a metre over these legs.
constexpr double kFlatEarthMetres = 0.5;

constexpr auto degreesFor = [](double metres) { return metres / kMetresPerDegree; };

inline SngTurnpoint makeTurnpoint(std::string name, double lat, double lon, double radius,
                                  int32_t oz = SNG_OZ_CYLINDER, double angle1 = 0.0, double angle2 = 180.0) {
  return {.lat = lat,
          .lon = lon,
          .name = std::move(name),
          .radius = radius,
          .angle1 = angle1,
          .angle2 = angle2,
          .oz = oz};
}

// Start cylinder of 3010 m at (0, 0); `middle` 33336 m east (0.3 degrees); the goal (1000 m) 33336 m
// north of that.
inline SngTaskProgress standardTask(SngTurnpoint start = makeTurnpoint("Start", 0.0, 0.0, 3010.0),
                                    SngTurnpoint middle = makeTurnpoint("East", 0.0, 0.3, 500.0)) {
  return {.turnpoints = {std::move(start), std::move(middle), makeTurnpoint("Goal", 0.3, 0.3, 1000.0)}};
}
inline const SngTaskProgress kTask = standardTask();  // the standard task, for the tables

class TestFlight {
 public:
  // From whole second t0, `eastMetres` along the equator; the first point is recorded there. Legs
  // run east along the equator or north along a meridian, where metres convert exactly to degrees.
  explicit TestFlight(double t0, double eastMetres = 0.0, double alt = 800.0)
      : time_(t0), next_(t0), lon_(degreesFor(eastMetres)), alt_(alt) {}

  // Every sample of the leg is at `alt` (NAN: unchanged).
  TestFlight& flyBy(double eastMetres, double northMetres, double mps, double alt = NAN) {
    const double lat = lat_ + degreesFor(northMetres), lon = lon_ + degreesFor(eastMetres);
    const double seconds = std::hypot(eastMetres, northMetres) / mps;
    // Legs of a whole number of seconds end on a sample, not a rounding error short of it.
    const double legEnd = std::round((time_ + seconds) * 1e6) / 1e6;
    if (!std::isnan(alt)) alt_ = alt;
    for (; next_ <= legEnd; next_ += 2.0) {
      const double f = seconds > 0.0 ? (next_ - time_) / seconds : 1.0;
      track_.push_back(
          {static_cast<float>(next_), lat_ + f * (lat - lat_), lon_ + f * (lon - lon_), alt_, 0});
    }
    std::tie(time_, lat_, lon_) = std::tuple(legEnd, lat, lon);
    return *this;
  }
  TestFlight& east(double metres, double mps = 30.0) { return flyBy(metres, 0.0, mps); }
  // Stays where the last leg ended, every point flagged.
  TestFlight& land(double seconds, uint16_t flags = SNG_TRACK_ON_GROUND) {
    for (time_ += seconds; next_ <= time_; next_ += 2.0)
      track_.push_back({static_cast<float>(next_), lat_, lon_, alt_, flags});
    return *this;
  }
  // One point, 2 s after the last, anywhere (metres from (0, 0)): tracks no straight leg gives.
  TestFlight& jump(double eastMetres, double northMetres, uint16_t flags = 0) {
    std::tie(lat_, lon_) = std::tuple(degreesFor(northMetres), degreesFor(eastMetres));
    return land(next_ - time_, flags);
  }
  const std::vector<SngTrackPoint>& track() const { return track_; }

 private:
  double time_, next_;  // s: where the flight is, and the next sample
  double lat_ = 0.0, lon_, alt_;
  std::vector<SngTrackPoint> track_;
};

// From the start's centre at the gate opening, east along the equator at 30 m/s: started at kStartedEast.
inline TestFlight eastFromTheGate(double metres) {
  return std::move(TestFlight(kGateOpen).east(metres));
}

// Live: one evaluation after each recorded point, as the server does; otherwise the whole track in one.
inline SngTaskProgress score(SngTaskProgress task, const std::vector<SngTrackPoint>& track, bool live,
                             std::string* log = nullptr) {  // the start lines
  testing::internal::CaptureStderr();
  std::vector<SngTrackPoint> seen;
  for (const SngTrackPoint& p : track) {
    seen.push_back(p);
    if (live) task.evaluate(p.time, seen, kGateOpen);
  }
  if (!live) task.evaluate(track.back().time, track, kGateOpen);
  const std::string text = testing::internal::GetCapturedStderr();
  if (log) *log = text;
  return task;
}

// A flight and what the scoring makes of it. Distances and the course are checked where given (not NAN).
struct ScoringCase {
  const char* name;
  SngTaskProgress task;
  TestFlight flight;
  int currTp, status, achieved;
  std::array<double, 3> times = {};  // s of the day: start, task time, finish; 0 for none
  // clang-format off
  // The course in degrees.
  struct { double distance = 0.0, done = 0.0, toTp = NAN, course = NAN; } metres = {};
  // clang-format on
  // The figures of a landing or a re-arming come from the evaluation before; in one call there is none.
  bool liveOnly = false;
};

inline void expectScoring(const ScoringCase& c) {
  SCOPED_TRACE(c.name);
  std::string liveLog, onceLog;
  const SngTaskProgress live = score(c.task, c.flight.track(), true, &liveLog),
                        once = score(c.task, c.flight.track(), false, &onceLog);
  // Each evaluation resumes where the last stopped: one that started over would repeat the start lines.
  EXPECT_EQ(liveLog, onceLog);
  const auto& [distance, done, toTp, course] = c.metres;
  const double want[] = {c.times[0], c.times[1], c.times[2], distance, done, toTp, course};
  const double tolerance[] = {1e-6, 1e-6, 1e-6, kFlatEarthMetres, kFlatEarthMetres, kFlatEarthMetres, 1e-4};
  for (const SngTaskProgress* t : {&live, c.liveOnly ? &live : &once}) {
    EXPECT_EQ(std::tuple(t->curr_tp, int{t->statusCode()}, static_cast<int>(t->achieved.size())),
              std::tuple(c.currTp, c.status, c.achieved));
    const double got[] = {t->start_time,    t->task_time,  t->finish_time, t->distance,
                          t->done_distance, t->dist_to_tp, t->course_to_tp};
    for (size_t i = 0; i < std::size(got); ++i)  // the times, then the metres, in their order
      EXPECT_NEAR(got[i], std::isnan(want[i]) ? got[i] : want[i], tolerance[i]) << "figure " << i;
    EXPECT_DOUBLE_EQ(t->avg_speed, t->distance > 5000.0 ? t->distance / t->task_time * 3.6 : -1.0);
  }
}
