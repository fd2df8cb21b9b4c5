// Sceneries as the builder writes them and the server loads them: block names, the grid file's header
// forms, the levels a resolution reads, the loading rules and messages, and the import through GDAL.
#include <gmock/gmock.h>

#include <array>
#include <cfloat>
#include <fstream>

#include "TerrainTestSupport.h"
#include "terrain/GgDataReader.h"
#include "terrain/GgDataReaderThread.h"
#include "testutil/Poll.h"
#include "testutil/Scenery.h"

using testing::HasSubstr;

namespace {

// Widths are maxima; a letter other than S or W is north or east; what follows five fields is ignored.
TEST(BlockName, IsReadWithTheRulesOfScanf) {
  // clang-format off
  const char* const cases[][2] = {{"BLK046S007W03", "(-46, -7, 3)"}, {"BLK46X7Q5", "(46, 7, 5)"},
                                  {"BLK046N007E00_001_002", "(46, 7, 0)"}, {"BLK046N007E", "-"},
                                  {"xBLK046N007E01", "-"}, {"BLKN007E01", "-"}};
  // clang-format on
  for (GgBlockName b; const auto& [name, want] : cases)
    EXPECT_EQ(ggParseBlockName(name, b) ? testing::PrintToString(std::tuple{b.lat, b.lon, b.level}) : "-",
              want)
        << name;
}

// Each level uses a prefix of the vertices: level 0 the corners and the centre, level l a grid of
// 2^l x 2^l squares. A resolution selects the nearest level, the coarser one on a tie. A tile whose header
// the reader thread has read (as a renderer asks once per frame) is taken over by the request.
TEST(TinTile, ReadsOnlyTheLevelsTheResolutionNeeds) {
  TempDir dir;
  qvscenery::Options o = smallScenery(dir.path("s"));
  o.resolutions = {100.0, 30.0, 10.0};
  build(o, *qvscenery::makeFlat(350.0));
  for (auto [resolution, level, vertices, fromThread] :
       {std::tuple{200.0, 0, 5u, false}, {20.0, 1, 9u, true}, {15.0, 2, 25u, false}, {5.0, 2, 25u, true}}) {
    SCOPED_TRACE(testing::Message() << resolution << " m");
    BtkRef<GgTerrainGroup> group = loadScenery(dir.path("s"));
    GgDataReader* reader = group->block(0)->reader();
    GgTinTile* tile = group->block(0)->root()->findTile(46.025, 7.015);  // made and queued, not loaded
    ASSERT_NE(tile, nullptr);
    if (fromThread) reader->submit(std::array<double, 3>{}.data(), 1);  // a viewer at the earth's centre
    ASSERT_TRUE(!fromThread || pollUntil([&] { return reader->numFinished(GgDataRequest::kTile) == 1; }));
    EXPECT_EQ(std::tuple(tile->numLevels(), int{tile->loaded_level}), std::tuple(fromThread ? 3 : 0, -1));
    group->block(0)->requestTile(tile, resolution);
    EXPECT_EQ(
        std::tuple(reader->numFinished(GgDataRequest::kTile), int{tile->loaded_level}, tile->verticesLoaded),
        std::tuple(0u, level, vertices));
    GgTriangle t;
    ASSERT_TRUE(tile->findTriangle(46.025, 7.015, t));
    EXPECT_NEAR(t.height, 350.0, 1e-9);
  }
}

// Blocks are the scenery directory's BLK... entries, tried in sorted order; a block at the place of an
// earlier one goes in only when its level is not smaller, and then after it. Without any, the scenery
// directory itself holds one block. All blocks share one reader thread, which ends with the scenery.
TEST(SceneryLoad, TakesBlocksFromTheirDirectoriesInOrderAndSaysWhatFailed) {
  // clang-format off
  // Block directories and their heights ("." for the scenery's own); the scenery ("@" for the full path);
  // the blocks loaded and the height at 46.5 N 7.5 E.
  const struct { std::vector<std::pair<std::string, double>> blocks; std::string scenery; size_t numBlocks;
                 double height; } cases[] = {
      {{{"BLK046N008E00", 250}, {"BLK046N007E00", 260}, {"BLK047N007E00", 270}, {"BLK", 0}}, "ridge", 3, 260},
      {{{".", 123}}, "@", 1, 123},
      {{{"BLK046N007E00", 100}, {"BLK046N007E01", 200}}, "ridge", 2, 100},
      {{{"BLK046N007E01", 200}, {"BLK46N007E00", 100}}, "@", 1, 200},  // "BLK046..." sorts first
      {{{"BLK046N007E00", 0}}, "ridge", 0, DBL_MAX},
      {{}, "D:\\sceneries\\ridge", 0, DBL_MAX},  // another platform's full path
  };
  // clang-format on
  for (const auto& c : cases) {
    TempDir dir;
    const std::string scenery =
        c.scenery.find('\\') != std::string::npos ? c.scenery : dir.path("scenery/ridge");
    for (const auto& [name, height] : c.blocks) {
      GgBlockName place{46, 7, 0};
      qvscenery::Options o = smallScenery(scenery + "/" + name);
      std::tie(o.south, o.west, o.cellLat, o.cellLon) =
          std::tuple(ggParseBlockName(name, place) ? place.lat : 46, place.lon, 0.25, 0.25);
      if (height > 0) build(o, *qvscenery::makeFlat(height));
      std::filesystem::create_directories(o.outDir);
    }
    std::string sceneryDir;
    BtkRef<GgTerrainGroup> group;
    Messages messages(dir);
    EXPECT_EQ(ggLoadScenery(dir.root(), c.scenery == "@" ? scenery : c.scenery, group, sceneryDir),
              c.numBlocks > 0);
    ASSERT_EQ(std::tuple(sceneryDir, group->numBlocks(), group->getElevation(46.5, 7.5, 0.0)),
              std::tuple("ridge", c.numBlocks, c.height));
    for (size_t i = 0; i < c.numBlocks; ++i)
      EXPECT_EQ(group->block(i)->reader()->thread(), group->readerThread());
    EXPECT_TRUE(c.numBlocks < 2 || pollUntil([&] { return group->readerThread()->isRunning(); }));
    group = nullptr;
    const std::string text = messages.text();
    EXPECT_EQ(c.numBlocks > 0, text.find(" - data reader exit") != std::string::npos);
    if (c.numBlocks > 0) continue;
    EXPECT_THAT(text, HasSubstr("SngServer: couldn't open any of the terrains in " + scenery + "\n"));
    EXPECT_THAT(text, HasSubstr("couldn't open Grid file: " + scenery + "/terrain.grd\n"));
    for (const auto& [name, height] : c.blocks)
      EXPECT_THAT(text, HasSubstr("couldn't open Grid file: " + scenery + "/" + name + "/terrain.grd\n"));
  }
}

// An ASCII grid of 9 x 9 pixels of 0.01 degree holding a plane, with a void in its middle: the builder
// fills the void from its neighbours, and the grid points and triangles are the plane's.
TEST(SceneryBuilder, ImportsARasterThroughGdalAndRefusesADepthThatDoesNotSplitIntoCells) {
  TempDir dir;
  auto plane = [](double lat, double lon) { return 1000.0 + 2000.0 * (lat - 46.0) + 1000.0 * (lon - 7.0); };
  std::ofstream asc(dir.path("dem.asc"));
  asc << "ncols 9\nnrows 9\nxllcorner 7.0\nyllcorner 46.0\ncellsize 0.01\nNODATA_value -9999\n";
  for (int pixel = 0; pixel < 81; ++pixel) {  // rows from the north
    const double lat = 46.0 + (8 - pixel / 9 + 0.5) * 0.01, lon = 7.0 + (pixel % 9 + 0.5) * 0.01;
    asc << (pixel == 40 ? -9999.0 : plane(lat, lon)) << (pixel % 9 < 8 ? " " : "\n");
  }
  asc.close();
  ASSERT_TRUE(buildScenery(
      dir.root(), "dem",
      {"--dem=" + dir.path("dem.asc"), "--south=46.01", "--west=7.01", "--cell=0.01", "--tin-levels=2"}));
  EXPECT_THAT(readText(dir.path("builder-output/stderr.txt")), HasSubstr("filled 1 void cells"));
  BtkRef<GgTerrainGroup> group = loadScenery(dir.path("scenery/dem"));
  GgTerrain* block = group->block(0);
  EXPECT_NEAR(block->minLat, 46.01, 1e-9);
  for (int32_t i = 0; i < block->rows * block->cols; ++i)
    EXPECT_NEAR(block->point(i).height, plane(block->rowLatitude(i), block->colLongitude(i)), 0.01) << i;
  GgTinTile* tile = block->loadTilesAround(46.043, 7.046, 0);  // the void lay at 46.045, 7.045
  GgTriangle t;
  ASSERT_TRUE(tile && tile->findTriangle(46.043, 7.046, t));
  EXPECT_NEAR(t.height, plane(46.043, 7.046), 0.6);
  EXPECT_FALSE(buildScenery(dir.root(), "deep", {"--flat=1", "--cells=64", "--depth=6"}));
  EXPECT_THAT(readText(dir.path("builder-output/stderr.txt")), HasSubstr("needs quadtree depth 7, not 6"));
}

}  // namespace
