// The tile cache: byte accounting, the age-based cleanup driven by an injected clock, and the
// hand-over of requests between the main thread and the reader thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "TerrainTestSupport.h"
#include "terrain/GgCounters.h"
#include "terrain/GgDataReader.h"
#include "terrain/GgDataReaderThread.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTile.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"

using namespace terrain_test;

namespace {

class TileCache : public testing::Test {
 protected:
  void SetUp() override {
    qvscenery::Options o = smallScenery(dir_ / "cache");
    o.single = true;
    const auto flat = qvscenery::makeFlat(420.0);
    base_ = build(o, *flat).at(0);
    testing::internal::CaptureStderr();
    ASSERT_TRUE(block_->init(base_, nullptr));
    testing::internal::GetCapturedStderr();
    startMem_ = memSize();
  }

  void TearDown() override {
    if (ballast_) ggAddMemSize(-ballast_);
  }

  // Holds memSize at the given figure, as if other tiles were loaded.
  void setMemSize(int32_t bytes) { addBallast(bytes - memSize()); }
  void addBallast(int32_t bytes) {
    ggAddMemSize(bytes);
    ballast_ += bytes;
  }
  void dropBallast() {
    ggAddMemSize(-ballast_);
    ballast_ = 0;
  }

  ManualClockScope clock_;  // installed before the block starts its cleanup timer
  TempDir dir_;
  std::string base_;
  BtkRef<GgTerrain> block_{new GgTerrain()};
  int32_t startMem_ = 0;
  int32_t ballast_ = 0;
};

}  // namespace

TEST_F(TileCache, LoadedTileAddsItsBytesAndItsObjects) {
  const int32_t tins = ggTinTileCount(), quads = ggQuadTileCount();
  GgTinTile* tile = block_->loadTilesAround(46.005, 7.005, 0);
  ASSERT_NE(tile, nullptr);
  // Three levels over 5 x 5 vertices: 25 vertices read (9 bytes each) and converted (20 bytes
  // each); indices: a fan of 6, two strips of 6, four strips of 10, 2 bytes each.
  const uint32_t expected = 25 * 9 + 25 * 20 + (6 + 2 * 6 + 4 * 10) * 2;
  EXPECT_EQ(tile->bytesHeld, expected);
  // One quad node and the TIN tile were made on the way: 152 bytes each.
  EXPECT_EQ(memSize() - startMem_, static_cast<int32_t>(expected) + 2 * 152);
  EXPECT_EQ(ggTinTileCount() - tins, 1);
  EXPECT_EQ(ggQuadTileCount() - quads, 1);
  block_ = nullptr;
  EXPECT_EQ(memSize(), startMem_ - 152);  // the root went with the block
  EXPECT_EQ(ggTinTileCount(), tins);
}

TEST_F(TileCache, CleanupFreesTilesByAgeAndGivesEveryByteBack) {
  LogCapture log(dir_);
  const int32_t tins = ggTinTileCount();
  ASSERT_NE(block_->loadTilesAround(46.005, 7.005, 0), nullptr);  // cell (0, 0) at t = 0
  clock_.clock.advanceSeconds(200);
  ASSERT_NE(block_->loadTilesAround(46.035, 7.035, 0), nullptr);  // cell (3, 3) at t = 200
  ASSERT_NE(block_->loadTilesAround(46.025, 7.005, 0), nullptr);  // cell (2, 0) at t = 200
  ASSERT_EQ(ggTinTileCount() - tins, 3);

  // Below half of maxMemSize nothing happens, however old the tiles.
  clock_.clock.advanceSeconds(101);
  setMemSize(10000000);
  block_->cleanup();
  EXPECT_EQ(ggTinTileCount() - tins, 3);
  EXPECT_FALSE(log.contains("GgTerrain: cleanup"));

  // Above half: tiles unused for 300 s go. At t = 301 that is the first tile only.
  setMemSize(20000000);
  const int32_t before = memSize();
  const int64_t now = btkCalendarSeconds();
  block_->cleanup();
  EXPECT_EQ(ggTinTileCount() - tins, 2);
  const uint32_t tileBytes = 25 * 9 + 25 * 20 + (6 + 2 * 6 + 4 * 10) * 2;
  EXPECT_EQ(before - memSize(), static_cast<int32_t>(tileBytes) + 152);
  EXPECT_TRUE(log.contains("GgTerrain: cleanup, t_limit = " + std::to_string(now - 300) + ", memsize = "));

  // The next run waits for 20 s of the cleanup clock.
  clock_.clock.advanceSeconds(10);
  setMemSize(31000000);
  block_->cleanup();
  EXPECT_EQ(ggTinTileCount() - tins, 2);

  // Above maxMemSize the age is 150 s: at t = 360 the tiles of t = 200 go too.
  clock_.clock.advanceSeconds(49);
  block_->cleanup();
  EXPECT_EQ(ggTinTileCount() - tins, 0);

  // Quad nodes whose children went are released by the following runs, bottom up.
  for (int run = 0; run < 4 && ggQuadTileCount() > 0 && memSize() - ballast_ != startMem_; ++run) {
    clock_.clock.advanceSeconds(21);
    block_->cleanup();
  }
  dropBallast();
  EXPECT_EQ(memSize(), startMem_);
}

