#include "config/SngSituation.h"

#include <climits>
#include <cstdio>
#include <cstring>

#include "config/BtkCfgFile.h"
#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"

namespace {

bool contains(const std::string& text, const char* word) {
  return text.find(word) != std::string::npos;
}

int negated(int value) {
  return value == INT_MIN ? INT_MAX : -value;
}

// "QNH" and "MSL" (exactly) mean sea level; any other reference means ground.
int32_t altitudeReference(const std::string& value) {
  return value == "QNH" || value == "MSL" ? 0 : 1;
}

// Seconds of the day from "13:30:00", or a plain number of seconds.
int32_t secondsOfDay(const std::string& value) {
  if (!contains(value, ":")) return BtkCfgFile::toInt(value.c_str());
  int hours = 0, minutes = 0, seconds = 0;
  sscanf(value.c_str(), "%02d:%02d:%02d", &hours, &minutes, &seconds);  // each field at most two digits
  return (hours * 60 + minutes) * 60 + seconds;
}

// "local", "UTC+2" / "GMT-5", or a time of day "14:05:30" / "140530". The zone forms keep the time of day.
void applyTime(SngSituation& s, const std::string& value) {
  if (contains(value, "local")) {
    s.time_zone_mode = SNG_TIME_LOCAL;
    return;
  }
  if (contains(value, "utc") || contains(value, "gmt") || contains(value, "GMT") || contains(value, "UTC")) {
    s.time_zone_mode = SNG_TIME_UTC_OFFSET;
    const size_t plus = value.find('+'), minus = value.find('-');
    if (plus != std::string::npos)
      s.utc_offset = BtkCfgFile::toInt(value.c_str() + plus + 1);
    else if (minus != std::string::npos)
      s.utc_offset = negated(BtkCfgFile::toInt(value.c_str() + minus + 1));
    return;
  }
  s.time_zone_mode = SNG_TIME_OF_DAY;
  if (contains(value, ":"))
    sscanf(value.c_str(), "%02d:%02d:%02d", &s.hour, &s.minute, &s.second);
  else
    sscanf(value.c_str(), "%02d%02d%02d", &s.hour, &s.minute, &s.second);
}

// One pass over a situation file. Keys are tried in a fixed order and the first that matches takes the
// line, so a key whose name hides inside another's value ("speed" in a server name) wins when tried first.
class SngSituationReader {
 public:
  SngSituationReader(BtkCfgFile& cfg, SngSituation& s, std::vector<std::string>* ignored)
      : cfg_(cfg), s_(s), ignored_(ignored) {}

  void readAll() {
    char line[BtkCfgFile::kLineSize];
    while (cfg_.readLine(line, sizeof line))
      if (!topLevelKey(line)) ignore(line);
  }

 private:
  bool topLevelKey(const char* line) {
    return aircraftKey(line) || vposKey(line) || multiplayerKey(line) || sessionKey(line) ||
           airportBlock(line) || trafficKey(line) || flightBlock(line) || weatherBlock(line) ||
           cfg_.getInt(line, "task_id", s_.task_id) || taskBlock(line, s_.turnpoints) || researchBlock(line);
  }

  bool aircraftKey(const char* line) {
    return cfg_.getString(line, "aircraftId", s_.aircraftId) ||
           cfg_.getString(line, "terrainId", s_.terrainId) ||
           cfg_.getString(line, "towplaneId", s_.towplaneId) ||
           cfg_.getString(line, "towScript", s_.towScript) || cfg_.getDouble(line, "speed", s_.speed) ||
           altitudeRefKey(line, "altitudeRef", s_.altitudeRef) ||
           cfg_.getDouble(line, "altitude", s_.altitude) || cfg_.getDouble(line, "roll", s_.roll) ||
           cfg_.getDouble(line, "pitch", s_.pitch) || cfg_.getDouble(line, "yaw", s_.yaw) ||
           cfg_.getDouble(line, "latitude", s_.latitude) || cfg_.getDouble(line, "longitude", s_.longitude) ||
           cfg_.getBool(line, "selflaunch", s_.selflaunch) || cfg_.getBool(line, "aerotow", s_.aerotow) ||
           cfg_.getBool(line, "winchlaunch", s_.winchlaunch) ||
           cfg_.getDouble(line, "winch_cable_length", s_.winch_cable_length);
  }

