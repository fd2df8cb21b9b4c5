// Reading the builder's block files back with the server's reader: the byte layout checked by hand,
// the block fields, the texture configuration, and the lazy loading of TIN tiles.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "TerrainTestSupport.h"
#include "terrain/GgDataReader.h"
#include "terrain/GgDataReaderThread.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTile.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"

using namespace terrain_test;
using testing::HasSubstr;

namespace {

uint16_t u16At(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint16_t>(b[at] | (b[at + 1] << 8));
}
uint32_t u32At(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint32_t>(b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) |
                               (static_cast<uint32_t>(b[at + 3]) << 24));
}
float f32At(const std::vector<uint8_t>& b, size_t at) {
  const uint32_t u = u32At(b, at);
  float f;
  memcpy(&f, &u, sizeof f);
  return f;
}
double f64At(const std::vector<uint8_t>& b, size_t at) {
  const uint64_t u = u32At(b, at) | (static_cast<uint64_t>(u32At(b, at + 4)) << 32);
  double d;
  memcpy(&d, &u, sizeof d);
  return d;
}

std::string singleBlock(const TempDir& dir, int major, int minor, double height, int tinLevels = 3,
                        const std::string& name = "scenery") {
  qvscenery::Options o = smallScenery(dir / name);
  o.single = true;
  o.versionMajor = major;
  o.versionMinor = minor;
  o.tinLevels = tinLevels;
  const auto flat = qvscenery::makeFlat(height);
  const auto paths = build(o, *flat);
  return paths.empty() ? std::string() : paths[0];
}

}  // namespace

TEST(GridFile, OlderVersionsHaveSixtyFourReservedBytesAfterTheFixedHeader) {
  TempDir dir;
  for (int minor : {0, 1}) {
    const std::string base = singleBlock(dir, 1, minor, 350.0);
    const auto bytes = readBytes(base + ".grd");
    // 52 bytes of fixed header, 64 reserved, then 5 x 5 points of 12 bytes.
    ASSERT_EQ(bytes.size(), 52u + 64u + 25u * 12u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "GGFX");
    EXPECT_EQ(u16At(bytes, 4), 1);
    EXPECT_EQ(u16At(bytes, 6), minor);
    EXPECT_EQ(f64At(bytes, 8), 46.0);
    EXPECT_EQ(f64At(bytes, 16), 7.0);
    EXPECT_EQ(f64At(bytes, 24), 0.01);
    EXPECT_EQ(u32At(bytes, 40), 4u);
    EXPECT_EQ(u32At(bytes, 44), 4u);
    EXPECT_EQ(u32At(bytes, 48), 3u);  // 4 = 2^2 cells need depth 3
    EXPECT_EQ(f32At(bytes, 116), 350.0f);
  }
}

TEST(GridFile, ExtendedHeaderPadsEveryTextFieldToAnEvenLength) {
  TempDir dir;
  // The builder describes a flat source as "flat <height>": 8 characters for 350 (zero byte and a
  // padding byte follow), 7 for 35 (the zero byte alone makes it even).
  const std::string even = singleBlock(dir, 1, 2, 350.0);
  auto bytes = readBytes(even + ".grd");
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[56])), "flat 350");
  EXPECT_EQ(bytes[64], 0);                                                         // the zero byte
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[66])), "qvscenery");  // after the padding byte
  // 52 + 4 + 10 + 10 + 16 header bytes, then the points.
  EXPECT_EQ(f32At(bytes, 92), 350.0f);
  EXPECT_EQ(bytes.size(), 92u + 25u * 12u);

  const std::string odd = singleBlock(dir, 1, 2, 35.0, 3, "odd");
  bytes = readBytes(odd + ".grd");
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[56])), "flat 35");
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[64])), "qvscenery");
  EXPECT_EQ(f32At(bytes, 90), 35.0f);
  EXPECT_EQ(bytes.size(), 90u + 25u * 12u);

  // And the server's reader finds the same points behind either header.
  for (const std::string& base : {even, odd}) {
    BtkRef<GgTerrain> block(new GgTerrain());
    ASSERT_TRUE(block->init(base, nullptr));
    EXPECT_EQ(block->point(0).height, base == even ? 350.0f : 35.0f);
    EXPECT_EQ(block->point(24).height, base == even ? 350.0f : 35.0f);
  }
}

