// A task's turnpoint and the actions the situation file may attach to it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "toolkit/BtkObject.h"

// Attached to turnpoints by the situation file; the server stores actions and never evaluates them.
class SngWaypointAction : public BtkObject {};

class SngWaypointActionScanArea : public SngWaypointAction {
 public:
  double scan_width = 50.0;      // m
  double scan_length = 1000.0;   // m
  double scan_direction = 0.0;   // degrees
  double scan_altitude = 200.0;  // m
  double scan_speed = 100.0 / 3.6;  // m/s (100 km/h)
  uint32_t scan_lines = 10;
};

// Observation-zone types.
enum SngZoneType : int32_t { SNG_OZ_CYLINDER = 0, SNG_OZ_SECTOR = 1, SNG_OZ_LINE = 2 };

struct SngTurnpoint {
  int32_t id = -1;
  double lat = -999.0;  // degrees, centre of the observation zone
  double lon = -999.0;
  double elev = 0.0;    // m
  std::string name;
  std::vector<BtkRef<SngWaypointAction>> actions;
  double radius = 500.0;     // m
  double angle1 = 0.0;       // degrees, direction of the sector's axis
  double angle2 = 180.0;     // degrees, half-angle of the sector
  double max_alt = 99999.0;  // m, highest altitude that still counts as inside
  int32_t oz = SNG_OZ_CYLINDER;
};
