#include "terrain/GgCounters.h"

#include <atomic>

namespace {

// Atomic because the last reference to a tile may be dropped on the reader thread.
std::atomic<int32_t> memSizeBytes{0};
std::atomic<int32_t> visitCount{0};
std::atomic<int32_t> tinTiles{0};
std::atomic<int32_t> quadTiles{0};

}  // namespace

int32_t memSize() {
  return memSizeBytes.load(std::memory_order_relaxed);
}
int32_t maxMemSize() {
  return 30000000;
}
void ggAddMemSize(int64_t bytes) {
  memSizeBytes.fetch_add(static_cast<int32_t>(bytes), std::memory_order_relaxed);
}

int32_t ggVisitCount() {
  return visitCount.load(std::memory_order_relaxed);
}
void ggResetVisitCount() {
  visitCount.store(0, std::memory_order_relaxed);
}
void ggCountVisit() {
  visitCount.fetch_add(1, std::memory_order_relaxed);
}

int32_t ggTinTileCount() {
  return tinTiles.load(std::memory_order_relaxed);
}
int32_t ggQuadTileCount() {
  return quadTiles.load(std::memory_order_relaxed);
}
void ggCountTinTile(int delta) {
  tinTiles.fetch_add(delta, std::memory_order_relaxed);
}
void ggCountQuadTile(int delta) {
  quadTiles.fetch_add(delta, std::memory_order_relaxed);
}
