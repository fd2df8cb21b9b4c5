// The registry, idle rules and nested passes, driven through the scripted transport with an injected
// clock: minutes of idle time and messages that land inside a nested pass, without sockets or waiting.
#include <cmath>
#include <limits>
#include <tuple>

#include "ProtocolFixture.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using Registry = ProtocolFixture;

TEST_F(Registry, ADroppedPlayerHas360SecondsAndAReturningLoginHas300) {
  startServer();
  const SngPeer first = login(0xA1, "alice");
  net->drop(first);
  drain();
  ASSERT_TRUE(playerAt(0)->idle);
  EXPECT_THAT(log(), HasSubstr("Player 0 (alice) is idle (360.000000 seconds left)"));
  // The transport hands the same peer object to a new client: its drop must not touch the idle record.
  const SngPeer fresh = net->connect();
  ASSERT_EQ(fresh.handle, first.handle);
  net->drop(fresh);
  drain();
  EXPECT_EQ(countOf(log(), "Player 0 (alice) is idle"), 1u);
  for (int i = 0; i < 358; ++i) pass(1.0);
  ASSERT_NE(playerAt(0), nullptr);

  // The same client comes back from the same address: its slot, idle, with 300 s to speak.
  const SngPeer second = login(0xA1, "alice2");
  ASSERT_TRUE(playerAt(0) && playerAt(0)->idle && playerAt(0)->peer == second);
  EXPECT_THAT(log(), HasSubstr("Reconnect player: ID = 0. HW = 0xA1, host = 127.0.0.1"));
  for (int i = 0; i < 298; ++i) pass(1.0);
  ASSERT_NE(playerAt(0), nullptr);
  pass(1.5);
  pass(1.0);
  EXPECT_EQ(playerAt(0), nullptr);
  EXPECT_THAT(log(), HasSubstr("Idle timeout for player 0, disconnecting\n"));

  // A record that had more than 360 s left keeps them when its connection drops.
  const SngPeer third = login(0xA1, "alice");
  playerAt(0)->idle_time_left = 400.0f;
  net->drop(third);
  drain();
  EXPECT_NEAR(playerAt(0)->idle_time_left, 400.0f, 0.05f);  // less the passes' few milliseconds
}

TEST_F(Registry, AConnectionOwnsAtMostTwoRecordsAndLosingItIdlesBoth) {
  startServer();
  const SngPeer peer = net->connect();
  for (uint32_t hw : {1u, 2u, 3u, 1u}) net->receive(peer, loginBytes(hw, "n" + std::to_string(hw)));
  drain();
  ASSERT_NE(playerAt(1), nullptr);
  EXPECT_EQ(playerAt(2), nullptr);  // a third hardware ID is refused ...
  EXPECT_EQ(sentTo(peer, SngNet::RESULT_SERVER_FULL).size(), 1u);
  EXPECT_EQ(sentTo(peer, SngNet::SERVER_INFO).size(), 3u);  // ... but a returning one is not
  EXPECT_THAT(log(), HasSubstr("LOGIN refused: connection from 127.0.0.1 already has 2 players (HW = 0x3)"));
  net->drop(peer);
  drain();
  EXPECT_TRUE(playerAt(0)->idle);
  EXPECT_TRUE(playerAt(1)->idle);
}

TEST_F(Registry, ConnectionsThatCarryNoPlayerAreClosedAfterAMinute) {
  startServer();
  const SngPeer silent = net->connect(10, 0, 0, 1);
  const SngPeer pilot = login(0xD4, "dave", 2);
  drain();
  for (int i = 0; i < 30; ++i) {
    clock.advanceSeconds(2.5);
    server->loopIteration(0);
  }
  ASSERT_EQ(net->serverDisconnected.size(), 1u);
  EXPECT_TRUE(net->serverDisconnected[0] == silent);
  EXPECT_THAT(log(), HasSubstr("Closing connection from 10.0.0.1: no player for 60 s"));
  EXPECT_TRUE(net->isConnected(pilot));
}

