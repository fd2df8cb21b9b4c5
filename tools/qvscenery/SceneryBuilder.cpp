#include "SceneryBuilder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include "BinaryWriter.h"
#include "TinMesh.h"

namespace qvscenery {

namespace {

constexpr double kFractionScale = 65535.0;
constexpr size_t kReservedHeaderBytes = 64;

void earthPoint(double latDeg, double lonDeg, double height, double out[3]) {
  const double a = latDeg * kPi / 180.0, b = lonDeg * kPi / 180.0, r = kEarthRadius + height;
  out[0] = r * std::cos(a) * std::cos(b);
  out[1] = r * std::cos(a) * std::sin(b);
  out[2] = r * std::sin(a);
}

double distance(const double a[3], const double b[3]) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) +
                   (a[2] - b[2]) * (a[2] - b[2]));
}

bool hasNormals(const Options& o) {
  return o.versionMajor > 1 || (o.versionMajor == 1 && o.versionMinor >= 1);
}
bool hasExtendedHeader(const Options& o) {
  return o.versionMajor >= 1 && o.versionMinor >= 2;
}

// A text field of the 1.2 header: the text, a zero byte, and a padding byte when the text's length is
// even, so that every field takes an even number of bytes.
void writeText(BinaryWriter& out, const std::string& text) {
  out.raw(text.data(), text.size());
  out.u8(0);
  if (text.size() % 2 == 0) out.u8(0);
}

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out) {
    error = "can't write " + path;
    return false;
  }
  return true;
}

// Interpolation over a node's two grid triangles, split along the south-west to north-east diagonal;
// u, v in [0, 1] across the node from its west and south edges.
double nodeInterpolation(double sw, double se, double nw, double ne, double u, double v) {
  if (v > u) return sw + (ne - nw) * u + (nw - sw) * v;
  return sw + (se - sw) * u + (ne - se) * v;
}

class BlockWriter {
 public:
  BlockWriter(const Options& o, const ElevationSource& source, const TinMesh& mesh, int row, int col)
      : o_(o), source_(source), mesh_(mesh), row_(row), col_(col), n_(o.cells) {
    south_ = o.south + row * o.cells * o.cellLat;
    west_ = o.west + col * o.cells * o.cellLon;
    levelResolutions_ = o.resolutions;
    if (levelResolutions_.empty()) {
      // Level 0 spaces its vertices half a cell apart, each finer level half as far.
      for (int l = 0; l < o.tinLevels; ++l)
        levelResolutions_.push_back(o.cellLat * kMetresPerDegree / std::ldexp(1.0, l + 1));
    }
  }

  bool write(const std::string& basePath, std::string& error) {
    return sampleGrid(error) && (!o_.tin || writeTin(basePath, error)) && finishErrors() &&
           writeGrid(basePath, error) && (!o_.texture || writeTexture(basePath, error));
  }

 private:
  double gridLat(int r) const { return south_ + r * o_.cellLat; }
  double gridLon(int c) const { return west_ + c * o_.cellLon; }
  size_t pointIndex(int r, int c) const { return static_cast<size_t>(r) * (n_ + 1) + c; }
  double g(int r, int c) const {
    return static_cast<float>(grid_[pointIndex(r, c)]);
  }  // as the file holds it

  bool sample(double lat, double lon, double& h, std::string& error) const {
    h = source_.height(lat, lon);
    if (std::isfinite(h)) return true;
    std::ostringstream text;
    text << "no elevation data at " << lat << ", " << lon;
    error = text.str();
    return false;
  }

  bool sampleGrid(std::string& error) {
    grid_.resize(pointIndex(n_, n_) + 1);
    errors_.assign(grid_.size(), 0.0f);
    radii_.assign(grid_.size(), 0.0f);
    cellErrors_.assign(static_cast<size_t>(n_) * n_, 0.0);
    for (int r = 0; r <= n_; ++r)
      for (int c = 0; c <= n_; ++c)
        if (!sample(gridLat(r), gridLon(c), grid_[pointIndex(r, c)], error)) return false;
    return true;
  }

