// Terrain query and start-up figures on a scenery of 4 x 4 blocks of 64 x 64 cells of smooth hills,
// written by the scenery builder into a temporary directory when the benchmark starts.
//   warm lookups along a flight path (each near the last: the fast path), random lookups over the
//   whole scenery, the first (cold) lookup in a tile, and the scenery's start-up time and memory.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ElevationSource.h"
#include "SceneryBuilder.h"
#include "terrain/GgCounters.h"
#include "terrain/GgScenery.h"
#include "terrain/GgTerrain.h"
#include "terrain/GgTerrainGroup.h"
#include "terrain/GgTinTile.h"
#include "terrain/GgTriangle.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr double kSouth = 46.0, kWest = 7.0;
constexpr int kBlocks = 4, kCells = 64;
constexpr double kCellDeg = 1.0 / 64.0;  // 1-degree blocks, cells of about 1.7 km
constexpr double kMetresPerDegree = 111317.1;

long residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

struct Scenery {
  std::string root;  // the data directory; the scenery is root/scenery/hills
  Scenery() {
    char pattern[] = "/tmp/qv-terrain-bench-XXXXXX";
    if (!mkdtemp(pattern)) abort();
    root = pattern;
    qvscenery::Options o;
    o.outDir = root + "/scenery/hills";
    o.south = kSouth;
    o.west = kWest;
    o.cellLat = o.cellLon = kCellDeg;
    o.cells = kCells;
    o.blocksNS = o.blocksEW = kBlocks;
    const auto hills = qvscenery::makeHills(400.0, 600.0, 6000.0, qvscenery::LocalFrame{kSouth, kWest});
    const qvscenery::BuildResult result = qvscenery::buildScenery(o, *hills);
    if (!result.error.empty()) {
      fprintf(stderr, "building the scenery failed: %s\n", result.error.c_str());
      abort();
    }
    btkLogger.setThreshold(BTK_WARNING);  // the start-up's debug lines are not what is measured
  }
  ~Scenery() {
    std::error_code ec;
    std::filesystem::remove_all(root, ec);
  }
  BtkRef<GgTerrainGroup> load() const {
    BtkRef<GgTerrainGroup> group;
    std::string name;
    if (!ggLoadScenery(root, "hills", group, name)) abort();
    return group;
  }
  Scenery(const Scenery&) = delete;
  Scenery& operator=(const Scenery&) = delete;
};

// Drops the scenery's files from the page cache, so that the next reads go to the disk (as far as
// the machine's own disk cache lets them).
void evictScenery(const std::string& root) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    const int fd = open(entry.path().c_str(), O_RDONLY);
    if (fd < 0) continue;
    fdatasync(fd);
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    close(fd);
  }
}

const Scenery& scenery() {
  static const Scenery s;
  return s;
}

// A circle of 3 km radius flown in 1 m steps, centred in the second block row and column.
std::vector<std::pair<double, double>> flightPath() {
  const double lat0 = kSouth + 1.5, lon0 = kWest + 1.5, radius = 3000.0;
  const double circumference = 2 * M_PI * radius;
  std::vector<std::pair<double, double>> path;
  for (int i = 0; i < static_cast<int>(circumference); ++i) {
    const double a = i / radius;
    path.emplace_back(lat0 + radius * std::cos(a) / kMetresPerDegree,
                      lon0 + radius * std::sin(a) / (kMetresPerDegree * std::cos(lat0 * M_PI / 180)));
  }
  return path;
}

void preload(GgTerrainGroup& group, const std::vector<std::pair<double, double>>& points) {
  for (size_t i = 0; i < points.size(); i += 50) group.loadTilesAround(points[i].first, points[i].second, 1);
}

// Start-up in a fresh process, as the server does it: the time of the scenery load alone and the
// resident memory before and after it.
struct StartupFigures {
  double loadMs = 0.0;
  long residentBefore = 0, residentAfter = 0;
};

int startupProbe(const std::string& root) {
  btkLogger.setThreshold(BTK_WARNING);
  StartupFigures f;
  f.residentBefore = residentBytes();
  const auto start = std::chrono::steady_clock::now();
  BtkRef<GgTerrainGroup> group;
  std::string name;
  if (!ggLoadScenery(root, "hills", group, name) || group->numBlocks() != kBlocks * kBlocks) return 1;
  f.loadMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  f.residentAfter = residentBytes();
  printf("%f %ld %ld\n", f.loadMs, f.residentBefore, f.residentAfter);
  fflush(stdout);
  _exit(0);  // the figures are out; the group's teardown is not part of the start-up
}

