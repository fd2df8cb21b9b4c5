// Figures of the terrain library's sphere and the earth-centred axes its positions use.
#pragma once

#include <cmath>

constexpr double EARTH_RADIUS = 6378000.0;  // metres; the terrain is a sphere, not an ellipsoid
constexpr double METRES_PER_DEGREE = 2.0 * 3.14159265358979323846 * EARTH_RADIUS / 360.0;
constexpr double kGgRadiansPerDegree = 0.017453292519943295;
constexpr double kGgDegreesPerRadian = 57.29577951308232;

// Earth-centred axes: x towards latitude 0 longitude 0, y towards latitude 0 longitude 90 east, z towards
// the north pole. Angles in degrees, height in metres above the sphere.
inline void ggEarthPoint(double latDeg, double lonDeg, double height, double out[3]) {
  const double a = latDeg * kGgRadiansPerDegree;
  const double b = lonDeg * kGgRadiansPerDegree;
  const double r = EARTH_RADIUS + height;
  out[0] = r * std::cos(a) * std::cos(b);
  out[1] = r * std::cos(a) * std::sin(b);
  out[2] = r * std::sin(a);
}
