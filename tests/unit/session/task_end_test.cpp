// The end of a task (finish, outlanding), the running figures, time going back, degenerate tasks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "TaskFlight.h"
#include "toolkit/BtkLogger.h"

using ::testing::HasSubstr;

namespace {

// Start cylinder 3010 m at (0, 0); 33336 m east; the goal (1000 m) 33336 m north of that.
SngTaskProgress standardTask() {
  return makeTask({makeTurnpoint("Start", 0.0, 0.0, 3010.0), makeTurnpoint("East", 0.0, 0.3, 500.0),
                   makeTurnpoint("Goal", 0.3, 0.3, 1000.0)});
}

template <class Score>
SngTaskProgress quietly(Score score) {
  testing::internal::CaptureStderr();  // the start lines
  SngTaskProgress task = score();
  testing::internal::GetCapturedStderr();
  return task;
}

// From the start's centre at the gate opening, east along the equator at 30 m/s: started at
// +100.3 s (see the start tests).
TestFlight eastFromTheGate(double metres) {
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyBy(metres, 0.0, 30.0);
  return flight;
}

TEST(TaskFinish, FinishIsTimedAtTheLastTwentiethOutsideTheGoal) {
  // The turnpoint is passed at +1111.2 s; the goal's zone begins 32336 m further north, reached at
  // +2189.067 s. Points at +2188 s (32304 m) and +2190 s (32364 m): twentieths of 3 m, the last
  // outside is k = 10, so the finish is at +2189.0 s.
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyTo(0.0, 0.3, 30.0, 800.0).flyTo(0.35, 0.3, 30.0, 800.0).flyBy(10000.0, 0.0, 30.0);
  const SngTaskProgress task = quietly([&] { return scoreLive(standardTask(), flight.track()); });

  EXPECT_TRUE(task.finished);
  EXPECT_NEAR(task.finish_time, kGateOpen + 2189.0, 1e-6);
  EXPECT_NEAR(task.task_time, 2189.0 - 100.3, 1e-6);
  EXPECT_NEAR(task.distance, 66672.0, 0.01);  // both legs in full, turnpoints achieved at their centres
  EXPECT_NEAR(task.avg_speed, 66672.0 / (2189.0 - 100.3) * 3.6, 1e-6);
  EXPECT_EQ(task.curr_tp, 2);
  EXPECT_EQ(task.statusCode(), 2);

  // The same track scored in one evaluation gives the same result.
  SngTaskProgress once = standardTask();
  quietly([&] {
    once.evaluate(flight.track().back().time, flight.track(), kGateOpen);
    return once;
  });
  EXPECT_TRUE(once.finished);
  EXPECT_DOUBLE_EQ(once.start_time, task.start_time);
  EXPECT_DOUBLE_EQ(once.finish_time, task.finish_time);
  EXPECT_DOUBLE_EQ(once.distance, task.distance);
  ASSERT_EQ(once.achieved.size(), task.achieved.size());
  for (size_t i = 0; i < once.achieved.size(); ++i) EXPECT_EQ(once.achieved[i].lon, task.achieved[i].lon);
}

TEST(TaskOutlanding, LandingBeforeTheStartIsNoOutlanding) {
  TestFlight flight(kGateOpen - 600, 0.0, 0.0, 800.0);
  flight.flyBy(10000.0, 0.0, 30.0).land(1200.0);
  const SngTaskProgress task = quietly([&] { return scoreLive(standardTask(), flight.track()); });
  EXPECT_FALSE(task.outlanded);
  EXPECT_EQ(task.curr_tp, 0);
  EXPECT_EQ(task.statusCode(), 1);
}

TEST(TaskOutlanding, LandingOnCourseEndsTheTaskAtTouchdown) {
  // 19800 m out at +660 s, on the ground from +662 s.
  TestFlight flight = eastFromTheGate(19800.0);
  flight.land(60.0);
  const int threshold = btkLogger.threshold();
  btkLogger.setThreshold(BTK_DEBUG);
  testing::internal::CaptureStderr();
  const SngTaskProgress task = scoreLive(standardTask(), flight.track());
  const std::string err = testing::internal::GetCapturedStderr();
  btkLogger.setThreshold(threshold);

  EXPECT_THAT(err, HasSubstr("[debug]: Outlanded: curr dist = 19800, t = 43862\n"));
  EXPECT_TRUE(task.outlanded);
  EXPECT_EQ(task.curr_tp, 0);
  EXPECT_EQ(task.statusCode(), 9);
  EXPECT_NEAR(task.task_time, 662.0 - 100.3, 1e-6);
  EXPECT_NEAR(task.avg_speed, 19800.0 / (662.0 - 100.3) * 3.6, 1e-6);
  EXPECT_EQ(err.find("Outlanded"), err.rfind("Outlanded"));  // once, not for every ground point
}

TEST(TaskFigures, DistanceFlownNeverGoesBelowZero) {
  // Out of the start zone westwards: 9000 m from the start, 42336 m from the turnpoint.
  TestFlight flight(kGateOpen, 0.0, 0.0, 800.0);
  flight.flyBy(-9000.0, 0.0, 30.0);
  const SngTaskProgress task = quietly([&] { return scoreLive(standardTask(), flight.track()); });
  EXPECT_EQ(task.curr_tp, 1);
  EXPECT_NEAR(task.dist_to_tp, 42336.0, 0.01);
  EXPECT_NEAR(task.course_to_tp, 90.0, 1e-6);
  EXPECT_EQ(task.distance, 0.0);
}

TEST(TaskFigures, AverageSpeedOnlyBeyond5000m) {
  TestFlight flight = eastFromTheGate(4980.0);  // +166 s
  LiveScorer live(standardTask());
  quietly([&] { return live.feedAll(flight.track()).task; });
  EXPECT_NEAR(live.task.distance, 4980.0, 0.01);
  EXPECT_EQ(live.task.avg_speed, -1.0);

  flight.flyBy(1020.0, 0.0, 30.0);  // 6000 m at +200 s
  live.feedAll(flight.track());
  EXPECT_NEAR(live.task.avg_speed, 6000.0 / (200.0 - 100.3) * 3.6, 1e-6);
}

TEST(TaskFigures, TimeGoingBackRescoresTheTrackUpToThen) {
  const TestFlight flight = eastFromTheGate(24000.0);  // +800 s
  SngTaskProgress task = quietly([&] { return scoreLive(standardTask(), flight.track()); });
  EXPECT_NEAR(task.distance, 24000.0, 0.01);

  // A clock 600 s behind: the progress is worked out again as it stood at +200 s.
  quietly([&] {
    task.evaluate(kGateOpen + 200.0, flight.track(), kGateOpen);
    return task;
  });
  EXPECT_NEAR(task.distance, 6000.0, 0.01);
  EXPECT_NEAR(task.task_time, 200.0 - 100.3, 1e-6);
  EXPECT_NEAR(task.start_time, kGateOpen + 100.3, 1e-6);
  EXPECT_EQ(task.last_time, kGateOpen + 200.0);

  task.evaluate(kGateOpen + 800.0, flight.track(), kGateOpen);
  EXPECT_NEAR(task.distance, 24000.0, 0.01);
}

TEST(TaskDegenerate, TasksOfFewerThanTwoTurnpointsAndEmptyTracksScoreNothing) {
  const TestFlight flight = eastFromTheGate(10000.0);
  const std::vector<SngTaskProgress> tasks = {makeTask({}),
                                              makeTask({makeTurnpoint("Only", 0.0, 0.0, 3010.0)})};
  for (SngTaskProgress task : tasks) {
    testing::internal::CaptureStderr();
    LiveScorer live(task);
    live.feedAll(flight.track());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(live.task.curr_tp, 0);
    EXPECT_FALSE(live.task.in_start_zone);
    EXPECT_TRUE(live.task.achieved.empty());
    EXPECT_EQ(live.task.last_time, std::numeric_limits<double>::max());
  }

  SngTaskProgress task = standardTask();
  task.evaluate(kGateOpen, {}, kGateOpen);
  EXPECT_EQ(task.last_time, std::numeric_limits<double>::max());
  task.evaluate(std::numeric_limits<double>::quiet_NaN(), flight.track(), kGateOpen);
  EXPECT_EQ(task.last_time, std::numeric_limits<double>::max());
}

TEST(TaskDegenerate, IndicesThatDoNotFitTheTaskStartTheScoringOver) {
  const TestFlight flight = eastFromTheGate(6000.0);
  SngTaskProgress task = standardTask();
  task.last_time = 0.0;  // as if evaluated before, but with indices from some other task and track
  task.curr_tp = 5;
  task.pending_tp = 4;
  task.track_index = 0;
  const SngTaskProgress scored = quietly([&] {
    task.evaluate(flight.track().back().time, flight.track(), kGateOpen);
    return task;
  });
  EXPECT_EQ(scored.curr_tp, 1);
  EXPECT_NEAR(scored.start_time, kGateOpen + 100.3, 1e-6);
  EXPECT_NEAR(scored.distance, 6000.0, 0.01);
}

TEST(TaskDescription, NamesLengthAndStatus) {
  SngTaskProgress task = standardTask();
  EXPECT_EQ(task.describe(), "Start - East - Goal");
  EXPECT_EQ(makeTask({}).describe(), "");
  EXPECT_EQ(task.currentTurnpointName(), "Start");

  task.computeLength();
  EXPECT_NEAR(task.length, 66672.0, 0.01);  // 0.3 degrees east, then 0.3 degrees north
  task.turnpoints.pop_back();
  task.computeLength();  // worked out once
  EXPECT_NEAR(task.length, 66672.0, 0.01);

  // Status byte: 1 on course, 2 finished, 5 armed, 6 both; 8 more when landed out.
  const int expected[2][2][2] = {{{1, 9}, {2, 10}}, {{5, 13}, {6, 14}}};
  for (int armed = 0; armed < 2; ++armed)
    for (int finished = 0; finished < 2; ++finished)
      for (int landed = 0; landed < 2; ++landed) {
        task.in_start_zone = armed;
        task.finished = finished;
        task.outlanded = landed;
        EXPECT_EQ(task.statusCode(), expected[armed][finished][landed]);
      }

  SngTaskProgress copy;
  copy.assign(task);
  EXPECT_EQ(copy.describe(), "Start - East");
  EXPECT_TRUE(copy.finished);
  copy.reset();
  EXPECT_TRUE(copy.turnpoints.empty());
  EXPECT_EQ(copy.length, -1.0);
  EXPECT_EQ(copy.last_time, std::numeric_limits<double>::max());
}

}  // namespace