  bool vposKey(const char* line) {
    return cfg_.getString(line, "vpos_user", s_.vpos_user) ||
           cfg_.getString(line, "vpos_pass", s_.vpos_pass) ||
           cfg_.getString(line, "vpos_server", s_.vpos_server) ||
           cfg_.getString(line, "vpos_date", s_.vpos_date) ||
           cfg_.getString(line, "vpos_comp", s_.vpos_comp) ||
           cfg_.getString(line, "vpos_mode", s_.vpos_mode) || cfg_.getInt(line, "vpos_port", s_.vpos_port);
  }

  bool multiplayerKey(const char* line) {
    return cfg_.getBool(line, "multiplayer", s_.multiplayer) ||
           cfg_.getString(line, "mp_server", s_.mp_server) ||
           cfg_.getString(line, "mp_server_name", s_.mp_server_name) ||
           cfg_.getString(line, "mp_server_message_file", s_.mp_server_message_file) ||
           cfg_.getString(line, "mp_server_admin", s_.mp_server_admin) || flagsKey(line) ||
           cfg_.getDouble(line, "mp_comm_frq", s_.mp_comm_frq) ||
           cfg_.getInt(line, "mp_voice_codec", s_.mp_voice_codec) ||
           flagBitKey(line, "mp_allow_thermal_cheat", kSngFlagThermalCheat) ||
           flagBitKey(line, "mp_allow_visual_tracks", kSngFlagVisualTracks) ||
           flagBitKey(line, "mp_daylight_effects", kSngFlagDaylightEffects) ||
           cfg_.getString(line, "mp_server_address", s_.mp_server_address) ||
           cfg_.getInt(line, "mp_server_port", s_.mp_server_port) ||
           cfg_.getString(line, "flight_desc", s_.flight_desc) ||
           cfg_.getInt(line, "mp_max_players", s_.mp_max_players) ||
           cfg_.getString(line, "mp_nick", s_.mp_nick) || cfg_.getInt(line, "mp_port", s_.mp_port) ||
           cfg_.getInt(line, "mp_player_id", s_.mp_player_id);
  }

  bool sessionKey(const char* line) {
    std::string value;
    if (cfg_.getBool(line, "uav", s_.uav) || cfg_.getDouble(line, "uav_cruise_alt", s_.uav_cruise_alt) ||
        cfg_.getDouble(line, "uav_cruise_speed", s_.uav_cruise_speed))
      return true;
    if (cfg_.getString(line, "date", value)) {
      sscanf(value.c_str(), "%02d%02d%04d", &s_.day, &s_.month, &s_.year);
      return true;
    }
    if (cfg_.getString(line, "date_str", value)) {
      sscanf(value.c_str(), "%04d%02d%02d", &s_.year, &s_.month, &s_.day);
      return true;
    }
    if (cfg_.getString(line, "time", value)) {
      applyTime(s_, value);
      return true;
    }
    return cfg_.getString(line, "pilot_name", s_.pilot_name);
  }

  bool trafficKey(const char* line) {
    std::string value;
    if (cfg_.getInt(line, "random_traffic", s_.traffic) || cfg_.getInt(line, "traffic", s_.traffic) ||
        cfg_.getInt(line, "wingmen", s_.wingmen) || cfg_.getInt(line, "task_followers", s_.task_followers) ||
        cfg_.getDouble(line, "ai_skill_level", s_.ai_skill_level) ||
        cfg_.getBool(line, "competition_mode", s_.competition_mode) ||
        cfg_.getDouble(line, "start_gate_altitude", s_.start_gate_altitude) ||
        cfg_.getBool(line, "regatta_start", s_.regatta_start) ||
        altitudeRefKey(line, "start_gate_altitude_ref", s_.start_gate_altitude_ref))
      return true;
    if (cfg_.getString(line, "start_gate_open_time", value)) {
      s_.start_gate_open_time = secondsOfDay(value);
      return true;
    }
    return cfg_.getStringArray(line, "ai_glider_types", s_.ai_glider_types);
  }

