#include "terrain/GgTinTile.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "terrain/GgConstants.h"
#include "terrain/GgCounters.h"
#include "terrain/GgDataReader.h"
#include "terrain/GgFile.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr double kFractionScale = 65535.0;   // a vertex fraction of 65535 lies on the north or east edge
constexpr uint32_t kBytesPerVertexRead = 9;  // lat, lon, height (2 each) and 3 normal bytes
constexpr uint32_t kBytesPerVertexConverted = 20;  // position (12) and texture coordinates (8)

bool readGroup(GgFile& file, GgIndexGroup& group, uint32_t& maxIndex, const char** why) {
  uint16_t numPrimitives = 0;
  if (!file.getU16(numPrimitives)) {
    *why = "the file ends inside an index group";
    return false;
  }
  if (static_cast<uint64_t>(numPrimitives) * 4 > file.bytesLeft()) {
    *why = "an index group counts more primitives than the file holds";
    return false;
  }
  for (uint16_t p = 0; p < numPrimitives; ++p) {
    uint16_t count = 0, type = 0;
    if (!file.getU16(count) || !file.getU16(type)) {
      *why = "the file ends inside a primitive";
      return false;
    }
    if (static_cast<uint64_t>(count) * 2 > file.bytesLeft()) {
      *why = "a primitive counts more indices than the file holds";
      return false;
    }
    if (type < GgIndexArray::kStrip || type > GgIndexArray::kTriangles) {
      btkLogger.log(BTK_ERROR, "GgLevel: Illegal graphics primitive type!");
      file.skip(static_cast<uint64_t>(count) * 2);  // the primitive gets no index array
      continue;
    }
    if (count == 0) continue;  // draws nothing and holds nothing
    GgIndexArray array;
    array.count = count;
    array.mode = type;
    array.indices.resize(count);
    for (uint16_t& index : array.indices) {
      file.getU16(index);  // the count was checked against the bytes left
      maxIndex = std::max<uint32_t>(maxIndex, index);
    }
    group.push_back(std::move(array));
  }
  return true;
}

// Truncation towards zero of a fraction that lies in [0, 65535] for any point inside the cell; a grid
// with steps near the largest double can overflow the product, hence the bounds.
int32_t quantise(double fraction) {
  if (!(fraction > 0.0)) return 0;
  return fraction < kFractionScale ? static_cast<int32_t>(fraction) : static_cast<int32_t>(kFractionScale);
}

uint32_t groupIndexBytes(const GgIndexGroup& group) {
  uint32_t bytes = 0;
  for (const GgIndexArray& array : group) bytes += 2u * array.count;
  return bytes;
}

}  // namespace

bool GgLevel::read(GgFile& file, uint32_t numVertices, const char** why) {
  if (!file.getU8(A) || !file.getU8(B)) {
    *why = "the file ends inside a level record";
    return false;
  }
  uint32_t maxIndex = 0;
  if (!readGroup(file, groups[1], maxIndex, why) || !readGroup(file, groups[2], maxIndex, why)) return false;
  list3.resize(A);
  for (GgIndexGroup& group : list3)
    if (!readGroup(file, group, maxIndex, why)) return false;
  list4.resize(B);
  for (GgIndexGroup& group : list4)
    if (!readGroup(file, group, maxIndex, why)) return false;
  for (int g = 5; g <= 8; ++g)
    if (!readGroup(file, groups[g], maxIndex, why)) return false;
  if (!file.getU32(lastVertex)) {
    *why = "the file ends inside a level record";
    return false;
  }
  if (lastVertex >= numVertices) {
    *why = "a level's last vertex is past the vertex block";
    return false;
  }
  if (maxIndex > lastVertex) {
    *why = "a vertex index is past the level's last vertex";
    return false;
  }
  return true;
}

uint32_t GgLevel::indexBytes() const {
  uint32_t bytes = 0;
  for (int g : {1, 2, 5, 6, 7, 8}) bytes += groupIndexBytes(groups[g]);
  for (const GgIndexGroup& group : list3) bytes += groupIndexBytes(group);
  for (const GgIndexGroup& group : list4) bytes += groupIndexBytes(group);
  return bytes;
}

