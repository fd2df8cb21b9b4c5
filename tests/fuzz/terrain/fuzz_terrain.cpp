// Fuzz target over the terrain block readers: the grid file, the texture configuration, the index
// and the TIN file, then every query on whatever loaded. An input packs the four files:
//   u32 grid length, grid bytes, u32 index length, index bytes, u32 texture length, texture bytes,
//   and the TIN file as the rest (lengths little-endian, cut to what is there).
// tests/fuzz/terrain/make_corpus.py packs sceneries written by qvscenery into the seed corpus.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include "terrain/GgDataReaderThread.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTile.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkLogger.h"

namespace {

struct Cursor {
  const uint8_t* data;
  size_t size;
  size_t at = 0;

  std::string take() {
    uint32_t n = 0;
    if (size - at >= 4) {
      n = static_cast<uint32_t>(data[at] | (data[at + 1] << 8) | (data[at + 2] << 16)) |
          (static_cast<uint32_t>(data[at + 3]) << 24);
      at += 4;
    } else {
      at = size;
    }
    const size_t len = std::min<size_t>(n, size - at);
    std::string bytes(reinterpret_cast<const char*>(data + at), len);
    at += len;
    return bytes;
  }
  std::string rest() {
    std::string bytes(reinterpret_cast<const char*>(data + at), size - at);
    at = size;
    return bytes;
  }
};

void writeFile(const std::string& path, const std::string& bytes) {
  FILE* f = fopen(path.c_str(), "wb");
  if (!f) abort();
  fwrite(bytes.data(), 1, bytes.size(), f);
  fclose(f);
}

const char* const kExtensions[] = {".grd", ".idx", ".tex", ".tin"};

std::string& workDirPath() {
  static std::string dir;
  return dir;
}

void removeWorkDir() {
  for (const char* ext : kExtensions) unlink((workDirPath() + "/terrain" + ext).c_str());
  rmdir(workDirPath().c_str());
}

const std::string& workDir() {
  std::string& dir = workDirPath();
  if (dir.empty()) {
    char pattern[] = "/tmp/qv-fuzz-terrain-XXXXXX";
    if (!mkdtemp(pattern)) abort();
    dir = pattern;
    atexit(removeWorkDir);
  }
  return dir;
}

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
  static const bool quiet = [] {
    btkLogger.setThreshold(BTK_FATAL + 1);  // the readers' complaints would drown the fuzzer's output
    return true;
  }();
  (void)quiet;
  Cursor in{data, size};
  const std::string base = workDir() + "/terrain";
  writeFile(base + ".grd", in.take());
  writeFile(base + ".idx", in.take());
  writeFile(base + ".tex", in.take());
  writeFile(base + ".tin", in.rest());

  BtkRef<GgTerrain> block(new GgTerrain());
  if (!block->init(base, sharedThread())) return 0;
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
