#include "toolkit/BtkGeo.h"

#include <algorithm>
#include <cmath>

BtkCourseDistance calcCourseDistance(double lat1, double lon1, double lat2, double lon2) {
  BtkCourseDistance result;
  const double sinHalfLat = std::sin((lat1 - lat2) / 2.0);
  const double sinHalfLon = std::sin((lon1 - lon2) / 2.0);
  const double haversine = sinHalfLat * sinHalfLat + std::cos(lat1) * std::cos(lat2) * sinHalfLon * sinHalfLon;
  // Rounding can push the argument a hair above 1 for antipodes; asin would give NaN.
  const double a = 2.0 * std::asin(std::sqrt(std::min(1.0, haversine)));
  if (a < 1e-13) return result;
  double q = (std::sin(lat2) - std::sin(lat1) * std::cos(a)) / (std::sin(a) * std::cos(lat1));
  q = std::clamp(q, -1.0, 1.0);
  const double c = std::acos(q);
  // The flight model measures courses anticlockwise: east is 3*pi/2, west pi/2.
  result.course = std::sin(lon2 - lon1) < 0.0 ? c : 2.0 * M_PI - c;
  result.distance = a * kNauticalMilesPerRadian * kMetresPerNauticalMile;
  return result;
}

double surfaceDistance(double lat1, double lon1, double lat2, double lon2) {
  const double p1 = btkRadians(lat1), p2 = btkRadians(lat2);
  const double c = std::cos(p1) * std::cos(p2) * std::cos(btkRadians(lon1 - lon2)) + std::sin(p1) * std::sin(p2);
  if (c >= 1.0) return 0.0;
  return btkDegrees(std::acos(std::max(c, -1.0))) * kMetresPerDegreeOfArc;
}

double btkCourseDegrees(const BtkCourseDistance& cd) { return 360.0 - btkDegrees(cd.course); }

uint16_t btkCommChannel(double mhz) {
  const double channel = std::trunc((mhz - kRadioBaseMHz) * kRadioChannelsPerMHz);
  // Kept in 16 bits as the wire carries it; out-of-range frequencies wrap rather than trap.
  if (!std::isfinite(channel)) return 0;
  return static_cast<uint16_t>(static_cast<int64_t>(std::fmod(channel, 65536.0)));
}

double btkCommFrequencyMHz(uint16_t channel) { return kRadioBaseMHz + channel / kRadioChannelsPerMHz; }
