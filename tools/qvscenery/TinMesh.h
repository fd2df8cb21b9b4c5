// The triangulation that every cell's TIN shares: a regular grid per level of detail, coarsest first,
// with the vertices ordered so that each level uses a prefix of them. Level 0 is the four corners and
// the centre (four triangles); level l >= 1 is a grid of 2^l x 2^l squares, each split along its
// south-west to north-east diagonal. All triangles are counter-clockwise seen from above.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvscenery {

enum PrimitiveType : uint16_t { kStrip = 1, kFan = 2, kTriangles = 3 };

struct Primitive {
  uint16_t type = kTriangles;
  std::vector<uint16_t> indices;
};
using IndexGroup = std::vector<Primitive>;

struct LevelMesh {
  IndexGroup groups[9];  // groups 1, 2 and 5 to 8 of the level record
  std::vector<IndexGroup> list3, list4;
  uint32_t lastVertex = 0;  // the level uses vertices 0..lastVertex
};

class TinMesh {
 public:
  static constexpr int kMaxLevels = 8;  // 129 x 129 vertices: indices stay within 16 bits

  // spread: the triangles of each level go round every index group the level's search visits (1, 2,
  // the level's entries of lists 3 and 4, then 5 and 7 on level 0, 6 and 8 above) and every primitive
  // type, with degenerate triangles and empty primitives among them. Otherwise one fan on level 0
  // and one strip per row of squares above, all in group 1.
  TinMesh(int numLevels, bool spread);

  int finest() const { return finest_; }  // squares per side of the finest grid
  int numLevels() const { return static_cast<int>(levels_.size()); }
  struct Vertex {
    int row, col;  // on the finest grid, from the south-west corner
  };
  const std::vector<Vertex>& vertices() const { return vertices_; }
  const std::vector<LevelMesh>& levels() const { return levels_; }
  // The 16-bit fraction of a finest-grid row or column across the cell.
  uint16_t fraction(int i) const;

 private:
  uint16_t vertex(int row, int col) const { return ids_[static_cast<size_t>(row * (finest_ + 1) + col)]; }
  void addLevelVertices(int level);
  void buildPlain(int level, LevelMesh& mesh) const;
  void buildSpread(int level, LevelMesh& mesh) const;

  int finest_;
  std::vector<uint16_t> ids_;  // finest-grid position -> vertex index
  std::vector<Vertex> vertices_;
  std::vector<LevelMesh> levels_;
};

}  // namespace qvscenery
