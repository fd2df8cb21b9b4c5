// Test flights for task scoring (straight legs sampled every 2 s, as the player record samples), and
// a table runner that scores each flight both as the server does, one point at a time, and in one call.
#pragma once

#include <gtest/gtest.h>

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

inline double degreesFor(double metres) {
  return metres / kMetresPerDegree;
}

inline SngTurnpoint makeTurnpoint(std::string name, double lat, double lon, double radius,
                                  int32_t oz = SNG_OZ_CYLINDER, double angle1 = 0.0, double angle2 = 180.0) {
  SngTurnpoint tp;
  std::tie(tp.name, tp.lat, tp.lon, tp.radius, tp.oz, tp.angle1, tp.angle2) =
      std::tie(name, lat, lon, radius, oz, angle1, angle2);
  return tp;
}

inline SngTaskProgress makeTask(std::vector<SngTurnpoint> turnpoints) {
  SngTaskProgress task;
  task.turnpoints = std::move(turnpoints);
  return task;
}

// Start cylinder of 3010 m at (0, 0); `middle` 33336 m east (0.3 degrees); the goal (1000 m) 33336 m
// north of that.
inline SngTaskProgress standardTask(SngTurnpoint start = makeTurnpoint("Start", 0.0, 0.0, 3010.0),
                                    SngTurnpoint middle = makeTurnpoint("East", 0.0, 0.3, 500.0)) {
  return makeTask({std::move(start), std::move(middle), makeTurnpoint("Goal", 0.3, 0.3, 1000.0)});
}

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
      record(lat_ + f * (lat - lat_), lon_ + f * (lon - lon_), 0);
    }
    time_ = legEnd;
    lat_ = lat;
    lon_ = lon;
    return *this;
  }
  // Stays where the last leg ended, every point flagged.
  TestFlight& land(double seconds, uint16_t flags = SNG_TRACK_ON_GROUND) {
    for (time_ += seconds; next_ <= time_; next_ += 2.0) record(lat_, lon_, flags);
    return *this;
  }
  // One point, 2 s after the last, anywhere (metres from (0, 0)): tracks no straight leg gives.
  TestFlight& jump(double eastMetres, double northMetres, uint16_t flags = 0) {
    lat_ = degreesFor(northMetres);
    lon_ = degreesFor(eastMetres);
    return land(next_ - time_, flags);
  }
  const std::vector<SngTrackPoint>& track() const { return track_; }

 private:
  void record(double lat, double lon, uint16_t flags) {
    track_.push_back({static_cast<float>(next_), lat, lon, alt_, flags});
  }

  double time_, next_;  // s: where the flight is, and the next sample
  double lat_ = 0.0, lon_, alt_;
  std::vector<SngTrackPoint> track_;
};

// From the start's centre at the gate opening, east along the equator at 30 m/s: started at kStartedEast.
inline TestFlight eastFromTheGate(double metres) {
  return std::move(TestFlight(kGateOpen).flyBy(metres, 0.0, 30.0));
}

struct Scored {
  SngTaskProgress task;
  std::string log;  // the start lines
};

// Live: one evaluation after each recorded point, as the server does; otherwise the whole track in one.
inline Scored score(SngTaskProgress task, const std::vector<SngTrackPoint>& track, bool live) {
  testing::internal::CaptureStderr();
  std::vector<SngTrackPoint> seen;
  for (const SngTrackPoint& p : track) {
    seen.push_back(p);
    if (live) task.evaluate(p.time, seen, kGateOpen);
  }
  if (!live) task.evaluate(track.back().time, track, kGateOpen);
  return {std::move(task), testing::internal::GetCapturedStderr()};
}

// A flight and what the scoring makes of it. Start and finish are seconds of the day, 0 when there is none.
struct ScoringCase {
  const char* name;
  SngTaskProgress task = standardTask();
  TestFlight flight = TestFlight(kGateOpen);
  int32_t currTp = 0;
  int status = 1;
  size_t achieved = 0;
  double start = 0.0, taskTime = 0.0, finish = 0.0;  // s
  double distance = 0.0, done = 0.0;                 // m
  double toTp = NAN, course = NAN;                   // m, degrees; checked where given
  // The figures of a landing or a re-arming come from the evaluation before; in one call there is none.
  bool liveOnly = false;
};

inline void expectScoring(const ScoringCase& c) {
  SCOPED_TRACE(c.name);
  const Scored live = score(c.task, c.flight.track(), true), once = score(c.task, c.flight.track(), false);
  // Each evaluation resumes where the last stopped: one that started over would repeat the start lines.
  EXPECT_EQ(live.log, once.log);
  for (const SngTaskProgress* t : {&live.task, &once.task}) {
    if (t == &once.task && c.liveOnly) continue;
    EXPECT_EQ(std::tuple(t->curr_tp, int{t->statusCode()}, t->achieved.size()),
              std::tuple(c.currTp, c.status, c.achieved));
    EXPECT_NEAR(t->start_time, c.start, 1e-6);
    EXPECT_NEAR(t->task_time, c.taskTime, 1e-6);
    EXPECT_NEAR(t->finish_time, c.finish, 1e-6);
    EXPECT_NEAR(t->distance, c.distance, kFlatEarthMetres);
    EXPECT_NEAR(t->done_distance, c.done, kFlatEarthMetres);
    EXPECT_DOUBLE_EQ(t->avg_speed, t->distance > 5000.0 ? t->distance / t->task_time * 3.6 : -1.0);
    EXPECT_NEAR(t->dist_to_tp, std::isnan(c.toTp) ? t->dist_to_tp : c.toTp, kFlatEarthMetres);
    EXPECT_NEAR(t->course_to_tp, std::isnan(c.course) ? t->course_to_tp : c.course, 1e-4);
  }
}
