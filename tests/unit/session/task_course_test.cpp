// Turnpoints: observation zones and which position stands for a turnpoint once it is achieved.
#include <gtest/gtest.h>

#include "TaskFlight.h"

namespace {

// The start cylinder at (0, 0), a turnpoint 0.3 degrees (33336 m) east, the goal 0.3 degrees north of it.
SngTaskProgress taskVia(const SngTurnpoint& tp) {
  return makeTask({makeTurnpoint("Start", 0.0, 0.0, 3010.0), tp, makeTurnpoint("Goal", 0.3, 0.3, 1000.0)});
}

struct Scored {
  SngTaskProgress task;
  double northMetres;  // of the last track point, on the meridian 0.3 E
};

// East along the equator from the gate opening at 30 m/s, then north along the meridian 0.3 E.
Scored flyEastThenNorth(const SngTaskProgress& task, double northDegrees) {
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyTo(0.0, 0.3, 30.0, 800.0).flyTo(northDegrees, 0.3, 30.0, 800.0);
  testing::internal::CaptureStderr();  // the start lines
  Scored scored{scoreLive(task, flight.track()), flight.track().back().lat * kMetresPerDegree};
  testing::internal::GetCapturedStderr();
  return scored;
}

double eastMetres(const SngAchievedPoint& p) {
  return p.lon * kMetresPerDegree;
}

TEST(TaskTurnpoint, CylinderOf500mIsAchievedAtItsCentre) {
  const auto [task, north] = flyEastThenNorth(taskVia(makeTurnpoint("East", 0.0, 0.3, 500.0)), 0.15);
  EXPECT_EQ(task.curr_tp, 2);
  ASSERT_EQ(task.achieved.size(), 2u);
  EXPECT_EQ(task.achieved[1].lat, 0.0);
  EXPECT_EQ(task.achieved[1].lon, 0.3);
  EXPECT_EQ(task.achieved[1].name, "East");
  EXPECT_NEAR(task.done_distance, 33336.0, 0.01);
  EXPECT_NEAR(task.leg_length, 33336.0, 0.01);
  // About halfway up the second leg: both legs lie on great circles, so the distances simply add.
  EXPECT_GT(north, 16000.0);
  EXPECT_NEAR(task.dist_to_tp, 33336.0 - north, 0.01);
  EXPECT_NEAR(task.distance, 33336.0 + north, 0.01);
  EXPECT_NEAR(task.course_to_tp, 0.0, 1e-6);
}

TEST(TaskTurnpoint, DistanceCountsTheTurnpointFromTheFirstPointInsideItsZone) {
  // The 500 m zone is first entered at +1096 s, 32880 m out; the turnpoint is booked at the next
  // evaluation, but the distance already counts it: 33336 m + the second leg less the flat-earth
  // distance from there to the goal.
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyTo(0.0, 0.3, 30.0, 800.0).flyTo(0.1, 0.3, 30.0, 800.0);
  LiveScorer live(taskVia(makeTurnpoint("East", 0.0, 0.3, 500.0)));
  testing::internal::CaptureStderr();
  live.feedUntil(flight.track(), kGateOpen + 1096.0);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(live.task.curr_tp, 2);
  EXPECT_NEAR(live.task.distance, 33336.0 + 33336.0 - std::hypot(33336.0 - 32880.0, 33336.0), 1.0);
}

TEST(TaskTurnpoint, CylinderOf1000mIsAchievedWhereTheTrackEnteredIt) {
  // The zone begins 32336 m east of the start; at 30 m/s the first point past it is at +1078 s,
  // 32340 m out, on the equator. That position, not the centre, is the achieved point.
  const auto [task, north] = flyEastThenNorth(taskVia(makeTurnpoint("East", 0.0, 0.3, 1000.0)), 0.15);
  ASSERT_EQ(task.achieved.size(), 2u);
  EXPECT_NEAR(task.achieved[1].lat, 0.0, 1e-12);
  EXPECT_NEAR(eastMetres(task.achieved[1]), 32340.0, 0.01);
  EXPECT_NEAR(task.done_distance, 32340.0, 0.01);
  // Second leg from that position to the goal (flat earth), less what is still to go.
  const double leg = std::hypot(33336.0 - 32340.0, 33336.0);
  EXPECT_NEAR(task.leg_length, leg, 1.0);
  EXPECT_NEAR(task.distance, 32340.0 + leg - (33336.0 - north), 1.0);
}

TEST(TaskTurnpoint, LargeZoneBooksTheCandidateWithTheLongestTwoLegs) {
  // Scored in one evaluation, so that everything from the zone entry to the booking point is a
  // candidate (two points the scoring passes over sit in between). By flat earth, start -> P -> goal:
  // entry (31500 E, 0 N): 31500 + 33386 m; (33336 E, 1500 S): 33370 + 34836 m; (33000 E, 500 N):
  // 33004 + 32838 m. The second is the longest by far.
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyBy(31200.0, 0.0, 30.0);  // still 2136 m short of the turnpoint
  std::vector<SngTrackPoint> track = flight.track();
  auto add = [&track](double east, double north, uint16_t flags) {
    SngTrackPoint p = track.back();
    p.time += 2.0f;
    p.lat = degreesFor(north);
    p.lon = degreesFor(east);
    p.flags = flags;
    track.push_back(p);
  };
  add(31500.0, 0.0, 0);
  add(33336.0, -1500.0, SNG_TRACK_IGNORED);
  add(33000.0, 500.0, SNG_TRACK_IGNORED);
  add(33336.0, 3000.0, 0);

  SngTaskProgress task = taskVia(makeTurnpoint("East", 0.0, 0.3, 2000.0));
  testing::internal::CaptureStderr();
  task.evaluate(track.back().time, track, kGateOpen);
  testing::internal::GetCapturedStderr();
  ASSERT_EQ(task.achieved.size(), 2u);
  EXPECT_NEAR(eastMetres(task.achieved[1]), 33336.0, 0.01);
  EXPECT_NEAR(task.achieved[1].lat * kMetresPerDegree, -1500.0, 0.01);
}

TEST(TaskTurnpoint, SectorIsAchievedOnlyFromWithinItsAngle) {
  // Axis 90, half-angle 45: the zone lies west of the point, within 3000 m.
  const SngTurnpoint sector = makeTurnpoint("East", 0.0, 0.3, 3000.0, SNG_OZ_SECTOR, 90.0, 45.0);

  // Along the equator from the west: entered at the first point within 3000 m, 30360 m out.
  const SngTaskProgress through = flyEastThenNorth(taskVia(sector), 0.15).task;
  EXPECT_EQ(through.curr_tp, 2);
  ASSERT_EQ(through.achieved.size(), 2u);
  EXPECT_NEAR(eastMetres(through.achieved[1]), 30360.0, 0.01);

  // Passing 2222 m north of it and turning there: inside the radius but at a course of 137.9 degrees
  // or more to the point, never within 45..135, so it is never achieved.
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyTo(0.02, 0.15, 30.0, 800.0).flyTo(0.02, 0.3, 30.0, 800.0).flyTo(0.15, 0.3, 30.0, 800.0);
  testing::internal::CaptureStderr();
  const SngTaskProgress missed = scoreLive(taskVia(sector), flight.track());
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(missed.curr_tp, 1);
  EXPECT_EQ(missed.achieved.size(), 1u);
  // Still on the first leg, 33336 m long, with the turnpoint due south on the meridian.
  const double north = flight.track().back().lat * kMetresPerDegree;
  EXPECT_GT(north, 16000.0);
  EXPECT_NEAR(missed.dist_to_tp, north, 0.01);
  EXPECT_NEAR(missed.distance, 33336.0 - north, 0.01);
}

// A position `metres` from the point (0, 0) at the given bearing from it.
bool inZoneAt(const SngTurnpoint& tp, double bearingFromTpDeg, double metres, double alt = 500.0) {
  const double b = bearingFromTpDeg * M_PI / 180.0;
  return SngTaskProgress::inZone(tp, degreesFor(metres * std::cos(b)), degreesFor(metres * std::sin(b)), alt);
}

TEST(TaskZone, CylinderRadiusAndMaximumAltitude) {
  SngTurnpoint tp = makeTurnpoint("C", 0.0, 0.0, 1000.0);
  tp.max_alt = 1500.0;
  EXPECT_TRUE(inZoneAt(tp, 37.0, 999.0));
  EXPECT_FALSE(inZoneAt(tp, 37.0, 1001.0));
  EXPECT_TRUE(inZoneAt(tp, 37.0, 10.0, 1500.0));
  EXPECT_FALSE(inZoneAt(tp, 37.0, 10.0, 1500.5));
}

TEST(TaskZone, SectorsCountTheCourseToThePointRoundTheCircle) {
  // The course to the point is the bearing from it plus 180.
  const SngTurnpoint west = makeTurnpoint("W", 0.0, 0.0, 3000.0, SNG_OZ_SECTOR, 90.0, 45.0);  // 45..135
  EXPECT_TRUE(inZoneAt(west, 240.0, 1000.0));                                                 // course 60
  EXPECT_TRUE(inZoneAt(west, 300.0, 2999.0));                                                 // course 120
  EXPECT_FALSE(inZoneAt(west, 200.0, 1000.0));                                                // course 20
  EXPECT_FALSE(inZoneAt(west, 240.0, 3001.0));

  const SngTurnpoint north = makeTurnpoint("N", 0.0, 0.0, 3000.0, SNG_OZ_SECTOR, 0.0, 45.0);  // 315..45
  EXPECT_TRUE(inZoneAt(north, 160.0, 1000.0));                                                // course 340
  EXPECT_TRUE(inZoneAt(north, 200.0, 1000.0));                                                // course 20
  EXPECT_FALSE(inZoneAt(north, 120.0, 1000.0));                                               // course 300
  EXPECT_FALSE(inZoneAt(north, 240.0, 1000.0));                                               // course 60
  EXPECT_FALSE(inZoneAt(north, 10.0, 1000.0));                                                // course 190

  // A line is a sector of half-angle 90 whatever angle2 says; axis 0 runs through north too.
  const SngTurnpoint line = makeTurnpoint("L", 0.0, 0.0, 3000.0, SNG_OZ_LINE, 0.0, 10.0);  // 270..90
  EXPECT_TRUE(inZoneAt(line, 100.0, 1000.0));                                              // course 280
  EXPECT_TRUE(inZoneAt(line, 260.0, 1000.0));                                              // course 80
  EXPECT_FALSE(inZoneAt(line, 80.0, 1000.0));                                              // course 260
  EXPECT_FALSE(inZoneAt(line, 100.0, 3001.0));

  // Half-angle 180 makes both ends the same direction: the open range between them holds nothing.
  const SngTurnpoint whole = makeTurnpoint("H", 0.0, 0.0, 3000.0, SNG_OZ_SECTOR, 0.0, 180.0);
  for (double bearing : {5.0, 95.0, 185.0, 275.0}) EXPECT_FALSE(inZoneAt(whole, bearing, 1000.0)) << bearing;
}

TEST(TaskTurnpoint, OverlappingZonesAreEachBookedInOrder) {
  // "Near" (0.3 E, r 500) lies wholly inside the zone of "Far" (0.302 E = 33558 m, r 1000). Near is
  // entered at +1096 s, 32880 m out; the following evaluation finds that point in Far's zone too.
  const SngTaskProgress task =
      flyEastThenNorth(
          makeTask({makeTurnpoint("Start", 0.0, 0.0, 3010.0), makeTurnpoint("Near", 0.0, 0.3, 500.0),
                    makeTurnpoint("Far", 0.0, 0.302, 1000.0), makeTurnpoint("Goal", 0.3, 0.302, 1000.0)}),
          0.0)
          .task;
  ASSERT_EQ(task.achieved.size(), 3u);
  EXPECT_EQ(task.curr_tp, 3);
  EXPECT_EQ(task.achieved[1].lon, 0.3);
  EXPECT_NEAR(eastMetres(task.achieved[2]), 32880.0, 0.01);
  EXPECT_NEAR(task.done_distance, 33336.0 + (33336.0 - 32880.0), 0.01);
}

}  // namespace
