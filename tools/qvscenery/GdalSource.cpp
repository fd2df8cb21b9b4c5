#include "GdalSource.h"

#include <cpl_conv.h>
#include <gdal.h>
#include <ogr_srs_api.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>

namespace qvscenery {

struct GdalSource::Raster {
  std::string path;
  GDALDatasetH dataset = nullptr;
  double transform[6] = {};  // pixel/line to raster coordinates
  double inverse[6] = {};
  OGRCoordinateTransformationH toRaster = nullptr;  // from WGS 84 longitude/latitude; null when geographic
  OGRCoordinateTransformationH toGeographic = nullptr;
  int width = 0, height = 0;
  // The loaded window: pixels [x0, x0 + w) x [y0, y0 + h), row by row from the top.
  int x0 = 0, y0 = 0, w = 0, h = 0;
  std::vector<float> values;

  ~Raster() {
    if (toRaster) OCTDestroyCoordinateTransformation(toRaster);
    if (toGeographic) OCTDestroyCoordinateTransformation(toGeographic);
    if (dataset) GDALClose(dataset);
  }

  // Raster pixel coordinates (continuous, pixel centres at +0.5) of a geographic point.
  bool pixelOf(double lat, double lon, double& px, double& py) const {
    double x = lon, y = lat, z = 0.0;
    if (toRaster && !OCTTransform(toRaster, 1, &x, &y, &z)) return false;
    px = inverse[0] + inverse[1] * x + inverse[2] * y;
    py = inverse[3] + inverse[4] * x + inverse[5] * y;
    return std::isfinite(px) && std::isfinite(py);
  }

  bool geographicOf(double px, double py, double& lat, double& lon) const {
    double x = transform[0] + transform[1] * px + transform[2] * py;
    double y = transform[3] + transform[4] * px + transform[5] * py;
    double z = 0.0;
    if (toGeographic && !OCTTransform(toGeographic, 1, &x, &y, &z)) return false;
    lon = x;
    lat = y;
    return true;
  }

  float at(int x, int y) const { return values[static_cast<size_t>(y - y0) * w + (x - x0)]; }
};

namespace {

OGRSpatialReferenceH wgs84() {
  OGRSpatialReferenceH srs = OSRNewSpatialReference(nullptr);
  OSRSetWellKnownGeogCS(srs, "WGS84");
  OSRSetAxisMappingStrategy(srs, OAMS_TRADITIONAL_GIS_ORDER);  // longitude first, as the transforms use
  return srs;
}

// Fills void cells (NaN) layer by layer from the outside in: each takes the mean of its filled
// neighbours, so a hole gets a smooth surface from its rim. Returns the number filled, or -1 when the
// window holds no data at all.
long fillVoids(std::vector<float>& values, int w, int h) {
  long voids = 0;
  std::deque<int> frontier;
  auto isVoid = [&](int i) { return std::isnan(values[static_cast<size_t>(i)]); };
  auto hasFilledNeighbour = [&](int i) {
    const int x = i % w, y = i / w;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx) {
        const int nx = x + dx, ny = y + dy;
        if ((dx || dy) && nx >= 0 && ny >= 0 && nx < w && ny < h && !isVoid(ny * w + nx)) return true;
      }
    return false;
  };
  for (int i = 0; i < w * h; ++i) {
    if (!isVoid(i)) continue;
    ++voids;
    if (hasFilledNeighbour(i)) frontier.push_back(i);
  }
  if (voids == static_cast<long>(w) * h) return -1;
  std::vector<char> queued(values.size(), 0);
  for (int i : frontier) queued[static_cast<size_t>(i)] = 1;
  while (!frontier.empty()) {
    std::vector<std::pair<int, float>> layer;
    std::deque<int> next;
    for (int i : frontier) {
      const int x = i % w, y = i / w;
      double sum = 0.0;
      int n = 0;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          const int nx = x + dx, ny = y + dy;
          if ((dx || dy) && nx >= 0 && ny >= 0 && nx < w && ny < h && !isVoid(ny * w + nx)) {
            sum += values[static_cast<size_t>(ny * w + nx)];
            ++n;
          }
        }
      layer.emplace_back(i, static_cast<float>(sum / n));
    }
    for (const auto& [i, v] : layer) values[static_cast<size_t>(i)] = v;
    for (const auto& [i, v] : layer) {
      const int x = i % w, y = i / w;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          const int nx = x + dx, ny = y + dy;
          if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
          const int j = ny * w + nx;
          if (isVoid(j) && !queued[static_cast<size_t>(j)]) {
            queued[static_cast<size_t>(j)] = 1;
            next.push_back(j);
          }
        }
    }
    frontier.swap(next);
  }
  return voids;
}

}  // namespace

