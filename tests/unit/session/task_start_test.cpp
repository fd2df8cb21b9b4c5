// The start: gate opening, leaving the start zone, gate altitude, line starts, regatta starts.
#include <gtest/gtest.h>

#include "TaskFlight.h"

namespace {

SngTaskProgress withStart(int32_t oz, bool regatta = false, double maxAlt = 1e9) {
  SngTurnpoint start = makeTurnpoint("Start", 0.0, 0.0, 3010.0, oz, 90.0);  // a line's axis points east
  start.max_alt = maxAlt;
  SngTaskProgress task = standardTask(std::move(start));
  task.regatta_start = regatta;
  return task;
}

// The zone of a line through (0, 0) is the half disc west of it.
const SngTaskProgress kLineStart = withStart(SNG_OZ_LINE);

TEST(TaskStart, ScoresEachWayOfStarting) {
  // Distance counts from the start's centre.
  // clang-format off
  const ScoringCase cases[] = {
      {.name = "ExitAfterTheGate", .flight = eastFromTheGate(6000.0), .currTp = 1, .achieved = 1,
       .start = kStartedEast, .taskTime = 99.7, .distance = 6000.0, .toTp = 27336.0, .course = 90.0},
      // Points at -4 and -2 s inside do not arm; the one at the gate's second does.
      {.name = "InsideBeforeTheGate", .flight = TestFlight(kGateOpen - 4).flyBy(20.0, 0.0, 10.0)},
      {.name = "InsideAtTheGate", .flight = TestFlight(kGateOpen - 4).flyBy(40.0, 0.0, 10.0), .currTp = 1,
       .status = 5},
      // Out to 4500 m and back to the centre re-arms; the second exit, 300 s later, starts.
      {.name = "BackInTheZone", .flight = eastFromTheGate(4500.0).flyBy(-4500.0, 0.0, 30.0), .currTp = 1,
       .status = 5, .achieved = 1, .start = kStartedEast},
      {.name = "SecondExit",
       .flight = eastFromTheGate(4500.0).flyBy(-4500.0, 0.0, 30.0).flyBy(6000.0, 0.0, 30.0), .currTp = 1,
       .achieved = 1, .start = kStartedEast + 300.0, .taskTime = 99.7, .distance = 6000.0},
      // 980 m to 1020 m within one step, out through the top: k = 10 is still 1000 m, inside.
      {.name = "ClimbingThroughTheGateAltitude", .task = withStart(SNG_OZ_CYLINDER, false, 1000.0),
       .flight = TestFlight(kGateOpen, 0.0, 980.0).flyBy(10.0, 0.0, 5.0).flyBy(10.0, 0.0, 5.0, 1020.0),
       .currTp = 1, .achieved = 1, .start = kGateOpen + 3.0, .taskTime = 1.0, .distance = 20.0},
      // Eastwards from 2000 m west: -20 m at +66 s, +40 m at +68 s; the line lies at the seventh 3 m
      // twentieth, so the last inside is k = 6.
      {.name = "LineCrossedForwards", .task = kLineStart,
       .flight = TestFlight(kGateOpen, -2000.0).flyBy(7980.0, 0.0, 30.0), .currTp = 1, .achieved = 1,
       .start = kGateOpen + 66.6, .taskTime = 199.4, .distance = 5980.0},
      // Westwards, out through the back of the half disc: no start.
      {.name = "LineLeftBackwards", .task = kLineStart,
       .flight = TestFlight(kGateOpen, -2000.0).flyBy(-4000.0, 0.0, 30.0), .status = 5},
      // A regatta start counts from the gate opening, whenever the zone is left.
      {.name = "Regatta", .task = withStart(SNG_OZ_LINE, true),
       .flight = TestFlight(kGateOpen + 300, -2000.0).flyBy(7980.0, 0.0, 30.0), .currTp = 1, .achieved = 1,
       .start = kGateOpen, .taskTime = 566.0, .distance = 5980.0},
      // Back in the zone: re-armed, and the time flown since the gate stands (+598 s: last point outside).
      {.name = "RegattaBackInTheZone", .task = withStart(SNG_OZ_CYLINDER, true),
       .flight = TestFlight(kGateOpen + 300).flyBy(6000.0, 0.0, 30.0).flyBy(-6000.0, 0.0, 30.0), .currTp = 1,
       .status = 5, .achieved = 1, .start = kGateOpen, .taskTime = 598.0, .liveOnly = true},
  };
  // clang-format on
  for (const ScoringCase& c : cases) expectScoring(c);
}

}  // namespace
