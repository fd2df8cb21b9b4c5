// Shared pieces of the terrain tests: sceneries written by the builder and the messages a test provokes.
#pragma once
// Option records are built with designated initialisers, which name only the fields that matter.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ElevationSource.h"
#include "SceneryBuilder.h"
#include "terrain/GgScenery.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTerrainGroup.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"
#include "testutil/Files.h"
#include "testutil/TempDir.h"
#include "toolkit/BtkLogger.h"

// The process-wide log, debug included, and standard error, from construction until text() is called.
struct Messages {
  explicit Messages(const TempDir& dir) : path_(dir.path("test.log")) {
    EXPECT_TRUE(btkLogger.open(path_, BTK_DEBUG, false));
    testing::internal::CaptureStderr();
  }
  ~Messages() {
    text();
    btkLogger.closeFile();
    btkLogger.setThreshold(BTK_INFO);
  }
  std::string text() {
    if (!std::exchange(taken_, true)) stderr_ = testing::internal::GetCapturedStderr();
    return readText(path_) + stderr_;
  }
  std::string path_, stderr_;
  bool taken_ = false;
};

// A small scenery at 46 N 7 E: blocks of 4 x 4 cells of 0.01 degree, three TIN levels; without a number
// of blocks, one block whose files lie directly in outDir.
inline qvscenery::Options smallScenery(const std::string& outDir, int blocksNS = 0, int blocksEW = 0) {
  return {.outDir = outDir,
          .south = 46.0,
          .west = 7.0,
          .cellLat = 0.01,
          .cellLon = 0.01,
          .cells = 4,
          .blocksNS = std::max(blocksNS, 1),
          .blocksEW = std::max(blocksEW, 1),
          .single = blocksNS == 0,
          .tinLevels = 3};
}

// The blocks' base paths; fails the test when the builder refuses.
inline std::vector<std::string> build(const qvscenery::Options& o, const qvscenery::ElevationSource& source) {
  const qvscenery::BuildResult result = qvscenery::buildScenery(o, source);
  EXPECT_EQ(result.error, "");
  return result.basePaths;
}

// The scenery at the full path dir, its messages dropped.
inline BtkRef<GgTerrainGroup> loadScenery(const std::string& dir) {
  BtkRef<GgTerrainGroup> group;
  std::string name;
  testing::internal::CaptureStderr();  // a line per block
  EXPECT_TRUE(ggLoadScenery("", dir, group, name));
  testing::internal::GetCapturedStderr();
  return group;
}
