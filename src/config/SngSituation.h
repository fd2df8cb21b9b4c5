// The session a situation file describes: aircraft and launch, scenery, date and time, weather, task,
// AI traffic and the multiplayer server's settings. The server reads it once at start-up.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "session/SngTurnpoint.h"

struct SngWindLayer {
  double altitude = 0.0;   // m
  double direction = 0.0;  // degrees
  double strength = 0.0;
};

// An AI or replayed flight of the simulator's traffic. Stored as read; the server never uses it.
struct SngAiFlight {
  std::string aircraft_id;
  std::string type;  // "IGC", "AI" or "VPOS"
  std::string mode;  // "FOLLOW" or "FOLLOW_TASK"
  std::string igc_file;
  std::string tracker_id;
  int32_t traffic_level = 0;
  double latitude = 0.0;   // degrees
  double longitude = 0.0;  // degrees
  double altitude = 0.0;   // m
  double heading = 0.0;    // degrees
  double airspeed = 0.0;
  std::string pilot_name;
  std::string glider_type;
  std::string comp_id;
  std::string registration;
  std::vector<double> reg_color;
  std::vector<double> comp_color;
  std::vector<double> track_color;
  std::vector<double> label_color;
  int32_t track_thickness = 0;
  int32_t utc_offset = 0;  // hours
  double start_time = 0.0;
  double delay = 0.0;
  int32_t task_id = 0;
  std::vector<SngTurnpoint> turnpoints;
};

// Bits of mp_server_flags that boolean keys set or clear.
constexpr uint32_t kSngFlagThermalCheat = 1u << 0;
constexpr uint32_t kSngFlagVisualTracks = 1u << 1;
constexpr uint32_t kSngFlagDaylightEffects = 1u << 5;

enum SngTimeZoneMode : int32_t { SNG_TIME_OF_DAY = 0, SNG_TIME_LOCAL = 1, SNG_TIME_UTC_OFFSET = 2 };

// Field names are the keys that set them; the initial values are the defaults of a file without them.
struct SngSituation {
  // Turnpoints and wind layers kept from the file: the wire counts each list in one byte.
  static constexpr size_t kMaxListEntries = 255;

  std::vector<SngWindLayer> wind_layers;
  std::vector<SngAiFlight> flights;
  std::vector<std::string> ai_glider_types;
  int32_t traffic = 0;
  int32_t wingmen = 0;
  int32_t task_followers = 0;
  int32_t task_id = 0;
  double ai_skill_level = 1.0;
  int32_t start_gate_open_time = 0;     // seconds of the day
  double start_gate_altitude = 9999.0;  // m
  bool competition_mode = false;
  bool regatta_start = false;
  int32_t start_gate_altitude_ref = 0;  // 0 sea level, 1 ground
  int32_t max_num_thermals = 3750;
  double thermal_strength = 5.0;
  double thermal_radius = 300.0;    // m
  double thermal_ceiling = 2100.0;  // m
  double thermal_area = 50.0;       // km
  double thermal_dist = 5000.0;     // m
  double cumulus_prob = 0.5;
  double cumulus_base = 1800.0;  // m
  double visibility = 50000.0;   // m
  double turbulence_strength = 1.0;
  int32_t max_num_sink = 0;
  double max_sink_radius = 1000.0;  // m
  double min_sink_radius = 200.0;   // m
  double sink_strength = 2.5;
  int32_t wind_str = 0;
  int32_t wind_dir = 0;
  bool gen_layers = true;
  bool research = false;
  bool fixed_altitude_set = false;
  double fixed_altitude = 0.0;
  bool use_fixed_thermal = false;
  double fixed_thermal_radius = 500.0;
  double thermal_height = 10000.0;
  double thermal_latitude = 0.0;
  double thermal_longitude = 0.0;
  double thermal_max_lift = 5.0;
  double thermal_max_sink = 5.0;
  std::string thermal_profile;
  std::string noise_profile;
  std::string thermal_data;
  int32_t altitudeRef = 1;  // 0 sea level, 1 ground
  double roll = 0.0;
  double pitch = 0.0;
  double yaw = 0.0;
  double speed = 30.0;
  double latitude = 60.22;   // degrees
  double longitude = 10.3;   // degrees
  double altitude = 1000.0;  // m
  std::string aircraftId = "twin2";
  std::string towplaneId = "pawnee";
  std::string terrainId;
  std::string towScript;
  std::string pilot_name = "not set";
  std::string vpos_user;
  std::string vpos_pass;
  std::string vpos_server;
  std::string vpos_date;
  std::string vpos_comp;
  std::string vpos_mode = "PILOT";
  int32_t vpos_port = 80;
  std::string airport_name;
  double airport_lat = 0.0;
  double airport_lon = 0.0;
  double airport_elev = 0.0;
  std::string runway;
  bool aerotow = false;
  bool winchlaunch = false;
  bool selflaunch = false;
  double winch_cable_length = 0.0;  // m
  bool uav = false;
  double uav_cruise_alt = 2000.0;  // m
  double uav_cruise_speed = 140.0;
  int32_t hour = 12;
  int32_t minute = 0;
  int32_t second = 0;
  int32_t day = 1;
  int32_t month = 6;
  int32_t year = 2000;
  int32_t time_zone_mode = SNG_TIME_OF_DAY;
  int32_t utc_offset = 0;  // hours
  std::vector<SngTurnpoint> turnpoints;
  bool multiplayer = false;
  std::string mp_server = "localhost";
  int32_t mp_port = 1610;
  int32_t mp_player_id = 255;
  std::string mp_nick;
  int32_t mp_max_players = 32;
  std::string mp_server_name = "Default server";
  std::string mp_server_address;
  std::string mp_server_admin = "admin@localhost";
  std::string mp_server_message_file;
  int32_t mp_server_port = 1610;
  std::string flight_desc;
  uint32_t mp_server_flags = 255;
  double mp_comm_frq = 123.45;  // MHz
  int32_t mp_voice_codec = 0;

  // Reads the file over the current values: keys that do not occur keep them, lists are appended to.
  // False only when the file cannot be opened. A failed include ends the reading, still true.
  // ignoredLines, when given, receives the lines that no key took (unknown keys, bad values).
  bool load(const std::string& path, std::vector<std::string>* ignoredLines = nullptr);

  // The radio channel of mp_comm_frq, the server's default channel (123.45 MHz gives 218).
  uint16_t defaultCommChannel() const;
};
