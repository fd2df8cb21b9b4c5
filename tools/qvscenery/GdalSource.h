// Elevation rasters read through GDAL: any raster it reads (SRTM .hgt, GeoTIFF, ASCII grids), in
// geographic or projected coordinates. The window that the scenery needs is read into memory, its
// voids are filled from their surroundings, and heights are sampled bilinearly.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ElevationSource.h"

namespace qvscenery {

struct GeoExtent {
  double south = 90.0, west = 180.0, north = -90.0, east = -180.0;  // degrees
  bool empty() const { return north <= south || east <= west; }
};

class GdalSource : public ElevationSource {
 public:
  GdalSource();
  ~GdalSource() override;
  GdalSource(const GdalSource&) = delete;
  GdalSource& operator=(const GdalSource&) = delete;

  // Opens the rasters (metadata only); false with a reason.
  bool open(const std::vector<std::string>& paths, std::string& error);
  // The union of the rasters' extents in geographic degrees.
  GeoExtent extent() const;
  // Reads what covers the area, with a margin, and fills its voids; false with a reason.
  bool load(const GeoExtent& area, std::string& error);

  double height(double lat, double lon) const override;
  std::string describe() const override;
  // Void cells filled by load(), over all rasters.
  long filledVoids() const { return filledVoids_; }

 private:
  struct Raster;
  std::vector<std::unique_ptr<Raster>> rasters_;
  long filledVoids_ = 0;
};

}  // namespace qvscenery
