// Straight-line flights: positions checked against figures worked out by hand on the server's sphere,
// and against the server's own distance and course measure.
#include <gtest/gtest.h>

#include <cmath>

#include "QvFlight.h"
#include "toolkit/BtkGeo.h"

namespace {

constexpr double kPi = 3.141592653589793;
// 3437.746770784939 nautical miles per radian × 1852 m: the sphere of the server's distances.
constexpr double kRadiusM = 3437.746770784939 * 1852.0;
constexpr double kMetresPerDegree = kRadiusM * kPi / 180.0;  // about 111120 m

BtkCourseDistance measure(const SngAircraftState& a, const SngAircraftState& b) {
  return calcCourseDistance(btkRadians(a.lat), btkRadians(a.lon), btkRadians(b.lat), btkRadians(b.lon));
}

TEST(StraightFlight, HundredKilometresNorthEastAreAGreatCircleByTheServersMeasure) {
  const QvStraightFlight flight({.lat = 45.0, .lon = 7.0, .course = 45.0, .speed_kmh = 100.0});
  // A constant course would end about 562 m to the left, and measure off 45 degrees from the start.
  const auto flown = measure(flight.stateAt(0.0), flight.stateAt(3600.0));
  EXPECT_NEAR(flown.distance, 100000.0, 1e-3);
  EXPECT_NEAR(btkCourseDegrees(flown), 45.0, 1e-6);
  // Across the date line the longitude wraps: 50 km east of 179.9 E on the equator.
  const QvStraightFlight east({.lat = 0.0, .lon = 179.9, .course = 90.0, .speed_kmh = 100.0});
  EXPECT_NEAR(east.stateAt(1800.0).lon, 179.9 + 50000.0 / kMetresPerDegree - 360.0, 1e-9);
}

TEST(StraightFlight, TimeScaleAdvancesClientTimeAndDistanceButNotTheMeasuredSpeed) {
  // 40 m/s; two states per real second, each 5 client seconds after the one before.
  QvFlightPlan plan{.lat = 47.0, .lon = 8.0, .alt = 1500.0, .course = 123.0, .speed_kmh = 144.0};
  std::tie(plan.start_time, plan.step, plan.time_scale) = std::make_tuple(50000.0, 0.5, 10.0);
  QvStraightFlight flight(plan);
  SngAircraftState previous = flight.next();
  EXPECT_EQ(std::tie(previous.lat, previous.lon, previous.time), std::make_tuple(47.0, 8.0, 50000.0));
  for (int n = 1; n <= 20; ++n) {
    const SngAircraftState s = flight.next();
    EXPECT_EQ(std::tie(s.time, s.alt), std::make_tuple(50000.0 + 5.0 * n, 1500.0));
    // What the server computes as ground speed: distance over the difference of the state times.
    EXPECT_NEAR(measure(previous, s).distance / (s.time - previous.time), 40.0, 1e-6) << "state " << n;
    // The heading is the course at each point: the course to the next point 200 m on agrees closely.
    EXPECT_NEAR(btkDegrees(previous.heading), btkCourseDegrees(measure(previous, s)), 1e-3) << "state " << n;
    previous = s;
  }
  EXPECT_NEAR(qvDestination(12.5, -3.25, 77.0, 0.0).lon, -3.25, 1e-12);              // no distance, no move
  EXPECT_NEAR(qvDestination(0.0, 30.0, 0.0, kRadiusM * kPi / 2.0).lat, 90.0, 1e-9);  // a quarter of the earth
}

}  // namespace
