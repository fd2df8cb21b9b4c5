// Message bodies: layouts against hand-written bytes, round trips, and early ends.
#include <gtest/gtest.h>

#include <vector>

#include "net/SngMessages.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Every strict prefix of a body must fail, leave the record as it was and put the cursor back.
template <class Message>
void expectEveryPrefixFails(const Bytes& body, const Message& sentinel) {
  for (size_t n = 0; n < body.size(); ++n) {
    SngPacket p(body.data(), n);
    Message m = sentinel;
    EXPECT_FALSE(m.read(p)) << "prefix of " << n << " bytes";
    EXPECT_EQ(p.cursor, 0u);
    SngPacket a, b;
    sentinel.write(a);
    m.write(b);
    EXPECT_EQ(a.bytes, b.bytes) << "record changed by a failed read of " << n << " bytes";
  }
}

template <class Message>
Message readBack(const Message& in) {
  SngPacket p;
  in.write(p);
  Message out;
  EXPECT_TRUE(out.read(p));
  EXPECT_EQ(p.remaining(), 0u);
  return out;
}

TEST(LoginMsg, MatchesItsLayout) {
  const Bytes body = {0x01, 0x08, 0xEF, 0xBE, 0xAD, 0xDE, 0x41, 0x6C, 0x00, 0x00};
  SngLoginMsg m;
  m.hw_id = 0xDEADBEEF;
  m.pilot_name = "Al";
  SngPacket p = sngMessage(SngNet::LOGIN, m);
  Bytes expected = {SngNet::LOGIN};
  expected.insert(expected.end(), body.begin(), body.end());
  EXPECT_EQ(p.bytes, expected);

  SngPacket in(body);
  SngLoginMsg back;
  back.version_minor = 0;
  ASSERT_TRUE(back.read(in));
  EXPECT_EQ(back.version_major, 1);
  EXPECT_EQ(back.version_minor, 8);
  EXPECT_EQ(back.hw_id, 0xDEADBEEFu);
  EXPECT_EQ(back.pilot_name, "Al");
  EXPECT_EQ(back.nick, "");
  expectEveryPrefixFails(body, SngLoginMsg{});
}

const Bytes kWinchConnect = {
    0x04, 0x03, 0x02, 0x01,                                                  // hardware ID
    0x05,                                                                    // player
    0x47, 0x00, 0x52, 0x00, 0x00,                                            // "G", "R", ""
    0x02, 0xE8, 0x03, 0x57, 0x00,                                            // winch, cable 1000, "W"
    0x00, 0x00, 0x00, 0x3F, 0x00, 0x00, 0x00, 0x40, 0x00, 0x00, 0xC8, 0x42,  // 0.5, 2.0, 100.0
    0x0E, 0x01,                                                              // direction 270
    0x00,                                                                    // no task
};

TEST(ConnectMsg, WinchLaunchMatchesItsLayout) {
  SngConnectMsg m;
  m.hw_id = 0x01020304;
  m.player = 5;
  m.aircraft_id = "G";
  m.registration = "R";
  m.launch.launch_method = SngNet::LAUNCH_WINCH;
  m.launch.rope_length = 1000;
  m.launch.winch_id = "W";
  m.launch.winch_lat = 0.5;
  m.launch.winch_lon = 2.0;
  m.launch.winch_alt = 100.0;
  m.launch.winch_dir = 270;
  SngPacket p;
  m.write(p);
  EXPECT_EQ(p.bytes, kWinchConnect);

  SngPacket in(kWinchConnect);
  SngConnectMsg back;
  ASSERT_TRUE(back.read(in));
  EXPECT_EQ(back.hw_id, 0x01020304u);
  EXPECT_EQ(back.player, 5);
  EXPECT_EQ(back.comp_id, "");
  EXPECT_EQ(back.launch.rope_length, 1000);
  EXPECT_EQ(back.launch.winch_id, "W");
  EXPECT_EQ(back.launch.winch_lat, 0.5);
  EXPECT_EQ(back.launch.winch_alt, 100.0);
  EXPECT_EQ(back.launch.winch_dir, 270);
  EXPECT_TRUE(back.task.empty());
}

TEST(ConnectMsg, AMissingFieldAnywhereFails) {
  SngConnectMsg sentinel;
  sentinel.aircraft_id = "kept";
  expectEveryPrefixFails(kWinchConnect, sentinel);
}