GgTinTile::GgTinTile(GgTerrain* block, GgTile* parent, int childIndex, int32_t depth,
                     const int32_t corners[4])
    : GgTile(block, parent, childIndex, depth, corners) {
  cellRow = corners[kSW] / block->cols;
  cellCol = corners[kSW] % block->cols;
  cellSlot = block->nLon * cellRow + cellCol;
  tileRow = static_cast<uint16_t>(cellRow);
  tileCol = static_cast<uint16_t>(cellCol);
  ggEarthPoint((south + north) * 0.5, (west + east) * 0.5, heightValue, origin);
  const double h = (north - south) * METRES_PER_DEGREE;
  const double w = (east - west) * METRES_PER_DEGREE * std::cos((south + north) * 0.5 * kGgRadiansPerDegree);
  boundingRadius = static_cast<float>(0.5 * std::sqrt(h * h + w * w));
  block->setCellTile(cellSlot, this);
  ggCountTinTile(1);
  if (block->reader()) block->reader()->queueTileRequest(this, -1);
}

GgTinTile::~GgTinTile() {
  ggAddMemSize(-static_cast<int64_t>(bytesHeld));
  if (block && block->cellTile(cellSlot) == this) block->setCellTile(cellSlot, nullptr);
  ggCountTinTile(-1);
}

bool GgTinTile::mayDelete() {
  return released_ || (refCount() <= 1 && state == kLoaded);
}

GgTinTile* GgTinTile::findTile(double, double) {
  return this;
}

void GgTinTile::cleanup(int32_t) {}  // only renderer texture data would go here

void GgTinTile::detach() {
  if (block && block->cellTile(cellSlot) == this) block->setCellTile(cellSlot, nullptr);
  GgTile::detach();
}

int GgTinTile::levelForResolution(double resolution) const {
  const int numLevels = static_cast<int>(resolutions.size());
  if (numLevels == 0 || resolution > resolutions[0]) return 0;
  for (int k = 1; k < numLevels; ++k) {
    if (resolution > resolutions[static_cast<size_t>(k)]) {
      // The nearer of the two levels around the wanted resolution, the coarser on a tie.
      return resolutions[static_cast<size_t>(k - 1)] - resolution >
                     resolution - resolutions[static_cast<size_t>(k)]
                 ? k
                 : k - 1;
    }
  }
  return numLevels - 1;
}

bool GgTinTile::readVertices(GgFile& file, uint32_t lastIndex) {
  if (verticesLoaded >= numVertices || lastIndex < verticesLoaded) return true;
  if (lastIndex >= numVertices) return false;
  BtkLockGuard guard(lock);
  const uint32_t first = verticesLoaded;
  const uint32_t count = lastIndex + 1 - first;
  const uint64_t n = numVertices;
  std::vector<uint8_t> bytes(static_cast<size_t>(count) * 2);
  auto readArray = [&](uint64_t at, uint64_t width) {
    bytes.resize(static_cast<size_t>(count * width));
    return file.seek(vertexBlockPos + at) && file.read(bytes.data(), bytes.size());
  };
  std::vector<uint16_t> lats(count), lons(count);
  std::vector<int16_t> hs(count);
  std::vector<int8_t> normals(static_cast<size_t>(count) * 3, 0);
  if (!readArray(4 + 2 * static_cast<uint64_t>(first), 2)) return false;
  for (uint32_t i = 0; i < count; ++i) lats[i] = btkLoadLittleU16(&bytes[2 * i]);
  if (!readArray(4 + 2 * n + 2 * static_cast<uint64_t>(first), 2)) return false;
  for (uint32_t i = 0; i < count; ++i) lons[i] = btkLoadLittleU16(&bytes[2 * i]);
  if (!readArray(4 + 4 * n + 2 * static_cast<uint64_t>(first), 2)) return false;
  for (uint32_t i = 0; i < count; ++i) hs[i] = static_cast<int16_t>(btkLoadLittleU16(&bytes[2 * i]));
  // Without a normal block (version 1.0) those bytes belong to the levels and are never used.
  if (normalSize > 0) {
    if (!readArray(4 + 6 * n + 4 + 3 * static_cast<uint64_t>(first), 3)) return false;
    memcpy(normals.data(), bytes.data(), normals.size());
  }
  latFractions.insert(latFractions.end(), lats.begin(), lats.end());
  lonFractions.insert(lonFractions.end(), lons.begin(), lons.end());
  heights.insert(heights.end(), hs.begin(), hs.end());
  normalBytes.insert(normalBytes.end(), normals.begin(), normals.end());
  verticesLoaded = lastIndex + 1;
  bytesHeld += kBytesPerVertexRead * count;
  return true;
}

