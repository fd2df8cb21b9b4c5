// A shared flight against the real server: joining, who receives what and how, idle players.
#include <functional>

#include "e2e/ProtocolFixture.h"

namespace {

using Session = ProtocolE2E;

QvMessagePredicate aircraftOf(uint8_t opcode, const std::string& nick) {
  return [=](const QvMessage& m) {
    const auto aircraft = m.opcode == opcode ? qvDecode<SngAircraftMsg>(m) : std::nullopt;
    return aircraft && aircraft->nick == nick;
  };
}

TEST_F(Session, AJoinerGetsInfoOkAndTheLiveAircraftWithTheirLaunchAndTheOthersHearOfIt) {
  startServer();
  uint8_t a = 255, i = 255, t = 255, c = 255, l = 255;
  auto alice = joinClient(0xA, "alice", a);
  auto idle = joinClient(0xB, "idle", i);
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*idle, "Player 1 (idle) is idle"));
  auto towed = joinClient(0x70, "towed", t, SngNet::LAUNCH_AEROTOW);
  SngAircraftState onTow = stateAt(43210.0);
  onTow.flags[3] = true;  // bit 4: launch in progress
  towed->sendState(t, onTow);
  ASSERT_TRUE(alice->waitFor(SngNet::AIRCRAFT_STATE, 5s));  // the server has handled it
  auto carol = joinClient(0xC, "carol", c);
  alice->chat(a, "marker");
  ASSERT_TRUE(waitForChat(*carol, "marker"));
  // SERVER_INFO, RESULT_OK, then one EXISTING_AIRCRAFT per live aircraft (not the idle one), all reliable.
  std::vector<uint8_t> opcodes;
  for (const QvMessage& m : carol->inbox()) {
    if (m.opcode != SngNet::PING && m.opcode != SngNet::TIME_SYNC)
      opcodes.push_back(m.reliable && m.channel == 0 ? m.opcode : 0);
  }
  const auto onRope = carol->waitFor(aircraftOf(SngNet::EXISTING_AIRCRAFT, "towed"), 0ms);
  ASSERT_TRUE(onRope && carol->waitFor(aircraftOf(SngNet::EXISTING_AIRCRAFT, "alice"), 0ms));
  EXPECT_EQ(qvDecode<SngAircraftMsg>(*onRope)->launch.towplane_id, "pawnee");
  // Released: the next state clears the launch flag, so a later joiner sees no tow.
  towed->sendState(t, stateAt(43212.0));
  ASSERT_TRUE(alice->waitFor(SngNet::AIRCRAFT_STATE, 5s));
  auto late = joinClient(0xD, "late", l);
  const auto released = late->waitFor(aircraftOf(SngNet::EXISTING_AIRCRAFT, "towed"), 5s);
  EXPECT_TRUE(released && qvDecode<SngAircraftMsg>(*released)->launch.method == 0);
}

using Cast = std::vector<std::unique_ptr<QvClient>>;
using Bytes = std::vector<uint8_t>;

// What one of the cast does; which of the cast (by index) then receive the opcode, once each, and how.
struct Delivery {
  const char* what;
  uint8_t opcode;
  std::string to;
  std::function<void(Cast&)> send;
  bool reliable = true;  // reliable on channel 0, or unreliable on channel 1 like the states
};

std::vector<uint8_t> winchConnectWithoutDirection(uint32_t hwId, uint8_t playerId) {
  auto bytes = sngMessage(SngNet::CONNECT, joinMessage(hwId, playerId, SngNet::LAUNCH_WINCH)).bytes;
  bytes.resize(bytes.size() - 3);  // the direction (2 bytes) and the empty task's count
  return bytes;
}

