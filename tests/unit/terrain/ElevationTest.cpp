// Heights, triangles and normals from sceneries whose true answer is known: flat ground, an inclined
// plane and smooth hills, written by the builder and read by the server's reader.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <set>

#include "TerrainTestSupport.h"
#include "terrain/GgScenery.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTerrainGroup.h"
#include "terrain/GgTile.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"

using namespace terrain_test;

namespace {

BtkRef<GgTerrainGroup> loadScenery(const std::string& dir) {
  BtkRef<GgTerrainGroup> group;
  std::string name;
  testing::internal::CaptureStderr();
  EXPECT_TRUE(ggLoadScenery("", dir, group, name));
  testing::internal::GetCapturedStderr();
  return group;
}

BtkRef<GgTerrain> loadBlock(const std::string& base) {
  BtkRef<GgTerrain> block(new GgTerrain());
  testing::internal::CaptureStderr();
  EXPECT_TRUE(block->init(base, nullptr));
  testing::internal::GetCapturedStderr();
  return block;
}

// Points of every kind on a block: grid points (cell corners, block edges and corners, quadtree mid
// lines), cell edge midpoints, cell centres and an off-centre point per cell.
std::vector<std::pair<double, double>> probePoints(const GgTerrain& block) {
  std::vector<std::pair<double, double>> points;
  for (int r = 0; r <= block.nLat; ++r) {
    for (int c = 0; c <= block.nLon; ++c) {
      const int32_t index = r * block.cols + c;
      const double lat = block.rowLatitude(index), lon = block.colLongitude(index);
      points.emplace_back(lat, lon);
      if (r < block.nLat) points.emplace_back(lat + block.dLat * 0.5, lon);
      if (c < block.nLon) points.emplace_back(lat, lon + block.dLon * 0.5);
      if (r < block.nLat && c < block.nLon) {
        points.emplace_back(lat + block.dLat * 0.5, lon + block.dLon * 0.5);
        points.emplace_back(lat + block.dLat * 0.23, lon + block.dLon * 0.71);
      }
    }
  }
  return points;
}

// The height over a node's two grid triangles split south-west to north-east, from the corner heights.
double overGridTriangles(double sw, double se, double nw, double ne, double u, double v) {
  return v > u ? sw + (ne - nw) * u + (nw - sw) * v : sw + (se - sw) * u + (ne - se) * v;
}

}  // namespace

TEST(FlatTerrain, EveryPointOfEveryBlockAnswersTheHeight) {
  TempDir dir;
  qvscenery::Options o = smallScenery(dir / "flat");
  o.blocksNS = 2;
  o.blocksEW = 2;
  const auto flat = qvscenery::makeFlat(350.0);
  build(o, *flat);
  BtkRef<GgTerrainGroup> group = loadScenery(dir / "flat");
  ASSERT_EQ(group->numBlocks(), 4u);
  for (size_t b = 0; b < group->numBlocks(); ++b) {
    for (const auto& [lat, lon] : probePoints(*group->block(b))) {
      // Grid triangles: weights that sum to 1 within rounding.
      EXPECT_NEAR(group->getElevation(lat, lon, 0.0), 350.0, 1e-9) << lat << ", " << lon;
      GgTinTile* tile = group->loadTilesAround(lat, lon, 0);
      ASSERT_NE(tile, nullptr) << lat << ", " << lon;
      GgTriangle t;
      ASSERT_TRUE(tile->findTriangle(lat, lon, t)) << lat << ", " << lon;
      EXPECT_NEAR(t.height, 350.0, 1e-9);
      EXPECT_EQ(t.level, 2);
      EXPECT_NEAR(group->getElevation(lat, lon, 0.0), 350.0, 1e-9);
    }
  }
  EXPECT_EQ(group->getElevation(45.999, 7.01, 0.0), DBL_MAX);
  EXPECT_EQ(group->getElevation(46.01, group->maxLon + 1e-9, 0.0), DBL_MAX);
  EXPECT_EQ(group->getTile(46.01, 6.99, 10.0, 0), nullptr);
  EXPECT_EQ(group->loadTilesAround(46.09, 7.01, 0), nullptr);
}

