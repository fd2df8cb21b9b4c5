#include "QvDescribe.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "toolkit/BtkGeo.h"

namespace {

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

std::string format(const char* pattern, ...) {
  va_list args;
  va_start(args, pattern);
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, pattern, copy);
  va_end(copy);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, pattern, args);
  va_end(args);
  return text;
}

std::string quoted(const std::string& text) {
  return "'" + qvPrintable(text) + "'";
}

std::string date(uint8_t month, uint8_t day) {
  static const char* const kMonths[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};
  if (month >= 1 && month <= 12) return format("%u %s", day, kMonths[month - 1]);
  return format("day %u of month %u", day, month);
}

std::string radio(uint16_t channel) {
  return format("channel %u (%.3f MHz)", channel, btkCommFrequencyMHz(channel));
}

std::string yesNo(bool value) {
  return value ? "yes" : "no";
}

std::string serverFlags(uint8_t flags) {
  return format("0x%02X (thermal cheat %s, visual tracks %s, daylight effects %s)", flags,
                yesNo(flags & 1).c_str(), yesNo(flags & 2).c_str(), yesNo(flags & 32).c_str());
}

std::string launch(const SngLaunch& block) {
  switch (block.method) {
    case SngNet::LAUNCH_AEROTOW:
      return format("aerotow (rope %u m, towplane %s)", block.rope_length, quoted(block.towplane_id).c_str());
    case SngNet::LAUNCH_WINCH:
      return format("winch (cable %u m, winch %s at %s, alt %.0f m, direction %u deg)", block.rope_length,
                    quoted(block.winch_id).c_str(), qvLatLon(block.winch_lat, block.winch_lon).c_str(),
                    block.winch_alt, block.winch_dir);
    default:
      return format("launch method %u", block.method);
  }
}

std::string zone(const SngTurnpoint& tp) {
  switch (tp.oz) {
    case SNG_OZ_CYLINDER:
      return format("cylinder, radius %.0f m", tp.radius);
    case SNG_OZ_SECTOR:
      return format("sector, axis %.0f deg, half-angle %.0f deg, radius %.0f m", tp.angle1, tp.angle2,
                    tp.radius);
    case SNG_OZ_LINE:
      return format("line, direction %.0f deg, radius %.0f m", tp.angle1, tp.radius);
    default:
      return format("zone type %d, radius %.0f m", tp.oz, tp.radius);
  }
}

std::string taskStatus(uint8_t status) {
  std::string text;
  switch (status & 7) {
    case 1:
      text = "on course";
      break;
    case 2:
      text = "finished";
      break;
    case 5:
      text = "in start zone";
      break;
    case 6:
      text = "in start zone, finished";
      break;
    default:
      text = "unknown";
      break;
  }
  if (status & 8) text += ", landed out";
  return format("status %u (%s)", status, text.c_str());
}

std::string delivery(const QvMessage& message) {
  return format("  [channel %u, %s]", message.channel, message.reliable ? "reliable" : "unreliable");
}

std::string malformed(const QvMessage& message) {
  return format("%s: cut short or malformed (%zu bytes)", qvOpcodeName(message.opcode).c_str(),
                message.bytes.size());
}

std::string describeServerInfoLine(const SngServerInfoMsg& info) {
  return format("SERVER_INFO player %u, %s %s, scenery %s, airport %s runway %s, task of %zu turnpoints",
                info.player, date(info.month, info.day).c_str(), qvTimeOfDay(info.sim_time).c_str(),
                quoted(info.scenery_name).c_str(), quoted(info.airport_name).c_str(),
                quoted(info.runway).c_str(), info.task.size());
}

std::string describeAircraft(const QvMessage& message, const SngAircraftMsg& aircraft) {
  return format(
      "%s player %u %s (pilot %s): aircraft %s, registration %s, comp %s, %s, task of %zu turnpoints",
      qvOpcodeName(message.opcode).c_str(), aircraft.player, quoted(aircraft.nick).c_str(),
      quoted(aircraft.pilot_name).c_str(), quoted(aircraft.aircraft_id).c_str(),
      quoted(aircraft.registration).c_str(), quoted(aircraft.comp_id).c_str(),
      launch(aircraft.launch).c_str(), aircraft.task.size());
}

std::string describeState(const QvMessage& message, const SngStateMsg& state) {
  const SngAircraftState& s = state.state;
  return format("%s player %u: t %s (%.1f s), %s, alt %.0f m, heading %.0f deg%s",
                qvOpcodeName(message.opcode).c_str(), state.player, qvTimeOfDay(s.time).c_str(), s.time,
                qvLatLon(s.lat, s.lon).c_str(), s.alt, btkDegrees(s.heading),
                s.launchInProgress() ? ", launching" : "");
}

std::string describeThermal(const SngThermalMsg& t) {
  return format(
      "THERMAL %s: base %.0f m, height %.0f m, radius %.0f m, strength %.1f m/s, variation %.1f, "
      "life %.0f s, born %s",
      qvLatLon(t.lat, t.lon).c_str(), t.base_alt, t.height, t.radius, t.strength, t.variation, t.life_time,
      qvTimeOfDay(t.birth_time).c_str());
}

}  // namespace

