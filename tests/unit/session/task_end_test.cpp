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
      {.name = "Finish", .flight = eastFromTheGate(33336.0).flyBy(0.0, 38892.0, 30.0), .currTp = 2,
       .status = 2, .achieved = 2, .start = kStartedEast, .taskTime = 2088.7, .finish = kGateOpen + 2189.0,
       .distance = 66672.0, .done = 33336.0, .toTp = 972.0, .course = 0.0},
      {.name = "LandedBeforeTheStart",
       .flight = TestFlight(kGateOpen - 600).flyBy(10000.0, 0.0, 30.0).land(1200.0)},
      {.name = "LandedArmed", .flight = TestFlight(kGateOpen).flyBy(600.0, 0.0, 10.0).land(60.0), .currTp = 1,
       .status = 5},
      // 19800 m out at +660 s, on the ground from +662 s: the task time ends at touchdown.
      {.name = "LandedOnCourse", .flight = eastFromTheGate(19800.0).land(60.0), .status = 9, .achieved = 1,
       .start = kStartedEast, .taskTime = 561.7, .distance = 19800.0, .toTp = 19800.0, .course = 270.0,
       .liveOnly = true},
      {.name = "StateBit2IsALanding", .flight = eastFromTheGate(19800.0).land(60.0, SNG_TRACK_STATE_BIT2),
       .status = 9, .achieved = 1, .start = kStartedEast, .taskTime = 561.7, .distance = 19800.0,
       .liveOnly = true},
      // Westwards, 42336 m from the turnpoint: more than the leg, and nothing flown.
      {.name = "AwayFromTheCourse", .flight = eastFromTheGate(-9000.0), .currTp = 1, .achieved = 1,
       .start = kStartedEast, .taskTime = 199.7, .toTp = 42336.0, .course = 90.0},
      // No average speed up to 5000 m (the 6000 m start flights have one).
      {.name = "ShortOfAnAverageSpeed", .flight = eastFromTheGate(4980.0), .currTp = 1, .achieved = 1,
       .start = kStartedEast, .taskTime = 65.7, .distance = 4980.0},
  };
  // clang-format on
  for (const ScoringCase& c : cases) expectScoring(c);
}

TEST(TaskResume, AClockGoingBackRescoresUpToThenAndTheNextEvaluationGoesOnFromThere) {
  const std::vector<SngTrackPoint> track = eastFromTheGate(24000.0).track();  // to +800 s
  SngTaskProgress task = score(standardTask(), track, true).task;
  testing::internal::CaptureStderr();
  task.evaluate(kGateOpen + 200.0, track, kGateOpen);
  EXPECT_NEAR(task.distance, 6000.0, 0.01);
  task.evaluate(kGateOpen + 500.0, track, kGateOpen);
  testing::internal::GetCapturedStderr();
  EXPECT_NEAR(task.distance, 15000.0, 0.01);  // beyond where the rescoring stopped
}

TEST(TaskResume, IndicesThatDoNotFitTheTaskOrTheTrackStartTheScoringOver) {
  SngTaskProgress task = standardTask();
  task.last_time = 0.0;  // as if scored before, with indices from another task
  task.curr_tp = 5;
  task.pending_tp = 4;
  task = score(task, eastFromTheGate(6000.0).track(), false).task;
  EXPECT_NEAR(task.distance, 6000.0, 0.01);
  // A new track, shorter than the one scored so far (a new flight, later in the day).
  task = score(task, TestFlight(kGateOpen + 1000).flyBy(3600.0, 0.0, 30.0).track(), false).task;
  EXPECT_NEAR(task.start_time, kStartedEast + 1000.0, 1e-6);
  EXPECT_NEAR(task.distance, 3600.0, 0.01);
}

TEST(TaskResume, NoCourseNoTrackOrNoClockScoresNothing) {
  const TestFlight flight = eastFromTheGate(10000.0);
  SngTaskProgress task = standardTask();
  task.turnpoints.resize(1);  // a start alone: no course to score
  EXPECT_EQ(score(task, flight.track(), true).task.last_time, std::numeric_limits<double>::max());
  task = standardTask();
  task.evaluate(kGateOpen, {}, kGateOpen);
  EXPECT_EQ(task.last_time, std::numeric_limits<double>::max());

  // Part of the track scored, then a clock that is not a number: nothing moves on.
  task = score(task, {flight.track().begin(), flight.track().begin() + 100}, true).task;
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
  EXPECT_NEAR(task.length, 66672.0, 0.01);
  task.turnpoints.pop_back();
  task.computeLength();
  EXPECT_NEAR(task.length, 66672.0, 0.01);
}

}  // namespace
