// Process-wide byte and object counts of the terrain cache. The cleanup compares memSize with
// maxMemSize; tile objects and tile data add to it when made or read and subtract when freed.
#pragma once

#include <cstdint>

constexpr int32_t kGgTileObjectBytes = 152;  // what every tile object adds to memSize while it lives

// Bytes of tile data held plus kGgTileObjectBytes per tile object alive.
int32_t memSize();
// 30000000 bytes: above half of it the cleanup frees tiles unused for 300 s, above all of it 150 s.
int32_t maxMemSize();
void ggAddMemSize(int64_t bytes);

// Nodes visited by the last cleanup (the cleanup's log line reports it).
int32_t ggVisitCount();
void ggResetVisitCount();
void ggCountVisit();

int32_t ggTinTileCount();
int32_t ggQuadTileCount();
void ggCountTinTile(int delta);
void ggCountQuadTile(int delta);
