// Reading of TIN tiles from a block's index and TIN files, and the request queues that the shared
// reader thread serves. One GgDataReader per block, made by GgTerrain::init; requests are made when a
// TIN tile is created (header request) and die when a synchronous load takes them back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "toolkit/BtkObject.h"
#include "toolkit/BtkThread.h"

class GgDataReader;
class GgDataReaderThread;
class GgFile;
class GgTerrain;
class GgTinTile;

class GgDataRequest : public BtkObject {
 public:
  enum Kind { kTile = 1, kTexture = 2, kTree = 3, kTreeElevation = 4 };
  enum Status { kDone = 0, kFailed = 1, kNew = 3 };

  GgDataRequest(int32_t kind, GgTinTile* tile, int32_t level);
  ~GgDataRequest() override;

  // Smaller is served first.
  virtual double priority(const double viewer[3]) = 0;
  virtual void execute(GgDataReader& reader) = 0;

  int32_t kind;
  int32_t status = kNew;
  BtkRef<GgTinTile> tile;
  int32_t level;  // -1 asks for the tile header only
  int32_t bytesRead = 0;
};

class GgTileDataRequest : public GgDataRequest {
 public:
  GgTileDataRequest(GgTinTile* tile, int32_t level) : GgDataRequest(kTile, tile, level) {}
  // Distance from the viewer to the tile's centre less its bounding radius, at least 0.
  double priority(const double viewer[3]) override;
  void execute(GgDataReader& reader) override;
};

class GgDataReader : public BtkObject {
 public:
  static constexpr int kNumKinds = 5;  // kinds 1 to 4; slot 0 unused

  GgDataReader();
  ~GgDataReader() override;

  // Reads the index file and checks that the TIN file is there.
  bool open(GgTerrain* block, const std::string& basePath);
  // Reads the tile header if the tile has none, then the levels not read yet up to min(maxLevel, L-1)
  // (after loaded_level, as long as every read is converted before the next). The bytes newly held,
  // or -1 when the tile can't be read; a tile that fails is marked and never read again. The caller
  // holds lock().
  int32_t readTile(GgTinTile* tile, int maxLevel);

  // The reader thread's lock, held around every synchronous tile load; nothing without a thread.
  void lock();
  void unlock();

  void setThread(GgDataReaderThread* thread);
  GgDataReaderThread* thread() const { return thread_.get(); }
  // Leaves the thread and drops every queued request; the block calls it before it dies.
  void detach();

  // Main thread, no lock: a new tile request in the incoming list.
  void queueTileRequest(GgTinTile* tile, int32_t level);
  // The tile's queued request, taken out of the incoming, pending or finished lists; null if none.
  BtkRef<GgDataRequest> takeBack(GgTinTile* tile);
  // Renderer side, once per frame: moves incoming requests to the pending lists of their kinds.
  void submit(const double viewer[3], int32_t frame);
  // Reader thread, under the thread's lock: executes at most one pending request of each kind.
  void serve();

  size_t numIncoming() const { return incoming_.size(); }
  size_t numFinished(int kind);
  const std::string& tinPath() const { return tinPath_; }

 private:
  bool readHeader(GgFile& file, GgTinTile* tile, uint64_t offset);
  int32_t readLevels(GgFile& file, GgTinTile* tile, int lastLevel);
  static BtkRef<GgDataRequest> removeFor(std::vector<BtkRef<GgDataRequest>>& list, GgTinTile* tile);
  // Logs why the tile can't be read and marks it, so that it is not read again.
  bool fail(GgTinTile* tile, const char* why);
  int32_t failRead(GgTinTile* tile, const char* why);

  GgTerrain* block_ = nullptr;  // not counted: the block owns its reader
  BtkRef<GgDataReaderThread> thread_;
  std::vector<uint32_t> offsets_;  // TIN file offset of each cell's tile
  std::string tinPath_;
  BtkLock lockA_;  // pending lists
  BtkLock lockB_;  // finished lists
  std::vector<BtkRef<GgDataRequest>> incoming_;
  std::vector<BtkRef<GgDataRequest>> pending_[kNumKinds];
  std::vector<BtkRef<GgDataRequest>> finished_[kNumKinds];
  double viewer_[3] = {};
  int32_t frame_ = 0;
};
