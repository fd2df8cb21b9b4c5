// qvscenery: writes a scenery for the server from analytic terrain or from elevation rasters.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "GdalSource.h"
#include "SceneryBuilder.h"

namespace {

const char kUsage[] =
    "usage: qvscenery --out=DIR SOURCE [OPTIONS]\n"
    "\n"
    "Writes a scenery directory for qvserver: per block a grid file (.grd), a texture\n"
    "configuration (.tex), an index (.idx) and a TIN file (.tin), in BLK... directories\n"
    "or, with --single, directly in DIR. The server finds DIR as <datadir>/scenery/<name>.\n"
    "\n"
    "Source (exactly one):\n"
    "  --flat=H                  level ground H metres above the sphere\n"
    "  --plane=H,SLOPE,BEARING   H metres at the scenery's south-west corner, rising at SLOPE\n"
    "                            degrees towards BEARING (degrees, 0 north, 90 east)\n"
    "  --hills=BASE,AMP,WAVE     rounded hills between BASE and BASE+AMP metres, WAVE metres apart\n"
    "  --dem=FILE[,FILE...]      elevation rasters read through GDAL: SRTM .hgt, GeoTIFF, ASCII\n"
    "                            grids, any raster GDAL reads; resampled bilinearly, voids filled\n"
    "\n"
    "Place and size:\n"
    "  --south=DEG --west=DEG    the scenery's south-west corner; needed with an analytic source,\n"
    "                            with --dem the rasters' corner rounded to 0.001 degree by default\n"
    "  --cell=DEG[,DEG]          cell size north-south[,east-west] in degrees; default 1/64, with\n"
    "                            --dem the size that makes the blocks cover the rasters\n"
    "  --cells=N                 cells per block side, a power of two from 2 to 4096 (default 64)\n"
    "  --depth=D                 quadtree depth; a block of 2^k x 2^k cells needs k+1 (the default)\n"
    "  --blocks=NS[,EW]          blocks north-south and east-west (default 1,1)\n"
    "  --single                  one block whose files lie directly in DIR (DIR/terrain.grd ...)\n"
    "  --level=L                 block level written into the block names, 0 to 99 (default 0)\n"
    "\n"
    "Detail:\n"
    "  --tin-levels=L            levels of detail per cell, 1 to 8 (default 4); level 0 has the\n"
    "                            corners and the centre, level l a grid of 2^l x 2^l squares\n"
    "  --resolutions=R0,R1,...   metres per level, coarsest first (default: half the cell height,\n"
    "                            halved per level)\n"
    "  --spread                  spread each level's triangles over every index group and\n"
    "                            primitive type (strips, fans, separate triangles), for tests\n"
    "  --format=1.0|1.1|1.2      grid file version (default 1.2, with the extended header);\n"
    "                            1.0 writes no vertex normals\n"
    "  --no-tin                  grid only: the server then answers from the grid alone\n"
    "  --no-tex                  no texture configuration (the server warns and goes on)\n"
    "  --help                    this text\n"
    "\n"
    "Example: qvscenery --out=data/scenery/alps --dem=N46E007.hgt --south=46 --west=7 \\\n"
    "           --cell=0.015625 --blocks=1,1\n";

bool parseList(const std::string& text, std::vector<double>& out) {
  out.clear();
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    char* end = nullptr;
    const double v = strtod(item.c_str(), &end);
    if (item.empty() || *end != '\0') return false;
    out.push_back(v);
  }
  return !out.empty();
}

bool parseInt(const std::string& text, int& out) {
  char* end = nullptr;
  const long v = strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || v < -1000000 || v > 1000000) return false;
  out = static_cast<int>(v);
  return true;
}

std::vector<std::string> splitFiles(const std::string& text) {
  std::vector<std::string> files;
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    if (!item.empty()) files.push_back(item);
  }
  return files;
}

int fail(const std::string& message) {
  fprintf(stderr, "qvscenery: %s\n", message.c_str());
  return 2;
}

struct CommandLine {
  qvscenery::Options options;
  std::string sourceKind;
  std::vector<double> sourceArgs;
  std::vector<std::string> demFiles;
  bool haveSouth = false, haveWest = false, haveCell = false;
};

