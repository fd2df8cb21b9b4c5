// A shared flight against the real server: joining, who receives what and how, idle players.
#include <functional>

#include "e2e/ProtocolFixture.h"

namespace {

using Session = ProtocolE2E;
using namespace SngNet;

QvMessagePredicate aircraftOf(uint8_t opcode, const std::string& nick) {
  return [=](const QvMessage& m) {
    const auto aircraft = m.opcode == opcode ? qvDecode<SngAircraftMsg>(m) : std::nullopt;
    return aircraft && aircraft->nick == nick;
  };
}

TEST_F(Session, AJoinerGetsInfoOkAndTheLiveAircraftWithTheirLaunchAndTheOthersHearOfIt) {
  startServer();
  auto [alice, a] = joinClient(0xA, "alice");
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*joinClient(0xB, "idle").client, "Player 1 (idle) is idle"));
  auto [towed, t] = joinClient(0x70, "towed", LAUNCH_AEROTOW);
  SngAircraftState onTow = stateAt(43210.0);
  onTow.flags[3] = true;  // bit 4: launch in progress
  towed->sendState(t, onTow);
  ASSERT_TRUE(alice->waitFor(AIRCRAFT_STATE, 5s));  // the server has handled it
  auto carol = joinClient(0xC, "carol").client;
  alice->chat(a, "marker");
  ASSERT_TRUE(waitForChat(*carol, "marker"));
  // SERVER_INFO, RESULT_OK, then one EXISTING_AIRCRAFT per live aircraft (not the idle one), all reliable.
  std::vector<uint8_t> opcodes;
  for (const QvMessage& m : carol->inbox())
    if (!isBeat(m)) opcodes.push_back(m.reliable && !m.channel ? m.opcode : 0);
  EXPECT_EQ(opcodes,
            (std::vector<uint8_t>{SERVER_INFO, RESULT_OK, EXISTING_AIRCRAFT, EXISTING_AIRCRAFT, CHAT_MSG}));
  const auto onRope = carol->waitFor(aircraftOf(EXISTING_AIRCRAFT, "towed"), 0ms);
  ASSERT_TRUE(onRope && carol->waitFor(aircraftOf(EXISTING_AIRCRAFT, "alice"), 0ms));
  EXPECT_EQ(qvDecode<SngAircraftMsg>(*onRope)->launch.towplane_id, "pawnee");
  // Released: the next state clears the launch flag, so a later joiner sees no tow.
  towed->sendState(t, stateAt(43212.0));
  ASSERT_TRUE(alice->waitFor(AIRCRAFT_STATE, 5s));
  const auto released = joinClient(0xD, "late").client->waitFor(aircraftOf(EXISTING_AIRCRAFT, "towed"), 5s);
  EXPECT_TRUE(released && qvDecode<SngAircraftMsg>(*released)->launch.method == 0);
}

using Cast = std::vector<std::unique_ptr<QvClient>>;

// What one of the cast does; which of the cast (by index) then receive the opcode, once each, and how.
struct Delivery {
  const char* what;
  uint8_t opcode;
  std::string to;
  std::function<void(Cast&)> send;
  bool reliable = true;  // reliable on channel 0, or unreliable on channel 1 like the states
};

