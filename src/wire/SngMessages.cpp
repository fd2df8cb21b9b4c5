#include "wire/SngMessages.h"

#include <utility>

#include "wire/SngAircraftStateCodec.h"

namespace {

// Reads into a fresh record so that a message that ends early changes neither `out` nor the cursor.
template <class Message, class Fields>
bool readWhole(SngPacket& packet, Message& out, Fields fields) {
  const uint32_t start = packet.cursor;
  Message message;
  if (!fields(packet, message)) {
    packet.cursor = start;
    return false;
  }
  out = std::move(message);
  return true;
}

// Notes which field a read has come to, so that a failure can name the missing one.
template <class Field>
bool at(Field& where, Field field) {
  where = field;
  return true;
}

// Ends the read of a message a client sends: on failure the cursor goes back and the field is named;
// the fields read before it stay in the record for the server's report.
template <class Field>
bool finishRead(SngPacket& packet, uint32_t start, bool ok, Field where, Field* missing) {
  if (ok) return true;
  packet.cursor = start;
  if (missing) *missing = where;
  return false;
}

bool getF32AsDouble(SngPacket& packet, double& out) {
  float value;
  if (!packet.getF32(value)) return false;
  out = value;
  return true;
}

// A u16 that the writer multiplied by `factor` and truncated; read back in the field's own unit.
template <class Real>
bool getScaledU16(SngPacket& packet, double factor, Real& out) {
  uint16_t raw;
  if (!packet.getU16(raw)) return false;
  out = static_cast<Real>(raw / factor);
  return true;
}

template <class Real>
bool getScaledU8(SngPacket& packet, double factor, Real& out) {
  uint8_t raw;
  if (!packet.getU8(raw)) return false;
  out = static_cast<Real>(raw / factor);
  return true;
}

bool getBool(SngPacket& packet, bool& out) {
  uint8_t raw;
  if (!packet.getU8(raw)) return false;
  out = raw != 0;
  return true;
}

void putWindLayers(SngPacket& packet, const std::vector<SngWindLayerMsg>& layers) {
  const uint8_t count = static_cast<uint8_t>(layers.size());
  packet.putU8(count);
  for (size_t i = 0; i < count; ++i) {
    packet.putU16(sngTruncU16(layers[i].altitude));
    packet.putU16(sngTruncU16(layers[i].direction));
    packet.putU16(sngScaledU16(layers[i].strength, 10.0));
  }
}

bool getWindLayers(SngPacket& packet, std::vector<SngWindLayerMsg>& out) {
  constexpr size_t kLayerBytes = 3 * 2;
  uint8_t count;
  if (!packet.getU8(count) || packet.remaining() < count * kLayerBytes) return false;
  out.resize(count);
  for (SngWindLayerMsg& layer : out) {
    if (!getScaledU16(packet, 1.0, layer.altitude) || !getScaledU16(packet, 1.0, layer.direction) ||
        !getScaledU16(packet, 10.0, layer.strength)) {
      return false;
    }
  }
  return true;
}

}  // namespace

void SngLoginMsg::write(SngPacket& packet) const {
  packet.putU8(version_major);
  packet.putU8(version_minor);
  packet.putU32(hw_id);
  packet.putString(pilot_name);
  packet.putString(nick);
}

bool SngLoginMsg::read(SngPacket& p, Field* missing) {
  const uint32_t start = p.cursor;
  Field f = VERSION;
  const bool ok = at(f, VERSION) && p.getU8(version_major) && p.getU8(version_minor) && at(f, HW_ID) &&
                  p.getU32(hw_id) && at(f, PILOT_NAME) && p.getString(pilot_name) && at(f, NICK) && p.getString(nick);
  return finishRead(p, start, ok, f, missing);
}

void sngPutLaunch(SngPacket& packet, const SngLaunch& launch) {
  packet.putU8(launch.method);
  if (launch.method == SngLaunch::AEROTOW) {
    packet.putU16(launch.rope_length);
    packet.putString(launch.towplane_id);
  } else if (launch.method == SngLaunch::WINCH) {
    packet.putU16(launch.rope_length);
    packet.putString(launch.winch_id);
    packet.putF32(sngToF32(launch.winch_lat));
    packet.putF32(sngToF32(launch.winch_lon));
    packet.putF32(sngToF32(launch.winch_alt));
    packet.putU16(launch.winch_dir);
  }
}

bool sngGetLaunch(SngPacket& p, SngLaunch& m, SngLaunchField* missing) {
  using F = SngLaunchField;
  const uint32_t start = p.cursor;
  F f = F::METHOD;
  bool ok = p.getU8(m.method);
  if (ok && m.method == SngLaunch::AEROTOW) {
    ok = at(f, F::ROPE_LENGTH) && p.getU16(m.rope_length) && at(f, F::TOWPLANE_ID) && p.getString(m.towplane_id);
  } else if (ok && m.method == SngLaunch::WINCH) {
    ok = at(f, F::ROPE_LENGTH) && p.getU16(m.rope_length) && at(f, F::WINCH_ID) && p.getString(m.winch_id) &&
         at(f, F::WINCH_LAT) && getF32AsDouble(p, m.winch_lat) && at(f, F::WINCH_LON) &&
         getF32AsDouble(p, m.winch_lon) && at(f, F::WINCH_ALT) && getF32AsDouble(p, m.winch_alt) &&
         at(f, F::WINCH_DIR) && p.getU16(m.winch_dir);
  }
  return finishRead(p, start, ok, f, missing);
}

