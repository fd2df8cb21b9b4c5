// A shared flight against the real server: joining, relays, chat, voice, task progress, leaving.
#include "e2e/ProtocolFixture.h"

using ::testing::HasSubstr;

namespace {

using Session = ProtocolE2E;

std::vector<uint8_t> opcodes(const QvClient& client) {
  std::vector<uint8_t> out;
  for (const auto& m : client.inbox()) {
    if (m.opcode != SngNet::PING && m.opcode != SngNet::TIME_SYNC) out.push_back(m.opcode);
  }
  return out;
}

TEST_F(Session, AJoinerGetsInfoThenOkThenTheLiveAircraftAndTheOthersHearOfIt) {
  startServer();
  uint8_t a = 255, b = 255, c = 255;
  auto alice = joinClient(0xA, "alice", a);
  auto idle = joinClient(0xB, "idle", b);
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*idle, "Player 1 (idle) is idle"));
  alice->clearInbox();
  auto carol = joinClient(0xC, "carol", c);
  const auto existing = carol->waitFor(SngNet::EXISTING_AIRCRAFT, 5s);
  ASSERT_TRUE(existing);
  settle({carol.get(), alice.get()});
  // SERVER_INFO, RESULT_OK, then one EXISTING_AIRCRAFT: alice, not the idle player.
  EXPECT_EQ(opcodes(*carol),
            (std::vector<uint8_t>{SngNet::SERVER_INFO, SngNet::RESULT_OK, SngNet::EXISTING_AIRCRAFT}));
  EXPECT_TRUE(existing->reliable);
  EXPECT_EQ(existing->channel, 0);
  EXPECT_EQ(qvDecode<SngAircraftMsg>(*existing)->nick, "alice");
  const auto ok = std::find_if(carol->inbox().begin(), carol->inbox().end(),
                               [](const QvMessage& m) { return m.opcode == SngNet::RESULT_OK; });
  EXPECT_TRUE(ok->reliable);
  EXPECT_EQ(ok->channel, 0);
  const auto announced = alice->waitFor(
      [](const QvMessage& m) {
        return m.opcode == SngNet::NEW_AIRCRAFT && qvDecode<SngAircraftMsg>(m)->nick == "carol";
      },
      5s);
  ASSERT_TRUE(announced);
  EXPECT_TRUE(announced->reliable);
  const auto msg = qvDecode<SngAircraftMsg>(*announced);
  EXPECT_EQ(msg->nick, "carol");
  EXPECT_EQ(msg->registration, "D-12");
}

TEST_F(Session, AnAerotowIsShownToLaterJoinersUntilTheRelease) {
  startServer();
  uint8_t t = 255, a = 255, b = 255;
  auto towed = joinClient(0x70, "towed", t, 1);
  SngAircraftState onTow = stateAt(43210.0);
  onTow.flags[3] = true;  // bit 4: launch in progress
  towed->sendState(t, onTow);
  ASSERT_TRUE(waitForText(logPath(), "Connect player: ID = 0"));
  auto early = joinClient(0x71, "early", a);
  auto seen = early->waitFor(SngNet::EXISTING_AIRCRAFT, 5s);
  ASSERT_TRUE(seen);
  EXPECT_EQ(qvDecode<SngAircraftMsg>(*seen)->launch.launch_method, 1);
  EXPECT_EQ(qvDecode<SngAircraftMsg>(*seen)->launch.towplane_id, "pawnee");
  // Released: the next state clears the launch flag.
  towed->sendState(t, stateAt(43212.0));
  ASSERT_TRUE(early->waitFor(SngNet::AIRCRAFT_STATE, 5s));  // the server has handled it
  auto late = joinClient(0x72, "late", b);
  seen = late->waitFor(
      [](const QvMessage& m) {
        return m.opcode == SngNet::EXISTING_AIRCRAFT && qvDecode<SngAircraftMsg>(m)->nick == "towed";
      },
      5s);
  ASSERT_TRUE(seen);
  EXPECT_EQ(qvDecode<SngAircraftMsg>(*seen)->launch.launch_method, 0);
}

TEST_F(Session, ASecondConnectReplacesTheAircraftAndIsAnnouncedAgain) {
  startServer();
  auto [alice, a, bob, b] = joinAliceAndBob();
  ASSERT_TRUE(alice->waitFor(SngNet::NEW_AIRCRAFT, 5s));
  SngConnectMsg again = joinMessage(0xB, b);
  again.aircraft_id = "LS8";
  const QvJoinAnswer answer = bob->joinAndWait(again, 5s);
  EXPECT_TRUE(answer.accepted());
  const auto second = alice->waitFor(SngNet::NEW_AIRCRAFT, 5s);
  ASSERT_TRUE(second);
  EXPECT_EQ(qvDecode<SngAircraftMsg>(*second)->aircraft_id, "LS8");
}

