// Corrupt and truncated block files: the block or the tile fails with a message, nothing crashes,
// nothing huge is allocated, and the rest of the scenery keeps answering.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include "TerrainTestSupport.h"
#include "terrain/GgDataReader.h"
#include "terrain/GgDataReaderThread.h"
#include "terrain/GgScenery.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTerrainGroup.h"
#include "terrain/GgTile.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"

using namespace terrain_test;

namespace {

void putU32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}
void putU16(std::vector<uint8_t>& b, size_t at, uint16_t v) {
  b[at] = static_cast<uint8_t>(v);
  b[at + 1] = static_cast<uint8_t>(v >> 8);
}

// One block of 4 x 4 cells, version 1.0 (no normal block), two TIN levels: each tile holds 9
// vertices. Tile 0 starts the TIN file; its layout, worked out from the format:
//   0 L = 2 | 1 two float resolutions | 9 N = 9 | 13 lat fractions | 31 lon fractions | 49 heights |
//   67 level 0: A, B | 69 group 1: K = 1 | 71 n = 6 | 73 type = 2 (fan) | 75 six indices | 87 group 2 ...
constexpr size_t kTileLevels = 0, kTileN = 9, kLevel0 = 67, kLevel0Count = 71, kLevel0Type = 73,
                 kLevel0Index = 75;

class HostileFiles : public testing::Test {
 protected:
  void SetUp() override {
    testing::internal::CaptureStderr();  // the readers' complaints, hundreds of them
    qvscenery::Options o = smallScenery(dir_ / "scenery");
    o.single = true;
    o.versionMinor = 0;
    o.tinLevels = 2;
    const auto flat = qvscenery::makeFlat(350.0);
    base_ = build(o, *flat).at(0);
    grid_ = readBytes(base_ + ".grd");
    tin_ = readBytes(base_ + ".tin");
    index_ = readBytes(base_ + ".idx");
  }

  void TearDown() override { testing::internal::GetCapturedStderr(); }

  // Loads every tile of the block and asks for a height in each cell; the answers must be the flat
  // 350 m or nothing.
  void exerciseBlock(GgTerrain& block) {
    for (int r = 0; r < 4; ++r) {
      for (int c = 0; c < 4; ++c) {
        const double lat = 46.0 + (r + 0.3) * 0.01, lon = 7.0 + (c + 0.6) * 0.01;
        block.loadTilesAround(lat, lon, 1);
        GgTriangle t;
        GgTinTile* tile = block.getTile(lat, lon, 10.0, 0);
        if (tile && tile->findTriangle(lat, lon, t)) {
          EXPECT_NEAR(t.height, 350.0, 1e-9);
        }
        const double h = block.getElevation(lat, lon, 0.0);
        EXPECT_TRUE(std::abs(h - 350.0) < 1e-9 || h == DBL_MAX) << h;
      }
    }
    block.cleanup();
  }

  bool initWith(const std::vector<uint8_t>& grid, const std::vector<uint8_t>& tin) {
    writeBytes(base_ + ".grd", grid);
    writeBytes(base_ + ".tin", tin);
    BtkRef<GgTerrain> block(new GgTerrain());
    const bool ok = block->init(base_, thread_.get());
    if (ok) exerciseBlock(*block);
    return ok;
  }

  // The tile of cell (0, 0) after loading, from a TIN file patched by the caller.
  bool tileZeroAnswers(const std::vector<uint8_t>& tin) {
    writeBytes(base_ + ".tin", tin);
    BtkRef<GgTerrain> block(new GgTerrain());
    EXPECT_TRUE(block->init(base_, thread_.get()));
    exerciseBlock(*block);
    GgTriangle t;
    GgTinTile* tile = block->loadTilesAround(46.003, 7.006, 0);
    EXPECT_NE(tile, nullptr);
    // A neighbour in the same block is untouched by the damage.
    GgTriangle other;
    GgTinTile* neighbour = block->loadTilesAround(46.013, 7.016, 0);
    EXPECT_TRUE(neighbour && neighbour->findTriangle(46.013, 7.016, other));
    return tile && tile->findTriangle(46.003, 7.006, t);
  }

