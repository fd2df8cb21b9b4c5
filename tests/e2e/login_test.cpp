// LOGIN and the player table against the real server.
#include "e2e/ProtocolFixture.h"

namespace {

using Login = ProtocolE2E;

TEST_F(Login, OldVersionsAreRefusedAndSlotsGoByHardwareAndAddressUntilTheServerIsFull) {
  startServer("mp_max_players = 3\n");
  for (const auto& [major, minor] : {std::pair{1, 7}, {0, 99}}) {
    auto old = connectClient();
    EXPECT_EQ(old->loginAndWait(major, minor, 0x10, "P", "old", 5s).opcode, SngNet::RESULT_VERSION_TOO_OLD);
    const QvMessage& refusal = old->inbox().back();
    EXPECT_TRUE(refusal.bytes.size() == 1 && refusal.reliable && refusal.channel == 0);
  }
  auto atHome = loginClient(0x77, "same");
  auto elsewhere = loginClient(0x77, "same", "127.0.0.2");  // the same hardware on another machine
  auto bob = loginClient(0xB, "bob");
  EXPECT_EQ((std::vector<int>{atHome.id, elsewhere.id, bob.id}), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(connectClient()->loginAndWait(1, 8, 0xC, "P", "carol", 5s).opcode, SngNet::RESULT_SERVER_FULL);
  bob.client->dropConnection();  // bob's client restarts: same hardware, same address, a new connection
  EXPECT_EQ(loginClient(0xB, "bob").id, 2);
  for (const char* line : {"LOGIN(old): result = 168", "New player: ID = 1. HW = 0x77, host = 127.0.0.2",
                           "Reconnect player: ID = 2. HW = 0xB, host = 127.0.0.1"})
    EXPECT_THAT(readText(logPath()), HasSubstr(line));
}

TEST_F(Login, ServerInfoCarriesTheSituationFieldByField) {
  writeText(serversDir() + "/motd.txt", "Welcome\nFly safe\n");
  startServer(
      "mp_server_message_file = motd.txt\ndate = 15072024\ntime = 11:30:00\nmp_server_flags = 35\n"
      "start_gate_open_time = 12:15:00\nregatta_start = true\nstart_gate_altitude = 1000.7\n"
      "start_gate_altitude_ref = AGL\nairport {\n name = Field\n runway = 27L\n}\nweather {\n"
      " thermal_strength = 2.37\n thermal_radius = 250.9\n thermal_ceiling = 2400\n"
      " cumulus_base = 2200.5\n max_num_thermals = 1500\n simple {\n  wind_str = 5\n  wind_dir = 270\n }\n"
      " wind_layer {\n  altitude = 1500\n  direction = 260\n  strength = 4.56\n }\n wind_layer {\n"
      "  altitude = 3000\n  direction = 280\n  strength = 12\n }\n}\ntask {\n turnpoint {\n  lat = 46.01\n"
      "  lon = 7.01\n  oz = 2\n  angle1 = 90\n  radius = 1234.5\n  name = G\n }\n turnpoint {\n"
      "  lat = 46.05\n  lon = 7.05\n  oz = 1\n  angle1 = 45\n  angle2 = 30\n  name = P\n }\n}\n");
  const auto info = connectClient()->loginAndWait(1, 8, 0x1, "Pilot", "info", 5s).info;
  ASSERT_TRUE(info && info->wind_layers.size() == 2 && info->task.size() == 2);
  const SngServerInfoMsg& i = *info;
  // Thermal strength goes in hundredths, layer strengths in tenths; metres are truncated. The gate is 1000 m
  // over the 350 m flat scenery (the ground reference is any text but QNH or MSL).
  EXPECT_EQ(
      std::tie(i.server_flags, i.month, i.day, i.scenery_name, i.airport_name, i.runway, i.motd,
               i.thermal_radius, i.thermal_ceiling, i.cumulus_base, i.max_num_thermals, i.wind_str,
               i.wind_dir, i.wind_layers[0].altitude, i.wind_layers[0].direction, i.wind_layers[0].strength,
               i.wind_layers[1].strength, i.start_gate_open_time, i.regatta_start, i.start_gate_altitude,
               i.task[0].name, i.task[0].oz, i.task[0].angle1, i.task[0].radius, i.task[1].angle2),
      std::make_tuple(35, 7, 15, "test", "Field", "27L", "Welcome\nFly safe\n\n", 250.0, 2400.0, 2200.0, 1500,
                      5, 270, 1500.0, 260.0, 4.5, 12.0, 44100u, true, 1350, "G", 2, 90.0, 1230.0, 30.0));
  EXPECT_NEAR(i.sim_time, 41430.0f, 30.0f);
  EXPECT_NEAR(i.thermal_strength, 2.37, 1e-9);
  EXPECT_NEAR(i.task[1].lat, 46.05, 1e-5);
}

TEST_F(Login, BrokenLoginsScanRequestsJunkAndOversizedMessagesGetNoAnswerAndCreateNoRecord) {
  startServer();
  auto huge = connectClient();  // a message over the server's size limit stalls only its own connection
  ASSERT_TRUE(huge->sendRaw(std::vector<uint8_t>(2 * 1024 * 1024 + 16, SngNet::CHAT_MSG), true, 0));
  auto noisy = connectClient();
  noisy->serverScan();  // over the game connection a scan request is only logged
  const auto login = sngMessage(SngNet::LOGIN, SngLoginMsg{1, 8, 0x42, "Pilot", "nick"}).bytes;
  for (size_t n = 1; n < login.size(); ++n) noisy->sendRaw({login.begin(), login.begin() + long(n)}, true, 0);
  uint32_t seed = 12345;
  for (int i = 0; i < 200; ++i) {
    std::vector<uint8_t> junk(1 + (seed >> 24) % 80);
    for (auto& b : junk) b = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
    noisy->sendRaw(junk, (i & 1) != 0, (i & 1) ? 0 : 1);
  }
  // The next LOGIN on the same connection is the first answered, and gets the first slot.
  const auto info = noisy->loginAndWait(1, 8, 0x43, "Pilot", "good", 5s).info;
  ASSERT_TRUE(info && info->player == 0);
  EXPECT_EQ(std::ranges::find_if_not(noisy->inbox(), isBeat)->opcode, SngNet::SERVER_INFO);
  // A nick just under the size limit is answered.
  const std::string longNick(2 * 1024 * 1024 - 64, 'n');
  EXPECT_TRUE(connectClient()->loginAndWait(1, 8, 0x99, "P", longNick, 20s).accepted());
  for (const char* line : {"[debug]: SERVER_SCAN", "LOGIN: Missing nick, length = 13"})
    EXPECT_THAT(readText(logPath()), HasSubstr(line));
  EXPECT_THAT(server->stderrText(), HasSubstr("SngNet::LOGIN: missing version\n"));
}

}  // namespace
