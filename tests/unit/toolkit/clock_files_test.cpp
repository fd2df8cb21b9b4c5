#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "testutil/TempDir.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkExit.h"
#include "toolkit/BtkFiles.h"
#include "toolkit/BtkTimer.h"

namespace {

class ManualClockTest : public ::testing::Test {
 protected:
  void SetUp() override { btkSetClockSource(&clock); }
  void TearDown() override { btkSetClockSource(nullptr); }
  BtkManualClock clock{1.0e12};
};

TEST_F(ManualClockTest, TimerAndWallClockFollowTheInstalledSource) {
  BtkTimer timer;
  timer.start();
  const double wallBefore = btkWallClockMs();
  clock.advanceSeconds(90.0);
  EXPECT_DOUBLE_EQ(timer.elapsedMs(), 90000.0);
  EXPECT_DOUBLE_EQ(btkWallClockMs() - wallBefore, 90000.0);
  EXPECT_EQ(btkCalendarSeconds(), static_cast<time_t>((1.0e12 + 90000.0) / 1000.0));
  EXPECT_DOUBLE_EQ(timer.lapMs(), 90000.0);
  EXPECT_DOUBLE_EQ(timer.lapMs(), 0.0);  // a lap restarts the timer
  clock.advanceMs(2.5);
  EXPECT_DOUBLE_EQ(timer.elapsedMs(), 2.5);
}

TEST(SystemClock, LapTwiceInARowIsNearZeroAndWallClockIsSince1970) {
  BtkTimer timer;
  timer.start();
  timer.lapMs();
  EXPECT_LT(timer.lapMs(), 50.0);
  EXPECT_GT(btkWallClockMs(), 1.6e12);  // after 2020
}

struct ExitCalled {
  int code;
};
void throwingExit(int code) { throw ExitCalled{code}; }

TEST(Exit, TheInstalledHandlerObservesTheCode) {
  btkSetExitHandler(&throwingExit);
  try {
    btkExit(3);
    FAIL() << "btkExit returned";
  } catch (const ExitCalled& e) {
    EXPECT_EQ(e.code, 3);
  }
  btkSetExitHandler(nullptr);
}

TEST(ListDirectory, MatchesTheInfixAnywhereDotOrNot) {
  TempDir tmp;
  mkdir(tmp.path("BLK046N007E01").c_str(), 0755);  // no dot: still "*.*" on the original platform
  mkdir(tmp.path("xBLK046N007E01").c_str(), 0755);
  std::ofstream(tmp.path("terrain.BLK.grd")) << "x";
  std::ofstream(tmp.path("other.grd")) << "x";
  std::vector<std::string> names{"kept"};
  EXPECT_EQ(btkListDirectory(tmp.root(), "BLK", names), 4);
  EXPECT_EQ(names[0], "kept");
  EXPECT_THAT(names, ::testing::UnorderedElementsAre("kept", "BLK046N007E01", "xBLK046N007E01",
                                                     "terrain.BLK.grd"));
}

TEST(ListDirectory, ReturnsMinusOneAndLeavesNamesAloneWhenNothingMatches) {
  TempDir tmp;
  std::ofstream(tmp.path("terrain.grd")) << "x";
  std::vector<std::string> names{"a"};
  EXPECT_EQ(btkListDirectory(tmp.root(), "BLK", names), -1);
  EXPECT_EQ(btkListDirectory(tmp.path("missing"), "BLK", names), -1);
  EXPECT_EQ(names, std::vector<std::string>{"a"});
}

}  // namespace
