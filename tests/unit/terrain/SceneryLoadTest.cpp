// Loading a scenery: block names, the insertion rule, the single-block fallback, full paths, the
// messages, the shared reader thread, and the server's triangle lookup.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "TerrainTestSupport.h"
#include "terrain/GgDataReader.h"
#include "terrain/GgDataReaderThread.h"
#include "terrain/GgScenery.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTerrainGroup.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"

using namespace terrain_test;
using testing::HasSubstr;

namespace {

size_t countOf(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// A block of flat ground at the given height in dir/<name>/terrain.*, 1 degree of 4 x 4 cells.
void flatBlock(const std::string& sceneryDir, const std::string& name, double height, double south = 46.0,
               double west = 7.0) {
  qvscenery::Options o = smallScenery(sceneryDir + "/" + name);
  o.single = true;
  o.south = south;
  o.west = west;
  o.cellLat = o.cellLon = 0.25;
  const auto flat = qvscenery::makeFlat(height);
  build(o, *flat);
}

}  // namespace

TEST(BlockName, ReadWithTheRulesOfScanf) {
  GgBlockName b;
  ASSERT_TRUE(ggParseBlockName("BLK046S007W03", b));
  EXPECT_EQ(b.lat, -46);
  EXPECT_EQ(b.lon, -7);
  EXPECT_EQ(b.level, 3);
  ASSERT_TRUE(ggParseBlockName("BLK046N007E01", b));
  EXPECT_EQ(b.lat, 46);
  EXPECT_EQ(b.lon, 7);
  EXPECT_EQ(b.level, 1);
  ASSERT_TRUE(
      ggParseBlockName("BLK46X7Q5", b));  // widths are maxima; a letter other than S or W is north or east
  EXPECT_EQ(b.lat, 46);
  EXPECT_EQ(b.lon, 7);
  EXPECT_EQ(b.level, 5);
  ASSERT_TRUE(ggParseBlockName("BLK046N007E00_001_002", b));  // what follows the five fields is ignored
  EXPECT_FALSE(ggParseBlockName("BLK046N007E", b));
  EXPECT_FALSE(ggParseBlockName("xBLK046N007E01", b));
  EXPECT_FALSE(ggParseBlockName("BLKN007E01", b));
}

TEST(SceneryLoad, BlocksFromTheirDirectoriesWithTheMessages) {
  TempDir dir;
  qvscenery::Options o = smallScenery(dir / "scenery/ridge");
  o.blocksNS = 2;
  o.blocksEW = 2;
  const auto flat = qvscenery::makeFlat(250.0);
  build(o, *flat);
  std::filesystem::create_directory(dir / "scenery/ridge/BLKnotes");  // listed, not a block
  std::ofstream(dir / "scenery/ridge/readme.txt") << "not listed";

  LogCapture log(dir);
  testing::internal::CaptureStderr();
  BtkRef<GgTerrainGroup> group;
  std::string sceneryDir;
  ASSERT_TRUE(ggLoadScenery(dir.path(), "ridge", group, sceneryDir));
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(sceneryDir, "ridge");
  EXPECT_EQ(group->name(), "(TerrainGroup)");
  ASSERT_EQ(group->numBlocks(), 4u);
  EXPECT_EQ(group->numChildren(), 4u);
  EXPECT_EQ(countOf(err, " - ok\n"), 4u);
  const std::string base = dir / "scenery/ridge/BLK046N007E00_000_001/terrain";
  EXPECT_TRUE(log.contains("[debug]: Add terrain " + base + "\n"));
  EXPECT_TRUE(log.contains("[debug]: Initialize " + base + "\n"));
  // South to north, west to east, as the names sort.
  EXPECT_EQ(group->block(1)->minLon, 7.04);
  EXPECT_EQ(group->block(2)->minLat, 46.04);
  EXPECT_EQ(group->block(0)->lat, 46);
  EXPECT_EQ(group->block(0)->lon, 7);
  EXPECT_EQ(group->block(0)->group, group.get());
  EXPECT_EQ(group->minLat, 46.0);
  EXPECT_EQ(group->minLon, 7.0);
  EXPECT_EQ(group->maxLat, group->block(3)->maxLat);
  EXPECT_EQ(group->maxLon, group->block(3)->maxLon);
  EXPECT_NEAR(group->getElevation(46.05, 7.05, 0.0), 250.0, 1e-9);
}

TEST(SceneryLoad, OneBlockInTheSceneryDirectoryAndFullPaths) {
  TempDir dir;
  qvscenery::Options o = smallScenery(dir / "elsewhere/valley");
  o.single = true;
  const auto flat = qvscenery::makeFlat(123.0);
  build(o, *flat);
  testing::internal::CaptureStderr();
  BtkRef<GgTerrainGroup> group;
  std::string sceneryDir;
  ASSERT_TRUE(ggLoadScenery("/no/such/data", dir / "elsewhere/valley", group, sceneryDir));
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(sceneryDir, "valley");
  ASSERT_EQ(group->numBlocks(), 1u);
  EXPECT_EQ(group->block(0)->lat, 0);
  EXPECT_EQ(group->block(0)->level, 0);
  EXPECT_EQ(group->minLat, group->block(0)->minLat);
  EXPECT_EQ(group->maxLon, group->block(0)->maxLon);
  EXPECT_NEAR(group->getElevation(46.01, 7.01, 0.0), 123.0, 1e-9);
}

TEST(SceneryLoad, NoBlockAnywhereFailsWithBothMessages) {
  TempDir dir;
  std::filesystem::create_directories(dir / "scenery/empty/BLK046N007E00");  // a block without files
  BtkRef<GgTerrainGroup> previous(new GgTerrainGroup());
  BtkRef<GgTerrainGroup> group = previous;
  LogCapture log(dir);
  testing::internal::CaptureStderr();
  std::string sceneryDir;
  EXPECT_FALSE(ggLoadScenery(dir.path(), "empty", group, sceneryDir));
  const std::string err = testing::internal::GetCapturedStderr();
  const std::string sceneryPath = dir / "scenery/empty";
  EXPECT_TRUE(
      log.contains("[error]: SngFlightModule: couldn't open any of the terrains in " + sceneryPath + "\n"));
  EXPECT_THAT(err, HasSubstr("SngServer: couldn't open any of the terrains in " + sceneryPath + "\n"));
  EXPECT_TRUE(
      log.contains("[error]: couldn't open Grid file: " + sceneryPath + "/BLK046N007E00/terrain.grd\n"));
  EXPECT_TRUE(log.contains("[error]: couldn't open Grid file: " + sceneryPath + "/terrain.grd\n"));
  EXPECT_NE(group.get(), previous.get());  // replaced all the same
  EXPECT_EQ(group->numBlocks(), 0u);
  EXPECT_EQ(group->minLat, 999.0);
  EXPECT_EQ(group->maxLon, -999.0);

  // The other full-path forms: a drive letter and a leading backslash; the short name is what
  // follows the last separator.
  testing::internal::CaptureStderr();
  EXPECT_FALSE(ggLoadScenery(dir.path(), "D:\\sceneries\\alps", group, sceneryDir));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("SngServer: couldn't open any of the terrains in D:\\sceneries\\alps\n"));
  EXPECT_EQ(sceneryDir, "alps");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(ggLoadScenery(dir.path(), "\\alps", group, sceneryDir));
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(sceneryDir, "alps");
}

