// LOGIN, the player table and the connection lifecycle against the real server.
#include "e2e/ProtocolFixture.h"

using ::testing::HasSubstr;

namespace {

using Login = ProtocolE2E;

TEST_F(Login, VersionsOlderThan108AreRefusedWith168AndNewerAccepted) {
  startServer();
  struct Case {
    uint8_t major, minor;
    bool accepted;
  } cases[] = {{1, 7, false}, {0, 99, false}, {1, 8, true}, {1, 9, true}, {2, 0, true}};
  uint32_t hw = 1;
  for (const Case& c : cases) {
    auto client = connectClient();
    const QvLoginAnswer answer = client->loginAndWait(c.major, c.minor, hw++, "P", "v", 5s);
    ASSERT_TRUE(answer.answered) << int(c.major) << "." << int(c.minor);
    if (c.accepted) {
      EXPECT_EQ(answer.opcode, SngNet::SERVER_INFO);
    } else {
      EXPECT_EQ(answer.opcode, SngNet::RESULT_VERSION_TOO_OLD);
      const auto refusal = client->inbox().back();
      EXPECT_EQ(refusal.bytes, std::vector<uint8_t>{SngNet::RESULT_VERSION_TOO_OLD});
      EXPECT_TRUE(refusal.reliable);
      EXPECT_EQ(refusal.channel, 0);
    }
  }
  EXPECT_THAT(readText(logPath()), HasSubstr("LOGIN(v): result = 168"));
}

TEST_F(Login, SlotsFillFromZeroAndAFullServerStillAdmitsAReturningClient) {
  startServer("mp_max_players = 2\n");
  uint8_t a = 255, b = 255;
  auto alice = loginClient(0xA, "alice", a);
  auto bob = loginClient(0xB, "bob", b);
  EXPECT_EQ(a, 0);
  EXPECT_EQ(b, 1);
  auto carol = connectClient();
  const QvLoginAnswer full = carol->loginAndWait(1, 8, 0xC, "P", "carol", 5s);
  EXPECT_EQ(full.opcode, SngNet::RESULT_SERVER_FULL);
  // Bob's client restarts: same hardware ID, same address, a new connection.
  bob->dropConnection();
  uint8_t again = 255;
  auto bob2 = loginClient(0xB, "bob", again);
  EXPECT_EQ(again, 1);
  EXPECT_THAT(readText(logPath()), HasSubstr("Reconnect player: ID = 1. HW = 0xB, host = 127.0.0.1"));
}

TEST_F(Login, TheSameHardwareFromAnotherAddressIsAnotherPlayer) {
  startServer();
  uint8_t first = 255, second = 255;
  auto home = loginClient(0x77, "same", first);
  auto away = loginClient(0x77, "same", second, "127.0.0.2");
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
  EXPECT_THAT(readText(logPath()), HasSubstr("New player: ID = 1. HW = 0x77, host = 127.0.0.2"));
}

TEST_F(Login, ADroppedClientGoesIdleWithoutPlayerLeftAndGetsItsSlotBack) {
  startServer();
  auto [alice, a, bob, b] = joinAliceAndBob();
  bob->clearInbox();
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*alice, "Player 0 (alice) is idle (360.000000 seconds left)"));
  settle({bob.get()});
  EXPECT_EQ(bob->countOpcode(SngNet::PLAYER_LEFT), 0u);
  uint8_t back = 255;
  auto alice2 = loginClient(0xA, "alice", back);
  EXPECT_EQ(back, 0);
}

