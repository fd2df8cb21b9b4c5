#include "terrain/GgTerrain.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "terrain/GgConstants.h"
#include "terrain/GgCounters.h"
#include "terrain/GgDataReader.h"
#include "terrain/GgDataReaderThread.h"
#include "terrain/GgFile.h"
#include "terrain/GgTile.h"
#include "terrain/GgTinTile.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr char kGridMagic[4] = {'G', 'G', 'F', 'X'};
constexpr uint64_t kReservedHeaderBytes = 64;  // after the fixed header of versions before 1.2
constexpr int32_t kMaxDepth = 32;              // a deeper tree only repeats empty nodes
constexpr uint64_t kMaxGridPoints = 1u << 30;  // keeps every point index inside an int32
constexpr uint64_t kBytesPerGridPoint = 12;    // height, radius, error
constexpr double kCleanupIntervalMs = 20000.0;
constexpr int32_t kTileAgeSeconds = 300;
constexpr int32_t kTileAgeOverLimitSeconds = 150;
constexpr int kAllLevels = 999;

bool isPowerOfTwo(int32_t n) {
  return n > 0 && (n & (n - 1)) == 0;
}

// A text field of the extended header: up to a zero byte, padded to an even length.
bool skipTextField(GgFile& file) {
  std::string text;
  if (!file.getText(text)) return false;
  return text.size() % 2 != 0 || file.skip(1);
}

}  // namespace

GgTerrainFeatures& ggTerrainFeatures() {
  static GgTerrainFeatures features;
  return features;
}

GgTerrain::GgTerrain() : GngRenderNode("(Terrain)") {}

GgTerrain::~GgTerrain() {
  if (reader_) reader_->detach();  // out of the thread's list, queued requests dropped
  ownTriangle_.tile.reset(nullptr);
  if (root_) {
    root_->detach();
    root_.reset(nullptr);
  }
}

bool GgTerrain::normalsInFile() const {
  const float version = static_cast<float>(major) + static_cast<float>(minor) / 10.0f;
  return static_cast<double>(version) >= 1.1;  // 1.1f rounds up, so version 1.1 itself has normals
}

GgTinTile* GgTerrain::cellTile(int32_t slot) const {
  return slot >= 0 && static_cast<size_t>(slot) < cells_.size() ? cells_[static_cast<size_t>(slot)] : nullptr;
}

void GgTerrain::setCellTile(int32_t slot, GgTinTile* tile) {
  if (slot >= 0 && static_cast<size_t>(slot) < cells_.size()) cells_[static_cast<size_t>(slot)] = tile;
}

bool GgTerrain::init(const std::string& basePath, GgDataReaderThread* readerThread) {
  data_dir = "./";
  if (!readGrid(basePath)) return false;

  reader_ = new GgDataReader();
  hasTin_ = reader_->open(this, basePath);

  texConfigPresent = false;
  if (!readTextureConfig(basePath + ".tex"))
    btkLogger.log(BTK_WARNING, "warning: couldn't read texture config!");

  const int32_t corners[4] = {0, cols - 1, (rows - 1) * cols, rows * cols - 1};
  root_ = new GgQuadTile(this, nullptr, GgTile::kRoot, 0, corners);

  attachReaderThread(readerThread);

  const std::string gridPath = basePath + ".grd";
  const size_t slash = gridPath.find_last_of('/');
  data_dir = slash == std::string::npos ? "./" : gridPath.substr(0, slash + 1);
  btkDebug() << "data_dir = " << data_dir << btkFlush;

  if (hasTin_) {
    btkLogger.log(BTK_DEBUG, "initializing TIN grid");
    cells_.assign(static_cast<size_t>(nLat) * static_cast<size_t>(nLon), nullptr);
  }
  cleanupTimer_.start();
  return true;
}

void GgTerrain::attachReaderThread(GgDataReaderThread* readerThread) {
  BtkRef<GgDataReaderThread> thread = readerThread ? readerThread : new GgDataReaderThread();
  thread->addReader(reader_.get());
  thread->startOnce();
}