  TempDir dir_;
  LogCapture log_{dir_};
  std::string base_;
  std::vector<uint8_t> grid_, tin_, index_;
  BtkRef<GgDataReaderThread> thread_{new GgDataReaderThread()};
};

}  // namespace

TEST_F(HostileFiles, TheUntouchedFilesLoad) {
  EXPECT_TRUE(initWith(grid_, tin_));
  EXPECT_TRUE(tileZeroAnswers(tin_));
  EXPECT_EQ(tin_[kTileLevels], 2);
  EXPECT_EQ(tin_[kTileN], 9);
  EXPECT_EQ(tin_[kLevel0Type], 2);
}

// Regression guard: a grid file cut anywhere must fail cleanly, never read past its end.
TEST_F(HostileFiles, GridCutAtEveryOffsetFailsTheBlock) {
  for (size_t n = 0; n < grid_.size(); ++n) {
    const std::vector<uint8_t> cut(grid_.begin(), grid_.begin() + static_cast<long>(n));
    EXPECT_FALSE(initWith(cut, tin_)) << "cut at " << n;
  }
}

TEST_F(HostileFiles, GridCountsAndNumbersAreCheckedBeforeUse) {
  auto large = grid_;
  putU32(large, 40, 100000);  // nLat: 500005 points that a file of 416 bytes can't hold
  EXPECT_FALSE(initWith(large, tin_));
  EXPECT_TRUE(log_.contains("ends inside its grid points"));

  auto huge = grid_;
  putU32(huge, 40, 0x7ffffff0);  // points that would take gigabytes
  EXPECT_FALSE(initWith(huge, tin_));
  EXPECT_TRUE(log_.contains("the grid has more than 2^30 points"));

  auto negative = grid_;
  putU32(negative, 44, 0xffffffff);  // nLon = -1
  EXPECT_FALSE(initWith(negative, tin_));
  EXPECT_TRUE(log_.contains("the grid has no cells"));

  auto deep = grid_;
  putU32(deep, 48, 1000000);  // a quadtree a million levels deep
  EXPECT_FALSE(initWith(deep, tin_));

  auto nanStep = grid_;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  memcpy(&nanStep[24], &nan, sizeof nan);  // dLat
  EXPECT_FALSE(initWith(nanStep, tin_));

  auto nanHeight = grid_;
  const float nanf = std::numeric_limits<float>::quiet_NaN();
  memcpy(&nanHeight[116 + 12 * 7], &nanf, sizeof nanf);  // the height of point 7
  EXPECT_FALSE(initWith(nanHeight, tin_));
  EXPECT_TRUE(log_.contains("grid point 7 of " + base_ + ".grd is not a number"));
  EXPECT_TRUE(log_.contains("GgTerrain: read file header failed: " + base_));
}

TEST_F(HostileFiles, ShallowTreeAnswersFromTheGridAlone) {
  auto shallow = grid_;
  putU32(shallow, 48, 1);  // depth 1: the root only
  writeBytes(base_ + ".grd", shallow);
  BtkRef<GgTerrain> block(new GgTerrain());
  ASSERT_TRUE(block->init(base_, thread_.get()));
  EXPECT_EQ(block->getTile(46.015, 7.015, 10.0, 0), nullptr);
  EXPECT_NEAR(block->getElevation(46.015, 7.015, 0.0), 350.0, 1e-9);
}

TEST_F(HostileFiles, TinCutAtEveryOffsetNeverCrashes) {
  for (size_t n = 0; n < tin_.size(); n += (n < 400 ? 1 : 97)) {
    const std::vector<uint8_t> cut(tin_.begin(), tin_.begin() + static_cast<long>(n));
    writeBytes(base_ + ".tin", cut);
    BtkRef<GgTerrain> block(new GgTerrain());
    ASSERT_TRUE(block->init(base_, thread_.get()));
    exerciseBlock(*block);
  }
}