// Argument 1: the scenery's files are evicted from the page cache before each start-up.
void BM_SceneryStartupFreshProcess(benchmark::State& state) {
  const std::string command =
      "/proc/" + std::to_string(getpid()) + "/exe --startup-probe " + scenery().root + " 2>/dev/null";
  for (auto _ : state) {
    if (state.range(0)) evictScenery(scenery().root);
    StartupFigures f;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe || fscanf(pipe, "%lf %ld %ld", &f.loadMs, &f.residentBefore, &f.residentAfter) != 3) {
      if (pipe) pclose(pipe);
      state.SkipWithError("the start-up probe failed");
      break;
    }
    pclose(pipe);
    state.SetIterationTime(f.loadMs / 1000.0);
    state.counters["RSS_before_MB"] = f.residentBefore / 1e6;
    state.counters["RSS_after_MB"] = f.residentAfter / 1e6;
    state.counters["scenery_MB"] = (f.residentAfter - f.residentBefore) / 1e6;
  }
}
BENCHMARK(BM_SceneryStartupFreshProcess)
    ->Arg(0)
    ->Arg(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

void BM_WarmElevationFlightPath(benchmark::State& state) {
  BtkRef<GgTerrainGroup> group = scenery().load();
  const auto path = flightPath();
  preload(*group, path);
  size_t i = 0;
  for (auto _ : state) {
    const auto& p = path[i];
    benchmark::DoNotOptimize(group->getElevation(p.first, p.second, 0.0));
    if (++i == path.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WarmElevationFlightPath);

void BM_WarmTileFindTriangleFlightPath(benchmark::State& state) {
  BtkRef<GgTerrainGroup> group = scenery().load();
  const auto path = flightPath();
  preload(*group, path);
  GgTriangle t(10.0f);
  size_t i = 0;
  for (auto _ : state) {
    const auto& p = path[i];
    // A player's record: its last tile first, the tile lookup only when the glider has left it.
    if (!t.tile || !t.tile->findTriangle(p.first, p.second, t)) {
      GgTinTile* tile = group->getTile(p.first, p.second, 10.0, 0);
      if (tile) tile->findTriangle(p.first, p.second, t);
    }
    benchmark::DoNotOptimize(t.height);
    if (++i == path.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WarmTileFindTriangleFlightPath);

void BM_WarmServerTriangleLookupFlightPath(benchmark::State& state) {
  BtkRef<GgTerrainGroup> group = scenery().load();
  const auto path = flightPath();
  preload(*group, path);
  GgTriangle t(10.0f);
  size_t i = 0;
  int32_t pass = 0;
  for (auto _ : state) {
    const auto& p = path[i];
    benchmark::DoNotOptimize(ggFindTerrainTriangle(group.get(), p.first, p.second, t, ++pass, nullptr));
    if (++i == path.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WarmServerTriangleLookupFlightPath);

std::vector<std::pair<double, double>> randomPoints(double south, double west, double size, size_t n) {
  std::mt19937 rng(12345);
  std::uniform_real_distribution<double> u(0.0, size);
  std::vector<std::pair<double, double>> points;
  for (size_t k = 0; k < n; ++k) points.emplace_back(south + u(rng), west + u(rng));
  return points;
}

// Random points anywhere, no tile loaded: the grid's quadtree answers.
void BM_RandomElevationWholeScenery(benchmark::State& state) {
  BtkRef<GgTerrainGroup> group = scenery().load();
  const auto points = randomPoints(kSouth, kWest, kBlocks * kCells * kCellDeg, 1 << 16);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(group->getElevation(points[i].first, points[i].second, 0.0));
    i = (i + 1) & (points.size() - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RandomElevationWholeScenery);

// Random points over one block whose 4096 tiles are all loaded: every lookup searches a TIN tile.
void BM_RandomElevationLoadedBlock(benchmark::State& state) {
  BtkRef<GgTerrainGroup> group = scenery().load();
  for (int r = 0; r < kCells; ++r)
    for (int c = 0; c < kCells; ++c)
      group->loadTilesAround(kSouth + 1 + (r + 0.5) * kCellDeg, kWest + 1 + (c + 0.5) * kCellDeg, 0);
  state.counters["memSize_MB"] = memSize() / 1e6;
  const auto points = randomPoints(kSouth + 1, kWest + 1, kCells * kCellDeg, 1 << 16);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(group->getElevation(points[i].first, points[i].second, 0.0));
    i = (i + 1) & (points.size() - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RandomElevationLoadedBlock);

// The first lookup in a tile never touched before: the tile is made, its file read to the level for
// 10 m, its vertices converted and its triangle found.
// Argument 1: the TIN files are evicted from the page cache first.
void BM_ColdTileLookup(benchmark::State& state) {
  BtkRef<GgTerrainGroup> group = scenery().load();
  if (state.range(0)) evictScenery(scenery().root);
  const int cellsAvailable = kBlocks * kBlocks * kCells * kCells;
  int next = 0;
  double worst = 0.0;  // microseconds, the slowest single lookup
  GgTriangle t(10.0f);
  for (auto _ : state) {
    if (next == cellsAvailable) {
      state.SkipWithError("ran out of fresh tiles");
      break;
    }
    const int block = next / (kCells * kCells), cell = next % (kCells * kCells);
    const double lat = kSouth + (block / kBlocks) + (cell / kCells + 0.37) * kCellDeg;
    const double lon = kWest + (block % kBlocks) + (cell % kCells + 0.61) * kCellDeg;
    ++next;
    const auto start = std::chrono::steady_clock::now();
    GgTinTile* tile = group->getTile(lat, lon, 10.0, 0);
    benchmark::DoNotOptimize(tile && tile->findTriangle(lat, lon, t));
    worst = std::max(
        worst, std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
  }
  state.counters["worst_us"] = worst;
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ColdTileLookup)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->Iterations(20000);

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--startup-probe") return startupProbe(argv[2]);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
