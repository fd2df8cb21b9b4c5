// The terrain query record: the caller sets the detail it wants, a tile's findTriangle fills in the
// ground triangle under a point. Each user owns one (player, thermal query, each block for its own
// height queries); it keeps the tile that answered so that the next query nearby is answered at once.
#pragma once

#include <cstdint>

#include "terrain/GgTile.h"
#include "toolkit/BtkObject.h"

struct GgTriangle {
  explicit GgTriangle(float resolutionLimit = 0.0f) : resolutionLimit(resolutionLimit) {}

  // Unit normal of the stored triangle, earth-centred and in the local north, east, down frame at its
  // centroid; clears normalStale.
  void calcNormal();

  float resolutionLimit;                // metres, input: 0 asks for the finest detail loaded
  float resolution = 0.0f;              // metres, output: the level's resolution or the grid node's error
  int32_t wantedLevel = -1;             // input: -1 lets the resolution choose the TIN level
  int32_t vertices[3] = {-1, -1, -1};   // TIN vertex indices, or grid point indices for a grid triangle
  int32_t level = -1;                   // output: TIN level, -1 for a grid triangle
  double height = 0.0;                  // metres
  double weights[3] = {0.0, 0.0, 0.0};  // barycentric, in vertex order
  double positions[3][3] = {};          // metres, earth-centred, absolute
  double normal[3] = {};
  double localNormal[3] = {};  // north, east, down
  uint8_t normalStale = 0;     // set when new vertices are stored
  BtkRef<GgTile> tile;         // the tile that answered last
};

// Rotation whose columns are the north, east and down unit vectors at (lat, lon) degrees, in
// earth-centred axes.
void localFrame(double lat, double lon, float m[4][4]);
