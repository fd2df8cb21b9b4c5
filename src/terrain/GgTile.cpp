#include "terrain/GgTile.h"

#include <algorithm>
#include <cmath>

#include "terrain/GgConstants.h"
#include "terrain/GgCounters.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkClock.h"

namespace {

uint16_t placeAmongNodes(double mid, double minimum, double step, int32_t depthCount, int32_t depth) {
  const double nodeSize = step * std::ldexp(1.0, depthCount - depth - 1);
  const double place = nodeSize > 0.0 ? std::floor((mid - minimum) / nodeSize) : 0.0;
  if (!std::isfinite(place)) return 0;
  return static_cast<uint16_t>(std::clamp(place, 0.0, 65535.0));
}

}  // namespace

GgTile::GgTile(GgTerrain* block, GgTile* parent, int childIndex, int32_t depth, const int32_t corners[4])
    : parent(parent), childIndex(childIndex), block(block), depth(depth) {
  std::copy(corners, corners + 4, this->corners);
  south = block->rowLatitude(corners[kSW]);
  north = block->rowLatitude(corners[kNE]);
  west = block->colLongitude(corners[kSW]);
  east = block->colLongitude(corners[kNE]);
  tileRow = placeAmongNodes((south + north) * 0.5, block->minLat, block->dLat, block->depth, depth);
  tileCol = placeAmongNodes((west + east) * 0.5, block->minLon, block->dLon, block->depth, depth);
  float sum = 0.0f;
  for (int i = 0; i < 4; ++i) sum += block->point(corners[i]).height;
  heightValue = sum * 0.25f;
  touch();
  ggAddMemSize(kGgTileObjectBytes);
}

GgTile::~GgTile() {
  ggAddMemSize(-kGgTileObjectBytes);
}

void GgTile::touch() {
  lastAccess = static_cast<uint32_t>(btkCalendarSeconds());
}

void GgTile::detach() {
  parent.reset(nullptr);
  block = nullptr;
  released_ = true;
}

GgQuadTile::GgQuadTile(GgTerrain* block, GgTile* parent, int childIndex, int32_t depth,
                       const int32_t corners[4])
    : GgTile(block, parent, childIndex, depth, corners) {
  centre_ = (corners[kSW] + corners[kNE]) / 2;
  // The children's bounds come from the same grid rows and columns, so a point on the mid line is
  // inside the child that findTile picks, to the last bit.
  midLat_ = block->rowLatitude(centre_);
  midLon_ = block->colLongitude(centre_);
  boundingRadius = block->point(centre_).radius;
  ggCountQuadTile(1);
}

GgQuadTile::~GgQuadTile() {
  ggCountQuadTile(-1);
}

bool GgQuadTile::mayDelete() {
  if (released_) return true;
  ggCountVisit();
  if (refCount() > 1) return false;
  for (const auto& child : children_) {
    if (child && !child->mayDelete()) return false;
  }
  return true;
}

GgTile* GgQuadTile::getChild(int i) {
  if (i < 0 || i > 3) return nullptr;
  if (children_[i]) return children_[i].get();
  if (!block || depth >= block->depth - 1) return nullptr;
  // The child keeps corner i and takes the integer means towards the other three.
  int32_t childCorners[4];
  for (int j = 0; j < 4; ++j) childCorners[j] = (corners[i] + corners[j]) / 2;
  if (depth >= block->depth - 2) {
    if (!block->hasTin()) return nullptr;
    const int32_t row = childCorners[kSW] / block->cols;
    const int32_t col = childCorners[kSW] % block->cols;
    if (row >= block->nLat || col >= block->nLon) return nullptr;  // a tree too deep for its grid
    children_[i] = new GgTinTile(block, this, i, depth + 1, childCorners);
  } else {
    children_[i] = new GgQuadTile(block, this, i, depth + 1, childCorners);
  }
  return children_[i].get();
}

GgTinTile* GgQuadTile::findTile(double lat, double lon) {
  if (!contains(lat, lon)) return nullptr;
  const int quadrant = (lat <= midLat_ ? 0 : 2) + (lon <= midLon_ ? 0 : 1);  // south and west win
  GgTile* child = getChild(quadrant);
  return child ? child->findTile(lat, lon) : nullptr;
}

bool GgQuadTile::findTriangle(double lat, double lon, GgTriangle& t) {
  if (!block || !contains(lat, lon)) return false;
  touch();
  if (block->point(centre_).error > t.resolutionLimit) {
    for (const auto& child : children_) {
      if (child && child->findTriangle(lat, lon, t)) return true;
    }
  }
  return answerFromGrid(lat, lon, t);
}

bool GgQuadTile::answerFromGrid(double lat, double lon, GgTriangle& t) {
  const double s = lat - south, e = lon - west;
  const double h = north - south, w = east - west;
  // s/e > h/w without the division: e is 0 on the west edge.
  const bool upperLeft = s * w > h * e;
  const int32_t v[3] = {corners[kSW], upperLeft ? corners[kNE] : corners[kSE],
                        upperLeft ? corners[kNW] : corners[kNE]};
  double x[3], y[3], z[3];
  for (int k = 0; k < 3; ++k) {
    x[k] = block->colLongitude(v[k]) * METRES_PER_DEGREE;
    y[k] = block->rowLatitude(v[k]) * METRES_PER_DEGREE;
    z[k] = block->point(v[k]).height;
  }
  const double px = lon * METRES_PER_DEGREE, py = lat * METRES_PER_DEGREE;
  const double d = (y[1] - y[2]) * (x[0] - x[2]) - (x[1] - x[2]) * (y[0] - y[2]);
  if (d != 0.0) {
    t.weights[0] = ((y[1] - y[2]) * (px - x[2]) + (x[2] - x[1]) * (py - y[2])) / d;
    t.weights[1] = ((y[2] - y[0]) * (px - x[2]) + (x[0] - x[2]) * (py - y[2])) / d;
  } else {  // a node without extent, only in a tree deeper than its grid
    t.weights[0] = 1.0;
    t.weights[1] = 0.0;
  }
  t.weights[2] = 1.0 - t.weights[0] - t.weights[1];
  t.height = t.weights[0] * z[0] + t.weights[1] * z[1] + t.weights[2] * z[2];
  for (int k = 0; k < 3; ++k) {
    const GgGridPoint& p = block->point(v[k]);
    t.vertices[k] = v[k];
    t.positions[k][0] = p.x + block->centre[0];
    t.positions[k][1] = p.y + block->centre[1];
    t.positions[k][2] = p.z + block->centre[2];
  }
  t.level = -1;
  t.normalStale = 1;
  t.tile = this;
  t.resolution = block->point(centre_).error;
  return true;
}

void GgQuadTile::cleanup(int32_t timeLimit) {
  ggCountVisit();
  for (auto& child : children_) {
    if (!child) continue;
    if (static_cast<int32_t>(child->lastAccess) < timeLimit && child->mayDelete()) {
      child.reset(nullptr);  // the last reference: the child and its subtree go
    } else {
      child->cleanup(timeLimit);
    }
  }
}

void GgQuadTile::detach() {
  for (auto& child : children_) {
    if (!child) continue;
    child->detach();
    child.reset(nullptr);
  }
  GgTile::detach();
}
