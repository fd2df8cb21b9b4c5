#include "terrain/GgDataReader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "terrain/GgConstants.h"
#include "terrain/GgDataReaderThread.h"
#include "terrain/GgFile.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTinTile.h"
#include "toolkit/BtkLogger.h"

GgDataRequest::GgDataRequest(int32_t kind, GgTinTile* tile, int32_t level)
    : kind(kind), tile(tile), level(level) {}

GgDataRequest::~GgDataRequest() = default;

double GgTileDataRequest::priority(const double viewer[3]) {
  if (!tile) return std::numeric_limits<double>::max();
  double centre[3];
  ggEarthPoint((tile->south + tile->north) * 0.5, (tile->west + tile->east) * 0.5, tile->heightValue, centre);
  const double dx = centre[0] - viewer[0], dy = centre[1] - viewer[1], dz = centre[2] - viewer[2];
  const double distance = std::sqrt(dx * dx + dy * dy + dz * dz) - tile->boundingRadius;
  return distance < 0.0 ? 0.0 : distance;
}

void GgTileDataRequest::execute(GgDataReader& reader) {
  const int32_t bytes = tile ? reader.readTile(tile.get(), level) : -1;
  if (bytes < 0) {
    status = kFailed;
    return;
  }
  bytesRead += bytes;
  status = kDone;
}

GgDataReader::GgDataReader() = default;

GgDataReader::~GgDataReader() {
  detach();
}

bool GgDataReader::open(GgTerrain* block, const std::string& basePath) {
  const std::string indexPath = basePath + ".idx";
  GgFile index;
  if (!index.open(indexPath)) {
    fprintf(stderr, "couldn't find index file: %s\n", indexPath.c_str());
    return false;
  }
  const uint64_t numCells = static_cast<uint64_t>(block->nLat) * static_cast<uint64_t>(block->nLon);
  if (numCells * 4 > index.size()) {
    fprintf(stderr, "index file too short: %s (%llu cells need %llu bytes, found %llu)\n", indexPath.c_str(),
            static_cast<unsigned long long>(numCells), static_cast<unsigned long long>(numCells * 4),
            static_cast<unsigned long long>(index.size()));
    return false;
  }
  offsets_.resize(numCells);
  for (uint32_t& offset : offsets_) {
    if (!index.getU32(offset)) {
      fprintf(stderr, "couldn't read index file: %s\n", indexPath.c_str());
      offsets_.clear();
      return false;
    }
  }
  index.close();

  const std::string tin = basePath + ".tin";
  FILE* probe = fopen(tin.c_str(), "rb");
  if (!probe) {
    fprintf(stderr, "couldn't find TIN file: %s\n", tin.c_str());
    offsets_.clear();
    return false;
  }
  fclose(probe);
  tinPath_ = tin;
  block_ = block;
  return true;
}

void GgDataReader::setThread(GgDataReaderThread* thread) {
  thread_ = thread;
}

void GgDataReader::lock() {
  if (thread_) thread_->lock().enter();
}

void GgDataReader::unlock() {
  if (thread_) thread_->lock().leave();
}

void GgDataReader::detach() {
  if (thread_) {
    thread_->removeReader(this);
    thread_.reset(nullptr);
  }
  incoming_.clear();
  {
    BtkLockGuard guard(lockA_);
    for (auto& list : pending_) list.clear();
  }
  BtkLockGuard guard(lockB_);
  for (auto& list : finished_) list.clear();
}

int32_t GgDataReader::failRead(GgTinTile* tile, const char* why) {
  fail(tile, why);
  return -1;
}

bool GgDataReader::fail(GgTinTile* tile, const char* why) {
  btkLogger.log(BTK_ERROR, "GgDataReader: bad tile (%d, %d) in %s: %s", tile->cellRow, tile->cellCol,
                tinPath_.c_str(), why);
  tile->failed = true;
  return false;
}

int32_t GgDataReader::readTile(GgTinTile* tile, int maxLevel) {
  if (!tile || tile->failed || !block_) return -1;
  if (tile->cellSlot < 0 || static_cast<size_t>(tile->cellSlot) >= offsets_.size()) {
    fail(tile, "no index entry for the cell");
    return -1;
  }
  GgFile file;
  if (!file.open(tinPath_)) {
    fail(tile, "the TIN file can't be opened");
    return -1;
  }
  if (tile->levels.empty() && !readHeader(file, tile, offsets_[static_cast<size_t>(tile->cellSlot)]))
    return -1;
  if (maxLevel < 0) return 0;
  const int last = std::min(tile->numLevels() - 1, maxLevel);
  return readLevels(file, tile, last);
}

bool GgDataReader::readHeader(GgFile& file, GgTinTile* tile, uint64_t offset) {
  uint8_t numLevels = 0;
  if (!file.seek(offset)) return fail(tile, "its offset is past the end of the file");
  if (!file.getU8(numLevels)) return fail(tile, "the file ends inside the tile header");
  if (numLevels == 0) return fail(tile, "the tile has no levels");
  std::vector<float> resolutions(numLevels);
  for (float& r : resolutions) {
    if (!file.getF32(r)) return fail(tile, "the file ends inside the tile header");
    if (!std::isfinite(r)) return fail(tile, "a level resolution is not a number");
  }
  tile->resolutions = std::move(resolutions);
  tile->levels.clear();
  for (int i = 0; i < numLevels; ++i) tile->levels.emplace_back(i);
  tile->vertexBlockPos = file.tell();
  tile->dataPos = tile->vertexBlockPos;
  return true;
}