TEST_F(Login, PingsComeInBurstsOfFiveFollowedByATimeSync) {
  startServer("time = 10:00:00\n");
  uint8_t id = 255;
  auto client = loginClient(0x5, "pinged", id);
  const auto first = client->waitFor(SngNet::TIME_SYNC, 10s);
  ASSERT_TRUE(first);
  const size_t pingsBefore = client->countOpcode(SngNet::PING);
  const auto second = client->waitFor(SngNet::TIME_SYNC, 10s);
  ASSERT_TRUE(second);
  EXPECT_EQ(client->countOpcode(SngNet::PING) - pingsBefore, 5u);
  const auto ping = client->waitFor(SngNet::PING, 1ms);
  ASSERT_TRUE(ping);
  EXPECT_EQ(ping->bytes, std::vector<uint8_t>{SngNet::PING});
  EXPECT_TRUE(ping->reliable);
  EXPECT_EQ(ping->channel, 0);
  EXPECT_TRUE(second->reliable);
  EXPECT_EQ(second->channel, 0);
  const auto sync1 = qvDecode<SngTimeSyncMsg>(*first), sync2 = qvDecode<SngTimeSyncMsg>(*second);
  ASSERT_TRUE(sync1 && sync2);
  // About 5 s of simulated time apart (the bursts come every 5 s), starting near 10:00.
  EXPECT_NEAR(sync2->sim_time - sync1->sim_time, 5.0, 1.0);
  EXPECT_GT(sync1->sim_time, 36000.0f);
  EXPECT_LT(sync1->sim_time, 36060.0f);
}

TEST_F(Login, ServerInfoCarriesTheSituationFieldByField) {
  writeText(serversDir() + "/motd.txt", "Welcome\nFly safe\n");
  startServer(
      "mp_server_message_file = motd.txt\ndate = 15072024\ntime = 11:30:00\nmp_server_flags = 35\n"
      "start_gate_open_time = 12:15:00\nregatta_start = true\nstart_gate_altitude = 1000.7\n"
      "start_gate_altitude_ref = AGL\n"
      "airport {\n name = Field\n runway = 27L\n}\n"
      "weather {\n thermal_strength = 2.37\n thermal_radius = 250.9\n thermal_ceiling = 2400\n"
      " cumulus_base = 2200.5\n max_num_thermals = 1500\n"
      " simple {\n  wind_str = 5\n  wind_dir = 270\n }\n"
      " wind_layer {\n  altitude = 1500\n  direction = 260\n  strength = 4.56\n }\n"
      " wind_layer {\n  altitude = 3000\n  direction = 280\n  strength = 12\n }\n}\n"
      "task {\n turnpoint {\n  lat = 46.01\n  lon = 7.01\n  oz = 2\n  angle1 = 90\n  radius = 1234.5\n  name = Gate\n }\n"
      " turnpoint {\n  lat = 46.05\n  lon = 7.05\n  oz = 1\n  angle1 = 45\n  angle2 = 30\n  name = Peak\n }\n}\n");
  auto client = connectClient();
  const QvLoginAnswer answer = client->loginAndWait(1, 8, 0x1, "Pilot", "info", 5s);
  ASSERT_TRUE(answer.accepted());
  const SngServerInfoMsg& info = *answer.info;
  const QvMessage& raw = client->inbox().front();
  EXPECT_TRUE(raw.reliable);
  EXPECT_EQ(raw.channel, 0);
  EXPECT_EQ(info.protocol_major, 1);
  EXPECT_EQ(info.protocol_minor, 8);
  EXPECT_EQ(info.player, 0);
  EXPECT_EQ(info.server_flags, 35);
  EXPECT_EQ(info.month, 7);
  EXPECT_EQ(info.day, 15);
  EXPECT_GE(info.sim_time, 41400.0f);
  EXPECT_LT(info.sim_time, 41460.0f);
  EXPECT_EQ(info.scenery_name, "test");
  EXPECT_EQ(info.airport_name, "Field");
  EXPECT_EQ(info.runway, "27L");
  EXPECT_NEAR(info.thermal_strength, 2.37, 1e-9);  // 237 hundredths on the wire
  EXPECT_EQ(info.thermal_radius, 250.0);
  EXPECT_EQ(info.thermal_ceiling, 2400.0);
  EXPECT_EQ(info.cumulus_base, 2200.0);
  EXPECT_EQ(info.max_num_thermals, 1500);
  EXPECT_EQ(info.wind_str, 5);
  EXPECT_EQ(info.wind_dir, 270);
  ASSERT_EQ(info.wind_layers.size(), 2u);
  EXPECT_EQ(info.wind_layers[0].altitude, 1500.0);
  EXPECT_EQ(info.wind_layers[0].direction, 260.0);
  EXPECT_NEAR(info.wind_layers[0].strength, 4.5, 1e-9);  // 45 tenths
  EXPECT_NEAR(info.wind_layers[1].strength, 12.0, 1e-9);
  EXPECT_EQ(info.start_gate_open_time, 44100u);
  EXPECT_TRUE(info.regatta_start);
  // 1000 m over the 350 m flat scenery (the ground reference is any text but QNH or MSL).
  EXPECT_EQ(info.start_gate_altitude, 1350);
  ASSERT_EQ(info.task.size(), 2u);
  EXPECT_EQ(info.task[0].name, "Gate");
  EXPECT_EQ(info.task[0].oz, 2);
  EXPECT_EQ(info.task[0].angle1, 90.0);
  EXPECT_EQ(info.task[0].radius, 1230.0);
  EXPECT_NEAR(info.task[1].lat, 46.05, 1e-5);
  EXPECT_EQ(info.task[1].angle2, 30.0);
  EXPECT_EQ(info.motd, "Welcome\nFly safe\n\n");
}

