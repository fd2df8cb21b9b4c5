// The nodes of a terrain block's quadtree. Quad nodes cover 2^n x 2^n grid cells and split into four
// children made on demand; the leaves are TIN tiles over one cell (GgTinTile.h). Nodes are created by
// the queries that reach them (GgQuadTile::getChild) and die when the cache cleanup releases them or
// the block tears its tree down.
#pragma once

#include <cstdint>

#include "toolkit/BtkObject.h"
#include "toolkit/BtkThread.h"

class GgTerrain;
class GgTinTile;
struct GgTriangle;

class GgTile : public BtkObject {
 public:
  enum Child { kSouthWest = 0, kSouthEast = 1, kNorthWest = 2, kNorthEast = 3, kRoot = 4 };
  enum Corner { kSW = 0, kSE = 1, kNW = 2, kNE = 3 };

  // corners: grid point indices south-west, south-east, north-west, north-east.
  GgTile(GgTerrain* block, GgTile* parent, int childIndex, int32_t depth, const int32_t corners[4]);
  ~GgTile() override;

  // The point's triangle at the detail that t asks for; false when the node can't answer.
  virtual bool findTriangle(double lat, double lon, GgTriangle& t) = 0;
  // The TIN tile under the point, making the nodes on the way; null outside the node or without TIN data.
  virtual GgTinTile* findTile(double lat, double lon) = 0;
  // Releases the children not used since timeLimit (calendar seconds) that agree to go.
  virtual void cleanup(int32_t timeLimit) = 0;
  // Breaks the tree apart when its block dies; nodes that somebody still holds live on without a block.
  virtual void detach();

  bool contains(double lat, double lon) const {
    return lat >= south && lat <= north && lon >= west && lon <= east;
  }
  // Stamps the last access with the calendar clock.
  void touch();

  BtkRef<GgTile> parent;  // none for the root
  int childIndex;
  GgTerrain* block;  // not counted: the block owns the tree; null once the block is gone
  int32_t depth;     // 0 for the root
  int32_t corners[4];
  uint16_t tileRow = 0, tileCol = 0;  // place among the nodes of this depth
  uint32_t lastAccess = 0;            // calendar seconds
  float heightValue = 0.0f;           // metres; the tile's average elevation
  float boundingRadius = 0.0f;        // metres
  int32_t lastUse = 0;                // the server's pass counter at the last triangle lookup
  BtkLock lock;                       // guards vertex arrays of TIN tiles and lastUse
  double south = 0.0, north = 0.0, west = 0.0, east = 0.0;  // degrees, inclusive bounds

 protected:
  bool released_ = false;  // set by detach(): the node may go whatever its state
};

class GgQuadTile : public GgTile {
 public:
  GgQuadTile(GgTerrain* block, GgTile* parent, int childIndex, int32_t depth, const int32_t corners[4]);
  ~GgQuadTile() override;

  bool mayDelete() override;
  bool findTriangle(double lat, double lon, GgTriangle& t) override;
  GgTinTile* findTile(double lat, double lon) override;
  void cleanup(int32_t timeLimit) override;
  void detach() override;

  // The existing child, or a new one while the tree is not at its depth (a TIN tile on the last
  // level, and only when the block has TIN data).
  GgTile* getChild(int i);
  GgTile* child(int i) const { return children_[i].get(); }

 private:
  bool answerFromGrid(double lat, double lon, GgTriangle& t);

  BtkRef<GgTile> children_[4];
  int32_t centre_;          // grid point index at the node's middle
  double midLat_, midLon_;  // degrees; the children's shared bounds
};