TEST(ConnectMsg, OtherLaunchMethodsCarryNoBlock) {
  // Method 0, then straight to the task block: one cylinder turnpoint at (0, 0), radius 500 m, "T".
  const Bytes body = {0x00, 0x00, 0x00, 0x00, 0x07,                    // hardware ID 0, player 7
                      0x00, 0x00, 0x00,                                // three empty texts
                      0x00,                                            // method 0
                      0x01,                                            // one turnpoint
                      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // lat, lon 0
                      0x00, 0x00, 0x00, 0x32, 0x00, 0x54, 0x00};       // elev 0, oz 0, 50, "T"
  SngPacket p(body);
  SngConnectMsg m;
  ASSERT_TRUE(m.read(p));
  EXPECT_EQ(m.launch.launch_method, 0);
  EXPECT_EQ(m.launch.winch_lat, 9999.0);
  ASSERT_EQ(m.task.size(), 1u);
  EXPECT_EQ(m.task[0].radius, 500.0);
  EXPECT_EQ(m.task[0].name, "T");

  SngConnectMsg odd;
  odd.launch.launch_method = 7;
  odd.launch.rope_length = 99;  // not sent for method 7
  EXPECT_EQ(readBack(odd).launch.rope_length, 0);
}

TEST(ConnectMsg, AerotowRoundTripsWithItsTask) {
  SngConnectMsg m;
  m.hw_id = 7;
  m.aircraft_id = "ASW-20";
  m.launch.launch_method = SngNet::LAUNCH_AEROTOW;
  m.launch.rope_length = 60;
  m.launch.towplane_id = "Husky";
  m.task.resize(2);
  m.task[0].lat = 46.5, m.task[0].lon = 7.5, m.task[0].name = "Start";
  m.task[1].lat = 46.75, m.task[1].lon = 7.25, m.task[1].oz = 1, m.task[1].angle1 = 90, m.task[1].angle2 = 45;
  const SngConnectMsg back = readBack(m);
  EXPECT_EQ(back.launch.towplane_id, "Husky");
  EXPECT_EQ(back.launch.rope_length, 60);
  EXPECT_EQ(back.launch.winch_id, "");
  ASSERT_EQ(back.task.size(), 2u);
  EXPECT_EQ(back.task[0].name, "Start");
  EXPECT_EQ(back.task[1].lat, 46.75);
  EXPECT_EQ(back.task[1].angle2, 45.0);
}

const Bytes kServerInfo = {
    0x01, 0x08, 0x03, 0x21, 0x07, 0x0E,              // version, player 3, flags, 14 July
    0x00, 0xC0, 0x28, 0x47,                          // 43200.0 s
    0x53, 0x00, 0x00, 0x30, 0x39, 0x00,              // "S", "", "09"
    0xED, 0x00, 0x96, 0x00, 0xC4, 0x09, 0x08, 0x07,  // 237, 150, 2500, 1800
    0x32, 0x00, 0x05, 0x00, 0x0E, 0x01,              // 50 thermals, wind 5 from 270
    0x01, 0xE8, 0x03, 0x5A, 0x00, 0x2D, 0x00,        // one layer: 1000 m, 90, 45 tenths
    0xD0, 0xB6, 0x00, 0x00, 0x01,                    // gate 46800 s, regatta
    0xEC, 0xFF, 0xFF, 0xFF,                          // gate altitude -20 m
    0x00, 0x48, 0x69, 0x00,                          // no task, "Hi"
};

TEST(ServerInfoMsg, TruncatesScaledFieldsAsTheLayoutSays) {
  SngServerInfoMsg m;
  m.player = 3;
  m.server_flags = 0x21;
  m.month = 7;
  m.day = 14;
  m.sim_time = 43200.0f;
  m.scenery_name = "S";
  m.runway = "09";
  m.thermal_strength = 2.37;
  m.thermal_radius = 150.9;
  m.thermal_ceiling = 2500.0;
  m.cumulus_base = 1800.2;
  m.max_num_thermals = 50;
  m.wind_str = 5;
  m.wind_dir = 270;
  m.wind_layers = {{1000.0, 90.5, 4.56}};
  m.start_gate_open_time = 46800;
  m.regatta_start = true;
  m.start_gate_altitude = -20;
  m.motd = "Hi";
  SngPacket p;
  m.write(p);
  EXPECT_EQ(p.bytes, kServerInfo);

  SngPacket in(kServerInfo);
  SngServerInfoMsg back;
  ASSERT_TRUE(back.read(in));
  EXPECT_EQ(back.thermal_strength, 2.37);
  EXPECT_EQ(back.thermal_radius, 150.0);
  EXPECT_EQ(back.cumulus_base, 1800.0);
  ASSERT_EQ(back.wind_layers.size(), 1u);
  EXPECT_EQ(back.wind_layers[0].direction, 90.0);
  EXPECT_EQ(back.wind_layers[0].strength, 4.5);
  EXPECT_TRUE(back.regatta_start);
  EXPECT_EQ(back.start_gate_altitude, -20);
  EXPECT_EQ(back.motd, "Hi");
  expectEveryPrefixFails(kServerInfo, SngServerInfoMsg{});
}