  // (north, east, down) unit normal of the source's surface, by central differences in metres.
  void surfaceNormal(double lat, double lon, double spacingM, int8_t out[3]) const {
    const double step = std::max(0.5, spacingM * 0.5);
    const double dLat = step / kMetresPerDegree;
    const double dLon = step / (kMetresPerDegree * std::max(1e-6, std::cos(lat * kPi / 180.0)));
    double gn = (source_.height(lat + dLat, lon) - source_.height(lat - dLat, lon)) / (2 * step);
    double ge = (source_.height(lat, lon + dLon) - source_.height(lat, lon - dLon)) / (2 * step);
    if (!std::isfinite(gn)) gn = 0.0;
    if (!std::isfinite(ge)) ge = 0.0;
    const double norm = std::sqrt(gn * gn + ge * ge + 1.0);
    const double n[3] = {-gn / norm, -ge / norm, -1.0 / norm};
    for (int k = 0; k < 3; ++k)
      out[k] = static_cast<int8_t>(std::clamp(std::lround(n[k] * 127.0), -127L, 127L));
  }

  bool writeCell(int r, int c, BinaryWriter& out, std::string& error) {
    const auto& vertices = mesh_.vertices();
    const size_t count = vertices.size();
    const double s = gridLat(r), h = o_.cellLat, w0 = gridLon(c), w = o_.cellLon;
    std::vector<uint16_t> lats(count), lons(count);
    std::vector<int16_t> heights(count);
    std::vector<int8_t> normals(count * 3);
    double worst = 0.0;
    const double spacing = o_.cellLat * kMetresPerDegree / mesh_.finest();
    for (size_t i = 0; i < count; ++i) {
      lats[i] = mesh_.fraction(vertices[i].row);
      lons[i] = mesh_.fraction(vertices[i].col);
      const double u = lons[i] / kFractionScale, v = lats[i] / kFractionScale;
      double height;
      if (!sample(s + v * h, w0 + u * w, height, error)) return false;
      heights[i] = static_cast<int16_t>(std::clamp(std::lround(height), -32768L, 32767L));
      if (hasNormals(o_)) surfaceNormal(s + v * h, w0 + u * w, spacing, &normals[3 * i]);
      const double coarse = nodeInterpolation(g(r, c), g(r, c + 1), g(r + 1, c), g(r + 1, c + 1), u, v);
      worst = std::max(worst, std::abs(heights[i] - coarse));
    }
    cellErrors_[static_cast<size_t>(r) * n_ + c] = worst;

    out.u8(static_cast<uint8_t>(levelResolutions_.size()));
    for (double res : levelResolutions_) out.f32(static_cast<float>(res));
    out.u32(static_cast<uint32_t>(count));
    for (uint16_t v : lats) out.u16(v);
    for (uint16_t v : lons) out.u16(v);
    for (int16_t v : heights) out.i16(v);
    if (hasNormals(o_)) {
      out.u32(static_cast<uint32_t>(count * 3));
      for (int8_t v : normals) out.i8(v);
    }
    for (const LevelMesh& level : mesh_.levels()) writeLevel(level, out);
    return true;
  }

  static void writeGroup(const IndexGroup& group, BinaryWriter& out) {
    out.u16(static_cast<uint16_t>(group.size()));
    for (const Primitive& p : group) {
      out.u16(static_cast<uint16_t>(p.indices.size()));
      out.u16(p.type);
      for (uint16_t i : p.indices) out.u16(i);
    }
  }