using NestedPasses = ProtocolFixture;

// SERVER_INFO's start-gate height then comes from a terrain lookup, which runs a nested pass.
const char* const kGateOnGround = "start_gate_altitude_ref = 1\ntask {\n turnpoint {\n  lat = 46.03\n  lon = 7.03\n }\n}\n";

// Runs `inject` once, the first time the transport is serviced from inside a nested pass.
void injectInNestedPass(SngScriptedNetwork* net, SngServer* server, std::function<void()> inject) {
  auto done = std::make_shared<bool>(false);
  net->onService = [=](int) {
    if (*done || server->protocol().passDepth() < 2) return;
    *done = true;
    inject();
  };
}

TEST_F(NestedPasses, ALogoutAndASlotReusedInsideAStateLookupStopTheStateHandler) {
  startServer();
  const SngPeer alice = login(0x11, "alice");
  const SngPeer bob = login(0x22, "bob", 2);
  SngPeer carol;
  injectInNestedPass(net, server.get(), [&] {
    net->receive(alice, sngMessage(SngNet::LOGOUT, SngPlayerMsg{0}).bytes);
    carol = net->connect(127, 0, 0, 3);
    net->receive(carol, loginBytes(0x33, "carol"));
  });
  net->receive(alice, stateBytes(0, 43300.0));
  drain();
  ASSERT_NE(playerAt(0), nullptr);
  EXPECT_EQ(playerAt(0)->nick, "carol");
  EXPECT_LT(playerAt(0)->state.time, 0.0);  // alice's state never landed in carol's record
  EXPECT_TRUE(playerAt(0)->track.empty());
  EXPECT_EQ(sentTo(bob, SngNet::PLAYER_LEFT).size(), 1u);
  EXPECT_TRUE(sentTo(bob, SngNet::AIRCRAFT_STATE).empty());  // the stopped handler relayed nothing
  EXPECT_EQ(sentTo(carol, SngNet::SERVER_INFO).size(), 1u);
}

TEST_F(NestedPasses, AnIdleTimeoutInsideAStateLookupLeavesTheSenderWorking) {
  startServer();
  const SngPeer alice = login(0x11, "alice");
  const SngPeer bob = login(0x22, "bob", 2);
  net->drop(alice);
  drain();
  playerAt(0)->idle_time_left = 0.5f;
  // The clock moves on just before bob's state is taken, so the nested pass of its terrain lookup is
  // the first pass to see alice's idle time run out.
  net->onService = [&](int) {
    if (net->pending() == 1) clock.advanceSeconds(1.0);
  };
  net->receive(bob, stateBytes(1, 43300.0));
  drain();
  EXPECT_EQ(playerAt(0), nullptr);
  EXPECT_THAT(log(), HasSubstr("Idle timeout for player 0, disconnecting\n"));
  ASSERT_NE(playerAt(1), nullptr);
  EXPECT_EQ(playerAt(1)->track.size(), 1u);  // bob's state was recorded after the nested pass
}

TEST_F(NestedPasses, APassNestedInThePingBurstStartsNoSecondBurst) {
  startServer(kGateOnGround);
  const SngPeer alice = login(0x11, "alice");
  net->sent.clear();
  // A LOGIN during the burst answers with SERVER_INFO, whose terrain lookup runs a nested pass.
  bool injected = false;
  net->onService = [&](int) {
    if (injected || sentTo(alice, SngNet::PING).empty()) return;
    injected = true;
    clock.advanceSeconds(0.05);
    net->receive(net->connect(127, 0, 0, 9), loginBytes(0x99, "late"));
  };
  pass(1.0);  // the first burst is due after 1 s
  ASSERT_TRUE(injected);
  EXPECT_EQ(sentTo(alice, SngNet::PING).size(), 5u);
  EXPECT_EQ(sentTo(alice, SngNet::TIME_SYNC).size(), 1u);
}

