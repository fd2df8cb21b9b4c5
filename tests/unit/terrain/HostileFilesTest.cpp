// Damaged block files: the block or the tile fails with a message, nothing crashes, nothing huge is
// allocated, and the rest of the scenery keeps answering.
#include <gmock/gmock.h>

#include <cfloat>
#include <filesystem>

#include "TerrainTestSupport.h"
#include "terrain/GgDataReaderThread.h"

namespace {

enum Outcome { kBlockFails, kNoTin, kTileFails, kLoads };
constexpr size_t kRemove = SIZE_MAX, kReplace = SIZE_MAX - 1;  // what Damage::at may say besides an offset

struct Damage {
  const char *name, *extension;
  size_t at;          // the bytes go there; without bytes the file is cut there
  std::string bytes;  // the whole file for kReplace
  Outcome outcome;
  const char* message;  // "@" stands for the block's base path
};

std::string little(uint64_t value, int bytes) {
  std::string out;
  for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i));
  return out;
}

// Every cell of the damaged block, loaded with its neighbours: the flat 350 m or nothing.
void exercise(GgTerrain& block) {
  for (int cell = 0; cell < 16; ++cell) {
    const double lat = 46.0 + (cell / 4 + 0.3) * 0.01, lon = 7.0 + (cell % 4 + 0.6) * 0.01;
    block.loadTilesAround(lat, lon, 1);
    GgTriangle t;
    GgTinTile* tile = block.getTile(lat, lon, 10.0, 0);
    EXPECT_TRUE(!tile || !tile->findTriangle(lat, lon, t) || std::abs(t.height - 350.0) < 1e-9) << t.height;
    const double h = block.getElevation(lat, lon, 0.0);
    EXPECT_TRUE(std::abs(h - 350.0) < 1e-9 || h == DBL_MAX) << h;
  }
}

// Two blocks of flat ground side by side, format 1.0 (no normal block), two TIN levels of 9 vertices.
// The western block is damaged. Its TIN file starts with tile (0, 0), laid out as the format says:
//   0 L = 2 | 1 two float resolutions | 9 N = 9 | 13 lat fractions | 31 lon fractions | 49 heights |
//   67 level 0: A, B | 69 group 1: K = 1 | 71 n = 6 | 73 type = 2 (fan) | 75 six indices | 87 group 2 ...
class HostileFiles : public testing::TestWithParam<Damage> {};

TEST_P(HostileFiles, FailOnlyTheirBlockOrTileWithTheirMessage) {
  const Damage& d = GetParam();
  TempDir dir;
  qvscenery::Options o = smallScenery(dir.path("s"), 1, 2);
  std::tie(o.versionMinor, o.tinLevels) = std::tuple(0, 2);
  const std::string base = build(o, *qvscenery::makeFlat(350.0)).at(0), path = base + d.extension;
  std::string bytes = d.at == kReplace ? d.bytes : readText(path);
  if (d.at < kReplace && d.bytes.empty()) bytes.resize(d.at);
  if (d.at < kReplace && !d.bytes.empty()) bytes.replace(d.at, d.bytes.size(), d.bytes);
  if (d.at == kRemove) std::filesystem::remove(path);
  if (d.at != kRemove) writeText(path, bytes);

  Messages messages(dir);
  BtkRef<GgTerrainGroup> group;
  std::string name;
  ASSERT_TRUE(ggLoadScenery("", dir.path("s"), group, name));
  ASSERT_EQ(group->numBlocks(), d.outcome == kBlockFails ? 1u : 2u);
  EXPECT_NEAR(group->getElevation(46.01, 7.06, 0.0), 350.0, 1e-9);  // the eastern block
  if (d.outcome != kBlockFails) exercise(*group->block(0));
  EXPECT_EQ(group->getElevation(46.003, 7.006, 0.0) == DBL_MAX, d.outcome == kBlockFails);
  GgTriangle t;
  int passes = 0;
  // The server's lookup: a tile that can't be read still counts as found and runs the pass.
  EXPECT_EQ(ggFindTerrainTriangle(group.get(), 46.003, 7.006, t, 1, [&] { ++passes; }),
            d.outcome >= kTileFails);
  EXPECT_EQ(passes, d.outcome >= kTileFails ? 1 : 0);
  EXPECT_EQ(t.tile != nullptr, d.outcome == kLoads);
  GgTinTile* neighbour = group->getTile(46.013, 7.016, 10.0, 0);
  EXPECT_EQ(neighbour && neighbour->findTriangle(46.013, 7.016, t), d.outcome >= kTileFails);
  std::string message = d.message;
  if (const size_t at = message.find('@'); at != std::string::npos) message.replace(at, 1, base);
  EXPECT_THAT(messages.text(), testing::HasSubstr(message));
}