GdalSource::GdalSource() {
  GDALAllRegister();
}

GdalSource::~GdalSource() = default;

bool GdalSource::open(const std::vector<std::string>& paths, std::string& error) {
  for (const std::string& path : paths) {
    auto raster = std::make_unique<Raster>();
    raster->path = path;
    raster->dataset = GDALOpen(path.c_str(), GA_ReadOnly);
    if (!raster->dataset) {
      error = "GDAL can't read " + path + ": " + CPLGetLastErrorMsg();
      return false;
    }
    if (GDALGetRasterCount(raster->dataset) < 1) {
      error = path + " has no raster band";
      return false;
    }
    raster->width = GDALGetRasterXSize(raster->dataset);
    raster->height = GDALGetRasterYSize(raster->dataset);
    if (GDALGetGeoTransform(raster->dataset, raster->transform) != CE_None ||
        !GDALInvGeoTransform(raster->transform, raster->inverse)) {
      error = path + " has no usable geotransform";
      return false;
    }
    const char* wkt = GDALGetProjectionRef(raster->dataset);
    if (wkt && *wkt) {
      OGRSpatialReferenceH srs = OSRNewSpatialReference(wkt);
      OGRSpatialReferenceH geographic = wgs84();
      OSRSetAxisMappingStrategy(srs, OAMS_TRADITIONAL_GIS_ORDER);
      if (!OSRIsGeographic(srs)) {
        raster->toRaster = OCTNewCoordinateTransformation(geographic, srs);
        raster->toGeographic = OCTNewCoordinateTransformation(srs, geographic);
        if (!raster->toRaster || !raster->toGeographic)
          error = path + ": its projection can't be transformed";
      }
      OSRDestroySpatialReference(srs);
      OSRDestroySpatialReference(geographic);
      if (!error.empty()) return false;
    }  // no projection: taken as geographic longitude and latitude
    rasters_.push_back(std::move(raster));
  }
  if (rasters_.empty()) {
    error = "no elevation file given";
    return false;
  }
  return true;
}

GeoExtent GdalSource::extent() const {
  GeoExtent e;
  for (const auto& raster : rasters_) {
    constexpr int kSamples = 16;  // along each edge: a projected raster's edges are curves in degrees
    for (int i = 0; i <= kSamples; ++i) {
      const double t = static_cast<double>(i) / kSamples;
      const double edge[4][2] = {{t * raster->width, 0},
                                 {t * raster->width, static_cast<double>(raster->height)},
                                 {0, t * raster->height},
                                 {static_cast<double>(raster->width), t * raster->height}};
      for (const auto& p : edge) {
        double lat, lon;
        if (!raster->geographicOf(p[0], p[1], lat, lon)) continue;
        e.south = std::min(e.south, lat);
        e.north = std::max(e.north, lat);
        e.west = std::min(e.west, lon);
        e.east = std::max(e.east, lon);
      }
    }
  }
  return e;
}

