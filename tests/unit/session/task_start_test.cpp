// The start: gate opening, leaving the start zone, gate altitude, line starts, regatta starts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TaskFlight.h"

using ::testing::HasSubstr;

namespace {

// Start cylinder of 3010 m at (0, 0); turnpoint 33336 m east (0.3 degrees); finish 33336 m north of it.
SngTaskProgress standardTask(SngTurnpoint start = makeTurnpoint("Start", 0.0, 0.0, 3010.0)) {
  return makeTask({start, makeTurnpoint("East", 0.0, 0.3, 500.0), makeTurnpoint("Goal", 0.3, 0.3, 1000.0)});
}

TEST(TaskStart, ExitAfterTheGateStartsAtTheLastTwentiethInside) {
  // From the centre at the gate opening, east at 30 m/s: the point at +100 s (3000 m) is inside, the
  // one at +102 s (3060 m) outside. The twentieths in between lie 3 m apart: 3009 m (k = 3) is the
  // last inside and 3012 m (k = 4) the first outside, so the start is 100.3 s after the gate.
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyBy(6000.0, 0.0, 30.0);

  testing::internal::CaptureStderr();
  const SngTaskProgress task = scoreLive(standardTask(), flight.track());
  const std::string err = testing::internal::GetCapturedStderr();

  EXPECT_NEAR(task.start_time, kGateOpen + 100.3, 1e-6);
  EXPECT_EQ(task.curr_tp, 1);
  EXPECT_FALSE(task.in_start_zone);
  ASSERT_EQ(task.achieved.size(), 1u);
  EXPECT_EQ(task.achieved[0].name, "Start");
  EXPECT_THAT(err, HasSubstr("exit index = 4\n"));
  EXPECT_THAT(err, HasSubstr("Found exit time: 43300.3\n"));
  EXPECT_THAT(err, HasSubstr("Started: t = 43300.3 curr_tp = 1\n"));
  // 6000 m flown towards the turnpoint, counted from the start's centre.
  EXPECT_NEAR(task.distance, 6000.0, 0.01);
  EXPECT_NEAR(task.task_time, 6000.0 / 30.0 - 100.3, 1e-6);
}

TEST(TaskStart, NothingBeforeTheGateCountsAndTheGateSecondArms) {
  // Two points inside before the gate, one at the opening second.
  TestFlight flight(kGateOpen - 4, 0.0, 0.0, 800.0);
  flight.flyBy(60.0, 0.0, 10.0);  // 6 s: points at -4, -2, 0 and +2 s
  LiveScorer live(standardTask());
  live.feedUntil(flight.track(), kGateOpen - 1);
  EXPECT_FALSE(live.task.in_start_zone);
  EXPECT_EQ(live.task.curr_tp, 0);
  EXPECT_EQ(live.task.statusCode(), 1);
  live.feedUntil(flight.track(), kGateOpen);
  EXPECT_TRUE(live.task.in_start_zone);
  EXPECT_EQ(live.task.curr_tp, 1);
  EXPECT_EQ(live.task.statusCode(), 5);

  // Leaving the zone 200 s before the gate and flying on: never started.
  TestFlight early(kGateOpen - 300, 0.0, 0.0, 800.0);
  early.flyBy(30000.0, 0.0, 30.0);
  testing::internal::CaptureStderr();
  const SngTaskProgress task = scoreLive(standardTask(), early.track());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(task.curr_tp, 0);
  EXPECT_FALSE(task.in_start_zone);
  EXPECT_TRUE(task.achieved.empty());
  EXPECT_EQ(task.distance, 0.0);
}

TEST(TaskStart, LeavingTheStartZoneTwiceStartsAtTheSecondExit) {
  // Out to 4500 m and back to the centre (re-armed on the way), then out again from the centre at
  // +300 s: the second exit lies 100.3 s later, as in the first test.
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyBy(4500.0, 0.0, 30.0).flyBy(-4500.0, 0.0, 30.0);
  LiveScorer live(standardTask());
  testing::internal::CaptureStderr();
  live.feedAll(flight.track());
  EXPECT_NEAR(live.task.start_time, kGateOpen + 100.3, 1e-6);
  EXPECT_TRUE(live.task.in_start_zone);  // back at the centre: armed again
  EXPECT_EQ(live.task.statusCode(), 5);

  flight.flyBy(6000.0, 0.0, 30.0);
  live.feedAll(flight.track());
  testing::internal::GetCapturedStderr();
  EXPECT_NEAR(live.task.start_time, kGateOpen + 300.0 + 100.3, 1e-6);
  EXPECT_FALSE(live.task.in_start_zone);
  EXPECT_EQ(live.task.achieved.size(), 1u);
  EXPECT_NEAR(live.task.distance, 6000.0, 0.01);
}

TEST(TaskStart, AboveTheGateAltitudeTheStartZoneIsNotEntered) {
  SngTurnpoint start = makeTurnpoint("Start", 0.0, 0.0, 3010.0);
  start.max_alt = 1000.0;

  TestFlight high(kGateOpen, 0.0, 0.0, 1001.0);
  high.flyTo(0.0, 0.1, 30.0, 1001.0);
  const SngTaskProgress tooHigh = scoreLive(standardTask(start), high.track());
  EXPECT_EQ(tooHigh.curr_tp, 0);
  EXPECT_TRUE(tooHigh.achieved.empty());

  TestFlight low(kGateOpen, 0.0, 0.0, 1000.0);
  low.flyTo(0.0, 0.1, 30.0, 1000.0);
  testing::internal::CaptureStderr();
  const SngTaskProgress atGate = scoreLive(standardTask(start), low.track());
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(atGate.curr_tp, 1);
  EXPECT_NEAR(atGate.start_time, kGateOpen + 100.3, 1e-6);

  // Climbing out through the top is an exit too: 980 m to 1020 m within one 2 s step crosses
  // 1000 m at the middle twentieth (k = 10 is still 1000 m, inside).
  TestFlight climb(kGateOpen, 0.0, 0.0, 980.0);
  climb.flyBy(10.0, 0.0, 5.0);  // one step at 980 m
  climb.flyTo(0.0, degreesFor(20.0), 5.0, 1020.0);
  testing::internal::CaptureStderr();
  const SngTaskProgress out = scoreLive(standardTask(start), climb.track());
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_THAT(err, HasSubstr("exit index = 11\n"));
  EXPECT_NEAR(out.start_time, kGateOpen + 2.0 + 1.0, 1e-6);
}

TEST(TaskStart, LineStartCountsOnlyWhenCrossedForwards) {
  // A line through (0, 0) with axis east: the zone is the half disc west of it.
  const SngTurnpoint line = makeTurnpoint("Line", 0.0, 0.0, 3000.0, SNG_OZ_LINE, 90.0);

  // From 2000 m west, eastwards: -20 m at +66 s, +40 m at +68 s; the line lies at the seventh of the
  // 3 m twentieths, so the last inside is k = 6 (+66.6 s).
  TestFlight forwards(kGateOpen, 0.0, degreesFor(-2000.0), 800.0);
  forwards.flyBy(7980.0, 0.0, 30.0);  // to 5980 m east of the line at +266 s
  testing::internal::CaptureStderr();
  const SngTaskProgress started = scoreLive(standardTask(line), forwards.track());
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(started.curr_tp, 1);
  EXPECT_NEAR(started.start_time, kGateOpen + 66.6, 1e-6);
  EXPECT_NEAR(started.distance, 5980.0, 0.01);

  // Westwards out through the back of the half disc: the wrong side, no start.
  TestFlight backwards(kGateOpen, 0.0, degreesFor(-2000.0), 800.0);
  backwards.flyBy(-4000.0, 0.0, 30.0);
  testing::internal::CaptureStderr();
  const SngTaskProgress refused = scoreLive(standardTask(line), backwards.track());
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(refused.curr_tp, 0);
  EXPECT_TRUE(refused.achieved.empty());
  EXPECT_EQ(refused.start_time, 0.0);
  EXPECT_THAT(err, ::testing::Not(HasSubstr("Started")));
}

TEST(TaskStart, RegattaStartCountsFromTheGateOpening) {
  SngTaskProgress regatta = standardTask();
  regatta.regatta_start = true;
  // Leaves the zone 400 s after the gate opened; 6000 m out at +500 s.
  TestFlight flight(kGateOpen + 300, 0.0, 0.0, 800.0);
  flight.flyBy(6000.0, 0.0, 30.0);
  testing::internal::CaptureStderr();
  const SngTaskProgress task = scoreLive(regatta, flight.track());
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(task.start_time, static_cast<double>(kGateOpen));
  EXPECT_NEAR(task.task_time, 500.0, 1e-6);
  EXPECT_THAT(err, HasSubstr("Started: t = 43200 curr_tp = 1\n"));
  EXPECT_THAT(err, ::testing::Not(HasSubstr("Found exit time")));

  // Back into the zone: re-armed, and the time flown since the gate stands (+598 s was the last
  // point outside, 2990 m out).
  flight.flyBy(-6000.0, 0.0, 30.0);
  testing::internal::CaptureStderr();
  const SngTaskProgress again = scoreLive(regatta, flight.track());
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(again.in_start_zone);
  EXPECT_NEAR(again.task_time, 598.0, 1e-6);
}

}  // namespace