  bool altitudeRefKey(const char* line, const char* key, int32_t& target) {
    std::string value;
    if (!cfg_.getString(line, key, value)) return false;
    target = altitudeReference(value);
    return true;
  }

  bool flagsKey(const char* line) {
    int flags = 0;
    if (!cfg_.getInt(line, "mp_server_flags", flags)) return false;
    s_.mp_server_flags = static_cast<uint32_t>(flags);
    return true;
  }

  bool flagBitKey(const char* line, const char* key, uint32_t bit) {
    bool on = false;
    if (!cfg_.getBool(line, key, on)) return false;
    s_.mp_server_flags = on ? s_.mp_server_flags | bit : s_.mp_server_flags & ~bit;
    return true;
  }

  bool airportBlock(const char* line) {
    if (!cfg_.findBlock(line, "airport")) return false;
    readBlock([this](const char* l) {
      return cfg_.getString(l, "name", s_.airport_name) || cfg_.getString(l, "runway", s_.runway) ||
             cfg_.getDouble(l, "lat", s_.airport_lat) || cfg_.getDouble(l, "lon", s_.airport_lon) ||
             cfg_.getDouble(l, "elev", s_.airport_elev);
    });
    return true;
  }

  bool weatherBlock(const char* line) {
    if (!cfg_.findBlock(line, "weather")) return false;
    readBlock([this](const char* l) {
      return cfg_.getDouble(l, "thermal_strength", s_.thermal_strength) ||
             cfg_.getDouble(l, "thermal_dist", s_.thermal_dist) ||
             cfg_.getDouble(l, "thermal_radius", s_.thermal_radius) ||
             cfg_.getDouble(l, "thermal_ceiling", s_.thermal_ceiling) ||
             cfg_.getInt(l, "max_num_thermals", s_.max_num_thermals) ||
             cfg_.getDouble(l, "thermal_area", s_.thermal_area) ||
             cfg_.getDouble(l, "cumulus_prob", s_.cumulus_prob) ||
             cfg_.getDouble(l, "cumulus_base", s_.cumulus_base) ||
             cfg_.getDouble(l, "visibility", s_.visibility) ||
             cfg_.getInt(l, "max_num_sink", s_.max_num_sink) ||
             cfg_.getDouble(l, "max_sink_radius", s_.max_sink_radius) ||
             cfg_.getDouble(l, "min_sink_radius", s_.min_sink_radius) ||
             cfg_.getDouble(l, "sink_strength", s_.sink_strength) ||
             cfg_.getDouble(l, "turbulence_strength", s_.turbulence_strength) || windLayerBlock(l) ||
             simpleBlock(l);
    });
    return true;
  }

  // Every layer starts at 0; one cut off by the end of the file is dropped.
  bool windLayerBlock(const char* line) {
    if (!cfg_.findBlock(line, "wind_layer")) return false;
    fprintf(stderr, "wind layer %zu: ", s_.wind_layers.size());
    SngWindLayer layer;
    const bool closed = readBlock([this, &layer](const char* l) {
      return cfg_.getDouble(l, "altitude", layer.altitude) ||
             cfg_.getDouble(l, "direction", layer.direction) || cfg_.getDouble(l, "strength", layer.strength);
    });
    if (closed) s_.wind_layers.push_back(layer);
    return true;
  }

  bool simpleBlock(const char* line) {
    if (!cfg_.findBlock(line, "simple")) return false;
    readBlock([this](const char* l) {
      return cfg_.getInt(l, "wind_str", s_.wind_str) || cfg_.getInt(l, "wind_dir", s_.wind_dir) ||
             cfg_.getBool(l, "gen_layers", s_.gen_layers);
    });
    return true;
  }

