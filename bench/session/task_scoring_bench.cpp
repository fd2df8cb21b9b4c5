// Cost of scoring one new track point, early and late in a long flight: the server evaluates the task
// after every recorded point, so this cost must not grow with the track.
#include <benchmark/benchmark.h>

#include <cmath>
#include <iostream>
#include <streambuf>
#include <vector>

#include "session/SngTaskProgress.h"

namespace {

constexpr int32_t kGateOpen = 43200;  // s of the day
constexpr double kFlightSeconds = 5 * 3600.0;
constexpr double kStepSeconds = 2.0;  // the player record keeps one point per 2 s
constexpr int kPointsPerHour = 1800;
constexpr double kMetresPerDegree = 111120.0;
constexpr double kLat0 = 47.0, kLon0 = 8.0;  // degrees

struct Metres {
  double east, north;
};

// Local metres to degrees; east-west metres measured along the point's own parallel.
void toDegrees(Metres m, double& lat, double& lon) {
  lat = kLat0 + m.north / kMetresPerDegree;
  lon = kLon0 + m.east / (kMetresPerDegree * std::cos(lat * M_PI / 180.0));
}

SngTurnpoint turnpointAt(const char* name, Metres m, double radius, int32_t oz, double angle1) {
  SngTurnpoint tp;
  tp.name = name;
  toDegrees(m, tp.lat, tp.lon);
  tp.radius = radius;
  tp.oz = oz;
  tp.angle1 = angle1;
  tp.angle2 = 45.0;
  return tp;
}

// 100 km east, 100 km north, 100 km west: a start line facing east, a 1000 m cylinder (best-point
// rule), a sector through north (approached from the south) and a 1000 m goal cylinder.
const Metres kCourse[] = {{0, 0}, {100000, 0}, {100000, 100000}, {0, 100000}};

SngTaskProgress makeTask() {
  SngTaskProgress task;
  task.turnpoints = {turnpointAt("Start", kCourse[0], 5000.0, SNG_OZ_LINE, 90.0),
                     turnpointAt("East", kCourse[1], 1000.0, SNG_OZ_CYLINDER, 0.0),
                     turnpointAt("North", kCourse[2], 3000.0, SNG_OZ_SECTOR, 0.0),
                     turnpointAt("Goal", kCourse[3], 1000.0, SNG_OZ_CYLINDER, 0.0)};
  return task;
}

// From 3 km behind the start line at the gate opening, through every turnpoint's centre, at the speed
// that reaches the goal's zone with the last point of the 5 hours.
std::vector<SngTrackPoint> makeFlight() {
  std::vector<Metres> path = {{-3000, 0}};
  path.insert(path.end(), std::begin(kCourse), std::end(kCourse));
  double pathMetres = 0.0;
  for (size_t i = 1; i < path.size(); ++i)
    pathMetres += std::hypot(path[i].east - path[i - 1].east, path[i].north - path[i - 1].north);
  const double speed = (pathMetres - 999.0) / (kFlightSeconds - kStepSeconds);  // m/s, about 60 km/h

  std::vector<SngTrackPoint> track;
  size_t leg = 1;
  double legStart = 0.0;  // metres along the path where leg `leg` begins
  for (double t = 0.0; t < kFlightSeconds; t += kStepSeconds) {
    const double along = speed * t;
    for (;;) {
      const double legMetres =
          std::hypot(path[leg].east - path[leg - 1].east, path[leg].north - path[leg - 1].north);
      if (along <= legStart + legMetres || leg + 1 == path.size()) {
        const double f = (along - legStart) / legMetres;
        const Metres m{path[leg - 1].east + f * (path[leg].east - path[leg - 1].east),
                       path[leg - 1].north + f * (path[leg].north - path[leg - 1].north)};
        SngTrackPoint p;
        p.time = static_cast<float>(kGateOpen + t);
        toDegrees(m, p.lat, p.lon);
        p.alt = 1500.0;
        track.push_back(p);
        break;
      }
      legStart += legMetres;
      ++leg;
    }
  }
  return track;
}

// The start writes its lines to the standard error stream; keep them out of the figures.
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
};

// One hour of the flight (Arg: 0 = first hour, 4 = last), scored point by point as the server does:
// the track grows by one point, then the task is evaluated.
void BM_TaskScoringPerPoint(benchmark::State& state) {
  NullBuffer null;
  std::streambuf* const saved = std::cerr.rdbuf(&null);
  static const std::vector<SngTrackPoint> flight = makeFlight();
  const size_t begin = static_cast<size_t>(state.range(0)) * kPointsPerHour;
  const size_t end = std::min(flight.size(), begin + kPointsPerHour);

  // The state at the start of the hour, scored the same way (untimed).
  SngTaskProgress before = makeTask();
  std::vector<SngTrackPoint> prefix;
  prefix.reserve(flight.size());
  for (size_t i = 0; i < begin; ++i) {
    prefix.push_back(flight[i]);
    before.evaluate(flight[i].time, prefix, kGateOpen);
  }

  SngTaskProgress task;
  for (auto _ : state) {
    state.PauseTiming();
    task = before;
    std::vector<SngTrackPoint> track = prefix;
    track.reserve(flight.size());  // the server's vector grows too; its reallocations are not the point here
    state.ResumeTiming();
    for (size_t i = begin; i < end; ++i) {
      track.push_back(flight[i]);
      task.evaluate(flight[i].time, track, kGateOpen);
    }
    // Through a pointer: this library version's DoNotOptimize clobbers a double lvalue under GCC.
    benchmark::DoNotOptimize(&task);
    benchmark::ClobberMemory();
  }
  std::cerr.rdbuf(saved);

  state.counters["per_point"] = benchmark::Counter(static_cast<double>(state.iterations() * (end - begin)),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["track_points"] = static_cast<double>(end);
  state.counters["km_flown"] = task.distance / 1000.0;
  SngTaskProgress course = makeTask();
  course.computeLength();
  state.counters["task_km"] = course.length / 1000.0;
  state.counters["finished"] = task.finished ? 1.0 : 0.0;
}
BENCHMARK(BM_TaskScoringPerPoint)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);

}  // namespace
