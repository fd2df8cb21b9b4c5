// Where the builder's heights come from: analytic terrain for tests and demonstrations, or (in the
// qvscenery program) elevation rasters read through GDAL.
#pragma once

#include <memory>
#include <string>

namespace qvscenery {

constexpr double kEarthRadius = 6378000.0;  // metres, the terrain's sphere
constexpr double kMetresPerDegree = 2.0 * 3.14159265358979323846 * kEarthRadius / 360.0;
constexpr double kPi = 3.14159265358979323846;

class ElevationSource {
 public:
  virtual ~ElevationSource() = default;
  // Metres above the sphere at a latitude and longitude in degrees; NaN where the source has no data.
  virtual double height(double lat, double lon) const = 0;
  // A short description written into the 1.2 grid header.
  virtual std::string describe() const = 0;
};

// Local flat-earth metres from a reference point: north = (lat - refLat) * kMetresPerDegree,
// east = (lon - refLon) * kMetresPerDegree * cos(refLat). Heights of the analytic sources are exact
// functions of these two, so a test can work out the true answer by hand.
struct LocalFrame {
  double refLat = 0.0, refLon = 0.0;  // degrees
  double north(double lat) const;
  double east(double lon) const;
};

std::unique_ptr<ElevationSource> makeFlat(double height);
// Height h0 at the reference point, rising at slopeDeg degrees towards the bearing (0 north, 90 east).
std::unique_ptr<ElevationSource> makePlane(double h0, double slopeDeg, double bearingDeg, LocalFrame frame);
// base + amplitude * (1 + sin(2 pi north / wavelength) * sin(2 pi east / wavelength)) / 2: rounded hills
// and hollows between base and base + amplitude.
std::unique_ptr<ElevationSource> makeHills(double base, double amplitude, double wavelengthM,
                                           LocalFrame frame);

}  // namespace qvscenery
