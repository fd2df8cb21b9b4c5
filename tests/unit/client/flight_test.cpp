// Straight-line flights: positions checked against figures worked out by hand on the server's sphere,
// against a flat-earth approximation, and against the server's own distance and course measure.
#include <gtest/gtest.h>

#include <cmath>

#include "QvFlight.h"
#include "toolkit/BtkGeo.h"

namespace {

constexpr double kPi = 3.141592653589793;
// 3437.746770784939 nautical miles per radian × 1852 m: the sphere of the server's distances.
constexpr double kRadiusM = 3437.746770784939 * 1852.0;
constexpr double kMetresPerDegree = kRadiusM * kPi / 180.0;  // about 111120 m

double distanceM(const SngAircraftState& a, const SngAircraftState& b) {
  return calcCourseDistance(btkRadians(a.lat), btkRadians(a.lon), btkRadians(b.lat), btkRadians(b.lon))
      .distance;
}

double courseDeg(const SngAircraftState& a, const SngAircraftState& b) {
  return btkCourseDegrees(
      calcCourseDistance(btkRadians(a.lat), btkRadians(a.lon), btkRadians(b.lat), btkRadians(b.lon)));
}

TEST(StraightFlight, DueEastOnTheEquatorMovesLongitudeByDistanceOverMetresPerDegree) {
  QvFlightPlan plan;
  plan.lat = 0.0;
  plan.lon = 10.0;
  plan.alt = 1500.0;
  plan.course = 90.0;
  plan.speed_kmh = 360.0;  // 100 m/s
  plan.start_time = 36000.0;
  plan.step = 1.0;
  QvStraightFlight flight(plan);
  for (int n = 0; n < 5; ++n) {
    const SngAircraftState s = flight.next();
    EXPECT_DOUBLE_EQ(s.time, 36000.0 + n);
    EXPECT_NEAR(s.lat, 0.0, 1e-12);
    EXPECT_NEAR(s.lon, 10.0 + 100.0 * n / kMetresPerDegree, 1e-12) << "state " << n;
    EXPECT_DOUBLE_EQ(s.alt, 1500.0);
    EXPECT_NEAR(s.heading, kPi / 2, 1e-9);
  }
  EXPECT_EQ(flight.statesMade(), 5u);
}

TEST(StraightFlight, DueNorthAndDueWestFollowTheMeridianAndTheEquator) {
  QvFlightPlan north;
  north.lat = 10.0;
  north.lon = 20.0;
  north.course = 0.0;
  north.speed_kmh = 180.0;                                           // 50 m/s
  const SngAircraftState n = QvStraightFlight(north).stateAt(60.0);  // 3000 m
  EXPECT_NEAR(n.lat, 10.0 + 3000.0 / kMetresPerDegree, 1e-12);
  EXPECT_NEAR(n.lon, 20.0, 1e-12);
  EXPECT_NEAR(n.heading, 0.0, 1e-9);

  QvFlightPlan west = north;
  west.lat = 0.0;
  west.course = 270.0;
  const SngAircraftState w = QvStraightFlight(west).stateAt(60.0);
  EXPECT_NEAR(w.lon, 20.0 - 3000.0 / kMetresPerDegree, 1e-12);
  EXPECT_NEAR(w.heading, 1.5 * kPi, 1e-9);
}

TEST(StraightFlight, HundredKilometresNorthEastBendOffAConstantCourseByTheGreatCircleAmount) {
  QvFlightPlan plan;
  plan.lat = 45.0;
  plan.lon = 7.0;
  plan.course = 45.0;
  plan.speed_kmh = 100.0;
  const SngAircraftState s = QvStraightFlight(plan).stateAt(3600.0);  // one hour: 100 km
  // Flat earth around the mean latitude, on a constant course of 45 degrees.
  const double d = 100000.0;
  const double north = d * std::cos(btkRadians(45.0));
  const double east = d * std::sin(btkRadians(45.0));
  const double meanLat = 45.0 + north / kMetresPerDegree / 2.0;
  const double flatLat = 45.0 + north / kMetresPerDegree;
  const double flatLon = 7.0 + east / (kMetresPerDegree * std::cos(btkRadians(meanLat)));
  const double northError = (s.lat - flatLat) * kMetresPerDegree;
  const double eastError = (s.lon - flatLon) * kMetresPerDegree * std::cos(btkRadians(meanLat));
  const double alongTrack = northError * std::cos(btkRadians(45.0)) + eastError * std::sin(btkRadians(45.0));
  const double rightOfTrack =
      -northError * std::sin(btkRadians(45.0)) + eastError * std::cos(btkRadians(45.0));
  // The great circle turns towards the equator away from the constant course: its course grows by
  // d·sin(course)·tan(lat)/R along the way, which puts the end d²·sin(course)·tan(lat)/(2R) to the
  // right, about 562 m here. Along the track the two agree.
  EXPECT_NEAR(alongTrack, 0.0, 5.0);
  EXPECT_NEAR(rightOfTrack,
              d * d * std::sin(btkRadians(45.0)) * std::tan(btkRadians(meanLat)) / (2.0 * kRadiusM), 5.0);
  // The server's great-circle measure gives back the distance flown and the course set out on.
  const SngAircraftState start = QvStraightFlight(plan).stateAt(0.0);
  EXPECT_NEAR(distanceM(start, s), d, 1e-3);
  EXPECT_NEAR(courseDeg(start, s), 45.0, 1e-6);
}

TEST(StraightFlight, TimeScaleAdvancesClientTimeAndDistanceButNotTheMeasuredSpeed) {
  QvFlightPlan plan;
  plan.lat = 47.0;
  plan.lon = 8.0;
  plan.course = 123.0;
  plan.speed_kmh = 144.0;  // 40 m/s
  plan.start_time = 50000.0;
  plan.step = 0.5;         // two states per real second
  plan.time_scale = 10.0;  // each state 5 client seconds after the one before
  QvStraightFlight flight(plan);
  SngAircraftState previous = flight.next();
  for (int n = 1; n <= 20; ++n) {
    const SngAircraftState s = flight.next();
    EXPECT_DOUBLE_EQ(s.time, 50000.0 + 5.0 * n);
    // What the server computes as ground speed: distance over the difference of the state times.
    EXPECT_NEAR(distanceM(previous, s) / (s.time - previous.time), 40.0, 1e-6) << "state " << n;
    // The heading is the course at each point: the course to the next point 200 m on agrees closely.
    EXPECT_NEAR(btkDegrees(previous.heading), courseDeg(previous, s), 1e-3) << "state " << n;
    previous = s;
  }
}

TEST(StraightFlight, LongitudeWrapsAcrossTheDateLine) {
  QvFlightPlan plan;
  plan.lat = 0.0;
  plan.lon = 179.9;
  plan.course = 90.0;
  plan.speed_kmh = 3600.0;  // 1000 m/s, 50 km in 50 s
  const SngAircraftState s = QvStraightFlight(plan).stateAt(50.0);
  EXPECT_NEAR(s.lon, 179.9 + 50000.0 / kMetresPerDegree - 360.0, 1e-9);
  EXPECT_LT(s.lon, -179.0);
}

TEST(Destination, ZeroDistanceStaysAndAQuarterOfTheEarthReachesThePole) {
  const QvPosition same = qvDestination(12.5, -3.25, 77.0, 0.0);
  EXPECT_NEAR(same.lat, 12.5, 1e-12);
  EXPECT_NEAR(same.lon, -3.25, 1e-12);
  const QvPosition pole = qvDestination(0.0, 30.0, 0.0, kRadiusM * kPi / 2.0);
  EXPECT_NEAR(pole.lat, 90.0, 1e-9);
}

}  // namespace