void SngConnectMsg::write(SngPacket& packet) const {
  packet.putU32(hw_id);
  packet.putU8(player);
  packet.putString(aircraft_id);
  packet.putString(registration);
  packet.putString(comp_id);
  sngPutLaunch(packet, launch);
  packet.putTask(task);
}

bool SngConnectMsg::read(SngPacket& p, Field* missing, SngLaunchField* launch_missing) {
  const uint32_t start = p.cursor;
  Field f = HW_ID;
  const bool ok = at(f, HW_ID) && p.getU32(hw_id) && at(f, PLAYER) && p.getU8(player) && at(f, AIRCRAFT_ID) &&
                  p.getString(aircraft_id) && at(f, REGISTRATION) && p.getString(registration) && at(f, COMP_ID) &&
                  p.getString(comp_id) && at(f, LAUNCH) && sngGetLaunch(p, launch, launch_missing) && at(f, TASK) &&
                  p.getTask(task);
  return finishRead(p, start, ok, f, missing);
}

void SngServerInfoMsg::write(SngPacket& packet) const {
  packet.putU8(protocol_major);
  packet.putU8(protocol_minor);
  packet.putU8(player);
  packet.putU8(server_flags);
  packet.putU8(month);
  packet.putU8(day);
  packet.putF32(sim_time);
  packet.putString(scenery_name);
  packet.putString(airport_name);
  packet.putString(runway);
  packet.putU16(sngScaledU16(thermal_strength, 100.0));
  packet.putU16(sngTruncU16(thermal_radius));
  packet.putU16(sngTruncU16(thermal_ceiling));
  packet.putU16(sngTruncU16(cumulus_base));
  packet.putU16(max_num_thermals);
  packet.putU16(wind_str);
  packet.putU16(wind_dir);
  putWindLayers(packet, wind_layers);
  packet.putU32(start_gate_open_time);
  packet.putU8(regatta_start ? 1 : 0);
  packet.putI32(start_gate_altitude);
  packet.putTask(task);
  packet.putString(motd);
}

bool SngServerInfoMsg::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngServerInfoMsg& m) {
    return p.getU8(m.protocol_major) && p.getU8(m.protocol_minor) && p.getU8(m.player) &&
           p.getU8(m.server_flags) && p.getU8(m.month) && p.getU8(m.day) && p.getF32(m.sim_time) &&
           p.getString(m.scenery_name) && p.getString(m.airport_name) && p.getString(m.runway) &&
           getScaledU16(p, 100.0, m.thermal_strength) && getScaledU16(p, 1.0, m.thermal_radius) &&
           getScaledU16(p, 1.0, m.thermal_ceiling) && getScaledU16(p, 1.0, m.cumulus_base) &&
           p.getU16(m.max_num_thermals) && p.getU16(m.wind_str) && p.getU16(m.wind_dir) &&
           getWindLayers(p, m.wind_layers) && p.getU32(m.start_gate_open_time) &&
           getBool(p, m.regatta_start) && p.getI32(m.start_gate_altitude) && p.getTask(m.task) &&
           p.getString(m.motd);
  });
}

void SngAircraftMsg::write(SngPacket& packet) const {
  packet.putU8(player);
  packet.putString(aircraft_id);
  packet.putString(pilot_name);
  packet.putString(nick);
  packet.putString(registration);
  packet.putString(comp_id);
  sngPutLaunch(packet, launch);
  packet.putTask(task);
}

bool SngAircraftMsg::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngAircraftMsg& m) {
    return p.getU8(m.player) && p.getString(m.aircraft_id) && p.getString(m.pilot_name) &&
           p.getString(m.nick) && p.getString(m.registration) && p.getString(m.comp_id) &&
           sngGetLaunch(p, m.launch) && p.getTask(m.task);
  });
}

void SngThermalMsg::write(SngPacket& packet) const {
  packet.putF32(lat);
  packet.putF32(lon);
  packet.putU16(sngTruncU16(base_alt));
  packet.putU16(sngTruncU16(height));
  packet.putU16(sngTruncU16(radius));
  packet.putU8(sngScaledU8(strength, 10.0));
  packet.putU8(sngScaledU8(variation, 10.0));
  packet.putU16(sngTruncU16(life_time));
  packet.putF32(birth_time);
}

bool SngThermalMsg::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngThermalMsg& m) {
    return p.getF32(m.lat) && p.getF32(m.lon) && getScaledU16(p, 1.0, m.base_alt) &&
           getScaledU16(p, 1.0, m.height) && getScaledU16(p, 1.0, m.radius) &&
           getScaledU8(p, 10.0, m.strength) && getScaledU8(p, 10.0, m.variation) &&
           getScaledU16(p, 1.0, m.life_time) && p.getF32(m.birth_time);
  });
}

