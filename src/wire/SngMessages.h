// Message bodies of the client protocol and the LAN scan reply as plain records: the only encoders and
// decoders of these bytes, shared by the server, the test client and the fuzzers. `write` appends the
// fields that follow the opcode (the caller puts the opcode first, or uses sngMessage); `read` takes
// them from the cursor, which the dispatcher has already moved past the opcode. A `read` that meets a
// missing field returns false and puts the cursor back; the records a client sends also name the
// missing field and keep the fields read before it, so that the server can report exactly what was
// wrong with a message.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "wire/SngNet.h"
#include "wire/SngPacket.h"
#include "session/SngAircraftState.h"
#include "session/SngLaunch.h"
#include "session/SngTurnpoint.h"

// A whole message: the opcode, then the body.
template <class Message>
SngPacket sngMessage(uint8_t opcode, const Message& message) {
  SngPacket packet;
  packet.putU8(opcode);
  message.write(packet);
  return packet;
}

// LOGIN (3).
struct SngLoginMsg {
  enum Field { VERSION, HW_ID, PILOT_NAME, NICK };

  uint8_t version_major = SngNet::PROTOCOL_VERSION_MAJOR;
  uint8_t version_minor = SngNet::PROTOCOL_VERSION_MINOR;
  uint32_t hw_id = 0;
  std::string pilot_name;
  std::string nick;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet, Field* missing = nullptr);
};

// The launch block shared by CONNECT and the aircraft announcements: the method, then for aerotow the
// rope length and the towplane, for the winch the cable length, the winch ID, its position (32-bit
// floats) and direction; other methods carry nothing more.
enum class SngLaunchField { METHOD, ROPE_LENGTH, TOWPLANE_ID, WINCH_ID, WINCH_LAT, WINCH_LON, WINCH_ALT, WINCH_DIR };
void sngPutLaunch(SngPacket& packet, const SngLaunch& launch);
bool sngGetLaunch(SngPacket& packet, SngLaunch& launch, SngLaunchField* missing = nullptr);

// CONNECT (1).
struct SngConnectMsg {
  enum Field { HW_ID, PLAYER, AIRCRAFT_ID, REGISTRATION, COMP_ID, LAUNCH, TASK };

  uint32_t hw_id = 0;
  uint8_t player = 0;
  std::string aircraft_id;
  std::string registration;
  std::string comp_id;
  SngLaunch launch;
  std::vector<SngTurnpoint> task;

  void write(SngPacket& packet) const;
  // A missing field of the launch block is LAUNCH, and launch_missing says which.
  bool read(SngPacket& packet, Field* missing = nullptr, SngLaunchField* launch_missing = nullptr);
};

struct SngWindLayerMsg {
  double altitude = 0.0;   // m, sent truncated
  double direction = 0.0;  // degrees, sent truncated
  double strength = 0.0;   // sent in tenths, truncated
};

// SERVER_INFO (13). Scaled fields are held in their own units: the writer truncates them as the
// wire wants, the reader divides the scale back out. Lists longer than 255 entries cannot be sent:
// the count keeps its low 8 bits and that many entries follow.
struct SngServerInfoMsg {
  uint8_t protocol_major = SngNet::PROTOCOL_VERSION_MAJOR;
  uint8_t protocol_minor = SngNet::PROTOCOL_VERSION_MINOR;
  uint8_t player = 0;
  uint8_t server_flags = 0;
  uint8_t month = 0;
  uint8_t day = 0;
  float sim_time = 0.0f;  // s of the simulated day
  std::string scenery_name;
  std::string airport_name;
  std::string runway;
  double thermal_strength = 0.0;  // m/s, sent in hundredths
  double thermal_radius = 0.0;    // m
  double thermal_ceiling = 0.0;   // m
  double cumulus_base = 0.0;      // m
  uint16_t max_num_thermals = 0;
  uint16_t wind_str = 0;
  uint16_t wind_dir = 0;
  std::vector<SngWindLayerMsg> wind_layers;
  uint32_t start_gate_open_time = 0;  // s of the day
  bool regatta_start = false;
  int32_t start_gate_altitude = 0;  // m
  std::vector<SngTurnpoint> task;
  std::string motd;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};