TEST_F(Session, EachMessageReachesExactlyThoseItIsFor) {
  using namespace SngNet;
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
  const auto connect = [](int from, uint32_t hw, uint8_t id) {
    return [=](Cast& c) { c[from]->connectAircraft(joinMessage(hw, id)); };
  };
  const std::string kill = serversDir() + "/QVServer.kill";
  const Delivery rows[] = {
      {"a state", AIRCRAFT_STATE, "023", [](Cast& c) { c[1]->sendState(1, stateAt(43300.0)); }, false},
      {"a crash", AIRCRAFT_CRASH, "023", [](Cast& c) { c[1]->crash(1); }, false},
      {"a second crash", AIRCRAFT_CRASH, "023", [](Cast& c) { c[1]->crash(1); }, false},
      {"inactive", AIRCRAFT_INACTIVE, "023", [](Cast& c) { c[1]->inactive(1); }, false},
      {"a chat", CHAT_MSG, "123", [](Cast& c) { c[0]->chat(0, "hello"); }},
      {"a second CONNECT is announced again", NEW_AIRCRAFT, "123", connect(0, 0xA0, 0)},
      {"voice on 218", VOICE_CHAT, "13", [](Cast& c) { c[0]->voice(0, 218, 3, Bytes(3, 7)); }},
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
      {"a CONNECT cut short", RESULT_OK, "",
       [](Cast& c) { c[3]->sendRaw(winchConnectWithoutDirection(0xA3, 3), true, 0); }},
      // The notice goes to clients from 1.08 on, by a test of the minor number alone.
      {"a shutdown in a minute", SHUTDOWN_MSG, "012", [&](Cast&) { writeText(kill, "1\nBack soon\n"); }},
  };
  for (const Delivery& row : rows) {
    SCOPED_TRACE(row.what);
    for (auto& client : cast) client->clearInbox();
    row.send(cast);
    cast[4]->chat(4, row.what);
    const auto got = [&](const QvMessage& m) {
      return m.opcode == row.opcode && (m.bytes.size() < 2 || m.bytes[1] != 4);
    };
    for (int i = 0; i < 4; ++i) {
      const bool expected = row.to.find(char('0' + i)) != std::string::npos;
      const auto first = expected ? cast[i]->waitFor(got, 5s) : std::nullopt;
      ASSERT_TRUE(waitForChat(*cast[i], row.what)) << "pilot " << i;
      EXPECT_EQ(std::count_if(cast[i]->inbox().begin(), cast[i]->inbox().end(), got), expected) << i;
      EXPECT_TRUE(!first || (first->reliable == row.reliable && first->channel == (row.reliable ? 0 : 1)))
          << i;
    }
  }
  const auto notice =
      std::find_if(cast[0]->inbox().begin(), cast[0]->inbox().end(), qvOpcodeIs(SHUTDOWN_MSG));
  EXPECT_EQ(qvDecode<SngShutdownMsg>(*notice)->text, "Back soon");
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
  uint8_t a = 255, b = 255, next = 255;
  auto alice = joinClient(0xA, "alice", a);
  auto bob = joinClient(0xB, "bob", b);
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*alice, "Player 0 (alice) is idle (360.000000 seconds left)"));
  auto alice2 = connectClient();  // the same address, not logged in
  alice2->chat(a, "back again");
  const auto line = bob->waitFor(SngNet::CHAT_MSG, 5s);
  EXPECT_TRUE(line && line->bytes == sngMessage(SngNet::CHAT_MSG, SngChatMsg{a, "back again"}).bytes);
  EXPECT_EQ(bob->countOpcode(SngNet::PLAYER_LEFT), 0u);  // going idle is not leaving
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*alice2, "Player 0 (alice) is idle", 1));
  auto alice3 = connectClient();
  alice3->logout(a);
  const auto left = bob->waitFor(SngNet::PLAYER_LEFT, 5s);
  EXPECT_TRUE(left && left->reliable && left->bytes == (std::vector<uint8_t>{SngNet::PLAYER_LEFT, a}));
  auto erin = loginClient(0xE, "erin", next);
  EXPECT_EQ(next, a);
  const std::string log = readText(logPath());
  EXPECT_THAT(log, Not(HasSubstr("back again")));  // chat is relayed, not logged
  EXPECT_EQ(countOf(log, "Player 0 (alice) is no longer idle"), 2u);
  EXPECT_LT(log.rfind("Player 0 (alice) is no longer idle"), log.find("Delete player: ID = 0"));
}

}  // namespace