uint8_t sngTaskStatus(bool in_start_zone, bool finished, bool outlanded) {
  const uint8_t status = in_start_zone ? (finished ? 6 : 5) : (finished ? 2 : 1);
  return static_cast<uint8_t>(status + (outlanded ? 8 : 0));
}

void SngTaskUpdateMsg::write(SngPacket& packet) const {
  packet.putU8(player);
  packet.putU8(status);
  packet.putU8(curr_tp);
  packet.putF32(task_time);
  packet.putF32(distance);
}

bool SngTaskUpdateMsg::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngTaskUpdateMsg& m) {
    return p.getU8(m.player) && p.getU8(m.status) && p.getU8(m.curr_tp) && p.getF32(m.task_time) &&
           p.getF32(m.distance);
  });
}

void SngResultOkMsg::write(SngPacket& packet) const {
  packet.putU8(server_flags);
  packet.putU8(month);
  packet.putU8(day);
  packet.putF32(sim_time);
  packet.putU8(voice_codec);
  packet.putU16(comm_channel);
}

bool SngResultOkMsg::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngResultOkMsg& m) {
    return p.getU8(m.server_flags) && p.getU8(m.month) && p.getU8(m.day) && p.getF32(m.sim_time) &&
           p.getU8(m.voice_codec) && p.getU16(m.comm_channel);
  });
}

void SngPlayerMsg::write(SngPacket& packet) const {
  packet.putU8(player);
}

bool SngPlayerMsg::read(SngPacket& p, Field* missing) {
  return finishRead(p, p.cursor, p.getU8(player), PLAYER, missing);
}

void SngStateMsg::write(SngPacket& packet) const {
  packet.putU8(player);
  encodeAircraftState(packet, state);
}

bool SngStateMsg::read(SngPacket& p, Field* missing) {
  const uint32_t start = p.cursor;
  Field f = PLAYER;
  const bool ok = p.getU8(player) && at(f, BODY) && decodeAircraftState(p, state);
  return finishRead(p, start, ok, f, missing);
}

void SngChatMsg::write(SngPacket& packet) const {
  packet.putU8(player);
  packet.putString(text);
}

bool SngChatMsg::read(SngPacket& p, Field* missing) {
  const uint32_t start = p.cursor;
  Field f = PLAYER;
  const bool ok = p.getU8(player) && at(f, TEXT) && p.getString(text);
  return finishRead(p, start, ok, f, missing);
}

void SngCommFrqMsg::write(SngPacket& packet) const {
  packet.putU8(player);
  packet.putU16(channel);
}

bool SngCommFrqMsg::read(SngPacket& p, Field* missing) {
  const uint32_t start = p.cursor;
  Field f = PLAYER;
  const bool ok = p.getU8(player) && at(f, CHANNEL) && p.getU16(channel);
  return finishRead(p, start, ok, f, missing);
}

void SngVoiceMsg::write(SngPacket& packet) const {
  packet.putU8(player);
  packet.putU16(channel);
  packet.putU16(num_packets);
  packet.bytes.insert(packet.bytes.end(), data.begin(), data.end());
}

bool SngVoiceMsg::read(SngPacket& p, Field* missing) {
  const uint32_t start = p.cursor;
  Field f = PLAYER;
  const bool ok =
      p.getU8(player) && at(f, CHANNEL) && p.getU16(channel) && at(f, NUM_PACKETS) && p.getU16(num_packets);
  if (!ok) return finishRead(p, start, ok, f, missing);
  data.assign(p.bytes.end() - static_cast<std::ptrdiff_t>(p.remaining()), p.bytes.end());
  p.cursor = static_cast<uint32_t>(p.bytes.size());
  return true;
}

void SngTimeSyncMsg::write(SngPacket& packet) const {
  packet.putF32(sim_time);
}

bool SngTimeSyncMsg::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngTimeSyncMsg& m) { return p.getF32(m.sim_time); });
}

void SngShutdownMsg::write(SngPacket& packet) const {
  packet.putString(text);
}

bool SngShutdownMsg::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngShutdownMsg& m) { return p.getString(m.text); });
}

void SngScanReply::write(SngPacket& packet) const {
  packet.putString(server_name);
  packet.putString(server_address);
  packet.putString(scenery_name);
  packet.putU16(port);
  packet.putU16(num_players);
  packet.putU16(max_players);
  packet.putU16(task_km);
}

bool SngScanReply::read(SngPacket& packet) {
  return readWhole(packet, *this, [](SngPacket& p, SngScanReply& m) {
    return p.getString(m.server_name) && p.getString(m.server_address) && p.getString(m.scenery_name) &&
           p.getU16(m.port) && p.getU16(m.num_players) && p.getU16(m.max_players) && p.getU16(m.task_km);
  });
}