TEST(PlaneTerrain, GridAndTinHeightsMatchThePlane) {
  TempDir dir;
  const Plane plane{1000.0, 10.0, 60.0, 46.0, 7.0};
  qvscenery::Options o = smallScenery(dir / "plane");
  o.blocksNS = 2;
  o.blocksEW = 2;
  build(o, *plane.source());
  BtkRef<GgTerrainGroup> group = loadScenery(dir / "plane");
  ASSERT_EQ(group->numBlocks(), 4u);
  // Before any tile is loaded the grid triangles answer: a linear surface is exact over them, up to
  // the grid's single-precision heights.
  for (size_t b = 0; b < group->numBlocks(); ++b) {
    for (const auto& [lat, lon] : probePoints(*group->block(b)))
      EXPECT_NEAR(group->getElevation(lat, lon, 0.0), plane.at(lat, lon), 2e-3) << lat << ", " << lon;
  }
  for (size_t b = 0; b < group->numBlocks(); ++b) {
    for (const auto& [lat, lon] : probePoints(*group->block(b))) {
      const double truth = plane.at(lat, lon);
      GgTinTile* tile = group->getTile(lat, lon, 10.0, 0);
      ASSERT_NE(tile, nullptr);
      GgTriangle t;
      ASSERT_TRUE(tile->findTriangle(lat, lon, t));
      // TIN heights are whole metres: half a metre, and the 16-bit quantisation of the point.
      EXPECT_NEAR(t.height, truth, 0.6) << lat << ", " << lon;
    }
  }
}

TEST(PlaneTerrain, MidLinesGoSouthAndWestAndBlockEdgesToTheFirstBlock) {
  TempDir dir;
  const Plane plane{800.0, 5.0, 200.0, 46.0, 7.0};
  qvscenery::Options o = smallScenery(dir / "plane");
  o.blocksNS = 2;
  o.blocksEW = 2;
  build(o, *plane.source());
  BtkRef<GgTerrainGroup> group = loadScenery(dir / "plane");
  GgTerrain* southWest = group->block(0);
  ASSERT_EQ(southWest->minLat, 46.0);
  ASSERT_EQ(southWest->minLon, 7.0);

  // The block's middle (grid point 2, 2) lies on both mid lines of the root and is a corner of four
  // cells; the south-west one, cell (1, 1), takes it.
  const int32_t middle = 2 * southWest->cols + 2;
  const double lat = southWest->rowLatitude(middle), lon = southWest->colLongitude(middle);
  GgTinTile* tile = southWest->root()->findTile(lat, lon);
  ASSERT_NE(tile, nullptr);
  EXPECT_EQ(tile->cellRow, 1);
  EXPECT_EQ(tile->cellCol, 1);
  // On the mid line between rows but inside a column: the southern cell of that column.
  tile = southWest->root()->findTile(lat, lon + 0.3 * southWest->dLon);
  ASSERT_NE(tile, nullptr);
  EXPECT_EQ(tile->cellRow, 1);
  EXPECT_EQ(tile->cellCol, 2);

  // On the edge between two blocks the first block in the group's order answers: the listing is
  // sorted, so the southern and the western block.
  const double edgeLat = southWest->maxLat, edgeLon = southWest->maxLon;
  EXPECT_EQ(group->blockAt(edgeLat, 7.01), southWest);
  EXPECT_EQ(group->blockAt(46.01, edgeLon), southWest);
  EXPECT_EQ(group->blockAt(edgeLat, edgeLon), southWest);
  EXPECT_EQ(group->blockAt(edgeLat + 1e-9, 7.01)->minLat, edgeLat);
  for (const auto& [pLat, pLon] :
       {std::pair{edgeLat, 7.013}, std::pair{46.027, edgeLon}, std::pair{edgeLat, edgeLon}}) {
    EXPECT_NEAR(group->getElevation(pLat, pLon, 0.0), plane.at(pLat, pLon), 2e-3);
    GgTriangle t;
    GgTinTile* edgeTile = group->getTile(pLat, pLon, 10.0, 0);
    ASSERT_NE(edgeTile, nullptr);
    EXPECT_EQ(edgeTile->block, southWest);
    ASSERT_TRUE(edgeTile->findTriangle(pLat, pLon, t));
    EXPECT_NEAR(t.height, plane.at(pLat, pLon), 0.6);
  }
}

