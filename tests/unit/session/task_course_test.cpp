// Turnpoints: observation zones and which position stands for a turnpoint once it is achieved.
#include <gtest/gtest.h>

#include "TaskFlight.h"

namespace {

SngTaskProgress via(double radius, int32_t oz = SNG_OZ_CYLINDER, double axis = 0.0) {
  return standardTask(makeTurnpoint("Start", 0.0, 0.0, 3010.0),
                      makeTurnpoint("East", 0.0, 0.3, radius, oz, axis, 45.0));
}

// East to the turnpoint (+1111.2 s), then north up the meridian 0.3 E: the last point is at +1666 s,
// 16644 m north of the turnpoint and 16692 m short of the goal.
const TestFlight kEastThenNorth = eastFromTheGate(33336.0).flyBy(0.0, 16668.0, 30.0);

TEST(TaskTurnpoint, ScoresEachKindOfZone) {
  // Legs on great circles add up; one from a point off the equator is measured flat.
  // clang-format off
  const ScoringCase cases[] = {
      {.name = "SmallCylinderAtItsCentre", .flight = kEastThenNorth, .currTp = 2, .achieved = 2,
       .start = kStartedEast, .taskTime = 1565.7, .distance = 33336.0 + 16644.0, .done = 33336.0,
       .toTp = 16692.0, .course = 0.0},
      // First inside the 500 m zone at +1096 s, 32880 m out, and not booked yet: the distance
      // already counts the turnpoint, from where the booking will put it.
      {.name = "ZoneJustEntered", .flight = eastFromTheGate(32880.0), .currTp = 2, .achieved = 1,
       .start = kStartedEast, .taskTime = 995.7, .distance = 33336.0 + 33336.0 - std::hypot(456.0, 33336.0)},
      // The first point inside 1000 m, 32340 m out, stands for the turnpoint, not its centre.
      {.name = "LargeCylinderWhereEntered", .task = via(1000.0), .flight = kEastThenNorth, .currTp = 2,
       .achieved = 2, .start = kStartedEast, .taskTime = 1565.7,
       .distance = 32340.0 + std::hypot(996.0, 33336.0) - 16692.0, .done = 32340.0, .toTp = 16692.0},
      // Axis 90 (courses 45..135 to the point: the zone lies west of it), entered at 30360 m.
      {.name = "SectorFromWithinItsAngle", .task = via(3000.0, SNG_OZ_SECTOR, 90.0), .flight = kEastThenNorth,
       .currTp = 2, .achieved = 2, .start = kStartedEast, .taskTime = 1565.7,
       .distance = 30360.0 + std::hypot(2976.0, 33336.0) - 16692.0, .done = 30360.0},
      // Axis 270: courses of 90 on the way in and 180 on the way out are never within 225..315.
      {.name = "SectorFromOutsideItsAngle", .task = via(3000.0, SNG_OZ_SECTOR, 270.0),
       .flight = kEastThenNorth, .currTp = 1, .achieved = 1, .start = kStartedEast, .taskTime = 1565.7,
       .distance = 33336.0 - 16644.0, .toTp = 16644.0, .course = 180.0},
      // "Near" (r 200) lies wholly inside "Far" (222.24 m further east, r 500): the point that enters
      // Near's zone is in Far's too. Both are booked, in order.
      {.name = "OverlappingZones",
       .task = makeTask({makeTurnpoint("Start", 0.0, 0.0, 3010.0), makeTurnpoint("Near", 0.0, 0.3, 200.0),
                         makeTurnpoint("Far", 0.0, 0.302, 500.0), makeTurnpoint("Goal", 0.3, 0.302, 1000.0)}),
       .flight = kEastThenNorth, .currTp = 3, .achieved = 3, .start = kStartedEast, .taskTime = 1565.7,
       .distance = 33558.24 + 33336.0 - std::hypot(222.24, 16692.0), .done = 33558.24},
  };
  // clang-format on
  for (const ScoringCase& c : cases) expectScoring(c);
}

TEST(TaskTurnpoint, LargeZoneBooksTheCandidateWithTheLongestTwoLegs) {
  // In one evaluation every point from the zone entry to the booking is a candidate, the two the
  // scoring passes over too. Start -> P -> goal, flat: entry (31500 E, 0 N) 31500 + 33386 m;
  // (33336 E, 1500 S) 33370 + 34836 m; (33000 E, 500 N) 33004 + 32838 m.
  TestFlight flight = eastFromTheGate(31200.0).jump(31500.0, 0.0);
  flight.jump(33336.0, -1500.0, SNG_TRACK_IGNORED).jump(33000.0, 500.0, SNG_TRACK_IGNORED);
  flight.jump(33336.0, 3000.0);
  const Scored once = score(via(2000.0), flight.track(), false);
  ASSERT_EQ(once.task.achieved.size(), 2u);
  EXPECT_NEAR(once.task.achieved[1].lon * kMetresPerDegree, 33336.0, 0.01);
  EXPECT_NEAR(once.task.achieved[1].lat * kMetresPerDegree, -1500.0, 0.01);
}

TEST(TaskZone, CylindersAndSectorsCountTheCourseToThePoint) {
  SngTurnpoint cylinder = makeTurnpoint("C", 0.0, 0.0, 1000.0);
  cylinder.max_alt = 1500.0;
  EXPECT_TRUE(SngTaskProgress::inZone(cylinder, 0.0, 0.0, 1500.0));
  EXPECT_FALSE(SngTaskProgress::inZone(cylinder, 0.0, 0.0, 1500.5));
  const SngTurnpoint west = makeTurnpoint("W", 0.0, 0.0, 3000.0, SNG_OZ_SECTOR, 90.0, 45.0);   // 45..135
  const SngTurnpoint north = makeTurnpoint("N", 0.0, 0.0, 3000.0, SNG_OZ_SECTOR, 0.0, 45.0);   // 315..45
  const SngTurnpoint line = makeTurnpoint("L", 0.0, 0.0, 3000.0, SNG_OZ_LINE, 0.0, 10.0);      // 270..90
  const SngTurnpoint whole = makeTurnpoint("H", 0.0, 0.0, 3000.0, SNG_OZ_SECTOR, 0.0, 180.0);  // empty
  // A position `metres` from the point at a bearing from it; the course to the point is that + 180.
  const struct {
    const SngTurnpoint& tp;
    double bearing, metres;
    bool inside;
  } cases[] = {
      {cylinder, 37.0, 999.0, true}, {cylinder, 37.0, 1001.0, false}, {west, 240.0, 1000.0, true},
      {west, 300.0, 2999.0, true},   {west, 200.0, 1000.0, false},    {west, 240.0, 3001.0, false},
      {north, 160.0, 1000.0, true},  {north, 200.0, 1000.0, true},    {north, 120.0, 1000.0, false},
      {north, 240.0, 1000.0, false}, {north, 10.0, 1000.0, false},    {line, 100.0, 1000.0, true},
      {line, 260.0, 1000.0, true},   {line, 80.0, 1000.0, false},     {line, 100.0, 3001.0, false},
      {whole, 5.0, 1000.0, false},   {whole, 0.0, 1000.0, false},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    const double b = c.bearing * M_PI / 180.0;
    const double lat = degreesFor(c.metres * std::cos(b)), lon = degreesFor(c.metres * std::sin(b));
    EXPECT_EQ(SngTaskProgress::inZone(c.tp, lat, lon, 500.0), c.inside) << "case " << i;
  }
}

}  // namespace