TEST_F(Login, BrokenLoginsGetNoAnswerAndCreateNoRecord) {
  startServer();
  SngLoginMsg login;
  login.hw_id = 0x42;
  login.pilot_name = "Pilot";
  login.nick = "nick";
  const std::vector<uint8_t> whole = sngMessage(SngNet::LOGIN, login).bytes;
  auto client = connectClient();
  for (size_t n = 1; n < whole.size(); ++n) {
    client->sendRaw(std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<long>(n)), true, 0);
  }
  client->sendRaw({SngNet::LOGIN, 1, 8, 1, 0, 0, 0, 'P', 0, 'n', 'o', 'z', 'e', 'r', 'o'}, true, 0);
  settle({client.get()}, 20);
  EXPECT_EQ(client->countOpcode(SngNet::SERVER_INFO), 0u);
  EXPECT_EQ(client->inbox().size(), client->countOpcode(SngNet::PING) + client->countOpcode(SngNet::TIME_SYNC));
  const std::string log = readText(logPath());
  EXPECT_THAT(log, HasSubstr("LOGIN: Missing HW ID, length = 3"));
  EXPECT_THAT(log, HasSubstr("LOGIN: Missing player name, length = 8"));
  EXPECT_THAT(log, HasSubstr("LOGIN: Missing nick, length = 15"));
  EXPECT_THAT(server->stderrText(), HasSubstr("SngNet::LOGIN: missing version\n"));
  // The table is still empty: the next LOGIN gets slot 0.
  uint8_t id = 255;
  auto good = loginClient(0x43, "good", id);
  EXPECT_EQ(id, 0);
}

TEST_F(Login, RandomBytesAndOversizedMessagesLeaveTheServerServing) {
  startServer();
  auto noisy = connectClient();
  uint32_t seed = 12345;
  for (int i = 0; i < 200; ++i) {
    std::vector<uint8_t> junk(1 + (seed >> 24) % 80);
    for (auto& b : junk) {
      seed = seed * 1664525u + 1013904223u;
      b = static_cast<uint8_t>(seed >> 24);
    }
    noisy->sendRaw(junk, (i & 1) != 0, static_cast<uint8_t>(i & 1));
  }
  // A nick just under the size limit is answered; a message over it is refused by ENet unacknowledged.
  auto big = connectClient();
  const std::string longNick(2 * 1024 * 1024 - 64, 'n');
  const QvLoginAnswer answer = big->loginAndWait(1, 8, 0x99, "P", longNick, 20s);
  EXPECT_TRUE(answer.accepted());
  auto huge = connectClient();
  huge->sendRaw(std::vector<uint8_t>(2 * 1024 * 1024 + 16, SngNet::CHAT_MSG), true, 0);
  settle({huge.get(), noisy.get()}, 10);
  uint8_t id = 255;
  auto fresh = loginClient(0x100, "fresh", id);
  EXPECT_NE(id, 255);
  ASSERT_TRUE(server->running());
}

}  // namespace