TEST_F(NestedPasses, NestingIsBoundedUnderAStreamOfLogins) {
  startServer(kGateOnGround);
  std::vector<SngPeer> peers;
  for (uint8_t i = 0; i < 20; ++i) peers.push_back(net->connect(127, 0, 1, i));
  drain();
  // Every service step brings another LOGIN; each answer runs a nested pass that services the next.
  int deepest = 0, logins = 0;
  net->onService = [&](int) {
    deepest = std::max(deepest, server->protocol().passDepth());
    if (logins < 20) {
      net->receive(peers[logins], loginBytes(0x100 + logins, "n"));
      ++logins;
    }
  };
  for (int i = 0; i < 100 && logins < 20; ++i) pass();
  drain();
  EXPECT_EQ(deepest, SngProtocol::kMaxPassDepth);
  EXPECT_GT(server->protocol().counters().skipped_nested_passes, 0u);
  int answered = 0;
  for (const auto& s : net->sent) answered += s.data[0] == SngNet::SERVER_INFO;
  EXPECT_EQ(answered, 20);
}

}  // namespace

namespace {

using BadInput = ProtocolFixture;

// Every message a client may send, well formed, for player `id`.
std::vector<std::vector<uint8_t>> everyClientMessage(uint8_t id, uint32_t hwId) {
  SngTurnpoint tp{.lat = 46.02, .lon = 7.02, .name = "TP", .oz = SNG_OZ_SECTOR};
  SngLaunch winch{.method = SngLaunch::WINCH, .rope_length = 900, .winch_id = "w", .winch_lat = 46.0, .winch_lon = 7.0};
  SngStateMsg state{.player = id, .state = {.time = 43300.0, .lat = 46.02, .lon = 7.02}};
  SngPlayerMsg player{.player = id};
  return {
      sngMessage(SngNet::CONNECT, SngConnectMsg{.hw_id = hwId, .player = id, .aircraft_id = "ASK21",
                                                .registration = "D-1", .comp_id = "K1", .launch = winch,
                                                .task = {tp, tp}}).bytes,
      sngMessage(SngNet::AIRCRAFT_STATE, state).bytes,
      sngMessage(SngNet::EXTRA_AIRCRAFT_STATE, state).bytes,
      sngMessage(SngNet::CHAT_MSG, SngChatMsg{.player = id, .text = "hello"}).bytes,
      sngMessage(SngNet::VOICE_CHAT, SngVoiceMsg{.player = id, .channel = 218, .num_packets = 1, .data = {1, 2}}).bytes,
      sngMessage(SngNet::COMM_FRQ, SngCommFrqMsg{.player = id, .channel = 300}).bytes,
      sngMessage(SngNet::AIRCRAFT_CRASH, player).bytes,
      sngMessage(SngNet::AIRCRAFT_INACTIVE, player).bytes,
      sngMessage(SngNet::LOGOUT, player).bytes,
  };
}

TEST_F(BadInput, TruncatedOrForeignMessagesChangeNothingAndSendNothing) {
  startServer("competition_mode = true\nstart_gate_altitude_ref = 1\n");
  const SngPeer alice = login(0x11, "alice");
  const SngPeer bob = login(0x22, "bob", 2);
  const SngSrvPlayer* record = playerAt(0);
  net->sent.clear();
  for (const auto& whole : everyClientMessage(0, 0x11)) {
    // Every prefix but the whole message. A voice message's data runs to its end, so only a cut
    // header (player, channel, packet count: 6 bytes with the opcode) makes it incomplete.
    const size_t complete = whole[0] == SngNet::VOICE_CHAT ? 6 : whole.size();
    for (size_t n = 1; n < complete; ++n) {
      net->receive(alice, std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<long>(n)));
    }
  }
  // Whole messages naming a free slot or bob's: a client never speaks for another.
  for (uint8_t id : {uint8_t{1}, uint8_t{5}, uint8_t{31}, uint8_t{40}, uint8_t{255}}) {
    for (const auto& msg : everyClientMessage(id, 0x11)) {
      if (msg[0] != SngNet::CONNECT) net->receive(alice, msg);
    }
  }
  drain();
  EXPECT_EQ(server->protocol().counters().foreign_messages, 8u);  // the eight messages naming bob's slot 1
  EXPECT_EQ(playerAt(1)->comm_channel, 218);
  EXPECT_LT(playerAt(1)->state.time, 0.0);
  ASSERT_EQ(playerAt(0), record);
  EXPECT_EQ(record->aircraft_id, "Unknown Aircraft");
  EXPECT_LT(record->state.time, 0.0);
  EXPECT_EQ(record->comm_channel, 218);
  EXPECT_FALSE(record->crashed);
  // Only the ping burst may have spoken meanwhile.
  for (const auto& s : net->sent) {
    EXPECT_TRUE(s.data[0] == SngNet::PING || s.data[0] == SngNet::TIME_SYNC) << int(s.data[0]);
  }
  // Non-finite or off-the-globe states are relayed as received but never recorded.
  const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
  for (auto [t, lat, lon] : {std::tuple{nan, 46.0, 7.0}, {43300.0, nan, 7.0}, {43300.0, 46.0, inf},
                             {43300.0, 91.0, 7.0}, {43300.0, 46.0, -180.5}, {inf, 46.0, 7.0}}) {
    net->receive(alice, stateBytes(0, t, lat, lon));
  }
  drain();
  EXPECT_EQ(server->protocol().counters().unrecorded_states, 6u);
  EXPECT_EQ(sentTo(bob, SngNet::AIRCRAFT_STATE).size(), 6u);
  EXPECT_LT(record->state.time, 0.0);
  net->sent.clear();
  // The whole messages still work afterwards: CONNECT is answered, the state recorded and relayed.
  for (const auto& whole : everyClientMessage(0, 0x11)) {
    if (whole[0] != SngNet::LOGOUT) net->receive(alice, whole);
  }
  drain();
  EXPECT_EQ(sentTo(alice, SngNet::RESULT_OK).size(), 1u);
  EXPECT_EQ(record->launch.method, SngLaunch::WINCH);
  EXPECT_EQ(record->comm_channel, 300);
  EXPECT_TRUE(record->crashed);
  EXPECT_EQ(sentTo(bob, SngNet::AIRCRAFT_STATE).size(), 1u);
  EXPECT_EQ(sentTo(bob, SngNet::EXTRA_AIRCRAFT_STATE).size(), 1u);
  net->receive(alice, stateBytes(0, 1e9, -90.0, 180.0, -1e7));  // absurd but finite: on the globe
  drain();
  EXPECT_EQ(record->track.size(), 2u);
}