std::string qvDescribeResultOk(const SngResultOkMsg& ok) {
  return format("RESULT_OK: flags %s, %s %s, voice codec %u, default radio %s",
                serverFlags(ok.server_flags).c_str(), date(ok.month, ok.day).c_str(),
                qvTimeOfDay(ok.sim_time).c_str(), ok.voice_codec, radio(ok.comm_channel).c_str());
}

namespace {

// The decoded text of one message, or the malformed line when its body does not read.
template <class Message, class Describe>
std::string decoded(const QvMessage& message, Describe describe) {
  const auto body = qvDecode<Message>(message);
  return body ? describe(*body) : malformed(message);
}

std::string describeBody(const QvMessage& message) {
  using namespace SngNet;
  if (message.bytes.empty()) return "empty message";
  const std::string name = qvOpcodeName(message.opcode);
  switch (message.opcode) {
    case SERVER_INFO:
      return decoded<SngServerInfoMsg>(message, describeServerInfoLine);
    case EXISTING_AIRCRAFT:
    case NEW_AIRCRAFT:
      return decoded<SngAircraftMsg>(message,
                                     [&](const SngAircraftMsg& a) { return describeAircraft(message, a); });
    case AIRCRAFT_STATE:
    case EXTRA_AIRCRAFT_STATE:
      return decoded<SngStateMsg>(message, [&](const SngStateMsg& s) { return describeState(message, s); });
    case THERMAL:
      return decoded<SngThermalMsg>(message, describeThermal);
    case CHAT_MSG:
      return decoded<SngChatMsg>(message, [](const SngChatMsg& c) {
        return format("CHAT_MSG player %u: %s", c.player, qvPrintable(c.text).c_str());
      });
    case TIME_SYNC:
      return decoded<SngTimeSyncMsg>(message, [](const SngTimeSyncMsg& t) {
        return format("TIME_SYNC %s (%.2f s)", qvTimeOfDay(t.sim_time).c_str(), t.sim_time);
      });
    case TASK_UPDATE:
      return decoded<SngTaskUpdateMsg>(message, [](const SngTaskUpdateMsg& u) {
        return format("TASK_UPDATE player %u: %s, turnpoint %u, task time %.1f s, distance %.3f km", u.player,
                      taskStatus(u.status).c_str(), u.curr_tp, u.task_time, u.distance / 1000.0);
      });
    case VOICE_CHAT:
      return decoded<SngVoiceMsg>(message, [](const SngVoiceMsg& v) {
        return format("VOICE_CHAT player %u on %s: %u packets, %zu bytes of voice", v.player,
                      radio(v.channel).c_str(), v.num_packets, v.data.size());
      });
    case COMM_FRQ:
      return decoded<SngCommFrqMsg>(message, [](const SngCommFrqMsg& c) {
        return format("COMM_FRQ player %u to %s", c.player, radio(c.channel).c_str());
      });
    case SHUTDOWN_MSG:
      return decoded<SngShutdownMsg>(
          message, [](const SngShutdownMsg& s) { return "SHUTDOWN_MSG: " + qvPrintable(s.text); });
    case PLAYER_LEFT:
    case LOGOUT:
    case AIRCRAFT_CRASH:
    case AIRCRAFT_INACTIVE:
      return decoded<SngPlayerMsg>(message, [&](const SngPlayerMsg& p) {
        const size_t extra = message.bytes.size() - 2;
        return format("%s player %u", name.c_str(), p.player) +
               (extra > 0 ? format(" (+%zu bytes)", extra) : std::string());
      });
    case RESULT_OK:
      return decoded<SngResultOkMsg>(message, qvDescribeResultOk);
    default:
      break;
  }
  if (message.bytes.size() == 1) return name;
  return format("%s (%zu bytes)", name.c_str(), message.bytes.size());
}

}  // namespace

std::string qvTimeOfDay(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0.0 || seconds >= 1e9) return format("%.1f s", seconds);
  const auto whole = static_cast<long long>(std::floor(seconds));
  const long long days = whole / 86400;
  const long long inDay = whole % 86400;
  std::string text = format("%02lld:%02lld:%02lld", inDay / 3600, inDay / 60 % 60, inDay % 60);
  if (days > 0) text += format(" +%lldd", days);
  return text;
}

std::string qvLatLon(double lat, double lon) {
  return format("%.5f%c %.5f%c", std::fabs(lat), lat < 0.0 ? 'S' : 'N', std::fabs(lon),
                lon < 0.0 ? 'W' : 'E');
}

std::string qvPrintable(const std::string& text) {
  std::string out = text;
  for (char& c : out) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) c = '?';
  }
  return out;
}