  bool taskBlock(const char* line, std::vector<SngTurnpoint>& turnpoints) {
    if (!cfg_.findBlock(line, "task")) return false;
    btkLogger.log(BTK_DEBUG, "Situation: task block found");
    readBlock([this, &turnpoints](const char* l) { return turnpointBlock(l, turnpoints); });
    return true;
  }

  // A turnpoint joins the task when its closing line is read.
  bool turnpointBlock(const char* line, std::vector<SngTurnpoint>& turnpoints) {
    if (!cfg_.findBlock(line, "turnpoint")) return false;
    SngTurnpoint tp;
    const bool closed = readBlock([this, &tp](const char* l) {
      return scanBlock(l, tp) || cfg_.getDouble(l, "lat", tp.lat) || cfg_.getDouble(l, "lon", tp.lon) ||
             cfg_.getInt(l, "oz", tp.oz) || cfg_.getDouble(l, "elev", tp.elev) ||
             cfg_.getDouble(l, "radius", tp.radius) || cfg_.getDouble(l, "angle1", tp.angle1) ||
             cfg_.getDouble(l, "angle2", tp.angle2) || cfg_.getString(l, "name", tp.name);
    });
    if (closed) turnpoints.push_back(std::move(tp));
    return true;
  }

  bool scanBlock(const char* line, SngTurnpoint& tp) {
    if (!cfg_.findBlock(line, "scan")) return false;
    btkLogger.log(BTK_DEBUG, "Situation: task turnpoint ScanArea action block found");
    BtkRef<SngWaypointActionScanArea> scan = btkMakeRef<SngWaypointActionScanArea>();
    int lines = static_cast<int>(scan->scan_lines);
    const bool closed = readBlock([this, &scan, &lines](const char* l) {
      return cfg_.getDouble(l, "scan_width", scan->scan_width) ||
             cfg_.getDouble(l, "scan_length", scan->scan_length) ||
             cfg_.getDouble(l, "scan_direction", scan->scan_direction) ||
             cfg_.getDouble(l, "scan_altitude", scan->scan_altitude) ||
             cfg_.getDouble(l, "scan_speed", scan->scan_speed) || cfg_.getInt(l, "scan_lines", lines);
    });
    if (!closed) return true;
    scan->scan_lines = static_cast<uint32_t>(lines);
    btkLogger.log(BTK_DEBUG, "Situation: inserting task action into turnpoint list");
    tp.actions.push_back(scan);
    return true;
  }

  bool researchBlock(const char* line) {
    if (!cfg_.findBlock(line, "research")) return false;
    s_.research = true;
    readBlock([this](const char* l) {
      if (cfg_.getDouble(l, "fixed_altitude", s_.fixed_altitude)) {
        s_.fixed_altitude_set = true;
        return true;
      }
      return cfg_.getBool(l, "use_fixed_thermal", s_.use_fixed_thermal) ||
             cfg_.getDouble(l, "thermal_radius", s_.fixed_thermal_radius) ||
             cfg_.getDouble(l, "thermal_height", s_.thermal_height) ||
             cfg_.getDouble(l, "thermal_latitude", s_.thermal_latitude) ||
             cfg_.getDouble(l, "thermal_longitude", s_.thermal_longitude) ||
             cfg_.getDouble(l, "thermal_max_lift", s_.thermal_max_lift) ||
             cfg_.getDouble(l, "thermal_max_sink", s_.thermal_max_sink) ||
             cfg_.getString(l, "thermal_profile", s_.thermal_profile) ||
             cfg_.getString(l, "noise_profile", s_.noise_profile) ||
             cfg_.getString(l, "thermal_data", s_.thermal_data);
    });
    return true;
  }