TEST(AircraftMsg, RoundTripsAndFailsOnEveryEarlyEnd) {
  SngAircraftMsg m;
  m.player = 31;
  m.aircraft_id = "DG-800";
  m.pilot_name = "Ann";
  m.nick = "an";
  m.registration = "D-1234";
  m.comp_id = "XY";
  m.launch.launch_method = SngNet::LAUNCH_AEROTOW;
  m.launch.rope_length = 40;
  m.launch.towplane_id = "Tug";
  m.task.resize(1);
  m.task[0].oz = 2, m.task[0].angle1 = 180, m.task[0].radius = 2000, m.task[0].name = "Line";
  const SngAircraftMsg back = readBack(m);
  EXPECT_EQ(back.player, 31);
  EXPECT_EQ(back.pilot_name, "Ann");
  EXPECT_EQ(back.nick, "an");
  EXPECT_EQ(back.registration, "D-1234");
  EXPECT_EQ(back.comp_id, "XY");
  EXPECT_EQ(back.launch.towplane_id, "Tug");
  ASSERT_EQ(back.task.size(), 1u);
  EXPECT_EQ(back.task[0].angle1, 180.0);
  EXPECT_EQ(back.task[0].radius, 2000.0);

  SngPacket p;
  m.write(p);
  expectEveryPrefixFails(p.bytes, SngAircraftMsg{});
}

TEST(ThermalMsg, MatchesItsLayout) {
  const Bytes body = {0x00, 0x00, 0x00, 0x3F, 0x00, 0x00, 0x00, 0x40,  // 0.5, 2.0
                      0xB0, 0x04, 0xDC, 0x05, 0xC8, 0x00,              // 1200, 1500, 200
                      0x1E, 0x07, 0x58, 0x02,                          // 30 and 7 tenths, 600 s
                      0x00, 0xC0, 0x28, 0x47};                         // born 43200.0
  SngThermalMsg m;
  m.lat = 0.5f, m.lon = 2.0f, m.base_alt = 1200.7f, m.height = 1500.0f, m.radius = 200.0f;
  m.strength = 3.0f, m.variation = 0.75f, m.life_time = 600.5f, m.birth_time = 43200.0f;
  SngPacket p;
  m.write(p);
  EXPECT_EQ(p.bytes, body);

  SngPacket in(body);
  SngThermalMsg back;
  ASSERT_TRUE(back.read(in));
  EXPECT_EQ(back.base_alt, 1200.0f);
  EXPECT_FLOAT_EQ(back.strength, 3.0f);
  EXPECT_FLOAT_EQ(back.variation, 0.7f);
  EXPECT_EQ(back.life_time, 600.0f);
  EXPECT_EQ(back.birth_time, 43200.0f);
  expectEveryPrefixFails(body, SngThermalMsg{});
}

TEST(TaskUpdateMsg, StatusByteCombinesTheThreeFlags) {
  EXPECT_EQ(sngTaskStatus(false, false, false), 1);
  EXPECT_EQ(sngTaskStatus(false, true, false), 2);
  EXPECT_EQ(sngTaskStatus(true, false, false), 5);
  EXPECT_EQ(sngTaskStatus(true, true, false), 6);
  EXPECT_EQ(sngTaskStatus(false, false, true), 9);
  EXPECT_EQ(sngTaskStatus(true, true, true), 14);

  const Bytes body = {0x02, 0x09, 0x03, 0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0x41};
  SngTaskUpdateMsg m;
  m.player = 2, m.status = 9, m.curr_tp = 3, m.task_time = 1.0f, m.distance = 10.0f;
  SngPacket p;
  m.write(p);
  EXPECT_EQ(p.bytes, body);
  const SngTaskUpdateMsg back = readBack(m);
  EXPECT_EQ(back.distance, 10.0f);
  expectEveryPrefixFails(body, SngTaskUpdateMsg{});
}