TEST(TriangleSearch, EveryIndexGroupAndPrimitiveTypeAnswers) {
  TempDir dir;
  const Plane plane{1200.0, 15.0, 300.0, 46.0, 7.0};
  const auto source = plane.source();
  qvscenery::Options spread = smallScenery(dir / "spread");
  spread.single = true;
  spread.spread = true;
  spread.tinLevels = 4;
  qvscenery::Options plain = spread;
  plain.outDir = dir / "plain";
  plain.spread = false;
  BtkRef<GgTerrain> a = loadBlock(build(spread, *source).at(0));
  BtkRef<GgTerrain> b = loadBlock(build(plain, *source).at(0));

  // The spread file really uses every place the search looks: on level 0 list 3, list 4 and groups 5
  // and 7, above it groups 1, 2, 6 and 8 and both sides of list 3's min(A - 1, level); and all three
  // primitive types.
  {
    GgTinTile* tile = a->loadTilesAround(46.005, 7.005, 0);
    ASSERT_NE(tile, nullptr);
    std::set<int> types;
    bool list3Clamped = false, list3AtLevel = false;
    for (const GgLevel& level : tile->levels) {
      const int l = level.index;
      ASSERT_GT(level.A, 0);
      ASSERT_GT(level.B, 0);
      const auto& list3 = level.list3[static_cast<size_t>(std::min(level.A - 1, l))];
      const auto& list4 = level.list4[static_cast<size_t>(std::min(level.B - 1, l))];
      (level.A - 1 < l ? list3Clamped : list3AtLevel) = true;
      std::vector<const GgIndexGroup*> searched = {&list3, &list4, &level.groups[l == 0 ? 5 : 6],
                                                   &level.groups[l == 0 ? 7 : 8]};
      if (l > 0) searched.insert(searched.end(), {&level.groups[1], &level.groups[2]});
      for (const GgIndexGroup* group : searched) {
        EXPECT_FALSE(group->empty()) << "level " << l;
        for (const GgIndexArray& array : *group) types.insert(array.mode);
      }
    }
    EXPECT_TRUE(list3Clamped && list3AtLevel);
    EXPECT_EQ(types, (std::set<int>{GgIndexArray::kStrip, GgIndexArray::kFan, GgIndexArray::kTriangles}));
  }
  // Every triangle's centroid on every level: level 0 has four triangles around the cell centre,
  // level l >= 1 two per square of a 2^l x 2^l grid.
  for (int cell = 0; cell < 16; cell += 5) {
    const double south = 46.0 + (cell / 4) * 0.01, west = 7.0 + (cell % 4) * 0.01;
    GgTinTile* ta = a->loadTilesAround(south + 0.005, west + 0.005, 0);
    GgTinTile* tb = b->loadTilesAround(south + 0.005, west + 0.005, 0);
    ASSERT_TRUE(ta && tb);
    ASSERT_EQ(ta->loaded_level, 3);
    for (int level = 0; level < 4; ++level) {
      std::vector<std::pair<double, double>> centroids;  // (u, v) across the cell
      if (level == 0) {
        const double corners[5][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0, 0}};
        for (int k = 0; k < 4; ++k)
          centroids.emplace_back((corners[k][0] + corners[k + 1][0] + 0.5) / 3,
                                 (corners[k][1] + corners[k + 1][1] + 0.5) / 3);
      } else {
        const int n = 1 << level;
        const double s = 1.0 / n;
        for (int i = 0; i < n; ++i)
          for (int j = 0; j < n; ++j) {
            centroids.emplace_back(j * s + 2 * s / 3, i * s + s / 3);
            centroids.emplace_back(j * s + s / 3, i * s + 2 * s / 3);
          }
      }
      std::set<std::set<int32_t>> seen;
      for (const auto& [u, v] : centroids) {
        const double lat = south + v * 0.01, lon = west + u * 0.01;
        GgTriangle qa, qb;
        qa.wantedLevel = qb.wantedLevel = level;
        ASSERT_TRUE(ta->findTriangle(lat, lon, qa)) << "level " << level << " at " << u << ", " << v;
        ASSERT_TRUE(tb->findTriangle(lat, lon, qb));
        EXPECT_EQ(qa.level, level);
        EXPECT_NEAR(qa.height, plane.at(lat, lon), 0.6);
        EXPECT_DOUBLE_EQ(qa.height, qb.height);
        const std::set<int32_t> va(qa.vertices, qa.vertices + 3), vb(qb.vertices, qb.vertices + 3);
        EXPECT_EQ(va.size(), 3u);
        EXPECT_EQ(va, vb);  // the same triangle, wherever the file keeps it
        seen.insert(va);
        for (int k = 0; k < 3; ++k)
          EXPECT_LE(static_cast<uint32_t>(qa.vertices[k]), ta->levels[level].lastVertex);
      }
      EXPECT_EQ(seen.size(), centroids.size());  // a different triangle for every centroid
    }
  }
}