TEST(SceneryLoad, SecondBlockAtTheSamePlaceFollowsOrIsLeftOutByLevel) {
  TempDir dir;
  // Listed (sorted) as level 00 then level 01: both go in, level 00 first, and it answers.
  flatBlock(dir / "scenery/a", "BLK046N007E00", 100.0);
  flatBlock(dir / "scenery/a", "BLK046N007E01", 200.0);
  // "BLK046..." sorts before "BLK46...": here level 01 comes first and level 00 is read, then left out.
  flatBlock(dir / "scenery/b", "BLK046N007E01", 200.0);
  flatBlock(dir / "scenery/b", "BLK46N007E00", 100.0);
  BtkRef<GgTerrainGroup> group;
  std::string sceneryDir;
  testing::internal::CaptureStderr();
  ASSERT_TRUE(ggLoadScenery(dir.path(), "a", group, sceneryDir));
  ASSERT_EQ(group->numBlocks(), 2u);
  EXPECT_EQ(group->block(0)->level, 0);
  EXPECT_EQ(group->block(1)->level, 1);
  EXPECT_NEAR(group->getElevation(46.5, 7.5, 0.0), 100.0, 1e-9);

  ASSERT_TRUE(ggLoadScenery(dir.path(), "b", group, sceneryDir));
  const std::string err = testing::internal::GetCapturedStderr();
  ASSERT_EQ(group->numBlocks(), 1u);
  EXPECT_EQ(group->block(0)->level, 1);
  EXPECT_NEAR(group->getElevation(46.5, 7.5, 0.0), 200.0, 1e-9);
  EXPECT_EQ(countOf(err, " - ok\n"), 4u);

  // The same rule through the group itself.
  BtkRef<GgTerrainGroup> direct(new GgTerrainGroup());
  EXPECT_TRUE(direct->addTerrain(dir / "scenery/b/BLK046N007E01/terrain", 46, 7, 1));
  EXPECT_TRUE(direct->addTerrain(dir / "scenery/b/BLK46N007E00/terrain", 46, 7, 0));
  EXPECT_EQ(direct->numBlocks(), 1u);
  EXPECT_TRUE(direct->addTerrain(dir / "scenery/b/BLK46N007E00/terrain", 46, 8, 0));  // another place
  EXPECT_EQ(direct->numBlocks(), 2u);
  EXPECT_FALSE(direct->addTerrain(dir / "scenery/b/none/terrain", 46, 9, 0));
}