void GgTinTile::calcVertices(int first, int last) {
  if (last <= loaded_level) {
    btkError() << "GgTinTile::calcVertices(" << first << ", " << last << "), tile = (" << tileRow << ", "
               << tileCol << "), loaded_level = " << static_cast<int>(loaded_level) << btkFlush;
    return;
  }
  if (first < 0 || first > last || last >= numLevels() || !levels[static_cast<size_t>(last)].loaded) return;
  BtkLockGuard guard(lock);
  const uint32_t begin = first == 0 ? 0 : levels[static_cast<size_t>(first - 1)].lastVertex;
  const uint32_t end = levels[static_cast<size_t>(last)].lastVertex;
  if (end >= verticesLoaded) return;
  positions.resize(std::max<size_t>(positions.size(), 3 * (static_cast<size_t>(end) + 1)));
  texCoords.resize(std::max<size_t>(texCoords.size(), 2 * (static_cast<size_t>(end) + 1)));
  const double h = north - south, w = east - west;
  double sum = 0.0;
  uint32_t converted = 0;
  for (uint32_t i = begin; i <= end; ++i) {
    const double u = lonFractions[i] / kFractionScale, v = latFractions[i] / kFractionScale;
    double p[3];
    ggEarthPoint(south + v * h, west + u * w, heights[i], p);
    for (int k = 0; k < 3; ++k)
      positions[3 * static_cast<size_t>(i) + k] = static_cast<float>(p[k] - origin[k]);
    texCoords[2 * static_cast<size_t>(i)] = static_cast<float>(u);
    texCoords[2 * static_cast<size_t>(i) + 1] = static_cast<float>(v);
    sum += heights[i];
    ++converted;
  }
  heightValue = static_cast<float>((heightValue + sum) / (converted + 1));
  bytesHeld += kBytesPerVertexConverted * converted;
  ggAddMemSize(static_cast<int64_t>(kBytesPerVertexConverted) * converted);
  loaded_level = static_cast<int8_t>(last);
}

void GgTinTile::vertexNormal(int32_t index, double out[3]) {
  BtkLockGuard guard(lock);
  if (index >= 0 && normalSize > 0 && static_cast<uint32_t>(index) < verticesLoaded) {
    for (int k = 0; k < 3; ++k) out[k] = normalBytes[3 * static_cast<size_t>(index) + k] / 127.0;
    return;
  }
  out[0] = 0.0;
  out[1] = 0.0;
  out[2] = -1.0;
}

int GgTinTile::chooseLevel(const GgTriangle& t) const {
  if (t.wantedLevel >= 0) return t.wantedLevel;
  for (int k = 0; k < loaded_level; ++k) {
    if (t.resolutionLimit > resolutions[static_cast<size_t>(k)]) return k;
  }
  return loaded_level;
}

bool GgTinTile::inside(const int32_t v[3], int32_t qLat, int32_t qLon) const {
  int64_t x[3], y[3];
  for (int k = 0; k < 3; ++k) {
    x[k] = lonFractions[static_cast<size_t>(v[k])];
    y[k] = latFractions[static_cast<size_t>(v[k])];
  }
  // Edge functions of a counter-clockwise triangle; a point on an edge is inside.
  for (int k = 0; k < 3; ++k) {
    const int a = k, b = (k + 1) % 3;
    if ((x[b] - x[a]) * (qLat - y[a]) - (y[b] - y[a]) * (qLon - x[a]) < 0) return false;
  }
  return true;
}

bool GgTinTile::searchGroup(const GgIndexGroup& group, uint32_t, int32_t qLat, int32_t qLon,
                            int32_t found[3]) const {
  for (const GgIndexArray& array : group) {
    const std::vector<uint16_t>& v = array.indices;
    const size_t n = v.size();
    auto test = [&](int32_t a, int32_t b, int32_t c) {
      if (a == b || b == c || a == c) return false;
      const int32_t tri[3] = {a, b, c};
      if (!inside(tri, qLat, qLon)) return false;
      found[0] = a;
      found[1] = b;
      found[2] = c;
      return true;
    };
    switch (array.mode) {
      case GgIndexArray::kTriangles:
        for (size_t i = 0; i + 2 < n; i += 3)
          if (test(v[i], v[i + 1], v[i + 2])) return true;
        break;
      case GgIndexArray::kStrip:
        for (size_t i = 2; i < n; ++i)
          if (i % 2 == 0 ? test(v[i - 2], v[i - 1], v[i]) : test(v[i - 1], v[i - 2], v[i])) return true;
        break;
      case GgIndexArray::kFan:
        for (size_t i = 2; i < n; ++i)
          if (test(v[0], v[i - 1], v[i])) return true;
        break;
      default:
        break;
    }
  }
  return false;
}