TEST(GgTerrainInit, TakesTheGridFieldsAndLogsThem) {
  TempDir dir;
  const std::string base = singleBlock(dir, 1, 2, 350.0);
  LogCapture log(dir);
  testing::internal::CaptureStderr();
  BtkRef<GgTerrain> block(new GgTerrain());
  ASSERT_TRUE(block->init(base, nullptr));
  const std::string err = testing::internal::GetCapturedStderr();

  EXPECT_EQ(block->minLat, 46.0);
  EXPECT_EQ(block->minLon, 7.0);
  EXPECT_EQ(block->maxLat, 46.0 + 4 * 0.01);
  EXPECT_EQ(block->maxLon, 7.0 + 4 * 0.01);
  EXPECT_EQ(block->rows, 5);
  EXPECT_EQ(block->cols, 5);
  EXPECT_EQ(block->depth, 3);
  EXPECT_NEAR(block->halfCellMetres, 0.005 * 111317.1, 0.1);
  EXPECT_TRUE(block->hasTin());
  EXPECT_EQ(block->name(), "(Terrain)");
  EXPECT_EQ(block->data_dir, (dir / "scenery") + "/");
  // The north-east point lies 350 m above the sphere, 0.02 degree from the centre each way.
  const GgGridPoint& ne = block->point(24);
  const double a = 46.04 * M_PI / 180, b = 7.04 * M_PI / 180, r = 6378000.0 + 350.0;
  EXPECT_NEAR(ne.x + block->centre[0], r * cos(a) * cos(b), 0.05);
  EXPECT_NEAR(ne.z + block->centre[2], r * sin(a), 0.05);

  EXPECT_TRUE(block->texConfigPresent);
  EXPECT_EQ(block->texHalfSize, 512);
  EXPECT_THAT(err, HasSubstr("tex_path_ = " + (dir / "scenery") + "/textures\n"));
  EXPECT_TRUE(log.contains("Limits: N = [46, 46.04]\n"));
  EXPECT_TRUE(log.contains("        E = [7, 7.04]\n"));
  EXPECT_TRUE(log.contains("Grid: 5 x 5\n"));
  EXPECT_TRUE(log.contains("data_dir = " + (dir / "scenery") + "/\n"));
  EXPECT_TRUE(log.contains("initializing TIN grid\n"));
}

TEST(GgTerrainInit, MissingOrBadGridFailsTheBlockWithTheReason) {
  TempDir dir;
  LogCapture log(dir);
  BtkRef<GgTerrain> missing(new GgTerrain());
  EXPECT_FALSE(missing->init(dir / "nothing", nullptr));
  EXPECT_TRUE(log.contains("[error]: couldn't open Grid file: " + (dir / "nothing.grd") + "\n"));

  const std::string base = singleBlock(dir, 1, 1, 350.0);
  auto bytes = readBytes(base + ".grd");
  bytes[3] = 'Y';
  writeBytes(base + ".grd", bytes);
  testing::internal::CaptureStderr();
  BtkRef<GgTerrain> badMagic(new GgTerrain());
  EXPECT_FALSE(badMagic->init(base, nullptr));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid magic in file header!\n");
  EXPECT_TRUE(log.contains("[error]: GgTerrain: read file header failed: " + base + "\n"));
}

TEST(GgTerrainInit, BlockWithoutIndexOrTinFileLoadsWithoutTinData) {
  TempDir dir;
  const std::string base = singleBlock(dir, 1, 1, 350.0);
  std::filesystem::rename(base + ".tin", base + ".tin.away");
  testing::internal::CaptureStderr();
  BtkRef<GgTerrain> noTin(new GgTerrain());
  EXPECT_TRUE(noTin->init(base, nullptr));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("couldn't find TIN file: " + base + ".tin\n"));
  EXPECT_FALSE(noTin->hasTin());

  std::filesystem::rename(base + ".idx", base + ".idx.away");
  testing::internal::CaptureStderr();
  BtkRef<GgTerrain> noIndex(new GgTerrain());
  EXPECT_TRUE(noIndex->init(base, nullptr));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("couldn't find index file: " + base + ".idx\n"));
  EXPECT_FALSE(noIndex->hasTin());
  EXPECT_EQ(noIndex->getTile(46.015, 7.015, 10.0, 0), nullptr);
  EXPECT_NEAR(noIndex->getElevation(46.015, 7.015, 0.0), 350.0, 1e-9);
}

TEST(TextureConfig, ProblemsAreReportedAndTheBlockStillLoads) {
  TempDir dir;
  const std::string base = singleBlock(dir, 1, 1, 350.0);
  struct Case {
    std::string text;
    std::string stderrText;
  };
  const std::string longLine(300, 'x');
  const Case cases[] = {
      {"path = t\nformat = DXT9\nsize = 64\n", "warning: invalid pixel format: DXT9ignored\n"},
      {"format = DXT1\nsize = 64\n", "error: missing texture path!\n"},
      {"path = t\nsize = 0\n", "error: missing texture size!\n"},
      // A line longer than 255 characters ends the reading before the path.
      {longLine + "\npath = t\nsize = 64\n", "error: missing texture path!\n"},
  };
  for (const Case& c : cases) {
    std::ofstream(base + ".tex", std::ios::trunc) << c.text;
    LogCapture log(dir);
    testing::internal::CaptureStderr();
    BtkRef<GgTerrain> block(new GgTerrain());
    EXPECT_TRUE(block->init(base, nullptr));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.stderrText)) << c.text;
    const bool valid = c.stderrText.rfind("warning", 0) == 0;
    EXPECT_EQ(block->texConfigPresent, valid);
    EXPECT_EQ(log.contains("[warning]: warning: couldn't read texture config!\n"), !valid);
  }
  std::filesystem::remove(base + ".tex");
  testing::internal::CaptureStderr();
  BtkRef<GgTerrain> block(new GgTerrain());
  EXPECT_TRUE(block->init(base, nullptr));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("couldn't open config file!\n"));
  // An absolute path is taken as it is.
  std::ofstream(base + ".tex", std::ios::trunc) << "path = /srv/textures\nsize = 256\n";
  BtkRef<GgTerrain> absolute(new GgTerrain());
  EXPECT_TRUE(absolute->init(base, nullptr));
  EXPECT_EQ(absolute->texPath, "/srv/textures");
}