TEST_F(BadInput, EveryLineAConnectionCausesIsUnderItsBudget) {
  startServer("task {\n turnpoint {\n  lat = 46.02\n  lon = 7.02\n  name = A\n }\n turnpoint {\n  lat = 46.04\n"
              "  lon = 7.04\n  name = B\n }\n}\n");
  const SngPeer noisy = login(0x11, "noisy");
  login(0x22, "quiet", 2);
  const SngPeer stranger = net->connect(127, 0, 0, 3);
  const std::string before = log();
  // A stranger's CONNECTs, each with a task of 200 turnpoints: one log line per turnpoint unbounded.
  SngConnectMsg strange;
  strange.task.assign(200, SngTurnpoint());
  for (int i = 0; i < 100; ++i) net->receive(stranger, sngMessage(SngNet::CONNECT, strange).bytes);
  // Voice, radio changes, unknown opcodes and states that each score the task (4 s apart).
  for (const auto& msg : everyClientMessage(0, 0x11)) {
    if (msg[0] == SngNet::CONNECT) net->receive(noisy, msg);
  }
  for (int i = 0; i < 100; ++i) {
    const auto& all = everyClientMessage(0, 0x11);
    net->receive(noisy, all[4]);  // voice
    net->receive(noisy, all[5]);  // radio channel
    net->receive(noisy, {0x55});
    net->receive(noisy, stateBytes(0, 43300.0 + 4 * i, 46.02 + 0.0001 * i));
  }
  drain();
  const std::string during = log().substr(before.size());
  const size_t lines = countOf(during, "Voice packet") + countOf(during, "changed to channel") +
                       countOf(during, "Unknown opcode") + countOf(during, "Task update:") +
                       countOf(during, "Connect player") + countOf(during, "Task: TP");
  EXPECT_EQ(sentTo(stranger, SngNet::RESULT_UNKNOWN_PLAYER).size(), 100u);  // every one is answered
  EXPECT_GE(lines, 90u);
  EXPECT_LE(lines, 100u);  // 50 for each connection
  EXPECT_EQ(playerAt(0)->track.size(), 100u);  // the budget silences lines, never the work
  clock.advanceSeconds(61.0);
  net->receive(noisy, {0x56});
  drain();
  EXPECT_THAT(log(), HasSubstr("diagnostic lines suppressed in the last minute"));
  EXPECT_THAT(log(), HasSubstr("Unknown opcode: 0x56 received"));
}