TEST_F(TileCache, TileKeptByATriangleIsNotFreed) {
  GgTinTile* tile = block_->loadTilesAround(46.015, 7.015, 0);
  ASSERT_NE(tile, nullptr);
  GgTriangle t;
  ASSERT_TRUE(tile->findTriangle(46.015, 7.015, t));
  const int32_t tins = ggTinTileCount();
  setMemSize(20000000);
  clock_.clock.advanceSeconds(400);
  block_->cleanup();
  EXPECT_EQ(ggTinTileCount(), tins);
  t.tile = nullptr;
  clock_.clock.advanceSeconds(21);
  block_->cleanup();
  EXPECT_EQ(ggTinTileCount(), tins - 1);
}

TEST_F(TileCache, QueryStampsTheTileSoItStays) {
  GgTinTile* tile = block_->loadTilesAround(46.015, 7.015, 0);
  ASSERT_NE(tile, nullptr);
  const int32_t tins = ggTinTileCount();
  setMemSize(20000000);
  clock_.clock.advanceSeconds(250);
  GgTriangle t;
  ASSERT_TRUE(tile->findTriangle(46.015, 7.015, t));  // stamped at t = 250
  t.tile = nullptr;
  clock_.clock.advanceSeconds(100);
  block_->cleanup();
  EXPECT_EQ(ggTinTileCount(), tins);
}

TEST_F(TileCache, CalcVerticesForNothingNewLogsAndChangesNothing) {
  LogCapture log(dir_);
  GgTinTile* tile = block_->loadTilesAround(46.015, 7.035, 0);
  ASSERT_NE(tile, nullptr);
  const int32_t mem = memSize();
  const uint32_t held = tile->bytesHeld;
  tile->calcVertices(1, 0);
  EXPECT_TRUE(log.contains("[error]: GgTinTile::calcVertices(1, 0), tile = (1, 3), loaded_level = 2\n"));
  EXPECT_EQ(memSize(), mem);
  EXPECT_EQ(tile->bytesHeld, held);
  EXPECT_EQ(tile->loaded_level, 2);
}

TEST_F(TileCache, RequestExecutedByTheReaderThreadIsTakenOver) {
  GgDataReader* reader = block_->reader();
  GgTinTile* tile = block_->root()->findTile(46.025, 7.015);  // made, queued, not loaded
  ASSERT_NE(tile, nullptr);
  ASSERT_EQ(tile->state, GgTinTile::kQueued);
  // A renderer would submit its viewer position once per frame; the thread then reads the header.
  const double viewer[3] = {0.0, 0.0, 0.0};
  reader->submit(viewer, 1);
  EXPECT_EQ(reader->numIncoming(), 0u);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (reader->numFinished(GgDataRequest::kTile) == 0 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ASSERT_EQ(reader->numFinished(GgDataRequest::kTile), 1u);
  EXPECT_EQ(tile->numLevels(), 3);  // the thread read the header
  EXPECT_EQ(tile->loaded_level, -1);

  block_->requestTile(tile, 150.0);
  EXPECT_EQ(reader->numFinished(GgDataRequest::kTile), 0u);
  EXPECT_EQ(tile->state, GgTinTile::kLoaded);
  EXPECT_EQ(tile->loaded_level, 2);  // 150 m lies nearest to level 2 (139 m)
  GgTriangle t;
  ASSERT_TRUE(tile->findTriangle(46.025, 7.015, t));
  EXPECT_NEAR(t.height, 420.0, 1e-9);
}
