#include "terrain/GgTerrainGroup.h"

#include <algorithm>
#include <cfloat>

#include "terrain/GgDataReaderThread.h"
#include "terrain/GgTerrain.h"
#include "toolkit/BtkLogger.h"

GgTerrainGroup::GgTerrainGroup() : GngGroup("(TerrainGroup)"), readerThread_(new GgDataReaderThread()) {}

GgTerrainGroup::~GgTerrainGroup() {
  // The blocks leave the reader thread as they go; the thread stops when the last holder lets it go.
  removeAllChildren();
  blocks_.clear();
}

bool GgTerrainGroup::addTerrain(const std::string& path, int32_t lat, int32_t lon, int32_t level) {
  BtkRef<GgTerrain> terrain(new GgTerrain());
  btkDebug() << "Initialize " << path << btkFlush;
  if (!terrain->init(path, readerThread_.get())) return false;
  insertTerrain(terrain.get(), lat, lon, level);
  return true;
}

void GgTerrainGroup::insertTerrain(GgTerrain* terrain, int32_t lat, int32_t lon, int32_t level) {
  for (const auto& block : blocks_) {
    if (block->lat == lat && block->lon == lon) {
      if (block->level > level) return;
      break;
    }
  }
  terrain->factors[0] = factors[0];
  terrain->factors[1] = factors[1];
  terrain->flags[0] = flags[0];
  terrain->flags[1] = flags[1];
  for (const auto& attribute : renderAttributes) terrain->renderAttributes.push_back(attribute);
  terrain->lat = lat;
  terrain->lon = lon;
  terrain->level = level;
  blocks_.emplace_back(terrain);
  addChild(terrain);
  updateLimits();
  terrain->group = this;
}

void GgTerrainGroup::updateLimits() {
  minLat = 999.0;
  minLon = 999.0;
  maxLat = -999.0;
  maxLon = -999.0;
  for (const auto& block : blocks_) {
    minLat = std::min(minLat, block->minLat);
    minLon = std::min(minLon, block->minLon);
    maxLat = std::max(maxLat, block->maxLat);
    maxLon = std::max(maxLon, block->maxLon);
  }
}

GgTerrain* GgTerrainGroup::blockAt(double lat, double lon) const {
  for (const auto& block : blocks_) {
    if (block->contains(lat, lon)) return block.get();
  }
  return nullptr;
}

double GgTerrainGroup::getElevation(double lat, double lon, double resolution) {
  GgTerrain* block = blockAt(lat, lon);
  return block ? block->getElevation(lat, lon, resolution) : DBL_MAX;
}

GgTinTile* GgTerrainGroup::getTile(double lat, double lon, double resolution, int radius) {
  GgTerrain* block = blockAt(lat, lon);
  return block ? block->getTile(lat, lon, resolution, radius) : nullptr;
}

GgTinTile* GgTerrainGroup::loadTilesAround(double lat, double lon, int radius) {
  GgTerrain* block = blockAt(lat, lon);
  return block ? block->loadTilesAround(lat, lon, radius) : nullptr;
}

void GgTerrainGroup::cleanup() {
  for (const auto& block : blocks_) block->cleanup();
}