TEST_F(Session, EachMessageReachesExactlyThoseItIsFor) {
  startServer();
  // alice 0, bob 1 (version 1.12), carol 2 (on radio channel 300), mallory 3 (version 2.0); dave 4, on
  // another address, says the markers.
  const std::pair<uint8_t, uint8_t> versions[] = {{1, 8}, {1, 12}, {1, 8}, {2, 0}, {1, 8}};
  Cast cast;
  for (uint8_t i = 0; i < 5; ++i) {
    cast.push_back(connectClient(i == 4 ? "127.0.0.2" : "127.0.0.1"));
    ASSERT_EQ(loginAndJoin(*cast[i], 0xA0 + i, std::string(1, 'a' + i), 0, versions[i]), i);
  }
  cast[2]->commFrq(2, 300);
  ASSERT_TRUE(waitForText(logPath(), "Player c changed to channel 300 (125.500)"));
  // A CONNECT from one of the cast, less its last `cut` bytes.
  const auto connect = [](int from, uint32_t hw, uint8_t id, uint8_t launch = 0, long cut = 0) {
    const auto bytes = sngMessage(CONNECT, joinMessage(hw, id, launch)).bytes;
    return [=](Cast& c) { c[from]->sendRaw({bytes.begin(), bytes.end() - cut}, true, 0); };
  };
  const std::string kill = serversDir() + "/QVServer.kill";
  const Delivery rows[] = {
      {"a state", AIRCRAFT_STATE, "023", [](Cast& c) { c[1]->sendState(1, stateAt(43300.0)); }, false},
      {"a crash", AIRCRAFT_CRASH, "023", [](Cast& c) { c[1]->crash(1); }, false},
      {"a second crash", AIRCRAFT_CRASH, "023", [](Cast& c) { c[1]->crash(1); }, false},
      {"inactive", AIRCRAFT_INACTIVE, "023", [](Cast& c) { c[1]->inactive(1); }, false},
      {"a chat", CHAT_MSG, "123", [](Cast& c) { c[0]->chat(0, "hello"); }},
      {"a second CONNECT is announced again", NEW_AIRCRAFT, "123", connect(0, 0xA0, 0)},
      {"voice on 218", VOICE_CHAT, "13", [](Cast& c) { c[0]->voice(0, 218, 3, std::vector<uint8_t>(3, 7)); }},
      {"voice on 300 moves bob there", VOICE_CHAT, "2", [](Cast& c) { c[1]->voice(1, 300, 1, {9}); }},
      {"voice on 218 without bob", VOICE_CHAT, "3", [](Cast& c) { c[0]->voice(0, 218, 1, {7}); }},
      {"a chat naming alice", CHAT_MSG, "", [](Cast& c) { c[3]->chat(0, "I am alice"); }},
      {"a state naming alice", AIRCRAFT_STATE, "", [](Cast& c) { c[3]->sendState(0, stateAt(43300.0)); }},
      {"a logout naming alice", PLAYER_LEFT, "", [](Cast& c) { c[3]->logout(0); }},
      {"a logout naming a free slot", PLAYER_LEFT, "", [](Cast& c) { c[1]->logout(99); }},
      {"a CONNECT with another hardware ID", RESULT_UNKNOWN_PLAYER, "3", connect(3, 0xBAD, 3)},
      {"a CONNECT for another address's player", RESULT_UNKNOWN_PLAYER, "3", connect(3, 0xA4, 4)},
      {"a CONNECT for a free slot", RESULT_UNKNOWN_PLAYER, "3", connect(3, 0xA3, 7)},
      {"a CONNECT beyond the table", RESULT_UNKNOWN_PLAYER, "3", connect(3, 0xA3, 40)},
      // Without the winch direction (2 bytes) and the empty task's count.
      {"a CONNECT cut short", RESULT_OK, "", connect(3, 0xA3, 3, LAUNCH_WINCH, 3)},
      // The notice goes to clients from 1.08 on, by a test of the minor number alone.
      {"a shutdown in a minute", SHUTDOWN_MSG, "012", [&](Cast&) { writeText(kill, "1\nBack soon\n"); }},
  };
  for (const Delivery& row : rows) {
    SCOPED_TRACE(row.what);
    for (auto& client : cast) client->clearInbox();
    row.send(cast);
    const auto marker = sngMessage(CHAT_MSG, SngChatMsg{4, row.what}).bytes;
    cast[4]->sendRaw(marker, true, 0);
    const auto got = [&](const QvMessage& m) { return m.opcode == row.opcode && m.bytes != marker; };
    for (int i = 0; i < 4; ++i) {
      const bool expected = row.to.find(char('0' + i)) != std::string::npos;
      const auto first = expected ? cast[i]->waitFor(got, 5s) : std::nullopt;
      ASSERT_TRUE(waitForChat(*cast[i], row.what)) << "pilot " << i;
      EXPECT_EQ(std::count_if(cast[i]->inbox().begin(), cast[i]->inbox().end(), got), expected) << i;
      EXPECT_TRUE(!first || (first->reliable == row.reliable && first->channel == !row.reliable)) << i;
    }
  }
  const auto notice = std::ranges::find_if(cast[0]->inbox(), qvOpcodeIs(SHUTDOWN_MSG));
  ASSERT_NE(notice, cast[0]->inbox().end());
  EXPECT_EQ(qvDecode<SngShutdownMsg>(*notice).value_or(SngShutdownMsg{}).text, "Back soon");
  const std::string log = readText(logPath());
  for (const char* line :
       {"Voice packet (3 packets) from Player a on channel 218 (123.450)",
        "naming player 0 of another connection", "Connect player failed (unknown player): ID = 40, HW = 0xA3",
        "[error]: CONNECT: Missing winch direction!", "Shutdown: 1 min, msg = Back soon"}) {
    EXPECT_THAT(log, HasSubstr(line));
  }
  EXPECT_EQ(countOf(log, "b crashed!"), 1u);
}

TEST_F(Session, ADroppedPilotIdlesQuietlyAndItsAddressMaySpeakLeaveAndReturnForIt) {
  startServer();
  auto [alice, a] = joinClient(0xA, "alice");
  auto bob = joinClient(0xB, "bob").client;
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*alice, "Player 0 (alice) is idle (360.000000 seconds left)"));
  auto alice2 = connectClient();  // the same address, not logged in
  alice2->chat(a, "back again");
  EXPECT_EQ(bob->waitFor(CHAT_MSG, 5s).value_or(QvMessage{}).bytes,
            sngMessage(CHAT_MSG, SngChatMsg{a, "back again"}).bytes);
  EXPECT_EQ(bob->countOpcode(PLAYER_LEFT), 0u);  // going idle is not leaving
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*alice2, "Player 0 (alice) is idle", 1));
  auto alice3 = connectClient();
  alice3->logout(a);
  const auto left = bob->waitFor(PLAYER_LEFT, 5s);
  EXPECT_TRUE(left && left->reliable && left->bytes == (std::vector<uint8_t>{PLAYER_LEFT, a}));
  EXPECT_EQ(loginClient(0xE, "erin").id, a);
  const std::string log = readText(logPath());
  EXPECT_EQ(countOf(log, "back again"), 0u);  // chat is relayed, not logged
  EXPECT_EQ(countOf(log, "Player 0 (alice) is no longer idle"), 2u);
  EXPECT_LT(log.rfind("Player 0 (alice) is no longer idle"), log.find("Delete player: ID = 0"));
}

}  // namespace
