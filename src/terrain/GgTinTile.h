// The leaf of a block's quadtree: one grid cell's triangulated irregular network, read from the TIN
// file level by level (coarsest first) and vertex by vertex (each level uses a prefix of the vertices).
// Made by GgQuadTile::getChild, loaded by GgTerrain::requestTile and loadTilesAround, freed by the cache
// cleanup.
#pragma once

#include <cstdint>
#include <vector>

#include "terrain/GgTile.h"

class GgFile;

// One primitive of an index group.
struct GgIndexArray {
  enum Type : uint16_t { kStrip = 1, kFan = 2, kTriangles = 3 };
  uint16_t count = 0;
  uint16_t mode = kTriangles;
  std::vector<uint16_t> indices;
};

using GgIndexGroup = std::vector<GgIndexArray>;

// One level of detail: its index groups (numbered 1 to 8 as in the file, lists 3 and 4 hold A and B
// groups) and the last vertex it uses.
class GgLevel {
 public:
  explicit GgLevel(int index) : index(index) {}

  // Reads the record at the file's position. False, with *why set, on a corrupt record: a count
  // larger than the bytes left, a vertex index past the level's last vertex, V past the vertex block.
  bool read(GgFile& file, uint32_t numVertices, const char** why);
  // Bytes that the level's indices hold (2 per index).
  uint32_t indexBytes() const;

  int index;
  uint8_t A = 0, B = 0;
  GgIndexGroup groups[9];  // 1, 2 and 5 to 8 used
  std::vector<GgIndexGroup> list3, list4;
  uint32_t lastVertex = 0;  // V: the level uses vertices 0..V
  bool loaded = false;
};

class GgTinTile : public GgTile {
 public:
  enum State { kNotLoaded = 0, kQueued = 1, kLoaded = 2 };

  // Registers the tile in the block's cell table and queues a header request with the block's reader.
  GgTinTile(GgTerrain* block, GgTile* parent, int childIndex, int32_t depth, const int32_t corners[4]);
  ~GgTinTile() override;

  bool mayDelete() override;
  bool findTriangle(double lat, double lon, GgTriangle& t) override;
  GgTinTile* findTile(double lat, double lon) override;
  void cleanup(int32_t timeLimit) override;
  void detach() override;

  // The level whose resolution is nearest to the wanted one (the coarser on a tie); 0 without levels.
  int levelForResolution(double resolution) const;
  // Converts the vertices of levels first..last into positions relative to the origin.
  void calcVertices(int first, int last);
  // (north, east, down) unit normal of a vertex; (0, 0, -1) without normals.
  void vertexNormal(int32_t index, double out[3]);
  // Grows the vertex arrays to lastIndex + 1 entries, reading the missing ones.
  bool readVertices(GgFile& file, uint32_t lastIndex);

  int numLevels() const { return static_cast<int>(levels.size()); }
  // The tile's extent, origin and data no longer need the block: they stay valid after detach().
  int cellRow = 0, cellCol = 0;
  int32_t cellSlot = -1;  // nLon * row + col in the block's cell table

  std::vector<GgLevel> levels;
  std::vector<float> resolutions;  // metres, finest last
  int8_t loaded_level = -1;        // finest level converted; -1 while nothing is loaded
  uint64_t dataPos = 0;            // file offset of the next unread level
  uint64_t vertexBlockPos = 0;
  uint32_t numVertices = 0;  // N
  uint32_t verticesLoaded = 0;
  uint32_t normalSize = 0;  // S; 0 when the file has no normal block
  std::vector<uint16_t> latFractions, lonFractions;
  std::vector<int16_t> heights;     // metres
  std::vector<int8_t> normalBytes;  // 3 per vertex: north, east, down times 127
  std::vector<float> positions;     // 3 per vertex, metres relative to origin
  std::vector<float> texCoords;     // 2 per vertex
  uint32_t bytesHeld = 0;
  int32_t state = kQueued;
  bool failed = false;  // a corrupt record was met: no further reads
  double origin[3] = {};

 private:
  int chooseLevel(const GgTriangle& t) const;
  bool inside(const int32_t v[3], int32_t qLat, int32_t qLon) const;
  bool searchLevel(const GgLevel& level, int32_t qLat, int32_t qLon, int32_t found[3]) const;
  bool searchGroup(const GgIndexGroup& group, uint32_t lastVertex, int32_t qLat, int32_t qLon,
                   int32_t found[3]) const;
  void store(GgTriangle& t, int level, const int32_t v[3], int32_t qLat, int32_t qLon);
  void interpolate(GgTriangle& t, const int32_t v[3], int32_t qLat, int32_t qLon) const;
};
