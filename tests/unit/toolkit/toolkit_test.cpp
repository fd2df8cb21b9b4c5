#include <gmock/gmock.h>

#include <atomic>
#include <cmath>
#include <regex>
#include <sstream>
#include <thread>

#include "testutil/Files.h"
#include "testutil/TempDir.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkExit.h"
#include "toolkit/BtkFiles.h"
#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"
#include "toolkit/BtkThread.h"
#include "toolkit/BtkTimer.h"

namespace {

// Worked out by hand: the model's sphere has one nautical mile per minute of arc; Paris to London is
// 343.56 km on a 6371 km sphere, at an initial course of 330.3 degrees.
TEST(Geo, CoursesClockwiseFromNorthDistancesOnTheNauticalMileSphereAndTruncatedRadioChannels) {
  // clang-format off
  struct Case { double lat1, lon1, lat2, lon2, courseDeg, distance, tolerance; } const cases[] = {
      {0, 0, 0, 1, 90, 111120.0, 1e-6}, {10, 5, 11, 5, 0, 111120.0, 1e-6}, {11, 5, 10, 5, 180, 111120.0, 1e-6},
      {46, 7, 46, 7, 360, 0.0, 0.0}, {30, 20, -30, -160, NAN, 180 * 111120.0, 1.0},
      {48.8566, 2.3522, 51.5074, -0.1278, 330.3, 343.56e3 * 180 * 111120.0 / M_PI / 6371e3, 300}};
  // clang-format on
  for (const Case& c : cases) {
    const auto cd =
        calcCourseDistance(btkRadians(c.lat1), btkRadians(c.lon1), btkRadians(c.lat2), btkRadians(c.lon2));
    EXPECT_NEAR(cd.distance, c.distance, c.tolerance) << c.lat2 << ", " << c.lon2;
    // The law of cosines, on a sphere of 111195 m a degree, rounds below a metre.
    EXPECT_NEAR(surfaceDistance(c.lat1, c.lon1, c.lat2, c.lon2), c.distance / 111120 * 111195,
                c.tolerance + 1);
    EXPECT_TRUE(std::isfinite(cd.course));  // antipodes included
    if (std::isnan(c.courseDeg)) continue;
    EXPECT_NEAR(std::remainder(btkCourseDegrees(cd) - c.courseDeg, 360), 0, 0.3);
  }
  // Radio channels: 25 kHz steps from 118 MHz, truncated.
  for (auto [mhz, channel] : {std::pair{123.45, 218}, {118.0, 0}, {118.024, 0}, {120.5, 100}, {NAN, 0}})
    EXPECT_EQ(btkCommChannel(mhz), channel) << mhz;
  EXPECT_DOUBLE_EQ(btkCommFrequencyMHz(218), 123.45);
}

TEST(ManualClock, TimerWallClockAndCalendarFollowTheInstalledSource) {
  BtkManualClock clock{1.0e12};
  btkSetClockSource(&clock);
  BtkTimer timer;
  timer.start();
  clock.advanceSeconds(90.0);
  EXPECT_DOUBLE_EQ(timer.lapMs(), 90000.0);
  EXPECT_EQ(btkCalendarSeconds(), static_cast<time_t>(1.0e9 + 90.0));
  clock.advanceMs(2.5);
  EXPECT_DOUBLE_EQ(timer.elapsedMs(), 2.5);  // the lap restarted the timer
  btkSetClockSource(nullptr);
  btkSetExitHandler([](int code) { throw code; });  // a handler that returns makes btkExit abort
  EXPECT_THAT([] { btkExit(3); }, testing::Throws<int>(3));
  btkSetExitHandler(nullptr);
}

TEST(ListDirectory, MatchesTheInfixAnywhereAndLeavesNamesAloneWithoutAMatch) {
  TempDir tmp;
  // A block directory has no dot in its name: "*.*" matched it on the original platform.
  for (const char* file : {"BLK046N007E01/terrain.grd", "xBLK.grd", "terrain.BLK.grd", "other.grd"})
    writeText(tmp.path(file), "x");
  std::vector<std::string> names{"kept"};
  EXPECT_EQ(btkListDirectory(tmp.root(), "BLK", names), 4);
  EXPECT_EQ(btkListDirectory(tmp.root(), "none", names) + btkListDirectory(tmp.path("no"), "BLK", names), -2);
  EXPECT_THAT(names, testing::UnorderedElementsAre("kept", "BLK046N007E01", "xBLK.grd", "terrain.BLK.grd"));
}

struct Tracked : BtkObject {
  ~Tracked() override { diedOn = std::this_thread::get_id(); }
  static inline std::thread::id diedOn;
};

TEST(CountedRef, TheLastReferenceFromAnyThreadDestroysTheObjectThere) {
  Tracked::diedOn = {};
  BtkRef<Tracked> mine(new Tracked), theirs = mine;
  mine = mine.get();  // storing the object it holds changes nothing
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([mine] {
      for (int i = 0; i < 20000; ++i) BtkRef<Tracked> local = mine;
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mine->refCount(), 2);
  mine.reset(nullptr);
  EXPECT_EQ(Tracked::diedOn, std::thread::id());
  std::thread worker([&] { theirs.reset(nullptr); });
  const std::thread::id workerId = worker.get_id();
  worker.join();
  EXPECT_EQ(Tracked::diedOn, workerId);
}

struct Worker : BtkThread {
  std::atomic<int> turns{0};
  BtkSemaphore work{0};
  void run() override {
    for (;;)
      if (work.wait(); ++turns == 2) BtkThread::exit();  // never returns
  }
};

TEST(Thread, SemaphoreKeepsEarlyPostsAndWakesTheWorkerThatEndsThroughExit) {
  Worker worker;
  worker.wait();  // never started: returns at once
  for (int i = 0; i < 2; ++i) worker.work.post();
  EXPECT_TRUE(worker.work.waitFor(0) && worker.work.waitFor(0));
  EXPECT_FALSE(worker.work.waitFor(0));
  ASSERT_TRUE(worker.start());
  for (int i = 0; i < 2; ++i) worker.work.post();  // the first wakes the worker waiting for it
  worker.wait();                                   // returns once exit() has ended the thread
  EXPECT_EQ(worker.turns, 2);
}

// The lines with "Thu Nov 19 02:08:16 2026 [info]: " (the day padded as ctime pads it) made "info: ".
std::vector<std::string> logLines(const std::string& path) {
  static const std::regex stamp(
      R"(^(Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} [ 1-3]\d [\d:]{8} \d{4} \[([a-z]+)\]: )");
  std::vector<std::string> out;
  std::istringstream in(readText(path));
  for (std::string line; std::getline(in, line);) out.push_back(std::regex_replace(line, stamp, "$2: "));
  return out;
}

// One write call per line under the lock: lines from many threads never interleave.
TEST(Logger, WritesLevelsAtOrAboveTheThresholdAsWholeStampedLinesCutAt4095Characters) {
  TempDir tmp;
  BtkLogger logger;
  ASSERT_TRUE(logger.open(tmp.path("a.log"), BTK_WARNING, false));
  logger.write(BTK_INFO, "dropped");
  logger.log(BTK_ERROR, "value %d", 42);
  logger.write(7, "100% odd level");
  logger.log(BTK_FATAL, "%s", std::string(5000, 'x').c_str());
  // An empty flush writes nothing; the destructor sends what is left.
  BtkLogStream(BTK_WARNING, &logger) << "stream " << 3600.0 << btkFlush << btkFlush << "unsent";
  std::vector<std::thread> threads;
  for (char c = 'a'; c < 'i'; ++c)
    threads.emplace_back([&logger, c] {
      for (int i = 0; i < 300; ++i) logger.write(BTK_ERROR, std::string(200, c));
    });
  for (auto& thread : threads) thread.join();
  std::vector<std::string> got = logLines(tmp.path("a.log"));
  ASSERT_EQ(got.size(), 5u + 8u * 300u);
  for (size_t i = 5; i < got.size(); ++i) ASSERT_EQ(got[i], "error: " + std::string(200, got[i].back()));
  got.resize(5);
  EXPECT_THAT(got, testing::ElementsAre("error: value 42", "unknown: 100% odd level",
                                        "fatal: " + std::string(4095, 'x'), "warning: stream 3600",
                                        "warning: unsent"));
}

TEST(Logger, OpenEmptiesTheFileUnlessAppendingAndFallsBackToStandardErrorOnFailure) {
  TempDir tmp;
  writeText(tmp.path("old.log"), "from the last run\n");
  for (bool append : {false, true}) {
    BtkLogger logger;
    ASSERT_TRUE(logger.open(tmp.path("old.log"), BTK_DEBUG, append));
    logger.write(BTK_INFO, append ? "appended" : "fresh");
  }  // the destructor signs off with "Log closing\n"
  EXPECT_THAT(logLines(tmp.path("old.log")), testing::ElementsAre("info: fresh", "info: Log closing", "",
                                                                  "info: appended", "info: Log closing", ""));

  BtkLogger logger;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(logger.open(tmp.path("missing/y.log"), BTK_DEBUG, false));
  std::thread([&] { logger.write(BTK_INFO, "from another thread"); }).join();  // the lock was let go
  logger.write(BTK_DEBUG, "below the kept threshold");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::EndsWith("[info]: from another thread\n"));
}

}  // namespace
