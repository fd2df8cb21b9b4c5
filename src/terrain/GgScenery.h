// Start-up loading of a scenery and the server's triangle lookup, in the form the server calls them:
// plain parameters in, the terrain group out, and the server's own work handed in as a callback.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "toolkit/BtkObject.h"

class GgTerrainGroup;
struct GgTriangle;

struct GgBlockName {
  int32_t lat = 0, lon = 0, level = 0;  // whole degrees, south and west negative
};

// Reads a block entry's name with the rules of scanf and "BLK%03d%c%03d%c%02d": all five fields must
// be read (anything after them is ignored); an "S" makes the latitude negative, a "W" the longitude.
bool ggParseBlockName(const std::string& name, GgBlockName& block);

// Loads the scenery `scenery` from dataDir + "/scenery/" + scenery, or from `scenery` itself when it is
// a full path ("X:...", "\...", or on this platform "/..."). Every entry of the scenery directory whose
// name holds "BLK" and parses as a block name is a block with its files under <entry>/terrain; without
// any, the scenery directory itself holds one block's files. terrain receives a new group (a group it
// held before is released) and sceneryDir the scenery's short name. False, after the messages, when no
// block could be read.
bool ggLoadScenery(const std::string& dataDir, const std::string& scenery, BtkRef<GgTerrainGroup>& terrain,
                   std::string& sceneryDir);

// The server's triangle lookup under a point: loads the tile at 10 m resolution, stamps it with
// passCount, finds the triangle into t and then calls runNestedPass once. False, with a level 3 log
// line, when no tile lies under the point; true when there is a tile, even if it found no triangle.
//
// runNestedPass runs one server pass and may therefore do arbitrary server work: handle any message,
// time players out, trim this very terrain cache, even end the process. The tile is held for the
// duration of the call, but nothing else may be assumed unchanged afterwards: callers look their
// records up again.
bool ggFindTerrainTriangle(GgTerrainGroup* terrain, double lat, double lon, GgTriangle& t, int32_t passCount,
                           const std::function<void()>& runNestedPass);