TEST(Normals, PlaneSlopeAndDirectionFromTrianglesAndVertices) {
  TempDir dir;
  const Plane plane{900.0, 20.0, 45.0, 46.0, 7.0};  // rising towards the north-east
  qvscenery::Options o = smallScenery(dir / "slope");
  o.single = true;
  o.versionMinor = 1;
  BtkRef<GgTerrain> block = loadBlock(build(o, *plane.source()).at(0));
  const double expectSlope = 20.0, expectFacing = -135.0;  // the normal leans downhill, to the south-west
  auto check = [&](GgTriangle& t, double slopeTolerance) {
    t.calcNormal();
    EXPECT_EQ(t.normalStale, 0);
    EXPECT_NEAR(std::hypot(t.normal[0], std::hypot(t.normal[1], t.normal[2])), 1.0, 1e-9);
    EXPECT_NEAR(std::acos(-t.localNormal[2]) * 180 / M_PI, expectSlope, slopeTolerance);
    EXPECT_NEAR(std::atan2(t.localNormal[1], t.localNormal[0]) * 180 / M_PI, expectFacing, 1.0);
  };
  GgTriangle grid;
  ASSERT_NE(block->getElevation(46.013, 7.021, 0.0), DBL_MAX);
  ASSERT_TRUE(block->root()->findTriangle(46.013, 7.021, grid));
  EXPECT_EQ(grid.level, -1);
  check(grid, 0.05);

  GgTinTile* tile = block->getTile(46.013, 7.021, 10.0, 0);
  ASSERT_NE(tile, nullptr);
  GgTriangle tin;
  ASSERT_TRUE(tile->findTriangle(46.013, 7.021, tin));
  EXPECT_EQ(tin.level, 2);
  EXPECT_EQ(tin.normalStale, 1);
  check(tin, 0.3);  // whole-metre heights over 278 m

  const double s = std::sin(20 * M_PI / 180), c = std::cos(20 * M_PI / 180), h = std::sqrt(0.5);
  for (int k = 0; k < 3; ++k) {
    double n[3];
    tile->vertexNormal(tin.vertices[k], n);
    EXPECT_NEAR(n[0], -s * h, 1.5 / 127);
    EXPECT_NEAR(n[1], -s * h, 1.5 / 127);
    EXPECT_NEAR(n[2], -c, 1.5 / 127);
  }
}