TEST_F(HostileFiles, CorruptTileFailsAloneWithAMessage) {
  auto pastEnd = index_;
  putU32(pastEnd, 0, 0xfffffff0);  // cell 0's offset far past the end of the TIN file
  writeBytes(base_ + ".idx", pastEnd);
  EXPECT_FALSE(tileZeroAnswers(tin_));
  EXPECT_TRUE(log_.contains("GgDataReader: bad tile (0, 0) in " + base_ +
                            ".tin: its offset is past the end of the file"));
  writeBytes(base_ + ".idx", index_);

  auto manyVertices = tin_;
  putU32(manyVertices, kTileN, 0xfffffff0);
  EXPECT_FALSE(tileZeroAnswers(manyVertices));
  EXPECT_TRUE(log_.contains("the vertex count is larger than the file"));

  auto manyPrimitives = tin_;
  putU16(manyPrimitives, kLevel0 + 2, 0xffff);  // group 1 claims 65535 primitives
  EXPECT_FALSE(tileZeroAnswers(manyPrimitives));
  EXPECT_TRUE(log_.contains("an index group counts more primitives than the file holds"));

  auto manyIndices = tin_;
  putU16(manyIndices, kLevel0Count, 0xffff);
  EXPECT_FALSE(tileZeroAnswers(manyIndices));
  EXPECT_TRUE(log_.contains("a primitive counts more indices than the file holds"));

  auto indexPastVertices = tin_;
  putU16(indexPastVertices, kLevel0Index + 2, 9);  // vertex 9 of 9
  EXPECT_FALSE(tileZeroAnswers(indexPastVertices));
  EXPECT_TRUE(log_.contains("a vertex index is past the level's last vertex"));

  auto noLevels = tin_;
  noLevels[kTileLevels] = 0;
  EXPECT_FALSE(tileZeroAnswers(noLevels));
  EXPECT_TRUE(log_.contains("the tile has no levels"));

  auto nanResolution = tin_;
  const float nanf = std::numeric_limits<float>::quiet_NaN();
  memcpy(&nanResolution[1], &nanf, sizeof nanf);
  EXPECT_FALSE(tileZeroAnswers(nanResolution));
  EXPECT_TRUE(log_.contains("a level resolution is not a number"));
}

TEST_F(HostileFiles, PrimitiveOfUnknownTypeIsDroppedWithItsIndices) {
  auto badType = tin_;
  putU16(badType, kLevel0Type, 9);
  // Level 0's only primitive is gone; the reading goes on and the finer level still answers.
  EXPECT_TRUE(tileZeroAnswers(badType));
  EXPECT_TRUE(log_.contains("[error]: GgLevel: Illegal graphics primitive type!\n"));
}

TEST_F(HostileFiles, DamagedBlockDoesNotStopTheScenery) {
  // Two blocks side by side; the western one's grid is cut short.
  qvscenery::Options o = smallScenery(dir_ / "two");
  o.blocksEW = 2;
  const auto flat = qvscenery::makeFlat(500.0);
  const auto bases = build(o, *flat);
  ASSERT_EQ(bases.size(), 2u);
  auto grid = readBytes(bases[0] + ".grd");
  grid.resize(100);
  writeBytes(bases[0] + ".grd", grid);
  BtkRef<GgTerrainGroup> group;
  std::string name;
  EXPECT_TRUE(ggLoadScenery(dir_.path(), dir_ / "two", group, name));
  ASSERT_EQ(group->numBlocks(), 1u);
  EXPECT_NEAR(group->getElevation(46.02, 7.06, 0.0), 500.0, 1e-9);
  EXPECT_EQ(group->getElevation(46.02, 7.02, 0.0), DBL_MAX);
}

TEST_F(HostileFiles, TileThatCannotBeReadStillCountsAsFoundForTheServer) {
  auto pastEnd = index_;
  putU32(pastEnd, 0, 0xfffffff0);
  writeBytes(base_ + ".idx", pastEnd);
  BtkRef<GgTerrainGroup> group;
  std::string name;
  ASSERT_TRUE(ggLoadScenery(dir_.path(), dir_ / "scenery", group, name));
  GgTriangle t;
  int passes = 0;
  // The tile is there, so the lookup succeeds and the pass runs, though no triangle was found.
  EXPECT_TRUE(ggFindTerrainTriangle(group.get(), 46.003, 7.006, t, 1, [&] { ++passes; }));
  EXPECT_EQ(passes, 1);
  EXPECT_FALSE(t.tile);
  EXPECT_EQ(t.level, -1);
  // The grid still answers the height.
  EXPECT_NEAR(group->getElevation(46.003, 7.006, 0.0), 350.0, 1e-9);
}
