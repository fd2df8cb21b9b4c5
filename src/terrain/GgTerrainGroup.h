// All blocks of a scenery. Queries go to the first block, in insertion order, whose limits hold the
// point. Owns the reader thread that its blocks share. Made by ggLoadScenery (GgScenery.h) at start-up;
// lives as long as the server holds it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "terrain/GgSceneNodes.h"
#include "toolkit/BtkObject.h"

class GgDataReaderThread;
class GgTerrain;
class GgTinTile;

class GgTerrainGroup : public GngGroup {
 public:
  GgTerrainGroup();
  ~GgTerrainGroup() override;

  // Makes a block from the files at base path and inserts it. The result of the block's
  // initialisation: true also when the level rule leaves the block out.
  bool addTerrain(const std::string& path, int32_t lat, int32_t lon, int32_t level);
  // A block at the place of an earlier one goes in only when the earlier one's level is not greater;
  // it then follows it, so the earlier block keeps answering where both lie.
  void insertTerrain(GgTerrain* terrain, int32_t lat, int32_t lon, int32_t level);

  // The first block whose limits hold the point (all four bounds inclusive), or null.
  GgTerrain* blockAt(double lat, double lon) const;
  // Height in metres, or the largest double where no block answers.
  double getElevation(double lat, double lon, double resolution);
  GgTinTile* getTile(double lat, double lon, double resolution, int radius);
  GgTinTile* loadTilesAround(double lat, double lon, int radius);
  void cleanup();

  size_t numBlocks() const { return blocks_.size(); }
  GgTerrain* block(size_t i) const { return i < blocks_.size() ? blocks_[i].get() : nullptr; }
  GgDataReaderThread* readerThread() const { return readerThread_.get(); }

  // The union of the blocks' limits, degrees; 999, 999, -999, -999 without blocks.
  double minLat = 999.0, minLon = 999.0, maxLat = -999.0, maxLon = -999.0;

  // Renderer settings handed to every block at insertion.
  float factors[2] = {1.0f, 1.0f};
  bool flags[2] = {true, true};
  std::vector<BtkRef<BtkObject>> renderAttributes;

 private:
  void updateLimits();

  std::vector<BtkRef<GgTerrain>> blocks_;  // insertion order
  BtkRef<GgDataReaderThread> readerThread_;
};
