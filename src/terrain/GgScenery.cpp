#include "terrain/GgScenery.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "terrain/GgTerrain.h"
#include "terrain/GgTerrainGroup.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkFiles.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr double kTriangleLookupResolution = 10.0;  // metres

bool isFullPath(const std::string& scenery) {
  return (scenery.size() > 1 && scenery[1] == ':') ||
         (!scenery.empty() && (scenery[0] == '\\' || scenery[0] == '/'));
}

}  // namespace

bool ggParseBlockName(const std::string& name, GgBlockName& block) {
  int lat = 0, lon = 0, level = 0;
  char latLetter = 0, lonLetter = 0;
  if (sscanf(name.c_str(), "BLK%03d%c%03d%c%02d", &lat, &latLetter, &lon, &lonLetter, &level) != 5)
    return false;
  block.lat = latLetter == 'S' ? -lat : lat;
  block.lon = lonLetter == 'W' ? -lon : lon;
  block.level = level;
  return true;
}

bool ggLoadScenery(const std::string& dataDir, const std::string& scenery, BtkRef<GgTerrainGroup>& terrain,
                   std::string& sceneryDir) {
  std::string dir = dataDir + "/scenery/" + scenery;
  sceneryDir = scenery;
  if (isFullPath(scenery)) {
    dir = scenery;
    const size_t separator = scenery.find_last_of("\\/");
    if (separator != std::string::npos) sceneryDir = scenery.substr(separator + 1);
  }

  GgTerrainFeatures& features = ggTerrainFeatures();
  features.mipmap = false;
  features.tileModels = false;
  features.forest = false;

  terrain = new GgTerrainGroup();

  std::vector<std::string> names;
  if (btkListDirectory(dir, "BLK", names) > 0) {
    // Sorted, so that start-up is the same on every file system: the order decides which of two blocks
    // at the same place is tried first, and which block answers on a shared edge.
    std::sort(names.begin(), names.end());
    bool loaded = false;
    for (const std::string& name : names) {
      GgBlockName block;
      if (!ggParseBlockName(name, block)) continue;
      const std::string basePath = dir + "/" + name + "/terrain";
      btkLogger.log(BTK_DEBUG, "Add terrain %s", basePath.c_str());
      if (terrain->addTerrain(basePath, block.lat, block.lon, block.level)) loaded = true;
      fputs(" - ok\n", stderr);
    }
    if (loaded) return true;
  }

  if (terrain->addTerrain(dir + "/terrain", 0, 0, 0)) return true;

  btkLogger.log(BTK_ERROR, "SngFlightModule: couldn't open any of the terrains in %s", dir.c_str());
  fprintf(stderr, "SngServer: couldn't open any of the terrains in %s\n", dir.c_str());
  return false;
}

bool ggFindTerrainTriangle(GgTerrainGroup* terrain, double lat, double lon, GgTriangle& t, int32_t passCount,
                           const std::function<void()>& runNestedPass) {
  BtkRef<GgTinTile> tile = terrain ? terrain->getTile(lat, lon, kTriangleLookupResolution, 0) : nullptr;
  if (!tile) {
    btkLogger.log(BTK_ERROR, "findTerrainTriangle: Missing tile for %lfN, %lfE", lat, lon);
    return false;
  }
  {
    BtkLockGuard guard(tile->lock);
    tile->lastUse = passCount;
    tile->findTriangle(lat, lon, t);  // a tile without a triangle here still counts as found
  }
  // Outside the tile's lock: the pass may take any lock of its own.
  if (runNestedPass) runNestedPass();
  return true;
}