const uint64_t kNaNFloat = 0x7fc00000, kNaNDouble = 0x7ff8000000000000;
// clang-format off
const Damage kDamages[] = {
    {"GridMissing", ".grd", kRemove, "", kBlockFails, "couldn't open Grid file: @.grd"},
    {"GridMagic", ".grd", 3, "Y", kBlockFails, "Invalid magic in file header!"},
    {"GridTooManyPoints", ".grd", 40, little(100000, 4), kBlockFails, "@.grd ends inside its grid points"},
    {"GridHuge", ".grd", 40, little(0x7ffffff0, 4), kBlockFails, "the grid has more than 2^30 points"},
    {"GridNoCells", ".grd", 44, little(0xffffffff, 4), kBlockFails, "the grid has no cells"},
    {"GridDeep", ".grd", 48, little(1000000, 4), kBlockFails, "the quadtree depth is not 1 to 32"},
    {"GridNaNStep", ".grd", 24, little(kNaNDouble, 8), kBlockFails, "place or step is not a number"},
    // Grid point 7 begins at 116 + 12 x 7.
    {"GridNaNHeight", ".grd", 200, little(kNaNFloat, 4), kBlockFails, "point 7 of @.grd is not a number"},
    {"GridShallowTree", ".grd", 48, little(1, 4), kNoTin, "does not split into single cells in 1 levels"},
    {"IndexMissing", ".idx", kRemove, "", kNoTin, "couldn't find index file: @.idx"},
    {"TinMissing", ".tin", kRemove, "", kNoTin, "couldn't find TIN file: @.tin"},
    {"TileOffset", ".idx", 0, little(0xfffffff0, 4), kTileFails, "(0, 0) in @.tin: its offset is past"},
    {"TileNoLevels", ".tin", 0, little(0, 1), kTileFails, "the tile has no levels"},
    {"TileNaNResolution", ".tin", 1, little(kNaNFloat, 4), kTileFails, "a level resolution is not a number"},
    {"TileVertexCount", ".tin", 9, little(0xfffffff0, 4), kTileFails, "the vertex count is larger than"},
    {"TilePrimitives", ".tin", 69, little(0xffff, 2), kTileFails, "an index group counts more primitives"},
    {"TileIndices", ".tin", 71, little(0xffff, 2), kTileFails, "a primitive counts more indices than"},
    {"TileIndexPastVertices", ".tin", 77, little(9, 2), kTileFails, "a vertex index is past the level's"},
    // Level 0's only primitive is dropped; the reading goes on and the finer level answers.
    {"TilePrimitiveType", ".tin", 73, little(9, 2), kLoads, "[error]: GgLevel: Illegal graphics primitive"},
    // A line longer than 255 characters ends the reading before the path.
    {"TextureLongLine", ".tex", kReplace, std::string(300, 'x') + "\npath = t\nsize = 64\n", kLoads,
     "error: missing texture path!"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Terrain, HostileFiles, testing::ValuesIn(kDamages),
                         [](const auto& info) { return std::string(info.param.name); });

// Regression: a grid file cut inside its header crashed the reader.
TEST(HostileFiles, FilesCutAtEveryOffsetNeverCrash) {
  TempDir dir;
  const std::string base = build(smallScenery(dir.path("s")), *qvscenery::makeFlat(350.0)).at(0);
  Messages messages(dir);  // hundreds of complaints
  BtkRef<GgDataReaderThread> thread(new GgDataReaderThread());
  for (const char* extension : {".grd", ".idx", ".tin"}) {
    const std::string whole = readText(base + extension);
    for (size_t n = 0; n < whole.size(); n += (n < 600 ? 1 : 97)) {
      writeText(base + extension, whole.substr(0, n));
      BtkRef<GgTerrain> block(new GgTerrain());
      const bool loaded = block->init(base, thread.get());
      EXPECT_EQ(loaded, extension != std::string(".grd")) << extension << " cut at " << n;
      if (loaded) exercise(*block);
    }
    writeText(base + extension, whole);
  }
}

}  // namespace
