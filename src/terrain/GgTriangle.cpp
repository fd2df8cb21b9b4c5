#include "terrain/GgTriangle.h"

#include <algorithm>
#include <cmath>

#include "terrain/GgConstants.h"

void localFrame(double lat, double lon, float m[4][4]) {
  const double a = lat * kGgRadiansPerDegree;
  const double b = lon * kGgRadiansPerDegree;
  const double rows[4][4] = {{-std::cos(b) * std::sin(a), -std::sin(b), -std::cos(b) * std::cos(a), 0.0},
                             {-std::sin(b) * std::sin(a), std::cos(b), -std::sin(b) * std::cos(a), 0.0},
                             {std::cos(a), 0.0, -std::sin(a), 0.0},
                             {0.0, 0.0, 0.0, 1.0}};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) m[i][j] = static_cast<float>(rows[i][j]);
}

void GgTriangle::calcNormal() {
  const double* p0 = positions[0];
  const double* p1 = positions[1];
  const double* p2 = positions[2];
  const double u[3] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
  const double v[3] = {p2[0] - p0[0], p2[1] - p0[1], p2[2] - p0[2]};
  // Counter-clockwise vertices seen from above give a normal pointing away from the earth.
  double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
  const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
  if (length > 0.0)
    for (double& c : n) c /= length;
  for (int i = 0; i < 3; ++i) normal[i] = n[i];

  const double c[3] = {(p0[0] + p1[0] + p2[0]) / 3.0, (p0[1] + p1[1] + p2[1]) / 3.0,
                       (p0[2] + p1[2] + p2[2]) / 3.0};
  const double cLength = std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]);
  const double lat =
      cLength > 0.0 ? 90.0 - std::acos(std::clamp(c[2] / cLength, -1.0, 1.0)) * kGgDegreesPerRadian : 0.0;
  const double lon = std::atan2(c[1], c[0]) * kGgDegreesPerRadian;
  float frame[4][4];
  localFrame(lat, lon, frame);
  for (int axis = 0; axis < 3; ++axis)  // column 0 north, 1 east, 2 down
    localNormal[axis] = n[0] * frame[0][axis] + n[1] * frame[1][axis] + n[2] * frame[2][axis];
  normalStale = 0;
}
