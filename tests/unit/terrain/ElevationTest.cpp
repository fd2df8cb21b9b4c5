// Heights, triangles and normals from sceneries whose true answer is known, and the tile cache that
// holds them: byte accounting, the age-based cleanup under a manual clock, the reader thread's hand-over.
#include <cmath>

#include "TerrainTestSupport.h"
#include "terrain/GgCounters.h"
#include "terrain/GgTile.h"
#include "toolkit/BtkClock.h"

namespace {

// The inclined plane, written out again from its definition: h0 at 46 N 7 E, rising at slopeDeg towards
// bearingDeg, east distances at 46 N.
struct Plane {
  double h0, slopeDeg, bearingDeg;
  double at(double lat, double lon) const {
    const double metres = 2.0 * M_PI * 6378000.0 / 360.0, rise = std::tan(slopeDeg * M_PI / 180.0);
    const double north = (lat - 46.0) * metres, east = (lon - 7.0) * metres * std::cos(46.0 * M_PI / 180.0);
    return h0 + rise * (std::cos(bearingDeg * M_PI / 180) * north + std::sin(bearingDeg * M_PI / 180) * east);
  }
  auto source() const { return qvscenery::makePlane(h0, slopeDeg, bearingDeg, {46.0, 7.0}); }
};

struct Scenery {
  const char* name;
  Plane plane;
  // Blocks per side; TIN levels, 0 for a block without TIN files. A grid file's bytes: before 1.2, 64
  // reserved after the fixed header of 52; 1.2 has text fields padded to an even length instead (the
  // description and "qvscenery"); then 5 x 5 points of 12 bytes.
  int blocks, tinLevels, formatMinor, gridBytes;
  bool spread;  // triangles spread over every index group and primitive type
};

// Every half cell: grid points (cell corners, block edges, quadtree mid lines), edge midpoints and cell
// centres; and an off-centre point per cell.
std::vector<std::pair<double, double>> probePoints(const GgTerrain& b) {
  std::vector<std::pair<double, double>> points;
  for (int i = 0; i <= 2 * b.nLat; ++i)
    for (int j = 0; j <= 2 * b.nLon; ++j) {
      points.emplace_back(b.minLat + i * b.dLat / 2, b.minLon + j * b.dLon / 2);
      if (i % 2 && j % 2)
        points.emplace_back(b.minLat + (i - 0.54) * b.dLat / 2, b.minLon + (j + 0.42) * b.dLon / 2);
    }
  return points;
}

// A point on a mid line goes to the southern or western cell; on the edge between blocks the first block
// in the sorted listing answers: the southern or western one.
void expectMidLinesAndBlockEdgesGoSouthAndWest(GgTerrainGroup* group, const GgTerrain* sw) {
  // The block's middle, as the reader has it.
  const double midLat = sw->rowLatitude(2 * sw->cols), midLon = sw->colLongitude(2);
  // clang-format off
  const struct { double lat, lon; int block, cellRow, cellCol; } cases[] = {
      {midLat, midLon, 0, 1, 1}, {midLat, 7.023, 0, 1, 2}, {sw->maxLat, 7.013, 0, 3, 1},
      {46.027, sw->maxLon, 0, 2, 3}, {sw->maxLat, sw->maxLon, 0, 3, 3}, {sw->maxLat + 1e-9, 7.013, 2, 0, 1}};
  // clang-format on
  for (const auto& c : cases) {
    GgTinTile* tile = group->getTile(c.lat, c.lon, 10.0, 0);
    ASSERT_NE(tile, nullptr);
    EXPECT_EQ(tile->block, group->block(c.block)) << c.lat << ", " << c.lon;
    EXPECT_EQ(tile->cellRow * 10 + tile->cellCol, c.cellRow * 10 + c.cellCol) << c.lat << ", " << c.lon;
  }
}

class AnalyticScenery : public testing::TestWithParam<Scenery> {};

// Grid triangles are exact over a plane up to the grid's float heights; TIN heights are whole metres.
TEST_P(AnalyticScenery, EveryPointAnswersThePlaneAtEveryLevelWithItsNormal) {
  const Scenery& p = GetParam();
  TempDir dir;
  qvscenery::Options o = smallScenery(dir.path("s"), p.blocks, p.blocks);
  std::tie(o.tin, o.tinLevels, o.versionMinor, o.spread) =
      std::tuple(p.tinLevels > 0, std::max(p.tinLevels, 1), p.formatMinor, p.spread);
  EXPECT_EQ(readText(build(o, *p.plane.source()).at(0) + ".grd").size(), static_cast<size_t>(p.gridBytes));
  BtkRef<GgTerrainGroup> group = loadScenery(dir.path("s"));
  ASSERT_EQ(group->numBlocks(), static_cast<size_t>(p.blocks * p.blocks));
  const GgTerrain* sw = group->block(0);  // every header form leads the reader to the same points
  EXPECT_EQ(std::tuple(sw->minLat, sw->maxLon, sw->rows, sw->depth), std::tuple(46.0, 7.0 + 4 * 0.01, 5, 3));
  const double s = std::sin(p.plane.slopeDeg * M_PI / 180), b = p.plane.bearingDeg * M_PI / 180;
  const double normal[3] = {-s * std::cos(b), -s * std::sin(b), -std::cos(p.plane.slopeDeg * M_PI / 180)};
  auto expectNormal = [&](GgTriangle& t) {
    t.calcNormal();
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(t.localNormal[i], normal[i], 0.01);
  };
  for (size_t k = 0; k < group->numBlocks(); ++k)  // before any tile is loaded: the grid answers
    for (const auto& [lat, lon] : probePoints(*group->block(k)))
      EXPECT_NEAR(group->getElevation(lat, lon, 0.0), p.plane.at(lat, lon), 2e-3) << lat << ", " << lon;
  if (p.blocks == 2) expectMidLinesAndBlockEdgesGoSouthAndWest(group.get(), sw);
  for (size_t k = 0; k < group->numBlocks(); ++k)
    for (const auto& [lat, lon] : probePoints(*group->block(k))) {
      SCOPED_TRACE(testing::Message() << lat << ", " << lon);
      GgTriangle t;
      GgTinTile* tile = group->getTile(lat, lon, 10.0, 0);
      EXPECT_NEAR(group->getElevation(lat, lon, 0.0), p.plane.at(lat, lon), 0.6);
      ASSERT_EQ(tile != nullptr, p.tinLevels > 0);
      if (!tile) {  // the root's grid triangles answer
        ASSERT_TRUE(group->blockAt(lat, lon)->root()->findTriangle(lat, lon, t));
        expectNormal(t);
        continue;
      }
      for (int level = 0; level < p.tinLevels; ++level) {
        t.wantedLevel = level;
        ASSERT_TRUE(tile->findTriangle(lat, lon, t) && t.level == level) << level << " " << t.level;
        EXPECT_NEAR(t.height, p.plane.at(lat, lon), 0.6);
        for (int32_t v : t.vertices) EXPECT_LE(static_cast<uint32_t>(v), tile->levels[level].lastVertex);
      }
      expectNormal(t);  // the finest level's triangle
      double fromFile[3];
      tile->vertexNormal(t.vertices[0], fromFile);
      for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(fromFile[i], p.formatMinor == 0 ? (i == 2 ? -1.0 : 0.0) : normal[i], 1.5 / 127);
      // Halfway to the triangle's centroid: the fast path answers from the same triangle, no new normal.
      const int32_t found[3] = {t.vertices[0], t.vertices[1], t.vertices[2]};
      double u = 0, v = 0;
      for (int32_t i : found)
        u += tile->lonFractions[i] / 65535.0 / 3, v += tile->latFractions[i] / 65535.0 / 3;
      const double nearLat = (lat + tile->south + v * (tile->north - tile->south)) / 2;
      const double nearLon = (lon + tile->west + u * (tile->east - tile->west)) / 2;
      ASSERT_TRUE(tile->findTriangle(nearLat, nearLon, t));
      EXPECT_TRUE(std::equal(found, found + 3, t.vertices) && t.normalStale == 0);
      EXPECT_NEAR(t.height, p.plane.at(nearLat, nearLon), 0.6);
    }
}

INSTANTIATE_TEST_SUITE_P(Terrain, AnalyticScenery,
                         // "plane 35 0 0" takes 14 bytes (a pad after its end), "plane 1200 15 300" 18
                         testing::Values(Scenery{"Flat", {35, 0, 0}, 2, 3, 2, 396, false},
                                         Scenery{"PlaneFormat11", {1000, 10, 60}, 2, 3, 1, 416, false},
                                         Scenery{"SpreadFourLevels", {1200, 15, 300}, 1, 4, 2, 400, true},
                                         Scenery{"FormatWithoutNormals", {900, 20, 45}, 1, 3, 0, 416, false},
                                         Scenery{"GridOnly", {600, 12, 120}, 1, 0, 1, 416, false}),
                         [](const auto& info) { return std::string(info.param.name); });

// Waves of 6 km: the root's two triangles miss them by far, three TIN levels by a few metres.
struct TileCache : testing::Test {
  void SetUp() override {
    btkSetClockSource(&clock_);  // before any block starts its cleanup timer
    build(smallScenery(dir_.path("s")), *hills_);
  }
  void TearDown() override { btkSetClockSource(nullptr); }
  BtkManualClock clock_;
  TempDir dir_;
  const std::unique_ptr<qvscenery::ElevationSource> hills_ = qvscenery::makeHills(500, 300, 6000, {46, 7});
};

// A fresh block has its root alone: one of the root's two grid triangles over the block's corners
// answers, until the tiles are loaded.
TEST_F(TileCache, HeightComesFromTheRootBeforeLoadingAndFromTheFinestTinAfter) {
  BtkRef<GgTerrainGroup> group = loadScenery(dir_.path("s"));
  auto corner = [&](double lat, double lon) { return double{static_cast<float>(hills_->height(lat, lon))}; };
  // v > u: the north-western triangle.
  const double lat = 46.023, lon = 7.007, u = (lon - 7.0) / 0.04, v = (lat - 46.0) / 0.04;
  const double sw = corner(46.0, 7.0), nw = corner(46.04, 7.0), ne = corner(46.04, 7.04);
  const double overRoot = sw + (ne - nw) * u + (nw - sw) * v, truth = hills_->height(lat, lon);
  ASSERT_GT(std::abs(overRoot - truth), 20.0);
  EXPECT_NEAR(group->getElevation(lat, lon, 0.0), overRoot, 1e-3);
  group->loadTilesAround(lat, lon, 0);
  EXPECT_NEAR(group->getElevation(lat, lon, 0.0), truth, 3.0);
}

TEST_F(TileCache, TilesAddTheirBytesAndGiveEveryByteBack) {
  const int32_t before = memSize(), tiles = ggTinTileCount() + ggQuadTileCount();
  BtkRef<GgTerrainGroup> group = loadScenery(dir_.path("s"));
  ASSERT_NE(group->loadTilesAround(46.005, 7.005, 0), nullptr);
  // Three levels over 5 x 5 vertices: 25 read (9 bytes each) and converted (20 bytes each); the indices
  // of a fan of 6, two strips of 6 and four strips of 10, 2 bytes each; the root, a quad node and the tile.
  EXPECT_EQ(memSize() - before, 25 * 9 + 25 * 20 + (6 + 2 * 6 + 4 * 10) * 2 + 3 * kGgTileObjectBytes);
  EXPECT_EQ(ggTinTileCount() + ggQuadTileCount() - tiles, 3);
  group = nullptr;
  EXPECT_EQ(memSize(), before);  // every object and every byte
}

// Cleanup runs at most every 20 s and only above half of maxMemSize; it frees tiles unused for more
// than 300 s, or 150 s above maxMemSize, that no triangle holds. A query counts as a use.
TEST_F(TileCache, CleanupFreesTilesByAgeMemoryAndUse) {
  // clang-format off
  // Times in seconds after loading; 0 for none.
  const struct { int32_t megabytes; int queryAt, earlierRunAt, runAt; bool held, freed; } cases[] = {
      {10, 0, 0, 400, false, false}, {20, 0, 0, 300, false, false}, {20, 0, 0, 301, false, true},
      {20, 250, 0, 351, false, false}, {20, 0, 0, 400, true, false}, {31, 0, 0, 150, false, false},
      {31, 0, 0, 151, false, true}, {31, 0, 140, 155, false, false}, {31, 0, 140, 161, false, true}};
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.megabytes << " MB, run at " << c.runAt << " s");
    BtkRef<GgTerrainGroup> group = loadScenery(dir_.path("s"));
    GgTinTile* tile = group->loadTilesAround(46.015, 7.015, 0);
    ASSERT_NE(tile, nullptr);
    const int32_t tins = ggTinTileCount(), ballast = c.megabytes * 1000000 - memSize();
    ggAddMemSize(ballast);  // as if other tiles were loaded
    GgTriangle t;
    EXPECT_TRUE(!c.held || tile->findTriangle(46.015, 7.015, t));
    for (int now = 0; int at : {c.queryAt, c.earlierRunAt, c.runAt}) {
      if (at == 0) continue;
      clock_.advanceSeconds(at - std::exchange(now, at));
      GgTriangle query;  // gone at once: only its stamp on the tile stays
      EXPECT_TRUE(at != c.queryAt || tile->findTriangle(46.015, 7.015, query));
      if (at != c.queryAt) group->cleanup();
    }
    EXPECT_EQ(ggTinTileCount(), c.freed ? tins - 1 : tins);
    ggAddMemSize(-ballast);
  }
}

}  // namespace