bool GgTerrain::readGrid(const std::string& basePath) {
  const std::string gridPath = basePath + ".grd";
  GgFile file;
  if (!file.open(gridPath)) {
    btkError() << "couldn't open Grid file: " << gridPath << btkFlush;
    return false;
  }
  GgGridHeader header;
  if (!readGridHeader(file, basePath, header)) return false;
  if (!takeGridHeader(header, basePath)) return false;
  btkDebug() << "Limits: N = [" << minLat << ", " << maxLat << "]" << btkFlush;
  btkDebug() << "        E = [" << minLon << ", " << maxLon << "]" << btkFlush;
  btkDebug() << "Grid: " << rows << " x " << cols << btkFlush;
  return readGridPoints(file, basePath);
}

bool GgTerrain::readGridHeader(GgFile& file, const std::string& basePath, GgGridHeader& header) {
  const bool haveMagic = file.read(header.magic, sizeof header.magic);
  if (haveMagic && memcmp(header.magic, kGridMagic, sizeof kGridMagic) != 0)
    fputs("Invalid magic in file header!\n", stderr);
  bool ok = haveMagic && memcmp(header.magic, kGridMagic, sizeof kGridMagic) == 0 &&
            file.getU16(header.major) && file.getU16(header.minor) && file.getF64(header.minLat) &&
            file.getF64(header.minLon) && file.getF64(header.dLat) && file.getF64(header.dLon) &&
            file.getI32(header.nLat) && file.getI32(header.nLon) && file.getI32(header.depth);
  if (ok && header.major >= 1 && header.minor >= 2) {
    uint32_t unused = 0;
    ok = file.getU32(unused) && skipTextField(file) && skipTextField(file);
    for (int i = 0; ok && i < 4; ++i) ok = file.getU32(unused);
  } else if (ok) {
    ok = file.skip(kReservedHeaderBytes);
  }
  if (!ok) btkError() << "GgTerrain: read file header failed: " << basePath << btkFlush;
  return ok;
}

bool GgTerrain::takeGridHeader(const GgGridHeader& h, const std::string& basePath) {
  const char* why = nullptr;
  const double north = h.minLat + h.nLat * h.dLat, east = h.minLon + h.nLon * h.dLon;
  if (h.nLat < 1 || h.nLon < 1) {
    why = "the grid has no cells";
  } else if (!std::isfinite(h.minLat) || !std::isfinite(h.minLon) || !(h.dLat > 0.0) || !(h.dLon > 0.0) ||
             !std::isfinite(north) || !std::isfinite(east)) {
    why = "the grid's place or step is not a number";
  } else if (h.depth < 1 || h.depth > kMaxDepth) {
    why = "the quadtree depth is not 1 to 32";
  } else if ((static_cast<uint64_t>(h.nLat) + 1) * (static_cast<uint64_t>(h.nLon) + 1) > kMaxGridPoints) {
    why = "the grid has more than 2^30 points";
  }
  if (why) {
    btkLogger.log(BTK_ERROR, "GgTerrain: bad grid header in %s.grd: %s (%d x %d cells, depth %d)",
                  basePath.c_str(), why, h.nLat, h.nLon, h.depth);
    btkError() << "GgTerrain: read file header failed: " << basePath << btkFlush;
    return false;
  }
  major = h.major;
  minor = h.minor;
  minLat = h.minLat;
  minLon = h.minLon;
  dLat = h.dLat;
  dLon = h.dLon;
  nLat = h.nLat;
  nLon = h.nLon;
  maxLat = north;
  maxLon = east;
  rows = nLat + 1;
  cols = nLon + 1;
  depth = h.depth;
  halfCellMetres = dLat * METRES_PER_DEGREE / 2.0;
  ggEarthPoint((minLat + maxLat) * 0.5, (minLon + maxLon) * 0.5, 0.0, centre);
  if (nLat != nLon || !isPowerOfTwo(nLat) || depth > 31 || (1 << (depth - 1)) != nLat) {
    btkLogger.log(BTK_WARNING, "GgTerrain: a %d x %d grid does not split into single cells in %d levels (%s)",
                  nLat, nLon, depth, basePath.c_str());
  }
  return true;
}