bool GdalSource::load(const GeoExtent& area, std::string& error) {
  for (auto& raster : rasters_) {
    double minX = std::numeric_limits<double>::max(), minY = minX, maxX = -minX, maxY = -minX;
    constexpr int kSamples = 32;
    for (int i = 0; i <= kSamples; ++i) {
      for (int j = 0; j <= kSamples; ++j) {
        double px, py;
        const double lat = area.south + (area.north - area.south) * i / kSamples;
        const double lon = area.west + (area.east - area.west) * j / kSamples;
        if (!raster->pixelOf(lat, lon, px, py)) continue;
        minX = std::min(minX, px);
        maxX = std::max(maxX, px);
        minY = std::min(minY, py);
        maxY = std::max(maxY, py);
      }
    }
    constexpr int kMargin = 3;  // pixels, for the bilinear neighbours and the normals' differences
    raster->x0 = std::clamp(static_cast<int>(std::floor(std::max(minX, -1e9))) - kMargin, 0, raster->width);
    raster->y0 = std::clamp(static_cast<int>(std::floor(std::max(minY, -1e9))) - kMargin, 0, raster->height);
    const int x1 = std::clamp(static_cast<int>(std::ceil(std::min(maxX, 1e9))) + kMargin, 0, raster->width);
    const int y1 = std::clamp(static_cast<int>(std::ceil(std::min(maxY, 1e9))) + kMargin, 0, raster->height);
    raster->w = std::max(0, x1 - raster->x0);
    raster->h = std::max(0, y1 - raster->y0);
    if (raster->w == 0 || raster->h == 0) continue;  // does not reach the area
    raster->values.assign(static_cast<size_t>(raster->w) * raster->h, 0.0f);
    GDALRasterBandH band = GDALGetRasterBand(raster->dataset, 1);
    if (GDALRasterIO(band, GF_Read, raster->x0, raster->y0, raster->w, raster->h, raster->values.data(),
                     raster->w, raster->h, GDT_Float32, 0, 0) != CE_None) {
      error = "GDAL can't read the elevations of " + raster->path + ": " + CPLGetLastErrorMsg();
      return false;
    }
    int hasNoData = 0;
    const double noData = GDALGetRasterNoDataValue(band, &hasNoData);
    for (float& v : raster->values) {
      if ((hasNoData && v == static_cast<float>(noData)) || !std::isfinite(v) || v <= -32767.0f)
        v = std::numeric_limits<float>::quiet_NaN();
    }
    const long filled = fillVoids(raster->values, raster->w, raster->h);
    if (filled < 0) {
      error = raster->path + " holds no elevation over the scenery";
      return false;
    }
    filledVoids_ += filled;
  }
  return true;
}

double GdalSource::height(double lat, double lon) const {
  for (const auto& raster : rasters_) {
    if (raster->w == 0 || raster->h == 0) continue;
    double px, py;
    if (!raster->pixelOf(lat, lon, px, py)) continue;
    // Pixel centres lie at +0.5; outside the outermost centres the edge value holds.
    const double fx = px - 0.5, fy = py - 0.5;
    if (fx < raster->x0 - 0.5 || fy < raster->y0 - 0.5 || fx > raster->x0 + raster->w - 0.5 ||
        fy > raster->y0 + raster->h - 0.5)
      continue;
    const int lastX = raster->x0 + raster->w - 1, lastY = raster->y0 + raster->h - 1;
    const double cx = std::clamp(fx, static_cast<double>(raster->x0), static_cast<double>(lastX));
    const double cy = std::clamp(fy, static_cast<double>(raster->y0), static_cast<double>(lastY));
    const int ix = static_cast<int>(std::floor(cx)), iy = static_cast<int>(std::floor(cy));
    const int ix1 = std::min(ix + 1, lastX), iy1 = std::min(iy + 1, lastY);
    const double tx = cx - ix, ty = cy - iy;
    const double top = raster->at(ix, iy) * (1 - tx) + raster->at(ix1, iy) * tx;
    const double bottom = raster->at(ix, iy1) * (1 - tx) + raster->at(ix1, iy1) * tx;
    return top * (1 - ty) + bottom * ty;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

std::string GdalSource::describe() const {
  std::string text;
  for (const auto& raster : rasters_) {
    const size_t slash = raster->path.find_last_of('/');
    if (!text.empty()) text += " ";
    text += slash == std::string::npos ? raster->path : raster->path.substr(slash + 1);
  }
  return text;
}

}  // namespace qvscenery
