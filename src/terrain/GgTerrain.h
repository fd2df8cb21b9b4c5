// One terrain block: the coarse grid read at start-up, the quadtree of tiles over it, the TIN tiles
// loaded on demand through the block's GgDataReader, and the age-based cleanup of those tiles. Blocks
// are made by GgTerrainGroup::addTerrain and live as long as the group holds them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "terrain/GgSceneNodes.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkObject.h"
#include "toolkit/BtkTimer.h"

class GgDataReader;
class GgDataReaderThread;
class GgQuadTile;
class GgTerrainGroup;
class GgTinTile;

// The header of the grid file (".grd").
struct GgGridHeader {
  char magic[4] = {};
  uint16_t major = 0, minor = 0;
  double minLat = 0.0, minLon = 0.0, dLat = 0.0, dLon = 0.0;  // degrees
  int32_t nLat = 0, nLon = 0;                                 // cells
  int32_t depth = 0;  // levels of the tile quadtree, TIN level included
};

// A grid point: position relative to the block centre (metres, earth-centred axes), height above the
// sphere, and the bounding radius and error of the quadtree node centred on it (metres).
struct GgGridPoint {
  float x, y, z;
  float height, radius, error;
};

// Process-wide switches of the library's optional renderer features; the server turns them all off
// before it loads a scenery.
struct GgTerrainFeatures {
  bool mipmap = true;
  bool tileModels = true;
  bool forest = true;
};
GgTerrainFeatures& ggTerrainFeatures();

class GgTerrain : public GngRenderNode {
 public:
  GgTerrain();
  ~GgTerrain() override;

  // Reads the block files at basePath (".grd", ".tex", ".idx", ".tin"); false when the grid can't be
  // used. A block without index or TIN file answers from its grid alone. readerThread may be null: the
  // block then makes its own.
  bool init(const std::string& basePath, GgDataReaderThread* readerThread);

  bool contains(double lat, double lon) const {
    return lat >= minLat && lat <= maxLat && lon >= minLon && lon <= maxLon;
  }
  // Height in metres, or the largest double when the block can't answer.
  double getElevation(double lat, double lon, double resolution);
  // The TIN tile under the point, loaded to the level for the resolution together with its neighbours
  // within radius cells; null without one.
  GgTinTile* getTile(double lat, double lon, double resolution, int radius);
  // Like getTile, but every tile found is read to its finest level.
  GgTinTile* loadTilesAround(double lat, double lon, int radius);
  // Synchronous load of a tile to the level for the resolution, under the reader lock.
  void requestTile(GgTinTile* tile, double resolution);
  // Frees tiles unused for 300 s (150 s above maxMemSize) once 20 s have passed since the last run
  // and memSize is above half of maxMemSize.
  void cleanup();

  // Grid geometry, from the grid file.
  double rowLatitude(int32_t index) const { return (index / cols) * dLat + minLat; }
  double colLongitude(int32_t index) const { return (index % cols) * dLon + minLon; }
  const GgGridPoint& point(int32_t index) const { return points[static_cast<size_t>(index)]; }
  bool hasTin() const { return hasTin_; }
  GgDataReader* reader() const { return reader_.get(); }
  GgQuadTile* root() const { return root_.get(); }
  // The TIN tile registered for a cell, or null.
  GgTinTile* cellTile(int32_t slot) const;
  void setCellTile(int32_t slot, GgTinTile* tile);
  bool normalsInFile() const;  // version 1.1 or higher: the TIN file has the normal block

  // Place and priority from the block name; limits from the grid.
  int32_t lat = 0, lon = 0, level = 0;
  double minLat = 0.0, minLon = 0.0, maxLat = 0.0, maxLon = 0.0;
  GgTerrainGroup* group = nullptr;  // not counted: the group owns the block
  std::string data_dir = "./";

  double dLat = 0.0, dLon = 0.0;
  int32_t nLat = 0, nLon = 0, rows = 0, cols = 0, depth = 0;
  uint16_t major = 0, minor = 0;
  double halfCellMetres = 0.0;  // half a cell north-south
  double centre[3] = {};        // metres, earth-centred
  std::vector<GgGridPoint> points;

  // Renderer settings that the group hands every block; the server never reads them.
  float factors[2] = {1.0f, 1.0f};
  bool flags[2] = {true, true};
  std::vector<BtkRef<BtkObject>> renderAttributes;

  // Texture configuration (".tex"); serves only the renderer.
  bool texConfigPresent = false;
  std::string texPath;
  std::string texFormat;
  int texHalfSize = 0;

 private:
  bool readGrid(const std::string& basePath);
  bool readGridHeader(class GgFile& file, const std::string& basePath, GgGridHeader& header);
  bool readGridPoints(GgFile& file, const std::string& basePath);
  bool takeGridHeader(const GgGridHeader& header, const std::string& basePath);
  bool readTextureConfig(const std::string& path);
  void attachReaderThread(GgDataReaderThread* readerThread);
  // The queued request of a tile taken back; its level, or -1. Sets took when there was one.
  int takeBackRequest(GgTinTile* tile, bool& took);
  void loadLevels(GgTinTile* tile, int maxLevel, int firstConverted);
  template <class Visit>
  GgTinTile* forNeighbourhood(double lat, double lon, int radius, Visit visit);

  BtkRef<GgDataReader> reader_;
  bool hasTin_ = false;
  std::vector<GgTinTile*> cells_;  // not counted: a tile leaves its slot when it dies
  BtkRef<GgQuadTile> root_;
  GgTriangle ownTriangle_;  // the block's own height queries
  BtkTimer cleanupTimer_;
};