TEST_F(Session, ConnectIsRefusedForAnotherHardwareAddressSlotOrAnIdOutOfRange) {
  startServer();
  uint8_t a = 255, b = 255;
  auto alice = loginClient(0xA, "alice", a);
  auto remote = loginClient(0xB, "remote", b, "127.0.0.2");
  auto check = [&](QvClient& client, const SngConnectMsg& msg, const char* what) {
    const QvJoinAnswer answer = client.joinAndWait(msg, 5s);
    EXPECT_EQ(answer.opcode, SngNet::RESULT_UNKNOWN_PLAYER) << what;
  };
  check(*alice, joinMessage(0xBAD, a), "wrong hardware ID");
  check(*alice, joinMessage(0xB, b), "another address");
  check(*alice, joinMessage(0xA, 7), "free slot");
  check(*alice, joinMessage(0xA, 40), "beyond the table");
  EXPECT_THAT(readText(logPath()), HasSubstr("Connect player failed (unknown player): ID = 40, HW = 0xA"));
}

TEST_F(Session, AWinchConnectWithoutItsDirectionChangesNothing) {
  startServer();
  uint8_t a = 255;
  auto alice = loginClient(0xA, "alice", a);
  SngPacket packet;
  packet.putU8(SngNet::CONNECT);
  packet.putU32(0xA);
  packet.putU8(a);
  packet.putString("ASK21");
  packet.putString("D-1");
  packet.putString("K1");
  packet.putU8(2);
  packet.putU16(900);
  packet.putString("winch");
  packet.putF32(46.0f);
  packet.putF32(7.0f);
  packet.putF32(400.0f);  // the direction is missing
  alice->sendRaw(packet.bytes, true, 0);
  ASSERT_TRUE(waitForText(logPath(), "[error]: CONNECT: Missing winch direction!"));
  settle({alice.get()});
  EXPECT_EQ(alice->countOpcode(SngNet::RESULT_OK) + alice->countOpcode(SngNet::RESULT_UNKNOWN_PLAYER), 0u);
  EXPECT_THAT(readText(logPath()), ::testing::Not(HasSubstr("Connect player: ID = 0")));
}

TEST_F(Session, StatesCrashesAndInactiveNoticesGoToTheOthersOnly) {
  startServer();
  auto [alice, a, bob, b] = joinAliceAndBob();
  alice->clearInbox();
  bob->sendState(b, stateAt(43300.0));
  const auto relayed = alice->waitFor(SngNet::AIRCRAFT_STATE, 5s);
  ASSERT_TRUE(relayed);
  EXPECT_FALSE(relayed->reliable);
  EXPECT_EQ(relayed->channel, 1);
  EXPECT_EQ(relayed->bytes.size(), 61u);
  SngPacket sent;
  sent.putU8(SngNet::AIRCRAFT_STATE);
  sent.putU8(b);
  (void)sent;
  bob->crash(b);
  bob->crash(b);
  bob->inactive(b);
  ASSERT_TRUE(alice->waitFor(SngNet::AIRCRAFT_CRASH, 5s));
  ASSERT_TRUE(alice->waitFor(SngNet::AIRCRAFT_CRASH, 5s));
  ASSERT_TRUE(alice->waitFor(SngNet::AIRCRAFT_INACTIVE, 5s));
  settle({bob.get()});
  EXPECT_EQ(bob->countOpcode(SngNet::AIRCRAFT_CRASH) + bob->countOpcode(SngNet::AIRCRAFT_STATE), 0u);
  const std::string log = readText(logPath());
  EXPECT_EQ(log.find("bob crashed!"), log.rfind("bob crashed!"));
  EXPECT_NE(log.find("bob crashed!"), std::string::npos);
}

TEST_F(Session, AScanRequestOverTheGameConnectionIsOnlyLogged) {
  startServer();
  uint8_t a = 255;
  auto alice = loginClient(0xA, "alice", a);
  alice->clearInbox();
  alice->serverScan();
  ASSERT_TRUE(waitForText(logPath(), "[debug]: SERVER_SCAN"));
  settle({alice.get()});
  EXPECT_EQ(alice->inbox().size(), alice->countOpcode(SngNet::PING) + alice->countOpcode(SngNet::TIME_SYNC));
}

