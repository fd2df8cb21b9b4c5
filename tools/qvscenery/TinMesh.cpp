#include "TinMesh.h"

#include <algorithm>
#include <cmath>

namespace qvscenery {

namespace {

constexpr uint16_t kUnassigned = 0xffff;

// The slots that the search visits on a level, in its order: group 1, group 2, list 3, list 4, and the
// level's two late groups.
enum Slot { kGroup1, kGroup2, kList3, kList4, kLateA, kLateB, kNumSlots };

// List 3 is searched at entry min(A - 1, level): A = 1 on level 0, 2 on level 1 and the level number
// above, so both sides of that min occur. List 4 has one entry on every level (min(0, level) = 0).
int list3Size(int level) {
  return level == 0 ? 1 : level == 1 ? 2 : level;
}

IndexGroup& slotGroup(LevelMesh& mesh, int level, int slot) {
  switch (slot) {
    case kGroup1:
      return mesh.groups[1];
    case kGroup2:
      return mesh.groups[2];
    case kList3:
      return mesh.list3[static_cast<size_t>(std::min(list3Size(level) - 1, level))];
    case kList4:
      return mesh.list4[0];
    case kLateA:
      return mesh.groups[level == 0 ? 5 : 6];
    default:
      return mesh.groups[level == 0 ? 7 : 8];
  }
}

// One primitive holding the triangles (a, b, c) and (a, c, d) of a square or a single triangle when
// d is absent, in the given type; withDegenerate puts a triangle with two equal indices in front.
Primitive makePrimitive(uint16_t type, const std::vector<uint16_t>& corners, bool withDegenerate) {
  Primitive p;
  p.type = type;
  const uint16_t a = corners[0], b = corners[1], c = corners[2];
  const bool square = corners.size() == 4;
  const uint16_t d = square ? corners[3] : 0;
  switch (type) {
    case kTriangles:
      if (withDegenerate) p.indices = {a, a, c};
      p.indices.insert(p.indices.end(), {a, b, c});
      if (square) p.indices.insert(p.indices.end(), {a, c, d});
      break;
    case kFan:
      p.indices = withDegenerate ? std::vector<uint16_t>{a, a, b, c} : std::vector<uint16_t>{a, b, c};
      if (square) p.indices.push_back(d);
      break;
    case kStrip:
      // A strip's odd triangles swap their first two indices: (d, a, c) then (c, a, b) covers the
      // square a-b-c-d; two leading copies keep the parity when a degenerate start is wanted.
      if (square) {
        p.indices =
            withDegenerate ? std::vector<uint16_t>{d, d, d, a, c, b} : std::vector<uint16_t>{d, a, c, b};
      } else {
        p.indices = withDegenerate ? std::vector<uint16_t>{a, a, a, b, c} : std::vector<uint16_t>{a, b, c};
      }
      break;
  }
  return p;
}

}  // namespace

TinMesh::TinMesh(int numLevels, bool spread) {
  numLevels = std::clamp(numLevels, 1, kMaxLevels);
  finest_ = 1 << std::max(1, numLevels - 1);  // level 0 needs a centre vertex
  ids_.assign(static_cast<size_t>((finest_ + 1) * (finest_ + 1)), kUnassigned);
  levels_.resize(static_cast<size_t>(numLevels));
  for (int level = 0; level < numLevels; ++level) {
    addLevelVertices(level);
    LevelMesh& mesh = levels_[static_cast<size_t>(level)];
    mesh.lastVertex = static_cast<uint32_t>(vertices_.size() - 1);
    if (spread) {
      buildSpread(level, mesh);
    } else {
      buildPlain(level, mesh);
    }
  }
}

uint16_t TinMesh::fraction(int i) const {
  return static_cast<uint16_t>(std::lround(static_cast<double>(i) * 65535.0 / finest_));
}

void TinMesh::addLevelVertices(int level) {
  auto add = [this](int row, int col) {
    uint16_t& id = ids_[static_cast<size_t>(row * (finest_ + 1) + col)];
    if (id != kUnassigned) return;
    id = static_cast<uint16_t>(vertices_.size());
    vertices_.push_back(Vertex{row, col});
  };
  if (level == 0) {
    const int f = finest_, h = finest_ / 2;
    add(0, 0);
    add(0, f);
    add(f, 0);
    add(f, f);
    add(h, h);
    return;
  }
  const int step = finest_ >> level;
  for (int row = 0; row <= finest_; row += step)
    for (int col = 0; col <= finest_; col += step) add(row, col);
}

void TinMesh::buildPlain(int level, LevelMesh& mesh) const {
  const int f = finest_, h = finest_ / 2;
  if (level == 0) {
    Primitive fan;
    fan.type = kFan;
    fan.indices = {vertex(h, h), vertex(0, 0), vertex(0, f), vertex(f, f), vertex(f, 0), vertex(0, 0)};
    mesh.groups[1].push_back(fan);
    return;
  }
  const int step = finest_ >> level;
  for (int row = 0; row < finest_; row += step) {
    // North, south, north, south ...: counter-clockwise triangles along the row.
    Primitive strip;
    strip.type = kStrip;
    for (int col = 0; col <= finest_; col += step) {
      strip.indices.push_back(vertex(row + step, col));
      strip.indices.push_back(vertex(row, col));
    }
    mesh.groups[1].push_back(strip);
  }
}

void TinMesh::buildSpread(int level, LevelMesh& mesh) const {
  mesh.list3.resize(static_cast<size_t>(list3Size(level)));
  mesh.list4.resize(1);
  const int f = finest_, h = finest_ / 2;
  if (level == 0) {
    // The four triangles around the centre, one to each slot a level-0 search visits after group 2.
    const uint16_t c = vertex(h, h), sw = vertex(0, 0), se = vertex(0, f), ne = vertex(f, f),
                   nw = vertex(f, 0);
    slotGroup(mesh, level, kGroup1).push_back(Primitive{kTriangles, {}});  // empty: draws nothing
    slotGroup(mesh, level, kList3).push_back(makePrimitive(kTriangles, {sw, se, c}, true));
    slotGroup(mesh, level, kList4).push_back(makePrimitive(kStrip, {se, ne, c}, true));
    slotGroup(mesh, level, kLateA).push_back(makePrimitive(kFan, {ne, nw, c}, true));
    slotGroup(mesh, level, kLateB).push_back(makePrimitive(kTriangles, {nw, sw, c}, false));
    return;
  }
  const int step = finest_ >> level;
  const int squares = finest_ / step;
  for (int slot = 0; slot < kNumSlots; ++slot) slotGroup(mesh, level, slot).push_back(Primitive{kStrip, {}});
  static constexpr uint16_t kTypes[3] = {kTriangles, kStrip, kFan};
  for (int row = 0; row < squares; ++row) {
    for (int col = 0; col < squares; ++col) {
      const int q = row * squares + col;
      const int r = row * step, c = col * step;
      const std::vector<uint16_t> corners = {vertex(r, c), vertex(r, c + step), vertex(r + step, c + step),
                                             vertex(r + step, c)};  // sw, se, ne, nw
      if (squares * squares < kNumSlots) {
        // Too few squares to reach every slot: one triangle per primitive.
        for (int half = 0; half < 2; ++half) {
          const int t = 2 * q + half;
          const std::vector<uint16_t> triangle =
              half == 0 ? std::vector<uint16_t>{corners[0], corners[1], corners[2]}
                        : std::vector<uint16_t>{corners[0], corners[2], corners[3]};
          slotGroup(mesh, level, t % kNumSlots)
              .push_back(makePrimitive(kTypes[(t / kNumSlots + level) % 3], triangle, t % 2 == 1));
        }
        continue;
      }
      const uint16_t type = kTypes[(q / kNumSlots + level) % 3];
      slotGroup(mesh, level, (q + level) % kNumSlots).push_back(makePrimitive(type, corners, q % 2 == 1));
    }
  }
}

}  // namespace qvscenery