TEST(SceneryLoad, BlocksShareOneReaderThreadStartedOnce) {
  TempDir dir;
  for (int i = 0; i < 6; ++i)
    flatBlock(dir / "scenery/many", "BLK046N" + std::string("00") + std::to_string(i) + "E00", 10.0 * i, 46.0,
              i);
  {
    LogCapture log(dir);
    BtkRef<GgTerrainGroup> group;
    std::string sceneryDir;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(ggLoadScenery(dir.path(), "many", group, sceneryDir));
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(group->numBlocks(), 6u);
    GgDataReaderThread* thread = group->readerThread();
    EXPECT_EQ(thread->numReaders(), 6u);
    for (size_t i = 0; i < group->numBlocks(); ++i) EXPECT_EQ(group->block(i)->reader()->thread(), thread);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!thread->isRunning() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(thread->isRunning());
    group = nullptr;  // the blocks leave the thread, the thread stops and is joined
    const std::string text = log.text();
    EXPECT_EQ(countOf(text, "new GgDataReaderThread() this = 0x"), 1u);
    EXPECT_EQ(countOf(text, "Data reader thread is running (this = 0x"), 1u);
    EXPECT_EQ(countOf(text, " - data reader exit (this = 0x"), 1u);
    EXPECT_EQ(countOf(text, "~GgDataReaderThread() this = 0x"), 1u);
    EXPECT_EQ(countOf(text, "Waiting for reader thread to exit...\n"), 1u);
    EXPECT_EQ(countOf(text, " - killing GgDataReaderThread\n"), 1u);
  }
}

TEST(FindTerrainTriangle, StampsTheTileAndRunsOnePass) {
  TempDir dir;
  flatBlock(dir / "scenery", "gentle", 333.0);
  BtkRef<GgTerrainGroup> group;
  std::string sceneryDir;
  testing::internal::CaptureStderr();
  ASSERT_TRUE(ggLoadScenery(dir.path(), "gentle", group, sceneryDir));
  testing::internal::GetCapturedStderr();
  GgTriangle t;
  int passes = 0;
  ASSERT_TRUE(ggFindTerrainTriangle(group.get(), 46.3, 7.6, t, 41, [&] { ++passes; }));
  EXPECT_EQ(passes, 1);
  ASSERT_TRUE(t.tile);
  EXPECT_EQ(t.tile->lastUse, 41);
  EXPECT_NEAR(t.height, 333.0, 1e-9);
  GgTinTile* tile = group->getTile(46.3, 7.6, 10.0, 0);
  EXPECT_EQ(t.tile.get(), tile);
  // Loaded to the level nearest 10 m: the finest of 13.9 km, 6.96 km and 3.48 km.
  EXPECT_EQ(tile->loaded_level, 2);

  // Outside every block: the message and no pass.
  LogCapture log(dir);
  EXPECT_FALSE(ggFindTerrainTriangle(group.get(), -12.5, 130.25, t, 42, [&] { ++passes; }));
  EXPECT_EQ(passes, 1);
  EXPECT_TRUE(log.contains("[error]: findTerrainTriangle: Missing tile for -12.500000N, 130.250000E\n"));
  EXPECT_FALSE(ggFindTerrainTriangle(nullptr, 46.3, 7.6, t, 43, nullptr));
}