TEST(ResultOkMsg, MatchesItsLayout) {
  const Bytes body = {0x03, 0x0C, 0x1F, 0x00, 0x00, 0x80, 0x3F, 0x02, 0xDA, 0x00};
  SngResultOkMsg m;
  m.server_flags = 3, m.month = 12, m.day = 31, m.sim_time = 1.0f, m.voice_codec = 2, m.comm_channel = 218;
  SngPacket p = sngMessage(SngNet::RESULT_OK, m);
  ASSERT_EQ(p.bytes.size(), body.size() + 1);
  EXPECT_EQ(p.bytes[0], 160);
  EXPECT_EQ(Bytes(p.bytes.begin() + 1, p.bytes.end()), body);
  p.cursor = 1;
  SngResultOkMsg back;
  ASSERT_TRUE(back.read(p));
  EXPECT_EQ(back.comm_channel, 218);
  EXPECT_EQ(back.day, 31);
  expectEveryPrefixFails(body, SngResultOkMsg{});
}

TEST(ScanReply, MatchesItsLayout) {
  const Bytes datagram = {0x4E, 0x00, 0x61, 0x00, 0x00, 0xE5, 0x3E, 0x02, 0x00, 0x32, 0x00, 0x2E, 0x01};
  SngScanReply m;
  m.server_name = "N", m.server_address = "a", m.port = 16101, m.num_players = 2, m.max_players = 50;
  m.task_km = 302;
  SngPacket p;
  m.write(p);
  EXPECT_EQ(p.bytes, datagram);
  const SngScanReply back = readBack(m);
  EXPECT_EQ(back.server_address, "a");
  EXPECT_EQ(back.task_km, 302);
  expectEveryPrefixFails(datagram, SngScanReply{});
}

TEST(StateMsg, IsTheSixtyOneByteMessage) {
  SngStateMsg m;
  m.player = 4;
  m.state.time = 10.0;
  SngPacket p = sngMessage(SngNet::AIRCRAFT_STATE, m);
  EXPECT_EQ(p.bytes.size(), SngNet::AIRCRAFT_STATE_MESSAGE_SIZE);
  EXPECT_EQ(p.bytes[1], 4);
  p.cursor = 1;
  SngStateMsg back;
  ASSERT_TRUE(back.read(p));
  EXPECT_EQ(back.state.time, 10.0);
  expectEveryPrefixFails(Bytes(p.bytes.begin() + 1, p.bytes.end()), SngStateMsg{});
}

TEST(VoiceMsg, TakesTheRestOfTheMessageAsVoiceData) {
  const Bytes body = {0x01, 0xDA, 0x00, 0x02, 0x00, 0xAA, 0x00, 0xBB};
  SngPacket p(body);
  SngVoiceMsg m;
  ASSERT_TRUE(m.read(p));
  EXPECT_EQ(m.player, 1);
  EXPECT_EQ(m.channel, 218);
  EXPECT_EQ(m.num_packets, 2);
  EXPECT_EQ(m.data, (Bytes{0xAA, 0x00, 0xBB}));
  EXPECT_EQ(p.remaining(), 0u);
  EXPECT_TRUE(readBack(SngVoiceMsg{}).data.empty());  // a header alone is a whole message
  expectEveryPrefixFails(Bytes(body.begin(), body.begin() + 5), SngVoiceMsg{});
}

TEST(SmallMessages, RoundTrip) {
  SngChatMsg chat;
  chat.player = 9, chat.text = "hello";
  EXPECT_EQ(readBack(chat).text, "hello");
  SngCommFrqMsg frq;
  frq.player = 1, frq.channel = 760;
  EXPECT_EQ(readBack(frq).channel, 760);
  SngPlayerMsg left;
  left.player = 200;
  EXPECT_EQ(readBack(left).player, 200);
  SngTimeSyncMsg sync;
  sync.sim_time = 36000.5f;
  EXPECT_EQ(readBack(sync).sim_time, 36000.5f);
  SngShutdownMsg down;
  down.text = "Server stops in 5 minutes";
  EXPECT_EQ(readBack(down).text, down.text);

  SngPacket unterminated(Bytes{0x09, 0x68, 0x69});
  SngChatMsg kept;
  kept.text = "old";
  EXPECT_FALSE(kept.read(unterminated));
  EXPECT_EQ(kept.text, "old");
  EXPECT_EQ(unterminated.cursor, 0u);
}

}  // namespace
