// Writes a complete scenery: for each block a grid file, a texture configuration, an index file and
// a TIN file, in BLK... directories or, for a single block, straight into the scenery directory.
#pragma once

#include <string>
#include <vector>

#include "ElevationSource.h"

namespace qvscenery {

struct Options {
  std::string outDir;                                 // the scenery directory, e.g. DATADIR/scenery/NAME
  double south = 0.0, west = 0.0;                     // degrees: the scenery's south-west corner
  double cellLat = 1.0 / 64.0, cellLon = 1.0 / 64.0;  // degrees per grid cell
  int cells = 64;                                     // cells per block side, a power of two
  int depth = 0;  // quadtree depth; 0 takes the only one that fits: log2(cells) + 1
  int blocksNS = 1, blocksEW = 1;
  bool single = false;                     // one block, files directly in outDir
  int level = 0;                           // block level written into the block names (0..99)
  int tinLevels = 4;                       // levels of detail per cell, 1..8
  std::vector<double> resolutions;         // metres per level, coarsest first; empty: from the cell size
  int versionMajor = 1, versionMinor = 2;  // grid format 1.0, 1.1 (vertex normals) or 1.2 (extended header)
  bool spread = false;                     // see TinMesh
  bool tin = true;                         // write ".idx" and ".tin"
  bool texture = true;                     // write ".tex"
};

// A clear sentence for the first thing wrong with the options, or "" when they can be built.
std::string validate(const Options& options);
// The depth a block of the given cells per side needs, or -1 when cells is not a power of two >= 2.
int depthFor(int cells);
// The directory name of block (row, col), row 0 the southernmost.
std::string blockName(const Options& options, int row, int col);
// The base path of a block's files (without extension).
std::string blockBasePath(const Options& options, int row, int col);

struct BuildResult {
  std::vector<std::string> basePaths;  // one per block, south to north, west to east
  std::string error;                   // empty on success
};

BuildResult buildScenery(const Options& options, const ElevationSource& source);

}  // namespace qvscenery
