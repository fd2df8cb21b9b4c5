#include "QvFlight.h"

#include <cmath>

#include "toolkit/BtkGeo.h"

namespace {

constexpr double kPi = 3.141592653589793;
// The sphere of the server's distance measure, so that a test's distances agree with its scoring.
constexpr double kEarthRadiusM = kNauticalMilesPerRadian * kMetresPerNauticalMile;
// Below this angular distance (about 6 mm) the course at the end is taken as the course at the start.
constexpr double kTinyArcRad = 1e-9;

double normalisedLongitude(double lonDeg) {
  double lon = std::fmod(lonDeg + 180.0, 360.0);
  if (lon < 0.0) lon += 360.0;
  return lon - 180.0;
}

double normalisedRadians(double angle) {
  double a = std::fmod(angle, 2.0 * kPi);
  if (a < 0.0) a += 2.0 * kPi;
  return a;
}

// Initial true course (radians, clockwise from north) from a to b, all angles in radians.
double initialCourse(double latA, double lonA, double latB, double lonB) {
  const double dLon = lonB - lonA;
  return std::atan2(std::sin(dLon) * std::cos(latB),
                    std::cos(latA) * std::sin(latB) - std::sin(latA) * std::cos(latB) * std::cos(dLon));
}

}  // namespace

QvPosition qvDestination(double latDeg, double lonDeg, double courseDeg, double distanceM) {
  const double lat1 = btkRadians(latDeg);
  const double lon1 = btkRadians(lonDeg);
  const double course = btkRadians(courseDeg);
  const double arc = distanceM / kEarthRadiusM;
  const double sinLat2 = std::sin(lat1) * std::cos(arc) + std::cos(lat1) * std::sin(arc) * std::cos(course);
  const double lat2 = std::asin(std::fmax(-1.0, std::fmin(1.0, sinLat2)));
  const double lon2 = lon1 + std::atan2(std::sin(course) * std::sin(arc) * std::cos(lat1),
                                        std::cos(arc) - std::sin(lat1) * sinLat2);
  return {btkDegrees(lat2), normalisedLongitude(btkDegrees(lon2))};
}

SngAircraftState QvStraightFlight::next() {
  const double elapsed = static_cast<double>(states_made_) * plan_.step;
  ++states_made_;
  return stateAt(elapsed);
}

SngAircraftState QvStraightFlight::stateAt(double realElapsedS) const {
  const double clientElapsedS = realElapsedS * plan_.time_scale;
  const double distanceM = plan_.speed_kmh / 3.6 * clientElapsedS;
  const QvPosition here = qvDestination(plan_.lat, plan_.lon, plan_.course, distanceM);

  SngAircraftState state;
  state.time = plan_.start_time + clientElapsedS;
  state.lat = here.lat;
  state.lon = here.lon;
  state.alt = plan_.alt;
  // A great circle's course changes along the way; the heading is the course at this point: the
  // reverse of the course from here back to the start (the course itself when flying backwards).
  double heading = btkRadians(plan_.course);
  if (std::fabs(distanceM) / kEarthRadiusM > kTinyArcRad) {
    heading = initialCourse(btkRadians(here.lat), btkRadians(here.lon), btkRadians(plan_.lat),
                            btkRadians(plan_.lon));
    if (distanceM > 0.0) heading += kPi;
  }
  state.heading = normalisedRadians(heading);
  return state;
}
