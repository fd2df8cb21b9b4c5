// Shared geometry and radio helpers of the flight model.
#pragma once

#include <cstdint>

constexpr double kMetresPerNauticalMile = 1852.0;
constexpr double kNauticalMilesPerRadian = 3437.746770784939;
constexpr double kMetresPerDegreeOfArc = 111195.0;  // the law-of-cosines distance's own constant

struct BtkCourseDistance {
  double course = 0.0;  // radians, initial true course measured the flight model's way (see .cpp)
  double distance = 0.0;  // metres
};

// Great-circle distance and initial course on a sphere; all angles in radians.
BtkCourseDistance calcCourseDistance(double lat1, double lon1, double lat2, double lon2);
// Surface distance in metres by the spherical law of cosines; angles in degrees.
double surfaceDistance(double lat1, double lon1, double lat2, double lon2);
// The course of calcCourseDistance as the logs and the task report it: 360 - degrees(course).
double btkCourseDegrees(const BtkCourseDistance& cd);

constexpr double kRadioBaseMHz = 118.0;
constexpr double kRadioChannelsPerMHz = 40.0;  // 25 kHz steps
// The whole part of (mhz - 118) * 40, kept in 16 bits: 123.45 MHz is channel 218.
uint16_t btkCommChannel(double mhz);
double btkCommFrequencyMHz(uint16_t channel);

inline double btkRadians(double degrees) { return degrees * 0.017453292519943295; }
inline double btkDegrees(double radians) { return radians * 57.29577951308232; }