std::string qvOpcodeName(uint8_t opcode) {
  using namespace SngNet;
  switch (opcode) {
    case PING:
      return "PING";
    case CONNECT:
      return "CONNECT";
    case LOGIN:
      return "LOGIN";
    case LOGOUT:
      return "LOGOUT";
    case EXISTING_AIRCRAFT:
      return "EXISTING_AIRCRAFT";
    case AIRCRAFT_STATE:
      return "AIRCRAFT_STATE";
    case PLAYER_LEFT:
      return "PLAYER_LEFT";
    case NEW_AIRCRAFT:
      return "NEW_AIRCRAFT";
    case THERMAL:
      return "THERMAL";
    case CHAT_MSG:
      return "CHAT_MSG";
    case TIME_SYNC:
      return "TIME_SYNC";
    case SERVER_INFO:
      return "SERVER_INFO";
    case AIRCRAFT_CRASH:
      return "AIRCRAFT_CRASH";
    case TASK_UPDATE:
      return "TASK_UPDATE";
    case EXTRA_AIRCRAFT_STATE:
      return "EXTRA_AIRCRAFT_STATE";
    case AIRCRAFT_INACTIVE:
      return "AIRCRAFT_INACTIVE";
    case VOICE_CHAT:
      return "VOICE_CHAT";
    case COMM_FRQ:
      return "COMM_FRQ";
    case SHUTDOWN_MSG:
      return "SHUTDOWN_MSG";
    case SERVER_SCAN:
      return "SERVER_SCAN";
    case RESULT_OK:
      return "RESULT_OK";
    case RESULT_SERVER_FULL:
      return "RESULT_SERVER_FULL";
    case RESULT_UNKNOWN_PLAYER:
      return "RESULT_UNKNOWN_PLAYER";
    case RESULT_VERSION_TOO_OLD:
      return "RESULT_VERSION_TOO_OLD";
    default:
      return format("opcode 0x%02X", opcode);
  }
}

std::string qvDescribeMessage(const QvMessage& message) {
  return describeBody(message) + delivery(message);
}

std::string qvDescribeTask(const std::vector<SngTurnpoint>& task, const std::string& indent) {
  // Names in one column, as wide as the longest (within reason).
  int width = 4;
  for (const SngTurnpoint& tp : task)
    width = std::max(width, static_cast<int>(std::min<size_t>(tp.name.size(), 32)));
  std::string text;
  for (size_t i = 0; i < task.size(); ++i) {
    const SngTurnpoint& tp = task[i];
    text += format("%sTP %zu  %-*s  %s  elev %.0f m  %s\n", indent.c_str(), i, width,
                   qvPrintable(tp.name).c_str(), qvLatLon(tp.lat, tp.lon).c_str(), tp.elev, zone(tp).c_str());
  }
  return text;
}

std::string qvDescribeServerInfo(const SngServerInfoMsg& info) {
  std::string text;
  text += format("Server info: player ID %u, protocol %u.%02u\n", info.player, info.protocol_major,
                 info.protocol_minor);
  text += format("  Situation date:  %s\n", date(info.month, info.day).c_str());
  text += format("  Time of day:     %s (%.1f s)\n", qvTimeOfDay(info.sim_time).c_str(), info.sim_time);
  text += format("  Scenery:         %s\n", qvPrintable(info.scenery_name).c_str());
  text += format("  Airport:         %s, runway %s\n", qvPrintable(info.airport_name).c_str(),
                 qvPrintable(info.runway).c_str());
  text += format("  Server flags:    %s\n", serverFlags(info.server_flags).c_str());
  text += format(
      "  Thermals:        strength %.2f m/s, radius %.0f m, ceiling %.0f m, cumulus base %.0f m, "
      "at most %u\n",
      info.thermal_strength, info.thermal_radius, info.thermal_ceiling, info.cumulus_base,
      info.max_num_thermals);
  text += format("  Wind:            %u from %u deg\n", info.wind_str, info.wind_dir);
  for (const SngWindLayerMsg& layer : info.wind_layers) {
    text += format("  Wind layer:      %.0f m: %.1f from %.0f deg\n", layer.altitude, layer.strength,
                   layer.direction);
  }
  text += format("  Start gate:      opens %s, regatta start %s, altitude %d m\n",
                 qvTimeOfDay(info.start_gate_open_time).c_str(), yesNo(info.regatta_start).c_str(),
                 info.start_gate_altitude);
  if (info.task.empty()) {
    text += "  Task:            none\n";
  } else {
    text += format("  Task:            %zu turnpoints\n", info.task.size());
    text += qvDescribeTask(info.task, "    ");
  }
  if (info.motd.empty()) {
    text += "  Message of the day: none\n";
  } else {
    text += "  Message of the day:\n";
    std::vector<std::string> lines;
    size_t start = 0;
    while (start <= info.motd.size()) {
      size_t end = info.motd.find('\n', start);
      if (end == std::string::npos) end = info.motd.size();
      std::string line = info.motd.substr(start, end - start);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(qvPrintable(line));
      start = end + 1;
    }
    while (!lines.empty() && lines.back().empty()) lines.pop_back();
    for (const std::string& line : lines) text += line.empty() ? "\n" : "    " + line + "\n";
  }
  return text;
}
