// The end of a task (finish, outlanding), the running figures, resuming, degenerate input.
#include <gtest/gtest.h>

#include <limits>

#include "TaskFlight.h"

namespace {

TEST(TaskEnd, ScoresFinishesLandingsAndTheRunningFigures) {
  // clang-format off
  const ScoringCase cases[] = {
      // North past the turnpoint (+1111.2 s) into the goal, whose zone begins 32336 m up, between the
      // points at +2188 s (32304 m) and +2190 s (32364 m): the last 3 m twentieth outside is k = 10.
      {"Finish", kTask, eastFromTheGate(33336).flyBy(0, 38892, 30), 2, 2, 2,
       {kStartedEast, 2088.7, kGateOpen + 2189}, {66672, 33336, 972, 0}},
      {"LandedBeforeTheStart", kTask, TestFlight(kGateOpen - 600).flyBy(10000, 0, 30).land(1200), 0, 1, 0},
      {"LandedArmed", kTask, TestFlight(kGateOpen).flyBy(600, 0, 10).land(60), 1, 5, 0},
      // 19800 m out at +660 s, on the ground from +662 s: the task time ends at touchdown.
      {"LandedOnCourse", kTask, eastFromTheGate(19800).land(60), 0, 9, 1, {kStartedEast, 561.7},
       {19800, 0, 19800, 270}, true},
      {"StateBit2IsALanding", kTask, eastFromTheGate(19800).land(60, SNG_TRACK_STATE_BIT2), 0, 9, 1,
       {kStartedEast, 561.7}, {19800}, true},
      // Westwards, 42336 m from the turnpoint: more than the leg, and nothing flown.
      {"AwayFromTheCourse", kTask, eastFromTheGate(-9000), 1, 1, 1, {kStartedEast, 199.7}, {0, 0, 42336, 90}},
      // No average speed up to 5000 m (the 6000 m start flights have one).
      {"ShortOfAnAverageSpeed", kTask, eastFromTheGate(4980), 1, 1, 1, {kStartedEast, 65.7}, {4980}},
  };
  // clang-format on
  for (const ScoringCase& c : cases) expectScoring(c);
}

TEST(TaskResume, AClockGoingBackRescoresUpToThenAndTheNextEvaluationGoesOnFromThere) {
  const std::vector<SngTrackPoint> track = eastFromTheGate(24000.0).track();  // to +800 s
  SngTaskProgress task = score(standardTask(), track, true);
  testing::internal::CaptureStderr();
  task.evaluate(kGateOpen + 200.0, track, kGateOpen);
  EXPECT_NEAR(task.distance, 6000.0, 0.01);
  task.evaluate(kGateOpen + 500.0, track, kGateOpen);
  testing::internal::GetCapturedStderr();
  EXPECT_NEAR(task.distance, 15000.0, 0.01);  // beyond where the rescoring stopped
}

TEST(TaskResume, IndicesThatDoNotFitTheTaskOrTheTrackStartTheScoringOver) {
  SngTaskProgress task = standardTask();
  // As if scored before, with indices from another task.
  std::tie(task.last_time, task.curr_tp, task.pending_tp) = std::tuple(0.0, 5, 4);
  task = score(task, eastFromTheGate(6000.0).track(), false);
  EXPECT_NEAR(task.distance, 6000.0, 0.01);
  // A new track, shorter than the one scored so far (a new flight, later in the day).
  task = score(task, TestFlight(kGateOpen + 1000).flyBy(3600.0, 0.0, 30.0).track(), false);
  EXPECT_NEAR(task.start_time, kStartedEast + 1000.0, 1e-6);
  EXPECT_NEAR(task.distance, 3600.0, 0.01);
}

TEST(TaskResume, NoCourseNoTrackOrNoClockScoresNothing) {
  const TestFlight flight = eastFromTheGate(10000.0);
  SngTaskProgress task = standardTask();
  task.turnpoints.resize(1);  // a start alone: no course to score
  EXPECT_EQ(score(task, flight.track(), true).last_time, std::numeric_limits<double>::max());
  task = standardTask();
  task.evaluate(kGateOpen, {}, kGateOpen);
  EXPECT_EQ(task.last_time, std::numeric_limits<double>::max());

  // Part of the track scored, then a clock that is not a number: nothing moves on.
  task = score(task, {flight.track().begin(), flight.track().begin() + 100}, true);
  const int32_t before = task.track_index;
  task.evaluate(std::numeric_limits<double>::quiet_NaN(), flight.track(), kGateOpen);
  EXPECT_EQ(task.track_index, before);
}

TEST(TaskDescription, NamesTheTurnpointsAndMeasuresTheCourseOnce) {
  SngTaskProgress task = standardTask();
  EXPECT_EQ(task.describe() + " | " + task.currentTurnpointName(), "Start - East - Goal | Start");
  task.curr_tp = 3;
  EXPECT_EQ(task.currentTurnpointName(), "");
  task.computeLength();
  task.turnpoints.pop_back();  // too late to change the length
  task.computeLength();
  EXPECT_NEAR(task.length, 66672.0, 0.01);
}

}  // namespace
