// Fuzz target over the terrain block readers: the grid file, the texture configuration, the index
// and the TIN file, then every query on whatever loaded. An input packs the four files:
//   u32 grid length, grid bytes, u32 index length, index bytes, u32 texture length, texture bytes,
//   and the TIN file as the rest (lengths little-endian, cut to what is there).
// tests/fuzz/terrain/make_corpus.py packs sceneries written by qvscenery into the seed corpus.
#include <algorithm>

#include "../FuzzInput.h"
#include "terrain/GgDataReaderThread.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTile.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkLogger.h"

namespace {

// One reader thread for all inputs, never released: starting a thread per input would slow the
// fuzzer down a hundredfold.
GgDataReaderThread* sharedThread() {
  static auto* thread = new BtkRef<GgDataReaderThread>(new GgDataReaderThread());
  return thread->get();
}

void query(GgTerrain& block, double lat, double lon) {
  GgTriangle t;
  if (GgTinTile* tile = block.getTile(lat, lon, 10.0, 0)) {
    if (tile->findTriangle(lat, lon, t)) {
      t.calcNormal();
      double n[3];
      tile->vertexNormal(t.vertices[0], n);
    }
    tile->findTriangle(lat, lon, t);  // the fast path
  }
  block.loadTilesAround(lat, lon, 1);
  block.getElevation(lat, lon, 0.0);
  block.getElevation(lat, lon, 100.0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The readers' complaints would drown the fuzzer's output.
  [[maybe_unused]] static const bool quiet = (btkLogger.setThreshold(BTK_FATAL + 1), true);
  FuzzReader in{data, size};
  for (const char* ext : {".grd", ".idx", ".tex"}) fuzzFile(std::string("terrain") + ext, in.bytes(in.u32()));
  fuzzFile("terrain.tin", in.bytes(size));
  BtkRef<GgTerrain> block(new GgTerrain());
  if (!block->init(fuzzDir() + "/terrain", sharedThread())) return 0;
  // Every cell up to a bound, at its middle and on its corner; then a few points outside.
  const int32_t rows = std::min(block->nLat, 16), cols = std::min(block->nLon, 16);
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < cols; ++c) {
      query(*block, block->minLat + (r + 0.5) * block->dLat, block->minLon + (c + 0.5) * block->dLon);
      query(*block, block->minLat + r * block->dLat, block->minLon + c * block->dLon);
    }
  }
  query(*block, block->maxLat, block->maxLon);
  query(*block, block->minLat - 1.0, block->minLon);
  block->cleanup();
  return 0;
}