TEST(TinTile, NormalBlockOnlyFromVersionOneOne) {
  TempDir dir;
  for (int minor : {0, 1, 2}) {
    const std::string base = singleBlock(dir, 1, minor, 350.0);
    BtkRef<GgTerrain> block(new GgTerrain());
    ASSERT_TRUE(block->init(base, nullptr));
    GgTinTile* tile = block->loadTilesAround(46.015, 7.015, 0);
    ASSERT_NE(tile, nullptr);
    ASSERT_EQ(tile->loaded_level, 2);
    EXPECT_EQ(tile->normalSize, minor == 0 ? 0u : 3u * 25u) << "version 1." << minor;
    double n[3];
    tile->vertexNormal(7, n);
    // Flat ground: the normal points straight up, (0, 0, -1) in north, east, down, with or without
    // a normal block; index -1 always gives it.
    EXPECT_NEAR(n[0], 0.0, 1e-9);
    EXPECT_NEAR(n[1], 0.0, 1e-9);
    EXPECT_NEAR(n[2], -1.0, 1e-9);
    tile->vertexNormal(-1, n);
    EXPECT_EQ(n[2], -1.0);
  }
}

TEST(TinTile, LevelsAndVerticesAreReadByPrefix) {
  TempDir dir;
  const std::string base = singleBlock(dir, 1, 2, 350.0, 3);
  BtkRef<GgTerrain> block(new GgTerrain());
  ASSERT_TRUE(block->init(base, nullptr));
  GgTinTile* tile = block->root()->findTile(46.005, 7.005);
  ASSERT_NE(tile, nullptr);
  EXPECT_EQ(tile->state, GgTinTile::kQueued);
  EXPECT_EQ(block->reader()->numIncoming(), 1u);  // the header request of a new tile

  // A coarse request reads the header and level 0 only: the corners and the centre, 5 vertices of 25.
  block->requestTile(tile, 1000.0);
  EXPECT_EQ(block->reader()->numIncoming(), 0u);
  EXPECT_EQ(tile->state, GgTinTile::kLoaded);
  EXPECT_EQ(tile->numLevels(), 3);
  EXPECT_EQ(tile->loaded_level, 0);
  EXPECT_EQ(tile->numVertices, 25u);
  EXPECT_EQ(tile->verticesLoaded, 5u);
  EXPECT_FALSE(tile->levels[1].loaded);

  // Asking the reader for level 5 of a tile with 3 levels reads up to level 2.
  block->reader()->lock();
  const int32_t bytes = block->reader()->readTile(tile, 5);
  block->reader()->unlock();
  // 20 new vertices of 9 bytes, and the indices of two strips of 6 and four of 10 (2 bytes each).
  EXPECT_EQ(bytes, 20 * 9 + (2 * 6 + 4 * 10) * 2);
  EXPECT_TRUE(tile->levels[2].loaded);
  EXPECT_EQ(tile->verticesLoaded, 25u);
}

TEST(TinTile, LevelForResolutionTakesTheNearerLevelAndTheCoarserOnATie) {
  TempDir dir;
  qvscenery::Options o = smallScenery(dir / "scenery");
  o.single = true;
  o.resolutions = {100.0, 30.0, 10.0};
  const auto flat = qvscenery::makeFlat(350.0);
  const auto paths = build(o, *flat);
  BtkRef<GgTerrain> block(new GgTerrain());
  ASSERT_TRUE(block->init(paths[0], nullptr));
  GgTinTile* tile = block->loadTilesAround(46.015, 7.015, 0);
  ASSERT_NE(tile, nullptr);
  EXPECT_EQ(tile->levelForResolution(200.0), 0);
  EXPECT_EQ(tile->levelForResolution(20.0), 1);  // 30 and 10 equally near
  EXPECT_EQ(tile->levelForResolution(15.0), 2);
  EXPECT_EQ(tile->levelForResolution(5.0), 2);

  ASSERT_EQ(tile->loaded_level, 2);
  GgTriangle fine(20.0f), coarse(50.0f);
  ASSERT_TRUE(tile->findTriangle(46.015, 7.015, fine));
  ASSERT_TRUE(tile->findTriangle(46.015, 7.015, coarse));
  EXPECT_EQ(fine.level, 2);
  EXPECT_EQ(fine.resolution, 10.0f);
  EXPECT_EQ(coarse.level, 1);
  EXPECT_EQ(coarse.resolution, 30.0f);
}