TEST(TriangleSearch, SecondQueryInTheSameTriangleTakesTheFastPath) {
  TempDir dir;
  const Plane plane{700.0, 8.0, 10.0, 46.0, 7.0};
  qvscenery::Options o = smallScenery(dir / "fast");
  o.single = true;
  BtkRef<GgTerrain> block = loadBlock(build(o, *plane.source()).at(0));
  GgTinTile* tile = block->loadTilesAround(46.0125, 7.0125, 0);
  ASSERT_NE(tile, nullptr);
  GgTriangle t;
  // Near the centroid of a finest-level triangle: lower triangle of the square at (2, 2) of 4 x 4.
  const double lat = 46.01 + 0.01 * (2 * 0.25 + 0.25 / 3), lon = 7.01 + 0.01 * (2 * 0.25 + 0.5 / 3);
  ASSERT_TRUE(tile->findTriangle(lat, lon, t));
  const int32_t first[3] = {t.vertices[0], t.vertices[1], t.vertices[2]};
  t.calcNormal();
  ASSERT_EQ(t.normalStale, 0);
  ASSERT_TRUE(tile->findTriangle(lat + 0.00002, lon + 0.00002, t));
  EXPECT_EQ(t.normalStale, 0);  // vertices kept: no new normal needed
  EXPECT_TRUE(std::equal(first, first + 3, t.vertices));
  EXPECT_NEAR(t.height, plane.at(lat + 0.00002, lon + 0.00002), 0.6);
  ASSERT_TRUE(tile->findTriangle(46.0105, 7.0195, t));  // another triangle of the same tile
  EXPECT_EQ(t.normalStale, 1);
  EXPECT_FALSE(std::equal(first, first + 3, t.vertices));
}

TEST(GridOnly, BlockWithoutTinAnswersFromItsGrid) {
  TempDir dir;
  const Plane plane{600.0, 12.0, 120.0, 46.0, 7.0};
  qvscenery::Options o = smallScenery(dir / "grid");
  o.single = true;
  o.tin = false;
  build(o, *plane.source());
  BtkRef<GgTerrainGroup> group = loadScenery(dir / "grid");
  ASSERT_EQ(group->numBlocks(), 1u);
  EXPECT_FALSE(group->block(0)->hasTin());
  for (const auto& [lat, lon] : probePoints(*group->block(0))) {
    EXPECT_NEAR(group->getElevation(lat, lon, 0.0), plane.at(lat, lon), 2e-3);
    EXPECT_EQ(group->getTile(lat, lon, 10.0, 1), nullptr);
  }
  LogCapture log(dir);
  GgTriangle t;
  bool ran = false;
  EXPECT_FALSE(ggFindTerrainTriangle(group.get(), 46.015, 7.025, t, 7, [&] { ran = true; }));
  EXPECT_FALSE(ran);
  EXPECT_TRUE(log.contains("[error]: findTerrainTriangle: Missing tile for 46.015000N, 7.025000E\n"));
}

TEST(GetElevation, FinestTinAfterLoadingAndRootTrianglesBefore) {
  TempDir dir;
  qvscenery::Options o = smallScenery(dir / "hills");
  o.single = true;
  o.tinLevels = 4;
  const qvscenery::LocalFrame frame{46.0, 7.0};
  const auto hills = qvscenery::makeHills(500.0, 300.0, 3000.0, frame);
  BtkRef<GgTerrain> block = loadBlock(build(o, *hills).at(0));
  const double lat = 46.023, lon = 7.007;
  // A fresh block has its root alone: one of the root's two triangles over the block's corners.
  auto corner = [&](double a, double b) {
    return static_cast<double>(static_cast<float>(hills->height(a, b)));
  };
  const double u = (lon - 7.0) / 0.04, v = (lat - 46.0) / 0.04;
  const double overRoot =
      overGridTriangles(corner(46.0, 7.0), corner(46.0, 7.04), corner(46.04, 7.0), corner(46.04, 7.04), u, v);
  const double truth = hills->height(lat, lon);
  ASSERT_GT(std::abs(overRoot - truth), 20.0);
  EXPECT_NEAR(block->getElevation(lat, lon, 0.0), overRoot, 1e-3);

  block->loadTilesAround(lat, lon, 0);
  EXPECT_NEAR(block->getElevation(lat, lon, 0.0), truth, 3.0);
}
