// Turnpoints: observation zones and which position stands for a turnpoint once it is achieved.
#include <gtest/gtest.h>

#include "TaskFlight.h"

namespace {

SngTaskProgress via(double radius, int32_t oz = SNG_OZ_CYLINDER, double axis = 0.0) {
  return standardTask(kTask.turnpoints[0], makeTurnpoint("East", 0.0, 0.3, radius, oz, axis, 45.0));
}

// East to the turnpoint (+1111.2 s), then north up the meridian 0.3 E: the last point is at +1666 s,
// 16644 m north of the turnpoint and 16692 m short of the goal.
const TestFlight kEastThenNorth = eastFromTheGate(33336.0).flyBy(0.0, 16668.0, 30.0);
const SngTaskProgress kOverlapping = {
    .turnpoints = {makeTurnpoint("Start", 0.0, 0.0, 3010.0), makeTurnpoint("Near", 0.0, 0.3, 200.0),
                   makeTurnpoint("Far", 0.0, 0.302, 500.0), makeTurnpoint("Goal", 0.3, 0.302, 1000.0)}};

TEST(TaskTurnpoint, ScoresEachKindOfZone) {
  // Legs on great circles add up; one from a point off the equator is measured flat.
  // clang-format off
  const ScoringCase cases[] = {
      {"SmallCylinderAtItsCentre", kTask, kEastThenNorth, 2, 1, 2, {kStartedEast, 1565.7},
       {33336 + 16644, 33336, 16692, 0}},
      // First inside the 500 m zone at +1096 s, 32880 m out, and not booked yet: the distance already counts
      // the turnpoint, from where the booking will put it.
      {"ZoneJustEntered", kTask, eastFromTheGate(32880), 2, 1, 1, {kStartedEast, 995.7},
       {33336 + 33336 - std::hypot(456, 33336)}},
      // The first point inside 1000 m, 32340 m out, stands for the turnpoint, not its centre.
      {"LargeCylinderWhereEntered", via(1000), kEastThenNorth, 2, 1, 2, {kStartedEast, 1565.7},
       {32340 + std::hypot(996, 33336) - 16692, 32340, 16692}},
      // Axis 90 (courses 45..135 to the point: the zone lies west of it), entered at 30360 m.
      {"SectorFromWithinItsAngle", via(3000, SNG_OZ_SECTOR, 90), kEastThenNorth, 2, 1, 2,
       {kStartedEast, 1565.7}, {30360 + std::hypot(2976, 33336) - 16692, 30360}},
      // Axis 270: courses of 90 on the way in and 180 on the way out are never within 225..315.
      {"SectorFromOutsideItsAngle", via(3000, SNG_OZ_SECTOR, 270), kEastThenNorth, 1, 1, 1,
       {kStartedEast, 1565.7}, {33336 - 16644, 0, 16644, 180}},
      // "Near" (r 200) lies wholly inside "Far" (222.24 m further east, r 500): the point that enters Near's
      // zone is in Far's too. Both are booked, in order.
      {"OverlappingZones", kOverlapping, kEastThenNorth, 3, 1, 3, {kStartedEast, 1565.7},
       {33558.24 + 33336 - std::hypot(222.24, 16692), 33558.24}},
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
  const SngTaskProgress once = score(via(2000.0), flight.track(), false);
  ASSERT_EQ(once.achieved.size(), 2u);
  const SngAchievedPoint& booked = once.achieved[1];  // within 1 cm of (33336 E, 1500 S)
  EXPECT_NEAR(std::hypot(booked.lon - degreesFor(33336.0), booked.lat + degreesFor(1500.0)), 0.0, 1e-7);
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
  // clang-format off
  const struct { const SngTurnpoint& tp; double bearing, metres; bool inside; } cases[] = {
      {cylinder, 37.0, 999.0, true}, {cylinder, 37.0, 1001.0, false}, {west, 240.0, 1000.0, true},
      {west, 300.0, 2999.0, true},   {west, 200.0, 1000.0, false},    {west, 240.0, 3001.0, false},
      {north, 160.0, 1000.0, true},  {north, 200.0, 1000.0, true},    {north, 120.0, 1000.0, false},
      {north, 240.0, 1000.0, false}, {north, 10.0, 1000.0, false},    {line, 100.0, 1000.0, true},
      {line, 260.0, 1000.0, true},   {line, 80.0, 1000.0, false},     {line, 100.0, 3001.0, false},
      {whole, 5.0, 1000.0, false},   {whole, 0.0, 1000.0, false},
  };
  // clang-format on
  for (const auto& c : cases) {
    const double b = c.bearing * M_PI / 180.0, lat = degreesFor(c.metres * std::cos(b));
    EXPECT_EQ(SngTaskProgress::inZone(c.tp, lat, degreesFor(c.metres * std::sin(b)), 500.0), c.inside)
        << c.tp.name << " " << c.bearing << " " << c.metres;
  }
}

}  // namespace