// EXISTING_AIRCRAFT (6) and NEW_AIRCRAFT (9). The method goes out as given here; turning a finished
// launch into method 0 for EXISTING_AIRCRAFT is the sender's decision.
struct SngAircraftMsg {
  uint8_t player = 0;
  std::string aircraft_id;
  std::string pilot_name;
  std::string nick;
  std::string registration;
  std::string comp_id;
  SngLaunch launch;
  std::vector<SngTurnpoint> task;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};

// THERMAL (10), with the thermal record's fields as 32-bit floats.
struct SngThermalMsg {
  float lat = 0.0f;         // degrees
  float lon = 0.0f;         // degrees
  float base_alt = 0.0f;    // m, sent truncated
  float height = 0.0f;      // m, sent truncated
  float radius = 0.0f;      // m, sent truncated
  float strength = 0.0f;    // m/s, sent in tenths
  float variation = 0.0f;   // sent in tenths
  float life_time = 0.0f;   // s, sent truncated
  float birth_time = 0.0f;  // s of the simulated day

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};

// The status byte of TASK_UPDATE: 1 on course or not started, 2 finished, 5 armed in the start zone,
// 6 both; plus 8 when landed out.
uint8_t sngTaskStatus(bool in_start_zone, bool finished, bool outlanded);

// TASK_UPDATE (15).
struct SngTaskUpdateMsg {
  uint8_t player = 0;
  uint8_t status = 1;
  uint8_t curr_tp = 0;
  float task_time = 0.0f;  // s
  float distance = 0.0f;   // m

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};

// RESULT_OK (160), the answer to an accepted CONNECT. The other results are the bare result byte.
struct SngResultOkMsg {
  uint8_t server_flags = 0;
  uint8_t month = 0;
  uint8_t day = 0;
  float sim_time = 0.0f;  // s of the simulated day
  uint8_t voice_codec = 0;
  uint16_t comm_channel = 0;  // the server's default radio channel

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};

// LOGOUT (4) and PLAYER_LEFT (8); also the part of AIRCRAFT_CRASH (14) and AIRCRAFT_INACTIVE (17)
// that is read.
struct SngPlayerMsg {
  enum Field { PLAYER };

  uint8_t player = 0;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet, Field* missing = nullptr);
};

// AIRCRAFT_STATE (7) and EXTRA_AIRCRAFT_STATE (16).
// A body cut short is missing whole: a state with made-up fields is never taken.
struct SngStateMsg {
  enum Field { PLAYER, BODY };

  uint8_t player = 0;
  SngAircraftState state;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet, Field* missing = nullptr);
};

// CHAT_MSG (11), from a client and as relayed.
struct SngChatMsg {
  enum Field { PLAYER, TEXT };

  uint8_t player = 0;
  std::string text;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet, Field* missing = nullptr);
};

// COMM_FRQ (19).
struct SngCommFrqMsg {
  enum Field { PLAYER, CHANNEL };

  uint8_t player = 0;
  uint16_t channel = 0;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet, Field* missing = nullptr);
};

// VOICE_CHAT (18): the header, then the clients' encoded voice to the end of the message, which
// `read` takes whole (it may be empty).
struct SngVoiceMsg {
  enum Field { PLAYER, CHANNEL, NUM_PACKETS };

  uint8_t player = 0;
  uint16_t channel = 0;
  uint16_t num_packets = 0;
  std::vector<uint8_t> data;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet, Field* missing = nullptr);
};

// TIME_SYNC (12).
struct SngTimeSyncMsg {
  float sim_time = 0.0f;  // s of the simulated day, advanced by half the round trip

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};

// SHUTDOWN_MSG (20).
struct SngShutdownMsg {
  std::string text;

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};

// The LAN scan reply: a plain UDP datagram of these fields, without opcode.
struct SngScanReply {
  std::string server_name;
  std::string server_address;
  std::string scenery_name;
  uint16_t port = 0;
  uint16_t num_players = 0;  // present and not idle
  uint16_t max_players = 0;
  uint16_t task_km = 0;  // whole kilometres, 0 for fewer than two turnpoints

  void write(SngPacket& packet) const;
  bool read(SngPacket& packet);
};
