#include <gtest/gtest.h>

#include <cmath>

#include "toolkit/BtkGeo.h"

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kEarthRadiusM = 3437.746770784939 * 1852.0;  // the nautical-mile sphere: 6 366 707 m

double rad(double deg) { return deg * kPi / 180.0; }

TEST(CourseDistance, APointToItselfHasNoCourseAndNoDistance) {
  const auto cd = calcCourseDistance(rad(47.1), rad(8.3), rad(47.1), rad(8.3));
  EXPECT_EQ(cd.distance, 0.0);
  EXPECT_EQ(cd.course, 0.0);
}

TEST(CourseDistance, CardinalDirectionsFollowTheAnticlockwiseConvention) {
  // Along the equator one degree is R * pi / 180.
  const double oneDegree = kEarthRadiusM * kPi / 180.0;
  auto east = calcCourseDistance(0, 0, 0, rad(1));
  EXPECT_NEAR(east.course, 3 * kPi / 2, 1e-9);
  EXPECT_NEAR(east.distance, oneDegree, 1e-6);
  EXPECT_NEAR(btkCourseDegrees(east), 90.0, 1e-7);
  auto west = calcCourseDistance(0, 0, 0, rad(-1));
  EXPECT_NEAR(west.course, kPi / 2, 1e-9);
  EXPECT_NEAR(btkCourseDegrees(west), 270.0, 1e-7);
  auto north = calcCourseDistance(rad(10), rad(5), rad(11), rad(5));
  EXPECT_NEAR(std::fmod(north.course, 2 * kPi), 0.0, 1e-7);
  EXPECT_NEAR(north.distance, oneDegree, 1e-6);
  auto south = calcCourseDistance(rad(11), rad(5), rad(10), rad(5));
  EXPECT_NEAR(south.course, kPi, 1e-7);
}

TEST(CourseDistance, KnownCityPairMatchesAnIndependentHaversine) {
  // Paris (48.8566 N, 2.3522 E) to London (51.5074 N, 0.1278 W): about 343.5 km on a 6371 km sphere;
  // the flight model's sphere is 6366.7 km, so the expected figure scales by that ratio.
  const double lat1 = rad(48.8566), lon1 = rad(2.3522), lat2 = rad(51.5074), lon2 = rad(-0.1278);
  const auto cd = calcCourseDistance(lat1, lon1, lat2, lon2);
  const double expected = 343.56e3 * kEarthRadiusM / 6371.0e3;
  EXPECT_NEAR(cd.distance, expected, 300.0);
  // Initial bearing from Paris to London is about 330.3 degrees true (north-west).
  EXPECT_NEAR(btkCourseDegrees(cd), 330.3, 0.3);
}

TEST(CourseDistance, AntipodesDoNotProduceNaN) {
  const auto cd = calcCourseDistance(rad(30), rad(20), rad(-30), rad(-160));
  EXPECT_TRUE(std::isfinite(cd.distance));
  EXPECT_NEAR(cd.distance, kPi * kEarthRadiusM, 1.0);
  EXPECT_TRUE(std::isfinite(cd.course));
}

TEST(SurfaceDistance, UsesDegreesAndTheLawOfCosines) {
  // The law of cosines loses precision at zero separation: c rounds just below 1, not to 0 m.
  EXPECT_NEAR(surfaceDistance(46.0, 7.0, 46.0, 7.0), 0.0, 1.0);
  EXPECT_EQ(surfaceDistance(0.0, 0.0, 0.0, 0.0), 0.0);
  EXPECT_NEAR(surfaceDistance(46.0, 7.0, 47.0, 7.0), 111195.0, 0.5);
  // 25 km north-south, as terrain start-up measures a scenery's extent.
  EXPECT_NEAR(surfaceDistance(46.0, 7.0, 46.0 + 25000.0 / 111195.0, 7.0), 25000.0, 0.5);
  // Along a parallel the distance shrinks with cos(latitude): 60 N gives about half.
  EXPECT_NEAR(surfaceDistance(60.0, 0.0, 60.0, 1.0), 111195.0 * 0.5, 30.0);
}

TEST(RadioChannel, FrequencyAndChannelConvertIn25kHzSteps) {
  EXPECT_EQ(btkCommChannel(123.45), 218);
  EXPECT_EQ(btkCommChannel(118.0), 0);
  EXPECT_EQ(btkCommChannel(118.024), 0);  // truncated, not rounded
  EXPECT_EQ(btkCommChannel(120.5), 100);
  EXPECT_DOUBLE_EQ(btkCommFrequencyMHz(218), 123.45);
  EXPECT_EQ(btkCommChannel(std::nan("")), 0);
}

}  // namespace