bool GgTinTile::searchLevel(const GgLevel& level, int32_t qLat, int32_t qLon, int32_t found[3]) const {
  const uint32_t last = level.lastVertex;
  if (searchGroup(level.groups[1], last, qLat, qLon, found)) return true;
  if (searchGroup(level.groups[2], last, qLat, qLon, found)) return true;
  if (level.A > 0 && searchGroup(level.list3[static_cast<size_t>(std::min(level.A - 1, level.index))], last,
                                 qLat, qLon, found))
    return true;
  if (level.B > 0 && searchGroup(level.list4[static_cast<size_t>(std::min(level.B - 1, level.index))], last,
                                 qLat, qLon, found))
    return true;
  const int second = level.index == 0 ? 5 : 6, third = level.index == 0 ? 7 : 8;
  return searchGroup(level.groups[second], last, qLat, qLon, found) ||
         searchGroup(level.groups[third], last, qLat, qLon, found);
}

void GgTinTile::interpolate(GgTriangle& t, const int32_t v[3], int32_t qLat, int32_t qLon) const {
  double x[3], y[3], h[3];
  for (int k = 0; k < 3; ++k) {
    x[k] = lonFractions[static_cast<size_t>(v[k])];
    y[k] = latFractions[static_cast<size_t>(v[k])];
    h[k] = heights[static_cast<size_t>(v[k])];
  }
  const double d = (y[1] - y[2]) * (x[0] - x[2]) - (x[1] - x[2]) * (y[0] - y[2]);
  if (d == 0.0) {
    t.height = 0.0;
    return;
  }
  t.weights[0] = ((y[1] - y[2]) * (qLon - x[2]) + (x[2] - x[1]) * (qLat - y[2])) / d;
  t.weights[1] = ((y[2] - y[0]) * (qLon - x[2]) + (x[0] - x[2]) * (qLat - y[2])) / d;
  t.weights[2] = 1.0 - t.weights[0] - t.weights[1];
  t.height = t.weights[0] * h[0] + t.weights[1] * h[1] + t.weights[2] * h[2];
}

void GgTinTile::store(GgTriangle& t, int level, const int32_t v[3], int32_t qLat, int32_t qLon) {
  t.tile = this;
  t.level = level;
  t.resolution = resolutions[static_cast<size_t>(level)];
  for (int k = 0; k < 3; ++k) {
    t.vertices[k] = v[k];
    for (int c = 0; c < 3; ++c) t.positions[k][c] = positions[3 * static_cast<size_t>(v[k]) + c] + origin[c];
  }
  interpolate(t, v, qLat, qLon);
  t.normalStale = 1;
}

bool GgTinTile::findTriangle(double lat, double lon, GgTriangle& t) {
  if (!contains(lat, lon) || loaded_level < 0) return false;
  touch();
  if (north <= south || east <= west) return false;  // a cell without extent, only in a corrupt grid
  const int32_t qLon = quantise((lon - west) * kFractionScale / (east - west));
  const int32_t qLat = quantise((lat - south) * kFractionScale / (north - south));
  const int level = chooseLevel(t);
  if (level > loaded_level) return false;  // a wanted level that is not loaded can't answer
  BtkLockGuard guard(lock);
  if (t.tile.get() == this && t.level == level) {
    const uint32_t n = static_cast<uint32_t>(latFractions.size());
    const bool known = static_cast<uint32_t>(t.vertices[0]) < n && static_cast<uint32_t>(t.vertices[1]) < n &&
                       static_cast<uint32_t>(t.vertices[2]) < n;
    if (known && inside(t.vertices, qLat, qLon)) {
      interpolate(t, t.vertices, qLat, qLon);
      return true;
    }
  }
  int32_t found[3];
  if (!searchLevel(levels[static_cast<size_t>(level)], qLat, qLon, found)) return false;
  store(t, level, found, qLat, qLon);
  return true;
}
