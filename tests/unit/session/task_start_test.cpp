// The start: gate opening, leaving the start zone, gate altitude, line starts, regatta starts.
#include <gtest/gtest.h>

#include "TaskFlight.h"

namespace {

// A start whose axis points east: the zone of a line through (0, 0) is the half disc west of it.
SngTaskProgress withStart(int32_t oz, bool regatta = false, double maxAlt = 1e9) {
  SngTaskProgress task = standardTask(makeTurnpoint("Start", 0.0, 0.0, 3010.0, oz, 90.0));
  std::tie(task.turnpoints[0].max_alt, task.regatta_start) = std::tuple(maxAlt, regatta);
  return task;
}

TEST(TaskStart, ScoresEachWayOfStarting) {
  const SngTaskProgress line = withStart(SNG_OZ_LINE);
  const TestFlight outAndBack = eastFromTheGate(4500.0).east(-4500.0);
  const TestFlight climbing = TestFlight(kGateOpen, 0.0, 980.0).east(10.0, 5.0).flyBy(10.0, 0.0, 5.0, 1020.0);
  // Distance counts from the start's centre.
  // clang-format off
  const ScoringCase cases[] = {
      {"ExitAfterTheGate", kTask, eastFromTheGate(6000), 1, 1, 1, {kStartedEast, 99.7}, {6000, 0, 27336, 90}},
      // Points at -4 and -2 s inside do not arm; the one at the gate's second does.
      {"InsideBeforeTheGate", kTask, TestFlight(kGateOpen - 4).east(20, 10), 0, 1, 0},
      {"InsideAtTheGate", kTask, TestFlight(kGateOpen - 4).east(40, 10), 1, 5, 0},
      // Out to 4500 m and back to the centre re-arms; the second exit, 300 s later, starts.
      {"BackInTheZone", kTask, outAndBack, 1, 5, 1, {kStartedEast}},
      {"SecondExit", kTask, TestFlight(outAndBack).east(6000), 1, 1, 1, {kStartedEast + 300, 99.7}, {6000}},
      // 980 m to 1020 m within one step, out through the top: k = 10 is still 1000 m, inside.
      {"ClimbingThroughTheGate", withStart(SNG_OZ_CYLINDER, false, 1000), climbing,
       1, 1, 1, {kGateOpen + 3, 1}, {20}},
      // Eastwards from 2000 m west: -20 m at +66 s, +40 m at +68 s; the line lies at the seventh 3 m
      // twentieth, so the last inside is k = 6.
      {"LineCrossedForwards", line, TestFlight(kGateOpen, -2000).east(7980), 1, 1, 1,
       {kGateOpen + 66.6, 199.4}, {5980}},
      // Westwards, out through the back of the half disc: no start.
      {"LineLeftBackwards", line, TestFlight(kGateOpen, -2000).east(-4000), 0, 5, 0},
      // A regatta start counts from the gate opening, whenever the zone is left.
      {"Regatta", withStart(SNG_OZ_LINE, true), TestFlight(kGateOpen + 300, -2000).east(7980), 1, 1, 1,
       {kGateOpen, 566}, {5980}},
      // Back in the zone: re-armed, and the time flown since the gate stands (+598 s: last point outside).
      {"RegattaBackInTheZone", withStart(SNG_OZ_CYLINDER, true),
       TestFlight(kGateOpen + 300).east(6000).east(-6000), 1, 5, 1, {kGateOpen, 598}, {}, true},
  };
  // clang-format on
  for (const ScoringCase& c : cases) expectScoring(c);
}

}  // namespace