bool GgTerrain::readGridPoints(GgFile& file, const std::string& basePath) {
  const uint64_t numPoints = static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols);
  if (numPoints * kBytesPerGridPoint > file.bytesLeft()) {
    btkLogger.log(BTK_ERROR,
                  "GgTerrain: %s.grd ends inside its grid points (%llu points need %llu bytes, %llu left)",
                  basePath.c_str(), static_cast<unsigned long long>(numPoints),
                  static_cast<unsigned long long>(numPoints * kBytesPerGridPoint),
                  static_cast<unsigned long long>(file.bytesLeft()));
    return false;
  }
  std::vector<uint8_t> bytes(static_cast<size_t>(numPoints * kBytesPerGridPoint));
  if (!file.read(bytes.data(), bytes.size())) {
    btkLogger.log(BTK_ERROR, "GgTerrain: couldn't read the grid points of %s.grd", basePath.c_str());
    return false;
  }
  points.resize(static_cast<size_t>(numPoints));
  for (size_t i = 0; i < points.size(); ++i) {
    float values[3];
    for (int k = 0; k < 3; ++k) {
      const uint32_t u = btkLoadLittleU32(&bytes[i * kBytesPerGridPoint + 4 * k]);
      memcpy(&values[k], &u, sizeof u);
    }
    if (!std::isfinite(values[0]) || !std::isfinite(values[1]) || !std::isfinite(values[2])) {
      btkLogger.log(BTK_ERROR, "GgTerrain: grid point %zu of %s.grd is not a number", i, basePath.c_str());
      points.clear();
      return false;
    }
    const int32_t index = static_cast<int32_t>(i);
    double p[3];
    ggEarthPoint(rowLatitude(index), colLongitude(index), values[0], p);
    points[i] = GgGridPoint{static_cast<float>(p[0] - centre[0]),
                            static_cast<float>(p[1] - centre[1]),
                            static_cast<float>(p[2] - centre[2]),
                            values[0],
                            values[1],
                            values[2]};
  }
  return true;
}

bool GgTerrain::readTextureConfig(const std::string& path) {
  std::ifstream in(path);
  if (!in) {
    fputs("couldn't open config file!\n", stderr);
    return false;
  }
  static const char* const kFormats[] = {"rgb16", "rgba16", "rgb24", "rgba32", "DXT1", "DXT3", "DXT5"};
  std::string texturePath, format;
  int size = 0;
  char line[256];
  // A line longer than 255 characters fails the stream and ends the reading.
  while (in.getline(line, sizeof line)) {
    char key[256], value[256];
    if (sscanf(line, "%255s = %255s", key, value) != 2) continue;
    if (strcmp(key, "path") == 0) {
      if (value[0] == '/') {
        texturePath = value;
      } else {
        const size_t slash = path.find_last_of('/');
        texturePath = (slash == std::string::npos ? std::string(".") : path.substr(0, slash)) + "/" + value;
      }
      fprintf(stderr, "tex_path_ = %s\n", texturePath.c_str());
    } else if (strcmp(key, "format") == 0) {
      if (std::find_if(std::begin(kFormats), std::end(kFormats),
                       [&](const char* f) { return strcmp(f, value) == 0; }) == std::end(kFormats)) {
        fprintf(stderr, "warning: invalid pixel format: %signored\n", value);
      } else {
        format = value;
      }
    } else if (strcmp(key, "size") == 0) {
      size = atoi(value);
    }
  }
  if (texturePath.empty()) {
    fputs("error: missing texture path!\n", stderr);
    return false;
  }
  if (size <= 0) {
    fputs("error: missing texture size!\n", stderr);
    return false;
  }
  texPath = texturePath;
  texFormat = format;
  texHalfSize = size / 2;
  texConfigPresent = true;
  return true;
}

double GgTerrain::getElevation(double lat, double lon, double resolution) {
  GgTriangle& q = ownTriangle_;
  if (q.resolutionLimit > resolution) {
    q.resolutionLimit = static_cast<float>(resolution);
    q.tile.reset(nullptr);
  }
  if (q.tile && q.tile->findTriangle(lat, lon, q)) return q.height;
  q.tile.reset(nullptr);
  if (root_ && root_->findTriangle(lat, lon, q)) return q.height;
  return DBL_MAX;
}