  static void writeLevel(const LevelMesh& level, BinaryWriter& out) {
    out.u8(static_cast<uint8_t>(level.list3.size()));
    out.u8(static_cast<uint8_t>(level.list4.size()));
    writeGroup(level.groups[1], out);
    writeGroup(level.groups[2], out);
    for (const IndexGroup& group : level.list3) writeGroup(group, out);
    for (const IndexGroup& group : level.list4) writeGroup(group, out);
    for (int k = 5; k <= 8; ++k) writeGroup(level.groups[k], out);
    out.u32(level.lastVertex);
  }

  bool writeTin(const std::string& basePath, std::string& error) {
    std::ofstream tin(basePath + ".tin", std::ios::binary | std::ios::trunc);
    BinaryWriter index;
    BinaryWriter record;
    uint64_t offset = 0;
    for (int r = 0; r < n_; ++r) {
      for (int c = 0; c < n_; ++c) {
        if (offset > std::numeric_limits<uint32_t>::max()) {
          error = "the TIN file of " + basePath + " would pass 4 GB: use fewer levels or smaller blocks";
          return false;
        }
        index.u32(static_cast<uint32_t>(offset));
        record.clear();
        if (!writeCell(r, c, record, error)) return false;
        tin.write(reinterpret_cast<const char*>(record.bytes().data()),
                  static_cast<std::streamsize>(record.size()));
        offset += record.size();
      }
    }
    if (!tin) {
      error = "can't write " + basePath + ".tin";
      return false;
    }
    return writeFile(basePath + ".idx", index.bytes(), error);
  }

  // Without TIN data a cell's error is measured against the source on a 5 x 5 sample.
  void sampleCellErrors() {
    for (int r = 0; r < n_; ++r) {
      for (int c = 0; c < n_; ++c) {
        double worst = 0.0;
        for (int i = 0; i <= 4; ++i) {
          for (int j = 0; j <= 4; ++j) {
            const double u = j / 4.0, v = i / 4.0;
            const double truth = source_.height(gridLat(r) + v * o_.cellLat, gridLon(c) + u * o_.cellLon);
            if (std::isfinite(truth))
              worst = std::max(worst, std::abs(truth - nodeInterpolation(g(r, c), g(r, c + 1), g(r + 1, c),
                                                                         g(r + 1, c + 1), u, v)));
          }
        }
        cellErrors_[static_cast<size_t>(r) * n_ + c] = worst;
      }
    }
  }