TEST_F(Session, VoiceReachesTheSameChannelOnlyAndMovesTheSender) {
  startServer();
  uint8_t a = 255, b = 255, c = 255;
  auto alice = joinClient(0xA, "alice", a);
  auto bob = joinClient(0xB, "bob", b);
  auto carol = joinClient(0xC, "carol", c);
  carol->commFrq(c, 300);
  ASSERT_TRUE(waitForText(logPath(), "Player carol changed to channel 300 (125.500)"));
  alice->voice(a, 218, 3, {1, 2, 3, 4});
  const auto heard = bob->waitFor(SngNet::VOICE_CHAT, 5s);
  ASSERT_TRUE(heard);
  EXPECT_TRUE(heard->reliable);
  EXPECT_EQ(heard->channel, 0);
  settle({carol.get(), alice.get()});
  EXPECT_EQ(carol->countOpcode(SngNet::VOICE_CHAT), 0u);
  EXPECT_EQ(alice->countOpcode(SngNet::VOICE_CHAT), 0u);
  // Talking on 300 moves bob there: carol hears him, alice no longer does.
  bob->voice(b, 300, 1, {9});
  ASSERT_TRUE(carol->waitFor(SngNet::VOICE_CHAT, 5s));
  alice->voice(a, 218, 1, {7});
  settle({bob.get()}, 10);
  EXPECT_EQ(bob->countOpcode(SngNet::VOICE_CHAT), 1u);
  EXPECT_THAT(readText(logPath()), HasSubstr("Voice packet (3 packets) from Player alice on channel 218 (123.450)"));
}

TEST_F(Session, ChatFromAnIdlePlayerBringsItBackAndIsNeverEchoed) {
  startServer();
  auto [alice, a, bob, b] = joinAliceAndBob();
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*alice, "Player 0 (alice) is idle"));
  auto alice2 = connectClient();  // same address: may speak for the idle player
  alice2->chat(a, "back again");
  const auto line = bob->waitFor(SngNet::CHAT_MSG, 5s);
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->reliable);
  EXPECT_EQ(qvDecode<SngChatMsg>(*line)->text, "back again");
  EXPECT_EQ(qvDecode<SngChatMsg>(*line)->player, a);
  settle({alice2.get()});
  EXPECT_EQ(alice2->countOpcode(SngNet::CHAT_MSG), 0u);
  const std::string log = readText(logPath());
  EXPECT_THAT(log, HasSubstr("Player 0 (alice) is no longer idle"));
  EXPECT_THAT(log, ::testing::Not(HasSubstr("back again")));
}

TEST_F(Session, LogoutFreesTheSlotForTheNextClientAndTellsTheOthers) {
  startServer();
  auto [alice, a, bob, b] = joinAliceAndBob();
  bob->logout(99);  // a free slot: nothing happens
  alice->logout(a);
  const auto left = bob->waitFor(SngNet::PLAYER_LEFT, 5s);
  ASSERT_TRUE(left);
  EXPECT_EQ(qvDecode<SngPlayerMsg>(*left)->player, a);
  EXPECT_TRUE(left->reliable);
  uint8_t c = 255;
  auto carol = loginClient(0xC, "carol", c);
  EXPECT_EQ(c, a);
  EXPECT_THAT(readText(logPath()), HasSubstr("Player 0 (alice) logged out"));
}

TEST_F(Session, AnIdlePlayersLogoutLeavesIdleThenRemovesIt) {
  startServer();
  auto [alice, a, bob, b] = joinAliceAndBob();
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*alice, "Player 0 (alice) is idle"));
  auto alice2 = connectClient();
  alice2->logout(a);
  ASSERT_TRUE(bob->waitFor(SngNet::PLAYER_LEFT, 5s));
  const std::string log = readText(logPath());
  EXPECT_LT(log.find("Player 0 (alice) is no longer idle"), log.find("Delete player: ID = 0"));
}

TEST_F(Session, AClientNamingAnotherPlayerIsIgnored) {
  startServer();
  uint8_t a = 255, b = 255, m = 255;
  auto alice = joinClient(0xA, "alice", a);
  auto bob = joinClient(0xB, "bob", b);
  auto mallory = joinClient(0xE, "mallory", m);
  mallory->logout(a);
  mallory->chat(a, "I am alice");
  mallory->sendState(a, stateAt(43300.0, 46.0, 7.0));
  mallory->chat(m, "hello");  // its own ID still works
  const auto line = bob->waitFor(SngNet::CHAT_MSG, 5s);
  ASSERT_TRUE(line);
  EXPECT_EQ(qvDecode<SngChatMsg>(*line)->text, "hello");
  settle({bob.get(), alice.get()});
  EXPECT_EQ(bob->countOpcode(SngNet::PLAYER_LEFT), 0u);
  EXPECT_EQ(bob->countOpcode(SngNet::CHAT_MSG), 1u);
  EXPECT_EQ(bob->countOpcode(SngNet::AIRCRAFT_STATE), 0u);
  alice->chat(a, "still here");
  ASSERT_TRUE(bob->waitFor(SngNet::CHAT_MSG, 5s));
  EXPECT_THAT(readText(logPath()), HasSubstr("naming player 0 of another connection"));
}