  // An AI flight joins the traffic when its closing line is read and its level is within the traffic.
  bool flightBlock(const char* line) {
    if (!cfg_.findBlock(line, "flight")) return false;
    SngAiFlight f;
    const bool closed = readBlock([this, &f](const char* l) { return flightKey(l, f); });
    if (closed && f.traffic_level <= s_.traffic) s_.flights.push_back(std::move(f));
    return true;
  }

  bool flightKey(const char* l, SngAiFlight& f) {
    return cfg_.getString(l, "aircraft_id", f.aircraft_id) || cfg_.getString(l, "type", f.type) ||
           cfg_.getString(l, "mode", f.mode) || cfg_.getString(l, "igc_file", f.igc_file) ||
           cfg_.getString(l, "tracker_id", f.tracker_id) ||
           cfg_.getInt(l, "traffic_level", f.traffic_level) || cfg_.getDouble(l, "latitude", f.latitude) ||
           cfg_.getDouble(l, "longitude", f.longitude) || cfg_.getDouble(l, "altitude", f.altitude) ||
           cfg_.getDouble(l, "heading", f.heading) || cfg_.getDouble(l, "airspeed", f.airspeed) ||
           cfg_.getString(l, "pilot_name", f.pilot_name) || cfg_.getString(l, "glider_type", f.glider_type) ||
           cfg_.getString(l, "comp_id", f.comp_id) || cfg_.getString(l, "registration", f.registration) ||
           cfg_.getDoubleArray(l, "reg_color", f.reg_color) ||
           cfg_.getDoubleArray(l, "comp_color", f.comp_color) ||
           cfg_.getDoubleArray(l, "track_color", f.track_color) ||
           cfg_.getDoubleArray(l, "label_color", f.label_color) ||
           cfg_.getInt(l, "track_thickness", f.track_thickness) ||
           cfg_.getInt(l, "utc_offset", f.utc_offset) || cfg_.getDouble(l, "start_time", f.start_time) ||
           cfg_.getDouble(l, "delay", f.delay) || cfg_.getInt(l, "task_id", f.task_id) ||
           taskBlock(l, f.turnpoints);
  }

  // Reads a block's lines until one that no key takes holds "}". True when that closing line was read,
  // false when the input ended first.
  template <class TakesLine>
  bool readBlock(TakesLine takesLine) {
    char line[BtkCfgFile::kLineSize];
    while (cfg_.readLine(line, sizeof line)) {
      if (takesLine(line)) continue;
      if (BtkCfgFile::isBlockEnd(line)) return true;
      ignore(line);
    }
    return false;
  }

  void ignore(const char* line) {
    if (ignored_) ignored_->emplace_back(line);
  }

  BtkCfgFile& cfg_;
  SngSituation& s_;
  std::vector<std::string>* ignored_;
};

}  // namespace

namespace {

template <class Entry>
void keepFirst(std::vector<Entry>& entries, const char* what, const std::string& path) {
  if (entries.size() <= SngSituation::kMaxListEntries) return;
  btkLogger.log(BTK_WARNING, "Situation file %s has %zu %s: only the first %zu are used", path.c_str(),
                entries.size(), what, SngSituation::kMaxListEntries);
  entries.resize(SngSituation::kMaxListEntries);
}

}  // namespace

bool SngSituation::load(const std::string& path, std::vector<std::string>* ignoredLines) {
  BtkCfgFile cfg(path);
  if (!cfg.isOpen()) {
    btkLogger.log(BTK_ERROR, "Couldn't load situation file \"%s\": %s", path.c_str(),
                  strerror(cfg.openError()));
    return false;
  }
  SngSituationReader(cfg, *this, ignoredLines).readAll();
  // The wire counts turnpoints and wind layers in one byte: a longer list could not be sent whole, and
  // a count that disagreed with the entries would make every client misread SERVER_INFO.
  keepFirst(turnpoints, "turnpoints", path);
  keepFirst(wind_layers, "wind layers", path);
  return true;
}

uint16_t SngSituation::defaultCommChannel() const {
  return btkCommChannel(mp_comm_frq);
}