  // A node's error is the largest height difference between its two grid triangles and what lies
  // under them (its grid points and, through its children, the finer detail), so the descent from
  // coarse to fine stops where a node is good enough.
  bool finishErrors() {
    if (!o_.tin) sampleCellErrors();
    std::vector<double> childError = cellErrors_;
    for (int m = 2; m <= n_; m *= 2) {
      const int nodes = n_ / m;
      std::vector<double> nodeError(static_cast<size_t>(nodes) * nodes, 0.0);
      for (int nr = 0; nr < nodes; ++nr) {
        for (int nc = 0; nc < nodes; ++nc) {
          const int r0 = nr * m, c0 = nc * m;
          double worst = 0.0, lowest = g(r0, c0), highest = g(r0, c0);
          for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 2; ++j)
              worst = std::max(worst, childError[static_cast<size_t>(2 * nr + i) * (2 * nodes) + 2 * nc + j]);
          for (int r = r0; r <= r0 + m; ++r) {
            for (int c = c0; c <= c0 + m; ++c) {
              const double u = static_cast<double>(c - c0) / m, v = static_cast<double>(r - r0) / m;
              const double coarse =
                  nodeInterpolation(g(r0, c0), g(r0, c0 + m), g(r0 + m, c0), g(r0 + m, c0 + m), u, v);
              worst = std::max(worst, std::abs(g(r, c) - coarse));
              lowest = std::min(lowest, g(r, c));
              highest = std::max(highest, g(r, c));
            }
          }
          nodeError[static_cast<size_t>(nr) * nodes + nc] = worst;
          const int cr = r0 + m / 2, cc = c0 + m / 2;
          errors_[pointIndex(cr, cc)] = static_cast<float>(worst);
          radii_[pointIndex(cr, cc)] = static_cast<float>(nodeRadius(r0, c0, m, cr, cc, lowest, highest));
        }
      }
      childError.swap(nodeError);
    }
    return true;
  }

  double nodeRadius(int r0, int c0, int m, int cr, int cc, double lowest, double highest) const {
    double centre[3];
    earthPoint(gridLat(cr), gridLon(cc), g(cr, cc), centre);
    double radius = 0.0;
    for (int r : {r0, r0 + m})
      for (int c : {c0, c0 + m})
        for (double h : {lowest, highest}) {
          double p[3];
          earthPoint(gridLat(r), gridLon(c), h, p);
          radius = std::max(radius, distance(centre, p));
        }
    return radius;
  }

  bool writeGrid(const std::string& basePath, std::string& error) {
    BinaryWriter out;
    out.raw("GGFX", 4);
    out.u16(static_cast<uint16_t>(o_.versionMajor));
    out.u16(static_cast<uint16_t>(o_.versionMinor));
    out.f64(south_);
    out.f64(west_);
    out.f64(o_.cellLat);
    out.f64(o_.cellLon);
    out.i32(n_);
    out.i32(n_);
    out.i32(o_.depth > 0 ? o_.depth : depthFor(n_));
    if (hasExtendedHeader(o_)) {
      out.u32(1);  // header layout of this builder
      writeText(out, source_.describe());
      writeText(out, "qvscenery");
      out.u32(static_cast<uint32_t>(row_));
      out.u32(static_cast<uint32_t>(col_));
      out.u32(static_cast<uint32_t>(o_.blocksNS));
      out.u32(static_cast<uint32_t>(o_.blocksEW));
    } else {
      out.zeros(kReservedHeaderBytes);
    }
    for (size_t i = 0; i < grid_.size(); ++i) {
      out.f32(static_cast<float>(grid_[i]));
      out.f32(radii_[i]);
      out.f32(errors_[i]);
    }
    return writeFile(basePath + ".grd", out.bytes(), error);
  }

  bool writeTexture(const std::string& basePath, std::string& error) {
    const std::string text = "path = textures\nformat = DXT1\nsize = 1024\n";
    return writeFile(basePath + ".tex", std::vector<uint8_t>(text.begin(), text.end()), error);
  }

  const Options& o_;
  const ElevationSource& source_;
  const TinMesh& mesh_;
  int row_, col_, n_;
  double south_ = 0.0, west_ = 0.0;
  std::vector<double> grid_;
  std::vector<float> errors_, radii_;
  std::vector<double> cellErrors_;
  std::vector<double> levelResolutions_;  // metres, coarsest first
};

std::string plainBlockName(const Options& o, int row, int col) {
  const int lat = static_cast<int>(std::floor(o.south + row * o.cells * o.cellLat + 1e-9));
  const int lon = static_cast<int>(std::floor(o.west + col * o.cells * o.cellLon + 1e-9));
  char name[32];
  snprintf(name, sizeof name, "BLK%03d%c%03d%c%02d", std::abs(lat), lat < 0 ? 'S' : 'N', std::abs(lon),
           lon < 0 ? 'W' : 'E', o.level);
  return name;
}

// Blocks smaller than a degree share their whole-degree names; a row and column suffix, which the
// name parser ignores, keeps their directories apart and sorts them south to north, west to east.
bool needsSuffix(const Options& o) {
  std::set<std::string> names;
  for (int r = 0; r < o.blocksNS; ++r)
    for (int c = 0; c < o.blocksEW; ++c)
      if (!names.insert(plainBlockName(o, r, c)).second) return true;
  return false;
}

}  // namespace

int depthFor(int cells) {
  if (cells < 2 || (cells & (cells - 1)) != 0) return -1;
  int k = 0;
  while ((1 << k) < cells) ++k;
  return k + 1;
}