template <class Visit>
GgTinTile* GgTerrain::forNeighbourhood(double lat, double lon, int radius, Visit visit) {
  if (radius < 0 || !root_) return nullptr;
  GgTinTile* centreTile = nullptr;
  for (int i = -radius; i <= radius; ++i) {
    for (int j = -radius; j <= radius; ++j) {
      GgTinTile* tile = root_->findTile(lat + i * dLat, lon + j * dLon);
      if (!tile) continue;
      visit(tile);
      if (i == 0 && j == 0) centreTile = tile;
    }
  }
  return centreTile;
}

GgTinTile* GgTerrain::getTile(double lat, double lon, double resolution, int radius) {
  return forNeighbourhood(lat, lon, radius, [&](GgTinTile* tile) {
    if (tile->loaded_level < 0 || tile->loaded_level < tile->levelForResolution(resolution))
      requestTile(tile, resolution);
  });
}

int GgTerrain::takeBackRequest(GgTinTile* tile, bool& took) {
  took = false;
  if (tile->state != GgTinTile::kQueued) return -1;
  int level = -1;
  BtkRef<GgDataRequest> request = reader_->takeBack(tile);
  if (request) {
    took = true;
    level = request->level;
    // A request that the reader thread has executed brings its data along.
    if (request->status == GgDataRequest::kDone && level > tile->loaded_level && tile->numLevels() > 0) {
      tile->calcVertices(tile->loaded_level + 1, std::min(level, tile->numLevels() - 1));
      ggAddMemSize(request->bytesRead);
    }
  }
  tile->state = tile->loaded_level < 0 ? GgTinTile::kNotLoaded : GgTinTile::kLoaded;
  return level;
}

void GgTerrain::loadLevels(GgTinTile* tile, int maxLevel, int lastConverted) {
  const int32_t bytes = reader_->readTile(tile, maxLevel);
  if (bytes > 0) {
    tile->calcVertices(tile->loaded_level + 1, std::min(lastConverted, tile->numLevels() - 1));
    tile->state = GgTinTile::kLoaded;
    ggAddMemSize(bytes);
  } else if (tile->failed) {
    tile->state = GgTinTile::kLoaded;  // nothing more will come: the cleanup may take it
  }
}

void GgTerrain::requestTile(GgTinTile* tile, double resolution) {
  if (!tile || !reader_) return;
  reader_->lock();
  bool took = false;
  const int taken = takeBackRequest(tile, took);
  if ((took && taken < 0) || tile->state == GgTinTile::kNotLoaded) {
    loadLevels(tile, 0, 0);
    tile->state = GgTinTile::kLoaded;
  }
  int target = std::max(tile->levelForResolution(resolution), took ? taken : -1);
  target = std::min(target, tile->numLevels() - 1);
  if (tile->loaded_level < target) loadLevels(tile, target, target);
  reader_->unlock();
}

GgTinTile* GgTerrain::loadTilesAround(double lat, double lon, int radius) {
  return forNeighbourhood(lat, lon, radius, [&](GgTinTile* tile) {
    if (tile->state == GgTinTile::kLoaded && tile->loaded_level >= tile->numLevels() - 1) return;
    reader_->lock();
    bool took = false;
    takeBackRequest(tile, took);
    if (tile->levels.empty() || tile->loaded_level < tile->numLevels() - 1)
      loadLevels(tile, kAllLevels, kAllLevels);
    reader_->unlock();
  });
}

void GgTerrain::cleanup() {
  if (!(cleanupTimer_.elapsedMs() > kCleanupIntervalMs &&
        static_cast<double>(memSize()) > static_cast<double>(maxMemSize()) * 0.5))
    return;
  const double t0 = btkWallClockMs();
  const int32_t age = memSize() > maxMemSize() ? kTileAgeOverLimitSeconds : kTileAgeSeconds;
  const int32_t timeLimit = static_cast<int32_t>(btkCalendarSeconds() - age);
  ggResetVisitCount();
  if (root_) root_->cleanup(timeLimit);
  cleanupTimer_.lapMs();
  const int percent = static_cast<int>(static_cast<double>(memSize()) * 100.0 / maxMemSize());
  btkDebug() << "GgTerrain: cleanup, t_limit = " << timeLimit << ", memsize = " << memSize() << "(" << percent
             << "%)"
             << ", num = " << ggVisitCount() << ", t = " << (btkWallClockMs() - t0) << btkFlush;
}