int32_t GgDataReader::readLevels(GgFile& file, GgTinTile* tile, int lastLevel) {
  int first = 0;
  while (first < tile->numLevels() && tile->levels[static_cast<size_t>(first)].loaded) ++first;
  if (lastLevel < first) return 0;
  if (!file.seek(tile->dataPos)) return failRead(tile, "the file ends before the next level");
  if (first == 0) {
    uint32_t n = 0, s = 0;
    if (!file.getU32(n)) return failRead(tile, "the file ends inside the vertex block");
    if (n == 0 || static_cast<uint64_t>(n) * 6 > file.bytesLeft())
      return failRead(tile, "the vertex count is larger than the file");
    file.skip(static_cast<uint64_t>(n) * 6);
    if (block_->normalsInFile()) {
      if (!file.getU32(s)) return failRead(tile, "the file ends inside the normal block");
      if (s != static_cast<uint64_t>(n) * 3 || s > file.bytesLeft())
        return failRead(tile, "the normal block does not hold three bytes per vertex");
      file.skip(s);
    }
    tile->numVertices = n;
    tile->normalSize = s;
  }
  // Parsed aside and taken over only when every record is sound, so a corrupt level changes nothing.
  std::vector<GgLevel> parsed;
  uint32_t previousLast = first > 0 ? tile->levels[static_cast<size_t>(first - 1)].lastVertex : 0;
  for (int k = first; k <= lastLevel; ++k) {
    GgLevel level(k);
    const char* why = nullptr;
    if (!level.read(file, tile->numVertices, &why)) return failRead(tile, why);
    if (level.lastVertex < previousLast)
      return failRead(tile, "a level uses fewer vertices than the one before");
    previousLast = level.lastVertex;
    parsed.push_back(std::move(level));
  }
  const uint64_t nextLevel = file.tell();  // readVertices moves the file elsewhere
  const uint32_t before = tile->bytesHeld;
  if (!tile->readVertices(file, previousLast)) return failRead(tile, "the file ends inside the vertex block");
  uint32_t added = 0;
  for (GgLevel& level : parsed) {
    added += level.indexBytes();
    level.loaded = true;
    tile->levels[static_cast<size_t>(level.index)] = std::move(level);
  }
  tile->bytesHeld += added;
  tile->dataPos = nextLevel;
  return static_cast<int32_t>(tile->bytesHeld - before);
}

void GgDataReader::queueTileRequest(GgTinTile* tile, int32_t level) {
  incoming_.emplace_back(new GgTileDataRequest(tile, level));
}

BtkRef<GgDataRequest> GgDataReader::removeFor(std::vector<BtkRef<GgDataRequest>>& list, GgTinTile* tile) {
  for (auto it = list.begin(); it != list.end(); ++it) {
    if ((*it)->tile.get() == tile) {
      BtkRef<GgDataRequest> request = *it;
      list.erase(it);
      return request;
    }
  }
  return BtkRef<GgDataRequest>();
}

BtkRef<GgDataRequest> GgDataReader::takeBack(GgTinTile* tile) {
  BtkRef<GgDataRequest> request = removeFor(incoming_, tile);
  if (request) return request;
  {
    BtkLockGuard guard(lockA_);
    for (auto& list : pending_) {
      request = removeFor(list, tile);
      if (request) return request;
    }
  }
  BtkLockGuard guard(lockB_);
  for (auto& list : finished_) {
    request = removeFor(list, tile);
    if (request) return request;
  }
  return request;
}

void GgDataReader::submit(const double viewer[3], int32_t frame) {
  if (!lockA_.tryEnter()) return;
  for (int i = 0; i < 3; ++i) viewer_[i] = viewer[i];
  frame_ = frame;
  for (auto& request : incoming_) {
    if (request->kind >= 1 && request->kind < kNumKinds) pending_[request->kind].push_back(request);
  }
  incoming_.clear();
  lockA_.leave();
}

void GgDataReader::serve() {
  for (int kind = 1; kind < kNumKinds; ++kind) {
    if (!lockA_.tryEnter()) continue;
    auto& list = pending_[kind];
    if (list.empty()) {
      lockA_.leave();
      continue;
    }
    auto best = list.begin();
    double bestPriority = (*best)->priority(viewer_);
    for (auto it = list.begin() + 1; it != list.end(); ++it) {
      const double p = (*it)->priority(viewer_);
      if (p < bestPriority) {
        best = it;
        bestPriority = p;
      }
    }
    BtkRef<GgDataRequest> request = *best;
    list.erase(best);
    lockA_.leave();
    request->execute(*this);
    {
      BtkLockGuard guard(lockB_);
      finished_[kind].push_back(request);
    }
    BtkThread::yield();
  }
}

size_t GgDataReader::numFinished(int kind) {
  BtkLockGuard guard(lockB_);
  return kind >= 1 && kind < kNumKinds ? finished_[kind].size() : 0;
}