// Returns "" or the complaint.
std::string parseArgument(const std::string& arg, CommandLine& cl) {
  const size_t eq = arg.find('=');
  const std::string key = arg.substr(0, eq);
  const std::string value = eq == std::string::npos ? "" : arg.substr(eq + 1);
  qvscenery::Options& o = cl.options;
  std::vector<double> list;
  auto setSource = [&](const std::string& kind, size_t count) -> std::string {
    if (!cl.sourceKind.empty()) return "give only one source";
    if (!parseList(value, cl.sourceArgs) || cl.sourceArgs.size() != count) return "bad value in " + arg;
    cl.sourceKind = kind;
    return "";
  };
  if (key == "--out" && !value.empty()) {
    o.outDir = value;
  } else if (key == "--flat") {
    return setSource("flat", 1);
  } else if (key == "--plane") {
    return setSource("plane", 3);
  } else if (key == "--hills") {
    return setSource("hills", 3);
  } else if (key == "--dem") {
    if (!cl.sourceKind.empty()) return "give only one source";
    cl.demFiles = splitFiles(value);
    if (cl.demFiles.empty()) return "bad value in " + arg;
    cl.sourceKind = "dem";
  } else if (key == "--south" && parseList(value, list) && list.size() == 1) {
    o.south = list[0];
    cl.haveSouth = true;
  } else if (key == "--west" && parseList(value, list) && list.size() == 1) {
    o.west = list[0];
    cl.haveWest = true;
  } else if (key == "--cell" && parseList(value, list) && list.size() <= 2) {
    o.cellLat = list[0];
    o.cellLon = list.size() == 2 ? list[1] : list[0];
    cl.haveCell = true;
  } else if (key == "--cells" && parseInt(value, o.cells)) {
  } else if (key == "--depth" && parseInt(value, o.depth)) {
  } else if (key == "--blocks" && parseList(value, list) && list.size() <= 2) {
    o.blocksNS = static_cast<int>(list[0]);
    o.blocksEW = static_cast<int>(list.size() == 2 ? list[1] : list[0]);
  } else if (key == "--single" && eq == std::string::npos) {
    o.single = true;
  } else if (key == "--level" && parseInt(value, o.level)) {
  } else if (key == "--tin-levels" && parseInt(value, o.tinLevels)) {
  } else if (key == "--resolutions" && parseList(value, o.resolutions)) {
  } else if (key == "--spread" && eq == std::string::npos) {
    o.spread = true;
  } else if (key == "--no-tin" && eq == std::string::npos) {
    o.tin = false;
  } else if (key == "--no-tex" && eq == std::string::npos) {
    o.texture = false;
  } else if (key == "--format" && (value == "1.0" || value == "1.1" || value == "1.2")) {
    o.versionMajor = 1;
    o.versionMinor = value[2] - '0';
  } else {
    return "unknown or malformed option " + arg + " (see --help)";
  }
  return "";
}

double roundTo(double v, double step) {
  return std::round(v / step) * step;
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine cl;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      fputs(kUsage, stdout);
      return 0;
    }
    const std::string complaint = parseArgument(arg, cl);
    if (!complaint.empty()) return fail(complaint);
  }
  qvscenery::Options& o = cl.options;
  if (cl.sourceKind.empty()) return fail("no source: give --flat, --plane, --hills or --dem (see --help)");

  std::unique_ptr<qvscenery::ElevationSource> source;
  std::unique_ptr<qvscenery::GdalSource> dem;
  if (cl.sourceKind == "dem") {
    dem = std::make_unique<qvscenery::GdalSource>();
    std::string error;
    if (!dem->open(cl.demFiles, error)) return fail(error);
    const qvscenery::GeoExtent e = dem->extent();
    if (e.empty()) return fail("the rasters have no geographic extent");
    const double south = roundTo(e.south, 0.001), west = roundTo(e.west, 0.001);
    const double north = roundTo(e.north, 0.001), east = roundTo(e.east, 0.001);
    if (!cl.haveSouth) o.south = south;
    if (!cl.haveWest) o.west = west;
    if (!cl.haveCell) {
      o.cellLat = (north - o.south) / (o.blocksNS * o.cells);
      o.cellLon = (east - o.west) / (o.blocksEW * o.cells);
    }
  } else if (!cl.haveSouth || !cl.haveWest) {
    return fail("an analytic source needs --south and --west");
  }
  const std::string invalid = qvscenery::validate(o);
  if (!invalid.empty()) return fail(invalid);

  const qvscenery::LocalFrame frame{o.south, o.west};
  const std::vector<double>& a = cl.sourceArgs;
  if (cl.sourceKind == "flat") {
    source = qvscenery::makeFlat(a[0]);
  } else if (cl.sourceKind == "plane") {
    if (!(a[1] >= 0.0 && a[1] < 89.0)) return fail("the slope must be 0 to 89 degrees");
    source = qvscenery::makePlane(a[0], a[1], a[2], frame);
  } else if (cl.sourceKind == "hills") {
    if (!(a[2] > 0.0)) return fail("the hills' wavelength must be positive");
    source = qvscenery::makeHills(a[0], a[1], a[2], frame);
  } else {
    qvscenery::GeoExtent area;
    area.south = o.south;
    area.west = o.west;
    area.north = o.south + o.blocksNS * o.cells * o.cellLat;
    area.east = o.west + o.blocksEW * o.cells * o.cellLon;
    std::string error;
    if (!dem->load(area, error)) return fail(error);
    if (dem->filledVoids() > 0) fprintf(stderr, "qvscenery: filled %ld void cells\n", dem->filledVoids());
  }
  const qvscenery::ElevationSource& heights =
      dem ? static_cast<const qvscenery::ElevationSource&>(*dem) : *source;

  const auto start = std::chrono::steady_clock::now();
  const qvscenery::BuildResult result = qvscenery::buildScenery(o, heights);
  if (!result.error.empty()) return fail(result.error);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  printf("qvscenery: wrote %zu block(s) of %d x %d cells to %s in %.2f s\n", result.basePaths.size(), o.cells,
         o.cells, o.outDir.c_str(), seconds);
  printf("  latitude %.6f to %.6f, longitude %.6f to %.6f\n", o.south,
         o.south + o.blocksNS * o.cells * o.cellLat, o.west, o.west + o.blocksEW * o.cells * o.cellLon);
  return 0;
}
