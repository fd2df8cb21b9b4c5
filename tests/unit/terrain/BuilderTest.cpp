// The scenery builder's own rules, and its elevation import through GDAL, checked by running the
// built program and reading its output with the server's reader.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>

#include "TerrainTestSupport.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"

using namespace terrain_test;
using testing::HasSubstr;

namespace {

struct BuilderRun {
  int status = -1;
  std::string output;  // standard output and error together
};

BuilderRun runBuilder(const std::string& args) {
  BuilderRun run;
  const std::string command = std::string(QVSCENERY_PATH) + " " + args + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[512];
  while (fgets(buffer, sizeof buffer, pipe)) run.output += buffer;
  const int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

}  // namespace

TEST(SceneryBuilder, RefusesADepthThatDoesNotSplitIntoSingleCells) {
  qvscenery::Options o = smallScenery("/tmp/unused");
  EXPECT_EQ(qvscenery::validate(o), "");
  EXPECT_EQ(qvscenery::depthFor(4), 3);
  EXPECT_EQ(qvscenery::depthFor(64), 7);
  EXPECT_EQ(qvscenery::depthFor(6), -1);
  o.depth = 4;
  EXPECT_THAT(qvscenery::validate(o), HasSubstr("needs quadtree depth 3, not 4"));
  o.depth = 0;
  o.cells = 6;
  EXPECT_THAT(qvscenery::validate(o), HasSubstr("power of two"));
  o.cells = 4;
  o.single = true;
  o.blocksEW = 2;
  EXPECT_THAT(qvscenery::validate(o), HasSubstr("--single writes one block"));

  const BuilderRun run = runBuilder("--out=/tmp/unused --flat=1 --south=46 --west=7 --cells=64 --depth=6");
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.output, HasSubstr("needs quadtree depth 7, not 6"));
}

TEST(SceneryBuilder, NamesBlocksByTheirWholeDegreesAndSuffixesSmallerOnes) {
  qvscenery::Options o = smallScenery("/s");
  o.cellLat = o.cellLon = 0.25;  // 1-degree blocks
  o.south = -47.0;
  o.west = -8.0;
  o.blocksNS = 2;
  o.level = 3;
  EXPECT_EQ(qvscenery::blockName(o, 0, 0), "BLK047S008W03");
  EXPECT_EQ(qvscenery::blockName(o, 1, 0), "BLK046S008W03");
  EXPECT_EQ(qvscenery::blockBasePath(o, 1, 0), "/s/BLK046S008W03/terrain");
  o.cellLat = o.cellLon = 0.01;  // four blocks inside one degree square
  o.south = 46.0;
  o.west = 7.0;
  o.blocksEW = 2;
  EXPECT_EQ(qvscenery::blockName(o, 1, 0), "BLK046N007E03_001_000");
  o.single = true;
  o.blocksNS = o.blocksEW = 1;
  EXPECT_EQ(qvscenery::blockBasePath(o, 0, 0), "/s/terrain");
}

TEST(SceneryBuilder, HelpDescribesEveryOption) {
  const BuilderRun run = runBuilder("--help");
  EXPECT_EQ(run.status, 0);
  for (const char* option : {"--out=", "--flat=", "--plane=", "--hills=", "--dem=", "--south=", "--cell=",
                             "--cells=", "--depth=", "--blocks=", "--single", "--level=", "--tin-levels=",
                             "--resolutions=", "--spread", "--format=", "--no-tin", "--no-tex"})
    EXPECT_THAT(run.output, HasSubstr(option));
  EXPECT_EQ(runBuilder("--out=/tmp/x --flat=1").status, 2);  // an analytic source needs a place
  EXPECT_EQ(runBuilder("--bogus").status, 2);
}

// An ASCII grid of 9 x 9 pixels of 0.01 degree holding a plane, with one void in its middle: the
// builder's heights at the grid points are the plane's, the void is filled from its neighbours.
TEST(SceneryBuilder, ImportsARasterThroughGdalAndFillsItsVoids) {
  TempDir dir;
  auto plane = [](double lat, double lon) { return 1000.0 + 2000.0 * (lat - 46.0) + 1000.0 * (lon - 7.0); };
  {
    std::ofstream asc(dir / "dem.asc");
    asc << "ncols 9\nnrows 9\nxllcorner 7.0\nyllcorner 46.0\ncellsize 0.01\nNODATA_value -9999\n";
    for (int row = 0; row < 9; ++row) {  // from the north
      for (int col = 0; col < 9; ++col) {
        const double lat = 46.0 + (8 - row + 0.5) * 0.01, lon = 7.0 + (col + 0.5) * 0.01;
        asc << (row == 4 && col == 4 ? -9999.0 : plane(lat, lon)) << (col < 8 ? " " : "\n");
      }
    }
  }
  const BuilderRun run =
      runBuilder("--out=" + (dir / "scenery/dem") + " --dem=" + (dir / "dem.asc") +
                 " --south=46.01 --west=7.01 --cell=0.01 --cells=4 --single --tin-levels=2");
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_THAT(run.output, HasSubstr("filled 1 void cells"));
  BtkRef<GgTerrain> block(new GgTerrain());
  testing::internal::CaptureStderr();
  ASSERT_TRUE(block->init(dir / "scenery/dem/terrain", nullptr));
  testing::internal::GetCapturedStderr();
  EXPECT_NEAR(block->minLat, 46.01, 1e-9);
  for (int32_t i = 0; i < block->rows * block->cols; ++i) {
    const double lat = block->rowLatitude(i), lon = block->colLongitude(i);
    // The void lay at the pixel centred on 46.045, 7.045; the mean of its neighbours is the plane there.
    EXPECT_NEAR(block->point(i).height, plane(lat, lon), 0.01) << lat << ", " << lon;
  }
  GgTinTile* tile = block->loadTilesAround(46.043, 7.046, 0);
  ASSERT_NE(tile, nullptr);
  GgTriangle t;
  ASSERT_TRUE(tile->findTriangle(46.043, 7.046, t));
  EXPECT_NEAR(t.height, plane(46.043, 7.046), 0.6);
}
