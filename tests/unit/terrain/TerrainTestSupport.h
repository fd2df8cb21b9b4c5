// Shared pieces of the terrain tests: a temporary directory per test, sceneries written by the
// builder, the log and the clock under the test's control, and the analytic answers worked out by hand.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ElevationSource.h"
#include "SceneryBuilder.h"
#include "toolkit/BtkClock.h"

namespace terrain_test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Sends the process-wide log, debug included, to a file of the test's own; back to standard error
// (threshold info) when it goes.
class LogCapture {
 public:
  explicit LogCapture(const TempDir& dir);
  ~LogCapture();
  std::string text() const;
  bool contains(const std::string& line) const { return text().find(line) != std::string::npos; }

 private:
  std::string path_;
};

// Installs a manual clock for the test's lifetime.
class ManualClockScope {
 public:
  ManualClockScope() { btkSetClockSource(&clock); }
  ~ManualClockScope() { btkSetClockSource(nullptr); }
  BtkManualClock clock;
};

std::vector<uint8_t> readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes);

// A small scenery near 46 N 7 E: blocks of 4 x 4 cells of 0.01 degree, three TIN levels.
qvscenery::Options smallScenery(const std::string& outDir);
// Builds and fails the test on an error; returns the blocks' base paths.
std::vector<std::string> build(const qvscenery::Options& options, const qvscenery::ElevationSource& source);

constexpr double kMetresPerDegree = 2.0 * M_PI * 6378000.0 / 360.0;

// The inclined plane, written out again from its definition: h0 at (refLat, refLon), rising at
// slopeDeg towards bearingDeg, east distances at the reference latitude.
struct Plane {
  double h0, slopeDeg, bearingDeg, refLat, refLon;
  double at(double lat, double lon) const {
    const double rise = std::tan(slopeDeg * M_PI / 180.0);
    const double north = (lat - refLat) * kMetresPerDegree;
    const double east = (lon - refLon) * kMetresPerDegree * std::cos(refLat * M_PI / 180.0);
    return h0 +
           rise * (std::cos(bearingDeg * M_PI / 180.0) * north + std::sin(bearingDeg * M_PI / 180.0) * east);
  }
  std::unique_ptr<qvscenery::ElevationSource> source() const {
    return qvscenery::makePlane(h0, slopeDeg, bearingDeg, qvscenery::LocalFrame{refLat, refLon});
  }
};

}  // namespace terrain_test