TEST_F(BadInput, ASituationWithTooManyTurnpointsSendsAServerInfoThatStillParses) {
  std::string task = "task {\n";
  for (int i = 0; i < 300; ++i) task += " turnpoint {\n  lat = 46.02\n  lon = 7.02\n  name = T\n }\n";
  writeText(servers() + "/motd.txt", "welcome\n");
  startServer(task + "}\nmp_server_message_file = motd.txt\n");
  EXPECT_THAT(log(), HasSubstr("has 300 turnpoints: only the first 255 are used"));
  const SngPeer alice = login(0x11, "alice");
  const auto info = sentTo(alice, SngNet::SERVER_INFO);
  ASSERT_EQ(info.size(), 1u);
  SngPacket packet(info[0].data);
  packet.cursor = 1;
  SngServerInfoMsg msg;
  ASSERT_TRUE(msg.read(packet));
  EXPECT_EQ(msg.task.size(), 255u);
  EXPECT_EQ(msg.motd, "welcome\n\n");
  EXPECT_EQ(packet.remaining(), 0u);
}

}  // namespace

namespace {

using TaskBroadcast = ProtocolFixture;

TEST_F(TaskBroadcast, GoesToTheOthersAndMarksAFinishReportedOnce) {
  startServer();
  const SngPeer alice = login(0x11, "alice");
  const SngPeer bob = login(0x22, "bob", 2);
  // Both join (live) and alice flies a finished two-point task.
  for (uint32_t id : {0u, 1u}) {
    SngSrvPlayer* p = playerAt(id);
    p->idle = false;
    SngTurnpoint tp;
    tp.lat = 46.0;
    tp.lon = 7.0;
    p->task.turnpoints = {tp, tp};
  }
  playerAt(0)->task.finished = true;
  pass(15.0);
  EXPECT_TRUE(playerAt(0)->finish_reported);
  EXPECT_FALSE(playerAt(1)->finish_reported);
  ASSERT_EQ(sentTo(bob, SngNet::TASK_UPDATE).size(), 1u);
  EXPECT_EQ(sentTo(bob, SngNet::TASK_UPDATE)[0].data[2], 2);  // status: finished
  EXPECT_EQ(sentTo(alice, SngNet::TASK_UPDATE).size(), 1u);   // bob's update, never her own
  pass(15.0);
  EXPECT_EQ(countOf(log(), "Send task update: alice"), 2u);  // one line per player and broadcast
}

}  // namespace