std::string validate(const Options& o) {
  std::ostringstream why;
  const int needed = depthFor(o.cells);
  if (o.outDir.empty()) {
    why << "no output directory (--out)";
  } else if (needed < 0 || o.cells > 4096) {
    why << "cells per block side must be a power of two from 2 to 4096, not " << o.cells;
  } else if (o.depth != 0 && o.depth != needed) {
    why << "a block of " << o.cells << " x " << o.cells << " cells needs quadtree depth " << needed
        << ", not " << o.depth
        << " (the quadtree halves its corner indices by integer means, so 2^k x 2^k cells take depth k + 1)";
  } else if (o.blocksNS < 1 || o.blocksEW < 1 || o.blocksNS > 1000 || o.blocksEW > 1000) {
    why << "the number of blocks must be 1 to 1000 each way";
  } else if (o.single && (o.blocksNS != 1 || o.blocksEW != 1)) {
    why << "--single writes one block; the scenery has " << o.blocksNS << " x " << o.blocksEW;
  } else if (!(o.cellLat > 0.0) || !(o.cellLon > 0.0) || !std::isfinite(o.cellLat) ||
             !std::isfinite(o.cellLon)) {
    why << "the cell size must be a positive number of degrees";
  } else if (!std::isfinite(o.south) || !std::isfinite(o.west) || o.south < -90.0 ||
             o.south + o.blocksNS * o.cells * o.cellLat > 90.0 || o.west < -180.0 ||
             o.west + o.blocksEW * o.cells * o.cellLon > 360.0) {
    why << "the scenery must lie between latitudes -90 and 90 and longitudes -180 and 360";
  } else if (o.level < 0 || o.level > 99) {
    why << "the block level must be 0 to 99";
  } else if (o.tinLevels < 1 || o.tinLevels > TinMesh::kMaxLevels) {
    why << "the TIN levels must be 1 to " << TinMesh::kMaxLevels;
  } else if (!o.resolutions.empty() && static_cast<int>(o.resolutions.size()) != o.tinLevels) {
    why << "give one resolution per TIN level (" << o.tinLevels << "), not " << o.resolutions.size();
  } else if (std::any_of(o.resolutions.begin(), o.resolutions.end(),
                         [](double r) { return !(r > 0.0) || !std::isfinite(r); })) {
    why << "resolutions must be positive numbers of metres";
  } else if (!(o.versionMajor == 1 && o.versionMinor >= 0 && o.versionMinor <= 2)) {
    why << "the grid format version must be 1.0, 1.1 or 1.2";
  }
  return why.str();
}

std::string blockName(const Options& o, int row, int col) {
  std::string name = plainBlockName(o, row, col);
  if (needsSuffix(o)) {
    char suffix[32];
    snprintf(suffix, sizeof suffix, "_%03d_%03d", row, col);
    name += suffix;
  }
  return name;
}

std::string blockBasePath(const Options& o, int row, int col) {
  if (o.single) return o.outDir + "/terrain";
  return o.outDir + "/" + blockName(o, row, col) + "/terrain";
}

BuildResult buildScenery(const Options& options, const ElevationSource& source) {
  BuildResult result;
  result.error = validate(options);
  if (!result.error.empty()) return result;
  const TinMesh mesh(options.tinLevels, options.spread);
  for (int row = 0; row < options.blocksNS; ++row) {
    for (int col = 0; col < options.blocksEW; ++col) {
      const std::string basePath = blockBasePath(options, row, col);
      std::error_code ec;
      std::filesystem::create_directories(std::filesystem::path(basePath).parent_path(), ec);
      if (ec) {
        result.error =
            "can't create " + std::filesystem::path(basePath).parent_path().string() + ": " + ec.message();
        return result;
      }
      BlockWriter writer(options, source, mesh, row, col);
      if (!writer.write(basePath, result.error)) return result;
      result.basePaths.push_back(basePath);
    }
  }
  return result;
}

}  // namespace qvscenery