TEST_F(Session, TheShutdownNoticeReachesClientsOf108And112ButNot20) {
  startServer();
  auto login = [&](uint8_t major, uint8_t minor, uint32_t hw) {
    auto c = connectClient();
    EXPECT_TRUE(c->loginAndWait(major, minor, hw, "P", "v", 5s).accepted());
    SngConnectMsg msg = joinMessage(hw, c->inbox().front().bytes[3]);
    EXPECT_TRUE(c->joinAndWait(msg, 5s).accepted());
    return c;
  };
  auto v108 = login(1, 8, 1);
  auto v112 = login(1, 12, 2);
  auto v200 = login(2, 0, 3);
  writeText(serversDir() + "/QVServer.kill", "1\nServer restarts in one minute\n");
  const auto notice = v108->waitFor(SngNet::SHUTDOWN_MSG, 5s);
  ASSERT_TRUE(notice);
  EXPECT_TRUE(notice->reliable);
  EXPECT_EQ(qvDecode<SngShutdownMsg>(*notice)->text, "Server restarts in one minute");
  ASSERT_TRUE(v112->waitFor(SngNet::SHUTDOWN_MSG, 5s));
  settle({v200.get()});
  EXPECT_EQ(v200->countOpcode(SngNet::SHUTDOWN_MSG), 0u);
  EXPECT_THAT(readText(logPath()), HasSubstr("Shutdown: 1 min, msg = Server restarts in one minute"));
  server->sendSignal(SIGTERM);
  ASSERT_TRUE(server->waitExit(15s));
}

TEST_F(Session, TaskProgressOfAFlyerGoesToTheOthersEvery15Seconds) {
  // A start cylinder, a turnpoint 5 km north and the finish 5 km further; the flyer's clock runs fast.
  startServer(
      "task {\n turnpoint {\n  lat = 46.0\n  lon = 7.03\n  radius = 500\n  name = S\n }\n"
      " turnpoint {\n  lat = 46.045\n  lon = 7.03\n  radius = 500\n  name = T\n }\n"
      " turnpoint {\n  lat = 46.06\n  lon = 7.03\n  radius = 500\n  name = F\n }\n}\n");
  uint8_t f = 255, w = 255;
  auto flyer = loginClient(0xF, "flyer", f);
  const auto info = qvDecode<SngServerInfoMsg>(flyer->inbox().front());
  ASSERT_TRUE(info);
  SngConnectMsg join = joinMessage(0xF, f);
  join.task = info->task;
  ASSERT_TRUE(flyer->joinAndWait(join, 5s).accepted());
  auto watcher = joinClient(0x3, "watcher", w);
  // Due north from the start at 100 km/h, a state every 2 client seconds (56 m), finishing the task.
  double t = 43300.0;
  for (double lat = 46.0; lat <= 46.0605; lat += 0.0005) {
    flyer->sendState(f, stateAt(t, lat, 7.03, 1200.0));
    t += 2.0;
    flyer->service(2);
  }
  // Both clients keep servicing their connections while the 15 s broadcast comes round.
  std::optional<SngTaskUpdateMsg> last;
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (!(last && last->status == 2) && std::chrono::steady_clock::now() < deadline) {
    flyer->service(10);
    if (auto m = watcher->waitFor(SngNet::TASK_UPDATE, 10ms)) last = qvDecode<SngTaskUpdateMsg>(*m);
  }
  ASSERT_TRUE(last && last->status == 2);
  EXPECT_EQ(last->player, f);
  EXPECT_EQ(last->curr_tp, 2);
  // A finished task counts from centre to centre: 0.06 degrees of a meridian, 111120 m each.
  EXPECT_NEAR(last->distance, 0.06 * 111120.0, 2.0);
  settle({flyer.get()});
  EXPECT_EQ(flyer->countOpcode(SngNet::TASK_UPDATE), 0u);
  const auto update = std::find_if(watcher->inbox().begin(), watcher->inbox().end(),
                                   [](const QvMessage& m) { return m.opcode == SngNet::TASK_UPDATE; });
  EXPECT_FALSE(update->reliable);
  EXPECT_EQ(update->channel, 1);
  EXPECT_THAT(readText(logPath()), HasSubstr("Send task update: flyer:"));
}

}  // namespace
